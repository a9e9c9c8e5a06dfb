// The Qt panel's text widget: edit keys routed through the panel's rules, and its context menu.
#include "panel/QtNoteTextEdit.h"

#include "panel/NoteViewController.h"
#include "platform/LoadLocalizedString.h"
#include "tessarinnote/headlesspanel.h"

#include <QAccessible>
#include <QApplication>
#include <QContextMenuEvent>
#include <QInputMethodEvent>
#include <QKeyEvent>
#include <QMenu>

namespace {

struct SMenuTitle {
    int nTag;
    const char* pszTitle;
};

// The context menus' items in the order shown; a menu shows the ones it has.
const SMenuTitle kMenuTitles[] = {
    {NOTEMENU_CUT, "Cut"},        {NOTEMENU_COPY, "Copy"},
    {NOTEMENU_PASTE, "Paste"},    {NOTEMENU_DELETE, "Delete"},
    {NOTEMENU_SELECT_ALL, "Select All"}, {NOTEMENU_SAVE, "Save"},
    {NOTEMENU_PUBLISH, "Publish"},
};

// Keys that only move the caret or the selection, or copy: Qt's own handling is right.
bool IsViewingKey(QKeyEvent* event)
{
    if (event->matches(QKeySequence::Copy) || event->matches(QKeySequence::SelectAll)) return true;
    switch (event->key()) {
    case Qt::Key_Left: case Qt::Key_Right: case Qt::Key_Up: case Qt::Key_Down:
    case Qt::Key_Home: case Qt::Key_End: case Qt::Key_PageUp: case Qt::Key_PageDown:
        return true;
    default:
        return false;
    }
}

// Typed text: printable characters with no command modifier.
bool IsTypedText(QKeyEvent* event)
{
    if (event->modifiers() & (Qt::ControlModifier | Qt::MetaModifier)) return false;
    const QString text = event->text();
    if (text.isEmpty()) return false;
    for (QChar c : text)
        if (!c.isPrint() && c != QLatin1Char('\t')) return false;
    return true;
}

}  // namespace

CQtNoteTextEdit::CQtNoteTextEdit(QWidget* parent) : QPlainTextEdit(parent)
{
    setObjectName(QStringLiteral("NoteTextView"));
    setUndoRedoEnabled(false);
    setAcceptDrops(false);
    setContextMenuPolicy(Qt::DefaultContextMenu);
    setTabChangesFocus(false);
}

void CQtNoteTextEdit::SetBaseFont(const QFont& font)
{
    m_baseFont = font;
    setFont(font);
}

int CQtNoteTextEdit::maxLength() const
{
    return m_pController ? m_pController->TextView().maxLen() : 0;
}

void CQtNoteTextEdit::Beep()
{
    ++m_nBeepCount;
    QApplication::beep();
}

void CQtNoteTextEdit::AnnounceArrival(int position, const QString& removed, const QString& inserted)
{
    if (!removed.isEmpty() && !inserted.isEmpty()) {
        QAccessibleTextUpdateEvent replaced(this, position, removed, inserted);
        QAccessible::updateAccessibility(&replaced);
    } else if (!removed.isEmpty()) {
        QAccessibleTextRemoveEvent gone(this, position, removed);
        QAccessible::updateAccessibility(&gone);
    } else if (!inserted.isEmpty()) {
        QAccessibleTextInsertEvent arrived(this, position, inserted);
        QAccessible::updateAccessibility(&arrived);
    }
    if (!inserted.isEmpty()) emit textArrived(position, inserted);
}

void CQtNoteTextEdit::zoomReset()
{
    setFont(m_baseFont);
}

void CQtNoteTextEdit::keyPressEvent(QKeyEvent* event)
{
    if (IsViewingKey(event)) {
        QPlainTextEdit::keyPressEvent(event);
        return;
    }
    if (!RouteEditKey(event)) event->ignore();
}

bool CQtNoteTextEdit::RouteEditKey(QKeyEvent* event)
{
    if (!m_pController) return false;
    NoteTextView& rules = m_pController->TextView();
    const bool editKey = event->matches(QKeySequence::Paste) ||
                         event->matches(QKeySequence::Cut) || event->key() == Qt::Key_Return ||
                         event->key() == Qt::Key_Enter || event->key() == Qt::Key_Backspace ||
                         event->key() == Qt::Key_Delete || IsTypedText(event);
    if (!editKey) return false;
    event->accept();
    if (isReadOnly()) {
        // A text the person may not change answers every edit key with a beep.
        Beep();
        return true;
    }
    if (event->matches(QKeySequence::Paste))
        rules.paste();
    else if (event->matches(QKeySequence::Cut))
        rules.OnMenuCommand(NOTEMENU_CUT);
    else if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter)
        rules.insertNewline();
    else if (event->key() == Qt::Key_Backspace)
        rules.deleteBackward();
    else if (event->key() == Qt::Key_Delete)
        rules.deleteForward();
    else
        rules.insertText(event->text().toStdString());
    ensureCursorVisible();
    return true;
}

void CQtNoteTextEdit::inputMethodEvent(QInputMethodEvent* event)
{
    // Only committed text is typed; a composition in progress stays with the input method.
    if (m_pController && !isReadOnly() && !event->commitString().isEmpty())
        m_pController->TextView().insertText(event->commitString().toStdString());
    event->accept();
}

void CQtNoteTextEdit::contextMenuEvent(QContextMenuEvent* event)
{
    NoteMenu* items = m_pController ? m_pController->TextView().menuForEvent(true) : nullptr;
    if (!items) return;
    setFocus(Qt::PopupFocusReason);
    auto* menu = new QMenu(this);
    menu->setObjectName(QStringLiteral("NoteContextMenu"));
    menu->setAttribute(Qt::WA_DeleteOnClose);
    for (const SMenuTitle& title : kMenuTitles) {
        if (!items->HasItem(title.nTag)) continue;
        if (title.nTag == NOTEMENU_SAVE) menu->addSeparator();
        QAction* action = menu->addAction(QString::fromStdString(NoteLocalized(title.pszTitle)));
        action->setData(title.nTag);
        action->setEnabled(items->IsEnabled(title.nTag));
        const int tag = title.nTag;
        connect(action, &QAction::triggered, this, [this, tag] {
            if (m_pController) m_pController->TextView().OnMenuCommand(tag);
        });
    }
    menu->popup(event->globalPos());
}

bool CQtNoteTextEdit::canInsertFromMimeData(const QMimeData*) const
{
    return false;
}

void CQtNoteTextEdit::insertFromMimeData(const QMimeData*)
{
}
