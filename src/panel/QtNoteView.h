// CQtNoteView: the Qt panel's container. It fills the host's parent widget and follows its
// size, places the text view and the two buttons where the panel's layout puts them (turned from
// the layout's bottom-left origin to Qt's top-left once, here), and draws the white background
// with the separator line above the button bar. Main thread only.
#pragma once

#include <QWidget>

class QAbstractScrollArea;
class QPushButton;

class CQtNoteView : public QWidget {
    Q_OBJECT
public:
    // Fills parent from now on.
    explicit CQtNoteView(QWidget* parent);

    // The children to lay out; called once they exist.
    void SetParts(QAbstractScrollArea* text, QPushButton* publish, QPushButton* save);

    bool highContrast() const { return m_bHighContrast; }

public slots:
    // Black background, light text, for readers who need the contrast.
    void setHighContrast(bool on);

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void LayOut();

    QAbstractScrollArea* m_pText = nullptr;
    QPushButton* m_pPublish = nullptr;
    QPushButton* m_pSave = nullptr;
    bool m_bHighContrast = false;
};
