// notehost's Redis meetings: a URL, a meeting id and optional credentials, on the Redis
// conference. Replies arrive on the GLib default context, which Qt's event loop turns.
#include "app/RedisMeeting.h"

#include "conference/RedisConference.h"

std::unique_ptr<IMeeting> OpenRedisMeeting(const std::string& url, const std::string& meetingId,
                                           const std::string& user, const std::string& password,
                                           std::string& error)
{
    CRedisMeetingOptions options;
    if (!ParseRedisUrl(url, options, error)) return nullptr;
    options.strMeetingId = meetingId;
    if (!user.empty()) options.strUser = user;
    if (!password.empty()) options.strPassword = password;
    return NewRedisMeeting(options, error);
}
