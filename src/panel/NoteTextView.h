// NoteTextView: the rules of the panel's text view, independent of the toolkit. It carries the
// context menu of the notepad type and enables its items by role, selection and pasteboard,
// pastes only what fits the maximum length (and not into committed captions), and routes the
// user's edits through the controller's delegate checks. Main thread only.
#pragma once

#include "panel/NoteMenu.h"
#include "panel/NoteTextViewPort.h"

#include <string>

class NoteViewController;

class NoteTextView {
public:
    explicit NoteTextView(INoteTextViewPort& port);

    void setController(NoteViewController* controller) { m_textControler = controller; }
    NoteViewController* controller() const { return m_textControler; }
    void setMaxLen(int maxLen) { m_nMaxLen = maxLen; }
    int maxLen() const { return m_nMaxLen; }
    // 1 the all-participants menu, 2 the single note taker's, 3 the captions'; any other
    // value leaves the view without a menu.
    void setMenuType(int type);
    int menuType() const { return m_nNotePadType; }
    // Refreshes the menu's items. With an event (a right click) the menu to show; without one
    // (a refresh after a role change) and without a controller or menu, null.
    NoteMenu* menuForEvent(bool event);
    // A menu item's action; nothing without a controller or for a tag outside 10 to 16.
    void OnMenuCommand(int tag);

    // 0 not the first responder; 1 nothing may or can be pasted; 2 paste allowed.
    int getPasteStatus() const;
    // Pastes the pasteboard's text over the selection if it fits; an over-long paste changes
    // nothing and shows the host's warning window.
    void paste();
    // Scrolls the last character into view; nothing for an empty text.
    void scrollToEnd();

    // What typing does: the controller may refuse (false), else the range is replaced and the
    // controller told. A read-only text takes no edit.
    bool EditRange(unsigned location, unsigned length, const std::string& utf8);
    bool insertText(const std::string& utf8);
    bool deleteBackward();
    // The Delete key: the selection, or the character after the caret.
    bool deleteForward();
    // Return: the controller sees the command first, then the line end is typed.
    void insertNewline();

private:
    bool HasPasteboardText(std::string* text) const;
    void copy();
    void deleteSelection();

    INoteTextViewPort& m_port;
    NoteViewController* m_textControler = nullptr;
    int m_nNotePadType = 0;
    int m_nMaxLen = 0;
    NoteMenu m_SingleNTMenu;
    NoteMenu m_AllParticpantsMenu;
    NoteMenu m_CCMenu;
    NoteMenu* m_pMenu = nullptr;
};
