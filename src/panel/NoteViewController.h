// NoteViewController: the notes panel's rules, independent of the toolkit. It answers the
// client's UI messages 2000 to 2016, keeps the committed length of a caption text and the
// length limit while the user types, and forwards the user's actions to the client's sink as
// messages 2017 to 2021. Main thread only.
#pragma once

#include "panel/NoteTextView.h"
#include "panel/NoteTextViewPort.h"
#include "tessarinnote/uiinterface.h"

#include <memory>
#include <string>

// Commands a text view passes to its delegate before performing them itself.
enum ENoteTextCommand { kNoteInsertNewline };

class NoteViewController {
public:
    explicit NoteViewController(std::unique_ptr<INoteTextViewPort> view);
    ~NoteViewController();
    NoteViewController(const NoteViewController&) = delete;
    NoteViewController& operator=(const NoteViewController&) = delete;

    void setSink(INoteCommSinkForNoteUI* sink) { m_pSink = sink; }
    INoteCommSinkForNoteUI* sink() const { return m_pSink; }

    // One client message; numbers outside 2000 to 2016 do nothing. A required in or out
    // pointer that is null makes the message do nothing.
    long OnReceiveMessage(unsigned message, void* in, void* out, void* context);

    // The Publish button or menu item (fromButton) or the Return key in captions: in the
    // captions notepad the button commits everything typed, and does nothing when nothing new
    // was typed; then 2017 goes to the sink with bPressEnter = !fromButton.
    void onPublish(bool fromButton);
    // The Save button or menu item: 2018 to the sink.
    void onSave();

    // The text view's delegate. shouldChangeTextInRange decides on an edit of the units
    // [location, location + length) (replacement null: an attribute change); textDidChange
    // trims an over-long result and tells the client; doCommandBySelector sees a command
    // first and never consumes it.
    bool shouldChangeTextInRange(unsigned location, unsigned length,
                                 const std::string* replacement);
    void textDidChange();
    bool doCommandBySelector(ENoteTextCommand command);

    // Queries of the text view and the host.
    bool getPublishStatus() const { return m_view->IsPublishEnabled(); }
    int getUserType() const { return m_nUserType; }
    bool getFileNeedSave() const;
    int notePadType() const { return m_nNotePadType; }
    unsigned getPublishedTextLength() const { return m_nOldLength; }

    INoteTextViewPort& View() { return *m_view; }
    NoteTextView& TextView() { return m_textView; }

private:
    // Runs the save dialog with path (if not empty) as the default name; path becomes the
    // chosen file. 0 when confirmed, -1 when cancelled, 3 without a sink.
    int popUpSaveFileDlg(std::string& path);

    std::unique_ptr<INoteTextViewPort> m_view;
    NoteTextView m_textView;
    INoteCommSinkForNoteUI* m_pSink = nullptr;
    int m_nNotePadType = 0;
    int m_nUserType = 0;
    unsigned m_nOldLength = 0;
    // What the last accepted edit replaced: the range when the selection was replaced, else
    // the replacement text (empty: none).
    struct SRange {
        unsigned location;
        unsigned length;
    } m_SelelectedRange = {0, 0};
    std::string m_replacementString;
    // Memory for the texts the client sets (message 2005), traded with the view's.
    std::string m_strIncoming;
    int m_nMaxLen = 0;
    bool m_bSaveDialogOpen = false;
    // Cleared on destruction: a save dialog's nested loop may release the panel under us.
    std::shared_ptr<bool> m_pAlive = std::make_shared<bool>(true);
};
