// CNoteClient: the conference handshake (connect, join, attach, enrol), the change cache's name
// handle and subscription, cache put confirms and the PKI query.
//
// Handshake failures are formatted into local buffers and deliberately not shown or traced.
#include "client/CNoteClient.h"

#include "boundscheck/boundscheck.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr unsigned kEnrollResourceClass = 16;
constexpr unsigned kEnrollMode = 3;
constexpr unsigned kJoinMode = 3;
constexpr unsigned kSubscribeMode = 3;
constexpr unsigned kSubscribeDepth = 255;
constexpr unsigned kValueBufferSize = 512;

}  // namespace

int CNoteClient::ConnectConfirm(short result, unsigned /*reserved*/)
{
    char szLog[300] = {};
    std::snprintf(szLog, sizeof szLog, "m_sessionHandle=<%ld>, conferenceHandle=<%ld>",
                  static_cast<long>(m_sessionHandle), static_cast<long>(m_conferenceHandle));
    if (!m_pArmService) return 0;
    switch (result) {
    case ARM_REFUSED:
        m_pArmService->ArmService_Connect(static_cast<IArmNodeControllerSink*>(this), "", 0, 0, 0);
        break;
    case ARM_OK:
        if (m_pArmService->ArmService_JoinConference(0, m_conferenceHandle, static_cast<IArmConferenceSink*>(this),
                                                     kJoinMode) == ARM_ALREADY_JOINED) {
            char szName[] = "99";
            ConferenceJoinConfirm(static_cast<unsigned short>(m_conferenceHandle), szName, 0, 0);
        }
        break;
    default:
        std::snprintf(szLog, sizeof szLog, "Connect failed, result=%d.", result);
        break;
    }
    return 0;
}

int CNoteClient::ConferenceJoinConfirm(unsigned short /*conference*/, char* /*name*/, short result,
                                       unsigned /*reserved*/)
{
    if (result != 0 || !m_pArmService) return 0;
    const int attached = m_pArmService->ArmService_AttachUser(
        static_cast<IArmApeSink*>(this), 0, static_cast<unsigned short>(m_conferenceHandle), &m_nApeUserId);
    if (attached != 0) {
        char szLog[300] = {};
        std::snprintf(szLog, sizeof szLog, "Attach user failed, nRet=%d.", attached);
    }
    return 0;
}

int CNoteClient::ApeAttachConfirm(unsigned attachId, short result, unsigned /*reserved*/)
{
    m_nApeUserId = attachId;
    if (!Enroll()) {
        char szLog[512] = {};
        std::snprintf(szLog, sizeof szLog, "attach confirm failed, result=%d.", result);
    }
    return 0;
}

bool CNoteClient::Enroll()
{
    if (!m_pArmService) return false;
    ARMCapability capability;
    memset_s(&capability, sizeof capability, 0, sizeof capability);
    capability.nCount = 1;
    capability.pszKey = CAPABILITY_SESSION_ID;
    capability.nValue = 1;

    // "U", the decimal user id and the byte 0x01.
    char szValue[kValueBufferSize] = {};
    std::snprintf(szValue, sizeof szValue, "U%ld%c", static_cast<long>(m_nUserId), 1);
    const unsigned valueLength = static_cast<unsigned>(strnlen_s(szValue, sizeof szValue));
    return m_pArmService->ArmService_Enroll(m_nApeUserId, kEnrollResourceClass, m_sessionHandle, 0, 1, &capability,
                                           szValue, valueLength, kEnrollMode) == 0;
}

int CNoteClient::ApeEnrollConfirm(unsigned attachId, short result, short count, ARMSessionResource* resources)
{
    if (result != 0) return 0;
    m_bWaitEnroll = 0;
    if (count > 0 && resources) m_nResourceId = resources[0].nResourceId;
    if (m_pArmService)
        m_pArmService->ArmService_RegisterResources(attachId, static_cast<IArmSharedDataSink*>(this), count,
                                                    resources);
    m_bFileLoaded = LoadXMLFile(m_SaveInfo, m_strAutoSavePath.c_str());
    AllocAllCacheHandles();
    return 0;
}

void CNoteClient::AllocAllCacheHandles()
{
    if (!m_pArmService) return;
    m_nCacheCount = 1;
    NameHandles names[1];
    memset_s(names, sizeof names, 0, sizeof names);
    std::snprintf(names[0].szName, sizeof names[0].szName, "note_changeinfo_cache_%u", m_nResourceId);
    memset_s(m_szChangeCacheName, sizeof m_szChangeCacheName, 0, sizeof m_szChangeCacheName);
    memcpy_s(m_szChangeCacheName, sizeof m_szChangeCacheName, names[0].szName, sizeof names[0].szName);
    m_nChangeCacheHandle = 0;
    m_pArmService->ArmService_AllocNameHandles(m_nApeUserId, m_nCacheCount, names,
                                               static_cast<IArmAllocHandleSink*>(this));
}

int CNoteClient::AllocNameHandleConfirm(unsigned /*attachId*/, unsigned count, NameHandles* names,
                                        unsigned /*reserved*/)
{
    if (count != m_nCacheCount) return 0;
    // Names compared within their 64 bytes: a confirm's name need not be terminated.
    if (count > 0 && names &&
        std::strncmp(names[0].szName, m_szChangeCacheName, sizeof m_szChangeCacheName) == 0)
        m_nChangeCacheHandle = names[0].nHandle;
    if (m_nChangeCacheHandle != 0 && m_pArmService) RequestAllNoteData();
    return 1;
}

void CNoteClient::RequestAllNoteData()
{
    if (!m_pArmService || m_nApeUserId == 0) return;
    m_pArmService->ArmService_SubscribeCache(m_nApeUserId, m_nChangeCacheHandle, 0, kSubscribeMode,
                                             kSubscribeDepth, static_cast<IArmSharedDataSink*>(this));
}

void CNoteClient::SubscribeChangeNoteCache()
{
    if (!m_pArmService || m_nApeUserId == 0 || m_bStopSubscribe) return;
    if (m_bNeedSendAll && m_nUserType == NOTE_USER_WRITER) SendAllBlockPdu(1);
    m_bNeedSendAll = false;
    m_pArmService->ArmService_SubscribeCache(m_nApeUserId, m_nChangeCacheHandle, 0, kSubscribeMode,
                                             kSubscribeDepth, static_cast<IArmSharedDataSink*>(this));
}

void CNoteClient::CheckNoteCacheStatus()
{
    if (m_nChangeCacheHandle != 0 && m_pArmService) RequestAllNoteData();
}

void CNoteClient::SetAllCaches()
{
    if (!m_pArmService) return;
    m_pArmService->ArmService_PutCacheItem(m_nApeUserId, m_nChangeCacheHandle, 0, 0, 0, CACHE_FLAG_BASE, 0, 0, 1);
}

int CNoteClient::ApeCacheActionConfirmEx(unsigned attachId, unsigned cacheHandle, tagCacheAction action,
                                         unsigned /*itemId*/, unsigned /*reserved*/, short result)
{
    if (attachId == 0 || cacheHandle == 0) return 1;
    const bool stored = action == CACHE_ACTION_ADDED || action == CACHE_ACTION_UPDATED;
    if (cacheHandle != m_nSaveCacheHandle) {
        if (result != 0 || !stored || cacheHandle != m_nChangeCacheHandle) return 0;
    } else if (!stored || result != 0) {
        return 0;
    }
    m_bNeedAutoSave = 1;
    if (m_pUI) NotifyCocoaUI(m_pUI, NOTEUI_GET_TEXT_CRLF, nullptr, &m_strPublishMsg, nullptr);
    return 0;
}

bool CNoteClient::IsPKIMeeting()
{
    if (!m_pArmService) return false;
    ARMConferenceQuery query = {};
    query.conferenceHandle = m_conferenceHandle;
    m_pArmService->ArmService_QueryConference(ARM_QUERY_CONFERENCE_FLAGS, &query);
    return (query.flags & ARM_CONFERENCE_FLAG_PKI) != 0;
}
