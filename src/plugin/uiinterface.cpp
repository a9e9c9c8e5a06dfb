// The bridge between an instance and its panel: creates, addresses and releases the panel
// controller. A null parent view gives the headless panel.
#include "tessarinnote/uiinterface.h"

#include "panel/NoteViewController.h"
#include "panel/PanelFactory.h"
#include "tessarinnote/notehostui.h"

#include <cstdint>

namespace {

const long kNullPanel = 3;

NoteViewController* Controller(void* panel)
{
    return static_cast<NoteViewController*>(panel);
}

}  // namespace

long CreateUI(void** panel, void* parent, INoteCommSinkForNoteUI* sink)
{
    MacInfoTrace2("note", "CreateUI, retData = 0x%x, data = 0x%x, pSink = 0x%x",
                  static_cast<unsigned>(reinterpret_cast<uintptr_t>(panel)),
                  static_cast<unsigned>(reinterpret_cast<uintptr_t>(parent)),
                  static_cast<unsigned>(reinterpret_cast<uintptr_t>(sink)));
    // Without a place for the handle nobody could ever release the panel: none is built.
    if (!panel) return 0;
    NoteViewController* controller = CreateNotePanel(parent);
    *panel = controller;
    controller->setSink(sink);
    return 0;
}

long DestoryUI(void* panel)
{
    MacInfoTrace2("note", "DestoryUI, control = 0x%x",
                  static_cast<unsigned>(reinterpret_cast<uintptr_t>(panel)));
    if (!panel) return kNullPanel;
    delete Controller(panel);
    return 0;
}

long NotifyCocoaUI(void* panel, unsigned int message, void* in, void* out, void* context)
{
    if (!panel) return kNullPanel;
    return Controller(panel)->OnReceiveMessage(message, in, out, context);
}

long CancelSink(void* panel)
{
    // The same trace text as DestoryUI, as the interface has always written it.
    MacInfoTrace2("note", "DestoryUI, control = 0x%x",
                  static_cast<unsigned>(reinterpret_cast<uintptr_t>(panel)));
    if (!panel) return kNullPanel;
    Controller(panel)->setSink(nullptr);
    return 0;
}
