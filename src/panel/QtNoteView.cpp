// The Qt panel's container: geometry and drawing.
#include "panel/QtNoteView.h"

#include "panel/NoteView.h"
#include "tessarinnote/notehostuiwidgets.h"

#include <QAbstractScrollArea>
#include <QEvent>
#include <QPainter>
#include <QPushButton>

#include <cmath>

namespace {

// A frame of the bottom-left layout in a container of the given height, in Qt's top-left
// coordinates.
QRect TopLeft(const NoteRect& frame, int height)
{
    const double top = height - (frame.y + frame.height);
    return QRect(static_cast<int>(std::floor(frame.x)), static_cast<int>(std::floor(top)),
                 static_cast<int>(frame.width), static_cast<int>(frame.height));
}

}  // namespace

CQtNoteView::CQtNoteView(QWidget* parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("NoteView"));
    setAutoFillBackground(false);
    if (parent) {
        parent->installEventFilter(this);
        setGeometry(0, 0, parent->width(), parent->height());
    }
}

void CQtNoteView::SetParts(QAbstractScrollArea* text, QPushButton* publish, QPushButton* save)
{
    m_pText = text;
    m_pPublish = publish;
    m_pSave = save;
    LayOut();
}

void CQtNoteView::setHighContrast(bool on)
{
    if (m_bHighContrast == on) return;
    m_bHighContrast = on;
    if (m_pText) {
        QPalette palette = m_pText->palette();
        palette.setColor(QPalette::Base, on ? Qt::black : NoteHostUI_ColorWithRGB(0xFFFFFF, 1.0));
        palette.setColor(QPalette::Text,
                         on ? NoteHostUI_ColorWithRGB(0xFFFF66, 1.0) : QColor::fromRgbF(0.2f, 0.2f, 0.2f));
        m_pText->setPalette(palette);
    }
    update();
}

void CQtNoteView::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    const unsigned background = m_bHighContrast ? 0x000000 : kNoteViewBackgroundRGB;
    const unsigned separator = m_bHighContrast ? 0xFFFFFF : kNoteViewSeparatorRGB;
    painter.fillRect(rect(), NoteHostUI_ColorWithRGB(background, 1.0));
    // The one-point line half a point off the grid covers exactly one pixel row.
    const double lineY = height() - NoteViewSeparatorY(0);
    painter.fillRect(QRectF(0, std::floor(lineY), width(), 1),
                     NoteHostUI_ColorWithRGB(separator, 1.0));
}

void CQtNoteView::resizeEvent(QResizeEvent*)
{
    LayOut();
}

bool CQtNoteView::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == parent() && event->type() == QEvent::Resize) {
        const QWidget* host = static_cast<QWidget*>(watched);
        setGeometry(0, 0, host->width(), host->height());
    }
    return QWidget::eventFilter(watched, event);
}

void CQtNoteView::LayOut()
{
    if (!m_pText || !m_pPublish || !m_pSave) return;
    const NotePanelLayout layout =
        LayoutNotePanel(width(), height(), m_pSave->width(), m_pPublish->width());
    m_pPublish->setGeometry(TopLeft(layout.publish, height()));
    m_pSave->setGeometry(TopLeft(layout.save, height()));
    QRect text = TopLeft(layout.text, height());
    if (text.height() < 0) text.setHeight(0);
    m_pText->setGeometry(text);
}
