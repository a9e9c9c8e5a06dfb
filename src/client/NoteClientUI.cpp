// CNoteClient: UI messages, the tick, roles and the notepad type.
#include "client/CNoteClient.h"

#include "client/NoteClientPanel.h"
#include "tessarinnote/notehostui.h"

#include <new>

namespace {

bool IsSingleWriterType(unsigned type)
{
    return type == NOTETAKER_SINGLE || type == NOTETAKER_CLOSED_CAPTIONS;
}

}  // namespace

int CNoteClient::HandleUIMessage(int nMsg, void* pIn, void* pOut)
{
    MacInfoTrace2("note", "CNoteClient::HandleUIMessage %d", nMsg);
    switch (nMsg) {
    case NOTEUI_SEND_EDIT: {
        const unsigned char bPressEnter = pIn ? *static_cast<unsigned char*>(pIn) : 0;
        SendChangeInfoPDU(bPressEnter);
        m_bHasContent = GetNoteTextLength() != 0 ? 1 : 0;
        notepanel::SendFlag(m_pUI, NOTEUI_ENABLE_PUBLISH, m_bHasContent != 0);
        break;
    }
    case NOTEUI_SAVE:
        OnSave();
        break;
    case NOTEUI_QUERY_NEED_SAVE:
        if (pOut) *static_cast<unsigned char*>(pOut) = m_bFileNeedSave;
        break;
    case NOTEUI_QUERY_CAN_PUBLISH:
        if (pOut && m_nUserType == NOTE_USER_WRITER && IsSingleWriterType(m_nNotePadType)) {
            const bool canPublish = GetNoteTextLength() != 0 || m_bHasContent != 0;
            *static_cast<unsigned char*>(pOut) = canPublish ? 1 : 0;
        }
        break;
    case NOTEUI_TEXT_CHANGED:
        m_bTextChanged = 1;
        break;
    default:
        break;
    }
    return 0;
}

void CNoteClient::OnTick()
{
    if (m_nScrolltoEnd > 0) {
        // The countdown waits while nobody can see the panel.
        unsigned char hidden = 0;
        if (m_pUI) notepanel::Send(m_pUI, NOTEUI_IS_HIDDEN, nullptr, &hidden);
        if (!hidden) {
            --m_nScrolltoEnd;
            if (m_nScrolltoEnd == 0 && m_pUI) notepanel::Send(m_pUI, NOTEUI_SCROLL_TO_END);
        }
    }
    if (!m_bTextChanged) return;
    m_bTextChanged = 0;
    const std::string text = notepanel::Text(m_pUI, NOTEUI_GET_TEXT_RAW);
    const bool empty = text.empty();
    if (IsSingleWriterType(m_nNotePadType) && m_nUserType != NOTE_USER_READER)
        notepanel::SendFlag(m_pUI, NOTEUI_ENABLE_PUBLISH, !empty || m_bHasContent != 0);
    if (m_pHostSink) m_pHostSink->SaveEnabledChanged(empty && m_bNoFileSaveYet ? 0 : 1);
    if (m_bModifiedSinceFileSave == 0) {
        // Once a difference from the saved file is seen it sticks until the next save.
        if (text != m_strLastFileSaveContent) {
            SetFileNeedSave(true);
            m_bModifiedSinceFileSave = 1;
            m_bNeedAutoSave = 1;
        } else {
            SetFileNeedSave(false);
        }
    }
    if (m_bNoFileSaveYet) SetFileNeedSave(!empty);
}

int CNoteClient::SetUserType(int userType)
{
    const unsigned newType = static_cast<unsigned>(userType);
    if (newType != m_nUserType && IsSingleWriterType(m_nNotePadType)) {
        if (m_nUserType == NOTE_USER_WRITER && newType == NOTE_USER_READER) {
            // The writer's unsent edits leave the panel with the role.
            if (m_strOldMsg.empty()) {
                SetNoteTextData(std::string());
                m_strShowMsg = notepanel::Text(m_pUI, NOTEUI_GET_TEXT_CRLF);
                m_bNeedAutoSave = 1;
            } else {
                SetNoteTextData(m_strOldMsg);
            }
        } else if (m_nUserType == NOTE_USER_READER && newType == NOTE_USER_WRITER) {
            if (GetNoteTextLength() == 0) m_bHasContent = 0;
        }
    }
    m_nUserType = newType;
    notepanel::SendInt(m_pUI, NOTEUI_SET_USER_TYPE, userType);
    SetCtrl();
    ChangeMessage();
    return 0;
}

int CNoteClient::SetNotepadType(NOTETAKERTYPE type)
{
    if (type == m_nNotePadType) return 0;
    notepanel::Send(m_pUI, NOTEUI_ABORT_SAVE_DIALOG);

    const unsigned maxLen =
        type == NOTETAKER_CLOSED_CAPTIONS ? kCaptionsMaxTextLen : kNotesMaxTextLen;
    if (m_nMaxTextLen != maxLen) {
        // Out of memory keeps the old buffer and the limit that fits it.
        char* buffer = NewTextBuf(BufSizeFor(maxLen));
        if (buffer) {
            FreeTextBuf(m_pTextBuf);
            m_pTextBuf = buffer;
            m_nMaxTextLen = maxLen;
            m_nTextBufSize = BufSizeFor(maxLen);
            m_nTextBufDirty = 0;  // allocated zeroed
        } else {
            MacInfoTrace2("note", "CNoteClient::SetNotepadType, no memory for %u bytes",
                          BufSizeFor(maxLen));
        }
    }
    notepanel::SendInt(m_pUI, NOTEUI_SET_MAX_LENGTH, static_cast<int>(m_nMaxTextLen));
    m_strSaveFileName.clear();

    m_nNotePadType = type;
    notepanel::SendInt(m_pUI, NOTEUI_SET_NOTEPAD_TYPE, static_cast<int>(type));
    SetNoteTextData(std::string());
    m_SaveInfo.m_vecChangeInfoPdu.clear();

    // The note taker's old changes must not reach whoever joins the new notepad.
    if (type != NOTETAKER_CLOSED_CAPTIONS && m_nUserType == NOTE_USER_WRITER && m_nApeUserId &&
        m_nLastCacheId && m_pArmService) {
        m_pArmService->ArmService_PutCacheItem(m_nApeUserId, m_nChangeCacheHandle, 0,
                                               m_nLastCacheId, CACHE_MODE_REPLACE_NEWEST,
                                               CACHE_FLAG_CLEAR, 0, 0, 2);
    }

    m_strOldMsg.clear();
    m_strShowMsg.clear();
    m_strPublishMsg = notepanel::Text(m_pUI, NOTEUI_GET_TEXT_CRLF);
    m_bSavedBefore = 0;
    m_bHasContent = 0;
    SetCtrl();
    ChangeMessage();
    m_strLastFileSaveContent.clear();
    m_bModifiedSinceFileSave = 0;
    m_bNoFileSaveYet = 1;
    return 0;
}

void CNoteClient::SetCtrl()
{
    if (!m_pHostSink) return;
    const bool hasText = GetNoteTextLength() > 0;
    // The writer's Publish button, need-save state and Save offer all follow the text.
    auto writerState = [&]() {
        notepanel::SendFlag(m_pUI, NOTEUI_ENABLE_PUBLISH, hasText);
        SetFileNeedSave(hasText);
        m_pHostSink->SaveEnabledChanged(hasText ? 1 : 0);
    };
    // A reader of another's notes or captions only reads.
    auto readerState = [&]() {
        notepanel::SendFlag(m_pUI, NOTEUI_SET_READ_ONLY, true);
        notepanel::SendFlag(m_pUI, NOTEUI_SHOW_PUBLISH, false);
    };
    const bool writer = m_nUserType == NOTE_USER_WRITER;
    const bool reader = m_nUserType == NOTE_USER_READER;
    switch (m_nNotePadType) {
    case NOTETAKER_ALL_PARTICIPANTS:
        notepanel::SendFlag(m_pUI, NOTEUI_SHOW_PUBLISH, false);
        notepanel::SendFlag(m_pUI, NOTEUI_SET_READ_ONLY, false);
        break;
    case NOTETAKER_SINGLE:
        if (writer) {
            notepanel::SendFlag(m_pUI, NOTEUI_SET_READ_ONLY, false);
            notepanel::SendFlag(m_pUI, NOTEUI_SHOW_PUBLISH, true);
            writerState();
            if (!hasText) m_strLastFileSaveContent.clear();
        } else if (reader) {
            readerState();
        }
        break;
    case NOTETAKER_CLOSED_CAPTIONS:
        if (writer) {
            notepanel::SendFlag(m_pUI, NOTEUI_SHOW_PUBLISH, true);
            notepanel::SendFlag(m_pUI, NOTEUI_SET_READ_ONLY, false);
            writerState();
        } else if (reader) {
            readerState();
        }
        break;
    default:
        break;
    }

    notepanel::SendFlag(m_pUI, NOTEUI_ENABLE_SAVE, hasText);
    SetFileNeedSave(hasText);
    if (!hasText) m_pHostSink->NeedSaveChanged(0);
    m_pHostSink->SaveEnabledChanged(hasText ? 1 : 0);
}

int CNoteClient::SetNBRStatus(unsigned long status, unsigned long unused1, unsigned long unused2)
{
    (void)unused1;
    (void)unused2;
    m_nNBRStatus = status;
    return 0;
}
