// CQtTextViewPort: the panel on Qt Widgets, inside the host's parent widget. It builds the
// container, the text widget and the two buttons, and gives the panel's rules what they need
// of a toolkit. Its text is the rules' text as set (UTF-8); the widget shows it, and new text
// from the meeting goes in as the difference only, so a long caption text is not laid out
// again for each line and a reader who scrolled up to reread stays where they are. New text is
// announced to assistive technology. Main thread only; needs a QApplication.
#pragma once

#include "panel/NoteTextViewPort.h"

#include <QPointer>

#include <memory>
#include <string>

class CQtNoteTextEdit;
class CQtNoteView;
class NoteViewButton;
class NoteViewController;
class QFileDialog;
class QWidget;

class CQtTextViewPort final : public INoteTextViewPort {
public:
    explicit CQtTextViewPort(QWidget* parent);
    ~CQtTextViewPort() override;
    CQtTextViewPort(const CQtTextViewPort&) = delete;
    CQtTextViewPort& operator=(const CQtTextViewPort&) = delete;

    // The controller whose rules the widgets' edits and buttons go through.
    void Attach(NoteViewController& controller);

    const std::string& Text() const override { return m_strText; }
    void SetText(const std::string& utf8) override;
    unsigned Length() const override { return m_nLength; }
    void GetSelectedRange(unsigned& location, unsigned& length) const override;
    void SetSelectedRange(unsigned location, unsigned length) override;
    void ReplaceRange(unsigned location, unsigned length, const std::string& utf8) override;
    bool IsReadOnly() const override;
    void SetReadOnly(bool readOnly) override;
    bool IsFirstResponder() const override;
    void ScrollRangeToVisible(unsigned location, unsigned length) override;
    bool IsHidden() const override;
    bool PasteboardString(std::string& text) const override;
    bool PasteboardURL(std::string& url) const override;
    void SetPasteboardString(const std::string& text) override;
    void SetSaveEnabled(bool enabled) override;
    void SetPublishEnabled(bool enabled) override;
    bool IsPublishEnabled() const override;
    void SetPublishVisible(bool visible) override;
    ESaveDialogResult RunSaveDialog(const std::string& title, const std::string& defaultName,
                                    std::string& chosenPath) override;
    void AbortSaveDialog() override;
    void Beep() override;

private:
    // Replaces the units [location, location + length) of the widget's document.
    void ReplaceInWidget(unsigned location, unsigned length, const QString& text);
    // Whether the view shows the end of the text (a reader there follows new lines).
    bool ShowsEnd() const;
    void UpdateAccessibleNames();

    // The widgets belong to the parent widget; a host may destroy it before the panel.
    QPointer<CQtNoteView> m_pView;
    QPointer<CQtNoteTextEdit> m_pEdit;
    QPointer<NoteViewButton> m_pPublishButton;
    QPointer<NoteViewButton> m_pSaveButton;
    NoteViewController* m_pController = nullptr;
    std::string m_strText;
    unsigned m_nLength = 0;
    bool m_bReadOnly = false;
    QPointer<QFileDialog> m_pSaveDialog;
    bool m_bSaveDialogAborted = false;
    // Cleared on destruction, so a save dialog's nested loop that returns after the panel was
    // released touches nothing of it.
    std::shared_ptr<bool> m_pAlive = std::make_shared<bool>(true);
};
