// The child processes of bench_redis: caption readers (through the plug-in, and raw) and a
// reader whose memory is measured.
#include "RedisBenchRoles.h"

#include "RedisBenchProcess.h"
#include "conference/RedisScripts.h"
#include "loader/PluginParticipant.h"
#include "tessarinnote/notehostui.h"

#include <glib-unix.h>
#include <glib.h>

#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>
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

void DropTrace(void*, const char*, const char*) {}

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

// N threads, each on its own connection, blocking in XREAD on one stream; for each line the
// time the last of them got it.
class CRawReaders {
public:
    CRawReaders(const CRedisMeetingOptions& options, const std::string& key, int n)
        : m_aLast(kMaxLatencyLines), m_aCount(kMaxLatencyLines)
    {
        for (int i = 0; i < n; ++i) m_aThreads.emplace_back([this, options, key] { Run(options, key); });
    }
    ~CRawReaders() { Join(); }
    CRawReaders(const CRawReaders&) = delete;
    CRawReaders& operator=(const CRawReaders&) = delete;

    int Connected() const { return m_nConnected; }
    int Failed() const { return m_nFailed; }
    void Join()
    {
        for (std::thread& thread : m_aThreads)
            if (thread.joinable()) thread.join();
    }
    // The time the last of n readers got line, or -1.
    long long LastOf(int line, int n) const { return m_aCount[line] == n ? m_aLast[line].load() : -1; }

private:
    void Run(const CRedisMeetingOptions& options, const std::string& key)
    {
        std::string error;
        CRedisSyncContext context = ConnectRedisSync(options, error);
        if (!context) {
            ++m_nFailed;
            return;
        }
        ++m_nConnected;
        std::string last = "0-0";
        for (;;) {
            CRedisSyncReply reply = RedisCommandSync(context.get(), {"XREAD", "BLOCK", "1000", "STREAMS", key, last}, error);
            if (!reply) {
                ++m_nFailed;
                return;
            }
            if (reply->type != REDIS_REPLY_ARRAY) continue;  // nothing within the block time
            const long long now = MonotonicNs();
            const redisReply* entries = reply->element[0]->element[1];
            for (size_t e = 0; e < entries->elements; ++e) {
                const redisReply* entry = entries->element[e];
                last.assign(entry->element[0]->str, entry->element[0]->len);
                const redisReply* fields = entry->element[1];
                for (size_t f = 0; f + 1 < fields->elements; f += 2) {
                    if (std::strcmp(fields->element[f]->str, "n") != 0) continue;
                    const int line = std::atoi(fields->element[f + 1]->str);
                    if (line < 0) return;
                    if (line >= kMaxLatencyLines) continue;
                    long long seen = m_aLast[line].load();
                    while (seen < now && !m_aLast[line].compare_exchange_weak(seen, now)) {
                    }
                    ++m_aCount[line];
                }
            }
        }
    }

    std::vector<std::atomic<long long>> m_aLast;
    std::vector<std::atomic<int>> m_aCount;
    std::atomic<int> m_nConnected{0};
    std::atomic<int> m_nFailed{0};
    std::vector<std::thread> m_aThreads;
};

gboolean OnInput(gint fd, GIOCondition, gpointer data)
{
    char buf[256];
    if (read(fd, buf, sizeof buf) > 0) return G_SOURCE_CONTINUE;
    *static_cast<bool*>(data) = true;
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
    while (raw.Connected() + raw.Failed() < n) g_usleep(1000);
    if (raw.Failed()) return Fail("a raw reader could not connect");
    Say("ready");

    bool ended = false;
    g_unix_fd_add(0, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR), &OnInput, &ended);
    std::vector<unsigned> shown(readers.size(), 0);
    std::vector<int> arrived(kMaxLatencyLines, 0);
    std::vector<long long> last(kMaxLatencyLines, -1);
    while (!ended) {
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
    raw.Join();
    for (int line = 0; line < kMaxLatencyLines; ++line) {
        if (last[line] >= 0) std::printf("P %d %lld\n", line, last[line]);
        if (raw.LastOf(line, n) >= 0) std::printf("R %d %lld\n", line, raw.LastOf(line, n));
    }
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
    NoteHostUI_SetTraceCallback(&DropTrace, nullptr);
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
