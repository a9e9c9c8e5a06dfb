// CNoteClient: applying remote changes.
//
// Every change PDU of the meeting ends up once in the save record's change list; one already
// there (the echo of an own change, a repeat) is only stamped with its cache id. A new one is
// merged deliberately simply: captions append its text, the other notepads replace the whole
// text with it. Its offsets are never used for the merge, so a hostile offset cannot move
// anything. Main thread only.
#include "client/CNoteClient.h"

#include "platform/NtGlobale.h"
#include "tessarinnote/notehostui.h"

#include <string>

namespace {

// Ticks before the panel scrolls to the end after a change.
constexpr int kScrollTicks = 5;

}  // namespace

int CNoteClient::CheckChangePduEqual(CNoteChangeInfoPDU& a, CNoteChangeInfoPDU& b)
{
    // The offsets first: they are cheap and differ for almost every pair of a caption list.
    if (a.GetOffSet_INT(0) != b.GetOffSet_INT(0)) return 0;
    if (a.GetOffSet_INT(1) != b.GetOffSet_INT(1)) return 0;
    return a.GetNoteMsg() == b.GetNoteMsg() ? 1 : 0;
}

void CNoteClient::AddChangePduToSavePdu(CNoteChangeInfoPDU pdu)
{
    if (pdu.GetOffSet_INT(1) == 0 && pdu.IsNoteMsgEmpty()) return;
    std::vector<CNoteChangeInfoPDU>& changes = m_SaveInfo.m_vecChangeInfoPdu;
    // The single note taker's changes each carry the whole text: only the latest matters.
    if (m_nNotePadType == NOTETAKER_SINGLE) changes.clear();
    changes.push_back(std::move(pdu));
}

int CNoteClient::SetSavePduCacheID(CNoteChangeInfoPDU& pdu, unsigned cacheId)
{
    const int id = static_cast<int>(cacheId);
    std::vector<CNoteChangeInfoPDU>& changes = m_SaveInfo.m_vecChangeInfoPdu;
    // The newest equal entry, found without walking the whole list for every change.
    const long found = m_SaveListIndex.FindNewest(
        changes, pdu, [this](CNoteChangeInfoPDU& entry, CNoteChangeInfoPDU& change) {
            return CheckChangePduEqual(entry, change) != 0;
        });
    if (found >= 0) {
        CNoteChangeInfoPDU& entry = changes[static_cast<size_t>(found)];
        if (entry.GetCacheId_INT() != id) entry.SetCacheId(id);
        return 0;
    }
    pdu.SetCacheId(id);
    // The list keeps the change's fields; its XML tree is rebuilt whenever it is printed.
    AddChangePduToSavePdu(pdu.CopyWithoutDocument());
    return 1;
}

int CNoteClient::HandleChangeMsg(CNoteChangeInfoPDU& pdu, int apply)
{
    MacInfoTrace2("note", "HandleChangeMsg");
    if (SetSavePduCacheID(pdu, m_nLastCacheId) == 0) return 0;
    // The save list holds its own copy; the received change is not used again.
    std::string text = pdu.TakeNoteMsg();
    if (pdu.GetOffSet_INT(1) == 0 && text.empty()) return 0;

    const size_t oldLen = m_strOldMsg.size();
    size_t position = 0;
    size_t removeCount = oldLen;
    if (m_nNotePadType == NOTETAKER_CLOSED_CAPTIONS) {
        if (text.empty()) return 0;
        const int markers = pdu.GetNetInfoCount_INT();
        for (int i = 0; i < markers; ++i) {
            std::string marker;
            pdu.GetNetInfo(i, marker);
            if (marker.empty()) break;
            strReplaceRow(text, marker, std::string());
        }
        if (m_strRecvMsg.empty())
            m_strRecvMsg.swap(text);
        else
            m_strRecvMsg += text;
        position = oldLen;
        removeCount = 0;
    } else {
        m_strRecvMsg.swap(text);
    }
    // Captions keep a recorded text in m_strRecvMsg until the next applied change.
    if (apply == 0) return 0;

    if (!m_strOldMsg.empty()) m_strShowMsg.clear();
    if (m_strOldMsg.size() < position) position = m_strOldMsg.size();
    if (removeCount > m_strOldMsg.size() - position) removeCount = m_strOldMsg.size() - position;

    if (m_strOldMsg.size() - removeCount + m_strRecvMsg.size() != 0) {
        // The shared text is changed where it lies: a caption line is appended to hundreds
        // of kilobytes, which are neither copied nor moved to fresh memory.
        if (m_strOldMsg.empty())
            m_strOldMsg.swap(m_strRecvMsg);  // a late joiner's first text is not copied
        else
            m_strOldMsg.replace(position, removeCount, m_strRecvMsg);
        m_strRecvMsg.clear();
        SetNoteTextData(m_strOldMsg);
        m_strShowMsg.assign(m_strOldMsg);
        SetFileNeedSave(true);
        if (m_pHostSink) m_pHostSink->SaveEnabledChanged(1);
        if (m_nNotePadType == NOTETAKER_CLOSED_CAPTIONS && m_nUserType == NOTE_USER_WRITER && m_pUI) {
            bool publishEnabled = m_bNeedAutoSave != 0;
            NotifyCocoaUI(m_pUI, NOTEUI_ENABLE_PUBLISH, &publishEnabled, nullptr, nullptr);
        }
        if (m_nScrolltoEnd == 0)
            m_nScrolltoEnd = kScrollTicks;
        else
            MacInfoTrace2("note", "CNoteClient:HandleChangeMsg m_nScrolltoEnd=%d", m_nScrolltoEnd);
    } else {
        m_strRecvMsg.clear();
        SetNoteTextData(std::string());
        if (m_pUI) NotifyCocoaUI(m_pUI, NOTEUI_GET_TEXT_CRLF, nullptr, &m_strShowMsg, nullptr);
        m_strOldMsg = m_strShowMsg;
    }

    if (m_pHostSink) {
        m_pHostSink->RemoteChangeApplied();
        if (!m_strShowMsg.empty()) m_pHostSink->RemoteTextApplied(0);
    }
    m_bNeedAutoSave = 1;
    return static_cast<int>(oldLen) - 1;
}
