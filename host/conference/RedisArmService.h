// CRedisArmService: one participant's conference service in a Redis-backed meeting. Its own
// state (connection, membership, attach id, subscriptions) lives here; every id the meeting
// shares comes from the server through CRedisMeeting, and answers are posted once they arrive.
//
// The attach id is reserved on the server when the participant connects (ConnectConfirm waits
// for it), so ArmService_AttachUser can write it at once as the client expects.
#pragma once

#include "conference/ArmServiceBase.h"

#include <map>
#include <memory>

class CRedisMeeting;

class CRedisArmService final : public CArmServiceBase {
public:
    // REQUIRES: meeting and loop outlive the service.
    CRedisArmService(CRedisMeeting& meeting, IRunLoop& loop);
    ~CRedisArmService() override;
    CRedisArmService(const CRedisArmService&) = delete;
    CRedisArmService& operator=(const CRedisArmService&) = delete;

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

    // --- for the meeting
    struct CSubscription {
        IArmSharedDataSink* pSink;
        bool bActive;      // false until the first subscribe's answer: items before it are not ours
        bool bHasHistory;  // a later subscribe delivered the items; new items come only after them
    };
    std::map<unsigned, CSubscription>& Subscriptions() { return m_mapSubscriptions; }
    // The sink for answers meant for this participant alone: its subscription's, else its default.
    IArmSharedDataSink* AnswerSink(unsigned cacheHandle) const;
    std::weak_ptr<CRedisArmService> Weak();
    // A later subscription was answered and its history posted (IsRedisParticipantLive).
    void SetHistoryPosted() { m_bHistoryPosted = true; }
    bool IsHistoryPosted() const { return m_bHistoryPosted; }

private:
    const CSealedRecords& Sealer() const override;
    unsigned OwnConferenceHandle() const override;
    bool KnowsCache(unsigned cacheHandle) const override;
    void SubmitPut(const CCachePut& put) override;
    // Asks the server for the next attach id; then(true) once it is held, then(false) on failure.
    void ReserveAttachId(std::function<void(bool)> then);
    // Ends the attachment: subscriptions, queued puts and pending callbacks go.
    void Detach();

    CRedisMeeting& m_rMeeting;
    IArmNodeControllerSink* m_pNodeSink;
    IArmConferenceSink* m_pConferenceSink;
    bool m_bConnected;
    bool m_bJoined;
    unsigned m_nReservedAttachId;  // the id the next attach takes; 0 while none is held
    std::map<unsigned, CSubscription> m_mapSubscriptions;
    bool m_bHistoryPosted;
};
