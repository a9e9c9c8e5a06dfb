// The session of a notectl command: plug-in, Redis meeting, participants and their main loop.
#include "Session.h"

#include "tessarinnote/notehostui.h"

#include <glib-unix.h>
#include <glib.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace {

// With the connection up, a handshake that takes longer than this will not finish.
constexpr gint64 kHandshakeMicros = 15 * G_USEC_PER_SEC;

// An alert of the plug-in, as one line.
void PrintWarning(void*, const char* title, const char* text)
{
    std::string line = std::string(title) + ": " + text;
    for (char& c : line)
        if (c == '\n' || c == '\r') c = ' ';
    std::fprintf(stderr, "notectl: %s\n", line.c_str());
}

// Runs every source that is due, without blocking.
void RunDue()
{
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
}

}  // namespace

int Fail(const std::string& message)
{
    std::fflush(stdout);
    std::fprintf(stderr, "notectl: %s\n", message.c_str());
    return 1;
}

void RouteHostOutput(bool trace)
{
    if (trace) {
        // The host UI's default sink (standard error): every line, unless NOTE_TRACE already
        // chooses otherwise. Set before the sink is chosen, which reads it.
        setenv("NOTE_TRACE", "all", 0);
        NoteHostUI_SetTraceCallback(nullptr, nullptr);
    } else {
        NoteHostUI_SetTraceOff();
    }
    NoteHostUI_SetWarningCallback(&PrintWarning, nullptr);
}

bool MakeRedisOptions(const SMeetingOptions& meeting, CRedisMeetingOptions& options, std::string& error)
{
    if (!ParseRedisUrl(meeting.strUrl, options, error)) return false;
    if (!meeting.strName.empty()) options.strUser = meeting.strName;
    if (!meeting.strPassword.empty()) options.strPassword = meeting.strPassword;
    if (!options.strUser.empty() && options.strPassword.empty()) {
        error = "the Redis user " + options.strUser + " needs a password (--password)";
        return false;
    }
    options.strMeetingId = meeting.strMeetingId;
    return true;
}

CCliSession::CCliSession() : m_bLost(false), m_nRefusalsSeen(0), m_nStops(0), m_aSignalSources{0, 0}
{
    m_aSignalSources[0] = g_unix_signal_add(SIGINT, &CCliSession::OnSignal, this);
    m_aSignalSources[1] = g_unix_signal_add(SIGTERM, &CCliSession::OnSignal, this);
}

CCliSession::~CCliSession()
{
    for (unsigned source : m_aSignalSources)
        if (source) g_source_remove(source);
}

int CCliSession::OnSignal(void* data)
{
    ++static_cast<CCliSession*>(data)->m_nStops;
    return G_SOURCE_CONTINUE;
}

bool CCliSession::Open(const SPluginOptions& plugin, const SMeetingOptions& meeting, std::string& error)
{
    if (!Prepare(plugin, meeting, error)) return false;
    m_pMeeting = NewRedisMeeting(m_options, error);
    if (!m_pMeeting) ExplainRefusal(error);
    return m_pMeeting != nullptr;
}

void CCliSession::ExplainRefusal(std::string& error) const
{
    // The server fences each meeting's users to its keys (notectl meeting create).
    if (error.find("NOPERM") != std::string::npos)
        error += " (the user " + (m_options.strUser.empty() ? std::string("default") : m_options.strUser) +
                 " may not use meeting " + m_options.strMeetingId + ")";
}

bool CCliSession::Prepare(const SPluginOptions& plugin, const SMeetingOptions& meeting, std::string& error)
{
    std::string path = plugin.strPath;
    if (path.empty()) {
        const char* fromEnvironment = std::getenv("NOTE_PLUGIN");
        path = fromEnvironment && *fromEnvironment ? fromEnvironment : CNotePlugin::BuiltPath();
    }
    std::string reason;
    if (!m_plugin.Load(path, reason)) {
        error = "cannot load the plug-in: " + reason;
        return false;
    }
    return MakeRedisOptions(meeting, m_options, error);
}

std::string CCliSession::Where() const
{
    return "meeting " + m_options.strMeetingId + " on " + RedisServerName(m_options);
}

bool CCliSession::CheckMeetingExists(std::string& error)
{
    // Logged in as one of the meeting's own users: it was made with "notectl meeting create".
    const std::string users = "note-" + m_options.strMeetingId + "-";
    if (m_options.strUser == users + "reader" || m_options.strUser == users + "writer") return true;
    bool exists = false;
    if (!RedisMeetingExists(m_options, exists, error)) {
        ExplainRefusal(error);
        return false;
    }
    if (!exists)
        error = "no such meeting: " + m_options.strMeetingId + " on " + RedisServerName(m_options) +
                " (nobody has joined it; start its captioner or note taker first, or pass --wait)";
    return exists;
}

std::unique_ptr<CPluginParticipant> CCliSession::Join(unsigned userId, NOTETAKERTYPE type, unsigned userType)
{
    SParticipantSetup setup;
    setup.nUserId = userId;
    setup.notepadType = type;
    setup.nUserType = userType;
    auto participant = std::make_unique<CPluginParticipant>(m_plugin, *m_pMeeting, setup);
    // The same notice the participant hands the plug-in, told on stderr as well.
    CPluginParticipant* who = participant.get();
    m_pMeeting->SetMeetingLostHandler(who->Service(), [this, who](int kind) {
        OnMeetingLost(kind);
        if (m_fnNoticeHook) m_fnNoticeHook(false);
        m_plugin.NoteMeetingLost(who->Instance(), kind);
        if (m_fnNoticeHook) m_fnNoticeHook(true);
    });
    return participant;
}

void CCliSession::OnMeetingLost(int kind)
{
    const std::string server = RedisServerName(m_options);
    if (kind == 1 && !m_bLost)
        std::fprintf(stderr, "notectl: connection to %s lost, reconnecting...\n", server.c_str());
    else if (kind == 0 && m_bLost)
        std::fprintf(stderr, "notectl: connection to %s back\n", server.c_str());
    m_bLost = kind == 1;
}

void CCliSession::RunOnce()
{
    g_main_context_iteration(nullptr, TRUE);
}

bool CCliSession::WaitLive(const CPluginParticipant& who, std::string& error)
{
    const int stops = m_nStops;
    gint64 upSince = g_get_monotonic_time();
    for (;;) {
        RunDue();
        if (IsRedisParticipantLive(*m_pMeeting, who.Service()) && !g_main_context_pending(nullptr)) return true;
        if (m_nStops != stops) {
            error = "interrupted while joining " + Where();
            return false;
        }
        if (ShutOut(error)) return false;
        const gint64 now = g_get_monotonic_time();
        if (m_bLost) upSince = now;
        if (now - upSince > kHandshakeMicros) {
            error = Where() + " did not answer the plug-in's handshake";
            return false;
        }
        RunOnce();
    }
}

bool CCliSession::WaitSettled(std::string& error)
{
    const int stops = m_nStops;
    for (;;) {
        RunDue();
        if (IsRedisMeetingSettled(*m_pMeeting) && !g_main_context_pending(nullptr)) return true;
        if (m_nStops != stops) {
            error = "interrupted before " + Where() + " confirmed everything sent";
            return false;
        }
        if (ShutOut(error)) return false;
        RunOnce();
    }
}

bool CCliSession::ShutOut(std::string& error) const
{
    std::string answer;
    if (!RedisMeetingRefusesUs(*m_pMeeting, &answer)) return false;
    error = Where() + " no longer lets us in (" + answer + "): was the meeting deleted?";
    return true;
}

bool CCliSession::TakeRefusal(std::string& reason)
{
    const unsigned refused = RedisMeetingRefusedPuts(*m_pMeeting, &reason);
    if (refused == m_nRefusalsSeen) return false;
    m_nRefusalsSeen = refused;
    return true;
}
