// Host UI library, widget parts (Qt hosts): the colour button the plug-in's panel buttons derive
// from, the scroll-bar restyling of scroll views, and colours from 24-bit RGB values. C++ and
// Qt only; windowless hosts never call these. Main thread only.
#pragma once

#include "tessarinnote/notehostui.h"

#include <QColor>
#include <QPushButton>

class QAbstractScrollArea;

// The looks a TessarinColorButton can take.
enum ETessarinColorCellType {
    kColorCellNative = 0,    // the style's own push button
    kColorCellPanelBar = 5,  // a light, flat button for a panel's button bar
};

// A push button drawn in one of the host's colour-cell types.
class NOTEHOSTUI_API TessarinColorButton : public QPushButton {
public:
    explicit TessarinColorButton(QWidget* parent = nullptr);

    void setColorCellType(int type);
    int colorCellType() const { return m_nColorCellType; }

private:
    int m_nColorCellType = kColorCellNative;
};

// Restyles a scroll view's scroll bars as the host draws them: thin, light and flat.
NOTEHOSTUI_API void ORVChangeScrollerClass(QAbstractScrollArea* scrollView);

// The colour of a 24-bit RGB value (0xRRGGBB) with an alpha from 0 to 1.
NOTEHOSTUI_API QColor NoteHostUI_ColorWithRGB(unsigned rgb, double alpha);
