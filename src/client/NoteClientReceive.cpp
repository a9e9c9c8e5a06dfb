// CNoteClient: the receive path. Whole-text data units (direct, or routed from resource
// messages) end in RevData; change-cache items are unpacked and end in HandleChangeInfoCache.
#include "client/CNoteClient.h"

#include "boundscheck/boundscheck.h"
#include "tessarinnote/notehostui.h"
#include "xml/XmlInputGuard.h"

#include <climits>
#include <cstring>
#include <string>
#include <utility>

int CNoteClient::ApeDataIndication(unsigned /*attachId*/, unsigned /*fromId*/, unsigned /*channel*/,
                                   short /*priority*/, unsigned char* data, unsigned length)
{
    CDataPdu pdu;
    // A length an int cannot hold is no data unit of ours: the PDU stays empty (sender 0).
    if (length <= static_cast<unsigned>(INT_MAX - 1)) pdu.SerializeFromBuf(data, static_cast<int>(length));
    MacInfoTrace2("note", "CNoteClient::ApeDataIndication, Begin");
    MacInfoTrace2("note", "CNoteClient::ApeDataIndication, FromUserId=%d,ToUserId=%d", pdu.GetUserFrom(),
                  pdu.GetUserTo());
    if (pdu.GetUserFrom() != 0) RevData(&pdu);
    MacInfoTrace2("note", "CNoteClient::ApeDataIndication, END");
    return 0;
}

int CNoteClient::RevData(CDataPdu* pdu)
{
    if (!pdu) return 1;
    if (static_cast<unsigned>(pdu->GetUserFrom()) == m_nUserId) {
        // Our own data came back: the outstanding change has arrived.
        m_bSelfChange = 0;
        return 0;
    }
    if (m_bSelfChange) return 0;
    // The captioner's text is never overwritten by others.
    if (m_nNotePadType == NOTETAKER_CLOSED_CAPTIONS && m_nUserType == NOTE_USER_WRITER) return 0;

    const char* data = pdu->GetData();
    switch (static_cast<unsigned short>(pdu->GetModifiedFlag())) {
    case 0: {
        SetNoteTextData(data ? std::string(data) : std::string());
        if (GetNoteTextLength() == 0 && m_pHostSink) {
            if (m_bSavedBefore) {
                SetFileNeedSave(true);
                m_pHostSink->SaveEnabledChanged(1);
            } else {
                SetFileNeedSave(false);
                m_pHostSink->SaveEnabledChanged(0);
            }
        }
        break;
    }
    case 1:
        if (data) {
            // The panel's text is fetched but deliberately not used: the data alone is the text.
            std::string strPanel;
            if (m_pUI) NotifyCocoaUI(m_pUI, NOTEUI_GET_TEXT_CRLF, nullptr, &strPanel, nullptr);
            const std::string strBefore;
            const std::string strAfter;
            SetNoteTextData(strBefore + data + strAfter);
        }
        break;
    default:
        break;
    }

    if (GetNoteTextLength() > 0 && m_pHostSink) m_pHostSink->NeedSaveChanged(1);
    ChangeMessage();
    MacInfoTrace2("note", "CNoteClient::RevData,End");
    return 0;
}

int CNoteClient::SharedDataReceivedEx(unsigned first, unsigned cacheId, unsigned cacheHandle, unsigned memHandle,
                                      short result, tagCacheAction action, unsigned /*putter*/,
                                      unsigned /*reserved*/, short /*reserved2*/)
{
    if (first == 0) return 0;
    ClearTextBuf();
    DecompressPdu(memHandle);
    if (cacheHandle != m_nChangeCacheHandle) return 0;
    // The unpacked text is terminated within the buffer whatever the item held.
    if (m_pTextBuf && m_nTextBufSize > 0) m_pTextBuf[m_nTextBufSize - 1] = '\0';
    return HandleChangeInfoCache(cacheId, cacheHandle, m_pTextBuf ? m_pTextBuf : "", action, result);
}

int CNoteClient::HandleChangeInfoCache(unsigned cacheId, unsigned entityId, const char* text, tagCacheAction action,
                                       short result)
{
    MacInfoTrace2("note", "CNoteClient::HandleChangeInfoCache cache_id=%d,entity_id=%d,cache_action=%d,cache_action=%d",
                  static_cast<int>(cacheId), static_cast<int>(entityId), static_cast<int>(action),
                  static_cast<int>(action));
    if (static_cast<int>(action) > CACHE_ACTION_CLOSED) return 0;
    const bool refused = result == ARM_REFUSED;
    int isNew = 0;
    switch (action) {
    case CACHE_ACTION_SUBSCRIBED:
        m_nLastCacheId = cacheId;
        SubscribeChangeNoteCache();
        return 0;
    case CACHE_ACTION_ADDED:
    case CACHE_ACTION_UPDATED:
    case CACHE_ACTION_REPLAYED:
        if (refused) {
            // A stale update: a writer whose file was loaded sends the whole document next.
            if (m_bFileLoaded) m_bNeedSendAll = true;
            SetAllCaches();
            return 0;
        }
        if (m_bFileLoaded) m_bFileLoaded = false;
        m_nLastCacheId = cacheId;
        isNew = 1;
        break;
    case CACHE_ACTION_RECORDED:
    case CACHE_ACTION_KNOWN:
        break;
    case CACHE_ACTION_CLOSED:
        if (result == 0) m_bStopSubscribe = 1;
        return 0;
    default:
        return 0;
    }

    if (cacheId == 0 || refused || m_nNotePadType < NOTETAKER_SINGLE) return 0;
    CNoteChangeInfoPDU pdu;
    // Room for the parser's padding up front: appending it would copy a megabyte-long item.
    std::string pduText;
    const size_t textLen = text ? strlen(text) : 0;
    pduText.reserve(textLen + kXmlPadding);
    pduText.assign(text ? text : "", textLen);
    // The XML tree, as large as the item, goes before the change is applied.
    const int parsed = pdu.ParseFieldsOnly(std::move(pduText)) ? 1 : 0;
    if (result == 0) {
        m_nLastCacheId = cacheId;
        HandleChangeMsg(pdu, isNew);
    }
    return parsed;
}
