// The text view's rules: menus, paste, and the path of a user's edit.
#include "panel/NoteTextView.h"

#include "panel/NoteViewController.h"
#include "panel/TextUnits.h"
#include "platform/LoadLocalizedString.h"
#include "tessarinnote/notedata.h"
#include "tessarinnote/notehostui.h"

NoteTextView::NoteTextView(INoteTextViewPort& port)
    : m_port(port),
      m_SingleNTMenu{NOTEMENU_CUT, NOTEMENU_COPY, NOTEMENU_PASTE, NOTEMENU_DELETE,
                     NOTEMENU_SELECT_ALL, NOTEMENU_SAVE, NOTEMENU_PUBLISH},
      m_AllParticpantsMenu{NOTEMENU_CUT, NOTEMENU_COPY, NOTEMENU_PASTE, NOTEMENU_DELETE,
                           NOTEMENU_SELECT_ALL, NOTEMENU_SAVE},
      // Captions are committed line by line: nothing to cut or delete there, and Return
      // publishes.
      m_CCMenu{NOTEMENU_COPY, NOTEMENU_PASTE, NOTEMENU_SELECT_ALL, NOTEMENU_SAVE}
{
}

void NoteTextView::setMenuType(int type)
{
    m_nNotePadType = type;
    switch (type) {
    case NOTETAKER_ALL_PARTICIPANTS: m_pMenu = &m_AllParticpantsMenu; break;
    case NOTETAKER_SINGLE: m_pMenu = &m_SingleNTMenu; break;
    case NOTETAKER_CLOSED_CAPTIONS: m_pMenu = &m_CCMenu; break;
    default: m_pMenu = nullptr; break;
    }
}

bool NoteTextView::HasPasteboardText(std::string* text) const
{
    std::string pasted;
    if (!m_port.PasteboardString(pasted) && !m_port.PasteboardURL(pasted)) return false;
    if (pasted.empty()) return false;
    if (text) text->swap(pasted);
    return true;
}

NoteMenu* NoteTextView::menuForEvent(bool event)
{
    if (!m_textControler || !m_pMenu) return nullptr;
    unsigned location = 0;
    unsigned length = 0;
    m_port.GetSelectedRange(location, length);
    const bool selected = length != 0;
    const bool hasText = m_port.Length() != 0;
    const int userType = m_textControler->getUserType();

    if (m_nNotePadType == NOTETAKER_ALL_PARTICIPANTS || m_nNotePadType == NOTETAKER_SINGLE) {
        m_pMenu->SetEnabled(NOTEMENU_CUT, selected);
        m_pMenu->SetEnabled(NOTEMENU_DELETE, selected);
    }
    if (m_nNotePadType == NOTETAKER_SINGLE) {
        m_pMenu->SetEnabled(NOTEMENU_PUBLISH,
                            hasText && userType != 0 && m_textControler->getPublishStatus());
    }
    bool pasteAllowed = false;
    const bool writerOnly =
        m_nNotePadType == NOTETAKER_SINGLE || m_nNotePadType == NOTETAKER_CLOSED_CAPTIONS;
    if (!(writerOnly && userType == 0)) {
        pasteAllowed = HasPasteboardText(nullptr);
        if (m_nNotePadType == NOTETAKER_CLOSED_CAPTIONS)
            pasteAllowed = pasteAllowed && location >= m_textControler->getPublishedTextLength();
    }
    m_pMenu->SetEnabled(NOTEMENU_COPY, selected);
    m_pMenu->SetEnabled(NOTEMENU_PASTE, pasteAllowed);
    m_pMenu->SetEnabled(NOTEMENU_SELECT_ALL, hasText);
    m_pMenu->SetEnabled(NOTEMENU_SAVE, m_textControler->getFileNeedSave());
    return event ? m_pMenu : nullptr;
}

void NoteTextView::OnMenuCommand(int tag)
{
    if (!m_textControler) return;
    switch (tag) {
    case NOTEMENU_CUT:
        if (m_port.IsReadOnly()) break;
        copy();
        deleteSelection();
        break;
    case NOTEMENU_COPY: copy(); break;
    case NOTEMENU_PASTE: paste(); break;
    case NOTEMENU_DELETE: deleteSelection(); break;
    case NOTEMENU_SELECT_ALL: m_port.SetSelectedRange(0, m_port.Length()); break;
    case NOTEMENU_SAVE: m_textControler->onSave(); break;
    case NOTEMENU_PUBLISH: m_textControler->onPublish(true); break;
    default: break;
    }
}

int NoteTextView::getPasteStatus() const
{
    if (!m_port.IsFirstResponder()) return 0;
    const int userType = m_textControler ? m_textControler->getUserType() : 0;
    if (userType == 0 &&
        (m_nNotePadType == NOTETAKER_CLOSED_CAPTIONS || m_nNotePadType == NOTETAKER_SINGLE))
        return 1;
    if (!HasPasteboardText(nullptr)) return 1;
    if (m_nNotePadType == NOTETAKER_CLOSED_CAPTIONS && m_textControler) {
        unsigned location = 0;
        unsigned length = 0;
        m_port.GetSelectedRange(location, length);
        if (location < m_textControler->getPublishedTextLength()) return 1;
    }
    return 2;
}

void NoteTextView::paste()
{
    if (getPasteStatus() != 2) return;
    std::string pasted;
    HasPasteboardText(&pasted);
    const long pastedLength = Utf16Length(pasted);
    const long currentLength = m_port.Length();
    unsigned location = 0;
    unsigned length = 0;
    m_port.GetSelectedRange(location, length);

    if (currentLength - static_cast<long>(length) + pastedLength <= m_nMaxLen) {
        m_port.ReplaceRange(location, length, pasted);
        if (m_textControler) m_textControler->textDidChange();
        unsigned caret = 0;
        unsigned selected = 0;
        m_port.GetSelectedRange(caret, selected);
        m_port.ScrollRangeToVisible(caret, selected);
        return;
    }
    MacInfoTrace2("note",
                  "NoteTextView,paste:[pasteString length]=%d,[currString length]=%d,"
                  "selectedRange.length=%d",
                  static_cast<int>(pastedLength), static_cast<int>(currentLength),
                  static_cast<int>(length));
    const bool captions = m_nNotePadType == NOTETAKER_CLOSED_CAPTIONS;
    const std::string title =
        NoteLocalized(captions ? "Velmar Zentor Closed Captions" : "Velmar Zentor Notes");
    const std::string text = NoteLocalized(
        captions ? "Unable to paste all of the selected text into the Closed Captions panel. "
                   "Please delete some text and try again."
                 : "Unable to paste all of the selected text into the Notes panel. Please "
                   "delete some text and try again.");
    ShowWarningWindow2(title.c_str(), text.c_str());
}

void NoteTextView::scrollToEnd()
{
    const unsigned length = m_port.Length();
    if (length == 0) return;
    m_port.ScrollRangeToVisible(length - 1, 1);
}

bool NoteTextView::EditRange(unsigned location, unsigned length, const std::string& utf8)
{
    if (m_port.IsReadOnly()) return false;
    if (m_textControler && !m_textControler->shouldChangeTextInRange(location, length, &utf8))
        return false;
    m_port.ReplaceRange(location, length, utf8);
    if (m_textControler) m_textControler->textDidChange();
    return true;
}

bool NoteTextView::insertText(const std::string& utf8)
{
    unsigned location = 0;
    unsigned length = 0;
    m_port.GetSelectedRange(location, length);
    return EditRange(location, length, utf8);
}

bool NoteTextView::deleteBackward()
{
    unsigned location = 0;
    unsigned length = 0;
    m_port.GetSelectedRange(location, length);
    if (length != 0) return EditRange(location, length, std::string());
    if (location == 0) return false;
    // The character before the caret, whole: one unit, or two for a surrogate pair.
    const std::string text = m_port.Text();
    const unsigned start = Utf16Length(text.substr(0, Utf8PrefixBytes(text, location - 1)));
    return EditRange(start, location - start, std::string());
}

bool NoteTextView::deleteForward()
{
    unsigned location = 0;
    unsigned length = 0;
    m_port.GetSelectedRange(location, length);
    if (length != 0) return EditRange(location, length, std::string());
    if (location >= m_port.Length()) return false;
    // The character after the caret, whole.
    const std::string text = m_port.Text();
    const size_t from = Utf8PrefixBytes(text, location);
    size_t to = from + 1;
    while (to < text.size() && (static_cast<unsigned char>(text[to]) & 0xC0) == 0x80) ++to;
    return EditRange(location, Utf16Length(text.substr(from, to - from)), std::string());
}

void NoteTextView::insertNewline()
{
    if (m_textControler && m_textControler->doCommandBySelector(kNoteInsertNewline)) return;
    insertText("\n");
}

void NoteTextView::copy()
{
    unsigned location = 0;
    unsigned length = 0;
    m_port.GetSelectedRange(location, length);
    if (length == 0) return;
    const std::string text = m_port.Text();
    const size_t from = Utf8PrefixBytes(text, location);
    const size_t to = Utf8PrefixBytes(text, location + length);
    m_port.SetPasteboardString(text.substr(from, to - from));
}

void NoteTextView::deleteSelection()
{
    unsigned location = 0;
    unsigned length = 0;
    m_port.GetSelectedRange(location, length);
    if (length != 0) EditRange(location, length, std::string());
}
