// The child processes of bench_redis: caption readers (through the plug-in, and raw) and a
// reader whose memory is measured.
#include "RedisBenchRoles.h"

#include "RedisBenchProcess.h"
#include "conference/RedisScripts.h"
#include "loader/PluginParticipant.h"
#include "tessarinnote/notehostui.h"

#include <glib-unix.h>
#include <glib.h>
#include <hiredis/adapters/glib.h>
#include <hiredis/async.h>

#include <signal.h>
#include <sys/prctl.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

std::string CaptionLine(unsigned i)
{
    static const char* const kWords[] = {"the", "meeting", "will", "review", "quarter", "numbers", "and", "then",
                                         "discuss", "plan", "for", "next", "release", "customers", "asked", "about"};
    char head[16];
    std::snprintf(head, sizeof head, "%06u", i);
    std::string line = head;
    for (unsigned w = i; line.size() < kLineChars - 1; w = w * 1103515245u + 12345u)
        line += std::string(" ") + kWords[(w >> 16) % (sizeof kWords / sizeof kWords[0])];
    line.resize(kLineChars - 1);
    return line;
}

namespace {

int Fail(const std::string& reason)
{
    std::printf("error %s\n", reason.c_str());
    std::fflush(stdout);
    return 1;
}

void Say(const char* line)
{
    std::printf("%s\n", line);
    std::fflush(stdout);
}

SParticipantSetup ReaderSetup(unsigned userId)
{
    SParticipantSetup setup;
    setup.nUserId = userId;
    setup.notepadType = NOTETAKER_CLOSED_CAPTIONS;
    setup.nUserType = NOTE_USER_READER;
    return setup;
}

// N readers without the plug-in, each on its own connection blocking in XREAD on one stream,
// driven by the same GLib main context as the plug-in's readers (hiredis's GLib adapter), so
// that both kinds share one thread per process; for each line the time the last of them got it.
class CRawReaders {
public:
    CRawReaders(const CRedisMeetingOptions& options, const std::string& key, int n)
        : m_strKey(key), m_nReaders(n), m_aLast(kMaxLatencyLines, -1), m_aCount(kMaxLatencyLines, 0)
    {
        for (int i = 0; i < n; ++i) {
            redisAsyncContext* context = redisAsyncConnect(options.strHost.c_str(), options.nPort);
            if (!context || context->err) {
                ++m_nFailed;
                if (context) redisAsyncFree(context);
                continue;
            }
            context->data = this;
            GSource* source = redis_source_new(context);
            g_source_attach(source, nullptr);
            g_source_unref(source);
            redisAsyncSetConnectCallback(context, &OnConnect);
            redisAsyncSetDisconnectCallback(context, &OnDisconnect);
            m_aContexts.push_back(context);
            Read(context, "0-0");
        }
    }
    ~CRawReaders()
    {
        std::vector<redisAsyncContext*> contexts;
        contexts.swap(m_aContexts);
        for (redisAsyncContext* context : contexts) redisAsyncFree(context);
    }
    CRawReaders(const CRawReaders&) = delete;
    CRawReaders& operator=(const CRawReaders&) = delete;

    int Connected() const { return m_nConnected; }
    int Failed() const { return m_nFailed; }
    bool AllEnded() const { return m_nEnded == m_nReaders; }
    // The time the last reader got line, or -1.
    long long LastOf(int line) const { return m_aCount[line] == m_nReaders ? m_aLast[line] : -1; }

private:
    void Read(redisAsyncContext* context, const std::string& from)
    {
        const char* argv[] = {"XREAD", "BLOCK", "0", "STREAMS", m_strKey.c_str(), from.c_str()};
        redisAsyncCommandArgv(context, &OnReply, this, 6, argv, nullptr);
    }
    static void OnConnect(const redisAsyncContext* context, int status)
    {
        auto* self = static_cast<CRawReaders*>(context->data);
        ++(status == REDIS_OK ? self->m_nConnected : self->m_nFailed);
    }
    // hiredis frees a context that was disconnected.
    static void OnDisconnect(const redisAsyncContext* context, int)
    {
        auto* self = static_cast<CRawReaders*>(context->data);
        auto& all = self->m_aContexts;
        all.erase(std::remove(all.begin(), all.end(), context), all.end());
    }
    static void OnReply(redisAsyncContext* context, void* r, void* data)
    {
        auto* self = static_cast<CRawReaders*>(data);
        const auto* reply = static_cast<const redisReply*>(r);
        if (!reply || reply->type != REDIS_REPLY_ARRAY) {
            ++self->m_nEnded;  // an error: this reader counts no more lines
            return;
        }
        const long long now = MonotonicNs();
        const redisReply* entries = reply->element[0]->element[1];
        std::string last;
        for (size_t e = 0; e < entries->elements; ++e) {
            const redisReply* entry = entries->element[e];
            last.assign(entry->element[0]->str, entry->element[0]->len);
            const redisReply* fields = entry->element[1];
            for (size_t f = 0; f + 1 < fields->elements; f += 2) {
                if (std::strcmp(fields->element[f]->str, "n") != 0) continue;
                const int line = std::atoi(fields->element[f + 1]->str);
                if (line < 0) {
                    ++self->m_nEnded;
                    return;
                }
                if (line < kMaxLatencyLines && ++self->m_aCount[line] == self->m_nReaders) self->m_aLast[line] = now;
            }
        }
        self->Read(context, last);
    }

    std::string m_strKey;
    int m_nReaders;
    std::vector<long long> m_aLast;
    std::vector<int> m_aCount;
    int m_nConnected = 0;
    int m_nFailed = 0;
    int m_nEnded = 0;
    std::vector<redisAsyncContext*> m_aContexts;
};

long long ProcessCpuNs()
{
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<long long>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

// What the parent says on standard input: which kind of lines comes now ('P', 'R', 'I' for none
// while the parent idles, 'E' for nothing to book), so that the process's CPU time is booked to
// the kind it was spent on; the end of input ends the run.
struct SInput {
    bool bEnded = false;
    int nKind = -1;  // 0 plug-in, 1 raw, 2 idle
    long long nSince = 0;
    long long aCpu[3] = {0, 0, 0};

    void Book()
    {
        const long long now = ProcessCpuNs();
        if (nKind >= 0) aCpu[nKind] += now - nSince;
        nSince = now;
    }
};

gboolean OnInput(gint fd, GIOCondition, gpointer data)
{
    auto* input = static_cast<SInput*>(data);
    char buf[256];
    const ssize_t n = read(fd, buf, sizeof buf);
    for (ssize_t i = 0; i < n; ++i) {
        const char* const kinds = "PRI";
        const char* kind = buf[i] ? std::strchr(kinds, buf[i]) : nullptr;
        if (!kind && buf[i] != 'E') continue;
        input->Book();
        input->nKind = kind ? static_cast<int>(kind - kinds) : -1;
    }
    if (n > 0) return G_SOURCE_CONTINUE;
    input->bEnded = true;
    return G_SOURCE_REMOVE;
}

int Readers(CNotePlugin& plugin, const CRedisMeetingOptions& options, unsigned firstUser, int n,
            const std::string& rawKey, bool shared)
{
    std::vector<std::unique_ptr<IMeeting>> meetings;
    std::vector<std::unique_ptr<CPluginParticipant>> readers;
    for (int i = 0; i < n; ++i) {
        std::string error;
        if (!shared || meetings.empty()) meetings.push_back(NewRedisMeeting(options, error));
        if (!meetings.back()) return Fail(error);
        readers.push_back(
            std::make_unique<CPluginParticipant>(plugin, *meetings.back(), ReaderSetup(firstUser + unsigned(i))));
    }
    const auto settled = [&] {
        for (const auto& meeting : meetings)
            if (!IsRedisMeetingSettled(*meeting)) return false;
        for (const auto& reader : readers)
            if (!reader->Panel()) return false;
        return !g_main_context_pending(nullptr);
    };
    if (!RunMainLoopUntil(settled, 120)) return Fail("the readers did not settle");
    CRawReaders raw(options, rawKey, n);
    RunMainLoopUntil([&] { return raw.Connected() + raw.Failed() == n; }, 30);
    if (raw.Connected() != n) return Fail("a raw reader could not connect");
    Say("ready");

    SInput input;
    g_unix_fd_add(0, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR), &OnInput, &input);
    std::vector<unsigned> shown(readers.size(), 0);
    std::vector<int> arrived(kMaxLatencyLines, 0);
    std::vector<long long> last(kMaxLatencyLines, -1);
    while (!input.bEnded || !raw.AllEnded()) {
        g_main_context_iteration(nullptr, TRUE);
        const long long now = MonotonicNs();
        for (size_t i = 0; i < readers.size(); ++i) {
            const unsigned length = readers[i]->Panel()->Length();
            if (length == shown[i]) continue;
            const unsigned to = std::min<unsigned>(length / kLineChars, kMaxLatencyLines);
            for (unsigned line = shown[i] / kLineChars; line < to; ++line)
                if (++arrived[line] == n) last[line] = now;
            shown[i] = length;
        }
    }
    for (int line = 0; line < kMaxLatencyLines; ++line) {
        if (last[line] >= 0) std::printf("P %d %lld\n", line, last[line]);
        if (raw.LastOf(line) >= 0) std::printf("R %d %lld\n", line, raw.LastOf(line));
    }
    std::printf("C %lld %lld %lld\n", input.aCpu[0], input.aCpu[1], input.aCpu[2]);
    Say("done");
    return 0;
}

int Rss(CNotePlugin& plugin, const CRedisMeetingOptions& options, unsigned userId, unsigned chars)
{
    // At rest: the plug-in loaded, no meeting yet.
    const long rest = ProcStatusKb("VmRSS");
    const bool reset = ResetPeakRss();
    std::string error;
    std::unique_ptr<IMeeting> meeting = NewRedisMeeting(options, error);
    if (!meeting) return Fail(error);
    CPluginParticipant reader(plugin, *meeting, ReaderSetup(userId));
    if (!RunMainLoopUntil([&] { return reader.Panel() && reader.Panel()->Length() == chars; }, 60))
        return Fail("the reader shows " + std::to_string(reader.Panel() ? reader.Panel()->Length() : 0) + " of " +
                    std::to_string(chars) + " characters");
    RunMainLoopUntil([] { return false; }, 0.3);  // what follows the join (ticks, the last answers)
    std::printf("rss %ld %ld %ld %d\n", rest, ProcStatusKb("VmRSS"), ProcStatusKb("VmHWM"), reset ? 1 : 0);
    std::fflush(stdout);
    return 0;
}

}  // namespace

int RunBenchChild(int argc, char** argv)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() == 1) return 1;
    NoteHostUI_SetTraceOff();
    const std::string role = argc > 0 ? argv[0] : "";
    if (argc < 3) return Fail("usage: --child readers|rss PORT MEETING ...");
    CRedisMeetingOptions options;
    options.strHost = "127.0.0.1";
    options.nPort = std::atoi(argv[1]);
    options.strMeetingId = argv[2];
    CNotePlugin plugin;
    std::string error;
    if (!plugin.Load(CNotePlugin::BuiltPath(), error)) return Fail(error);
    if (role == "readers" && argc == 7)
        return Readers(plugin, options, static_cast<unsigned>(std::atoi(argv[3])), std::atoi(argv[4]), argv[5],
                       std::strcmp(argv[6], "1") == 0);
    if (role == "rss" && argc == 5)
        return Rss(plugin, options, static_cast<unsigned>(std::atoi(argv[3])), static_cast<unsigned>(std::atoi(argv[4])));
    return Fail("unknown role " + role);
}
