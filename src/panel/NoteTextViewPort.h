// What the panel's rules need from a toolkit: the text view, the general pasteboard, the two
// buttons, the save dialog and the beep. The rules themselves (NoteViewController, NoteTextView)
// stay toolkit-free: a Qt port draws a real panel, the headless port keeps everything in memory.
// Lengths and positions count UTF-16 units, as the toolkits' strings do.
#pragma once

#include <string>

class INoteTextViewPort {
public:
    virtual ~INoteTextViewPort() = default;

    // The text view. Setting or replacing text does not ask the rules; they ask before.
    // UTF-8; valid until the text changes. Texts run to hundreds of kilobytes: not copied.
    virtual const std::string& Text() const = 0;
    virtual void SetText(const std::string& utf8) = 0;
    // As SetText, and may take utf8's memory in exchange: utf8 is left with some other content.
    virtual void TakeText(std::string& utf8) { SetText(utf8); }
    virtual unsigned Length() const = 0;
    virtual void GetSelectedRange(unsigned& location, unsigned& length) const = 0;
    virtual void SetSelectedRange(unsigned location, unsigned length) = 0;
    // Replaces the units [location, location + length) and puts the caret after the new text.
    virtual void ReplaceRange(unsigned location, unsigned length, const std::string& utf8) = 0;
    virtual bool IsReadOnly() const = 0;
    virtual void SetReadOnly(bool readOnly) = 0;
    // Whether the text view receives the window's typing and pasting.
    virtual bool IsFirstResponder() const = 0;
    virtual void ScrollRangeToVisible(unsigned location, unsigned length) = 0;
    // No window, window not visible, or the text view hidden.
    virtual bool IsHidden() const = 0;

    // The general pasteboard: its plain string, its URL as an absolute string; false when the
    // pasteboard holds no such type.
    virtual bool PasteboardString(std::string& text) const = 0;
    virtual bool PasteboardURL(std::string& url) const = 0;
    virtual void SetPasteboardString(const std::string& text) = 0;

    virtual void SetSaveEnabled(bool enabled) = 0;
    virtual void SetPublishEnabled(bool enabled) = 0;
    virtual bool IsPublishEnabled() const = 0;
    virtual void SetPublishVisible(bool visible) = 0;

    // Runs the save dialog modally; the chosen path when confirmed.
    enum ESaveDialogResult { kSaveConfirmed, kSaveCancelled, kSaveAborted };
    virtual ESaveDialogResult RunSaveDialog(const std::string& title,
                                            const std::string& defaultName,
                                            std::string& chosenPath) = 0;
    virtual void AbortSaveDialog() = 0;
    virtual void Beep() = 0;
};
