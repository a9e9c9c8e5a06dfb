// Host UI library, widget parts: the colour button, scroll-bar restyling and RGB colours.
#include "tessarinnote/notehostuiwidgets.h"

#include <QAbstractScrollArea>
#include <QScrollBar>

namespace {

// Flat and light, so the buttons sit quietly on the panel's white bar.
const char kPanelBarStyle[] =
    "QPushButton { background: #FFFFFF; color: #333333; border: 1px solid #D0D0D0;"
    " border-radius: 3px; padding: 0 8px; }"
    "QPushButton:hover { background: #F2F2F2; }"
    "QPushButton:pressed { background: #E6E6E6; }"
    "QPushButton:disabled { color: #B0B0B0; border-color: #E6E6E6; }"
    "QPushButton:focus { border-color: #7A9CC6; }";

const char kScrollerStyle[] =
    "QScrollBar:vertical { background: transparent; width: 10px; margin: 0; }"
    "QScrollBar:horizontal { background: transparent; height: 10px; margin: 0; }"
    "QScrollBar::handle { background: #C8C8C8; border-radius: 4px; min-height: 24px;"
    " min-width: 24px; margin: 1px; }"
    "QScrollBar::handle:hover { background: #A8A8A8; }"
    "QScrollBar::add-line, QScrollBar::sub-line { width: 0; height: 0; }"
    "QScrollBar::add-page, QScrollBar::sub-page { background: none; }";

}  // namespace

TessarinColorButton::TessarinColorButton(QWidget* parent) : QPushButton(parent) {}

void TessarinColorButton::setColorCellType(int type)
{
    m_nColorCellType = type;
    setFlat(type == kColorCellPanelBar);
    setStyleSheet(type == kColorCellPanelBar ? QString::fromLatin1(kPanelBarStyle) : QString());
}

void ORVChangeScrollerClass(QAbstractScrollArea* scrollView)
{
    if (!scrollView) return;
    for (QScrollBar* bar : {scrollView->verticalScrollBar(), scrollView->horizontalScrollBar()})
        if (bar) bar->setStyleSheet(QString::fromLatin1(kScrollerStyle));
}

QColor NoteHostUI_ColorWithRGB(unsigned rgb, double alpha)
{
    QColor color((rgb >> 16) & 0xFF, (rgb >> 8) & 0xFF, rgb & 0xFF);
    color.setAlphaF(static_cast<float>(alpha < 0 ? 0 : alpha > 1 ? 1 : alpha));
    return color;
}
