// CRedisLink: one asynchronous connection to the meeting's redis-server, driven by a GLib main
// context (hiredis's asynchronous API; the GLib source is our own, so a context that hiredis
// frees inside a read is never touched again). The link keeps itself up: a lost connection is
// retried with backoff (50 ms, doubling, at most 5 s apart) and every connection first sends
// the greeting (AUTH, script loads) before anything queued.
//
// Commands go out in the order they were sent. A kept command stays queued until its answer
// arrives, and is sent again on the next connection when the connection was lost first, so no
// command is lost to an outage; its handler runs once, with the answer. An answer that does not
// come within the stall time counts as a lost connection (a network that is gone, a server that
// is stopped). Single-threaded: use on the context's thread only.
#pragma once

#include <glib.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

struct CRedisMeetingOptions;
struct redisAsyncContext;
struct redisReply;

class CRedisLink {
public:
    typedef std::vector<std::string> CArgs;
    // Runs with the answer (never null; may be an error answer).
    typedef std::function<void(const redisReply&)> CReplyHandler;

    // name tags trace lines ("command", "reader"). REQUIRES: context outlives the link.
    CRedisLink(const CRedisMeetingOptions& options, GMainContext* context, const char* name, double stallSeconds);
    ~CRedisLink();
    CRedisLink(const CRedisLink&) = delete;
    CRedisLink& operator=(const CRedisLink&) = delete;

    // Commands sent first on every connection; an error answer to any of them drops the
    // connection and retries. AUTH is added in front when the options name a password.
    void SetGreeting(std::vector<CArgs> commands);
    // handler(true) when the link is up (greeting answered), handler(false) when it was lost.
    void SetStateHandler(std::function<void(bool)> handler) { m_fnState = std::move(handler); }
    // Starts connecting.
    void Start();

    // Queues a command, sent at once while the link is up. keep false: forgotten (its handler
    // never runs) when the connection is lost before the answer.
    void Send(CArgs args, CReplyHandler handler, bool keep = true);
    // Drops the connection as if it were lost, and reconnects with backoff.
    void Drop(const char* why);

    bool IsUp() const { return m_eState == kUp; }
    // The server's answer when it refused the last greeting (wrong or revoked credentials),
    // empty once a greeting is answered.
    const std::string& GreetingRefusal() const { return m_strGreetingRefusal; }
    // Commands queued or sent whose answer has not arrived.
    std::size_t Unanswered() const { return m_queue.size(); }
    const std::string& ServerName() const { return m_strServer; }

private:
    enum EState { kIdle, kConnecting, kUp, kWaiting };
    struct CCommand {
        CArgs args;
        CReplyHandler handler;
        bool bKeep;
        std::int64_t nSentAt;  // monotonic microseconds
    };

    void Connect();
    void Transmit(CCommand& command);
    void Lost(const char* why);
    void ScheduleRetry();
    void StopTimer(GSource** timer);
    static GSource* AddTimer(GMainContext* context, unsigned ms, GSourceFunc fn, void* data);
    static gboolean OnRetry(gpointer data);
    static gboolean OnWatchdog(gpointer data);
    static void OnConnect(const redisAsyncContext* context, int status);
    static void OnDisconnect(const redisAsyncContext* context, int status);
    static void OnGreeting(redisAsyncContext* context, void* reply, void* data);
    static void OnAnswer(redisAsyncContext* context, void* reply, void* data);

    std::string m_strHost;
    std::string m_strGreetingRefusal;
    int m_nPort;
    std::string m_strUnixSocket;
    std::string m_strServer;
    std::string m_strName;
    std::vector<CArgs> m_aGreeting;
    GMainContext* m_pMainContext;
    std::int64_t m_nStallMicros;

    EState m_eState;
    redisAsyncContext* m_pContext;
    std::int64_t m_nConnectStarted;
    std::size_t m_nGreetingLeft;
    unsigned m_nBackoffMs;
    GSource* m_pRetryTimer;
    GSource* m_pWatchdog;
    std::deque<CCommand> m_queue;  // the first m_nSent are on the wire
    std::size_t m_nSent;
    std::function<void(bool)> m_fnState;
};
