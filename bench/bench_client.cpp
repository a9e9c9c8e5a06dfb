// The note client on the in-process conference, each case beside a reference measured in the
// same run (the counters "ratio" hold case / reference):
//   CaptionPublish  one caption line published by the captioner and shown by 10 readers, with
//                   400 KB of captions already shown; per participant (round CPU / 11) against
//                   one memcpy of the caption text while it sits in cache, measured before each
//                   round; ratio is the median of the rounds' ratios. Goal: ratio <= 20.
//   NotePublish     a publish of an 80 KB note by the single note taker with 10 readers; per
//                   participant against a zlib level-3 compress2 of the note. Goal: ratio <= 3.
//   LateJoin        a reader joining after 5,000 caption lines and rebuilding them from the
//                   cache history, against uncompress + ParseXMLPDU of those 5,000 items alone,
//                   the rounds interleaved; once with the default trace sink as NOTE_TRACE sets
//                   it (unset: the default level) and once with tracing off. Goals: ratio <= 2,
//                   trace_cost_pct < 5 at the default level.
//   PeakMemory      VmHWM above VmRSS at rest (the peak is reset through /proc/self/clear_refs
//                   when the kernel allows it) while one captioner builds 400 KB of captions, and
//                   then while a reader joins and rebuilds them. Goal: <= 16 MiB. Run it on its
//                   own (--benchmark_filter=PeakMemory) so that no other case has raised the peak.
// Times are thread CPU times of the main thread, which runs the whole meeting; medians of the
// per-round samples of one repetition.
#include "client/CNoteClient.h"
#include "conference/LocalConference.h"
#include "panel/NoteViewController.h"
#include "tessarinnote/notehostui.h"
#include "tessarinnote/uiinterface.h"
#include "transport/ManualRunLoop.h"
#include "transport/RunLoop.h"
#include "xml/NoteChangeInfoPDU.h"

#include <benchmark/benchmark.h>
#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int kReaders = 10;
constexpr int kParticipants = kReaders + 1;
constexpr unsigned kWriterId = 11;
constexpr unsigned kFirstReaderId = 21;
constexpr size_t kLineBytes = 80;         // a caption line with its line end
constexpr int kCaptionLines = 5000;       // 400,000 bytes of captions
constexpr size_t kNoteBytes = 80 * 1000;  // an 80 KB note (the notes limit is 81,920)

double ThreadCpuSeconds()
{
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

double Median(std::vector<double> v)
{
    if (v.empty()) return 0.0;
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

// Words for texts that compress like prose.
std::string Prose(size_t bytes, unsigned seed, size_t lineBytes)
{
    static const char* const kWords[] = {"the", "meeting", "note", "caption", "we", "will", "review",
                                         "quarter", "numbers", "and", "then", "discuss", "plan",
                                         "for", "next", "release", "customers", "asked", "about",
                                         "latency", "is", "it", "ready", "yes", "agenda", "item"};
    std::string text;
    text.reserve(bytes);
    std::string line;
    while (text.size() < bytes) {
        seed = seed * 1103515245u + 12345u;
        const char* word = kWords[(seed >> 16) % (sizeof kWords / sizeof kWords[0])];
        if (line.size() + std::strlen(word) + 2 > lineBytes) {
            line.resize(lineBytes - 1, '.');
            text += line + "\n";
            line.clear();
            continue;
        }
        if (!line.empty()) line += ' ';
        line += word;
    }
    text.resize(bytes);
    return text;
}

// A caption line of kLineBytes - 1 characters (its "\n" comes from the Return).
std::string CaptionLine(unsigned i)
{
    std::string line = Prose(kLineBytes * 2, i + 1, kLineBytes * 4);
    line.resize(kLineBytes - 1);
    return line;
}

class CQuietSink final : public INoteHostSink {
public:
    void NeedSaveChanged(signed char) override {}
    void SaveEnabledChanged(int) override {}
    void HasContentChanged(int) override {}
    void RemoteChangeApplied() override {}
    void RemoteTextApplied(int) override {}
};

// A meeting on a manual run loop, its clients set up as the plug-in's entry functions do it.
class CHost {
public:
    CHost() : m_pMeeting(NewLocalMeeting(CMeetingOptions())) {}
    ~CHost()
    {
        while (!m_vecClients.empty()) Leave(*m_vecClients.back().pClient);
    }

    CNoteClient& Join(unsigned userId, NOTETAKERTYPE type, unsigned userType)
    {
        Client c;
        c.pSink.reset(new CQuietSink);
        c.pClient.reset(new CNoteClient);
        c.pData.reset(new _tagNoteData);
        std::memset(c.pData.get(), 0, sizeof(_tagNoteData));
        c.pData->pHostSink = c.pSink.get();
        c.pData->pArmService = m_pMeeting->NewService(m_loop);
        c.pData->conferenceHandle = m_pMeeting->ConferenceHandle();
        c.pData->sessionHandle = m_pMeeting->SessionHandle();
        c.pData->nUserId = userId;
        c.pData->nNotepadType = type;
        c.pData->nUserType = userType;
        CNoteClient& client = *c.pClient;
        client.Initialize(*c.pData);
        void* panel = nullptr;
        CreateUI(&panel, client.GetParentView(), &client);
        client.SetPanel(panel);
        client.SetNotepadType(type);
        client.SetUserType(static_cast<int>(userType));
        m_vecClients.push_back(std::move(c));
        Settle();
        return client;
    }

    void Leave(CNoteClient& client)
    {
        for (auto it = m_vecClients.begin(); it != m_vecClients.end(); ++it) {
            if (it->pClient.get() != &client) continue;
            it->pClient.reset();
            m_vecClients.erase(it);
            break;
        }
        Settle();
    }

    void Settle()
    {
        for (int round = 0; round < 100000 && m_loop.PostedCount() > 0; ++round) m_loop.RunPending();
    }

    static NoteViewController& Panel(CNoteClient& client)
    {
        return *static_cast<NoteViewController*>(client.GetPanel());
    }

    // The captioner types line at the end and the panel commits it (untimed part of a publish).
    static void TypeCaption(CNoteClient& writer, const std::string& line)
    {
        NoteViewController& panel = Panel(writer);
        std::string text = panel.View().Text() + line;
        NotifyCocoaUI(&panel, NOTEUI_SET_TEXT, const_cast<char*>(text.c_str()), nullptr, nullptr);
    }
    // Return: the committed caption goes to everybody.
    void PressReturn(CNoteClient& writer)
    {
        Panel(writer).onPublish(false);
        Settle();
    }
    // The line end the view takes after Return.
    void AfterReturn(CNoteClient& writer)
    {
        NoteViewController& panel = Panel(writer);
        std::string text = panel.View().Text() + "\n";
        NotifyCocoaUI(&panel, NOTEUI_SET_TEXT, const_cast<char*>(text.c_str()), nullptr, nullptr);
        writer.HandleUIMessage(NOTEUI_TEXT_CHANGED, nullptr, nullptr);
        Settle();
    }
    void PublishCaption(CNoteClient& writer, const std::string& line)
    {
        TypeCaption(writer, line);
        PressReturn(writer);
        AfterReturn(writer);
    }

private:
    struct Client {
        std::unique_ptr<CQuietSink> pSink;
        std::unique_ptr<CNoteClient> pClient;
        std::unique_ptr<_tagNoteData> pData;
    };
    CManualRunLoop m_loop{1000.0};
    CRunLoopScope m_scope{m_loop};
    std::unique_ptr<IMeeting> m_pMeeting;
    std::vector<Client> m_vecClients;
};

// Median CPU seconds of one memcpy from src to dst (same size), both in cache.
double MemcpySeconds(const std::vector<char>& src, std::vector<char>& dst, int samples)
{
    std::vector<double> times;
    for (int i = 0; i < samples; ++i) {
        const double t0 = ThreadCpuSeconds();
        std::memcpy(dst.data(), src.data(), src.size());
        benchmark::ClobberMemory();
        times.push_back(ThreadCpuSeconds() - t0);
    }
    benchmark::DoNotOptimize(dst.data());
    return Median(times);
}

double Compress2Seconds(const std::string& text)
{
    std::vector<unsigned char> out(compressBound(text.size()));
    std::vector<double> samples;
    for (int i = 0; i < 50; ++i) {
        uLongf outLen = out.size();
        const double t0 = ThreadCpuSeconds();
        compress2(out.data(), &outLen, reinterpret_cast<const Bytef*>(text.data()), text.size(), 3);
        samples.push_back(ThreadCpuSeconds() - t0);
        benchmark::DoNotOptimize(out.data());
    }
    return Median(samples);
}

std::string HostTextOf(CNoteClient& client)
{
    return CHost::Panel(client).View().Text();
}

void Report(benchmark::State& state, const std::vector<double>& rounds, double perRoundDivisor, double ref)
{
    const double round = Median(rounds);
    const double per = round / perRoundDivisor;
    state.counters["round_us"] = round * 1e6;
    state.counters["per_us"] = per * 1e6;
    state.counters["ref_us"] = ref * 1e6;
    state.counters["ratio"] = ref > 0 ? per / ref : 0.0;
}

// (a) One caption line to 10 readers over 400 KB of captions.
void BM_CaptionPublish(benchmark::State& state)
{
    CHost host;
    CNoteClient& writer = host.Join(kWriterId, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_WRITER);
    for (int i = 0; i < kReaders; ++i)
        host.Join(kFirstReaderId + static_cast<unsigned>(i), NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_READER);
    // The state, built once: 100 Returns of 50 lines each, so 5,000 lines of 80 bytes.
    constexpr int kChunks = 100;
    for (int c = 0; c < kChunks; ++c) {
        std::string chunk;
        for (int l = 0; l < kCaptionLines / kChunks; ++l)
            chunk += CaptionLine(static_cast<unsigned>(c * 50 + l)) + (l + 1 < kCaptionLines / kChunks ? "\n" : "");
        host.PublishCaption(writer, chunk);
    }
    const std::string shown = HostTextOf(writer);
    std::vector<char> src(shown.begin(), shown.end());
    std::vector<char> dst(shown.size());

    // A few untimed rounds first: the heap and the caches settle. Then each round beside its
    // own reference, measured just before it.
    unsigned n = 0;
    for (int i = 0; i < 3; ++i) host.PublishCaption(writer, CaptionLine(100000 + n++));
    std::vector<double> rounds, refs, ratios;
    for (auto _ : state) {
        state.PauseTiming();
        refs.push_back(MemcpySeconds(src, dst, 50));
        CHost::TypeCaption(writer, CaptionLine(100000 + n++));
        state.ResumeTiming();
        const double t0 = ThreadCpuSeconds();
        host.PressReturn(writer);
        rounds.push_back(ThreadCpuSeconds() - t0);
        ratios.push_back(rounds.back() / kParticipants / refs.back());
        state.PauseTiming();
        host.AfterReturn(writer);
        state.ResumeTiming();
    }
    state.counters["text_bytes"] = static_cast<double>(shown.size());
    Report(state, rounds, kParticipants, Median(refs));
    state.counters["ratio"] = Median(ratios);
}

// (b) An 80 KB note published by the note taker to 10 readers.
void BM_NotePublish(benchmark::State& state)
{
    CHost host;
    CNoteClient& writer = host.Join(kWriterId, NOTETAKER_SINGLE, NOTE_USER_WRITER);
    for (int i = 0; i < kReaders; ++i)
        host.Join(kFirstReaderId + static_cast<unsigned>(i), NOTETAKER_SINGLE, NOTE_USER_READER);
    std::string note = Prose(kNoteBytes, 7, kLineBytes);
    const double ref = Compress2Seconds(note);
    NoteViewController& panel = CHost::Panel(writer);

    std::vector<double> rounds;
    unsigned n = 0;
    for (auto _ : state) {
        state.PauseTiming();
        // An edit near the end of the note, as typing would make it.
        note[note.size() - 2] = static_cast<char>('a' + (n++ % 26));
        panel.View().SetText(note);
        writer.HandleUIMessage(NOTEUI_TEXT_CHANGED, nullptr, nullptr);
        state.ResumeTiming();
        const double t0 = ThreadCpuSeconds();
        panel.onPublish(true);
        host.Settle();
        rounds.push_back(ThreadCpuSeconds() - t0);
    }
    Report(state, rounds, kParticipants, ref);
}

// The packed items of kCaptionLines caption changes, as the captioner puts them.
std::vector<std::vector<unsigned char>> CaptionItems()
{
    std::vector<std::vector<unsigned char>> items;
    int offset = 0;
    for (int i = 0; i < kCaptionLines; ++i) {
        CNoteChangeInfoPDU pdu;
        const std::string text = CaptionLine(static_cast<unsigned>(i)) + "\r\n";
        pdu.SetNoteMsg(text);
        pdu.SetOffSet(offset, 0);
        pdu.SetOffSet(0, 1);
        pdu.SetUniqueId(static_cast<int>(kWriterId));
        pdu.SetCacheId(i + 1);
        pdu.GenerateXMLPDU();
        const std::string xml = pdu.PrintCompact();
        std::vector<unsigned char> item(compressBound(xml.size()));
        uLongf len = item.size();
        compress2(item.data(), &len, reinterpret_cast<const Bytef*>(xml.data()), xml.size(), 3);
        item.resize(len);
        items.push_back(std::move(item));
        offset += static_cast<int>(text.size());
    }
    return items;
}

// Seconds to unpack and parse items alone, as a reader takes them in (the join's reference).
double DecodeSeconds(const std::vector<std::vector<unsigned char>>& items)
{
    std::vector<char> buf(64 * 1024);
    const double t0 = ThreadCpuSeconds();
    for (const auto& item : items) {
        uLongf len = buf.size() - 1;
        uncompress(reinterpret_cast<Bytef*>(buf.data()), &len, item.data(), item.size());
        buf[len] = '\0';
        CNoteChangeInfoPDU pdu;
        benchmark::DoNotOptimize(pdu.ParseXMLPDU(std::string(buf.data())));
    }
    return ThreadCpuSeconds() - t0;
}

// Sets NOTE_TRACE for the host UI library's default trace sink while it lives.
class CTraceLevel {
public:
    explicit CTraceLevel(const char* level)
    {
        const char* previous = std::getenv("NOTE_TRACE");
        m_bHadPrevious = previous != nullptr;
        if (previous) m_strPrevious = previous;
        setenv("NOTE_TRACE", level, 1);
        NoteHostUI_SetTraceCallback(nullptr, nullptr);
    }
    ~CTraceLevel()
    {
        if (m_bHadPrevious)
            setenv("NOTE_TRACE", m_strPrevious.c_str(), 1);
        else
            unsetenv("NOTE_TRACE");
        NoteHostUI_SetTraceCallback(nullptr, nullptr);
    }

private:
    bool m_bHadPrevious = false;
    std::string m_strPrevious;
};

// (c) A reader joining after 5,000 caption lines. Each iteration runs three rounds in a
// rotating order, so that drift and allocator state fall alike on all three: the reference
// (unpack and parse the same items), a join with the default trace sink as the environment sets
// it, and a join with tracing off. Ratios are medians of the per-iteration ratios.
void BM_LateJoin(benchmark::State& state)
{
    CHost host;
    CNoteClient& writer = host.Join(kWriterId, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_WRITER);
    for (int i = 0; i < kCaptionLines; ++i) host.PublishCaption(writer, CaptionLine(static_cast<unsigned>(i)));
    const std::vector<std::vector<unsigned char>> items = CaptionItems();
    const size_t expected = HostTextOf(writer).size();

    unsigned n = 0;
    auto joinSeconds = [&]() {
        const double t0 = ThreadCpuSeconds();
        CNoteClient& late = host.Join(kFirstReaderId + n++, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_READER);
        const double seconds = ThreadCpuSeconds() - t0;
        if (HostTextOf(late).size() != expected) state.SkipWithError("late joiner differs");
        host.Leave(late);
        return seconds;
    };
    auto quietJoinSeconds = [&]() {
        CTraceLevel off("none");
        return joinSeconds();
    };
    // One untimed round of each first: the heap and the caches settle.
    DecodeSeconds(items);
    joinSeconds();
    quietJoinSeconds();

    std::vector<double> refs, joins, quiet, ratios, quietRatios, traceCosts;
    for (auto _ : state) {
        double t[3] = {0, 0, 0};
        for (int k = 0; k < 3; ++k) {
            const int which = (k + static_cast<int>(refs.size())) % 3;
            t[which] = which == 0 ? DecodeSeconds(items) : which == 1 ? joinSeconds() : quietJoinSeconds();
        }
        refs.push_back(t[0]);
        joins.push_back(t[1]);
        quiet.push_back(t[2]);
        ratios.push_back(t[1] / t[0]);
        quietRatios.push_back(t[2] / t[0]);
        traceCosts.push_back((t[1] / t[2] - 1.0) * 100.0);
    }
    state.counters["ref_us"] = Median(refs) * 1e6;
    state.counters["join_us"] = Median(joins) * 1e6;
    state.counters["join_trace_off_us"] = Median(quiet) * 1e6;
    state.counters["ratio"] = Median(ratios);
    state.counters["ratio_trace_off"] = Median(quietRatios);
    state.counters["trace_cost_pct"] = Median(traceCosts);
}

long StatusKb(const char* key)
{
    std::ifstream in("/proc/self/status");
    std::string line;
    const size_t keyLen = std::strlen(key);
    while (std::getline(in, line))
        if (line.compare(0, keyLen, key) == 0) return std::atol(line.c_str() + keyLen + 1);
    return -1;
}

bool ResetPeak()
{
    std::ofstream out("/proc/self/clear_refs");
    out << "5";
    out.flush();
    return static_cast<bool>(out);
}

// (d) Peak memory of one participant holding 400 KB of captions.
void BM_PeakMemory(benchmark::State& state)
{
    for (auto _ : state) {
        const bool reset = ResetPeak();
        const long rest = StatusKb("VmRSS:");
        const long hwmBefore = StatusKb("VmHWM:");
        long afterWriter = 0, hwmWriter = 0, hwmReader = 0, afterReader = 0;
        {
            CHost host;
            CNoteClient& writer = host.Join(kWriterId, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_WRITER);
            for (int i = 0; i < kCaptionLines; ++i)
                host.PublishCaption(writer, CaptionLine(static_cast<unsigned>(i)));
            afterWriter = StatusKb("VmRSS:");
            hwmWriter = StatusKb("VmHWM:");
            if (reset) ResetPeak();
            const long beforeReader = StatusKb("VmRSS:");
            host.Join(kFirstReaderId, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_READER);
            afterReader = StatusKb("VmRSS:") - beforeReader;
            hwmReader = StatusKb("VmHWM:") - beforeReader;
        }
        state.counters["peak_reset_ok"] = reset ? 1 : 0;
        state.counters["rest_MiB"] = rest / 1024.0;
        state.counters["hwm_at_start_MiB"] = hwmBefore / 1024.0;
        state.counters["captioner_rss_above_rest_MiB"] = (afterWriter - rest) / 1024.0;
        state.counters["captioner_peak_above_rest_MiB"] = (hwmWriter - rest) / 1024.0;
        state.counters["reader_join_rss_MiB"] = afterReader / 1024.0;
        state.counters["reader_join_peak_MiB"] = hwmReader / 1024.0;
    }
}

}  // namespace

BENCHMARK(BM_PeakMemory)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CaptionPublish)->Iterations(40)->Repetitions(3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NotePublish)->Iterations(200)->Repetitions(3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LateJoin)->Iterations(9)->Unit(benchmark::kMillisecond);
