// A participant that drives a conference service the way the note client does, step by step,
// and records every callback it receives, so that tests can check what the host sent, when
// and in which order. Not the client: it takes no decisions of its own. It releases its
// service when destroyed, as the plug-in does, so a host that still calls it afterwards is
// caught by AddressSanitizer.
#pragma once

#include "conference/IgnoringArmSinks.h"
#include "conference/Meeting.h"
#include "tessarinnote/armservice.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

// One delivery of SharedDataReceivedEx, with the bytes read from its memory handle.
struct CCacheEvent {
    unsigned nCacheId, nCacheHandle;
    short nResult;
    int nAction;
    unsigned nPutter;
    unsigned nMemHandle;  // 0: none came
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
    std::string strBytes;
};

class CTestParticipant : public CIgnoringArmSinks {
public:
    // settle runs the loop until every callback the host produced so far has arrived.
    CTestParticipant(IMeeting& meeting, IRunLoop& loop, std::function<void()> settle, unsigned userId)
        : m_meeting(meeting), m_settle(std::move(settle)), m_pService(meeting.NewService(loop)), m_nUserId(userId)
    {
        m_meeting.SetMeetingLostHandler(m_pService, [this](int lost) { m_vecMeetingLost.push_back(lost); });
    }
    virtual ~CTestParticipant()
    {
        Registry().erase(m_nAttachId);
        Release();
    }
    CTestParticipant(const CTestParticipant&) = delete;
    CTestParticipant& operator=(const CTestParticipant&) = delete;

    IArmService* Service() { return m_pService; }
    unsigned AttachId() const { return m_nAttachId; }
    unsigned ResourceId() const { return m_nResourceId; }
    unsigned Cache() const { return m_vecNames.empty() ? 0 : m_vecNames.back().nHandle; }

    // Releases the service now (the participant stays, hearing nothing more); once only.
    int Release()
    {
        IArmService* service = m_pService;
        m_pService = nullptr;
        return service ? service->ArmService_Release() : -1;
    }
    // For a meeting that was destroyed with its services: nothing is left to release.
    void ForgetService() { m_pService = nullptr; }

    // Single steps; each returns the service's result.
    int Connect() { return m_pService->ArmService_Connect(this, "", 0, 0, 0); }
    int Join() { return m_pService->ArmService_JoinConference(0, m_meeting.ConferenceHandle(), this, 3); }
    int Attach()
    {
        const unsigned short conference = static_cast<unsigned short>(m_meeting.ConferenceHandle());
        return m_pService->ArmService_AttachUser(this, 0, conference, &m_nAttachId);
    }
    int Enroll()
    {
        Registry()[m_nAttachId] = this;
        m_pService->ArmService_RegisterRscCallBack(m_nAttachId, &CTestParticipant::ResourceCallback);
        ARMCapability capability = {1, 0, CAPABILITY_SESSION_ID, 1};
        const std::string value = "U" + std::to_string(m_nUserId) + "\x01";
        return m_pService->ArmService_Enroll(m_nAttachId, 16, m_meeting.SessionHandle(), 0, 1, &capability,
                                             value.data(), static_cast<unsigned>(value.size()), 3);
    }
    int AllocCache(const std::string& name)
    {
        NameHandles request;
        std::memset(&request, 0, sizeof request);
        std::strncpy(request.szName, name.c_str(), sizeof request.szName - 1);
        return m_pService->ArmService_AllocNameHandles(m_nAttachId, 1, &request, this);
    }
    int Subscribe(unsigned cache) { return m_pService->ArmService_SubscribeCache(m_nAttachId, cache, 0, 3, 255, this); }
    // Puts bytes from a fresh memory handle (freed right after, as the client does).
    int Put(unsigned cacheHandle, unsigned itemId, unsigned mode, unsigned flags, const std::string& bytes)
    {
        unsigned handle = 0;
        const unsigned size = static_cast<unsigned>(bytes.size());
        if (m_pService->ArmService_AllocMemHandle(size, &handle) != 0) return -1;
        if (m_pService->ArmService_WriteMemHandle(handle, 0, bytes.data(), size) != 0) return -1;
        const int result =
            m_pService->ArmService_PutCacheItem(m_nAttachId, cacheHandle, 0, itemId, mode, flags, handle, 0, 2);
        m_pService->ArmService_FreeMemHandle(handle);
        return result;
    }
    int Append(unsigned cache, const std::string& bytes) { return Put(cache, 0, CACHE_MODE_APPEND, CACHE_FLAG_BASE, bytes); }
    // A put without bytes: resynchronise, or clear with CACHE_FLAG_CLEAR.
    int PutNoHandle(unsigned cache, unsigned flags)
    {
        return m_pService->ArmService_PutCacheItem(m_nAttachId, cache, 0, 0, 0, flags, 0, 0, 1);
    }

    // The steps up to a subscribed cache, settling after each, and then, as the client does
    // once the subscription is answered, the second subscribe that brings the cache's items
    // (unless history is false). Returns the cache handle.
    unsigned JoinAndSubscribe(const std::string& cacheName, bool history = true)
    {
        for (const std::function<int()>& step : std::vector<std::function<int()>>{
                 [&] { return Connect(); }, [&] { return Join(); }, [&] { return Attach(); }, [&] { return Enroll(); },
                 [&] { return AllocCache(cacheName); }, [&] { return Subscribe(Cache()); },
                 [&] { return history ? Subscribe(Cache()) : 0; }}) {
            EXPECT_EQ(step(), 0);
            m_settle();
        }
        return Cache();
    }

    // Recorded callbacks, in order.
    std::vector<std::string> m_vecCallbacks;
    std::vector<CCacheEvent> m_vecCache;
    std::vector<CConfirmEvent> m_vecConfirms;
    std::vector<CDataEvent> m_vecData;
    std::vector<NameHandles> m_vecNames;
    std::vector<int> m_vecMeetingLost;
    short m_nConnectResult = -1, m_nJoinResult = -1, m_nEnrollResult = -1, m_nEnrollCount = 0;
    std::function<void()> m_fnOnDelivery;  // runs at the end of each cache delivery

    int ConnectConfirm(short result, unsigned) override { return m_nConnectResult = result, Record("ConnectConfirm"); }
    int DisconnectIndication(short) override { return Record("DisconnectIndication"); }
    int ConferenceJoinConfirm(unsigned short, char*, short result, unsigned) override
    {
        return m_nJoinResult = result, Record("ConferenceJoinConfirm");
    }
    int ApeAttachConfirm(unsigned attachId, short, unsigned) override
    {
        return m_nAttachId = attachId, Record("ApeAttachConfirm");
    }
    int ApeEnrollConfirm(unsigned attachId, short result, short count, ARMSessionResource* resources) override
    {
        m_nEnrollResult = result;
        m_nEnrollCount = count;
        if (result == 0 && count > 0 && resources) {
            m_nResourceId = resources[0].nResourceId;
            m_pService->ArmService_RegisterResources(attachId, this, count, resources);
        }
        return Record("ApeEnrollConfirm");
    }
    int ApeDataIndication(unsigned, unsigned, unsigned, short, unsigned char* data, unsigned length) override
    {
        m_vecData.push_back({false, "", 0, std::string(reinterpret_cast<char*>(data), length)});
        return Record("ApeDataIndication");
    }
    int ApeDetachIndication(unsigned, short) override { return Record("ApeDetachIndication"); }
    int ApeCacheActionConfirmEx(unsigned, unsigned cacheHandle, tagCacheAction action, unsigned itemId, unsigned,
                                short result) override
    {
        m_vecConfirms.push_back({cacheHandle, action, itemId, result});
        return Record("ApeCacheActionConfirmEx");
    }
    int SharedDataReceivedEx(unsigned first, unsigned cacheId, unsigned cacheHandle, unsigned memHandle,
                             short result, tagCacheAction action, unsigned putter, unsigned, short) override
    {
        if (first != 1) ADD_FAILURE() << "SharedDataReceivedEx: first is " << first << ", not 1";
        Record("SharedDataReceivedEx");
        m_vecCache.push_back({cacheId, cacheHandle, result, action, putter, memHandle, ReadHandle(memHandle)});
        if (m_fnOnDelivery) m_fnOnDelivery();
        return 0;
    }
    int AllocNameHandleConfirm(unsigned, unsigned count, NameHandles* names, unsigned) override
    {
        for (unsigned i = 0; names && i < count; ++i) m_vecNames.push_back(names[i]);
        Record("AllocNameHandleConfirm");
        return 1;
    }

private:
    int Record(const char* callback)
    {
        m_vecCallbacks.push_back(callback);
        return 0;
    }

    // Resource callbacks arrive as a plain function with the attach id: find the participant.
    static std::map<unsigned, CTestParticipant*>& Registry()
    {
        static std::map<unsigned, CTestParticipant*> registry;
        return registry;
    }
    static int ResourceCallback(unsigned id, ARMMsgType type, void* msg)
    {
        if (!msg) return 1;
        auto it = Registry().find(id);
        if (it == Registry().end() || type != ARM_MSG_SESS_RSC_IND) return 0;
        const ARMMsg_SessRscInd* ind = static_cast<const ARMMsg_SessRscInd*>(msg);
        it->second->m_vecData.push_back({true, ind->pszResourceName ? ind->pszResourceName : "", ind->nKind,
                                         std::string(reinterpret_cast<const char*>(ind->pData), ind->nLength)});
        return it->second->Record("ResourceCallback");
    }

    std::string ReadHandle(unsigned memHandle)
    {
        unsigned size = 0;
        if (memHandle == 0 || !m_pService || m_pService->ArmService_GetMemHandleSize(memHandle, &size) != 0) return "";
        std::string bytes(size, '\0');
        unsigned read = size;
        if (m_pService->ArmService_ReadMemHandle(memHandle, 0, &bytes[0], &read) != 0) return "<unreadable>";
        bytes.resize(read);
        return bytes;
    }

    IMeeting& m_meeting;
    std::function<void()> m_settle;
    IArmService* m_pService;
    unsigned m_nUserId;
    unsigned m_nAttachId = 0;
    unsigned m_nResourceId = 0;
};
