// CRedisArmService: the handshake, name handles and subscriptions of one participant of a
// Redis-backed meeting.
#include "conference/RedisArmService.h"

#include "conference/RedisMeeting.h"
#include "conference/RedisScripts.h"
#include "tessarinnote/notehostui.h"

#include <cstring>
#include <string>
#include <vector>

namespace {

// The most names one AllocNameHandles call may ask for (the client asks for one).
constexpr unsigned kMaxNamesPerCall = 256;

}  // namespace

CRedisArmService::CRedisArmService(CRedisMeeting& meeting, IRunLoop& loop)
    : CArmServiceBase(loop, kMaxRedisItemBytes),
      m_rMeeting(meeting),
      m_pNodeSink(nullptr),
      m_pConferenceSink(nullptr),
      m_bConnected(false),
      m_bJoined(false),
      m_nReservedAttachId(0),
      m_bHistoryPosted(false)
{
}

CRedisArmService::~CRedisArmService() = default;

std::weak_ptr<CRedisArmService> CRedisArmService::Weak()
{
    return std::static_pointer_cast<CRedisArmService>(shared_from_this());
}

const CSealedRecords& CRedisArmService::Sealer() const
{
    return m_rMeeting.Sealer();
}

unsigned CRedisArmService::OwnConferenceHandle() const
{
    return m_rMeeting.ConferenceHandle();
}

bool CRedisArmService::KnowsCache(unsigned cacheHandle) const
{
    return m_rMeeting.KnowsCache(cacheHandle);
}

void CRedisArmService::SubmitPut(const CCachePut& put)
{
    m_rMeeting.SubmitPut(*this, put);
}

IArmSharedDataSink* CRedisArmService::AnswerSink(unsigned cacheHandle) const
{
    const auto found = m_mapSubscriptions.find(cacheHandle);
    return found != m_mapSubscriptions.end() ? found->second.pSink : m_pSharedSink;
}

// ---------------------------------------------------------------- lifetime and membership

int CRedisArmService::ArmService_Release()
{
    // May destroy this object: nothing may touch a member after it.
    return m_rMeeting.Release(this);
}

void CRedisArmService::ReserveAttachId(std::function<void(bool)> then)
{
    m_rMeeting.Handshake({"attach"}, [weak = Weak(), then](const std::vector<unsigned>& ids) {
        const std::shared_ptr<CRedisArmService> self = weak.lock();
        if (!self) return;
        if (ids.size() == 1) self->m_nReservedAttachId = ids[0];
        if (then) then(ids.size() == 1);
    });
}

int CRedisArmService::ArmService_Connect(IArmNodeControllerSink* sink, const char* /*name*/, unsigned /*a*/,
                                         unsigned /*b*/, unsigned /*c*/)
{
    if (m_bConnected) return ARM_ALREADY_CONNECTED;
    if (!sink) return kArmFailed;
    m_bConnected = true;
    m_pNodeSink = sink;
    if (m_nAttachId != 0 || m_nReservedAttachId != 0) {
        Emit([sink](CArmServiceBase&) { sink->ConnectConfirm(0, 0); });
        return 0;
    }
    // Confirmed once the attach id is held, so that the attach can write it at once.
    ReserveAttachId([this, sink](bool held) {
        if (!held) MacInfoTrace2("note", "redis: no attach id for a participant of meeting %s",
                                 m_rMeeting.Options().strMeetingId.c_str());
        const short result = held ? 0 : kArmFailed;
        Emit([sink, result](CArmServiceBase&) { sink->ConnectConfirm(result, 0); });
    });
    return 0;
}

int CRedisArmService::ArmService_Disconnect(IArmNodeControllerSink* sink, unsigned /*reason*/)
{
    if (!m_bConnected) return kArmFailed;
    // Leaving the node leaves the conference and ends the attachment with it.
    if (m_nAttachId != 0) Detach();
    m_bJoined = false;
    m_bConnected = false;
    IArmNodeControllerSink* answer = sink ? sink : m_pNodeSink;
    m_pNodeSink = nullptr;
    if (answer) Emit([answer](CArmServiceBase&) { answer->DisconnectConfirm(0); });
    return 0;
}

int CRedisArmService::ArmService_QueryConference(unsigned queryId, void* record)
{
    if (queryId != ARM_QUERY_CONFERENCE_FLAGS || !record) return kArmFailed;
    ARMConferenceQuery* query = static_cast<ARMConferenceQuery*>(record);
    if (m_rMeeting.IsPki()) query->flags |= ARM_CONFERENCE_FLAG_PKI;
    return 0;
}

int CRedisArmService::ArmService_JoinConference(unsigned /*reserved*/, unsigned conferenceHandle,
                                                IArmConferenceSink* sink, unsigned /*mode*/)
{
    if (m_bJoined) return ARM_ALREADY_JOINED;
    if (!sink || conferenceHandle != m_rMeeting.ConferenceHandle()) return kArmFailed;
    m_bJoined = true;
    m_pConferenceSink = sink;
    const unsigned short conference = static_cast<unsigned short>(conferenceHandle);
    Emit([sink, conference, name = m_rMeeting.Options().strMeetingId](CArmServiceBase&) mutable {
        sink->ConferenceJoinConfirm(conference, &name[0], 0, 0);
    });
    return 0;
}

int CRedisArmService::ArmService_LeaveConference(unsigned /*reserved*/, unsigned conferenceHandle,
                                                 IArmConferenceSink* /*sink*/)
{
    if (!m_bJoined || conferenceHandle != m_rMeeting.ConferenceHandle()) return kArmFailed;
    if (m_nAttachId != 0) Detach();
    m_bJoined = false;
    m_pConferenceSink = nullptr;
    return 0;
}

int CRedisArmService::ArmService_AttachUser(IArmApeSink* sink, unsigned /*reserved*/, unsigned short conferenceHandle,
                                            unsigned* attachId)
{
    const unsigned short own = static_cast<unsigned short>(m_rMeeting.ConferenceHandle());
    if (!sink || !attachId || conferenceHandle != own) return kArmFailed;
    // A second attach keeps the id it has: subscriptions belong to it.
    if (m_nAttachId == 0) {
        if (m_nReservedAttachId == 0) return kArmFailed;  // not connected yet
        m_nAttachId = m_nReservedAttachId;
        m_nReservedAttachId = 0;
        ReserveAttachId(nullptr);  // for an attach after a detach
    }
    m_pApeSink = sink;
    *attachId = m_nAttachId;
    const unsigned id = m_nAttachId;
    Emit([sink, id](CArmServiceBase&) { sink->ApeAttachConfirm(id, 0, 0); });
    return 0;
}

int CRedisArmService::ArmService_Enroll(unsigned attachId, unsigned resourceClass, unsigned sessionHandle,
                                        unsigned /*reserved*/, unsigned /*count*/, const ARMCapability* /*capability*/,
                                        const char* /*value*/, unsigned /*valueLength*/, unsigned /*mode*/)
{
    if (!IsOwnAttachId(attachId) || !m_pApeSink) return kArmFailed;
    IArmApeSink* sink = m_pApeSink;
    m_rMeeting.Handshake(
        {"resource", std::to_string(sessionHandle)},
        [weak = Weak(), sink, attachId, resourceClass, sessionHandle](const std::vector<unsigned>& ids) {
            const std::shared_ptr<CRedisArmService> self = weak.lock();
            if (!self || self->m_nAttachId != attachId) return;
            if (ids.size() != 1) {
                self->Emit([sink, attachId](CArmServiceBase&) { sink->ApeEnrollConfirm(attachId, kArmFailed, 0, nullptr); });
                return;
            }
            const ARMSessionResource resource{resourceClass, sessionHandle, attachId, 0, ids[0]};
            self->Emit([sink, resource](CArmServiceBase&) {
                ARMSessionResource copy = resource;
                sink->ApeEnrollConfirm(copy.nAttachId, 0, 1, &copy);
            });
        });
    return 0;
}

int CRedisArmService::ArmService_DetachUser(unsigned attachId)
{
    if (!IsOwnAttachId(attachId)) return kArmFailed;
    Detach();
    return 0;
}

void CRedisArmService::Detach()
{
    m_mapSubscriptions.clear();
    ResetAttachment();
}

// ---------------------------------------------------------------- caches

int CRedisArmService::ArmService_AllocNameHandles(unsigned attachId, unsigned count, NameHandles* names,
                                                  IArmAllocHandleSink* sink)
{
    if (!IsOwnAttachId(attachId) || !names || !sink || count == 0 || count > kMaxNamesPerCall) return kArmFailed;
    // The caller frees its array when the call returns: the confirm carries a copy.
    std::vector<NameHandles> answer(names, names + count);
    std::vector<std::string> step{"names"};
    for (const NameHandles& entry : answer) step.emplace_back(entry.szName, strnlen(entry.szName, sizeof entry.szName));
    m_rMeeting.Handshake(step, [weak = Weak(), sink, attachId, answer](const std::vector<unsigned>& ids) mutable {
        const std::shared_ptr<CRedisArmService> self = weak.lock();
        if (!self || self->m_nAttachId != attachId) return;
        const bool ok = ids.size() == answer.size();
        if (!ok) MacInfoTrace2("note", "redis: the server gave no cache handles");
        for (std::size_t i = 0; i < answer.size(); ++i) {
            answer[i].nHandle = ok ? ids[i] : 0;
            if (ok) self->m_rMeeting.RememberCache(ids[i]);
        }
        self->Emit([sink, attachId, answer = std::move(answer)](CArmServiceBase&) mutable {
            sink->AllocNameHandleConfirm(attachId, static_cast<unsigned>(answer.size()), answer.data(), 0);
        });
    });
    return 0;
}

int CRedisArmService::ArmService_SubscribeCache(unsigned attachId, unsigned cacheHandle, unsigned /*reserved*/,
                                                unsigned /*mode*/, unsigned /*depth*/, IArmSharedDataSink* sink)
{
    if (!IsOwnAttachId(attachId) || !m_rMeeting.KnowsCache(cacheHandle) || !sink) return kArmFailed;
    m_pSharedSink = sink;
    const auto found = m_mapSubscriptions.find(cacheHandle);
    const bool first = found == m_mapSubscriptions.end();
    if (first)
        m_mapSubscriptions.emplace(cacheHandle, CSubscription{sink, false, false});
    else
        found->second.pSink = sink;
    m_rMeeting.Subscribe(*this, cacheHandle, first);
    return 0;
}
