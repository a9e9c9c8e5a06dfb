// The Redis side of a meeting: its keys, the server-side scripts that decide every change
// atomically, the ACL rules that fence a meeting's users, and a synchronous connection for the
// few calls that are made outside the main loop's flow (opening, administration, history).
//
// Keys, all under "note:{meetingId}:" so one ACL pattern covers a meeting:
//   hs            hash: the handshake (attach, name and resource counters; "n:<cache name>" and
//                 "r:<session handle>" to their ids; "pki" the meeting's sealing key)
//   meta          hash: "pos" the newest log entry id, "last:<h>" the last cache id handed out,
//                 "top:<h>" the newest item's id (0 when empty), "w:<token>:<seq>" the answers
//                 to the last 64 puts of each writer process, so a put sent again after a lost
//                 connection gets its first answer instead of being applied twice
//   items:<h>     list: cache h's items in id order, each "id:putter:serverMs:loopTime:" + bytes
//   log           stream: every change, data unit and notice in meeting order; entry ids carry
//                 the server's milliseconds. Field "v" is "1" on every entry we write.
#pragma once

#include <hiredis/hiredis.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

struct CRedisMeetingOptions;

// The largest item a put may carry: above what the plug-in makes (a caption text of 409,600
// characters, escaped and uncompressed, is under 2.5 MB), far below what would hurt a server.
constexpr std::size_t kMaxRedisItemBytes = 4u * 1024u * 1024u;
// The largest log entry payload read back (a whole-text data unit, sealed, is below this).
constexpr std::size_t kMaxRedisEntryBytes = 8u * 1024u * 1024u;

struct CRedisKeys {
    explicit CRedisKeys(const std::string& meetingId);
    std::string strPrefix;
    std::string strHandshake;
    std::string strMeta;
    std::string strLog;
    std::string Items(unsigned cacheHandle) const;
};

// A meeting id: 1 to 64 characters of letters, digits, '.', '_' and '-' (nothing an ACL
// pattern or a key separator would read).
bool IsValidMeetingId(const std::string& meetingId);

// The scripts, and their SHA1 (what EVALSHA names them by).
struct CRedisScript {
    const char* pszText;
    std::string Sha1() const;
};
// KEYS hs; ARGV ttl, "attach" | "resource" session | "names" name...; answers an array of ids.
extern const CRedisScript kHandshakeScript;
// KEYS hs meta log items:h; ARGV ttl h mode flags itemId putter token seq hasBytes loopTime
// bytes. Answers "<status> <cacheId> <position>": a appended, u updated, r refused (stale),
// c cleared, s resynchronise (the newest id).
extern const CRedisScript kPutScript;
// Read only. KEYS meta items:h; ARGV h "newest" | "all". Answers {position, newest id} or
// {position, item...}.
extern const CRedisScript kReadScript;
// KEYS hs meta log; ARGV ttl field value...; adds one log entry, answers its id.
extern const CRedisScript kEmitScript;
// SCRIPT LOAD of every script, for a connection's greeting.
std::vector<std::vector<std::string>> ScriptLoadCommands();

// The ACL SETUSER arguments (after the user name) of a meeting's writer and reader.
std::vector<std::string> WriterAclRules(const CRedisKeys& keys, const std::string& password);
std::vector<std::string> ReaderAclRules(const CRedisKeys& keys, const std::string& password);

// --- synchronous use
struct CRedisContextFree {
    void operator()(redisContext* context) const { redisFree(context); }
};
struct CRedisReplyFree {
    void operator()(redisReply* reply) const { freeReplyObject(reply); }
};
typedef std::unique_ptr<redisContext, CRedisContextFree> CRedisSyncContext;
typedef std::unique_ptr<redisReply, CRedisReplyFree> CRedisSyncReply;

// Connects and authenticates (2 s timeouts); null with a one-line reason naming the server.
CRedisSyncContext ConnectRedisSync(const CRedisMeetingOptions& options, std::string& error);
// One command; null with a one-line reason on a lost connection or an error answer.
CRedisSyncReply RedisCommandSync(redisContext* context, const std::vector<std::string>& args, std::string& error);
