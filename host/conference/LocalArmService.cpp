// CLocalArmService: the handshake, name handles and subscriptions of one local participant.
#include "conference/LocalArmService.h"

#include "conference/MeetingState.h"

#include <cstdint>
#include <cstring>
#include <vector>

namespace {

// The most names one AllocNameHandles call may ask for (the client asks for one).
constexpr unsigned kMaxNamesPerCall = 256;

}  // namespace

CLocalArmService::CLocalArmService(CMeetingState& meeting, IRunLoop& loop)
    : CArmServiceBase(loop, SIZE_MAX),
      m_rMeeting(meeting),
      m_pNodeSink(nullptr),
      m_pConferenceSink(nullptr),
      m_bConnected(false),
      m_bJoined(false)
{
}

CLocalArmService::~CLocalArmService() = default;

const CSealedRecords& CLocalArmService::Sealer() const
{
    return m_rMeeting.Sealer();
}

unsigned CLocalArmService::OwnConferenceHandle() const
{
    return m_rMeeting.Options().nConferenceHandle;
}

bool CLocalArmService::KnowsCache(unsigned cacheHandle) const
{
    return m_rMeeting.FindCache(cacheHandle) != nullptr;
}

void CLocalArmService::SubmitPut(const CCachePut& put)
{
    m_rMeeting.ApplyPut(*this, put);
}

// ---------------------------------------------------------------- lifetime and membership

int CLocalArmService::ArmService_Release()
{
    // May destroy this object: nothing may touch a member after it.
    return m_rMeeting.Release(this);
}

int CLocalArmService::ArmService_Connect(IArmNodeControllerSink* sink, const char* /*name*/, unsigned /*a*/,
                                         unsigned /*b*/, unsigned /*c*/)
{
    if (m_bConnected) return ARM_ALREADY_CONNECTED;
    if (!sink) return kArmFailed;
    m_bConnected = true;
    m_pNodeSink = sink;
    Emit([sink](CArmServiceBase&) { sink->ConnectConfirm(0, 0); });
    return 0;
}

int CLocalArmService::ArmService_Disconnect(IArmNodeControllerSink* sink, unsigned /*reason*/)
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

int CLocalArmService::ArmService_QueryConference(unsigned queryId, void* record)
{
    if (queryId != ARM_QUERY_CONFERENCE_FLAGS || !record) return kArmFailed;
    ARMConferenceQuery* query = static_cast<ARMConferenceQuery*>(record);
    if (m_rMeeting.Options().bPki) query->flags |= ARM_CONFERENCE_FLAG_PKI;
    return 0;
}

int CLocalArmService::ArmService_JoinConference(unsigned /*reserved*/, unsigned conferenceHandle,
                                                IArmConferenceSink* sink, unsigned /*mode*/)
{
    if (m_bJoined) return ARM_ALREADY_JOINED;
    if (!sink || conferenceHandle != m_rMeeting.Options().nConferenceHandle) return kArmFailed;
    m_bJoined = true;
    m_pConferenceSink = sink;
    const unsigned short conference = static_cast<unsigned short>(conferenceHandle);
    Emit([sink, conference](CArmServiceBase&) {
        char name[] = "local meeting";
        sink->ConferenceJoinConfirm(conference, name, 0, 0);
    });
    return 0;
}

int CLocalArmService::ArmService_LeaveConference(unsigned /*reserved*/, unsigned conferenceHandle,
                                                 IArmConferenceSink* /*sink*/)
{
    if (!m_bJoined || conferenceHandle != m_rMeeting.Options().nConferenceHandle) return kArmFailed;
    if (m_nAttachId != 0) Detach();
    m_bJoined = false;
    m_pConferenceSink = nullptr;
    return 0;
}

int CLocalArmService::ArmService_AttachUser(IArmApeSink* sink, unsigned /*reserved*/, unsigned short conferenceHandle,
                                            unsigned* attachId)
{
    const unsigned short own = static_cast<unsigned short>(m_rMeeting.Options().nConferenceHandle);
    if (!sink || !attachId || conferenceHandle != own) return kArmFailed;
    // A second attach keeps the id it has: subscriptions belong to it.
    if (m_nAttachId == 0) m_nAttachId = m_rMeeting.NewAttachId();
    m_pApeSink = sink;
    *attachId = m_nAttachId;
    const unsigned id = m_nAttachId;
    Emit([sink, id](CArmServiceBase&) { sink->ApeAttachConfirm(id, 0, 0); });
    return 0;
}

int CLocalArmService::ArmService_Enroll(unsigned attachId, unsigned resourceClass, unsigned sessionHandle,
                                        unsigned /*reserved*/, unsigned /*count*/, const ARMCapability* /*capability*/,
                                        const char* /*value*/, unsigned /*valueLength*/, unsigned /*mode*/)
{
    if (!IsOwnAttachId(attachId) || !m_pApeSink) return kArmFailed;
    const ARMSessionResource resource{resourceClass, sessionHandle, attachId, 0,
                                      m_rMeeting.ResourceIdFor(sessionHandle)};
    IArmApeSink* sink = m_pApeSink;
    Emit([sink, resource](CArmServiceBase&) {
        ARMSessionResource copy = resource;
        sink->ApeEnrollConfirm(copy.nAttachId, 0, 1, &copy);
    });
    return 0;
}

int CLocalArmService::ArmService_DetachUser(unsigned attachId)
{
    if (!IsOwnAttachId(attachId)) return kArmFailed;
    Detach();
    return 0;
}

void CLocalArmService::Detach()
{
    m_rMeeting.ForgetSubscriptions(this);
    ResetAttachment();
}

// ---------------------------------------------------------------- caches

int CLocalArmService::ArmService_AllocNameHandles(unsigned attachId, unsigned count, NameHandles* names,
                                                  IArmAllocHandleSink* sink)
{
    if (!IsOwnAttachId(attachId) || !names || !sink || count == 0 || count > kMaxNamesPerCall) return kArmFailed;
    // The caller frees its array when the call returns: the confirm carries a copy.
    std::vector<NameHandles> answer(names, names + count);
    for (NameHandles& entry : answer)
        entry.nHandle = m_rMeeting.NameHandleFor(std::string(entry.szName, strnlen(entry.szName, sizeof entry.szName)));
    Emit([sink, attachId, answer = std::move(answer)](CArmServiceBase&) mutable {
        sink->AllocNameHandleConfirm(attachId, static_cast<unsigned>(answer.size()), answer.data(), 0);
    });
    return 0;
}

int CLocalArmService::ArmService_SubscribeCache(unsigned attachId, unsigned cacheHandle, unsigned /*reserved*/,
                                                unsigned /*mode*/, unsigned /*depth*/, IArmSharedDataSink* sink)
{
    CChangeCache* cache = m_rMeeting.FindCache(cacheHandle);
    if (!IsOwnAttachId(attachId) || !cache || !sink) return kArmFailed;
    m_pSharedSink = sink;
    cache->Subscribe(*this, sink);
    return 0;
}
