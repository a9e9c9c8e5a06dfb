// Opening a Redis-backed meeting, its administration (users, deletion) and its history: the
// synchronous calls of RedisConference.h.
#include "conference/RedisConference.h"

#include "conference/RedisMeeting.h"
#include "conference/RedisScripts.h"
#include "conference/RedisWire.h"
#include "conference/SealedRecords.h"

#include <signal.h>
#include <sodium.h>

#include <set>

namespace {

std::string InvalidIdMessage(const std::string& meetingId)
{
    return "meeting id \"" + meetingId + "\" must be 1 to 64 letters, digits, '.', '_' or '-'";
}

std::string WriterName(const std::string& meetingId)
{
    return "note-" + meetingId + "-writer";
}

std::string ReaderName(const std::string& meetingId)
{
    return "note-" + meetingId + "-reader";
}

std::string NewPassword()
{
    unsigned char raw[16];
    randombytes_buf(raw, sizeof raw);
    char hex[2 * sizeof raw + 1];
    sodium_bin2hex(hex, sizeof hex, raw, sizeof raw);
    return hex;
}

// The meeting's sealing key, made by the first process that asks.
bool SharedPkiKey(redisContext* context, const CRedisKeys& keys, const CRedisMeetingOptions& options,
                  std::string& key, std::string& error)
{
    const std::string fresh = MakeSealedRecordsKey();
    if (fresh.empty()) {
        error = "no cipher for a PKI meeting";
        return false;
    }
    CRedisSyncReply made = RedisCommandSync(context, {"HSETNX", keys.strHandshake, "pki", fresh}, error);
    CRedisSyncReply read = made ? RedisCommandSync(context, {"HGET", keys.strHandshake, "pki"}, error) : nullptr;
    if (!read || read->type != REDIS_REPLY_STRING || read->len != CSealedRecords::kKeyLength) {
        if (error.empty()) error = "the meeting's key is damaged";
        return false;
    }
    key.assign(read->str, read->len);
    return RedisCommandSync(context, {"EXPIRE", keys.strHandshake, std::to_string(options.nTtlSeconds)}, error) !=
           nullptr;
}

// A connection for work on one meeting; null, with the reason, for a malformed meeting id or a
// server that cannot be reached.
CRedisSyncContext ConnectToMeeting(const CRedisMeetingOptions& options, std::string& error)
{
    if (!IsValidMeetingId(options.strMeetingId)) {
        error = InvalidIdMessage(options.strMeetingId);
        return nullptr;
    }
    return ConnectRedisSync(options, error);
}

}  // namespace

bool ParseRedisUrl(const std::string& url, CRedisMeetingOptions& options, std::string& error)
{
    static const std::string kUnix = "unix://";
    static const std::string kRedis = "redis://";
    if (url.compare(0, kUnix.size(), kUnix) == 0) {
        const std::string path = url.substr(kUnix.size());
        if (path.empty() || path[0] != '/') {
            error = "a unix URL needs an absolute socket path: " + url;
            return false;
        }
        options.strUnixSocket = path;
        return true;
    }
    if (url.compare(0, kRedis.size(), kRedis) != 0) {
        error = "not a redis:// or unix:// URL: " + url;
        return false;
    }
    std::string rest = url.substr(kRedis.size());
    if (!rest.empty() && rest.back() == '/') rest.pop_back();
    std::string user;
    std::string password;
    const std::size_t at = rest.rfind('@');
    if (at != std::string::npos) {
        const std::string credentials = rest.substr(0, at);
        const std::size_t colon = credentials.find(':');
        user = credentials.substr(0, colon);
        if (colon != std::string::npos) password = credentials.substr(colon + 1);
        rest = rest.substr(at + 1);
    }
    std::string host = rest;
    int port = 6379;
    const std::size_t colon = rest.rfind(':');
    if (colon != std::string::npos) {
        host = rest.substr(0, colon);
        unsigned parsed = 0;
        const std::string digits = rest.substr(colon + 1);
        if (!ParseUnsigned(digits.data(), digits.size(), parsed) || parsed == 0 || parsed > 65535) {
            error = "not a port number in " + url;
            return false;
        }
        port = static_cast<int>(parsed);
    }
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);  // IPv6
    if (host.empty() || host.find('/') != std::string::npos) {
        error = "no host in " + url;
        return false;
    }
    options.strHost = host;
    options.nPort = port;
    options.strUnixSocket.clear();
    if (at != std::string::npos) {
        options.strUser = user;
        options.strPassword = password;
    }
    return true;
}

std::string RedisServerName(const CRedisMeetingOptions& options)
{
    return options.strUnixSocket.empty() ? options.strHost + ":" + std::to_string(options.nPort)
                                         : options.strUnixSocket;
}

std::unique_ptr<IMeeting> NewRedisMeeting(const CRedisMeetingOptions& options, std::string& error)
{
    CRedisSyncContext context = ConnectToMeeting(options, error);
    if (!context) return nullptr;
    const CRedisKeys keys(options.strMeetingId);
    std::string key;
    if (options.bPki && !SharedPkiKey(context.get(), keys, options, key, error)) {
        error = "meeting " + options.strMeetingId + " on " + RedisServerName(options) + ": " + error;
        return nullptr;
    }
    // Participants hear what happens from now on; what came before reaches them as history.
    CRedisSyncReply position = RedisCommandSync(context.get(), {"HGET", keys.strMeta, "pos"}, error);
    CStreamId start;
    if (!position || (position->type == REDIS_REPLY_STRING && !start.Parse(position->str, position->len))) {
        error = "meeting " + options.strMeetingId + " on " + RedisServerName(options) + " cannot be read: " + error;
        return nullptr;
    }
    // A server that goes away while we write to it would otherwise end the process.
    struct sigaction current;
    if (sigaction(SIGPIPE, nullptr, &current) == 0 && current.sa_handler == SIG_DFL) signal(SIGPIPE, SIG_IGN);
    GMainContext* main = options.pContext ? options.pContext : g_main_context_get_thread_default();
    if (!main) main = g_main_context_default();
    return std::make_unique<CRedisMeeting>(options, main, key, start);
}

bool IsRedisMeetingSettled(const IMeeting& meeting)
{
    const CRedisMeeting* redis = dynamic_cast<const CRedisMeeting*>(&meeting);
    return redis && redis->IsSettled();
}

bool IsRedisParticipantLive(const IMeeting& meeting, const IArmService* service)
{
    const CRedisMeeting* redis = dynamic_cast<const CRedisMeeting*>(&meeting);
    return redis && redis->IsLive(service);
}

bool RedisMeetingRefusesUs(const IMeeting& meeting, std::string* reason)
{
    const CRedisMeeting* redis = dynamic_cast<const CRedisMeeting*>(&meeting);
    return redis && redis->RefusesUs(reason);
}

unsigned RedisMeetingRefusedPuts(const IMeeting& meeting, std::string* lastReason)
{
    const CRedisMeeting* redis = dynamic_cast<const CRedisMeeting*>(&meeting);
    if (lastReason) lastReason->clear();
    return redis ? redis->RefusedPuts(lastReason) : 0;
}

bool RedisMeetingExists(const CRedisMeetingOptions& options, bool& exists, std::string& error)
{
    exists = false;
    CRedisSyncContext context = ConnectToMeeting(options, error);
    if (!context) return false;
    // Every participant's join writes the handshake; it expires with the rest of the keys.
    const CRedisKeys keys(options.strMeetingId);
    CRedisSyncReply reply = RedisCommandSync(context.get(), {"EXISTS", keys.strHandshake}, error);
    if (!reply || reply->type != REDIS_REPLY_INTEGER) {
        if (error.empty()) error = "an answer of the wrong form";
        error = "meeting " + options.strMeetingId + " on " + RedisServerName(options) + " cannot be read: " + error;
        return false;
    }
    exists = reply->integer == 1;
    return true;
}

bool CreateRedisMeeting(const CRedisMeetingOptions& admin, CRedisMeetingCredentials& credentials, std::string& error)
{
    if (!IsValidMeetingId(admin.strMeetingId)) {
        error = InvalidIdMessage(admin.strMeetingId);
        return false;
    }
    if (sodium_init() < 0) {
        error = "no random source for passwords";
        return false;
    }
    CRedisSyncContext context = ConnectRedisSync(admin, error);
    if (!context) return false;
    const CRedisKeys keys(admin.strMeetingId);
    const std::string writer = WriterName(admin.strMeetingId);
    const std::string reader = ReaderName(admin.strMeetingId);
    CRedisSyncReply existing = RedisCommandSync(context.get(), {"ACL", "GETUSER", writer}, error);
    if (!existing) return false;
    if (existing->type != REDIS_REPLY_NIL) {
        error = "meeting " + admin.strMeetingId + " already exists on " + RedisServerName(admin);
        return false;
    }
    CRedisMeetingCredentials made{writer, NewPassword(), reader, NewPassword()};
    std::vector<std::string> setWriter{"ACL", "SETUSER", writer};
    for (std::string& rule : WriterAclRules(keys, made.strWriterPassword)) setWriter.push_back(std::move(rule));
    std::vector<std::string> setReader{"ACL", "SETUSER", reader};
    for (std::string& rule : ReaderAclRules(keys, made.strReaderPassword)) setReader.push_back(std::move(rule));
    if (!RedisCommandSync(context.get(), setWriter, error) || !RedisCommandSync(context.get(), setReader, error)) {
        error = "cannot create the users of meeting " + admin.strMeetingId + ": " + error;
        return false;
    }
    credentials = made;
    return true;
}

bool DeleteRedisMeeting(const CRedisMeetingOptions& admin, std::string& error)
{
    CRedisSyncContext context = ConnectToMeeting(admin, error);
    if (!context) return false;
    // Deleting a user also closes its connections.
    if (!RedisCommandSync(context.get(),
                          {"ACL", "DELUSER", WriterName(admin.strMeetingId), ReaderName(admin.strMeetingId)}, error))
        return false;
    const CRedisKeys keys(admin.strMeetingId);
    std::string cursor = "0";
    do {
        CRedisSyncReply page =
            RedisCommandSync(context.get(), {"SCAN", cursor, "MATCH", keys.strPrefix + "*", "COUNT", "500"}, error);
        if (!page || page->type != REDIS_REPLY_ARRAY || page->elements != 2 ||
            page->element[0]->type != REDIS_REPLY_STRING || page->element[1]->type != REDIS_REPLY_ARRAY) {
            if (error.empty()) error = "the server's key listing could not be read";
            return false;
        }
        cursor.assign(page->element[0]->str, page->element[0]->len);
        std::vector<std::string> unlink{"UNLINK"};
        for (std::size_t i = 0; i < page->element[1]->elements; ++i)
            unlink.emplace_back(page->element[1]->element[i]->str, page->element[1]->element[i]->len);
        if (unlink.size() > 1 && !RedisCommandSync(context.get(), unlink, error)) return false;
    } while (cursor != "0");
    return true;
}

bool ReadRedisMeetingHistory(const CRedisMeetingOptions& options, std::vector<CRecordedItem>& items,
                             std::string& error)
{
    items.clear();
    CRedisSyncContext context = ConnectToMeeting(options, error);
    if (!context) return false;
    const CRedisKeys keys(options.strMeetingId);
    CRedisSyncReply handshake = RedisCommandSync(context.get(), {"HGETALL", keys.strHandshake}, error);
    if (!handshake || handshake->type != REDIS_REPLY_ARRAY) return false;
    std::set<unsigned> caches;
    for (std::size_t i = 0; i + 1 < handshake->elements; i += 2) {
        const redisReply* field = handshake->element[i];
        const redisReply* value = handshake->element[i + 1];
        unsigned handle = 0;
        if (field->type == REDIS_REPLY_STRING && field->len > 2 && field->str[0] == 'n' && field->str[1] == ':' &&
            value->type == REDIS_REPLY_STRING && ParseUnsigned(value->str, value->len, handle))
            caches.insert(handle);
    }
    for (const unsigned cache : caches) {
        CRedisSyncReply list = RedisCommandSync(context.get(), {"LRANGE", keys.Items(cache), "0", "-1"}, error);
        if (!list || list->type != REDIS_REPLY_ARRAY) return false;
        for (std::size_t i = 0; i < list->elements; ++i) {
            CStoredItem item;
            const redisReply* element = list->element[i];
            if (element->type != REDIS_REPLY_STRING ||
                !ParseStoredItem(element->str, element->len, kMaxRedisItemBytes, item))
                continue;
            const double arrival = static_cast<double>(item.nServerMs) / 1000.0 - kReferenceDateUnixSeconds;
            items.push_back(CRecordedItem{cache, item.nId, item.nPutter, arrival, *item.pBytes});
        }
    }
    return true;
}
