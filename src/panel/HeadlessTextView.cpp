// The in-memory panel and the person at it.
#include "panel/HeadlessTextView.h"

#include "panel/NoteViewController.h"
#include "panel/TextUnits.h"
#include "tessarinnote/notehostui.h"

#include <algorithm>

CHeadlessTextView::~CHeadlessTextView()
{
    if (m_pController) NoteHostUI_AnnounceHeadlessPanel(this, 0);
}

void CHeadlessTextView::Attach(NoteViewController& controller)
{
    m_pController = &controller;
    NoteHostUI_AnnounceHeadlessPanel(this, 1);
}

void CHeadlessTextView::SetText(const std::string& utf8)
{
    m_strText = utf8;
    TextReplaced();
}

void CHeadlessTextView::TakeText(std::string& utf8)
{
    m_strText.swap(utf8);
    TextReplaced();
}

void CHeadlessTextView::TextReplaced()
{
    m_nLength = Utf16Length(m_strText);
    m_nSelectionLocation = m_nLength;
    m_nSelectionLength = 0;
}

void CHeadlessTextView::GetSelectedRange(unsigned& location, unsigned& length) const
{
    location = m_nSelectionLocation;
    length = m_nSelectionLength;
}

void CHeadlessTextView::SetSelectedRange(unsigned location, unsigned length)
{
    m_nSelectionLocation = std::min(location, m_nLength);
    m_nSelectionLength = std::min(length, m_nLength - m_nSelectionLocation);
}

void CHeadlessTextView::ReplaceRange(unsigned location, unsigned length, const std::string& utf8)
{
    location = std::min(location, m_nLength);
    length = std::min(length, m_nLength - location);
    const size_t from = Utf8PrefixBytes(m_strText, location);
    const size_t to = Utf8PrefixBytes(m_strText, location + length);
    m_strText.replace(from, to - from, utf8);
    m_nLength = Utf16Length(m_strText);
    m_nSelectionLocation = std::min(location + Utf16Length(utf8), m_nLength);
    m_nSelectionLength = 0;
}

bool CHeadlessTextView::PasteboardString(std::string& text) const
{
    const char* clip = NoteHostUI_ClipboardText();
    if (!clip) return false;
    text = clip;
    return true;
}

bool CHeadlessTextView::PasteboardURL(std::string& url) const
{
    const char* clip = NoteHostUI_ClipboardURL();
    if (!clip) return false;
    url = clip;
    return true;
}

void CHeadlessTextView::SetPasteboardString(const std::string& text)
{
    NoteHostUI_SetClipboard(text.c_str(), nullptr);
}

INoteTextViewPort::ESaveDialogResult CHeadlessTextView::RunSaveDialog(
    const std::string& title, const std::string& defaultName, std::string& chosenPath)
{
    ++m_nDialogCount;
    m_strDialogTitle = title;
    m_strDialogDefaultName = defaultName;
    m_bSaveDialogAborted = false;
    const char* chosen = NoteHostUI_ChooseSaveFile(title.c_str(), defaultName.c_str());
    if (m_bSaveDialogAborted) return kSaveAborted;
    if (!chosen) return kSaveCancelled;
    chosenPath = chosen;
    return kSaveConfirmed;
}

void CHeadlessTextView::GetSelection(unsigned* location, unsigned* length) const
{
    if (location) *location = m_nSelectionLocation;
    if (length) *length = m_nSelectionLength;
}

bool CHeadlessTextView::Type(const char* utf8)
{
    if (!m_pController || !utf8) return false;
    return m_pController->TextView().insertText(utf8);
}

bool CHeadlessTextView::DeleteBackward()
{
    return m_pController && m_pController->TextView().deleteBackward();
}

void CHeadlessTextView::PressReturn()
{
    if (m_pController) m_pController->TextView().insertNewline();
}

void CHeadlessTextView::PasteKey()
{
    if (m_pController) m_pController->TextView().paste();
}

void CHeadlessTextView::ClickPublish()
{
    // A hidden or disabled button takes no click.
    if (m_pController && m_bPublishVisible && m_bPublishEnabled) m_pController->onPublish(true);
}

void CHeadlessTextView::ClickSave()
{
    if (m_pController && m_bSaveEnabled) m_pController->onSave();
}

int CHeadlessTextView::MenuItemState(int tag)
{
    NoteMenu* menu = m_pController ? m_pController->TextView().menuForEvent(true) : nullptr;
    if (!menu || !menu->HasItem(tag)) return -1;
    return menu->IsEnabled(tag) ? 1 : 0;
}

bool CHeadlessTextView::ChooseMenuItem(int tag)
{
    if (MenuItemState(tag) != 1) return false;
    m_pController->TextView().OnMenuCommand(tag);
    return true;
}
