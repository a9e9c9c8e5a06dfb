// CNoteClient: save, save-as, export and publish. The client picks and checks the path; the
// panel writes its own text (message 2011), so the file holds the panel's line ends.
#include "client/CNoteClient.h"

#include "boundscheck/boundscheck.h"
#include "client/NoteClientPanel.h"
#include "platform/CheckPrivileges.h"
#include "platform/LoadLocalizedString.h"
#include "tessarinnote/notehostui.h"

namespace {

enum : int { kTelemetrySaveStarted = 2001, kTelemetryFileWritten = 2002 };
const signed char kReadWrite = 3;

// Allowed, or the file does not exist yet and may be created.
bool MayWrite(const std::string& path)
{
    const unsigned short status =
        static_cast<unsigned short>(CheckPrivileges(path.c_str(), kReadWrite));
    return status == static_cast<unsigned short>(kNoteNoErr) ||
           status == static_cast<unsigned short>(kNoteFnfErr);
}

// Asks the panel for a file name; path becomes the choice. The dialog's result; 0 without a
// panel, which leaves path empty.
int RunSaveDialog(void* panel, std::string& path)
{
    int result = 0;
    if (panel) notepanel::Send(panel, NOTEUI_RUN_SAVE_DIALOG, &path, &result);
    return result;
}

// Writes the panel text to path, an accepted file, and makes it the saved file.
void WriteNoteFile(CNoteClient& client, const std::string& path)
{
    client.m_strSaveFileName = path;
    if (client.m_pUI) {
        // Whether the panel managed to write is not read back: the state is cleared anyway.
        unsigned char written = 0;
        notepanel::Send(client.m_pUI, NOTEUI_WRITE_FILE, const_cast<char*>(path.c_str()),
                        &written);
    }
    client.SetFileNeedSave(false);
    client.SetLastFileSaveContent();
}

}  // namespace

int CNoteClient::GetPasteStatus()
{
    int status = 0;
    if (m_pUI) notepanel::Send(m_pUI, NOTEUI_GET_PASTE_STATUS, nullptr, &status);
    return status;
}

int CNoteClient::GetPublishStatus()
{
    if (m_nUserType != NOTE_USER_WRITER) return 0;
    return notepanel::Text(m_pUI, NOTEUI_GET_TEXT_CRLF) != m_strOldMsg ? 1 : 0;
}

void CNoteClient::ToPublish()
{
    unsigned char bPressEnter = 0;
    HandleUIMessage(NOTEUI_SEND_EDIT, &bPressEnter, nullptr);
}

void CNoteClient::OnSave()
{
    // A refused remembered file is forgotten and the user asked once for another: at most
    // two rounds.
    for (;;) {
        SendTelemetryActionByID(kTelemetrySaveStarted);
        std::string path = m_strSaveFileName;
        if (path.empty()) {
            if (RunSaveDialog(m_pUI, path) == NOTEUI_DIALOG_CANCELLED) return;
            if (path.empty()) return;
        }
        if (MayWrite(path)) {
            SendTelemetryActionByID(kTelemetryFileWritten);
            WriteNoteFile(*this, path);
            return;
        }
        if (m_strSaveFileName.empty()) return;
        m_strSaveFileName.clear();
    }
}

int CNoteClient::OnSaveAs()
{
    SendTelemetryActionByID(kTelemetrySaveStarted);
    std::string path;
    const int result = RunSaveDialog(m_pUI, path);
    if (result == NOTEUI_DIALOG_CANCELLED) return -1;
    if (path.empty() || !MayWrite(path)) return result;
    SendTelemetryActionByID(kTelemetryFileWritten);
    WriteNoteFile(*this, path);
    return result;
}

void CNoteClient::SetLastFileSaveContent()
{
    m_strLastFileSaveContent = notepanel::Text(m_pUI, NOTEUI_GET_TEXT_RAW);
    m_bModifiedSinceFileSave = 0;
    m_bNoFileSaveYet = 0;
}

int CNoteClient::SetAutoSaveFilePath(const char* path)
{
    if (!path || strnlen_s(path, 0x7FFFFFFF) == 0) return 0;
    m_strAutoSavePath = path;
    return 1;
}

void CNoteClient::WriteNoteFileToFolder(const char* folder)
{
    if (!folder) return;
    std::string path = folder;
    if (path.empty() || path.back() != '/') path += '/';
    const char* name =
        m_nNotePadType == NOTETAKER_CLOSED_CAPTIONS ? "Closed Captions.txt" : "Notes.txt";
    path += NoteLocalized(name);
    if (MayWrite(path)) WriteNoteFile(*this, path);
}
