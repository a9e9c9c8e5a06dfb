// notehost's Redis meetings.
//
// >>> REDIS CONFERENCE HOOK <<<
// The Redis conference (host/conference/RedisConference.h: ParseRedisUrl, NewRedisMeeting) has
// no implementation in this build yet, so this function refuses every Redis meeting. Once it
// exists, OpenRedisMeeting becomes: CRedisMeetingOptions options; ParseRedisUrl(url, options,
// error) or fail; options.strMeetingId = meetingId; options.strUser = user (when not empty);
// options.strPassword = password (when not empty); return NewRedisMeeting(options, error); and
// host/app/CMakeLists.txt links the Redis conference's library. Nothing else in notehost
// changes: the start dialog already offers Redis and its URL, user and password.
#include "app/RedisMeeting.h"

std::unique_ptr<IMeeting> OpenRedisMeeting(const std::string& url, const std::string& meetingId,
                                           const std::string& user, const std::string& password,
                                           std::string& error)
{
    (void)url;
    (void)meetingId;
    (void)user;
    (void)password;
    error = "this build has no Redis conference yet; choose the in-process conference";
    return nullptr;
}
