// The conference service: one object per participant, handed to the plug-in in _tagNoteData.
// Operations are virtual, in slot order; each returns 0 on success (ARMResult). No operation
// calls a sink before it returns: answers are posted to the participant's main loop.
//
// Memory handles are non-zero 32-bit handles into this participant's own table; handle 0 is
// never valid and operations on it fail, changing nothing. Read and write work at offset 0
// and refuse a size larger than the handle.
#pragma once

#include "tessarinnote/armsinks.h"
#include "tessarinnote/armtypes.h"

class IArmService {
public:
    // --- lifetime
    // Releases the service object; the plug-in calls it last, from its destructor.
    virtual int ArmService_Release() = 0;

    // --- node, conference and attach layer
    // 0 and ConnectConfirm later; ARM_ALREADY_CONNECTED when connected already.
    virtual int ArmService_Connect(IArmNodeControllerSink* sink, const char* name, unsigned a,
                                   unsigned b, unsigned c) = 0;
    virtual int ArmService_Disconnect(IArmNodeControllerSink* sink, unsigned reason) = 0;
    // queryId ARM_QUERY_CONFERENCE_FLAGS fills record->flags (an ARMConferenceQuery*).
    virtual int ArmService_QueryConference(unsigned queryId, void* record) = 0;
    // 0 and ConferenceJoinConfirm later; ARM_ALREADY_JOINED when joined already.
    virtual int ArmService_JoinConference(unsigned reserved, unsigned conferenceHandle,
                                          IArmConferenceSink* sink, unsigned mode) = 0;
    virtual int ArmService_LeaveConference(unsigned reserved, unsigned conferenceHandle,
                                           IArmConferenceSink* sink) = 0;
    // Writes a non-zero attach id, unique in the conference, at once; ApeAttachConfirm later.
    virtual int ArmService_AttachUser(IArmApeSink* sink, unsigned reserved,
                                      unsigned short conferenceHandle, unsigned* attachId) = 0;
    // 0 and ApeEnrollConfirm later, with the session resource id in the first record.
    // value is valueLength bytes, not terminated ("U<user id>" and 0x01).
    virtual int ArmService_Enroll(unsigned attachId, unsigned resourceClass,
                                  unsigned sessionHandle, unsigned reserved, unsigned count,
                                  const ARMCapability* capability, const char* value,
                                  unsigned valueLength, unsigned mode) = 0;
    virtual int ArmService_DetachUser(unsigned attachId) = 0;

    // --- session resources and the cache
    // Opens one sealed record of a PKI meeting. On success *out is a buffer of *outLength
    // bytes owned by the caller until ArmService_FreeBuffer; a record that fails
    // authentication gives a non-zero result and no buffer.
    virtual int ArmService_Decrypt(unsigned conferenceHandle, unsigned length,
                                   const unsigned char* sealed, unsigned char** out,
                                   unsigned* outLength, unsigned reserved) = 0;
    virtual int ArmService_FreeBuffer(void* buffer) = 0;
    virtual int ArmService_RegisterResources(unsigned attachId, IArmSharedDataSink* sink,
                                             short count, ARMSessionResource* resources) = 0;
    // Handles for count names; the same name in the same meeting gets the same non-zero
    // handle for every participant. Answered by AllocNameHandleConfirm.
    virtual int ArmService_AllocNameHandles(unsigned attachId, unsigned count, NameHandles* names,
                                            IArmAllocHandleSink* sink) = 0;
    // Puts, updates, clears or resynchronises (see the conference contract). The bytes of
    // memHandle are copied: the caller may free the handle right after.
    virtual int ArmService_PutCacheItem(unsigned attachId, unsigned cacheHandle,
                                        unsigned reserved, unsigned itemId, unsigned mode,
                                        unsigned flags, unsigned memHandle, unsigned reserved2,
                                        unsigned priority) = 0;
    // The first call registers and answers CACHE_ACTION_SUBSCRIBED with the newest id; later
    // calls deliver the items (history KNOWN, the newest ADDED).
    virtual int ArmService_SubscribeCache(unsigned attachId, unsigned cacheHandle,
                                          unsigned reserved, unsigned mode, unsigned depth,
                                          IArmSharedDataSink* sink) = 0;
    virtual int ArmService_RegisterRscCallBack(unsigned attachId, ARMRscCallBack callback) = 0;

    // --- memory handles
    virtual int ArmService_AllocMemHandle(unsigned size, unsigned* handle) = 0;
    virtual int ArmService_FreeMemHandle(unsigned handle) = 0;
    virtual int ArmService_GetMemHandleSize(unsigned handle, unsigned* size) = 0;
    virtual int ArmService_WriteMemHandle(unsigned handle, unsigned offset, const void* data,
                                          unsigned size) = 0;
    // *size: in, the capacity of out; out, the bytes read.
    virtual int ArmService_ReadMemHandle(unsigned handle, unsigned offset, void* out,
                                         unsigned* size) = 0;

protected:
    // Released through ArmService_Release, never deleted by the plug-in.
    virtual ~IArmService() = default;
};
