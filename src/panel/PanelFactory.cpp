// The panel by parent view.
#include "panel/PanelFactory.h"

#include "panel/HeadlessTextView.h"
#include "panel/NoteViewController.h"

#include <memory>

NoteViewController* CreateNotePanel(void* parent)
{
    // The Qt port is not in yet: a parent view gets the headless panel too, so a host with a
    // window still has a working notepad, only without a visible panel.
    (void)parent;
    auto* view = new CHeadlessTextView;
    auto* controller = new NoteViewController(std::unique_ptr<INoteTextViewPort>(view));
    view->Attach(*controller);
    return controller;
}
