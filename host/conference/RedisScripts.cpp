// Keys, scripts, ACL rules and the synchronous connection of the Redis-backed meeting.
#include "conference/RedisScripts.h"

#include "conference/RedisConference.h"

#include <glib.h>

#include <sys/time.h>

namespace {

// Ids of each kind start in their own range, so that one passed for another fails.
const char kHandshakeText[] = R"lua(
local hs, ttl, op = KEYS[1], tonumber(ARGV[1]), ARGV[2]
local function idFor(field, counter, base)
  local v = redis.call('HGET', hs, field)
  if not v then
    v = base + redis.call('HINCRBY', hs, counter, 1)
    redis.call('HSET', hs, field, v)
  end
  return tonumber(v)
end
local r = {}
if op == 'attach' then
  r[1] = 1000000 + redis.call('HINCRBY', hs, 'attach', 1)
elseif op == 'resource' then
  r[1] = idFor('r:' .. ARGV[3], 'resource', 300)
elseif op == 'names' then
  for i = 3, #ARGV do r[#r + 1] = idFor('n:' .. ARGV[i], 'name', 2000) end
else
  return redis.error_reply('ERR unknown handshake step')
end
redis.call('EXPIRE', hs, ttl)
return r
)lua";

// One put, decided whole: two writers racing for the newest item are serialised here, so only
// the first finds its item id still the newest.
const char kPutText[] = R"lua(
local hs, meta, log, items = KEYS[1], KEYS[2], KEYS[3], KEYS[4]
local ttl, h, mode, flags = tonumber(ARGV[1]), ARGV[2], tonumber(ARGV[3]), tonumber(ARGV[4])
local itemId, putter, token, seq = tonumber(ARGV[5]), ARGV[6], ARGV[7], tonumber(ARGV[8])
local t, bytes, maxBytes = ARGV[10], ARGV[11], tonumber(ARGV[12])
local doneField = 'w:' .. token .. ':' .. seq
local done = redis.call('HGET', meta, doneField)
if done then return done end
local pos = redis.call('HGET', meta, 'pos') or '0-0'
local top = tonumber(redis.call('HGET', meta, 'top:' .. h) or '0')
local function emit(...)
  local id = redis.call('XADD', log, '*', 'v', '1', 'h', h, 'p', putter, ...)
  redis.call('HSET', meta, 'pos', id)
  return id
end
local function finish(answer)
  redis.call('HSET', meta, doneField, answer)
  if seq > 64 then redis.call('HDEL', meta, 'w:' .. token .. ':' .. (seq - 64)) end
  for _, key in ipairs({hs, meta, log, items}) do redis.call('EXPIRE', key, ttl) end
  return answer
end
local function store(id, kind)
  local at = emit('k', kind, 'i', id, 'f', flags, 't', t, 'b', bytes)
  return at, id .. ':' .. putter .. ':' .. string.match(at, '^(%d+)') .. ':' .. t .. ':' .. bytes
end
if ARGV[9] ~= '1' then
  if bit.band(flags, 0x2000000) ~= 0 then
    redis.call('DEL', items)
    redis.call('HSET', meta, 'top:' .. h, 0)
    return finish('c 0 ' .. emit('k', 'c'))
  end
  return 's ' .. top .. ' ' .. pos
end
if #bytes > maxBytes then return redis.error_reply('ERR item too large') end
if mode == 1 or (mode == 2 and (itemId == 0 or top == 0)) then
  local id = redis.call('HINCRBY', meta, 'last:' .. h, 1)
  local at, packed = store(id, 'a')
  redis.call('RPUSH', items, packed)
  redis.call('HSET', meta, 'top:' .. h, id)
  return finish('a ' .. id .. ' ' .. at)
end
if mode == 2 and itemId == top then
  local at, packed = store(top, 'u')
  redis.call('LSET', items, -1, packed)
  return finish('u ' .. top .. ' ' .. at)
end
return 'r ' .. itemId .. ' ' .. pos
)lua";

const char kReadText[] = R"lua(
local pos = redis.call('HGET', KEYS[1], 'pos') or '0-0'
if ARGV[2] == 'newest' then return {pos, redis.call('HGET', KEYS[1], 'top:' .. ARGV[1]) or '0'} end
local r = redis.call('LRANGE', KEYS[2], 0, -1)
table.insert(r, 1, pos)
return r
)lua";

const char kEmitText[] = R"lua(
local args = {'XADD', KEYS[3], '*', 'v', '1'}
for i = 2, #ARGV do args[#args + 1] = ARGV[i] end
local id = redis.call(unpack(args))
redis.call('HSET', KEYS[2], 'pos', id)
for i = 1, 3 do redis.call('EXPIRE', KEYS[i], tonumber(ARGV[1])) end
return id
)lua";

// What both users may run; the scripts' own commands are checked against the key patterns.
const char* const kCommonCommands[] = {"+ping", "+evalsha", "+evalsha_ro", "+script|load", "+xread", "+xrange",
                                       "+lrange", "+hget", "+hgetall", "+hsetnx", "+hincrby", "+hset", "+expire"};
const char* const kWriterCommands[] = {"+hdel", "+del", "+rpush", "+lset", "+xadd"};

std::vector<std::string> BaseRules(const std::string& password)
{
    std::vector<std::string> rules{"reset", "on", ">" + password, "resetchannels", "-@all"};
    for (const char* command : kCommonCommands) rules.push_back(command);
    return rules;
}

}  // namespace

const CRedisScript kHandshakeScript{kHandshakeText};
const CRedisScript kPutScript{kPutText};
const CRedisScript kReadScript{kReadText};
const CRedisScript kEmitScript{kEmitText};

std::string CRedisScript::Sha1() const
{
    gchar* digest = g_compute_checksum_for_string(G_CHECKSUM_SHA1, pszText, -1);
    std::string sha(digest ? digest : "");
    g_free(digest);
    return sha;
}

std::vector<std::vector<std::string>> ScriptLoadCommands()
{
    std::vector<std::vector<std::string>> commands;
    for (const CRedisScript* script : {&kHandshakeScript, &kPutScript, &kReadScript, &kEmitScript})
        commands.push_back({"SCRIPT", "LOAD", script->pszText});
    return commands;
}

CRedisKeys::CRedisKeys(const std::string& meetingId)
    : strPrefix("note:{" + meetingId + "}:"),
      strHandshake(strPrefix + "hs"),
      strMeta(strPrefix + "meta"),
      strLog(strPrefix + "log")
{
}

std::string CRedisKeys::Items(unsigned cacheHandle) const
{
    return strPrefix + "items:" + std::to_string(cacheHandle);
}

bool IsValidMeetingId(const std::string& meetingId)
{
    if (meetingId.empty() || meetingId.size() > 64) return false;
    for (const char c : meetingId)
        if (!g_ascii_isalnum(c) && c != '.' && c != '_' && c != '-') return false;
    return true;
}

std::vector<std::string> WriterAclRules(const CRedisKeys& keys, const std::string& password)
{
    std::vector<std::string> rules = BaseRules(password);
    for (const char* command : kWriterCommands) rules.push_back(command);
    rules.push_back("~" + keys.strPrefix + "*");
    return rules;
}

std::vector<std::string> ReaderAclRules(const CRedisKeys& keys, const std::string& password)
{
    // Reads the whole meeting; writes only the handshake (its attach id, cache names).
    std::vector<std::string> rules = BaseRules(password);
    rules.push_back("%R~" + keys.strPrefix + "*");
    rules.push_back("~" + keys.strHandshake);
    return rules;
}

CRedisSyncContext ConnectRedisSync(const CRedisMeetingOptions& options, std::string& error)
{
    const timeval timeout{2, 0};
    CRedisSyncContext context(options.strUnixSocket.empty()
                                  ? redisConnectWithTimeout(options.strHost.c_str(), options.nPort, timeout)
                                  : redisConnectUnixWithTimeout(options.strUnixSocket.c_str(), timeout));
    if (!context || context->err) {
        error = "cannot reach the Redis server at " + RedisServerName(options) +
                (context ? std::string(": ") + context->errstr : std::string());
        return nullptr;
    }
    redisSetTimeout(context.get(), timeout);
    if (!options.strPassword.empty()) {
        std::vector<std::string> auth{"AUTH"};
        if (!options.strUser.empty()) auth.push_back(options.strUser);
        auth.push_back(options.strPassword);
        std::string reason;
        if (!RedisCommandSync(context.get(), auth, reason)) {
            error = "the Redis server at " + RedisServerName(options) + " refused the credentials: " + reason;
            return nullptr;
        }
    }
    return context;
}

CRedisSyncReply RedisCommandSync(redisContext* context, const std::vector<std::string>& args, std::string& error)
{
    std::vector<const char*> argv;
    std::vector<size_t> lengths;
    for (const std::string& arg : args) {
        argv.push_back(arg.data());
        lengths.push_back(arg.size());
    }
    CRedisSyncReply reply(
        static_cast<redisReply*>(redisCommandArgv(context, static_cast<int>(argv.size()), argv.data(), lengths.data())));
    if (!reply) {
        error = context->errstr[0] ? context->errstr : "connection lost";
        return nullptr;
    }
    if (reply->type == REDIS_REPLY_ERROR) {
        error.assign(reply->str, reply->len);
        return nullptr;
    }
    return reply;
}
