// The in-memory text view.
#include "panel/HeadlessTextView.h"

#include "panel/TextUnits.h"

void CHeadlessTextView::SetText(const std::string& utf8)
{
    m_strText = utf8;
    m_nLength = Utf16Length(m_strText);
}

bool CHeadlessTextView::RunSaveDialog(const std::string& title, const std::string& defaultName,
                                      std::string& chosenPath)
{
    ++m_nDialogCount;
    m_strDialogTitle = title;
    m_strDialogDefaultName = defaultName;
    if (!m_bDialogConfirms) return false;
    chosenPath = m_strDialogPath;
    return true;
}

void CHeadlessTextView::SetDialogAnswer(bool confirm, const std::string& path)
{
    m_bDialogConfirms = confirm;
    m_strDialogPath = path;
}
