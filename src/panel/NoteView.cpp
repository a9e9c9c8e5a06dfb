// The panel container's geometry.
#include "panel/NoteView.h"

namespace {

const double kMargin = 4;
const double kButtonGap = 10;
const double kButtonHeight = 24;
const double kBarMargin = 8;

}  // namespace

NotePanelLayout LayoutNotePanel(double width, double height, double saveWidth,
                                double publishWidth)
{
    NotePanelLayout layout;
    // The Publish button's x has always been computed in single precision.
    const float publishX = static_cast<float>(width) - static_cast<float>(kMargin) -
                           static_cast<float>(kButtonGap) - static_cast<float>(saveWidth) -
                           static_cast<float>(publishWidth);
    layout.publish = {publishX, kMargin, publishWidth, kButtonHeight};
    layout.save = {static_cast<double>(static_cast<long>(width - kButtonGap - saveWidth)), kMargin,
                   saveWidth, kButtonHeight};
    layout.text = {0, 33, width, height - kBarMargin - kButtonHeight - 1};
    return layout;
}

double NoteViewSeparatorY(double boundsOriginY)
{
    return boundsOriginY + kButtonHeight + kBarMargin + 0.5;
}
