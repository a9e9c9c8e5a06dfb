// The Redis-backed meeting: every participant's service talks to one redis-server, so processes
// on several machines that open the same meeting id are in the same meeting. Replies and
// deliveries arrive on a GLib main context (hiredis's asynchronous API on a GLib source); callbacks
// are posted to each participant's run loop; no thread is started. Needs Redis 7 (read-only
// scripts, key selectors).
//
// Keys of a meeting live under one prefix ("note:{meetingId}:"); it uses no channels, so Redis
// ACLs fence a meeting: CreateRedisMeeting makes a writer and a reader user that reach that
// prefix only. Keys expire a time to live after the meeting's last write.
//
// Durability: an item is confirmed only after the server applied it. That it survives a server
// killed right after is the server's part: run it with appendonly yes and appendfsync always
// (with everysec Redis 7.0 may answer before writing the file while a background fsync lags).
#pragma once

#include "conference/Meeting.h"

#include <glib.h>

#include <memory>
#include <string>
#include <vector>

// Where the server is, which meeting, and who we are.
struct CRedisMeetingOptions {
    std::string strHost = "127.0.0.1";
    int nPort = 6379;
    std::string strUnixSocket;  // not empty: used instead of host and port
    std::string strMeetingId;  // 1 to 64 letters, digits, ".", "_" or "-"
    std::string strUser;      // empty: the server's default user
    std::string strPassword;  // empty: no AUTH
    bool bPki = false;
    unsigned nTtlSeconds = 24 * 3600;  // keys live this long after the meeting's last write
    // What this process hands the plug-in in _tagNoteData. The session handle names the notepad
    // session, so every process of a meeting uses the same one; the conference handle is local.
    unsigned nConferenceHandle = 1;
    unsigned nSessionHandle = 1;
    // Where replies and deliveries arrive; null: the thread-default context when the meeting
    // is opened (the global default one when none is pushed).
    GMainContext* pContext = nullptr;
};

// Reads "redis://[user[:password]@]host[:port]" or "unix:///path/to/socket" into the connection
// fields of options (the others are left alone); false, with a one-line reason, otherwise.
bool ParseRedisUrl(const std::string& url, CRedisMeetingOptions& options, std::string& error);

// "host:port" or the socket path, for messages.
std::string RedisServerName(const CRedisMeetingOptions& options);

// Opens the meeting. Connects once synchronously so that an unreachable server or a wrong
// credential is reported here (null, with a one-line reason naming the server) rather than
// later as a lost meeting. A process without a SIGPIPE handler ignores SIGPIPE from then on (a
// server that goes away mid-write must not end it). The meeting's Recording() reads the server
// synchronously and gives each item the putter's loop clock at its put (the clock the contract
// names); ReadRedisMeetingHistory gives the server's.
std::unique_ptr<IMeeting> NewRedisMeeting(const CRedisMeetingOptions& options, std::string& error);

// Whether a meeting from NewRedisMeeting is settled: both connections up, every command this
// process sent answered, and every answer and log entry it read delivered to its participants'
// loops. A host waits for it before leaving (a captioner after its last line); tests settle on
// it. false for any other meeting.
bool IsRedisMeetingSettled(const IMeeting& meeting);

// Whether the participant behind service (one of meeting's) is live: its client subscribed to
// a cache, and the history its second subscription asked for (the one the client makes when the
// first is answered) was posted to its loop. Once its loop has also run what is pending, what the
// person types reaches the cache; typed earlier, before the client holds its cache handle, it
// would be dropped. false for any other meeting or service.
bool IsRedisParticipantLive(const IMeeting& meeting, const IArmService* service);

// How many puts of this process's participants the server refused outright (a reader's
// credentials, a server out of memory; not a stale update, which the plug-in resolves itself),
// and the server's reason for the last one. 0 for any other meeting.
unsigned RedisMeetingRefusedPuts(const IMeeting& meeting, std::string* lastReason);

// Whether the server now refuses this process's credentials (the meeting was deleted with its
// users, or the password changed): the connections keep retrying, but nothing will get in
// until an administrator acts, so a host should give up. The server's answer in reason.
bool RedisMeetingRefusesUs(const IMeeting& meeting, std::string* reason);

// Whether the meeting exists on the server: a participant opened it (its keys are there) and it
// was neither deleted nor expired. Meeting users alone (CreateRedisMeeting) do not make it
// exist. false, with a one-line reason, when the server cannot be asked.
bool RedisMeetingExists(const CRedisMeetingOptions& options, bool& exists, std::string& error);

// The credentials CreateRedisMeeting makes: a writer (may put into every cache of the meeting)
// and a reader (may join, read, subscribe and resynchronise, and put into no cache: its puts
// reach the plug-in as refused puts).
struct CRedisMeetingCredentials {
    std::string strWriterUser;
    std::string strWriterPassword;
    std::string strReaderUser;
    std::string strReaderPassword;
};

// With an administrator's connection (options' user may create ACL users): creates the
// meeting's writer and reader users ("note-<id>-writer", "note-<id>-reader", random passwords)
// fenced to its keys; false when they exist already. DeleteRedisMeeting removes both users
// (closing their connections) and every key of the meeting. false, with a one-line reason, on
// failure.
bool CreateRedisMeeting(const CRedisMeetingOptions& admin, CRedisMeetingCredentials& credentials,
                        std::string& error);
bool DeleteRedisMeeting(const CRedisMeetingOptions& admin, std::string& error);

// Every item of every cache of the meeting, in id order per cache, with its arrival time on the
// server (reference-date seconds, as CRecordedItem says), for exports with cue times. Reads
// synchronously; false, with a one-line reason, when the server cannot be read.
bool ReadRedisMeetingHistory(const CRedisMeetingOptions& options,
                             std::vector<CRecordedItem>& items, std::string& error);
