// The panel's port by parent view.
#include "panel/PanelFactory.h"

#include "panel/HeadlessTextView.h"

std::unique_ptr<INoteTextViewPort> CreatePanelView(void* parent)
{
    // The Qt port is not in yet: a parent view gets the headless panel too, so a host with a
    // window still has a working notepad, only without a visible panel.
    (void)parent;
    return std::unique_ptr<INoteTextViewPort>(new CHeadlessTextView);
}
