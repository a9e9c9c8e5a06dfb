// CNoteClient: local edit detection and change sending.
//
// An edit is one common-prefix / common-suffix difference between the text all participants
// share (m_strOldMsg) and the panel's text (m_strShowMsg), sent as one change PDU through the
// change cache and recorded in the save record at once. Main thread only.
#include "client/CNoteClient.h"

#include "platform/NtGlobale.h"
#include "tessarinnote/notehostui.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace {

// Cache-action flags and put arguments of a change.
constexpr unsigned kFlagsPlain = CACHE_FLAG_BASE;
constexpr unsigned kFlagsRecorded = CACHE_FLAG_BASE | CACHE_FLAG_RECORD_A | CACHE_FLAG_RECORD_B;
constexpr unsigned kPutCount = 2;
// Bytes compared at once while looking for the first and the last difference of an edit.
constexpr size_t kCompareBlock = 256;

// Recording states in which a note change belongs to the meeting recording.
bool RecordingWantsNotes(unsigned long nbrStatus)
{
    return nbrStatus == 0 || nbrStatus == 3;
}

}  // namespace

void CNoteClient::SetNoteTextData(const std::string& text)
{
    if (!text.empty() && m_bHasContent == 0) m_bHasContent = 1;
    // Converted into the previous text's memory (m_strPanelText).
    if (text.empty())
        m_strPanelText.clear();
    else
        ConvertToMacText(text, m_strPanelText);
    if (m_pUI)
        NotifyCocoaUI(m_pUI, NOTEUI_SET_TEXT, const_cast<char*>(m_strPanelText.c_str()), nullptr, nullptr);
    // Memory for a text longer than any notepad writes (3 bytes a character) is not kept.
    if (m_strPanelText.size() > 3 * size_t(kCaptionsMaxTextLen)) std::string().swap(m_strPanelText);
    m_bTextChanged = 1;
}

unsigned char CNoteClient::ChangeMessage()
{
    const int hasText = GetNoteTextLength() > 0 ? 1 : 0;
    if (hasText == m_bContentNotified) return static_cast<unsigned char>(hasText);
    m_bContentNotified = hasText;
    if (m_pHostSink) m_pHostSink->HasContentChanged(hasText);
    return static_cast<unsigned char>(hasText);
}

int CNoteClient::CompareMsg(std::string& newText, int& removedLen)
{
    size_t start = 0;
    size_t keep = 0;
    const int offset = MeasureEdit(newText.size(), removedLen, start, keep);
    // In place: the inserted part is what lies between the prefix and the suffix.
    newText.erase(0, start);
    newText.resize(keep);
    return offset;
}

int CNoteClient::MeasureEdit(size_t newLen, int& removedLen, size_t& start, size_t& keep)
{
    const std::string& oldMsg = m_strOldMsg;
    const std::string& showMsg = m_strShowMsg;
    const size_t oldLen = oldMsg.size();
    // The panel's whole text may be longer than the text compared (a committed caption with
    // uncommitted text after it): bytes of the show text past its end never match.
    const size_t curLen = GetNoteTextLength();
    const size_t showLen = showMsg.size();
    start = 0;
    keep = newLen;
    if (oldLen == 0) {
        removedLen = 0;
        return 0;
    }
    if (curLen == 0) {
        removedLen = static_cast<int>(oldLen);
        return 0;
    }
    const size_t n = std::min(curLen, oldLen);
    const size_t prefixEnd = std::min(n, showLen);
    const char* const oldBytes = oldMsg.data();
    const char* const showBytes = showMsg.data();
    // Whole blocks first (memcmp finds the first differing block), then bytes within it.
    size_t prefix = 0;
    while (prefix + kCompareBlock <= prefixEnd &&
           std::memcmp(oldBytes + prefix, showBytes + prefix, kCompareBlock) == 0)
        prefix += kCompareBlock;
    while (prefix < prefixEnd && oldBytes[prefix] == showBytes[prefix]) ++prefix;
    // The prefix is measured first, so a repeated character is read as part of the prefix.
    // Show bytes at curLen and beyond do not exist: a longer curLen matches no trailing byte.
    size_t suffix = 0;
    if (prefix != n && curLen <= showLen) {
        const size_t limit = n - prefix;
        const char* const oldEnd = oldBytes + oldLen;
        const char* const showEnd = showBytes + curLen;
        while (suffix + kCompareBlock <= limit &&
               std::memcmp(oldEnd - suffix - kCompareBlock, showEnd - suffix - kCompareBlock, kCompareBlock) == 0)
            suffix += kCompareBlock;
        while (suffix < limit && *(oldEnd - 1 - suffix) == *(showEnd - 1 - suffix)) ++suffix;
    }
    start = std::min(prefix, newLen);
    keep = newLen - start > suffix ? newLen - start - suffix : 0;
    removedLen = static_cast<int>(oldLen - prefix - suffix);
    return static_cast<int>(prefix);
}

void CNoteClient::SendChangeInfoPDU(int bPressEnter)
{
    MacInfoTrace2("note", "CNoteClient::SendChangeInfoPDU(BOOL bPressEnter)");
    const size_t oldLen = m_strOldMsg.size();
    int full = 0;
    if (m_pUI) {
        if (bPressEnter)
            NotifyCocoaUI(m_pUI, NOTEUI_GET_COMMITTED_TEXT, &full, &m_strShowMsg, nullptr);
        else
            NotifyCocoaUI(m_pUI, NOTEUI_GET_TEXT_CRLF, nullptr, &m_strShowMsg, nullptr);
    }
    if (m_strShowMsg.empty() && m_strOldMsg.empty() && !bPressEnter) return;

    // The text to share next is built in the memory the shared text before the last send had
    // (a caption text runs to hundreds of kilobytes); the edit is the part of it between the
    // common prefix and suffix, as CompareMsg would leave it.
    std::string& nextOld = m_strNextOld;
    nextOld.assign(m_strShowMsg);
    if (bPressEnter && full == 0) nextOld += "\r\n";
    const size_t curLen = nextOld.size();
    int removed = 0;
    size_t start = 0;
    size_t keep = 0;
    const int offset = MeasureEdit(nextOld.size(), removed, start, keep);
    // The single note taker always sends the complete text; the offsets stay as found.
    const std::string newText =
        m_nNotePadType == NOTETAKER_SINGLE ? m_strShowMsg : nextOld.substr(start, keep);

    const size_t at = static_cast<size_t>(offset);
    if (at > oldLen || (at == oldLen && at == curLen)) return;

    CNoteChangeInfoPDU pdu;
    for (const char* info : m_aNetInfo) {
        if (!info || !*info) break;
        pdu.AddNetInfo(info);
    }
    pdu.SetNoteMsg(newText);
    pdu.SetOffSet(offset, 0);
    pdu.SetOffSet(removed, 1);
    pdu.SetUniqueId(static_cast<int>(m_nUserId));
    pdu.GenerateXMLPDU();
    const std::string xml = pdu.PrintCompact();

    const unsigned handle = CompressPdu(xml.c_str());
    SendAllBlockPdu(0);
    const bool captions = m_nNotePadType == NOTETAKER_CLOSED_CAPTIONS;
    const unsigned flags = RecordingWantsNotes(m_nNBRStatus) && !captions ? kFlagsRecorded : kFlagsPlain;
    const unsigned previousId = captions ? 0 : m_nLastCacheId;
    const unsigned priority = captions ? CACHE_MODE_APPEND : CACHE_MODE_REPLACE_NEWEST;
    if (m_pArmService)
        m_pArmService->ArmService_PutCacheItem(m_nApeUserId, m_nChangeCacheHandle, 0, previousId,
                                               priority, flags, handle, 0, kPutCount);

    // The own change enters the save record now, without a cache id; its echo stamps it.
    pdu.Clear();
    AddChangePduToSavePdu(pdu);

    m_bNeedAutoSave = 1;
    ResetNetInfo();
    if (m_pArmService) m_pArmService->ArmService_FreeMemHandle(handle);
    m_strOldMsg.swap(m_strNextOld);
    MacInfoTrace2("note", "CNoteClient::SendChangeInfoPDU(BOOL bPressEnter) end");
}
