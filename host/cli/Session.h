// CCliSession: what every notectl command that joins a Redis meeting shares: the plug-in loaded
// with dlopen, the meeting opened from the command's options, participants joined through the
// plug-in with headless panels, and the GLib main loop they all run on. A lost connection and
// its return are told on standard error as they happen. Main thread only.
//
// Failures come back as one line (without the "notectl: " every message starts with), for the
// command to print with Fail.
#pragma once

#include "conference/RedisConference.h"
#include "loader/PluginParticipant.h"

#include <functional>
#include <memory>
#include <string>

// The options every command that loads the plug-in takes.
struct SPluginOptions {
    std::string strPath;  // empty: $NOTE_PLUGIN, else the plug-in built with notectl
    bool bTrace = false;  // the plug-in's and the conference's trace lines on standard error
};

// Which meeting, on which server, as whom.
struct SMeetingOptions {
    std::string strMeetingId;
    std::string strUrl = "redis://127.0.0.1:6379";
    std::string strName;      // Redis user; empty: the URL's, else the server's default user
    std::string strPassword;  // empty: the URL's, else none
    unsigned nUserId = 1;     // the participant's user id in the plug-in
};

// Prints "notectl: message" as one line on standard error; returns 1, the failure status.
int Fail(const std::string& message);

// Trace lines: with trace, the default sink on standard error with NOTE_TRACE=all (unless set);
// otherwise nowhere. Warnings: one line each on standard error. Call before loading the plug-in.
void RouteHostOutput(bool trace);

// The conference's options from a command's; false, with a one-line reason, for a bad URL.
bool MakeRedisOptions(const SMeetingOptions& meeting, CRedisMeetingOptions& options, std::string& error);

class CCliSession {
public:
    CCliSession();
    ~CCliSession();
    CCliSession(const CCliSession&) = delete;
    CCliSession& operator=(const CCliSession&) = delete;

    // Loads the plug-in and reads the meeting's options (Prepare), then opens the meeting
    // (which checks the server and the credentials).
    bool Open(const SPluginOptions& plugin, const SMeetingOptions& meeting, std::string& error);
    bool Prepare(const SPluginOptions& plugin, const SMeetingOptions& meeting, std::string& error);
    // For readers: fails with "no such meeting" unless the meeting has keys on the server, or
    // we log in as one of its own users (CreateRedisMeeting made it).
    bool CheckMeetingExists(std::string& error);

    // A participant through the plug-in; its lost-meeting notices are also told on stderr.
    std::unique_ptr<CPluginParticipant> Join(unsigned userId, NOTETAKERTYPE type, unsigned userType);
    // Runs the loop until who is live (IsRedisParticipantLive, and nothing left pending): only
    // then may the person act. Waits as long as the connection is down; fails after 15 s with
    // the connection up, or on SIGINT or SIGTERM.
    bool WaitLive(const CPluginParticipant& who, std::string& error);
    // Runs the loop until everything sent was answered and delivered (IsRedisMeetingSettled);
    // false, with the reason, when interrupted first.
    bool WaitSettled(std::string& error);
    // One turn of the main loop, blocking until something is due (the instances tick every
    // 50 ms, so it always comes back soon).
    void RunOnce();

    // Runs around every lost-meeting notice the plug-in gets (done false before, true after):
    // in the captions notepad the plug-in writes a time-stamped notice into the panel of the
    // participant that lost the meeting, which is not part of the shared captions.
    void SetNoticeHook(std::function<void(bool done)> hook) { m_fnNoticeHook = std::move(hook); }

    // Whether SIGINT or SIGTERM came; counts them.
    int StopRequests() const { return m_nStops; }
    // A put the server refused outright since the last call (reader credentials...): true with
    // the server's reason.
    bool TakeRefusal(std::string& reason);
    // Whether the server now refuses this process's credentials (the meeting was deleted, or
    // its password changed): true with a one-line message. Nothing will get in any more.
    bool ShutOut(std::string& error) const;

    CNotePlugin& Plugin() { return m_plugin; }
    IMeeting& Meeting() { return *m_pMeeting; }
    const CRedisMeetingOptions& RedisOptions() const { return m_options; }
    // "meeting ID on HOST:PORT", for messages.
    std::string Where() const;

private:
    void OnMeetingLost(int kind);
    // Adds to a server's NOPERM refusal which user and meeting it concerns.
    void ExplainRefusal(std::string& error) const;
    static int OnSignal(void* data);

    CNotePlugin m_plugin;
    CRedisMeetingOptions m_options;
    std::unique_ptr<IMeeting> m_pMeeting;
    bool m_bLost;
    unsigned m_nRefusalsSeen;
    int m_nStops;
    unsigned m_aSignalSources[2];
    std::function<void(bool)> m_fnNoticeHook;
};
