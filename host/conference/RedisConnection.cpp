// CRedisLink: connecting, the greeting, the ordered command queue, backoff and the watchdog.
#include "conference/RedisConnection.h"

#include "conference/RedisConference.h"
#include "tessarinnote/notehostui.h"

#include <hiredis/async.h>
#include <hiredis/hiredis.h>

#include <algorithm>

namespace {

constexpr unsigned kFirstRetryMs = 50;
constexpr unsigned kMaxRetryMs = 5000;
constexpr unsigned kWatchdogMs = 200;

// ---------------------------------------------------------------- the GLib source of one context

// Polls the context's socket and hands readiness to hiredis. hiredis calls Cleanup when it frees
// the context (possibly inside HandleRead): the source then forgets it and destroys itself.
struct CRedisSource {
    GSource base;
    redisAsyncContext* pContext;
    GPollFD fd;
};

gboolean SourcePrepare(GSource*, gint* timeout)
{
    *timeout = -1;
    return FALSE;
}

gboolean SourceCheck(GSource* source)
{
    const CRedisSource* own = reinterpret_cast<CRedisSource*>(source);
    return (own->fd.revents & (own->fd.events | G_IO_HUP | G_IO_ERR)) != 0;
}

gboolean SourceDispatch(GSource* source, GSourceFunc, gpointer)
{
    CRedisSource* own = reinterpret_cast<CRedisSource*>(source);
    const gushort ready = own->fd.revents;
    own->fd.revents = 0;
    if (own->pContext && (ready & G_IO_OUT)) redisAsyncHandleWrite(own->pContext);
    if (own->pContext && (ready & (G_IO_IN | G_IO_HUP | G_IO_ERR))) redisAsyncHandleRead(own->pContext);
    return G_SOURCE_CONTINUE;
}

GSourceFuncs g_redisSourceFuncs = {SourcePrepare, SourceCheck, SourceDispatch, nullptr, nullptr, nullptr};

void SourceAddRead(void* data)
{
    reinterpret_cast<CRedisSource*>(data)->fd.events |= G_IO_IN;
}

void SourceDelRead(void* data)
{
    reinterpret_cast<CRedisSource*>(data)->fd.events &= static_cast<gushort>(~G_IO_IN);
}

void SourceAddWrite(void* data)
{
    reinterpret_cast<CRedisSource*>(data)->fd.events |= G_IO_OUT;
}

void SourceDelWrite(void* data)
{
    reinterpret_cast<CRedisSource*>(data)->fd.events &= static_cast<gushort>(~G_IO_OUT);
}

void SourceCleanup(void* data)
{
    CRedisSource* own = reinterpret_cast<CRedisSource*>(data);
    own->pContext = nullptr;
    g_source_remove_poll(&own->base, &own->fd);
    g_source_destroy(&own->base);
    g_source_unref(&own->base);
}

void AttachSource(redisAsyncContext* context, GMainContext* main)
{
    CRedisSource* own = reinterpret_cast<CRedisSource*>(g_source_new(&g_redisSourceFuncs, sizeof(CRedisSource)));
    own->pContext = context;
    own->fd.fd = context->c.fd;
    own->fd.events = 0;
    own->fd.revents = 0;
    g_source_add_poll(&own->base, &own->fd);
    g_source_attach(&own->base, main);
    context->ev.data = own;
    context->ev.addRead = SourceAddRead;
    context->ev.delRead = SourceDelRead;
    context->ev.addWrite = SourceAddWrite;
    context->ev.delWrite = SourceDelWrite;
    context->ev.cleanup = SourceCleanup;
}

void SendArgs(redisAsyncContext* context, redisCallbackFn* fn, void* data, const CRedisLink::CArgs& args)
{
    std::vector<const char*> argv;
    std::vector<size_t> lengths;
    for (const std::string& arg : args) {
        argv.push_back(arg.data());
        lengths.push_back(arg.size());
    }
    redisAsyncCommandArgv(context, fn, data, static_cast<int>(argv.size()), argv.data(), lengths.data());
}

}  // namespace

CRedisLink::CRedisLink(const CRedisMeetingOptions& options, GMainContext* context, const char* name,
                       double stallSeconds)
    : m_strHost(options.strHost),
      m_nPort(options.nPort),
      m_strUnixSocket(options.strUnixSocket),
      m_strServer(RedisServerName(options)),
      m_strName(name),
      m_pMainContext(context),
      m_nStallMicros(static_cast<std::int64_t>(stallSeconds * 1e6)),
      m_eState(kIdle),
      m_pContext(nullptr),
      m_nConnectStarted(0),
      m_nGreetingLeft(0),
      m_nBackoffMs(kFirstRetryMs),
      m_pRetryTimer(nullptr),
      m_pWatchdog(nullptr),
      m_nSent(0)
{
    if (!options.strPassword.empty()) {
        CArgs auth{"AUTH"};
        if (!options.strUser.empty()) auth.push_back(options.strUser);
        auth.push_back(options.strPassword);
        m_aGreeting.push_back(auth);
    }
}

CRedisLink::~CRedisLink()
{
    StopTimer(&m_pRetryTimer);
    StopTimer(&m_pWatchdog);
    m_fnState = nullptr;
    if (redisAsyncContext* context = m_pContext) {
        m_pContext = nullptr;
        context->data = nullptr;
        redisAsyncFree(context);  // pending callbacks get null answers, which are ignored
    }
}

void CRedisLink::SetGreeting(std::vector<CArgs> commands)
{
    // AUTH, when there is one, stays first.
    const bool auth = !m_aGreeting.empty();
    m_aGreeting.resize(auth ? 1 : 0);
    for (CArgs& command : commands) m_aGreeting.push_back(std::move(command));
}

void CRedisLink::Start()
{
    if (m_eState != kIdle) return;
    m_pWatchdog = AddTimer(m_pMainContext, kWatchdogMs, &CRedisLink::OnWatchdog, this);
    Connect();
}

GSource* CRedisLink::AddTimer(GMainContext* context, unsigned ms, GSourceFunc fn, void* data)
{
    GSource* timer = g_timeout_source_new(ms);
    g_source_set_callback(timer, fn, data, nullptr);
    g_source_attach(timer, context);
    return timer;
}

void CRedisLink::StopTimer(GSource** timer)
{
    if (!*timer) return;
    g_source_destroy(*timer);
    g_source_unref(*timer);
    *timer = nullptr;
}

void CRedisLink::Connect()
{
    redisAsyncContext* context = m_strUnixSocket.empty() ? redisAsyncConnect(m_strHost.c_str(), m_nPort)
                                                         : redisAsyncConnectUnix(m_strUnixSocket.c_str());
    if (!context || context->err) {
        if (context) redisAsyncFree(context);
        m_eState = kWaiting;
        ScheduleRetry();
        return;
    }
    m_pContext = context;
    context->data = this;
    m_eState = kConnecting;
    m_nConnectStarted = g_get_monotonic_time();
    AttachSource(context, m_pMainContext);
    // After the source: setting the connect callback asks for the first write event.
    redisAsyncSetConnectCallback(context, &CRedisLink::OnConnect);
    redisAsyncSetDisconnectCallback(context, &CRedisLink::OnDisconnect);
    m_nGreetingLeft = m_aGreeting.size() + 1;
    for (const CArgs& command : m_aGreeting) SendArgs(context, &CRedisLink::OnGreeting, this, command);
    SendArgs(context, &CRedisLink::OnGreeting, this, CArgs{"PING"});
}

void CRedisLink::OnConnect(const redisAsyncContext* context, int status)
{
    CRedisLink* self = static_cast<CRedisLink*>(context->data);
    if (!self || self->m_pContext != context) return;
    if (status != REDIS_OK) {
        // hiredis frees the context after this returns.
        self->m_pContext = nullptr;
        self->Lost("cannot connect");
        return;
    }
    // TCP only: on a Unix socket the keep-alive options fail and would mark the context broken.
    if (self->m_strUnixSocket.empty()) redisEnableKeepAlive(&self->m_pContext->c);
}

void CRedisLink::OnDisconnect(const redisAsyncContext* context, int /*status*/)
{
    CRedisLink* self = static_cast<CRedisLink*>(context->data);
    if (!self || self->m_pContext != context) return;
    self->m_pContext = nullptr;
    self->Lost("connection closed");
}

void CRedisLink::OnGreeting(redisAsyncContext* context, void* reply, void* data)
{
    CRedisLink* self = static_cast<CRedisLink*>(data);
    if (!reply || self->m_pContext != context || self->m_eState != kConnecting) return;
    const redisReply* answer = static_cast<const redisReply*>(reply);
    if (answer->type == REDIS_REPLY_ERROR) {
        MacInfoTrace2("note", "redis: %s connection to %s refused: %s", self->m_strName.c_str(),
                      self->m_strServer.c_str(), answer->str);
        self->m_strGreetingRefusal.assign(answer->str ? answer->str : "", answer->len);
        self->Drop("greeting refused");
        return;
    }
    if (--self->m_nGreetingLeft > 0) return;
    self->m_eState = kUp;
    self->m_nBackoffMs = kFirstRetryMs;
    self->m_strGreetingRefusal.clear();
    // What was queued, and what a lost connection left unanswered, in order; then whatever the
    // state handler sends follows it.
    for (CCommand& command : self->m_queue) self->Transmit(command);
    if (self->m_fnState) self->m_fnState(true);
}

void CRedisLink::Send(CArgs args, CReplyHandler handler, bool keep)
{
    m_queue.push_back(CCommand{std::move(args), std::move(handler), keep, 0});
    if (m_eState == kUp) Transmit(m_queue.back());
}

void CRedisLink::Transmit(CCommand& command)
{
    command.nSentAt = g_get_monotonic_time();
    ++m_nSent;
    SendArgs(m_pContext, &CRedisLink::OnAnswer, this, command.args);
}

void CRedisLink::OnAnswer(redisAsyncContext* context, void* reply, void* data)
{
    CRedisLink* self = static_cast<CRedisLink*>(data);
    // Null: the context is going away; the command stays queued for the next connection.
    if (!reply || self->m_pContext != context || self->m_nSent == 0) return;
    CCommand command = std::move(self->m_queue.front());
    self->m_queue.pop_front();
    --self->m_nSent;
    if (command.handler) command.handler(*static_cast<const redisReply*>(reply));
}

void CRedisLink::Drop(const char* why)
{
    redisAsyncContext* context = m_pContext;
    if (!context) return;
    m_pContext = nullptr;
    context->data = nullptr;
    // Inside one of its callbacks hiredis frees the context when the callback returns.
    redisAsyncFree(context);
    Lost(why);
}

void CRedisLink::Lost(const char* why)
{
    const bool wasUp = m_eState == kUp;
    m_eState = kWaiting;
    // Unkept commands on the wire go; kept ones are sent again on the next connection.
    std::deque<CCommand> kept;
    for (std::size_t i = 0; i < m_queue.size(); ++i)
        if (i >= m_nSent || m_queue[i].bKeep) kept.push_back(std::move(m_queue[i]));
    m_queue.swap(kept);
    m_nSent = 0;
    if (wasUp) {
        MacInfoTrace2("note", "redis: %s connection to %s lost (%s), reconnecting", m_strName.c_str(),
                      m_strServer.c_str(), why);
        if (m_fnState) m_fnState(false);
    }
    ScheduleRetry();
}

void CRedisLink::ScheduleRetry()
{
    StopTimer(&m_pRetryTimer);
    m_pRetryTimer = AddTimer(m_pMainContext, m_nBackoffMs, &CRedisLink::OnRetry, this);
    m_nBackoffMs = std::min(m_nBackoffMs * 2, kMaxRetryMs);
}

gboolean CRedisLink::OnRetry(gpointer data)
{
    CRedisLink* self = static_cast<CRedisLink*>(data);
    g_source_unref(self->m_pRetryTimer);
    self->m_pRetryTimer = nullptr;
    self->Connect();
    return G_SOURCE_REMOVE;
}

gboolean CRedisLink::OnWatchdog(gpointer data)
{
    CRedisLink* self = static_cast<CRedisLink*>(data);
    const std::int64_t now = g_get_monotonic_time();
    if (self->m_eState == kConnecting && now - self->m_nConnectStarted > self->m_nStallMicros)
        self->Drop("no answer to the greeting");
    else if (self->m_eState == kUp && self->m_nSent > 0 && now - self->m_queue.front().nSentAt > self->m_nStallMicros)
        self->Drop("no answer in time");
    return G_SOURCE_CONTINUE;
}
