// CQtNoteTextEdit: the Qt panel's text widget. It shows the panel's text and lets the person
// select, move and copy freely, but every edit (typing, Return, deleting, cutting, pasting,
// input methods) goes through the panel's rules instead of Qt's own editing, so the rules stay
// the one place that decides. Drops, middle-click pastes and undo are off: they would bypass
// the rules. Main thread only.
#pragma once

#include <QFont>
#include <QPlainTextEdit>

class NoteViewController;

class CQtNoteTextEdit : public QPlainTextEdit {
    Q_OBJECT
    Q_PROPERTY(int maxLength READ maxLength)
    Q_PROPERTY(int beepCount READ beepCount)
public:
    explicit CQtNoteTextEdit(QWidget* parent);

    void SetController(NoteViewController* controller) { m_pController = controller; }
    // The font the panel starts with and zoomReset returns to.
    void SetBaseFont(const QFont& font);

    int maxLength() const;
    // Refused edits the panel answered with a beep, for hosts and tests that cannot hear.
    int beepCount() const { return m_nBeepCount; }
    void Beep();

    // Tells assistive technology and listeners what the meeting changed at position (removed
    // replaced by inserted): a screen reader user hears the new caption line, not the whole
    // text again.
    void AnnounceArrival(int position, const QString& removed, const QString& inserted);

public slots:
    void zoomReset();

signals:
    // Text that arrived from the meeting (not typed here), at position.
    void textArrived(int position, const QString& text);

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void inputMethodEvent(QInputMethodEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    bool canInsertFromMimeData(const QMimeData* source) const override;
    void insertFromMimeData(const QMimeData* source) override;

private:
    // Edits the rules handle; false for keys Qt may have (moving, selecting, copying).
    bool RouteEditKey(QKeyEvent* event);

    NoteViewController* m_pController = nullptr;
    QFont m_baseFont;
    int m_nBeepCount = 0;
};
