// The panel on Qt Widgets.
#include "panel/QtTextViewPort.h"

#include "panel/NoteViewButton.h"
#include "panel/NoteViewController.h"
#include "panel/QtNoteTextEdit.h"
#include "panel/QtNoteView.h"
#include "panel/TextUnits.h"
#include "platform/LoadLocalizedString.h"
#include "tessarinnote/notedata.h"
#include "tessarinnote/notehostuiwidgets.h"

#include <QApplication>
#include <QClipboard>
#include <QFileDialog>
#include <QFontDatabase>
#include <QMimeData>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextCursor>
#include <QUrl>

#include <algorithm>

namespace {

// The buttons' smallest widths; a longer localised label widens its button.
const int kButtonMinWidth = 64;
const int kButtonHeight = 24;
const int kTextInset = 5;
const int kFontPoints = 13;

QString Localized(const char* key)
{
    return QString::fromStdString(NoteLocalized(key));
}

QFont PanelFont()
{
    if (QFontDatabase::hasFamily(QStringLiteral("Helvetica")))
        return QFont(QStringLiteral("Helvetica"), kFontPoints);
    QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    font.setPointSize(kFontPoints);
    return font;
}

NoteViewButton* NewButton(QWidget* parent, const char* name, const char* label)
{
    auto* button = new NoteViewButton(parent);
    button->setObjectName(QString::fromLatin1(name));
    button->setText(Localized(label));
    button->setToolTip(Localized(label));
    button->setAccessibleName(Localized(label));
    button->setColorCellType(kColorCellPanelBar);
    button->resize(std::max(kButtonMinWidth, button->sizeHint().width()), kButtonHeight);
    return button;
}

// Bytes both texts share at the start, and then at the end, without cutting a character.
void CommonEnds(const std::string& a, const std::string& b, size_t& prefix, size_t& suffix)
{
    const size_t shorter = std::min(a.size(), b.size());
    prefix = static_cast<size_t>(std::mismatch(a.begin(), a.begin() + shorter, b.begin()).first -
                                 a.begin());
    while (prefix > 0 && prefix < shorter && (static_cast<unsigned char>(b[prefix]) & 0xC0) == 0x80)
        --prefix;
    const size_t room = shorter - prefix;
    suffix = static_cast<size_t>(
        std::mismatch(a.rbegin(), a.rbegin() + room, b.rbegin()).first - a.rbegin());
    while (suffix > 0 && (static_cast<unsigned char>(b[b.size() - suffix]) & 0xC0) == 0x80)
        --suffix;
}

// Runs f with the view's scroll position kept: moving the caret by program must not scroll a
// reader away from what they are reading.
template <typename F>
void KeepingScroll(QPlainTextEdit& edit, F f)
{
    const int vertical = edit.verticalScrollBar()->value();
    const int horizontal = edit.horizontalScrollBar()->value();
    f();
    edit.verticalScrollBar()->setValue(vertical);
    edit.horizontalScrollBar()->setValue(horizontal);
}

}  // namespace

CQtTextViewPort::CQtTextViewPort(QWidget* parent)
{
    m_pView = new CQtNoteView(parent);
    m_pEdit = new CQtNoteTextEdit(m_pView);
    m_pPublishButton = NewButton(m_pView, "PublishButton", "Publish");
    m_pSaveButton = NewButton(m_pView, "SaveButton", "Save");

    m_pEdit->SetBaseFont(PanelFont());
    m_pEdit->document()->setDocumentMargin(kTextInset);
    m_pEdit->setFrameShape(QFrame::NoFrame);
    QPalette palette = m_pEdit->palette();
    palette.setColor(QPalette::Base, NoteHostUI_ColorWithRGB(0xFFFFFF, 1.0));
    palette.setColor(QPalette::Text, QColor::fromRgbF(0.2f, 0.2f, 0.2f, 1.0f));
    m_pEdit->setPalette(palette);
    ORVChangeScrollerClass(m_pEdit);

    m_pView->SetParts(m_pEdit, m_pPublishButton, m_pSaveButton);
    m_pSaveButton->setEnabled(true);
    UpdateAccessibleNames();
    m_pView->show();
}

CQtTextViewPort::~CQtTextViewPort()
{
    *m_pAlive = false;
    if (m_pSaveDialog) m_pSaveDialog->reject();
    if (!m_pView) return;
    // The panel may go from inside one of its own widgets' signals (a Save click whose dialog
    // ended the instance): detach now, delete when the event is over.
    m_pEdit->SetController(nullptr);
    QObject::disconnect(m_pPublishButton, nullptr, m_pEdit, nullptr);
    QObject::disconnect(m_pSaveButton, nullptr, m_pEdit, nullptr);
    m_pView->hide();
    m_pView->deleteLater();
}

void CQtTextViewPort::Attach(NoteViewController& controller)
{
    m_pController = &controller;
    m_pEdit->SetController(&controller);
    QObject::connect(m_pPublishButton, &QPushButton::clicked, m_pEdit,
                     [this] { if (m_pController) m_pController->onPublish(true); });
    QObject::connect(m_pSaveButton, &QPushButton::clicked, m_pEdit,
                     [this] { if (m_pController) m_pController->onSave(); });
}

void CQtTextViewPort::UpdateAccessibleNames()
{
    const bool captions = m_pController && m_pController->notePadType() == NOTETAKER_CLOSED_CAPTIONS;
    m_pView->setAccessibleName(Localized(captions ? "Closed Captions" : "Notes"));
    m_pView->setAccessibleDescription(
        Localized(captions ? "Live captions of the meeting" : "Shared notes of the meeting"));
    m_pEdit->setAccessibleName(Localized(captions ? "Caption text" : "Notes text"));
    m_pEdit->setAccessibleDescription(
        Localized(m_bReadOnly ? "Read only: new text arrives from the meeting"
                              : "Type here; Publish sends the text to the meeting"));
    m_pPublishButton->setAccessibleDescription(Localized("Send the text to every participant"));
    m_pSaveButton->setAccessibleDescription(Localized("Save the text as a file"));
}

bool CQtTextViewPort::ShowsEnd() const
{
    const QScrollBar* bar = m_pEdit->verticalScrollBar();
    return bar->value() >= bar->maximum();
}

void CQtTextViewPort::ReplaceInWidget(unsigned location, unsigned length, const QString& text)
{
    QTextCursor cursor(m_pEdit->document());
    cursor.setPosition(static_cast<int>(location));
    cursor.setPosition(static_cast<int>(location + length), QTextCursor::KeepAnchor);
    if (text.isEmpty())
        cursor.removeSelectedText();
    else
        cursor.insertText(text);
}

void CQtTextViewPort::SetText(const std::string& utf8)
{
    if (!m_pEdit) return;
    UpdateAccessibleNames();
    const bool follow = ShowsEnd();
    size_t prefix = 0;
    size_t suffix = 0;
    CommonEnds(m_strText, utf8, prefix, suffix);
    const unsigned location = Utf16Length(utf8.substr(0, prefix));
    const QString removedText =
        QString::fromUtf8(m_strText.data() + prefix, static_cast<qsizetype>(m_strText.size() - prefix - suffix));
    const auto removed = static_cast<unsigned>(removedText.size());
    const QString inserted =
        QString::fromUtf8(utf8.data() + prefix, static_cast<qsizetype>(utf8.size() - prefix - suffix));

    KeepingScroll(*m_pEdit, [&] {
        if (m_strText.empty())
            m_pEdit->setPlainText(inserted);  // the whole text at once lays out fastest
        else if (removed != 0 || !inserted.isEmpty())
            ReplaceInWidget(location, removed, inserted);
        m_strText = utf8;
        m_nLength = Utf16Length(m_strText);
        // As the rules expect after a new text: the caret at its end.
        QTextCursor end(m_pEdit->document());
        end.movePosition(QTextCursor::End);
        m_pEdit->setTextCursor(end);
    });
    if (follow) m_pEdit->verticalScrollBar()->setValue(m_pEdit->verticalScrollBar()->maximum());

    m_pEdit->AnnounceArrival(static_cast<int>(location), removedText, inserted);
}

void CQtTextViewPort::GetSelectedRange(unsigned& location, unsigned& length) const
{
    const QTextCursor cursor = m_pEdit ? m_pEdit->textCursor() : QTextCursor();
    location = std::min(static_cast<unsigned>(cursor.selectionStart()), m_nLength);
    length = std::min(static_cast<unsigned>(cursor.selectionEnd() - cursor.selectionStart()),
                      m_nLength - location);
}

void CQtTextViewPort::SetSelectedRange(unsigned location, unsigned length)
{
    if (!m_pEdit) return;
    location = std::min(location, m_nLength);
    length = std::min(length, m_nLength - location);
    KeepingScroll(*m_pEdit, [&] {
        QTextCursor cursor(m_pEdit->document());
        cursor.setPosition(static_cast<int>(location));
        cursor.setPosition(static_cast<int>(location + length), QTextCursor::KeepAnchor);
        m_pEdit->setTextCursor(cursor);
    });
}

void CQtTextViewPort::ReplaceRange(unsigned location, unsigned length, const std::string& utf8)
{
    if (!m_pEdit) return;
    location = std::min(location, m_nLength);
    length = std::min(length, m_nLength - location);
    const size_t from = Utf8PrefixBytes(m_strText, location);
    const size_t to = Utf8PrefixBytes(m_strText, location + length);
    const QString text = QString::fromStdString(utf8);
    ReplaceInWidget(location, length, text);
    m_strText.replace(from, to - from, utf8);
    m_nLength = Utf16Length(m_strText);
    QTextCursor caret(m_pEdit->document());
    caret.setPosition(static_cast<int>(std::min(location + static_cast<unsigned>(text.size()), m_nLength)));
    m_pEdit->setTextCursor(caret);
    m_pEdit->ensureCursorVisible();
}

bool CQtTextViewPort::IsReadOnly() const
{
    return m_bReadOnly;
}

void CQtTextViewPort::SetReadOnly(bool readOnly)
{
    m_bReadOnly = readOnly;
    if (!m_pEdit) return;
    m_pEdit->setReadOnly(readOnly);
    // A reader still moves through the text and selects with the keyboard.
    if (readOnly)
        m_pEdit->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    UpdateAccessibleNames();
}

bool CQtTextViewPort::IsFirstResponder() const
{
    return m_pEdit && m_pEdit->hasFocus();
}

void CQtTextViewPort::ScrollRangeToVisible(unsigned location, unsigned length)
{
    if (!m_pEdit) return;
    // The meeting scrolls to each new line; a reader who scrolled up to reread stays.
    if (m_bReadOnly && location + length >= m_nLength && !ShowsEnd()) return;
    const QTextCursor kept = m_pEdit->textCursor();
    QTextCursor target(m_pEdit->document());
    target.setPosition(static_cast<int>(std::min(location + length, m_nLength)));
    m_pEdit->setTextCursor(target);
    m_pEdit->ensureCursorVisible();
    const int vertical = m_pEdit->verticalScrollBar()->value();
    m_pEdit->setTextCursor(kept);
    m_pEdit->verticalScrollBar()->setValue(vertical);
}

bool CQtTextViewPort::IsHidden() const
{
    return !m_pEdit || !m_pEdit->isVisible();
}

bool CQtTextViewPort::PasteboardString(std::string& text) const
{
    const QMimeData* data = QGuiApplication::clipboard()->mimeData();
    if (!data || !data->hasText()) return false;
    text = data->text().toStdString();
    return true;
}

bool CQtTextViewPort::PasteboardURL(std::string& url) const
{
    const QMimeData* data = QGuiApplication::clipboard()->mimeData();
    if (!data || !data->hasUrls() || data->urls().isEmpty()) return false;
    url = data->urls().first().toString(QUrl::FullyEncoded).toStdString();
    return true;
}

void CQtTextViewPort::SetPasteboardString(const std::string& text)
{
    QGuiApplication::clipboard()->setText(QString::fromStdString(text));
}

void CQtTextViewPort::SetSaveEnabled(bool enabled)
{
    if (m_pSaveButton) m_pSaveButton->setEnabled(enabled);
}

void CQtTextViewPort::SetPublishEnabled(bool enabled)
{
    if (m_pPublishButton) m_pPublishButton->setEnabled(enabled);
}

bool CQtTextViewPort::IsPublishEnabled() const
{
    return m_pPublishButton && m_pPublishButton->isEnabled();
}

void CQtTextViewPort::SetPublishVisible(bool visible)
{
    if (m_pPublishButton) m_pPublishButton->setVisible(visible);
}

INoteTextViewPort::ESaveDialogResult CQtTextViewPort::RunSaveDialog(
    const std::string& title, const std::string& defaultName, std::string& chosenPath)
{
    // On the heap: a host that closes the window under the dialog deletes it with the panel.
    QPointer<QFileDialog> dialog = new QFileDialog(m_pView, QString::fromStdString(title));
    dialog->setObjectName(QStringLiteral("NoteSaveDialog"));
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setFileMode(QFileDialog::AnyFile);
    dialog->setNameFilter(Localized("Text") + QStringLiteral(" (*.txt)"));
    dialog->setDefaultSuffix(QStringLiteral("txt"));
    dialog->selectFile(QString::fromStdString(defaultName));
    dialog->setModal(true);
    m_pSaveDialog = dialog;
    m_bSaveDialogAborted = false;
    const std::shared_ptr<bool> alive = m_pAlive;
    const int result = dialog->exec();
    const QStringList chosen = dialog ? dialog->selectedFiles() : QStringList();
    delete dialog.data();
    if (!*alive) return kSaveAborted;
    m_pSaveDialog = nullptr;
    if (m_bSaveDialogAborted) return kSaveAborted;
    if (result != QDialog::Accepted || chosen.isEmpty()) return kSaveCancelled;
    chosenPath = chosen.first().toStdString();
    return kSaveConfirmed;
}

void CQtTextViewPort::AbortSaveDialog()
{
    if (!m_pSaveDialog) return;
    m_bSaveDialogAborted = true;
    m_pSaveDialog->reject();
}

void CQtTextViewPort::Beep()
{
    if (m_pEdit) m_pEdit->Beep();
}
