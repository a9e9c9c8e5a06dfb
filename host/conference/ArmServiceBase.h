// CArmServiceBase: what every conference's participant service has in common, whatever carries
// the meeting: the participant's memory handles, decrypted buffers, sinks and resource callback,
// the put call itself, and the way callbacks reach the participant.
//
// Every answer is posted to the participant's loop through Emit, never made from inside a
// service call. A posted callback holds only a weak reference and the attach epoch it was made
// in: it is dropped when it runs after the service was released or the participant detached.
// While the participant's connection is down (fault injection), callbacks wait in a held queue
// and puts in a put queue, both replayed in order when it comes back.
#pragma once

#include "conference/ChangeCache.h"
#include "conference/MemHandleTable.h"
#include "tessarinnote/armservice.h"
#include "transport/RunLoop.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

class CSealedRecords;

// The result of a service call refused for a bad argument or a wrong state.
constexpr int kArmFailed = 1;

class CArmServiceBase : public IArmService, public std::enable_shared_from_this<CArmServiceBase> {
public:
    // maxItemBytes: the largest item a put may carry; a larger one fails at the call.
    // REQUIRES: loop outlives the service.
    CArmServiceBase(IRunLoop& loop, std::size_t maxItemBytes);
    ~CArmServiceBase() override;
    CArmServiceBase(const CArmServiceBase&) = delete;
    CArmServiceBase& operator=(const CArmServiceBase&) = delete;

    // --- IArmService, the same in every conference
    int ArmService_Decrypt(unsigned conferenceHandle, unsigned length, const unsigned char* sealed, unsigned char** out,
                           unsigned* outLength, unsigned reserved) override;
    int ArmService_FreeBuffer(void* buffer) override;
    int ArmService_RegisterResources(unsigned attachId, IArmSharedDataSink* sink, short count,
                                     ARMSessionResource* resources) override;
    int ArmService_PutCacheItem(unsigned attachId, unsigned cacheHandle, unsigned reserved, unsigned itemId,
                                unsigned mode, unsigned flags, unsigned memHandle, unsigned reserved2,
                                unsigned priority) override;
    int ArmService_RegisterRscCallBack(unsigned attachId, ARMRscCallBack callback) override;
    int ArmService_AllocMemHandle(unsigned size, unsigned* handle) override;
    int ArmService_FreeMemHandle(unsigned handle) override;
    int ArmService_GetMemHandleSize(unsigned handle, unsigned* size) override;
    int ArmService_WriteMemHandle(unsigned handle, unsigned offset, const void* data, unsigned size) override;
    int ArmService_ReadMemHandle(unsigned handle, unsigned offset, void* out, unsigned* size) override;

    // --- for the meeting and its caches
    unsigned AttachId() const { return m_nAttachId; }
    IRunLoop& Loop() const { return m_rLoop; }
    // The shared-data sink given at resource registration or the last subscription.
    IArmSharedDataSink* DefaultSharedSink() const { return m_pSharedSink; }
    // One cache event; bytes (may be null) go into a fresh handle for the duration of the call.
    void EmitDelivery(IArmSharedDataSink* sink, unsigned cacheId, unsigned cacheHandle,
                      std::shared_ptr<const std::string> bytes, short result, tagCacheAction action,
                      unsigned putterAttachId);
    void EmitCacheConfirm(unsigned cacheHandle, tagCacheAction action, unsigned itemId, short result);
    // A data unit; false when the participant has no sink for the route.
    bool EmitDataIndication(unsigned fromAttachId, std::shared_ptr<const std::string> envelopes);
    bool EmitResourceMessage(std::shared_ptr<const std::string> payload, std::shared_ptr<const std::string> name,
                             unsigned kind);
    // Calls the lost-meeting handler (1 lost, 0 back) on the participant's loop, never held.
    void PostMeetingLost(int kind);
    void SetMeetingLostHandler(std::function<void(int)> handler) { m_fnMeetingLost = std::move(handler); }
    // Fault injection; see IMeeting::SetConnected.
    void SetConnected(bool connected);

    std::size_t MemHandleCount() const { return m_memHandles.Count(); }

protected:
    // The meeting's cipher and conference handle, for ArmService_Decrypt.
    virtual const CSealedRecords& Sealer() const = 0;
    virtual unsigned OwnConferenceHandle() const = 0;
    // Whether cacheHandle names a cache of the meeting.
    virtual bool KnowsCache(unsigned cacheHandle) const = 0;
    // Hands a put to the meeting (the connection is up).
    virtual void SubmitPut(const CCachePut& put) = 0;

    // call, bound to this service and the current attach epoch: it runs only if both still hold.
    template <class F>
    std::function<void()> Guard(F&& call)
    {
        return [weak = weak_from_this(), epoch = m_nEpoch, call = std::forward<F>(call)]() mutable {
            const std::shared_ptr<CArmServiceBase> self = weak.lock();
            if (self && self->m_nEpoch == epoch) call(*self);
        };
    }
    // Posts call, or holds it while the connection is down.
    template <class F>
    void Emit(F&& call)
    {
        if (m_bLinkDown)
            m_aHeld.push_back(Guard(std::forward<F>(call)));
        else
            m_rLoop.Post(Guard(std::forward<F>(call)));
    }
    // The checks shared by the calls that name the caller's attach id.
    bool IsOwnAttachId(unsigned attachId) const { return attachId != 0 && attachId == m_nAttachId; }
    // Ends the attachment on this side: sinks, queued puts and pending callbacks go.
    void ResetAttachment();

    IRunLoop& m_rLoop;
    IArmApeSink* m_pApeSink;
    IArmSharedDataSink* m_pSharedSink;
    unsigned m_nAttachId;  // 0 while not attached

private:
    CMemHandleTable m_memHandles;
    std::size_t m_nMaxItemBytes;
    ARMRscCallBack m_pRscCallBack;
    unsigned m_nRscCallBackId;  // the id the callback was registered under, passed back to it
    unsigned m_nEpoch;          // grows at each detach; callbacks of an older epoch are dropped

    bool m_bLinkDown;
    std::vector<std::function<void()>> m_aHeld;
    std::vector<CCachePut> m_aQueuedPuts;
    std::function<void(int)> m_fnMeetingLost;

    std::unordered_set<void*> m_setDecrypted;  // ArmService_Decrypt buffers not yet freed
};
