// Test helper: an IArmService that forwards every operation to a participant's service and
// records the cache puts with the bytes of their handles, and a scope that puts it between a
// client and its service.
#pragma once

#include "client/CNoteClient.h"
#include "tessarinnote/armservice.h"

#include <string>
#include <vector>

// Forwards every operation to the participant's service and records the cache puts, with the
// bytes of their handles and the service's answer.
class CPutRecorder : public IArmService {
public:
    struct SPut {
        unsigned nAttachId, nCacheHandle, nItemId, nMode, nFlags, nPriority;
        int nResult;
        std::string strBytes;
    };
    explicit CPutRecorder(IArmService& inner) : m_rInner(inner) {}
    ~CPutRecorder() override = default;

    int ArmService_PutCacheItem(unsigned attachId, unsigned cacheHandle, unsigned reserved,
                                unsigned itemId, unsigned mode, unsigned flags, unsigned memHandle,
                                unsigned reserved2, unsigned priority) override
    {
        SPut put = {attachId, cacheHandle, itemId, mode, flags, priority, 0, std::string()};
        unsigned size = 0;
        if (memHandle && m_rInner.ArmService_GetMemHandleSize(memHandle, &size) == 0) {
            put.strBytes.resize(size);
            if (size) m_rInner.ArmService_ReadMemHandle(memHandle, 0, &put.strBytes[0], &size);
        }
        put.nResult = m_rInner.ArmService_PutCacheItem(attachId, cacheHandle, reserved, itemId, mode,
                                                       flags, memHandle, reserved2, priority);
        m_vecPuts.push_back(put);
        return put.nResult;
    }

    int ArmService_Release() override { return m_rInner.ArmService_Release(); }
    int ArmService_Connect(IArmNodeControllerSink* sink, const char* name, unsigned a, unsigned b,
                           unsigned c) override
    {
        return m_rInner.ArmService_Connect(sink, name, a, b, c);
    }
    int ArmService_Disconnect(IArmNodeControllerSink* sink, unsigned reason) override
    {
        return m_rInner.ArmService_Disconnect(sink, reason);
    }
    int ArmService_QueryConference(unsigned queryId, void* record) override
    {
        return m_rInner.ArmService_QueryConference(queryId, record);
    }
    int ArmService_JoinConference(unsigned reserved, unsigned conference, IArmConferenceSink* sink,
                                  unsigned mode) override
    {
        return m_rInner.ArmService_JoinConference(reserved, conference, sink, mode);
    }
    int ArmService_LeaveConference(unsigned reserved, unsigned conference,
                                   IArmConferenceSink* sink) override
    {
        return m_rInner.ArmService_LeaveConference(reserved, conference, sink);
    }
    int ArmService_AttachUser(IArmApeSink* sink, unsigned reserved, unsigned short conference,
                              unsigned* attachId) override
    {
        return m_rInner.ArmService_AttachUser(sink, reserved, conference, attachId);
    }
    int ArmService_Enroll(unsigned attachId, unsigned resourceClass, unsigned session,
                          unsigned reserved, unsigned count, const ARMCapability* capability,
                          const char* value, unsigned valueLength, unsigned mode) override
    {
        return m_rInner.ArmService_Enroll(attachId, resourceClass, session, reserved, count,
                                          capability, value, valueLength, mode);
    }
    int ArmService_DetachUser(unsigned attachId) override
    {
        return m_rInner.ArmService_DetachUser(attachId);
    }
    int ArmService_Decrypt(unsigned conference, unsigned length, const unsigned char* sealed,
                           unsigned char** out, unsigned* outLength, unsigned reserved) override
    {
        return m_rInner.ArmService_Decrypt(conference, length, sealed, out, outLength, reserved);
    }
    int ArmService_FreeBuffer(void* buffer) override { return m_rInner.ArmService_FreeBuffer(buffer); }
    int ArmService_RegisterResources(unsigned attachId, IArmSharedDataSink* sink, short count,
                                     ARMSessionResource* resources) override
    {
        return m_rInner.ArmService_RegisterResources(attachId, sink, count, resources);
    }
    int ArmService_AllocNameHandles(unsigned attachId, unsigned count, NameHandles* names,
                                    IArmAllocHandleSink* sink) override
    {
        return m_rInner.ArmService_AllocNameHandles(attachId, count, names, sink);
    }
    int ArmService_SubscribeCache(unsigned attachId, unsigned cacheHandle, unsigned reserved,
                                  unsigned mode, unsigned depth, IArmSharedDataSink* sink) override
    {
        return m_rInner.ArmService_SubscribeCache(attachId, cacheHandle, reserved, mode, depth, sink);
    }
    int ArmService_RegisterRscCallBack(unsigned attachId, ARMRscCallBack callback) override
    {
        return m_rInner.ArmService_RegisterRscCallBack(attachId, callback);
    }
    int ArmService_AllocMemHandle(unsigned size, unsigned* handle) override
    {
        return m_rInner.ArmService_AllocMemHandle(size, handle);
    }
    int ArmService_FreeMemHandle(unsigned handle) override
    {
        ++m_nFrees;
        return m_rInner.ArmService_FreeMemHandle(handle);
    }
    int ArmService_GetMemHandleSize(unsigned handle, unsigned* size) override
    {
        return m_rInner.ArmService_GetMemHandleSize(handle, size);
    }
    int ArmService_WriteMemHandle(unsigned handle, unsigned offset, const void* data,
                                  unsigned size) override
    {
        return m_rInner.ArmService_WriteMemHandle(handle, offset, data, size);
    }
    int ArmService_ReadMemHandle(unsigned handle, unsigned offset, void* out, unsigned* size) override
    {
        return m_rInner.ArmService_ReadMemHandle(handle, offset, out, size);
    }

    std::vector<SPut> m_vecPuts;
    int m_nFrees = 0;

private:
    IArmService& m_rInner;
};

// Puts the recorder between a client and its service for as long as it lives.
class CRecordedService {
public:
    explicit CRecordedService(CNoteClient& client)
        : m_rClient(client), m_pInner(client.m_pArmService), m_recorder(*client.m_pArmService)
    {
        client.m_pArmService = &m_recorder;
    }
    ~CRecordedService() { m_rClient.m_pArmService = m_pInner; }
    CRecordedService(const CRecordedService&) = delete;
    CRecordedService& operator=(const CRecordedService&) = delete;

    const std::vector<CPutRecorder::SPut>& Puts() const { return m_recorder.m_vecPuts; }
    int Frees() const { return m_recorder.m_nFrees; }

private:
    CNoteClient& m_rClient;
    IArmService* m_pInner;
    CPutRecorder m_recorder;
};
