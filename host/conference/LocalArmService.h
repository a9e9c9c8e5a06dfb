// CLocalArmService: one participant's conference service in a local meeting. It keeps the
// participant's own state (connection, membership, attach id) and hands everything shared to the
// meeting state; sinks, memory handles, puts and the posting of callbacks are the base's.
#pragma once

#include "conference/ArmServiceBase.h"

class CMeetingState;

class CLocalArmService final : public CArmServiceBase {
public:
    // REQUIRES: meeting and loop outlive the service.
    CLocalArmService(CMeetingState& meeting, IRunLoop& loop);
    ~CLocalArmService() override;
    CLocalArmService(const CLocalArmService&) = delete;
    CLocalArmService& operator=(const CLocalArmService&) = delete;

    // --- IArmService
    int ArmService_Release() override;
    int ArmService_Connect(IArmNodeControllerSink* sink, const char* name, unsigned a, unsigned b,
                           unsigned c) override;
    int ArmService_Disconnect(IArmNodeControllerSink* sink, unsigned reason) override;
    int ArmService_QueryConference(unsigned queryId, void* record) override;
    int ArmService_JoinConference(unsigned reserved, unsigned conferenceHandle, IArmConferenceSink* sink,
                                  unsigned mode) override;
    int ArmService_LeaveConference(unsigned reserved, unsigned conferenceHandle, IArmConferenceSink* sink) override;
    int ArmService_AttachUser(IArmApeSink* sink, unsigned reserved, unsigned short conferenceHandle,
                              unsigned* attachId) override;
    int ArmService_Enroll(unsigned attachId, unsigned resourceClass, unsigned sessionHandle, unsigned reserved,
                          unsigned count, const ARMCapability* capability, const char* value, unsigned valueLength,
                          unsigned mode) override;
    int ArmService_DetachUser(unsigned attachId) override;
    int ArmService_AllocNameHandles(unsigned attachId, unsigned count, NameHandles* names,
                                    IArmAllocHandleSink* sink) override;
    int ArmService_SubscribeCache(unsigned attachId, unsigned cacheHandle, unsigned reserved, unsigned mode,
                                  unsigned depth, IArmSharedDataSink* sink) override;

private:
    const CSealedRecords& Sealer() const override;
    unsigned OwnConferenceHandle() const override;
    bool KnowsCache(unsigned cacheHandle) const override;
    void SubmitPut(const CCachePut& put) override;
    // Ends the attachment: subscriptions, queued puts and pending callbacks go.
    void Detach();

    CMeetingState& m_rMeeting;
    IArmNodeControllerSink* m_pNodeSink;
    IArmConferenceSink* m_pConferenceSink;
    bool m_bConnected;
    bool m_bJoined;
};
