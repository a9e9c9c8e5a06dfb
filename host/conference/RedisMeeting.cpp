// CRedisMeeting: the links, the sequencer, puts, subscriptions and meeting-wide messages.
#include "conference/RedisMeeting.h"

#include "conference/ChangeCache.h"
#include "conference/DataUnits.h"
#include "conference/RedisArmService.h"
#include "tessarinnote/notehostui.h"

#include <glib.h>

#include <algorithm>
#include <climits>

namespace {

// An answer later than this counts as a lost connection; reads block for less.
constexpr double kStallSeconds = 6.0;
const char kReadBlockMs[] = "2000";
const char kReadBatch[] = "64";  // with the entry limit, bounds what one read may hold

const std::string& ShaOf(const CRedisScript& script)
{
    static const std::string handshake = kHandshakeScript.Sha1();
    static const std::string put = kPutScript.Sha1();
    static const std::string read = kReadScript.Sha1();
    static const std::string emit = kEmitScript.Sha1();
    if (&script == &kHandshakeScript) return handshake;
    if (&script == &kPutScript) return put;
    if (&script == &kReadScript) return read;
    return emit;
}

std::string FormatTime(double seconds)
{
    char text[G_ASCII_DTOSTR_BUF_SIZE];
    return g_ascii_formatd(text, sizeof text, "%.17g", seconds);
}

std::string NewToken()
{
    char text[24];
    g_snprintf(text, sizeof text, "%08x%08x", g_random_int(), g_random_int());
    return text;
}

bool IsText(const redisReply* reply)
{
    return reply && (reply->type == REDIS_REPLY_STRING || reply->type == REDIS_REPLY_STATUS);
}

const char* ErrorText(const redisReply& reply)
{
    return reply.type == REDIS_REPLY_ERROR && reply.str ? reply.str : "an answer of the wrong form";
}

// A refused put, as the putter alone hears it.
void Refuse(CRedisArmService& putter, unsigned cacheHandle, unsigned itemId, tagCacheAction action)
{
    putter.EmitDelivery(putter.AnswerSink(cacheHandle), itemId, cacheHandle, nullptr, ARM_REFUSED, action,
                        putter.AttachId());
    putter.EmitCacheConfirm(cacheHandle, action, itemId, ARM_REFUSED);
}

}  // namespace

CRedisMeeting::CRedisMeeting(const CRedisMeetingOptions& options, GMainContext* context, const std::string& pkiKey,
                             const CStreamId& start)
    : m_options(options),
      m_context(context),
      m_keys(options.strMeetingId),
      m_strTtl(std::to_string(std::max(1u, options.nTtlSeconds))),
      m_strToken(NewToken()),
      m_nPutSeq(0),
      m_sealer(reinterpret_cast<const unsigned char*>(pkiKey.data()), pkiKey.size()),
      m_command(options, context, "command", kStallSeconds),
      m_reader(options, context, "reader", kStallSeconds),
      m_bEverUp(false),
      m_bLost(false),
      m_sequencer(start),
      m_nRefusedPuts(0)
{
    m_command.SetGreeting(ScriptLoadCommands());
    m_command.SetStateHandler([this](bool) { OnLinkState(); });
    m_reader.SetStateHandler([this](bool up) {
        if (up) Read();
        OnLinkState();
    });
    m_command.Start();
    m_reader.Start();
}

CRedisMeeting::~CRedisMeeting()
{
    m_aServices.clear();
}

// ---------------------------------------------------------------- participants

IArmService* CRedisMeeting::NewService(IRunLoop& loop)
{
    m_aServices.push_back(std::make_shared<CRedisArmService>(*this, loop));
    return m_aServices.back().get();
}

CRedisArmService* CRedisMeeting::Find(const IArmService* service) const
{
    if (!service) return nullptr;
    for (const auto& own : m_aServices)
        if (static_cast<const IArmService*>(own.get()) == service) return own.get();
    return nullptr;
}

int CRedisMeeting::Release(CRedisArmService* service)
{
    const auto found =
        std::find_if(m_aServices.begin(), m_aServices.end(),
                     [service](const std::shared_ptr<CRedisArmService>& own) { return own.get() == service; });
    if (found == m_aServices.end()) return kArmFailed;
    // Keeps the object alive until erase has returned; it may be the caller.
    const std::shared_ptr<CRedisArmService> last = *found;
    m_aServices.erase(found);
    return 0;
}

void CRedisMeeting::SetConnected(IArmService* service, bool connected)
{
    if (CRedisArmService* own = Find(service)) own->SetConnected(connected);
}

void CRedisMeeting::SetMeetingLostHandler(IArmService* service, std::function<void(int)> handler)
{
    if (CRedisArmService* own = Find(service)) own->SetMeetingLostHandler(std::move(handler));
}

void CRedisMeeting::OnLinkState()
{
    const bool up = m_command.IsUp() && m_reader.IsUp();
    if (up && m_bLost) {
        MacInfoTrace2("note", "redis: meeting %s is back", m_options.strMeetingId.c_str());
        for (const auto& service : m_aServices) service->PostMeetingLost(0);
    } else if (!up && m_bEverUp && !m_bLost) {
        for (const auto& service : m_aServices) service->PostMeetingLost(1);
    }
    if (up) m_bEverUp = true;
    m_bLost = m_bEverUp && !up;
}

bool CRedisMeeting::IsSettled() const
{
    return m_command.IsUp() && m_reader.IsUp() && m_command.Unanswered() == 0 && m_sequencer.IsIdle();
}

bool CRedisMeeting::IsLive(const IArmService* service) const
{
    const CRedisArmService* own = Find(service);
    return own && own->IsHistoryPosted();
}

unsigned CRedisMeeting::RefusedPuts(std::string* lastReason) const
{
    if (lastReason) *lastReason = m_strLastRefusal;
    return m_nRefusedPuts;
}

bool CRedisMeeting::RefusesUs(std::string* reason) const
{
    for (const CRedisLink* link : {&m_command, &m_reader}) {
        const std::string& refusal = link->GreetingRefusal();
        if (link->IsUp() || refusal.compare(0, 9, "WRONGPASS") != 0) continue;
        if (reason) *reason = refusal;
        return true;
    }
    return false;
}

// ---------------------------------------------------------------- commands

std::vector<std::string> CRedisMeeting::ScriptArgs(const CRedisScript& script, bool readOnly,
                                                   std::initializer_list<std::string> keys) const
{
    std::vector<std::string> args{readOnly ? "EVALSHA_RO" : "EVALSHA", ShaOf(script), std::to_string(keys.size())};
    args.insert(args.end(), keys.begin(), keys.end());
    return args;
}

void CRedisMeeting::Handshake(std::vector<std::string> step, std::function<void(const std::vector<unsigned>&)> done)
{
    std::vector<std::string> args = ScriptArgs(kHandshakeScript, false, {m_keys.strHandshake});
    args.push_back(m_strTtl);
    args.insert(args.end(), step.begin(), step.end());
    m_command.Send(std::move(args), [done](const redisReply& reply) {
        std::vector<unsigned> ids;
        for (std::size_t i = 0; reply.type == REDIS_REPLY_ARRAY && i < reply.elements; ++i) {
            const redisReply* id = reply.element[i];
            if (!id || id->type != REDIS_REPLY_INTEGER || id->integer <= 0 || id->integer > UINT_MAX) break;
            ids.push_back(static_cast<unsigned>(id->integer));
        }
        if (reply.type != REDIS_REPLY_ARRAY || ids.size() != reply.elements) {
            MacInfoTrace2("note", "redis: handshake refused: %s", ErrorText(reply));
            ids.clear();
        }
        done(ids);
    });
}

void CRedisMeeting::SendOrdered(CRedisLink::CArgs args,
                                std::function<void(const redisReply&, CStreamId&, std::function<void()>&)> then)
{
    m_sequencer.Sent();
    m_command.Send(std::move(args), [this, then](const redisReply& reply) {
        CStreamId position;
        std::function<void()> act;
        then(reply, position, act);
        m_sequencer.Answered(position, std::move(act));
        m_sequencer.Pump([this](const CLogEvent& event) { Deliver(event); });
    });
}

void CRedisMeeting::SubmitPut(CRedisArmService& putter, const CCachePut& put)
{
    const unsigned cache = put.nCacheHandle;
    const unsigned attachId = putter.AttachId();
    const std::weak_ptr<CRedisArmService> weak = putter.Weak();
    if (!put.bHasBytes && !(put.nFlags & CACHE_FLAG_CLEAR)) {
        // Resynchronise: only reads, so readers may ask too.
        std::vector<std::string> args = ScriptArgs(kReadScript, true, {m_keys.strMeta, m_keys.Items(cache)});
        args.insert(args.end(), {std::to_string(cache), "newest"});
        SendOrdered(std::move(args), [weak, cache, attachId](const redisReply& reply, CStreamId& position,
                                                             std::function<void()>& act) {
            unsigned newest = 0;
            if (reply.type != REDIS_REPLY_ARRAY || reply.elements != 2 || !IsText(reply.element[0]) ||
                !IsText(reply.element[1]) || !position.Parse(reply.element[0]->str, reply.element[0]->len) ||
                !ParseUnsigned(reply.element[1]->str, reply.element[1]->len, newest)) {
                MacInfoTrace2("note", "redis: resynchronising cache %u failed: %s", cache, ErrorText(reply));
                return;
            }
            act = [weak, cache, attachId, newest] {
                const std::shared_ptr<CRedisArmService> self = weak.lock();
                if (self && self->AttachId() == attachId)
                    self->EmitDelivery(self->AnswerSink(cache), newest, cache, nullptr, 0, CACHE_ACTION_SUBSCRIBED, 0);
            };
        });
        return;
    }
    std::vector<std::string> args =
        ScriptArgs(kPutScript, false, {m_keys.strHandshake, m_keys.strMeta, m_keys.strLog, m_keys.Items(cache)});
    args.insert(args.end(), {m_strTtl, std::to_string(cache), std::to_string(put.nMode), std::to_string(put.nFlags),
                             std::to_string(put.nItemId), std::to_string(attachId), m_strToken,
                             std::to_string(++m_nPutSeq), put.bHasBytes ? "1" : "0", FormatTime(putter.Loop().Now()),
                             put.pBytes ? *put.pBytes : std::string(), std::to_string(kMaxRedisItemBytes)});
    const bool appends = put.nMode == CACHE_MODE_APPEND || put.nItemId == 0;
    const tagCacheAction action = appends ? CACHE_ACTION_ADDED : CACHE_ACTION_UPDATED;
    const unsigned itemId = put.nItemId;
    SendOrdered(std::move(args), [this, weak, cache, attachId, action, itemId](const redisReply& reply,
                                                                               CStreamId& position,
                                                                               std::function<void()>& act) {
        CPutAnswer answer;
        const bool understood = ParsePutAnswer(reply, answer);
        if (!understood) {
            MacInfoTrace2("note", "redis: put into cache %u refused by the server: %s", cache, ErrorText(reply));
            ++m_nRefusedPuts;
            m_strLastRefusal = ErrorText(reply);
        } else {
            position = answer.position;
        }
        act = [weak, cache, attachId, action, itemId, understood, answer] {
            const std::shared_ptr<CRedisArmService> self = weak.lock();
            if (!self || self->AttachId() != attachId) return;
            if (!understood) {
                // A reader's put, or one the server could not take: refused to the putter alone.
                Refuse(*self, cache, itemId, action);
            } else if (answer.cStatus == 'a' || answer.cStatus == 'u') {
                self->EmitCacheConfirm(cache, answer.cStatus == 'a' ? CACHE_ACTION_ADDED : CACHE_ACTION_UPDATED,
                                       answer.nCacheId, 0);
            } else if (answer.cStatus == 'r') {
                Refuse(*self, cache, itemId, CACHE_ACTION_UPDATED);
            }
        };
    });
}

void CRedisMeeting::Subscribe(CRedisArmService& service, unsigned cacheHandle, bool first)
{
    const std::weak_ptr<CRedisArmService> weak = service.Weak();
    const unsigned attachId = service.AttachId();
    std::vector<std::string> args = ScriptArgs(kReadScript, true, {m_keys.strMeta, m_keys.Items(cacheHandle)});
    args.insert(args.end(), {std::to_string(cacheHandle), first ? "newest" : "all"});
    SendOrdered(std::move(args), [weak, cacheHandle, attachId, first](const redisReply& reply, CStreamId& position,
                                                                      std::function<void()>& act) {
        if (reply.type != REDIS_REPLY_ARRAY || reply.elements < 1 || !IsText(reply.element[0]) ||
            !position.Parse(reply.element[0]->str, reply.element[0]->len)) {
            MacInfoTrace2("note", "redis: subscribing to cache %u failed: %s", cacheHandle, ErrorText(reply));
            return;
        }
        std::vector<CStoredItem> items;
        unsigned newest = 0;
        for (std::size_t i = 1; i < reply.elements; ++i) {
            const redisReply* element = reply.element[i];
            CStoredItem item;
            if (first && IsText(element) && ParseUnsigned(element->str, element->len, newest)) continue;
            if (!first && IsText(element) && ParseStoredItem(element->str, element->len, kMaxRedisItemBytes, item))
                items.push_back(std::move(item));
            else
                MacInfoTrace2("note", "redis: a stored item of cache %u refused", cacheHandle);
        }
        act = [weak, cacheHandle, attachId, first, newest, items = std::move(items)] {
            const std::shared_ptr<CRedisArmService> self = weak.lock();
            if (!self || self->AttachId() != attachId) return;
            const auto found = self->Subscriptions().find(cacheHandle);
            if (found == self->Subscriptions().end()) return;
            IArmSharedDataSink* sink = found->second.pSink;
            if (!first) {
                self->SetHistoryPosted();
                found->second.bHasHistory = true;
            }
            if (first) {
                found->second.bActive = true;
                self->EmitDelivery(sink, newest, cacheHandle, nullptr, 0, CACHE_ACTION_SUBSCRIBED, 0);
                return;
            }
            for (const CStoredItem& item : items) {
                const tagCacheAction action = (&item == &items.back()) ? CACHE_ACTION_ADDED : CACHE_ACTION_KNOWN;
                self->EmitDelivery(sink, item.nId, cacheHandle, item.pBytes, 0, action, item.nPutter);
            }
        };
    });
}

void CRedisMeeting::Emit(std::vector<std::string> fields)
{
    std::vector<std::string> args = ScriptArgs(kEmitScript, false, {m_keys.strHandshake, m_keys.strMeta, m_keys.strLog});
    args.push_back(m_strTtl);
    args.insert(args.end(), fields.begin(), fields.end());
    SendOrdered(std::move(args), [](const redisReply& reply, CStreamId& position, std::function<void()>&) {
        if (!IsText(&reply) || !position.Parse(reply.str, reply.len))
            MacInfoTrace2("note", "redis: a meeting message was refused: %s", ErrorText(reply));
    });
}

void CRedisMeeting::SendDataUnit(IArmService* from, unsigned toAttachId, short modifiedFlag, const std::string& payload,
                                 EDataRoute route, const char* resourceName, unsigned kind)
{
    const CRedisArmService* sender = Find(from);
    if (!sender) return;
    const unsigned fromAttachId = sender->AttachId();
    int wire = CLogEvent::kDirect;
    std::string bytes;
    if (route == EDataRoute::kResourceCallback && IsPki()) {
        bytes = SealDataUnit(m_sealer, fromAttachId, toAttachId, modifiedFlag, payload);
        wire = CLogEvent::kResourceSealed;
    } else {
        bytes = BuildDataUnitEnvelope(fromAttachId, toAttachId, modifiedFlag, payload);
        if (route == EDataRoute::kResourceCallback) wire = CLogEvent::kResource;
    }
    if (bytes.empty() || bytes.size() > kMaxRedisEntryBytes) {
        MacInfoTrace2("note", "redis: a data unit of %zu bytes was not sent", payload.size());
        return;
    }
    Emit({"k", "d", "p", std::to_string(fromAttachId), "to", std::to_string(toAttachId), "r", std::to_string(wire),
          "nm", resourceName ? resourceName : "", "kd", std::to_string(kind), "b", bytes});
}

void CRedisMeeting::CloseNotepad()
{
    Emit({"k", "x"});
}

// ---------------------------------------------------------------- reading the log

void CRedisMeeting::Read()
{
    m_reader.Send({"XREAD", "COUNT", kReadBatch, "BLOCK", kReadBlockMs, "STREAMS", m_keys.strLog,
                   m_sequencer.Fetched().ToString()},
                  [this](const redisReply& reply) { OnRead(reply); }, false);
}

void CRedisMeeting::OnRead(const redisReply& reply)
{
    if (reply.type == REDIS_REPLY_NIL) {
        Read();
        return;
    }
    const redisReply* stream = reply.type == REDIS_REPLY_ARRAY && reply.elements == 1 ? reply.element[0] : nullptr;
    const redisReply* entries = stream && stream->type == REDIS_REPLY_ARRAY && stream->elements == 2 ? stream->element[1]
                                                                                                  : nullptr;
    if (!entries || entries->type != REDIS_REPLY_ARRAY) {
        MacInfoTrace2("note", "redis: the meeting log cannot be read: %s", ErrorText(reply));
        m_reader.Drop("the log cannot be read");
        return;
    }
    for (std::size_t i = 0; i < entries->elements; ++i) {
        CLogEvent event;
        std::string reason;
        const bool taken = entries->element[i] && ParseLogEntry(*entries->element[i], kMaxRedisEntryBytes, event, reason);
        if (m_sequencer.Read(event.id, taken ? &event : nullptr) && !taken)
            MacInfoTrace2("note", "redis: log entry %s refused: %s", event.id.ToString().c_str(), reason.c_str());
    }
    Read();
    m_sequencer.Pump([this](const CLogEvent& event) { Deliver(event); });
}

void CRedisMeeting::Deliver(const CLogEvent& event)
{
    if (event.cKind == CLogEvent::kData) {
        DeliverData(event);
        return;
    }
    for (const auto& service : m_aServices) {
        for (auto& entry : service->Subscriptions()) {
            const CRedisArmService::CSubscription& subscription = entry.second;
            if (!subscription.bActive) continue;
            if (event.cKind == CLogEvent::kClosed) {
                service->EmitDelivery(subscription.pSink, 0, entry.first, nullptr, 0, CACHE_ACTION_CLOSED, 0);
                continue;
            }
            if (entry.first != event.nCache) continue;
            if (event.cKind == CLogEvent::kCleared)
                service->EmitDelivery(subscription.pSink, 0, event.nCache, nullptr, 0, CACHE_ACTION_CLEARED,
                                      event.nPutter);
            else if (subscription.bHasHistory)  // before, the item comes with the history
                service->EmitDelivery(subscription.pSink, event.nCacheId, event.nCache, event.pBytes, 0,
                                      event.cKind == CLogEvent::kAdded ? CACHE_ACTION_ADDED : CACHE_ACTION_UPDATED,
                                      event.nPutter);
        }
    }
}

void CRedisMeeting::DeliverData(const CLogEvent& event)
{
    std::shared_ptr<const std::string> bytes = event.pBytes;
    if (event.nRoute == CLogEvent::kResourceSealed) {
        // The plug-in measures every record against the room after the text, as if its
        // position stayed at the text's end: a NUL ends the text, zero bytes give the room.
        auto padded = std::make_shared<std::string>(*bytes);
        padded->append(bytes->size() + 1, '\0');
        bytes = std::move(padded);
    }
    const auto name = std::make_shared<const std::string>(event.strResourceName);
    for (const auto& receiver : m_aServices) {
        const unsigned attachId = receiver->AttachId();
        if (attachId == 0) continue;
        if (event.nTo != 0 ? attachId != event.nTo : attachId == event.nPutter) continue;
        if (event.nRoute == CLogEvent::kDirect)
            receiver->EmitDataIndication(event.nPutter, bytes);
        else
            receiver->EmitResourceMessage(bytes, name, event.nResourceKind);
    }
}

// ---------------------------------------------------------------- recording

std::vector<CRecordedItem> CRedisMeeting::Recording() const
{
    std::vector<CRecordedItem> recording;
    std::string error;
    CRedisSyncContext context = ConnectRedisSync(m_options, error);
    std::string from = "-";
    while (context) {
        CRedisSyncReply page = RedisCommandSync(context.get(), {"XRANGE", m_keys.strLog, from, "+", "COUNT", "1000"},
                                                error);
        if (!page || page->type != REDIS_REPLY_ARRAY || page->elements == 0) break;
        for (std::size_t i = 0; i < page->elements; ++i) {
            CLogEvent event;
            std::string reason;
            const bool taken = ParseLogEntry(*page->element[i], kMaxRedisEntryBytes, event, reason);
            if (event.id.nMs == 0 && event.id.nSeq == 0) return recording;  // no id to go on from
            from = "(" + event.id.ToString();
            if (taken && (event.cKind == CLogEvent::kAdded || event.cKind == CLogEvent::kUpdated) &&
                (event.nFlags & (CACHE_FLAG_RECORD_A | CACHE_FLAG_RECORD_B)))
                recording.push_back(
                    CRecordedItem{event.nCache, event.nCacheId, event.nPutter, event.dLoopTime, *event.pBytes});
        }
        if (page->elements < 1000) break;
    }
    if (!error.empty()) MacInfoTrace2("note", "redis: the recording cannot be read: %s", error.c_str());
    return recording;
}
