// CLocalArmService: the service operations of one participant and the callbacks it emits.
#include "conference/LocalArmService.h"

#include "conference/MeetingState.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace {

// The most names one AllocNameHandles call may ask for (the client asks for one).
constexpr unsigned kMaxNamesPerCall = 256;

}  // namespace

CLocalArmService::CLocalArmService(CMeetingState& meeting, IRunLoop& loop)
    : m_rMeeting(meeting),
      m_rLoop(loop),
      m_pNodeSink(nullptr),
      m_pConferenceSink(nullptr),
      m_pApeSink(nullptr),
      m_pSharedSink(nullptr),
      m_pRscCallBack(nullptr),
      m_nRscCallBackId(0),
      m_bConnected(false),
      m_bJoined(false),
      m_nAttachId(0),
      m_nEpoch(0),
      m_bLinkDown(false)
{
}

CLocalArmService::~CLocalArmService()
{
    // Buffers the participant never gave back; the meeting may be gone already, so only our own.
    for (void* buffer : m_setDecrypted) std::free(buffer);
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
    Emit([sink](CLocalArmService&) { sink->ConnectConfirm(0, 0); });
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
    if (answer) Emit([answer](CLocalArmService&) { answer->DisconnectConfirm(0); });
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
    Emit([sink, conference](CLocalArmService&) {
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
    Emit([sink, id](CLocalArmService&) { sink->ApeAttachConfirm(id, 0, 0); });
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
    Emit([sink, resource](CLocalArmService&) {
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
    m_nAttachId = 0;
    ++m_nEpoch;
    m_pApeSink = nullptr;
    m_pSharedSink = nullptr;
    m_aHeld.clear();
    m_aQueuedPuts.clear();
}

// ---------------------------------------------------------------- session resources

int CLocalArmService::ArmService_Decrypt(unsigned conferenceHandle, unsigned length, const unsigned char* sealed,
                                         unsigned char** out, unsigned* outLength, unsigned /*reserved*/)
{
    if (!out || !outLength) return kArmFailed;
    *out = nullptr;
    *outLength = 0;
    if (conferenceHandle != m_rMeeting.Options().nConferenceHandle) return kArmFailed;
    std::vector<unsigned char> plain;
    unsigned char* buffer = nullptr;
    try {
        const int opened = m_rMeeting.Sealer().Open(sealed, length, &plain);
        if (opened != 0) return opened;
        buffer = static_cast<unsigned char*>(std::malloc(plain.empty() ? 1 : plain.size()));
        if (!buffer) return kArmFailed;
        m_setDecrypted.insert(buffer);
    } catch (const std::bad_alloc&) {
        std::free(buffer);
        return kArmFailed;
    }
    if (!plain.empty()) std::memcpy(buffer, plain.data(), plain.size());
    *out = buffer;
    *outLength = static_cast<unsigned>(plain.size());
    return 0;
}

int CLocalArmService::ArmService_FreeBuffer(void* buffer)
{
    // Only what Decrypt handed out: anything else is refused rather than freed.
    if (m_setDecrypted.erase(buffer) == 0) return kArmFailed;
    std::free(buffer);
    return 0;
}

int CLocalArmService::ArmService_RegisterResources(unsigned attachId, IArmSharedDataSink* sink, short /*count*/,
                                                   ARMSessionResource* /*resources*/)
{
    if (!IsOwnAttachId(attachId) || !sink) return kArmFailed;
    m_pSharedSink = sink;
    return 0;
}

int CLocalArmService::ArmService_AllocNameHandles(unsigned attachId, unsigned count, NameHandles* names,
                                                  IArmAllocHandleSink* sink)
{
    if (!IsOwnAttachId(attachId) || !names || !sink || count == 0 || count > kMaxNamesPerCall) return kArmFailed;
    // The caller frees its array when the call returns: the confirm carries a copy.
    std::vector<NameHandles> answer(names, names + count);
    for (NameHandles& entry : answer)
        entry.nHandle = m_rMeeting.NameHandleFor(std::string(entry.szName, strnlen(entry.szName, sizeof entry.szName)));
    Emit([sink, attachId, answer = std::move(answer)](CLocalArmService&) mutable {
        sink->AllocNameHandleConfirm(attachId, static_cast<unsigned>(answer.size()), answer.data(), 0);
    });
    return 0;
}

int CLocalArmService::ArmService_PutCacheItem(unsigned attachId, unsigned cacheHandle, unsigned /*reserved*/,
                                              unsigned itemId, unsigned mode, unsigned flags, unsigned memHandle,
                                              unsigned /*reserved2*/, unsigned /*priority*/)
{
    if (!IsOwnAttachId(attachId) || !m_rMeeting.FindCache(cacheHandle)) return kArmFailed;
    CCachePut put;
    put.nCacheHandle = cacheHandle;
    put.nItemId = itemId;
    put.nMode = mode;
    put.nFlags = flags;
    put.bHasBytes = memHandle != 0;
    if (put.bHasBytes) {
        if (mode != CACHE_MODE_APPEND && mode != CACHE_MODE_REPLACE_NEWEST) return kArmFailed;
        unsigned size = 0;
        const unsigned char* bytes = m_memHandles.Bytes(memHandle, &size);
        if (!bytes) return kArmFailed;
        // The one copy of the item: receivers share it until their own handle is made.
        try {
            put.pBytes = std::make_shared<const std::string>(reinterpret_cast<const char*>(bytes), size);
        } catch (const std::bad_alloc&) {
            return kArmFailed;  // an item as large as the budget, and no memory for its copy
        }
    }
    if (m_bLinkDown)
        m_aQueuedPuts.push_back(std::move(put));
    else
        m_rMeeting.ApplyPut(*this, put);
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

int CLocalArmService::ArmService_RegisterRscCallBack(unsigned attachId, ARMRscCallBack callback)
{
    // The client registers before it is attached (with id 0); the id is only handed back.
    m_nRscCallBackId = attachId;
    m_pRscCallBack = callback;
    return 0;
}

// ---------------------------------------------------------------- memory handles

int CLocalArmService::ArmService_AllocMemHandle(unsigned size, unsigned* handle)
{
    if (!handle) return kArmFailed;
    const unsigned made = m_memHandles.Alloc(size);
    if (made == 0) return kArmFailed;
    *handle = made;
    return 0;
}

int CLocalArmService::ArmService_FreeMemHandle(unsigned handle)
{
    return m_memHandles.Free(handle);
}

int CLocalArmService::ArmService_GetMemHandleSize(unsigned handle, unsigned* size)
{
    return m_memHandles.Size(handle, size);
}

int CLocalArmService::ArmService_WriteMemHandle(unsigned handle, unsigned offset, const void* data, unsigned size)
{
    return m_memHandles.Write(handle, offset, data, size);
}

int CLocalArmService::ArmService_ReadMemHandle(unsigned handle, unsigned offset, void* out, unsigned* size)
{
    return m_memHandles.Read(handle, offset, out, size);
}

// ---------------------------------------------------------------- emitted callbacks

void CLocalArmService::EmitDelivery(IArmSharedDataSink* sink, unsigned cacheId, unsigned cacheHandle,
                                    std::shared_ptr<const std::string> bytes, short result, tagCacheAction action,
                                    unsigned putterAttachId)
{
    if (!sink) return;
    Emit([sink, cacheId, cacheHandle, bytes = std::move(bytes), result, action,
          putterAttachId](CLocalArmService& self) {
        unsigned handle = 0;
        if (bytes) {
            handle = self.m_memHandles.AllocCopy(bytes->data(), static_cast<unsigned>(bytes->size()));
            // Only a table of a million live handles fails here; a delivery without its bytes
            // would be taken for an empty item, so none is made.
            if (handle == 0) return;
        }
        sink->SharedDataReceivedEx(1, cacheId, cacheHandle, handle, result, action, putterAttachId, 0, 0);
        if (handle != 0) self.m_memHandles.Free(handle);
    });
}

void CLocalArmService::EmitCacheConfirm(unsigned cacheHandle, tagCacheAction action, unsigned itemId, short result)
{
    IArmApeSink* sink = m_pApeSink;
    if (!sink) return;
    const unsigned attachId = m_nAttachId;
    Emit([sink, attachId, cacheHandle, action, itemId, result](CLocalArmService&) {
        sink->ApeCacheActionConfirmEx(attachId, cacheHandle, action, itemId, 0, result);
    });
}

bool CLocalArmService::EmitDataIndication(unsigned fromAttachId, std::shared_ptr<const std::string> envelopes)
{
    IArmApeSink* sink = m_pApeSink;
    if (!sink || m_nAttachId == 0 || !envelopes) return false;
    const unsigned attachId = m_nAttachId;
    Emit([sink, attachId, fromAttachId, envelopes = std::move(envelopes)](CLocalArmService&) {
        // The sink takes a writable buffer: it gets its own copy, not the one others share.
        std::vector<unsigned char> data(envelopes->begin(), envelopes->end());
        sink->ApeDataIndication(attachId, fromAttachId, 0, 0, data.data(), static_cast<unsigned>(data.size()));
    });
    return true;
}

bool CLocalArmService::EmitResourceMessage(std::shared_ptr<const std::string> payload,
                                           std::shared_ptr<const std::string> name, unsigned kind)
{
    const ARMRscCallBack callback = m_pRscCallBack;
    if (!callback || m_nAttachId == 0 || !payload || !name) return false;
    const unsigned id = m_nRscCallBackId;
    Emit([callback, id, payload = std::move(payload), name = std::move(name), kind](CLocalArmService&) {
        ARMMsg_SessRscInd message;
        message.pszResourceName = name->c_str();
        message.nLength = static_cast<std::uint32_t>(payload->size());
        message.pData = reinterpret_cast<const unsigned char*>(payload->data());
        message.nKind = kind;
        callback(id, ARM_MSG_SESS_RSC_IND, &message);
    });
    return true;
}

void CLocalArmService::SetConnected(bool connected)
{
    if (connected != m_bLinkDown) return;  // no change
    const std::function<void(int)> handler = m_fnMeetingLost;
    if (!connected) {
        if (handler) m_rLoop.Post(Guard([handler](CLocalArmService&) { handler(1); }));
        m_bLinkDown = true;
        return;
    }
    if (handler) m_rLoop.Post(Guard([handler](CLocalArmService&) { handler(0); }));
    // The queued puts go first while deliveries to us are still held: their answers to us then
    // follow what we missed, in the order the meeting produced everything.
    std::vector<CCachePut> puts;
    puts.swap(m_aQueuedPuts);
    for (const CCachePut& put : puts) m_rMeeting.ApplyPut(*this, put);
    m_bLinkDown = false;
    std::vector<std::function<void()>> held;
    held.swap(m_aHeld);
    for (std::function<void()>& call : held) m_rLoop.Post(std::move(call));
}
