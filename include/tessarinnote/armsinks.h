// The callback interfaces the conference service calls on the plug-in (five sinks), in slot
// order. The service never calls a sink from inside one of its own operations: callbacks are
// posted to the participant's main loop and arrive in the order the host produced them.
// Pointers passed to a sink are valid only during the call. Every operation returns 0 unless
// its comment says otherwise. Each table holds its operations only (the destructors are
// protected and not virtual): a service never deletes a sink.
#pragma once

#include "tessarinnote/armtypes.h"

// Node controller: the connection to the conference framework.
class IArmNodeControllerSink {
public:
    // Answers ArmService_Connect; result 0 connected, 19 to be retried.
    virtual int ConnectConfirm(short result, unsigned reserved) = 0;
    virtual int DisconnectIndication(short reason) = 0;
    virtual int DisconnectConfirm(short result) = 0;
    virtual int TransportStatusIndication(short status, unsigned reserved) = 0;

protected:
    ~IArmNodeControllerSink() = default;
};

// Conference membership.
class IArmConferenceSink {
public:
    // Answers ArmService_JoinConference.
    virtual int ConferenceJoinConfirm(unsigned short conference, char* name, short result,
                                      unsigned reserved) = 0;
    virtual int ConferenceLeaveIndication(unsigned short conference, char* name, short reason) = 0;
    virtual int ConferenceRosterConfirm(unsigned short conference, short result, short count,
                                        ARMNodeRecord* nodes) = 0;
    virtual int ConferenceRosterChanged(unsigned short conference, short reason, short added,
                                        short removed, ARMNodeRecord* nodes) = 0;
    virtual int ApeRosterConfirm(unsigned short conference, short result, short count,
                                 ARMApeRoster* roster) = 0;
    virtual int ApeRosterChanged(unsigned short conference, short reason, short added,
                                 short removed, ARMApeRoster* roster) = 0;

protected:
    ~IArmConferenceSink() = default;
};

// The attached application entity: attach, enrolment, data units, tokens, put confirms.
class IArmApeSink {
public:
    // Answers ArmService_AttachUser with the attach id written there.
    virtual int ApeAttachConfirm(unsigned attachId, short result, unsigned reserved) = 0;
    // Answers ArmService_Enroll; resources[0].nResourceId is the session resource id.
    virtual int ApeEnrollConfirm(unsigned attachId, short result, short count,
                                 ARMSessionResource* resources) = 0;
    virtual int ApeRosterConfirm(unsigned attachId, unsigned short conference, short result,
                                 short count, ARMApeRoster* roster) = 0;
    virtual int ApeRosterChanged(unsigned attachId, unsigned short conference, short reason,
                                 short added, short removed, ARMApeRoster* roster) = 0;
    // A direct data unit: data holds one or more CDataPdu envelopes (length bytes).
    virtual int ApeDataIndication(unsigned attachId, unsigned fromId, unsigned channel,
                                  short priority, unsigned char* data, unsigned length) = 0;
    virtual int ApeTokenGrabConfirm(unsigned attachId, short result, unsigned short token) = 0;
    virtual int ApeTokenInhibitConfirm(unsigned attachId, short result, unsigned short token) = 0;
    virtual int ApeTokenGiveConfirm(unsigned attachId, short result, unsigned short token) = 0;
    virtual int ApeTokenGiveIndication(unsigned attachId, unsigned fromId,
                                       unsigned short token) = 0;
    virtual int ApeTokenPleaseIndication(unsigned attachId, unsigned fromId,
                                         unsigned short token) = 0;
    virtual int ApeTokenReleaseConfirm(unsigned attachId, short result, unsigned short token) = 0;
    virtual int ApeTokenTestConfirm(unsigned attachId, short result, unsigned short token) = 0;
    virtual int ApeDetachIndication(unsigned attachId, short reason) = 0;
    virtual int ConferenceRosterConfirm(unsigned attachId, unsigned short conference, short result,
                                        short count, ARMNodeRecord* nodes) = 0;
    virtual int ConferenceRosterChanged(unsigned attachId, unsigned short conference,
                                        short reason, short added, short removed,
                                        ARMNodeRecord* nodes) = 0;
    // Confirms the putter's own cache put: action ADDED or UPDATED, result 0 or 19.
    // Returns 1 when attachId or cacheHandle is 0.
    virtual int ApeCacheActionConfirmEx(unsigned attachId, unsigned cacheHandle,
                                        tagCacheAction action, unsigned itemId,
                                        unsigned reserved, short result) = 0;

protected:
    ~IArmApeSink() = default;
};

// Cache deliveries.
class IArmSharedDataSink {
public:
    // One cache event. first is always 1; memHandle is a fresh handle of the receiver holding
    // the item's bytes (0 when there are none), freed by the host after the call returns.
    virtual int SharedDataReceivedEx(unsigned first, unsigned cacheId, unsigned cacheHandle,
                                     unsigned memHandle, short result, tagCacheAction action,
                                     unsigned putterAttachId, unsigned reserved,
                                     short reserved2) = 0;

protected:
    ~IArmSharedDataSink() = default;
};

// Name-handle allocation.
class IArmAllocHandleSink {
public:
    // Answers ArmService_AllocNameHandles: names[i].nHandle filled in. Returns 1 when taken.
    virtual int AllocNameHandleConfirm(unsigned attachId, unsigned count, NameHandles* names,
                                       unsigned reserved) = 0;

protected:
    ~IArmAllocHandleSink() = default;
};
