// The one place where notehost reaches the Redis conference, for meetings across machines.
#pragma once

#include "conference/Meeting.h"

#include <memory>
#include <string>

// Opens the Redis meeting meetingId on the server at url ("redis://[user[:password]@]host[:port]"
// or "unix:///path/to/socket") as user with password (both may be empty). Null, with a one-line
// reason in error, when the meeting cannot be opened.
std::unique_ptr<IMeeting> OpenRedisMeeting(const std::string& url, const std::string& meetingId,
                                           const std::string& user, const std::string& password,
                                           std::string& error);
