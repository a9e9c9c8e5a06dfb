// NoteViewController: the notes panel's rules, independent of the toolkit. It answers the
// client's UI messages 2000 to 2016, keeps the committed length of a caption text and the
// length limit, and forwards the user's actions to the client's sink as messages 2017 to 2021.
// Main thread only.
#pragma once

#include "panel/NoteTextViewPort.h"
#include "tessarinnote/uiinterface.h"

#include <memory>
#include <string>

class NoteViewController {
public:
    explicit NoteViewController(std::unique_ptr<INoteTextViewPort> view);
    ~NoteViewController();

    void setSink(INoteCommSinkForNoteUI* sink) { m_pSink = sink; }
    INoteCommSinkForNoteUI* sink() const { return m_pSink; }

    // One client message; numbers outside 2000 to 2016 do nothing. A required in or out
    // pointer that is null makes the message do nothing.
    long OnReceiveMessage(unsigned message, void* in, void* out, void* context);

    // The Publish button (fromButton) or the Return key in captions: in the captions notepad
    // the button commits everything typed, and does nothing when nothing new was typed;
    // then 2017 goes to the sink with bPressEnter = !fromButton.
    void onPublish(bool fromButton);
    // The Save button: 2018 to the sink.
    void onSave();

    INoteTextViewPort& View() { return *m_view; }
    int notePadType() const { return m_nNotePadType; }
    int getUserType() const { return m_nUserType; }
    unsigned getPublishedTextLength() const { return m_nOldLength; }

private:
    // Runs the save dialog with path (if not empty) as the default name; path becomes the
    // chosen file. 0 when confirmed, -1 when cancelled, 3 without a sink.
    int popUpSaveFileDlg(std::string& path);

    std::unique_ptr<INoteTextViewPort> m_view;
    INoteCommSinkForNoteUI* m_pSink = nullptr;
    int m_nNotePadType = 0;
    int m_nUserType = 0;
    unsigned m_nOldLength = 0;
    int m_nMaxLen = 0;
    bool m_bSaveDialogOpen = false;
};
