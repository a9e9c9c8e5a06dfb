// CRedisMeeting: this process's part of a Redis-backed meeting. It owns two connections to the
// server on one GLib main context: the command link, through which every change goes as one
// server-side script, and the reader link, which follows the meeting log with blocking reads.
// Its participants' services (CRedisArmService) live here too.
//
// Order. Every entry of the log has a position (its stream id), and every answer that must be
// ordered with the entries carries the log position its script saw; CLogSequencer merges both,
// so each participant hears the meeting in one order, the same as every other process.
//
// Outages. When either link is lost every participant's lost-meeting handler gets 1; the links
// reconnect on their own, then the handler gets 0, commands that were not answered go out again
// in order (a put sent twice is applied once: the script remembers its answer), and the reader
// goes on from the last entry it read, so what was missed arrives in order.
#pragma once

#include "conference/Meeting.h"
#include "conference/RedisConference.h"
#include "conference/RedisConnection.h"
#include "conference/RedisScripts.h"
#include "conference/RedisSequencer.h"
#include "conference/RedisWire.h"
#include "conference/SealedRecords.h"

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

class CRedisArmService;
struct CCachePut;

class CRedisMeeting final : public IMeeting {
public:
    // After NewRedisMeeting's synchronous check: the shared sealing key (empty when not PKI)
    // and the log position to read from. REQUIRES: context outlives the meeting.
    CRedisMeeting(const CRedisMeetingOptions& options, GMainContext* context, const std::string& pkiKey,
                  const CStreamId& start);
    ~CRedisMeeting() override;
    CRedisMeeting(const CRedisMeeting&) = delete;
    CRedisMeeting& operator=(const CRedisMeeting&) = delete;

    // --- IMeeting
    IArmService* NewService(IRunLoop& loop) override;
    unsigned ConferenceHandle() const override { return m_options.nConferenceHandle; }
    unsigned SessionHandle() const override { return m_options.nSessionHandle; }
    bool IsPki() const override { return m_options.bPki; }
    void SetConnected(IArmService* service, bool connected) override;
    void SetMeetingLostHandler(IArmService* service, std::function<void(int)> handler) override;
    void SendDataUnit(IArmService* from, unsigned toAttachId, short modifiedFlag, const std::string& payload,
                      EDataRoute route, const char* resourceName, unsigned kind) override;
    void CloseNotepad() override;
    // Read from the server (synchronously); the arrival time is the putter's loop clock.
    std::vector<CRecordedItem> Recording() const override;

    // --- for the services
    const CRedisMeetingOptions& Options() const { return m_options; }
    const CSealedRecords& Sealer() const { return m_sealer; }
    bool KnowsCache(unsigned cacheHandle) const { return m_setCaches.count(cacheHandle) != 0; }
    // One step of the handshake script ("attach", "resource" id, "names" name...); done gets
    // the ids, or nothing when the server refused.
    void Handshake(std::vector<std::string> step, std::function<void(const std::vector<unsigned>&)> done);
    void RememberCache(unsigned cacheHandle) { m_setCaches.insert(cacheHandle); }
    void SubmitPut(CRedisArmService& putter, const CCachePut& put);
    // first: the participant's first subscription to cache (answered with the newest id);
    // otherwise the cache's items are delivered as history.
    void Subscribe(CRedisArmService& service, unsigned cacheHandle, bool first);
    int Release(CRedisArmService* service);

    // Everything sent is answered and delivered, and both links are up.
    bool IsSettled() const;
    // See IsRedisParticipantLive and RedisMeetingRefusedPuts.
    bool IsLive(const IArmService* service) const;
    unsigned RefusedPuts(std::string* lastReason) const;
    // See RedisMeetingRefusesUs.
    bool RefusesUs(std::string* reason) const;

private:
    CRedisArmService* Find(const IArmService* service) const;
    // Sends a command whose answer is ordered with the log; then turns the answer into the
    // action to take at its position (position 0-0: at once).
    void SendOrdered(CRedisLink::CArgs args,
                     std::function<void(const redisReply&, CStreamId&, std::function<void()>&)> then);
    void Emit(std::vector<std::string> fields);
    void Read();
    void OnRead(const redisReply& reply);
    void Deliver(const CLogEvent& event);
    void DeliverData(const CLogEvent& event);
    void OnLinkState();
    std::vector<std::string> ScriptArgs(const CRedisScript& script, bool readOnly,
                                        std::initializer_list<std::string> keys) const;

    // Holds a reference to the main context for as long as the links use it.
    struct CContextRef {
        explicit CContextRef(GMainContext* context) : pContext(g_main_context_ref(context)) {}
        ~CContextRef() { g_main_context_unref(pContext); }
        CContextRef(const CContextRef&) = delete;
        CContextRef& operator=(const CContextRef&) = delete;
        GMainContext* pContext;
    };

    CRedisMeetingOptions m_options;
    CContextRef m_context;
    CRedisKeys m_keys;
    std::string m_strTtl;
    std::string m_strToken;  // names this process's puts for the script's memory of answers
    unsigned long long m_nPutSeq;
    CSealedRecords m_sealer;
    std::set<unsigned> m_setCaches;

    CRedisLink m_command;
    CRedisLink m_reader;
    bool m_bEverUp;
    bool m_bLost;

    CLogSequencer m_sequencer;
    unsigned m_nRefusedPuts;
    std::string m_strLastRefusal;

    // Last member: destroyed first, while the links they may be named in still exist.
    std::vector<std::shared_ptr<CRedisArmService>> m_aServices;
};
