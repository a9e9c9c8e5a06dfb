// A conference service for client tests, in two modes.
//
// Alone, it never answers by itself: it records each call in a line of text and returns the
// results a test scripted, so a test drives the handshake one callback at a time and reaches
// cases (already connected, a refused connect, an enrolment without resources) that no real
// conference produces on demand. It has no memory handles, and Decrypt opens a record made by
// Seal ("S" and hexadecimal) and refuses anything else.
//
// In front of another service (CRecordedService puts it between a client and its service), it
// forwards every operation and records the cache puts, with the bytes of their handles and the
// service's answer, and counts the freed handles.
#pragma once

#include "ClientHarness.h"
#include "ClientTraceCapture.h"

#include "tessarinnote/armservice.h"
#include "tessarinnote/uiinterface.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <vector>

class CScriptedArmService : public IArmService {
public:
    explicit CScriptedArmService(IArmService* inner = nullptr) : m_pInner(inner) {}
    ~CScriptedArmService() override
    {
        for (void* buffer : m_setOpened) std::free(buffer);
    }

    // Scripted results.
    int m_nConnectResult = 0;
    int m_nJoinResult = 0;
    int m_nEnrollResult = 0;
    unsigned m_nAttachIdToWrite = 7;
    std::uint64_t m_nConferenceFlags = 0;
    unsigned m_nDecryptConference = 5;  // the conference handle Decrypt accepts

    // What the client handed over.
    std::vector<std::string> m_vecCalls;
    ARMCapability m_capability = {};
    std::string m_strCapabilityKey;
    std::string m_strEnrollValue;
    std::string m_strAllocName;            // the 64 name bytes of the first NameHandles record
    std::vector<std::string> m_vecOpened;  // records Decrypt opened, in order
    std::uint64_t m_nQueriedHandle = 0;
    std::set<void*> m_setOpened;  // Decrypt buffers not freed yet

    // Forwarding: the puts, and the handles freed.
    struct SPut {
        unsigned nAttachId, nCacheHandle, nItemId, nMode, nFlags, nPriority;
        int nResult;
        std::string strBytes;
    };
    std::vector<SPut> m_vecPuts;
    int m_nFrees = 0;

    int ArmService_Release() override { return m_pInner ? m_pInner->ArmService_Release() : Record("Release"); }
    int ArmService_Connect(IArmNodeControllerSink* sink, const char* name, unsigned a, unsigned b,
                           unsigned c) override
    {
        if (m_pInner) return m_pInner->ArmService_Connect(sink, name, a, b, c);
        Record("Connect '" + std::string(name) + "' " + Num(a) + " " + Num(b) + " " + Num(c));
        return m_nConnectResult;
    }
    int ArmService_Disconnect(IArmNodeControllerSink* sink, unsigned reason) override
    {
        return m_pInner ? m_pInner->ArmService_Disconnect(sink, reason) : Record("Disconnect " + Num(reason));
    }
    int ArmService_QueryConference(unsigned queryId, void* record) override
    {
        if (m_pInner) return m_pInner->ArmService_QueryConference(queryId, record);
        ARMConferenceQuery* query = static_cast<ARMConferenceQuery*>(record);
        m_nQueriedHandle = query->conferenceHandle;
        query->flags = m_nConferenceFlags;
        return 0;
    }
    int ArmService_JoinConference(unsigned reserved, unsigned conference, IArmConferenceSink* sink,
                                  unsigned mode) override
    {
        if (m_pInner) return m_pInner->ArmService_JoinConference(reserved, conference, sink, mode);
        Record("Join " + Num(reserved) + " " + Num(conference) + " " + Num(mode));
        return m_nJoinResult;
    }
    int ArmService_LeaveConference(unsigned reserved, unsigned conference, IArmConferenceSink* sink) override
    {
        if (m_pInner) return m_pInner->ArmService_LeaveConference(reserved, conference, sink);
        return Record("Leave " + Num(reserved) + " " + Num(conference));
    }
    int ArmService_AttachUser(IArmApeSink* sink, unsigned reserved, unsigned short conference,
                              unsigned* attachId) override
    {
        if (m_pInner) return m_pInner->ArmService_AttachUser(sink, reserved, conference, attachId);
        *attachId = m_nAttachIdToWrite;
        return Record("Attach " + Num(reserved) + " " + Num(conference));
    }
    int ArmService_Enroll(unsigned attachId, unsigned resourceClass, unsigned session, unsigned reserved,
                          unsigned count, const ARMCapability* capability, const char* value,
                          unsigned valueLength, unsigned mode) override
    {
        if (m_pInner)
            return m_pInner->ArmService_Enroll(attachId, resourceClass, session, reserved, count, capability,
                                               value, valueLength, mode);
        std::memcpy(&m_capability, capability, sizeof m_capability);
        m_strCapabilityKey = capability->pszKey;
        m_strEnrollValue = std::string(value, valueLength);
        Record("Enroll " + Num(attachId) + " " + Num(resourceClass) + " " + Num(session) + " " + Num(reserved) +
               " " + Num(count) + " " + Num(valueLength) + " " + Num(mode));
        return m_nEnrollResult;
    }
    int ArmService_DetachUser(unsigned attachId) override
    {
        return m_pInner ? m_pInner->ArmService_DetachUser(attachId) : Record("Detach " + Num(attachId));
    }
    int ArmService_Decrypt(unsigned conference, unsigned length, const unsigned char* sealed, unsigned char** out,
                           unsigned* outLength, unsigned reserved) override
    {
        if (m_pInner) return m_pInner->ArmService_Decrypt(conference, length, sealed, out, outLength, reserved);
        *out = nullptr;
        *outLength = 0;
        const std::string record(reinterpret_cast<const char*>(sealed), length);
        m_vecOpened.push_back(record);
        std::string plain;
        if (conference != m_nDecryptConference || !Unhex(record, &plain)) return 4;
        unsigned char* buffer = static_cast<unsigned char*>(std::malloc(plain.size() + 1));
        std::memcpy(buffer, plain.data(), plain.size());
        m_setOpened.insert(buffer);
        *out = buffer;
        *outLength = static_cast<unsigned>(plain.size());
        return 0;
    }
    int ArmService_FreeBuffer(void* buffer) override
    {
        if (m_pInner) return m_pInner->ArmService_FreeBuffer(buffer);
        if (m_setOpened.erase(buffer) == 0) return 1;
        std::free(buffer);
        return 0;
    }
    int ArmService_RegisterResources(unsigned attachId, IArmSharedDataSink* sink, short count,
                                     ARMSessionResource* resources) override
    {
        if (m_pInner) return m_pInner->ArmService_RegisterResources(attachId, sink, count, resources);
        return Record("RegisterResources " + Num(attachId) + " " + Num(static_cast<unsigned>(count)));
    }
    int ArmService_AllocNameHandles(unsigned attachId, unsigned count, NameHandles* names,
                                    IArmAllocHandleSink* sink) override
    {
        if (m_pInner) return m_pInner->ArmService_AllocNameHandles(attachId, count, names, sink);
        m_strAllocName = std::string(names[0].szName, sizeof names[0].szName);
        return Record("AllocNameHandles " + Num(attachId) + " " + Num(count) + " " + names[0].szName + " " +
                      Num(names[0].nHandle));
    }
    int ArmService_PutCacheItem(unsigned attachId, unsigned cacheHandle, unsigned reserved, unsigned itemId,
                                unsigned mode, unsigned flags, unsigned memHandle, unsigned reserved2,
                                unsigned priority) override
    {
        if (!m_pInner) {
            char hex[16];
            std::snprintf(hex, sizeof hex, "0x%x", flags);
            return Record("Put " + Num(attachId) + " " + Num(cacheHandle) + " " + Num(reserved) + " " + Num(itemId) +
                          " " + Num(mode) + " " + hex + " " + Num(memHandle) + " " + Num(reserved2) + " " +
                          Num(priority));
        }
        SPut put = {attachId, cacheHandle, itemId, mode, flags, priority, 0, std::string()};
        unsigned size = 0;
        if (memHandle && m_pInner->ArmService_GetMemHandleSize(memHandle, &size) == 0) {
            put.strBytes.resize(size);
            if (size) m_pInner->ArmService_ReadMemHandle(memHandle, 0, &put.strBytes[0], &size);
        }
        put.nResult = m_pInner->ArmService_PutCacheItem(attachId, cacheHandle, reserved, itemId, mode, flags,
                                                        memHandle, reserved2, priority);
        m_vecPuts.push_back(put);
        return put.nResult;
    }
    int ArmService_SubscribeCache(unsigned attachId, unsigned cacheHandle, unsigned reserved, unsigned mode,
                                  unsigned depth, IArmSharedDataSink* sink) override
    {
        if (m_pInner) return m_pInner->ArmService_SubscribeCache(attachId, cacheHandle, reserved, mode, depth, sink);
        return Record("Subscribe " + Num(attachId) + " " + Num(cacheHandle) + " " + Num(reserved) + " " + Num(mode) +
                      " " + Num(depth));
    }
    int ArmService_RegisterRscCallBack(unsigned attachId, ARMRscCallBack callback) override
    {
        if (m_pInner) return m_pInner->ArmService_RegisterRscCallBack(attachId, callback);
        return Record("RegisterRscCallBack " + Num(attachId));
    }
    // Alone, no memory handles: every item reads as empty.
    int ArmService_AllocMemHandle(unsigned size, unsigned* handle) override
    {
        return m_pInner ? m_pInner->ArmService_AllocMemHandle(size, handle) : 1;
    }
    int ArmService_FreeMemHandle(unsigned handle) override
    {
        ++m_nFrees;
        return m_pInner ? m_pInner->ArmService_FreeMemHandle(handle) : 1;
    }
    int ArmService_GetMemHandleSize(unsigned handle, unsigned* size) override
    {
        return m_pInner ? m_pInner->ArmService_GetMemHandleSize(handle, size) : 1;
    }
    int ArmService_WriteMemHandle(unsigned handle, unsigned offset, const void* data, unsigned size) override
    {
        return m_pInner ? m_pInner->ArmService_WriteMemHandle(handle, offset, data, size) : 1;
    }
    int ArmService_ReadMemHandle(unsigned handle, unsigned offset, void* out, unsigned* size) override
    {
        return m_pInner ? m_pInner->ArmService_ReadMemHandle(handle, offset, out, size) : 1;
    }

    // Calls recorded since the last Take, and forgets them.
    std::vector<std::string> Take()
    {
        std::vector<std::string> calls;
        calls.swap(m_vecCalls);
        return calls;
    }

    // The record the scripted Decrypt opens to plain: "S" and the bytes in hexadecimal.
    static std::string Seal(const std::string& plain)
    {
        static const char kDigits[] = "0123456789abcdef";
        std::string record = "S";
        for (unsigned char c : plain) record += std::string{kDigits[c >> 4], kDigits[c & 15]};
        return record;
    }

private:
    static bool Unhex(const std::string& record, std::string* plain)
    {
        if (record.empty() || record[0] != 'S' || record.size() % 2 == 0) return false;
        for (size_t i = 1; i + 1 < record.size(); i += 2) {
            const int high = Nibble(record[i]);
            const int low = Nibble(record[i + 1]);
            if (high < 0 || low < 0) return false;
            *plain += static_cast<char>(high << 4 | low);
        }
        return true;
    }
    static int Nibble(char c)
    {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        return -1;
    }
    int Record(const std::string& call)
    {
        m_vecCalls.push_back(call);
        return 0;
    }
    static std::string Num(unsigned value) { return std::to_string(value); }

    IArmService* m_pInner;
};

// Puts a forwarding CScriptedArmService between a client and its service while it lives.
class CRecordedService {
public:
    explicit CRecordedService(CNoteClient& client)
        : m_rClient(client), m_pInner(client.m_pArmService), m_recorder(client.m_pArmService)
    {
        client.m_pArmService = &m_recorder;
    }
    ~CRecordedService() { m_rClient.m_pArmService = m_pInner; }
    CRecordedService(const CRecordedService&) = delete;
    CRecordedService& operator=(const CRecordedService&) = delete;

    const std::vector<CScriptedArmService::SPut>& Puts() const { return m_recorder.m_vecPuts; }
    int Frees() const { return m_recorder.m_nFrees; }

private:
    CNoteClient& m_rClient;
    IArmService* m_pInner;
    CScriptedArmService m_recorder;
};

// The conference, session and user of a client on a scripted service.
constexpr unsigned kScriptedConference = 5;
constexpr unsigned kScriptedSession = 6;
constexpr unsigned kScriptedUserId = 4711;

inline _tagNoteData ScriptedNoteData(IArmService* service, INoteHostSink* sink = nullptr)
{
    _tagNoteData data;
    std::memset(&data, 0, sizeof data);
    data.pHostSink = sink;
    data.pArmService = service;
    data.conferenceHandle = kScriptedConference;
    data.sessionHandle = kScriptedSession;
    data.nUserId = kScriptedUserId;
    return data;
}

// A client initialised on service (a run loop must be current), with a headless panel.
inline std::unique_ptr<CNoteClient> NewScriptedClient(IArmService& service, INoteHostSink* sink = nullptr)
{
    std::unique_ptr<CNoteClient> client(new CNoteClient);
    _tagNoteData data = ScriptedNoteData(&service, sink);
    client->Initialize(data);
    void* panel = nullptr;
    CreateUI(&panel, nullptr, client.get());
    client->SetPanel(panel);
    return client;
}

// A session-resource message carrying bytes (which must outlive it).
inline ARMMsg_SessRscInd ResourceMessage(const std::string& bytes, unsigned kind = 0, const char* name = "NoteTake")
{
    ARMMsg_SessRscInd message;
    message.pszResourceName = name;
    message.nLength = static_cast<std::uint32_t>(bytes.size());
    message.pData = reinterpret_cast<const unsigned char*>(bytes.data());
    message.nKind = kind;
    return message;
}

// A client on a scripted service, with a host sink and a headless panel, made in SetUp after
// the test's run loop; the calls of its Initialize are taken.
class ScriptedClientTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_client = NewScriptedClient(m_service, &m_sink);
        m_service.Take();
    }
    void TearDown() override { m_client.reset(); }

    CManualRunLoop m_loop{1000.0};
    CRunLoopScope m_scope{m_loop};
    CClientTraceCapture m_trace;
    CScriptedArmService m_service;
    CRecordingHostSink m_sink;
    std::unique_ptr<CNoteClient> m_client;
};
