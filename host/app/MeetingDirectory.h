// CMeetingDirectory: the meetings the windows of this process are in. Windows that open the
// same meeting share one IMeeting, so several people in one process are in one meeting (an
// in-process meeting exists only this way). A meeting stays open while a window holds it, so a
// window that leaves and rejoins finds the same meeting. Main thread only.
#pragma once

#include "app/SessionSettings.h"
#include "conference/Meeting.h"

#include <map>
#include <memory>
#include <string>

class CMeetingDirectory {
public:
    // The meeting the settings name, opened when no window holds it yet; null, with a
    // one-line reason in error, when it cannot be opened.
    std::shared_ptr<IMeeting> Open(const SSessionSettings& settings, std::string& error);

private:
    std::map<std::string, std::weak_ptr<IMeeting>> m_mapMeetings;
};
