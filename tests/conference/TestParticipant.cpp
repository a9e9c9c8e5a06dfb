// The recording test participant.
#include "TestParticipant.h"

#include <cstring>
#include <map>

namespace {

// Resource callbacks arrive as a plain function with the attach id: find the participant.
std::map<unsigned, CTestParticipant*>& Registry()
{
    static std::map<unsigned, CTestParticipant*> registry;
    return registry;
}

}  // namespace

CTestParticipant::CTestParticipant(IMeeting& meeting, IRunLoop& loop,
                                   std::function<void()> settle, unsigned userId)
    : m_meeting(meeting), m_loop(loop), m_settle(std::move(settle)),
      m_pService(meeting.NewService(loop)), m_nUserId(userId)
{
    m_meeting.SetMeetingLostHandler(m_pService, [this](int lost) { m_vecMeetingLost.push_back(lost); });
}

CTestParticipant::~CTestParticipant()
{
    Registry().erase(m_nAttachId);
    if (m_pService) m_pService->ArmService_Release();
}

int CTestParticipant::Connect()
{
    return m_pService->ArmService_Connect(this, "", 0, 0, 0);
}

int CTestParticipant::Join()
{
    return m_pService->ArmService_JoinConference(0, m_meeting.ConferenceHandle(), this, 3);
}

int CTestParticipant::Attach()
{
    const unsigned short conference = static_cast<unsigned short>(m_meeting.ConferenceHandle());
    const int result = m_pService->ArmService_AttachUser(this, 0, conference, &m_nAttachId);
    return result;
}

int CTestParticipant::Enroll()
{
    ARMCapability capability = {1, 0, CAPABILITY_SESSION_ID, 1};
    const std::string value = "U" + std::to_string(m_nUserId) + "\x01";
    return m_pService->ArmService_Enroll(m_nAttachId, 16, m_meeting.SessionHandle(), 0, 1,
                                         &capability, value.data(),
                                         static_cast<unsigned>(value.size()), 3);
}

int CTestParticipant::RegisterCallback()
{
    Registry()[m_nAttachId] = this;
    return m_pService->ArmService_RegisterRscCallBack(m_nAttachId, &CTestParticipant::ResourceCallback);
}

int CTestParticipant::AllocCache(const std::string& name)
{
    NameHandles request;
    std::memset(&request, 0, sizeof request);
    std::strncpy(request.szName, name.c_str(), sizeof request.szName - 1);
    return m_pService->ArmService_AllocNameHandles(m_nAttachId, 1, &request, this);
}

int CTestParticipant::Subscribe(unsigned cacheHandle)
{
    return m_pService->ArmService_SubscribeCache(m_nAttachId, cacheHandle, 0, 3, 255, this);
}

int CTestParticipant::Put(unsigned cacheHandle, unsigned itemId, unsigned mode, unsigned flags,
                          const std::string& bytes)
{
    unsigned handle = 0;
    const unsigned size = static_cast<unsigned>(bytes.size());
    if (m_pService->ArmService_AllocMemHandle(size, &handle) != 0) return -1;
    if (m_pService->ArmService_WriteMemHandle(handle, 0, bytes.data(), size) != 0) return -1;
    const int result = m_pService->ArmService_PutCacheItem(m_nAttachId, cacheHandle, 0, itemId,
                                                           mode, flags, handle, 0, 2);
    m_pService->ArmService_FreeMemHandle(handle);
    return result;
}

int CTestParticipant::PutNoHandle(unsigned cacheHandle, unsigned flags)
{
    return m_pService->ArmService_PutCacheItem(m_nAttachId, cacheHandle, 0, 0, 0, flags, 0, 0, 1);
}

unsigned CTestParticipant::JoinAndSubscribe(const std::string& cacheName)
{
    Connect();
    m_settle();
    Join();
    m_settle();
    Attach();
    m_settle();
    RegisterCallback();
    Enroll();
    m_settle();
    AllocCache(cacheName);
    m_settle();
    const unsigned handle = m_vecNames.empty() ? 0 : m_vecNames.back().nHandle;
    Subscribe(handle);
    m_settle();
    return handle;
}

std::string CTestParticipant::ReadHandle(unsigned memHandle)
{
    unsigned size = 0;
    if (memHandle == 0 || m_pService->ArmService_GetMemHandleSize(memHandle, &size) != 0) return "";
    std::string bytes(size, '\0');
    unsigned read = size;
    if (m_pService->ArmService_ReadMemHandle(memHandle, 0, &bytes[0], &read) != 0) return "<unreadable>";
    bytes.resize(read);
    return bytes;
}

int CTestParticipant::ResourceCallback(unsigned id, ARMMsgType type, void* msg)
{
    if (!msg) return 1;
    auto it = Registry().find(id);
    if (it == Registry().end() || type != ARM_MSG_SESS_RSC_IND) return 0;
    const ARMMsg_SessRscInd* ind = static_cast<const ARMMsg_SessRscInd*>(msg);
    CDataEvent event;
    event.bViaResource = true;
    event.strResourceName = ind->pszResourceName ? ind->pszResourceName : "";
    event.nKind = ind->nKind;
    event.nFrom = 0;
    event.strBytes.assign(reinterpret_cast<const char*>(ind->pData), ind->nLength);
    it->second->m_vecData.push_back(event);
    it->second->m_vecCallbacks.push_back("ResourceCallback");
    return 0;
}

int CTestParticipant::ConnectConfirm(short result, unsigned)
{
    m_vecCallbacks.push_back("ConnectConfirm");
    m_nConnectResult = result;
    return 0;
}

int CTestParticipant::DisconnectIndication(short)
{
    m_vecCallbacks.push_back("DisconnectIndication");
    return 0;
}

int CTestParticipant::DisconnectConfirm(short)
{
    m_vecCallbacks.push_back("DisconnectConfirm");
    return 0;
}

int CTestParticipant::TransportStatusIndication(short, unsigned) { return 0; }

int CTestParticipant::ConferenceJoinConfirm(unsigned short, char*, short result, unsigned)
{
    m_vecCallbacks.push_back("ConferenceJoinConfirm");
    m_nJoinResult = result;
    return 0;
}

int CTestParticipant::ConferenceLeaveIndication(unsigned short, char*, short) { return 0; }
int CTestParticipant::ConferenceRosterConfirm(unsigned short, short, short, ARMNodeRecord*) { return 0; }
int CTestParticipant::ConferenceRosterChanged(unsigned short, short, short, short, ARMNodeRecord*) { return 0; }
int CTestParticipant::ApeRosterConfirm(unsigned short, short, short, ARMApeRoster*) { return 0; }
int CTestParticipant::ApeRosterChanged(unsigned short, short, short, short, ARMApeRoster*) { return 0; }

int CTestParticipant::ApeAttachConfirm(unsigned attachId, short, unsigned)
{
    m_vecCallbacks.push_back("ApeAttachConfirm");
    m_nAttachId = attachId;
    return 0;
}

int CTestParticipant::ApeEnrollConfirm(unsigned attachId, short result, short count,
                                       ARMSessionResource* resources)
{
    m_vecCallbacks.push_back("ApeEnrollConfirm");
    m_nEnrollResult = result;
    m_nEnrollCount = count;
    if (result == 0 && count > 0 && resources) {
        m_nResourceId = resources[0].nResourceId;
        m_pService->ArmService_RegisterResources(attachId, this, count, resources);
    }
    return 0;
}

int CTestParticipant::ApeRosterConfirm(unsigned, unsigned short, short, short, ARMApeRoster*) { return 0; }
int CTestParticipant::ApeRosterChanged(unsigned, unsigned short, short, short, short, ARMApeRoster*) { return 0; }

int CTestParticipant::ApeDataIndication(unsigned, unsigned fromId, unsigned, short,
                                        unsigned char* data, unsigned length)
{
    m_vecCallbacks.push_back("ApeDataIndication");
    m_vecData.push_back({false, "", 0, fromId, std::string(reinterpret_cast<char*>(data), length)});
    return 0;
}

int CTestParticipant::ApeTokenGrabConfirm(unsigned, short, unsigned short) { return 0; }
int CTestParticipant::ApeTokenInhibitConfirm(unsigned, short, unsigned short) { return 0; }
int CTestParticipant::ApeTokenGiveConfirm(unsigned, short, unsigned short) { return 0; }
int CTestParticipant::ApeTokenGiveIndication(unsigned, unsigned, unsigned short) { return 0; }
int CTestParticipant::ApeTokenPleaseIndication(unsigned, unsigned, unsigned short) { return 0; }
int CTestParticipant::ApeTokenReleaseConfirm(unsigned, short, unsigned short) { return 0; }
int CTestParticipant::ApeTokenTestConfirm(unsigned, short, unsigned short) { return 0; }

int CTestParticipant::ApeDetachIndication(unsigned, short)
{
    m_vecCallbacks.push_back("ApeDetachIndication");
    return 0;
}

int CTestParticipant::ConferenceRosterConfirm(unsigned, unsigned short, short, short, ARMNodeRecord*) { return 0; }
int CTestParticipant::ConferenceRosterChanged(unsigned, unsigned short, short, short, short, ARMNodeRecord*) { return 0; }

int CTestParticipant::ApeCacheActionConfirmEx(unsigned, unsigned cacheHandle, tagCacheAction action,
                                              unsigned itemId, unsigned, short result)
{
    m_vecCallbacks.push_back("ApeCacheActionConfirmEx");
    m_vecConfirms.push_back({cacheHandle, action, itemId, result});
    return 0;
}

int CTestParticipant::SharedDataReceivedEx(unsigned first, unsigned cacheId, unsigned cacheHandle,
                                           unsigned memHandle, short result,
                                           tagCacheAction action, unsigned putter, unsigned,
                                           short)
{
    m_vecCallbacks.push_back("SharedDataReceivedEx");
    if (first != 1) m_vecCallbacks.push_back("SharedDataReceivedEx: first was not 1");
    m_vecCache.push_back(
        {cacheId, cacheHandle, result, action, putter, memHandle != 0, ReadHandle(memHandle)});
    return 0;
}

int CTestParticipant::AllocNameHandleConfirm(unsigned, unsigned count, NameHandles* names, unsigned)
{
    m_vecCallbacks.push_back("AllocNameHandleConfirm");
    for (unsigned i = 0; names && i < count; ++i) m_vecNames.push_back(names[i]);
    return 1;
}
