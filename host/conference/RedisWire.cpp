// Checked reading of stream ids, log entries, stored items and put answers.
#include "conference/RedisWire.h"

#include <glib.h>
#include <hiredis/hiredis.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstring>
#include <map>

namespace {

bool ParseU64(const char* text, std::size_t length, std::uint64_t& value)
{
    if (length == 0 || length > 20) return false;
    std::uint64_t v = 0;
    for (std::size_t i = 0; i < length; ++i) {
        if (text[i] < '0' || text[i] > '9') return false;
        const std::uint64_t digit = static_cast<std::uint64_t>(text[i] - '0');
        if (v > (UINT64_MAX - digit) / 10) return false;
        v = v * 10 + digit;
    }
    value = v;
    return true;
}

// A finite decimal number written by us (%.17g), nothing after it.
bool ParseDouble(const std::string& text, double& value)
{
    if (text.empty() || text.size() > 40) return false;
    // Whatever the process's locale: the writer used g_ascii_formatd.
    char* end = nullptr;
    errno = 0;
    const double v = g_ascii_strtod(text.c_str(), &end);
    if (errno != 0 || end != text.c_str() + text.size() || !std::isfinite(v)) return false;
    value = v;
    return true;
}

bool IsString(const redisReply* reply)
{
    return reply && (reply->type == REDIS_REPLY_STRING || reply->type == REDIS_REPLY_STATUS);
}

}  // namespace

bool ParseUnsigned(const char* text, std::size_t length, unsigned& value)
{
    std::uint64_t v = 0;
    if (!ParseU64(text, length, v) || v > UINT_MAX) return false;
    value = static_cast<unsigned>(v);
    return true;
}

bool CStreamId::Parse(const char* text, std::size_t length)
{
    const char* dash = static_cast<const char*>(std::memchr(text, '-', length));
    if (!dash) return false;
    const std::size_t msLength = static_cast<std::size_t>(dash - text);
    return ParseU64(text, msLength, nMs) && ParseU64(dash + 1, length - msLength - 1, nSeq);
}

std::string CStreamId::ToString() const
{
    return std::to_string(nMs) + "-" + std::to_string(nSeq);
}

bool ParseLogEntry(const redisReply& entry, std::size_t maxBytes, CLogEvent& event, std::string& reason)
{
    event = CLogEvent();
    if (entry.type != REDIS_REPLY_ARRAY || entry.elements != 2 || !IsString(entry.element[0]) ||
        !event.id.Parse(entry.element[0]->str, entry.element[0]->len)) {
        reason = "not a stream entry";
        return false;
    }
    const redisReply* fields = entry.element[1];
    if (!fields || fields->type != REDIS_REPLY_ARRAY || fields->elements % 2 != 0) {
        reason = "fields missing";
        return false;
    }
    std::map<std::string, const redisReply*> named;
    for (std::size_t i = 0; i < fields->elements; i += 2) {
        const redisReply* name = fields->element[i];
        const redisReply* value = fields->element[i + 1];
        if (!IsString(name) || !IsString(value)) {
            reason = "a field that is not text";
            return false;
        }
        named[std::string(name->str, name->len)] = value;
    }
    const auto text = [&named](const char* name, std::string* out) {
        const auto found = named.find(name);
        if (found == named.end()) return false;
        if (out) out->assign(found->second->str, found->second->len);
        return true;
    };
    const auto number = [&named](const char* name, unsigned& out) {
        const auto found = named.find(name);
        return found != named.end() && ParseUnsigned(found->second->str, found->second->len, out);
    };
    std::string value;
    if (!text("v", &value) || value != "1") {
        reason = "not written by a note meeting";
        return false;
    }
    if (!text("k", &value) || value.size() != 1) {
        reason = "no kind";
        return false;
    }
    event.cKind = value[0];
    bool complete = false;
    switch (event.cKind) {
    case CLogEvent::kAdded:
    case CLogEvent::kUpdated:
        complete = number("h", event.nCache) && number("i", event.nCacheId) && number("p", event.nPutter) &&
                   number("f", event.nFlags) && text("t", &value) && ParseDouble(value, event.dLoopTime) &&
                   text("b", nullptr) && event.nCacheId != 0;
        break;
    case CLogEvent::kCleared:
        complete = number("h", event.nCache) && number("p", event.nPutter);
        break;
    case CLogEvent::kClosed:
        complete = true;
        break;
    case CLogEvent::kData: {
        unsigned route = 0;
        complete = number("p", event.nPutter) && number("to", event.nTo) && number("r", route) &&
                   route <= CLogEvent::kResourceSealed && text("b", nullptr);
        event.nRoute = static_cast<int>(route);
        if (complete && route != CLogEvent::kDirect)
            complete = text("nm", &event.strResourceName) && number("kd", event.nResourceKind);
        break;
    }
    default:
        reason = "unknown kind";
        return false;
    }
    if (!complete) {
        reason = "a field missing or malformed";
        return false;
    }
    const auto bytes = named.find("b");
    if (bytes != named.end()) {
        if (bytes->second->len > maxBytes) {
            reason = "item of " + std::to_string(bytes->second->len) + " bytes, above the limit";
            return false;
        }
        event.pBytes = std::make_shared<const std::string>(bytes->second->str, bytes->second->len);
    }
    return true;
}

bool ParseStoredItem(const char* text, std::size_t length, std::size_t maxBytes, CStoredItem& item)
{
    // Four numbers, each ended by ':', then the bytes.
    const char* fields[4];
    std::size_t lengths[4];
    std::size_t pos = 0;
    for (int i = 0; i < 4; ++i) {
        const char* colon = static_cast<const char*>(std::memchr(text + pos, ':', length - pos));
        if (!colon) return false;
        fields[i] = text + pos;
        lengths[i] = static_cast<std::size_t>(colon - fields[i]);
        pos += lengths[i] + 1;
    }
    if (length - pos > maxBytes) return false;
    if (!ParseUnsigned(fields[0], lengths[0], item.nId) || item.nId == 0 ||
        !ParseUnsigned(fields[1], lengths[1], item.nPutter) || !ParseU64(fields[2], lengths[2], item.nServerMs) ||
        !ParseDouble(std::string(fields[3], lengths[3]), item.dLoopTime))
        return false;
    item.pBytes = std::make_shared<const std::string>(text + pos, length - pos);
    return true;
}

bool ParsePutAnswer(const redisReply& reply, CPutAnswer& answer)
{
    if (!IsString(&reply)) return false;
    const std::string text(reply.str, reply.len);
    const std::size_t first = text.find(' ');
    const std::size_t second = first == std::string::npos ? first : text.find(' ', first + 1);
    if (first != 1 || second == std::string::npos || text[0] == '\0' || std::strchr("aucrs", text[0]) == nullptr)
        return false;
    answer.cStatus = text[0];
    return ParseUnsigned(text.data() + 2, second - 2, answer.nCacheId) &&
           answer.position.Parse(text.data() + second + 1, text.size() - second - 1);
}
