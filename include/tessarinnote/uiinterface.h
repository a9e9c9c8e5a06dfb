// The bridge between an instance and its notes panel, exported so that a host can reach it.
// The panel handle is the plug-in's panel controller; every function returns 3 for a null
// panel handle.
#pragma once

#include "tessarinnote/noteinterface.h"

// The instance's side of the panel: the panel sends messages 2017 to 2021 here.
class INoteCommSinkForNoteUI {
public:
    virtual ~INoteCommSinkForNoteUI() = default;
    virtual int HandleUIMessage(int nMsg, void* pIn, void* pOut) = 0;
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
