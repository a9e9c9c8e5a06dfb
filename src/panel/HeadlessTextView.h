// CHeadlessTextView: the panel for hosts without a window. It keeps the text in memory, takes
// the save dialog's answer, the clipboard and its own announcement from the host UI library,
// and is at the same time what a person uses (INoteHeadlessPanel): every action goes through
// the panel's rules like a real user's. It records the effects a test looks at (scrolls,
// beeps, dialogs). Main thread only.
#pragma once

#include "panel/NoteTextViewPort.h"
#include "tessarinnote/headlesspanel.h"

#include <string>

class NoteViewController;

class CHeadlessTextView : public INoteTextViewPort, public INoteHeadlessPanel {
public:
    CHeadlessTextView() = default;
    ~CHeadlessTextView() override;
    CHeadlessTextView(const CHeadlessTextView&) = delete;
    CHeadlessTextView& operator=(const CHeadlessTextView&) = delete;

    // The controller whose rules the person's actions pass; the host is told of the panel.
    void Attach(NoteViewController& controller);

    // The port.
    const std::string& Text() const override { return m_strText; }
    void SetText(const std::string& utf8) override;
    void TakeText(std::string& utf8) override;
    unsigned Length() const override { return m_nLength; }
    void GetSelectedRange(unsigned& location, unsigned& length) const override;
    void SetSelectedRange(unsigned location, unsigned length) override;
    void ReplaceRange(unsigned location, unsigned length, const std::string& utf8) override;
    bool IsReadOnly() const override { return m_bReadOnly; }
    void SetReadOnly(bool readOnly) override { m_bReadOnly = readOnly; }
    bool IsFirstResponder() const override { return m_bFocused; }
    void ScrollRangeToVisible(unsigned, unsigned) override { ++m_nScrollCount; }
    bool IsHidden() const override { return m_bHidden; }
    bool PasteboardString(std::string& text) const override;
    bool PasteboardURL(std::string& url) const override;
    void SetPasteboardString(const std::string& text) override;
    void SetSaveEnabled(bool enabled) override { m_bSaveEnabled = enabled; }
    void SetPublishEnabled(bool enabled) override { m_bPublishEnabled = enabled; }
    bool IsPublishEnabled() const override { return m_bPublishEnabled; }
    void SetPublishVisible(bool visible) override { m_bPublishVisible = visible; }
    ESaveDialogResult RunSaveDialog(const std::string& title, const std::string& defaultName,
                                    std::string& chosenPath) override;
    // The chooser cannot be interrupted; the run reports the abort when the chooser returns.
    void AbortSaveDialog() override
    {
        ++m_nAbortCount;
        m_bSaveDialogAborted = true;
    }
    void Beep() override { ++m_nBeepCount; }

    // The person.
    const char* ShownText() const override { return m_strText.c_str(); }
    void GetSelection(unsigned* location, unsigned* length) const override;
    bool IsSaveEnabled() const override { return m_bSaveEnabled; }
    bool IsPublishVisible() const override { return m_bPublishVisible; }
    int BeepCount() const override { return m_nBeepCount; }
    void Focus(bool focused) override { m_bFocused = focused; }
    void Select(unsigned location, unsigned length) override { SetSelectedRange(location, length); }
    bool Type(const char* utf8) override;
    bool DeleteBackward() override;
    void PressReturn() override;
    void PasteKey() override;
    void ClickPublish() override;
    void ClickSave() override;
    int MenuItemState(int tag) override;
    bool ChooseMenuItem(int tag) override;

    // A headless panel counts as shown, so the client's scroll countdown runs; tests hide it.
    void SetHidden(bool hidden) { m_bHidden = hidden; }
    int ScrollCount() const { return m_nScrollCount; }
    int AbortCount() const { return m_nAbortCount; }
    int DialogCount() const { return m_nDialogCount; }
    const std::string& LastDialogTitle() const { return m_strDialogTitle; }
    const std::string& LastDialogDefaultName() const { return m_strDialogDefaultName; }

private:
    // A whole new text: its length, and the caret after it.
    void TextReplaced();

    NoteViewController* m_pController = nullptr;
    std::string m_strText;
    unsigned m_nLength = 0;
    unsigned m_nSelectionLocation = 0;
    unsigned m_nSelectionLength = 0;
    bool m_bReadOnly = false;
    bool m_bHidden = false;
    bool m_bFocused = false;
    // As the panel is laid out: Save enabled, Publish shown and enabled.
    bool m_bSaveEnabled = true;
    bool m_bPublishEnabled = true;
    bool m_bPublishVisible = true;
    int m_nScrollCount = 0;
    int m_nBeepCount = 0;
    int m_nAbortCount = 0;
    bool m_bSaveDialogAborted = false;
    int m_nDialogCount = 0;
    std::string m_strDialogTitle;
    std::string m_strDialogDefaultName;
};
