// What the Redis-backed meeting reads from the server, checked before anything is believed:
// stream entry ids, log entries, stored items and put answers. A reader that receives an entry
// it cannot take (a field missing or of the wrong type, not written by us, too large) refuses
// that entry with a trace line and goes on with the next one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

struct redisReply;

// A stream entry id "ms-seq", ordered as the server orders them.
struct CStreamId {
    std::uint64_t nMs = 0;
    std::uint64_t nSeq = 0;

    bool Parse(const char* text, std::size_t length);
    std::string ToString() const;
    bool operator<(const CStreamId& other) const
    {
        return nMs != other.nMs ? nMs < other.nMs : nSeq < other.nSeq;
    }
    bool operator<=(const CStreamId& other) const { return !(other < *this); }
};

// One entry of the meeting log.
struct CLogEvent {
    enum EKind : char { kAdded = 'a', kUpdated = 'u', kCleared = 'c', kClosed = 'x', kData = 'd' };
    // How a data unit reaches its receivers.
    enum ERoute { kDirect = 0, kResource = 1, kResourceSealed = 2 };

    CStreamId id;
    char cKind = 0;
    unsigned nCache = 0;
    unsigned nCacheId = 0;
    unsigned nPutter = 0;  // for a data unit, the sender
    unsigned nFlags = 0;
    double dLoopTime = 0;
    std::shared_ptr<const std::string> pBytes;
    unsigned nTo = 0;
    int nRoute = kDirect;
    std::string strResourceName;
    unsigned nResourceKind = 0;
};

// Reads one XREAD/XRANGE entry ([id, [field, value, ...]]). false with a reason when it must be
// refused; event.id is set whenever the id itself could be read.
bool ParseLogEntry(const redisReply& entry, std::size_t maxBytes, CLogEvent& event, std::string& reason);

// One stored cache item ("id:putter:serverMs:loopTime:" + bytes).
struct CStoredItem {
    unsigned nId = 0;
    unsigned nPutter = 0;
    std::uint64_t nServerMs = 0;
    double dLoopTime = 0;
    std::shared_ptr<const std::string> pBytes;
};
bool ParseStoredItem(const char* text, std::size_t length, std::size_t maxBytes, CStoredItem& item);

// A put script's answer "<status> <cacheId> <position>".
struct CPutAnswer {
    char cStatus = 0;
    unsigned nCacheId = 0;
    CStreamId position;
};
bool ParsePutAnswer(const redisReply& reply, CPutAnswer& answer);

// A 32-bit unsigned decimal, digits only; false otherwise.
bool ParseUnsigned(const char* text, std::size_t length, unsigned& value);
