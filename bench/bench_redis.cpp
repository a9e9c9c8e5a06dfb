// The Redis-backed meeting through the loaded plug-in, on one redis-server on loopback that the
// benchmark starts (and stops) itself; each case beside a reference without the plug-in,
// measured in the same run. Times are wall-clock: the server is part of every path.
//   CaptionLatency  the captioner presses Return -> the 200th reader's panel shows the line.
//                   200 readers in 4 child processes (shared:0 one meeting, so two connections,
//                   per reader, as 200 machines would have; shared:1 one meeting per process, as
//                   a process with several participants has), 20 lines a second, in blocks of 10
//                   lines that alternate with the raw floor: an XADD of the same line read back
//                   by 200 blocking XREAD readers (50 connections in each of the same 4
//                   processes, on the main loop of its plug-in readers; hiredis alone). Counters p50_ms, p99_ms, max_ms and raw_p50_ms, raw_p99_ms, raw_max_ms
//                   over 300 lines of each; lost = lines some reader never showed; p99_over_raw;
//                   cpu_us_per_line and raw_cpu_us_per_line, the CPU time the 4 reader processes
//                   spent per line of each kind beyond their idle time (idle_cpu_us_per_50ms: the
//                   200 instances' ticks and timers), which a loaded machine does not blur.
//                   Goal: p99 <= 15 ms.
//   LateJoin        a reader joins a meeting of 409,600 caption characters (5,120 lines typed
//                   by the captioner through the plug-in) and its panel shows the whole text:
//                   a new meeting connection, the plug-in instance, the history. Beside it the
//                   same items fetched and unpacked without the plug-in: LRANGE of the cache's
//                   stored items (what the join fetches) or XRANGE of the meeting log, each
//                   item's packing header read and its zlib stream inflated; a new connection
//                   each time. The three rounds rotate; ratios are medians of per-iteration
//                   ratios. Goals: join <= 1 s, ratio <= 2.
//   Memory          used_memory of the server before the 5,120-line meeting was typed and
//                   after its captioner left (per meeting), the MEMORY USAGE of its keys, and a
//                   reader child process's VmRSS and VmHWM above its rest (plug-in loaded, no
//                   meeting) after joining it. Goal: reader <= 16 MiB.
// The plug-in's trace lines are dropped (a host's callback that ignores them).
// Run: nice -n 19 build/bench/bench_redis  (about 2 minutes; --benchmark_filter=NAME for one)
#include "RedisBenchProcess.h"
#include "RedisBenchRoles.h"
#include "conference/RedisScripts.h"
#include "loader/PluginParticipant.h"
#include "tessarinnote/notehostui.h"

#include <benchmark/benchmark.h>
#include <glib.h>
#include <zlib.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int kReaderProcesses = 4;
constexpr int kReadersPerProcess = 50;
constexpr std::int64_t kLineGapNs = 50 * 1000 * 1000;  // 20 lines a second
// Short blocks, so that the load of a noisy machine falls alike on both kinds.
constexpr int kBlockLines = 10;
constexpr int kBlocksOfEach = 30;
constexpr int kBlockGapLines = 4;
constexpr int kJoinLines = 5120;  // 409,600 characters

CBenchRedisServer& Server(std::string& error)
{
    static CBenchRedisServer server;
    static std::string failure;
    static bool started = false;
    if (!started) {
        started = true;
        if (!server.Start(failure)) failure = failure.empty() ? "redis-server failed" : failure;
    }
    error = failure;
    return server;
}

CNotePlugin* Plugin(std::string& error)
{
    static CNotePlugin plugin;
    static std::string failure;
    if (!plugin.IsLoaded() && failure.empty() && !plugin.Load(CNotePlugin::BuiltPath(), failure) && failure.empty())
        failure = "the plug-in did not load";
    error = failure;
    return failure.empty() ? &plugin : nullptr;
}

std::unique_ptr<CPluginParticipant> JoinAs(CNotePlugin& plugin, IMeeting& meeting, unsigned userId, unsigned userType)
{
    SParticipantSetup setup;
    setup.nUserId = userId;
    setup.notepadType = NOTETAKER_CLOSED_CAPTIONS;
    setup.nUserType = userType;
    return std::make_unique<CPluginParticipant>(plugin, meeting, setup);
}

bool Settle(const IMeeting& meeting, double seconds = 10)
{
    return RunMainLoopUntil([&] { return IsRedisMeetingSettled(meeting) && !g_main_context_pending(nullptr); },
                            seconds);
}

// The captioner's line: typed at the end of the text, committed with Return. Returns the
// time just before Return.
std::int64_t TypeLine(INoteHeadlessPanel& panel, const std::string& line, bool& typed)
{
    panel.Select(panel.Length(), 0);
    typed = panel.Type(line.c_str());
    const std::int64_t now = MonotonicNs();
    panel.PressReturn();
    return now;
}

// Turns the main loop until the monotonic clock reaches due.
gboolean SetFlag(gpointer flag)
{
    *static_cast<bool*>(flag) = true;
    return G_SOURCE_REMOVE;
}
void RunMainLoopUntilTime(std::int64_t due)
{
    const std::int64_t left = due - MonotonicNs();
    if (left <= 0) return;
    bool fired = false;
    g_timeout_add(static_cast<guint>(left / 1000000), &SetFlag, &fired);
    while (!fired) g_main_context_iteration(nullptr, TRUE);
}

// ---------------------------------------------------------------- caption latency

struct SLatencyRun {
    std::vector<std::int64_t> aSent[2];                       // [plug-in, raw] per line
    std::vector<std::vector<std::int64_t>> aLast[2];          // per child, per line; -1: not all
    long long aCpu[3] = {0, 0, 0};  // the children's CPU ns, all together: plug-in, raw, idle
};

bool CollectChild(const std::string& line, int child, SLatencyRun& run)
{
    char kind = 0;
    int number = -1;
    long long ns = -1;
    if (std::sscanf(line.c_str(), "%c %d %lld", &kind, &number, &ns) != 3 || number < 0 ||
        number >= kMaxLatencyLines || (kind != 'P' && kind != 'R'))
        return false;
    run.aLast[kind == 'P' ? 0 : 1][child][number] = ns;
    return true;
}

// Latencies (ms) of the lines every child saw; lost counts the others.
std::vector<double> Latencies(const SLatencyRun& run, int kind, int& lost)
{
    std::vector<double> ms;
    for (size_t line = 0; line < run.aSent[kind].size(); ++line) {
        std::int64_t last = 0;
        for (const auto& child : run.aLast[kind]) last = child[line] < 0 || last < 0 ? -1 : std::max(last, child[line]);
        if (last < 0)
            ++lost;
        else
            ms.push_back(static_cast<double>(last - run.aSent[kind][line]) * 1e-6);
    }
    return ms;
}

void BM_CaptionLatency(benchmark::State& state)
{
    std::string error;
    CBenchRedisServer& server = Server(error);
    CNotePlugin* plugin = error.empty() ? Plugin(error) : nullptr;
    if (!plugin) {
        state.SkipWithError(error.c_str());
        return;
    }
    const bool shared = state.range(0) == 1;
    static int runs = 0;
    const std::string meetingId = "lat" + std::to_string(getpid()) + "-" + std::to_string(++runs);
    const std::string rawKey = "bench:raw:" + meetingId;
    for (auto _ : state) {
        std::unique_ptr<IMeeting> meeting = NewRedisMeeting(server.Options(meetingId), error);
        if (!meeting) {
            state.SkipWithError(error.c_str());
            return;
        }
        std::unique_ptr<CPluginParticipant> writer = JoinAs(*plugin, *meeting, 1, NOTE_USER_WRITER);
        Settle(*meeting);
        CBenchChild children[kReaderProcesses];
        SLatencyRun run;
        for (int c = 0; c < kReaderProcesses; ++c) {
            if (!children[c].Spawn({"--child", "readers", std::to_string(server.Port()), meetingId,
                                    std::to_string(100 + c * kReadersPerProcess), std::to_string(kReadersPerProcess),
                                    rawKey, shared ? "1" : "0"},
                                   error)) {
                state.SkipWithError(error.c_str());
                return;
            }
            for (auto& last : run.aLast) last.emplace_back(kMaxLatencyLines, -1);
        }
        // Every child in (its readers joined and settled); the captioner's loop keeps turning.
        int ready = 0;
        std::string failure;
        RunMainLoopUntil([&] {
            for (CBenchChild& child : children) {
                std::vector<std::string> lines;
                child.Poll(lines);
                for (const std::string& line : lines) {
                    if (line == "ready") ++ready;
                    if (line.compare(0, 5, "error") == 0) failure = line;
                }
                if (child.HasEnded() && failure.empty()) failure = "a reader process ended";
            }
            return ready == kReaderProcesses || !failure.empty();
        }, 180);
        if (ready != kReaderProcesses) {
            state.SkipWithError(failure.empty() ? "the readers did not get ready" : failure.c_str());
            return;
        }
        const CRedisSyncContext raw = ConnectRedisSync(server.Options(""), error);
        INoteHeadlessPanel* panel = writer->Panel();
        if (!raw || !panel) {
            state.SkipWithError(raw ? "the captioner has no panel" : error.c_str());
            return;
        }

        // Blocks of lines, the plug-in's and the raw floor's in turn, 20 lines a second.
        std::int64_t due = MonotonicNs() + kLineGapNs;
        bool typed = true;
        for (int block = 0; block < 2 * kBlocksOfEach && typed; ++block) {
            const int kind = block % 2;
            for (int i = 0; i < kBlockLines && typed; ++i, due += kLineGapNs) {
                RunMainLoopUntilTime(due);
                if (i == 0)
                    for (CBenchChild& child : children) child.Send(kind == 0 ? "P" : "R");
                std::vector<std::int64_t>& sent = run.aSent[kind];
                const std::string line = CaptionLine(static_cast<unsigned>(sent.size()));
                if (kind == 0) {
                    sent.push_back(TypeLine(*panel, line, typed));
                } else {
                    sent.push_back(MonotonicNs());
                    typed = RedisCommandSync(raw.get(), {"XADD", rawKey, "*", "n", std::to_string(sent.size() - 1),
                                                         "b", line + "\n"},
                                             error) != nullptr;
                }
            }
            // The block's last line arrives before the next kind starts; the second half of the
            // gap is the readers' idle time (ticks, timers), booked apart.
            RunMainLoopUntilTime(due + kBlockGapLines / 2 * kLineGapNs);
            for (CBenchChild& child : children) child.Send("I");
            due += kBlockGapLines * kLineGapNs;
        }
        RunMainLoopUntilTime(due);
        for (CBenchChild& child : children) child.Send("E");
        RedisCommandSync(raw.get(), {"XADD", rawKey, "*", "n", "-1"}, error);  // the raw readers' end
        for (CBenchChild& child : children) child.CloseInput();
        int done = 0;
        long long cpu[3] = {0, 0, 0};
        RunMainLoopUntil([&] {
            for (int c = 0; c < kReaderProcesses; ++c) {
                std::vector<std::string> lines;
                children[c].Poll(lines);
                for (const std::string& line : lines) {
                    if (line == "done") {
                        ++done;
                    } else if (std::sscanf(line.c_str(), "C %lld %lld %lld", &cpu[0], &cpu[1], &cpu[2]) == 3) {
                        for (int k = 0; k < 3; ++k) run.aCpu[k] += cpu[k];
                    } else if (!CollectChild(line, c, run)) {
                        failure = line;
                    }
                }
            }
            return done == kReaderProcesses;
        }, 60);
        for (CBenchChild& child : children) child.Wait();
        if (!typed || done != kReaderProcesses) {
            state.SkipWithError(!typed ? "a line was refused" : ("the readers did not finish: " + failure).c_str());
            return;
        }
        int lost = 0, rawLost = 0;
        const std::vector<double> pluginMs = Latencies(run, 0, lost);
        const std::vector<double> rawMs = Latencies(run, 1, rawLost);
        state.counters["lines"] = static_cast<double>(run.aSent[0].size());
        state.counters["lost"] = lost + rawLost;
        state.counters["p50_ms"] = Percentile(pluginMs, 50);
        state.counters["p99_ms"] = Percentile(pluginMs, 99);
        state.counters["max_ms"] = Percentile(pluginMs, 100);
        state.counters["raw_p50_ms"] = Percentile(rawMs, 50);
        state.counters["raw_p99_ms"] = Percentile(rawMs, 99);
        state.counters["raw_max_ms"] = Percentile(rawMs, 100);
        // CPU the 200 readers spent per line (the loaded machine's wait is not in it).
        // Each line's share: its kind's CPU less the idle CPU of as long a time.
        const double idleNsPerLineGap =
            static_cast<double>(run.aCpu[2]) / (2.0 * kBlocksOfEach * (kBlockGapLines - kBlockGapLines / 2));
        const auto perLine = [&run, idleNsPerLineGap](int kind) {
            const double lines = static_cast<double>(std::max<size_t>(1, run.aSent[kind].size()));
            return (static_cast<double>(run.aCpu[kind]) / lines - idleNsPerLineGap * (kBlockLines + kBlockGapLines / 2) / kBlockLines) * 1e-3;
        };
        state.counters["idle_cpu_us_per_50ms"] = idleNsPerLineGap * 1e-3;
        state.counters["cpu_us_per_line"] = perLine(0);
        state.counters["raw_cpu_us_per_line"] = perLine(1);
        state.counters["p99_over_raw"] = Percentile(pluginMs, 99) / std::max(1e-9, Percentile(rawMs, 99));
        writer.reset();
        meeting.reset();
    }
}

// ---------------------------------------------------------------- the 5,120-line meeting

struct SCaptionMeeting {
    std::string strError;
    std::string strId;
    std::string strText;
    std::string strItemsKey;
    std::string strLogKey;
    long long nUsedBefore = 0;
    long long nUsedAfter = 0;
    long long nKeyBytes = 0;
    double dTypingSeconds = 0;
};

// Typed once by a captioner through the plug-in, a line at a time as a person would (each
// Return's put answered before the next line); the captioner then leaves.
const SCaptionMeeting& CaptionMeeting()
{
    static SCaptionMeeting state;
    static bool made = false;
    if (made) return state;
    made = true;
    CBenchRedisServer& server = Server(state.strError);
    CNotePlugin* plugin = state.strError.empty() ? Plugin(state.strError) : nullptr;
    if (!plugin) return state;
    state.strId = "join" + std::to_string(getpid());
    const CRedisKeys keys(state.strId);
    state.strLogKey = keys.strLog;
    state.nUsedBefore = server.Info("memory", "used_memory");
    const std::int64_t start = MonotonicNs();
    {
        std::unique_ptr<IMeeting> meeting = NewRedisMeeting(server.Options(state.strId), state.strError);
        if (!meeting) return state;
        std::unique_ptr<CPluginParticipant> writer = JoinAs(*plugin, *meeting, 1, NOTE_USER_WRITER);
        Settle(*meeting);
        bool typed = writer->Panel() != nullptr;
        for (int i = 0; i < kJoinLines && typed; ++i) {
            TypeLine(*writer->Panel(), CaptionLine(static_cast<unsigned>(i)), typed);
            Settle(*meeting);
        }
        state.strText = writer->PanelText();
        if (!typed || state.strText.size() != kJoinLines * kLineChars) {
            state.strError = "the captioner's text has " + std::to_string(state.strText.size()) + " characters";
            return state;
        }
        writer.reset();
        Settle(*meeting);
    }
    state.dTypingSeconds = static_cast<double>(MonotonicNs() - start) * 1e-9;
    g_usleep(200000);  // the server lets go of the captioner's connections
    state.nUsedAfter = server.Info("memory", "used_memory");

    std::string error;
    CRedisSyncContext admin = ConnectRedisSync(server.Options(""), error);
    CRedisSyncReply found = admin ? RedisCommandSync(admin.get(), {"KEYS", keys.strPrefix + "*"}, error) : nullptr;
    for (size_t i = 0; found && i < found->elements; ++i) {
        const std::string key(found->element[i]->str, found->element[i]->len);
        if (key.find(":items:") != std::string::npos) state.strItemsKey = key;
        CRedisSyncReply usage = RedisCommandSync(admin.get(), {"MEMORY", "USAGE", key, "SAMPLES", "0"}, error);
        if (usage && usage->type == REDIS_REPLY_INTEGER) state.nKeyBytes += usage->integer;
    }
    if (state.strItemsKey.empty()) state.strError = "the meeting has no cache items: " + error;
    return state;
}

// ---------------------------------------------------------------- late joiner

double ProcessCpuSeconds()
{
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

// Inflates one packed item (two little-endian u32: the text's length, 0 when stored as it is,
// and the body's length; then the body); the text's length, or 0 when it is not one.
size_t Unpack(const char* bytes, size_t length, std::vector<unsigned char>& text)
{
    if (length < 8) return 0;
    const auto le32 = [bytes](int at) {
        const auto* p = reinterpret_cast<const unsigned char*>(bytes + at);
        return static_cast<uLong>(p[0] | p[1] << 8 | p[2] << 16 | static_cast<uLong>(p[3]) << 24);
    };
    uLongf out = le32(0);
    if (out == 0) return length - 8;
    if (text.size() < out) text.resize(out);
    return uncompress(text.data(), &out, reinterpret_cast<const Bytef*>(bytes + 8), length - 8) == Z_OK ? out : 0;
}

// The reference: the cache's stored items ("id:putter:ms:time:" + packed item) or the log's
// entries (field "b") fetched on a new connection and unpacked. The characters unpacked.
size_t FetchAndUnpack(const CBenchRedisServer& server, const SCaptionMeeting& meeting, bool fromLog)
{
    std::string error;
    CRedisSyncContext context = ConnectRedisSync(server.Options(""), error);
    CRedisSyncReply reply = context ? RedisCommandSync(context.get(),
                                                       fromLog ? std::vector<std::string>{"XRANGE", meeting.strLogKey, "-", "+"}
                                                               : std::vector<std::string>{"LRANGE", meeting.strItemsKey, "0", "-1"},
                                                       error)
                                    : nullptr;
    std::vector<unsigned char> text(4096);
    size_t total = 0;
    for (size_t i = 0; reply && i < reply->elements; ++i) {
        const redisReply* item = reply->element[i];
        if (fromLog) {
            const redisReply* fields = item->element[1];
            for (size_t f = 0; f + 1 < fields->elements; f += 2)
                if (std::strcmp(fields->element[f]->str, "b") == 0)
                    total += Unpack(fields->element[f + 1]->str, fields->element[f + 1]->len, text);
            continue;
        }
        const char* at = item->str;
        const char* end = item->str + item->len;
        for (int colon = 0; colon < 4 && at; ++colon)
            at = static_cast<const char*>(std::memchr(at, ':', static_cast<size_t>(end - at))) + 1;
        total += Unpack(at, static_cast<size_t>(end - at), text);
    }
    return total;
}

void BM_LateJoin(benchmark::State& state)
{
    const SCaptionMeeting& m = CaptionMeeting();
    std::string error;
    CBenchRedisServer& server = Server(error);
    CNotePlugin* plugin = m.strError.empty() ? Plugin(error) : nullptr;
    if (!plugin) {
        state.SkipWithError(m.strError.empty() ? error.c_str() : m.strError.c_str());
        return;
    }
    unsigned user = 1000;
    bool wrong = false;
    double joinCpu = 0;
    const auto join = [&] {
        const double cpu0 = ProcessCpuSeconds();
        const std::int64_t t0 = MonotonicNs();
        std::unique_ptr<IMeeting> meeting = NewRedisMeeting(server.Options(m.strId), error);
        if (!meeting) {
            wrong = true;
            return 0.0;
        }
        std::unique_ptr<CPluginParticipant> reader = JoinAs(*plugin, *meeting, ++user, NOTE_USER_READER);
        const auto chars = static_cast<unsigned>(m.strText.size());
        const bool shown = RunMainLoopUntil([&] { return reader->Panel() && reader->Panel()->Length() == chars; }, 30);
        const double seconds = static_cast<double>(MonotonicNs() - t0) * 1e-9;
        joinCpu = ProcessCpuSeconds() - cpu0;
        wrong = wrong || !shown || reader->PanelText() != m.strText;
        reader.reset();
        meeting.reset();
        RunMainLoopUntil([] { return !g_main_context_pending(nullptr); }, 1);
        return seconds;
    };
    const auto reference = [&](bool fromLog) {
        const std::int64_t t0 = MonotonicNs();
        const size_t chars = FetchAndUnpack(server, m, fromLog);
        wrong = wrong || chars == 0;
        return static_cast<double>(MonotonicNs() - t0) * 1e-9;
    };
    join();  // untimed: caches, the heap and the server settle
    reference(false);
    std::vector<double> joins, cpus, refs, logRefs, ratios, logRatios;
    for (auto _ : state) {
        double t[3] = {0, 0, 0};
        for (int k = 0; k < 3; ++k) {
            const int which = (k + static_cast<int>(joins.size())) % 3;
            t[which] = which == 0 ? join() : reference(which == 2);
        }
        joins.push_back(t[0]);
        cpus.push_back(joinCpu);
        refs.push_back(t[1]);
        logRefs.push_back(t[2]);
        ratios.push_back(t[0] / t[1]);
        logRatios.push_back(t[0] / t[2]);
    }
    if (wrong) state.SkipWithError(("a join or a reference went wrong: " + error).c_str());
    state.counters["join_ms"] = Median(joins) * 1e3;
    state.counters["join_cpu_ms"] = Median(cpus) * 1e3;
    state.counters["ref_lrange_ms"] = Median(refs) * 1e3;
    state.counters["ref_xrange_ms"] = Median(logRefs) * 1e3;
    state.counters["ratio"] = Median(ratios);
    state.counters["ratio_xrange"] = Median(logRatios);
    state.counters["text_chars"] = static_cast<double>(m.strText.size());
    state.counters["typing_s"] = m.dTypingSeconds;
}

// ---------------------------------------------------------------- memory

void BM_Memory(benchmark::State& state)
{
    const SCaptionMeeting& m = CaptionMeeting();
    std::string error;
    CBenchRedisServer& server = Server(error);
    if (!m.strError.empty() || !error.empty()) {
        state.SkipWithError(m.strError.empty() ? error.c_str() : m.strError.c_str());
        return;
    }
    for (auto _ : state) {
        CBenchChild child;
        std::string answer;
        if (child.Spawn({"--child", "rss", std::to_string(server.Port()), m.strId, "5000",
                         std::to_string(m.strText.size())},
                        error)) {
            RunMainLoopUntil([&] {
                std::vector<std::string> lines;
                child.Poll(lines);
                if (!lines.empty()) answer = lines.front();
                return !answer.empty() || child.HasEnded();
            }, 120);
        }
        child.Wait();
        long rest = 0, after = 0, peak = 0;
        int reset = 0;
        if (std::sscanf(answer.c_str(), "rss %ld %ld %ld %d", &rest, &after, &peak, &reset) != 4) {
            state.SkipWithError(answer.empty() ? error.c_str() : answer.c_str());
            return;
        }
        constexpr double kMiB = 1024.0 * 1024.0;
        state.counters["server_used_MiB"] = static_cast<double>(m.nUsedAfter - m.nUsedBefore) / kMiB;
        state.counters["server_keys_MiB"] = static_cast<double>(m.nKeyBytes) / kMiB;
        state.counters["server_bytes_per_line"] = static_cast<double>(m.nUsedAfter - m.nUsedBefore) / kJoinLines;
        state.counters["reader_rest_MiB"] = rest / 1024.0;
        state.counters["reader_rss_above_rest_MiB"] = (after - rest) / 1024.0;
        state.counters["reader_peak_above_rest_MiB"] = (peak - rest) / 1024.0;
        state.counters["peak_reset_ok"] = reset;
    }
}

}  // namespace

BENCHMARK(BM_CaptionLatency)->ArgName("shared")->Arg(0)->Arg(1)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LateJoin)->Iterations(7)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Memory)->Iterations(1)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv)
{
    if (argc > 2 && std::strcmp(argv[1], "--child") == 0) return RunBenchChild(argc - 2, argv + 2);
    NoteHostUI_SetTraceOff();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
