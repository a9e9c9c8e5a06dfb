// CNoteClient: the auto-save file and the need-save state.
//
// The auto-save file is m_SaveInfo written as XML; it is reloaded when the client enrols again
// in the same meeting. A file on disk can hold anything: the record's guarded LoadFile refuses
// oversized or deeply nested documents, and a document that is not a save record is not used.
//
// The save record's "writing" flag of the original design is not kept: nothing reads it, and
// the write below runs to its end on the main loop before anything else can look. The file is
// written as the panel writes its files (AtomicFile.h): a crash or a full disk at any moment
// leaves the previous auto-save whole, so a rejoin never loses the notes to a broken file.
#include "client/CNoteClient.h"

#include "boundscheck/boundscheck.h"
#include "platform/AtomicFile.h"
#include "platform/NtGlobale.h"
#include "tessarinnote/uiinterface.h"

#include <algorithm>
#include <new>
#include <string>

namespace {

// The panel's whole text with CR LF line ends (message 2002); out is left alone without one.
void AskPanelText(void* panel, std::string& out)
{
    if (panel) NotifyCocoaUI(panel, NOTEUI_GET_TEXT_CRLF, nullptr, &out, nullptr);
}

// A new zero-filled array of size bytes holding text, for m_aNetInfo; null when memory runs
// out. REQUIRES: size > text.size().
char* NewNetInfoEntry(const std::string& text, size_t size)
{
    char* entry = new (std::nothrow) char[size]();
    if (entry && !text.empty()) memcpy_s(entry, size, text.data(), text.size());
    return entry;
}

}  // namespace

void CNoteClient::AutoSaveXMLFile()
{
    if (!m_bNeedAutoSave || m_strAutoSavePath.empty()) return;
    AskPanelText(m_pUI, m_strShowMsg);

    m_SaveInfo.Clear();
    m_SaveInfo.ResetNetInfo();
    for (const char* entry : m_aNetInfo) {
        if (!entry || entry[0] == '\0') break;
        m_SaveInfo.AddNetInfo(entry);
    }
    m_SaveInfo.SetNoteShowMsg(m_strShowMsg);
    m_SaveInfo.SetPublishMsg(m_strPublishMsg);
    m_SaveInfo.SetOldMsg(m_strOldMsg);
    m_SaveInfo.SetChannalID(static_cast<int>(m_nResourceId));
    m_SaveInfo.SetUserType(static_cast<int>(m_nUserType));

    // A failed write is not reported; the next loss writes again if something changes.
    m_SaveInfo.GenerateXMLPDU();
    WriteFileAtomically(m_strAutoSavePath, [this](FILE* stream) { return m_SaveInfo.SaveFile(stream); });
    m_bNeedAutoSave = 0;
}

bool CNoteClient::LoadXMLFile(CNoteSaveInfoPDU& record, const char* path)
{
    if (!path) return false;
    record.Clear();
    record.m_vecChangeInfoPdu.clear();
    if (!record.LoadFile(path)) return false;

    ResetNetInfo();
    // Well-formed XML of another kind (or version) is no save record: treated as malformed.
    if (!record.ParseXMLPDU()) return false;
    // The fields are read: the file's tree goes (the auto-save builds its own).
    record.Clear();

    // A reader's copy of a single note taker's notes comes from the meeting, not the file.
    if (m_nUserType != NOTE_USER_WRITER && m_nNotePadType == NOTETAKER_SINGLE) {
        record.ClearPdu();
        return true;
    }

    const std::string show = record.GetNoteShowMsg();
    m_strShowMsg = show;
    m_strPublishMsg = m_nUserType == NOTE_USER_WRITER ? record.GetPublishMsg() : show;
    m_strOldMsg = record.GetOldMsg();
    SetNoteTextData(m_strOldMsg);

    const int count = record.GetNetInfoCount_INT();
    for (int i = 0; i < count; ++i) {
        std::string info;
        record.GetNetInfo(i, info);
        strReplaceRow(info, "\n\n", "\r\n");
        char* entry = NewNetInfoEntry(info, info.size() + 2);
        if (entry) m_aNetInfo.push_back(entry);
    }

    // A reader drops the changes that never reached the cache; a writer sends them again.
    // In one pass: erasing them one by one is quadratic in a file of many changes.
    if (m_nUserType == NOTE_USER_READER) {
        std::vector<CNoteChangeInfoPDU>& changes = record.m_vecChangeInfoPdu;
        changes.erase(std::remove_if(changes.begin(), changes.end(),
                                     [](const CNoteChangeInfoPDU& c) { return c.GetCacheId_INT() == 0; }),
                      changes.end());
    }

    m_strShowMsg = show;
    SetNoteTextData(m_strShowMsg);
    m_strOldMsg = m_strShowMsg;
    m_bNeedAutoSave = 1;

    if (!m_strShowMsg.empty()) {
        SetFileNeedSave(true);
        if (m_pHostSink) m_pHostSink->SaveEnabledChanged(1);
        if (m_nNotePadType == NOTETAKER_CLOSED_CAPTIONS && m_nUserType == NOTE_USER_WRITER && m_pUI) {
            bool enable = m_bNeedAutoSave != 0;
            NotifyCocoaUI(m_pUI, NOTEUI_ENABLE_PUBLISH, &enable, nullptr, nullptr);
        }
    }
    return true;
}

void CNoteClient::SetFileNeedSave(bool needSave)
{
    const unsigned char flag = needSave ? 1 : 0;
    if (m_bFileNeedSave == flag) return;
    m_bFileNeedSave = flag;
    if (m_pHostSink) m_pHostSink->NeedSaveChanged(static_cast<signed char>(flag));
    if (m_pUI) {
        bool enable = m_bFileNeedSave != 0;
        NotifyCocoaUI(m_pUI, NOTEUI_ENABLE_SAVE, &enable, nullptr, nullptr);
    }
}

unsigned CNoteClient::GetNoteTextLength()
{
    if (!m_pUI) return 0;
    // Measured in a buffer kept between calls; the panel replaces what it holds.
    m_strMeasureText.clear();
    AskPanelText(m_pUI, m_strMeasureText);
    return static_cast<unsigned>(m_strMeasureText.size());
}
