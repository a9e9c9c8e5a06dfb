// What the panel controller needs from a text view and its buttons, so that its rules stay
// toolkit-free: a Qt port draws a real panel, the headless port keeps everything in memory.
// Lengths and positions count UTF-16 units, as the toolkits' strings do.
#pragma once

#include <string>

class INoteTextViewPort {
public:
    virtual ~INoteTextViewPort() = default;

    virtual std::string Text() const = 0;           // UTF-8
    virtual void SetText(const std::string& utf8) = 0;
    virtual unsigned Length() const = 0;            // UTF-16 units
    virtual void SetReadOnly(bool readOnly) = 0;
    virtual void ScrollToEnd() = 0;                 // caret to the end
    virtual bool IsHidden() const = 0;
    virtual void SetSaveEnabled(bool enabled) = 0;
    virtual void SetPublishEnabled(bool enabled) = 0;
    virtual void SetPublishVisible(bool visible) = 0;
    virtual int PasteStatus() const = 0;
    virtual void SetMaxLength(unsigned maxLength) = 0;
    // Runs the save dialog: true and the chosen path when confirmed, false when cancelled.
    virtual bool RunSaveDialog(const std::string& title, const std::string& defaultName,
                               std::string& chosenPath) = 0;
    virtual void AbortSaveDialog() = 0;
    virtual void Beep() = 0;
};
