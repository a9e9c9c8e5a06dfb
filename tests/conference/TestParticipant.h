// A participant that drives a conference service the way the note client does, step by step,
// and records every callback it receives, so that tests can check what the host sent, when
// and in which order. Not the client: it takes no decisions of its own.
#pragma once

#include "conference/Meeting.h"
#include "tessarinnote/armservice.h"

#include <functional>
#include <string>
#include <vector>

// One delivery of SharedDataReceivedEx, with the bytes read from its memory handle.
struct CCacheEvent {
    unsigned nCacheId;
    unsigned nCacheHandle;
    short nResult;
    int nAction;
    unsigned nPutter;
    bool bHadHandle;
    std::string strBytes;
};

// One ApeCacheActionConfirmEx.
struct CConfirmEvent {
    unsigned nCacheHandle;
    int nAction;
    unsigned nItemId;
    short nResult;
};

// One data unit, direct or through the resource callback.
struct CDataEvent {
    bool bViaResource;
    std::string strResourceName;
    unsigned nKind;
    unsigned nFrom;
    std::string strBytes;
};

class CTestParticipant : public IArmNodeControllerSink,
                         public IArmConferenceSink,
                         public IArmApeSink,
                         public IArmSharedDataSink,
                         public IArmAllocHandleSink {
public:
    // settle runs the loop until every callback the host produced so far has arrived.
    CTestParticipant(IMeeting& meeting, IRunLoop& loop, std::function<void()> settle,
                     unsigned userId);
    ~CTestParticipant() override;

    IArmService* Service() { return m_pService; }
    unsigned AttachId() const { return m_nAttachId; }
    unsigned ResourceId() const { return m_nResourceId; }

    // Single steps; each returns the service's result.
    int Connect();
    int Join();
    int Attach();
    int Enroll();
    int RegisterCallback();
    int AllocCache(const std::string& name);
    int Subscribe(unsigned cacheHandle);
    // Puts bytes from a fresh memory handle (freed right after, as the client does).
    int Put(unsigned cacheHandle, unsigned itemId, unsigned mode, unsigned flags,
            const std::string& bytes);
    // A put without bytes: resynchronise, or clear with CACHE_FLAG_CLEAR.
    int PutNoHandle(unsigned cacheHandle, unsigned flags);

    // The whole handshake up to a subscribed cache, running the loop between steps.
    // Returns the cache handle.
    unsigned JoinAndSubscribe(const std::string& cacheName);

    // Recorded callbacks, in order.
    std::vector<std::string> m_vecCallbacks;
    std::vector<CCacheEvent> m_vecCache;
    std::vector<CConfirmEvent> m_vecConfirms;
    std::vector<CDataEvent> m_vecData;
    std::vector<NameHandles> m_vecNames;
    std::vector<int> m_vecMeetingLost;
    short m_nConnectResult = -1;
    short m_nJoinResult = -1;
    short m_nEnrollResult = -1;
    short m_nEnrollCount = 0;

    // IArmNodeControllerSink
    int ConnectConfirm(short result, unsigned reserved) override;
    int DisconnectIndication(short reason) override;
    int DisconnectConfirm(short result) override;
    int TransportStatusIndication(short status, unsigned reserved) override;
    // IArmConferenceSink
    int ConferenceJoinConfirm(unsigned short conference, char* name, short result,
                              unsigned reserved) override;
    int ConferenceLeaveIndication(unsigned short conference, char* name, short reason) override;
    int ConferenceRosterConfirm(unsigned short, short, short, ARMNodeRecord*) override;
    int ConferenceRosterChanged(unsigned short, short, short, short, ARMNodeRecord*) override;
    int ApeRosterConfirm(unsigned short, short, short, ARMApeRoster*) override;
    int ApeRosterChanged(unsigned short, short, short, short, ARMApeRoster*) override;
    // IArmApeSink
    int ApeAttachConfirm(unsigned attachId, short result, unsigned reserved) override;
    int ApeEnrollConfirm(unsigned attachId, short result, short count,
                         ARMSessionResource* resources) override;
    int ApeRosterConfirm(unsigned, unsigned short, short, short, ARMApeRoster*) override;
    int ApeRosterChanged(unsigned, unsigned short, short, short, short, ARMApeRoster*) override;
    int ApeDataIndication(unsigned attachId, unsigned fromId, unsigned channel, short priority,
                          unsigned char* data, unsigned length) override;
    int ApeTokenGrabConfirm(unsigned, short, unsigned short) override;
    int ApeTokenInhibitConfirm(unsigned, short, unsigned short) override;
    int ApeTokenGiveConfirm(unsigned, short, unsigned short) override;
    int ApeTokenGiveIndication(unsigned, unsigned, unsigned short) override;
    int ApeTokenPleaseIndication(unsigned, unsigned, unsigned short) override;
    int ApeTokenReleaseConfirm(unsigned, short, unsigned short) override;
    int ApeTokenTestConfirm(unsigned, short, unsigned short) override;
    int ApeDetachIndication(unsigned attachId, short reason) override;
    int ConferenceRosterConfirm(unsigned, unsigned short, short, short, ARMNodeRecord*) override;
    int ConferenceRosterChanged(unsigned, unsigned short, short, short, short,
                                ARMNodeRecord*) override;
    int ApeCacheActionConfirmEx(unsigned attachId, unsigned cacheHandle, tagCacheAction action,
                                unsigned itemId, unsigned reserved, short result) override;
    // IArmSharedDataSink
    int SharedDataReceivedEx(unsigned first, unsigned cacheId, unsigned cacheHandle,
                             unsigned memHandle, short result, tagCacheAction action,
                             unsigned putter, unsigned reserved, short reserved2) override;
    // IArmAllocHandleSink
    int AllocNameHandleConfirm(unsigned attachId, unsigned count, NameHandles* names,
                               unsigned reserved) override;

private:
    static int ResourceCallback(unsigned id, ARMMsgType type, void* msg);
    std::string ReadHandle(unsigned memHandle);

    IMeeting& m_meeting;
    IRunLoop& m_loop;
    std::function<void()> m_settle;
    IArmService* m_pService;
    unsigned m_nUserId;
    unsigned m_nAttachId = 0;
    unsigned m_nResourceId = 0;
};
