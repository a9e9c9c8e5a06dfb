// CArmServiceBase: memory handles, decryption, the put call and the emitted callbacks.
#include "conference/ArmServiceBase.h"

#include "conference/SealedRecords.h"
#include "tessarinnote/notehostui.h"

#include <cstdlib>
#include <cstring>
#include <new>

CArmServiceBase::CArmServiceBase(IRunLoop& loop, std::size_t maxItemBytes)
    : m_rLoop(loop),
      m_pApeSink(nullptr),
      m_pSharedSink(nullptr),
      m_nAttachId(0),
      m_nMaxItemBytes(maxItemBytes),
      m_pRscCallBack(nullptr),
      m_nRscCallBackId(0),
      m_nEpoch(0),
      m_bLinkDown(false)
{
}

CArmServiceBase::~CArmServiceBase()
{
    // Buffers the participant never gave back; the meeting may be gone already, so only our own.
    for (void* buffer : m_setDecrypted) std::free(buffer);
}

void CArmServiceBase::ResetAttachment()
{
    m_nAttachId = 0;
    ++m_nEpoch;
    m_pApeSink = nullptr;
    m_pSharedSink = nullptr;
    m_aHeld.clear();
    m_aQueuedPuts.clear();
}

// ---------------------------------------------------------------- session resources

int CArmServiceBase::ArmService_Decrypt(unsigned conferenceHandle, unsigned length, const unsigned char* sealed,
                                        unsigned char** out, unsigned* outLength, unsigned /*reserved*/)
{
    if (!out || !outLength) return kArmFailed;
    *out = nullptr;
    *outLength = 0;
    if (conferenceHandle != OwnConferenceHandle()) return kArmFailed;
    std::vector<unsigned char> plain;
    unsigned char* buffer = nullptr;
    try {
        const int opened = Sealer().Open(sealed, length, &plain);
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

int CArmServiceBase::ArmService_FreeBuffer(void* buffer)
{
    // Only what Decrypt handed out: anything else is refused rather than freed.
    if (m_setDecrypted.erase(buffer) == 0) return kArmFailed;
    std::free(buffer);
    return 0;
}

int CArmServiceBase::ArmService_RegisterResources(unsigned attachId, IArmSharedDataSink* sink, short /*count*/,
                                                  ARMSessionResource* /*resources*/)
{
    if (!IsOwnAttachId(attachId) || !sink) return kArmFailed;
    m_pSharedSink = sink;
    return 0;
}

int CArmServiceBase::ArmService_RegisterRscCallBack(unsigned attachId, ARMRscCallBack callback)
{
    // The client registers before it is attached (with id 0); the id is only handed back.
    m_nRscCallBackId = attachId;
    m_pRscCallBack = callback;
    return 0;
}

int CArmServiceBase::ArmService_PutCacheItem(unsigned attachId, unsigned cacheHandle, unsigned /*reserved*/,
                                             unsigned itemId, unsigned mode, unsigned flags, unsigned memHandle,
                                             unsigned /*reserved2*/, unsigned /*priority*/)
{
    if (!IsOwnAttachId(attachId) || !KnowsCache(cacheHandle)) return kArmFailed;
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
        if (size > m_nMaxItemBytes) {
            MacInfoTrace2("note", "conference: put of %u bytes refused, above the item limit of %zu", size,
                          m_nMaxItemBytes);
            return kArmFailed;
        }
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
        SubmitPut(put);
    return 0;
}

// ---------------------------------------------------------------- memory handles

int CArmServiceBase::ArmService_AllocMemHandle(unsigned size, unsigned* handle)
{
    if (!handle) return kArmFailed;
    const unsigned made = m_memHandles.Alloc(size);
    if (made == 0) return kArmFailed;
    *handle = made;
    return 0;
}

int CArmServiceBase::ArmService_FreeMemHandle(unsigned handle)
{
    return m_memHandles.Free(handle);
}

int CArmServiceBase::ArmService_GetMemHandleSize(unsigned handle, unsigned* size)
{
    return m_memHandles.Size(handle, size);
}

int CArmServiceBase::ArmService_WriteMemHandle(unsigned handle, unsigned offset, const void* data, unsigned size)
{
    return m_memHandles.Write(handle, offset, data, size);
}

int CArmServiceBase::ArmService_ReadMemHandle(unsigned handle, unsigned offset, void* out, unsigned* size)
{
    return m_memHandles.Read(handle, offset, out, size);
}

// ---------------------------------------------------------------- emitted callbacks

void CArmServiceBase::EmitDelivery(IArmSharedDataSink* sink, unsigned cacheId, unsigned cacheHandle,
                                   std::shared_ptr<const std::string> bytes, short result, tagCacheAction action,
                                   unsigned putterAttachId)
{
    if (!sink) return;
    Emit([sink, cacheId, cacheHandle, bytes = std::move(bytes), result, action,
          putterAttachId](CArmServiceBase& self) {
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

void CArmServiceBase::EmitCacheConfirm(unsigned cacheHandle, tagCacheAction action, unsigned itemId, short result)
{
    IArmApeSink* sink = m_pApeSink;
    if (!sink) return;
    const unsigned attachId = m_nAttachId;
    Emit([sink, attachId, cacheHandle, action, itemId, result](CArmServiceBase&) {
        sink->ApeCacheActionConfirmEx(attachId, cacheHandle, action, itemId, 0, result);
    });
}

bool CArmServiceBase::EmitDataIndication(unsigned fromAttachId, std::shared_ptr<const std::string> envelopes)
{
    IArmApeSink* sink = m_pApeSink;
    if (!sink || m_nAttachId == 0 || !envelopes) return false;
    const unsigned attachId = m_nAttachId;
    Emit([sink, attachId, fromAttachId, envelopes = std::move(envelopes)](CArmServiceBase&) {
        // The sink takes a writable buffer: it gets its own copy, not the one others share.
        std::vector<unsigned char> data(envelopes->begin(), envelopes->end());
        sink->ApeDataIndication(attachId, fromAttachId, 0, 0, data.data(), static_cast<unsigned>(data.size()));
    });
    return true;
}

bool CArmServiceBase::EmitResourceMessage(std::shared_ptr<const std::string> payload,
                                          std::shared_ptr<const std::string> name, unsigned kind)
{
    const ARMRscCallBack callback = m_pRscCallBack;
    if (!callback || m_nAttachId == 0 || !payload || !name) return false;
    const unsigned id = m_nRscCallBackId;
    Emit([callback, id, payload = std::move(payload), name = std::move(name), kind](CArmServiceBase&) {
        ARMMsg_SessRscInd message;
        message.pszResourceName = name->c_str();
        message.nLength = static_cast<std::uint32_t>(payload->size());
        message.pData = reinterpret_cast<const unsigned char*>(payload->data());
        message.nKind = kind;
        callback(id, ARM_MSG_SESS_RSC_IND, &message);
    });
    return true;
}

void CArmServiceBase::PostMeetingLost(int kind)
{
    const std::function<void(int)> handler = m_fnMeetingLost;
    if (handler) m_rLoop.Post(Guard([handler, kind](CArmServiceBase&) { handler(kind); }));
}

void CArmServiceBase::SetConnected(bool connected)
{
    if (connected != m_bLinkDown) return;  // no change
    if (!connected) {
        PostMeetingLost(1);
        m_bLinkDown = true;
        return;
    }
    PostMeetingLost(0);
    // The queued puts go first while deliveries to us are still held: their answers to us then
    // follow what we missed, in the order the meeting produced everything.
    std::vector<CCachePut> puts;
    puts.swap(m_aQueuedPuts);
    for (const CCachePut& put : puts) SubmitPut(put);
    m_bLinkDown = false;
    std::vector<std::function<void()>> held;
    held.swap(m_aHeld);
    for (std::function<void()>& call : held) m_rLoop.Post(std::move(call));
}
