// The meetings of this process's windows.
#include "app/MeetingDirectory.h"

#include "app/RedisMeeting.h"
#include "conference/LocalConference.h"

std::shared_ptr<IMeeting> CMeetingDirectory::Open(const SSessionSettings& settings, std::string& error)
{
    if (settings.strMeetingId.empty()) {
        error = "a meeting needs an id";
        return nullptr;
    }
    const bool redis = settings.conference == EConference::kRedis;
    const std::string key =
        redis ? "redis " + settings.strRedisUrl + " " + settings.strMeetingId : "local " + settings.strMeetingId;
    if (std::shared_ptr<IMeeting> open = m_mapMeetings[key].lock()) return open;

    std::shared_ptr<IMeeting> meeting;
    if (redis)
        meeting = OpenRedisMeeting(settings.strRedisUrl, settings.strMeetingId, settings.strRedisUser,
                                   settings.strRedisPassword, error);
    else
        meeting = NewLocalMeeting(CMeetingOptions());
    if (meeting)
        m_mapMeetings[key] = meeting;
    else
        m_mapMeetings.erase(key);
    return meeting;
}
