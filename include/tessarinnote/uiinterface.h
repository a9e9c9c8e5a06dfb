// The bridge between an instance and its notes panel, exported so that a host can reach it.
// The panel handle is the plug-in's panel controller; every function returns 3 for a null
// panel handle.
#pragma once

#include "tessarinnote/noteinterface.h"

// The numbered messages between an instance and its panel ("bool" is one byte, 0 or 1).
enum ENoteUIMessage : unsigned int {
    // instance to panel (NotifyCocoaUI: in, out)
    NOTEUI_SET_USER_TYPE = 2000,       // in int*: rebuild the context menu when it changed
    NOTEUI_SET_NOTEPAD_TYPE = 2001,    // in int*
    NOTEUI_GET_TEXT_CRLF = 2002,       // out std::string*: the whole text with CR LF line ends
    NOTEUI_GET_TEXT_RAW = 2003,        // out std::string*: the whole text unconverted
    NOTEUI_GET_COMMITTED_TEXT = 2004,  // in int* (set to 1 at the maximum), out std::string*
    NOTEUI_SET_TEXT = 2005,            // in const char*: replace the text (UTF-8)
    NOTEUI_ENABLE_SAVE = 2006,         // in bool*
    NOTEUI_ENABLE_PUBLISH = 2007,      // in bool*
    NOTEUI_SHOW_PUBLISH = 2008,        // in bool*
    NOTEUI_SET_READ_ONLY = 2009,       // in bool*
    NOTEUI_RUN_SAVE_DIALOG = 2010,     // in std::string* (the chosen path), out int*: 0 chosen,
                                       // -1 cancelled by the user, 3 aborted or no sink
    NOTEUI_WRITE_FILE = 2011,          // in const char* path, out bool* success
    NOTEUI_ABORT_SAVE_DIALOG = 2012,
    NOTEUI_SCROLL_TO_END = 2013,
    NOTEUI_GET_PASTE_STATUS = 2014,    // out int*
    NOTEUI_SET_MAX_LENGTH = 2015,      // in int*
    NOTEUI_IS_HIDDEN = 2016,           // out bool*
    // panel to instance (HandleUIMessage: in, out)
    NOTEUI_SEND_EDIT = 2017,           // in unsigned char* bPressEnter (null = 0)
    NOTEUI_SAVE = 2018,
    NOTEUI_QUERY_NEED_SAVE = 2019,     // out unsigned char*
    NOTEUI_QUERY_CAN_PUBLISH = 2020,   // out unsigned char*
    NOTEUI_TEXT_CHANGED = 2021
};

// The save dialog's result on which the client gives up saving (the panel answers -1 for a
// user's cancel, which the client's save-as reports as such).
constexpr int NOTEUI_DIALOG_CANCELLED = 3;

// The instance's side of the panel: the panel sends messages 2017 to 2021 here.
class INoteCommSinkForNoteUI {
public:
    virtual int HandleUIMessage(int nMsg, void* pIn, void* pOut) = 0;

protected:
    // Not virtual: the table holds the one operation only. Never deleted through this interface.
    ~INoteCommSinkForNoteUI() = default;
};

// Builds a panel inside parent (a QWidget*, or null for a headless panel), stores its handle
// in *panel and gives it sink. Always 0.
TESSARINNOTE_API long CreateUI(void** panel, void* parent, INoteCommSinkForNoteUI* sink);
// Releases the panel.
TESSARINNOTE_API long DestoryUI(void* panel);
// Sends message (2000 to 2016) to the panel; the panel's answer.
TESSARINNOTE_API long NotifyCocoaUI(void* panel, unsigned int message, void* in, void* out,
                                    void* context);
// Withdraws the sink: the panel no longer calls the instance.
TESSARINNOTE_API long CancelSink(void* panel);
