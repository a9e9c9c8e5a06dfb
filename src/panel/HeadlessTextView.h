// CHeadlessTextView: the panel's text view for hosts without a view, and for tests. It keeps
// the text in memory and records what the controller does to the view (read-only state, the
// buttons, beeps, scrolls, dialogs), so a test can look at every effect. The save dialog is
// answered from a scripted answer instead of a person. Main thread only.
#pragma once

#include "panel/NoteTextViewPort.h"

#include <string>

class CHeadlessTextView : public INoteTextViewPort {
public:
    std::string Text() const override { return m_strText; }
    void SetText(const std::string& utf8) override;
    unsigned Length() const override { return m_nLength; }
    void SetReadOnly(bool readOnly) override { m_bReadOnly = readOnly; }
    void ScrollToEnd() override { ++m_nScrollCount; }
    bool IsHidden() const override { return m_bHidden; }
    void SetSaveEnabled(bool enabled) override { m_bSaveEnabled = enabled; }
    void SetPublishEnabled(bool enabled) override { m_bPublishEnabled = enabled; }
    void SetPublishVisible(bool visible) override { m_bPublishVisible = visible; }
    int PasteStatus() const override { return m_nPasteStatus; }
    void SetMaxLength(unsigned maxLength) override { m_nMaxLength = maxLength; }
    bool RunSaveDialog(const std::string& title, const std::string& defaultName,
                       std::string& chosenPath) override;
    void AbortSaveDialog() override { ++m_nAbortCount; }
    void Beep() override { ++m_nBeepCount; }

    // The answer the next save dialogs give: confirmed with path, or cancelled. Until set,
    // every dialog is cancelled.
    void SetDialogAnswer(bool confirm, const std::string& path);
    // A headless panel counts as shown, so the client's scroll countdown runs; tests hide it.
    void SetHidden(bool hidden) { m_bHidden = hidden; }
    void SetPasteStatus(int status) { m_nPasteStatus = status; }

    bool IsReadOnly() const { return m_bReadOnly; }
    bool IsSaveEnabled() const { return m_bSaveEnabled; }
    bool IsPublishEnabled() const { return m_bPublishEnabled; }
    bool IsPublishVisible() const { return m_bPublishVisible; }
    unsigned MaxLength() const { return m_nMaxLength; }
    int ScrollCount() const { return m_nScrollCount; }
    int BeepCount() const { return m_nBeepCount; }
    int AbortCount() const { return m_nAbortCount; }
    int DialogCount() const { return m_nDialogCount; }
    const std::string& LastDialogTitle() const { return m_strDialogTitle; }
    const std::string& LastDialogDefaultName() const { return m_strDialogDefaultName; }

private:
    std::string m_strText;
    unsigned m_nLength = 0;
    bool m_bReadOnly = false;
    bool m_bHidden = false;
    // As the panel is laid out: Save enabled, Publish shown and enabled.
    bool m_bSaveEnabled = true;
    bool m_bPublishEnabled = true;
    bool m_bPublishVisible = true;
    int m_nPasteStatus = 0;  // not the first responder: nothing to paste into
    unsigned m_nMaxLength = 0;
    int m_nScrollCount = 0;
    int m_nBeepCount = 0;
    int m_nAbortCount = 0;
    int m_nDialogCount = 0;
    bool m_bDialogConfirms = false;
    std::string m_strDialogPath;
    std::string m_strDialogTitle;
    std::string m_strDialogDefaultName;
};
