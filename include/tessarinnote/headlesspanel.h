// A headless panel as a person at it sees and uses it. A host without a window (a command-line
// participant, a test) gets one for each instance initialised with a null parent view, through
// the callback it registers with NoteHostUI_SetHeadlessPanelCallback (notehostui.h), and acts
// on it as a user would on the real panel: every action passes the panel's rules (read-only
// text, length limits, committed captions, paste status, the context menu's enabled items).
// Lengths and positions count UTF-16 units. Main thread only. The panel lives until its
// instance is deleted; the callback says so before it goes.
#pragma once

// Context menu items, one numbering for the three menus of the notepad types.
enum ENoteMenuTag : int {
    NOTEMENU_CUT = 10,
    NOTEMENU_COPY = 11,
    NOTEMENU_PASTE = 12,
    NOTEMENU_DELETE = 13,
    NOTEMENU_SELECT_ALL = 14,
    NOTEMENU_SAVE = 15,
    NOTEMENU_PUBLISH = 16
};

class INoteHeadlessPanel {
public:
    // What the panel shows; the text (UTF-8) stays valid until it next changes.
    virtual const char* ShownText() const = 0;
    virtual unsigned Length() const = 0;
    virtual void GetSelection(unsigned* location, unsigned* length) const = 0;
    virtual bool IsReadOnly() const = 0;
    virtual bool IsSaveEnabled() const = 0;
    virtual bool IsPublishEnabled() const = 0;
    virtual bool IsPublishVisible() const = 0;
    // How often the panel beeped at a refused edit.
    virtual int BeepCount() const = 0;

    // What a person does. Focus makes the text view the one that receives typing and pasting.
    virtual void Focus(bool focused) = 0;
    virtual void Select(unsigned location, unsigned length) = 0;
    // Types text over the selection; false when the panel refused it.
    virtual bool Type(const char* utf8) = 0;
    virtual bool DeleteBackward() = 0;
    // Return: in captions it publishes the line, then the line end is typed.
    virtual void PressReturn() = 0;
    // The paste key: pastes the clipboard when the paste status allows it.
    virtual void PasteKey() = 0;
    virtual void ClickPublish() = 0;
    virtual void ClickSave() = 0;
    // Opens the context menu: -1 when it has no such item (or there is no menu), else whether
    // the item is enabled now.
    virtual int MenuItemState(int tag) = 0;
    // Opens the context menu and chooses the item; false when it is missing or disabled.
    virtual bool ChooseMenuItem(int tag) = 0;

protected:
    ~INoteHeadlessPanel() = default;
};
