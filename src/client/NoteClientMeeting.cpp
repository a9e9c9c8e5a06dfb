// CNoteClient: meeting loss and service notices.
//
// When the meeting's connection goes or comes back, a captions notepad gets a time-stamped
// notice line, so that readers see why captions stopped; every notepad is auto-saved.
#include "client/CNoteClient.h"

#include "boundscheck/boundscheck.h"
#include "platform/LoadLocalizedString.h"
#include "tessarinnote/uiinterface.h"

#include <cstdio>
#include <ctime>
#include <new>
#include <string>

namespace {

const int kLostKind = 1;
// The host's kind for the client's own text coming back: no notice, no save.
const int kSelfChangeKind = 5;
const char kNoticeUnavailable[] =
    "Closed Captions is currently unavailable. Service will be restored as soon as possible.";
const char kNoticeRestored[] = "Service restored.";

void SystemLocalTime(int* hour, int* minute)
{
    const time_t now = time(nullptr);
    struct tm local = {};
    if (!localtime_r(&now, &local)) return;
    *hour = local.tm_hour;
    *minute = local.tm_min;
}

// "hh:mmam " up to 12 o'clock and "hh:mmpm " after it. Noon is deliberately written with am,
// and midnight as 00.
std::string TimeStamp(int hour, int minute)
{
    char stamp[256] = {};
    if (hour <= 12)
        snprintf(stamp, sizeof stamp, "%02d:%02dam ", hour, minute);
    else
        snprintf(stamp, sizeof stamp, "%02d:%02dpm ", hour - 12, minute);
    return stamp;
}

}  // namespace

int CNoteClient::MeetingLost(int kind)
{
    std::string current;
    if (m_pUI) NotifyCocoaUI(m_pUI, NOTEUI_GET_TEXT_CRLF, nullptr, &current, nullptr);

    if (kind == kSelfChangeKind) {
        m_strShowMsg = current;
        m_bSelfChange = 1;
        return 0;
    }

    if (m_nNotePadType == NOTETAKER_CLOSED_CAPTIONS) {
        const std::string notice = GetLocalizedString(
            kind == kLostKind ? kNoticeUnavailable : kNoticeRestored, kTessarinNoteBundleId, nullptr);
        int hour = 0;
        int minute = 0;
        (m_pfnNoticeClock ? m_pfnNoticeClock : SystemLocalTime)(&hour, &minute);
        const std::string entry = TimeStamp(hour, minute) + notice;

        SetNoteTextData(current + "\n" + entry + "\n");
        m_bNeedAutoSave = 1;
        if (!entry.empty()) {
            char* info = new (std::nothrow) char[entry.size() + 1]();
            if (info) {
                memcpy_s(info, entry.size() + 1, entry.data(), entry.size());
                m_aNetInfo.push_back(info);
            }
        }
        ChangeMessage();
    }

    AutoSaveXMLFile();
    m_strShowMsg = current;
    return 0;
}
