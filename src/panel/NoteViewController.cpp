// The panel controller's message table and button actions.
#include "panel/NoteViewController.h"

#include "panel/AtomicFile.h"
#include "panel/TextUnits.h"
#include "platform/LoadLocalizedString.h"
#include "platform/NtGlobale.h"
#include "tessarinnote/notedata.h"
#include "tessarinnote/notehostui.h"

namespace {

// The client passes its "bool" arguments as one byte, 0 or 1.
bool ByteFlag(const void* in) { return *static_cast<const unsigned char*>(in) != 0; }

std::string Localized(const char* key)
{
    return GetLocalizedString(key, kTessarinNoteBundleId, nullptr);
}

// The text with CR LF line ends; ConvertToWinText3's copy is ours to free.
std::string WinText(const std::string& text)
{
    char* converted = ConvertToWinText3(text.c_str());
    std::string result = converted ? converted : "";
    delete[] converted;
    return result;
}

}  // namespace

NoteViewController::NoteViewController(std::unique_ptr<INoteTextViewPort> view)
    : m_view(std::move(view))
{
}

NoteViewController::~NoteViewController() = default;

long NoteViewController::OnReceiveMessage(unsigned message, void* in, void* out, void* context)
{
    (void)context;
    MacInfoTrace2("note", "NOTE:OnReceiveMessage:message = %d", static_cast<int>(message));
    switch (message) {
    case NOTEUI_SET_USER_TYPE:
        // A toolkit port rebuilds its context menu from getUserType() when asked for it.
        if (in) m_nUserType = *static_cast<int*>(in);
        break;
    case NOTEUI_SET_NOTEPAD_TYPE:
        if (in) m_nNotePadType = *static_cast<int*>(in);
        break;
    case NOTEUI_GET_TEXT_CRLF:
        if (out) *static_cast<std::string*>(out) = WinText(m_view->Text());
        break;
    case NOTEUI_GET_TEXT_RAW:
        if (out) *static_cast<std::string*>(out) = m_view->Text();
        break;
    case NOTEUI_GET_COMMITTED_TEXT:
        if (in && out) {
            const std::string text = m_view->Text();
            *static_cast<std::string*>(out) =
                WinText(text.substr(0, Utf8PrefixBytes(text, m_nOldLength)));
            if (static_cast<long>(m_nOldLength) >= m_nMaxLen) *static_cast<int*>(in) = 1;
        }
        break;
    case NOTEUI_SET_TEXT:
        if (in) {
            m_view->SetText(static_cast<const char*>(in));
            if (m_nNotePadType == NOTETAKER_CLOSED_CAPTIONS) m_nOldLength = m_view->Length();
        }
        break;
    case NOTEUI_ENABLE_SAVE:
        if (in) m_view->SetSaveEnabled(ByteFlag(in));
        break;
    case NOTEUI_ENABLE_PUBLISH:
        if (in) m_view->SetPublishEnabled(ByteFlag(in));
        break;
    case NOTEUI_SHOW_PUBLISH:
        if (in) m_view->SetPublishVisible(ByteFlag(in));
        break;
    case NOTEUI_SET_READ_ONLY:
        if (in) m_view->SetReadOnly(ByteFlag(in));
        break;
    case NOTEUI_RUN_SAVE_DIALOG:
        if (in && out) *static_cast<int*>(out) = popUpSaveFileDlg(*static_cast<std::string*>(in));
        break;
    case NOTEUI_WRITE_FILE:
        if (in && out) {
            const bool ok = WriteFileAtomically(static_cast<const char*>(in), m_view->Text());
            *static_cast<unsigned char*>(out) = ok ? 1 : 0;
        }
        break;
    case NOTEUI_ABORT_SAVE_DIALOG:
        if (m_bSaveDialogOpen) m_view->AbortSaveDialog();
        break;
    case NOTEUI_SCROLL_TO_END:
        m_view->ScrollToEnd();
        break;
    case NOTEUI_GET_PASTE_STATUS:
        if (out) *static_cast<int*>(out) = m_view->PasteStatus();
        break;
    case NOTEUI_SET_MAX_LENGTH:
        if (in) {
            m_nMaxLen = *static_cast<int*>(in);
            m_view->SetMaxLength(m_nMaxLen > 0 ? static_cast<unsigned>(m_nMaxLen) : 0u);
        }
        break;
    case NOTEUI_IS_HIDDEN:
        if (out) *static_cast<unsigned char*>(out) = m_view->IsHidden() ? 1 : 0;
        break;
    default:
        break;
    }
    return 0;
}

int NoteViewController::popUpSaveFileDlg(std::string& path)
{
    // A detached panel has nobody to save for.
    if (!m_pSink) return NOTEUI_DIALOG_CANCELLED;
    const bool captions = m_nNotePadType == NOTETAKER_CLOSED_CAPTIONS;
    const std::string title = Localized(captions ? "Save Closed Captions As" : "Save Notes As");
    std::string defaultName = Localized(captions ? "Closed Captions.txt" : "Notes.txt");
    if (!path.empty()) defaultName = path;
    path.clear();

    std::string chosen;
    m_bSaveDialogOpen = true;
    const bool confirmed = m_view->RunSaveDialog(title, defaultName, chosen);
    m_bSaveDialogOpen = false;
    if (!confirmed) return -1;
    path = chosen;
    return 0;
}

void NoteViewController::onPublish(bool fromButton)
{
    MacInfoTrace2("note", "onPublish:(id)sender");
    if (m_nNotePadType == NOTETAKER_CLOSED_CAPTIONS && fromButton) {
        const unsigned length = m_view->Length();
        if (m_nOldLength == length) {
            // Nothing typed since the last publish.
            MacInfoTrace2("note", "onPublish:(id)sender end");
            return;
        }
        m_nOldLength = length;
    }
    if (m_pSink) {
        unsigned char bPressEnter = fromButton ? 0 : 1;
        m_pSink->HandleUIMessage(NOTEUI_SEND_EDIT, &bPressEnter, nullptr);
    }
    MacInfoTrace2("note", "onPublish:(id)sender end");
}

void NoteViewController::onSave()
{
    if (m_pSink) m_pSink->HandleUIMessage(NOTEUI_SAVE, nullptr, nullptr);
}
