// The panel controller's message table and button actions.
#include "panel/NoteViewController.h"

#include "panel/TextUnits.h"
#include "platform/AtomicFile.h"
#include "platform/LoadLocalizedString.h"
#include "platform/NtGlobale.h"
#include "tessarinnote/notedata.h"
#include "tessarinnote/notehostui.h"

namespace {

// The client passes its "bool" arguments as one byte, 0 or 1.
bool ByteFlag(const void* in) { return *static_cast<const unsigned char*>(in) != 0; }

// The text with CR LF line ends (every lone CR or LF becomes CR LF, as ConvertToWinText3 does),
// written into out: the caller's string keeps its memory, and a long text gets no fresh pages.
void WinTextInto(const std::string& text, std::string& out)
{
    ConvertToWinText2(text, out);
}

}  // namespace

NoteViewController::NoteViewController(std::unique_ptr<INoteTextViewPort> view)
    : m_view(std::move(view)), m_textView(*m_view)
{
    m_textView.setController(this);
}

NoteViewController::~NoteViewController()
{
    *m_pAlive = false;
}

long NoteViewController::OnReceiveMessage(unsigned message, void* in, void* out, void* context)
{
    (void)context;
    MacInfoTrace2("note", "NOTE:OnReceiveMessage:message = %d", static_cast<int>(message));
    switch (message) {
    case NOTEUI_SET_USER_TYPE:
        if (in && m_nUserType != *static_cast<int*>(in)) {
            m_nUserType = *static_cast<int*>(in);
            m_textView.menuForEvent(false);
        }
        break;
    case NOTEUI_SET_NOTEPAD_TYPE:
        if (in) {
            m_nNotePadType = *static_cast<int*>(in);
            m_textView.setMenuType(m_nNotePadType);
        }
        break;
    case NOTEUI_GET_TEXT_CRLF:
        if (out) WinTextInto(m_view->Text(), *static_cast<std::string*>(out));
        break;
    case NOTEUI_GET_TEXT_RAW:
        if (out) *static_cast<std::string*>(out) = m_view->Text();
        break;
    case NOTEUI_GET_COMMITTED_TEXT:
        if (in && out) {
            const std::string& text = m_view->Text();
            const size_t committed = Utf8PrefixBytes(text, m_nOldLength);
            std::string& dest = *static_cast<std::string*>(out);
            if (committed == text.size())
                WinTextInto(text, dest);
            else
                WinTextInto(text.substr(0, committed), dest);
            if (static_cast<long>(m_nOldLength) >= m_nMaxLen) *static_cast<int*>(in) = 1;
        }
        break;
    case NOTEUI_SET_TEXT:
        if (in) {
            // The view may trade its previous text's memory for this one: no fresh pages.
            m_strIncoming.assign(static_cast<const char*>(in));
            m_view->TakeText(m_strIncoming);
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
        m_view->SetSelectedRange(m_view->Length(), 0);
        m_textView.scrollToEnd();
        break;
    case NOTEUI_GET_PASTE_STATUS:
        if (out) *static_cast<int*>(out) = m_textView.getPasteStatus();
        break;
    case NOTEUI_SET_MAX_LENGTH:
        if (in) {
            m_nMaxLen = *static_cast<int*>(in);
            m_textView.setMaxLen(m_nMaxLen);
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
    const bool captions = m_nNotePadType == NOTETAKER_CLOSED_CAPTIONS;
    const std::string title = NoteLocalized(captions ? "Save Closed Captions As" : "Save Notes As");
    std::string defaultName = NoteLocalized(captions ? "Closed Captions.txt" : "Notes.txt");
    if (!path.empty()) defaultName = path;
    path.clear();

    std::string chosen;
    m_bSaveDialogOpen = true;
    const std::shared_ptr<bool> alive = m_pAlive;
    const INoteTextViewPort::ESaveDialogResult result =
        m_view->RunSaveDialog(title, defaultName, chosen);
    // Released while the dialog ran (the instance went away): nothing of ours is left to touch.
    if (!*alive) return NOTEUI_DIALOG_CANCELLED;
    m_bSaveDialogOpen = false;
    // A panel detached meanwhile (or before) has nobody to save for.
    if (!m_pSink) return NOTEUI_DIALOG_CANCELLED;
    switch (result) {
    case INoteTextViewPort::kSaveConfirmed: path = chosen; return 0;
    case INoteTextViewPort::kSaveCancelled: return -1;
    default: return NOTEUI_DIALOG_CANCELLED;  // aborted: the client gives up saving
    }
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

bool NoteViewController::getFileNeedSave() const
{
    unsigned char needSave = 0;
    if (m_pSink) m_pSink->HandleUIMessage(NOTEUI_QUERY_NEED_SAVE, nullptr, &needSave);
    return needSave != 0;
}

bool NoteViewController::shouldChangeTextInRange(unsigned location, unsigned length,
                                                 const std::string* replacement)
{
    if (!replacement) return true;
    const unsigned textLength = m_view->Length();
    if (m_nNotePadType == NOTETAKER_CLOSED_CAPTIONS) {
        if (location < m_nOldLength) {
            // Committed captions are already on every reader's screen.
            m_view->Beep();
            return false;
        }
        // A line end typed at the end is committed at once.
        if (*replacement == "\n" && location >= textLength &&
            static_cast<long>(m_nOldLength) < m_nMaxLen)
            ++m_nOldLength;
    }
    if (!replacement->empty()) {
        if (m_nMaxLen <= static_cast<long>(textLength) - static_cast<long>(length)) {
            m_view->Beep();
            return false;
        }
        unsigned selectionLocation = 0;
        unsigned selectionLength = 0;
        m_view->GetSelectedRange(selectionLocation, selectionLength);
        if (selectionLength == length)
            m_SelelectedRange = {selectionLocation, length};
        else
            m_replacementString = *replacement;
    }
    return true;
}

void NoteViewController::textDidChange()
{
    const long length = m_view->Length();
    const long replaced = static_cast<long>(Utf16Length(m_replacementString));
    if (length > m_nMaxLen) {
        std::string text = m_view->Text();
        if (replaced > 0 && length - replaced <= m_nMaxLen) {
            // Keep as much of the replacement as fits, and everything after it.
            const unsigned keep = static_cast<unsigned>(replaced - length + m_nMaxLen);
            const unsigned location = m_SelelectedRange.location;
            std::string rebuilt = text.substr(0, Utf8PrefixBytes(text, location));
            rebuilt.append(m_replacementString, 0, Utf8PrefixBytes(m_replacementString, keep));
            const size_t after = Utf8PrefixBytes(text, location + static_cast<unsigned>(replaced));
            rebuilt.append(text, after, std::string::npos);
            text.swap(rebuilt);
            m_replacementString.clear();
        }
        text.resize(Utf8PrefixBytes(text, static_cast<unsigned>(m_nMaxLen < 0 ? 0 : m_nMaxLen)));
        m_view->SetText(text);
    }
    if (m_pSink) m_pSink->HandleUIMessage(NOTEUI_TEXT_CHANGED, nullptr, nullptr);
}

bool NoteViewController::doCommandBySelector(ENoteTextCommand command)
{
    if (m_nNotePadType != NOTETAKER_CLOSED_CAPTIONS || command != kNoteInsertNewline)
        return false;
    unsigned location = 0;
    unsigned length = 0;
    m_view->GetSelectedRange(location, length);
    if (m_nOldLength <= location && static_cast<long>(m_nOldLength) < m_nMaxLen) {
        m_nOldLength = location;
        onPublish(false);
    }
    return false;
}
