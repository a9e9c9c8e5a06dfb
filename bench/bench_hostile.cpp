// The cost of the worst inputs each surface can be handed, on the real client and the real
// conference (in-process), and the size of what a long legitimate meeting writes.
//
// Each case reports, per iteration (a fresh meeting each time, built before the measurement):
//   cpu_ms    CPU time of the main thread, which runs the whole meeting (median).
//   peak_MiB  peak resident memory above rest: VmHWM minus VmRSS, both from /proc/self/status,
//             with free heap memory first given back (malloc_trim, so that the case cannot
//             reuse resident free pages unseen) and the peak reset to the current size through
//             /proc/self/clear_refs ("5") right before the case (largest of the iterations).
//             peak_reset is 0 if the kernel refused the reset: the figure is then meaningless.
//   bytes     size of the input (or of the file written).
// Targets: a cache item or data unit <= 50 ms and <= 16 MiB (or refused); a file refused or
// loaded in time linear in its size. Run one family at a time, e.g.
//   build/bench/bench_hostile --benchmark_filter=Item
// Tracing is off, as in a host run without --trace: lines are dropped before they are formatted.
#include "ClientHarness.h"

#include "conference/DataUnits.h"
#include "conference/LocalConference.h"
#include "tessarinnote/notehostui.h"
#include "tessarinnote/uiinterface.h"
#include "xml/NoteSaveInfoPDU.h"

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

namespace {

constexpr unsigned kWriterId = 11;
constexpr unsigned kReaderId = 21;
// The longest text an item unpacks to in a captions notepad: the work buffer (6 bytes a
// character of the 409,600), and twice that once it has grown for one.
constexpr size_t kClamp = CNoteClient::BufSizeFor(CNoteClient::kCaptionsMaxTextLen);

// --- measuring

double ThreadCpuSeconds()
{
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

long StatusKb(const char* key)
{
    std::ifstream in("/proc/self/status");
    std::string line;
    const size_t n = std::strlen(key);
    while (std::getline(in, line))
        if (line.compare(0, n, key) == 0) return std::atol(line.c_str() + n + 1);
    return -1;
}

bool ResetPeak()
{
    std::ofstream out("/proc/self/clear_refs");
    out << "5";
    out.flush();
    return bool(out);
}

// One case: prepare() builds what the case needs, untimed; run() is measured.
struct CCase {
    std::function<void()> prepare;
    std::function<void()> run;
    std::function<void()> done;  // untimed, after the measurement
};

void Measure(benchmark::State& state, const std::function<CCase()>& make, double bytes)
{
    std::vector<double> cpu;
    double peakMiB = 0;
    bool reset = true;
    for (auto _ : state) {
        state.PauseTiming();
        CCase c = make();
        if (c.prepare) c.prepare();
        malloc_trim(0);
        reset = ResetPeak() && reset;
        const long rest = StatusKb("VmRSS:");
        state.ResumeTiming();
        const double t0 = ThreadCpuSeconds();
        c.run();
        cpu.push_back(ThreadCpuSeconds() - t0);
        state.PauseTiming();
        peakMiB = std::max(peakMiB, double(StatusKb("VmHWM:") - rest) / 1024.0);
        if (c.done) c.done();
        state.ResumeTiming();
    }
    std::sort(cpu.begin(), cpu.end());
    state.counters["cpu_ms"] = cpu.empty() ? 0 : cpu[cpu.size() / 2] * 1e3;
    state.counters["peak_MiB"] = peakMiB;
    state.counters["peak_reset"] = reset ? 1 : 0;
    state.counters["bytes"] = bytes;
}

// --- inputs

std::string Repeat(const std::string& s, size_t bytes)
{
    std::string out;
    out.reserve(bytes + s.size());
    while (out.size() < bytes) out += s;
    return out;
}

std::string Le32(uint32_t v)
{
    return std::string{char(v), char(v >> 8), char(v >> 16), char(v >> 24)};
}

// A packed item announcing lenOut, with text compressed as its body.
std::string PackedItem(const std::string& text, uint32_t lenOut)
{
    std::string body(compressBound(text.size()), '\0');
    uLongf len = body.size();
    compress2(reinterpret_cast<Bytef*>(&body[0]), &len, reinterpret_cast<const Bytef*>(text.data()), text.size(), 3);
    body.resize(len);
    return Le32(lenOut) + Le32(uint32_t(len)) + body;
}

std::string Truncated(std::string s, size_t bytes)
{
    s.resize(std::min(s.size(), bytes));
    return s;
}

const char kChangeHead[] =
    "<notecom ver=\"1.0\" mtype=\"3\" useruniqueid=\"11\" offset=\"0\" offsetlast=\"0\" cacheid=\"0\">";

// A change PDU of about bytes bytes whose one segment holds text made of unit.
std::string ChangeOfText(const std::string& unit, size_t bytes, const std::string& posList = "")
{
    return std::string(kChangeHead) + "<seginfo endnewline=\"0\" posnotemsg=\"" + posList +
           "\" special=\"0\"><![CDATA[" + Repeat(unit, bytes) + "]]></seginfo></notecom>";
}

// The positions of every unit-long step of a text of bytes bytes.
std::string EveryOffset(size_t bytes, size_t step)
{
    std::string list;
    for (size_t p = 0; p < bytes; p += step) list += std::to_string(p) + ",";
    return list;
}

// A meeting with a captions writer and one reader that the inputs are handed to.
struct CMeeting {
    explicit CMeeting(const CMeetingOptions& options = CMeetingOptions())
        : harness(options),
          writer(harness.Join(kWriterId, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_WRITER)),
          reader(harness.Join(kReaderId, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_READER))
    {
    }
    // One cache item, as the change cache delivers a new one.
    void Deliver(const std::string& item)
    {
        IArmService& service = *reader.m_pArmService;
        unsigned handle = 0;
        service.ArmService_AllocMemHandle(unsigned(item.size()), &handle);
        service.ArmService_WriteMemHandle(handle, 0, item.data(), unsigned(item.size()));
        reader.SharedDataReceivedEx(1, reader.m_nLastCacheId + 1, reader.m_nChangeCacheHandle, handle, 0,
                                    CACHE_ACTION_ADDED, 0, 0, 0);
        service.ArmService_FreeMemHandle(handle);
    }
    CClientHarness harness;
    CNoteClient& writer;
    CNoteClient& reader;
};

// A case that hands item (built untimed) to a fresh meeting's reader.
std::function<CCase()> ItemCase(std::function<std::string()> makeItem)
{
    return [makeItem]() {
        auto meeting = std::make_shared<CMeeting>();
        auto item = std::make_shared<std::string>(makeItem());
        return CCase{nullptr, [meeting, item] { meeting->Deliver(*item); }, nullptr};
    };
}

void RegisterItem(const char* name, std::function<std::string()> makeItem)
{
    const double bytes = double(makeItem().size());
    benchmark::RegisterBenchmark(name, [=](benchmark::State& state) { Measure(state, ItemCase(makeItem), bytes); })
        ->Iterations(3)
        ->Unit(benchmark::kMillisecond);
}

// --- cache items

void RegisterItems()
{
    // Unpacks as far as the client lets it: the announced length is cut at the clamp and the
    // first such item grows the buffer to twice that.
    // Unpacks as far as the client lets it: the announced length is cut at the clamp, and the
    // first such item grows the buffer to twice that, which is then the limit. The text is a
    // valid change PDU of that length.
    RegisterItem("Item/UnpacksToTheClamp", [] {
        const std::string text = ChangeOfText("a", 2 * kClamp - 200);
        return PackedItem(Truncated(text, 2 * kClamp - 150) + "]]></seginfo></notecom>", 0xFFFFFFFFu);
    });
    // The longest change a captioner can send: 409,600 characters of three bytes each.
    RegisterItem("Item/LongestLegitimateCaption", [] {
        CNoteChangeInfoPDU pdu;
        pdu.SetNoteMsg(Repeat("\xE2\x82\xAC", 3 * CNoteClient::kCaptionsMaxTextLen));
        pdu.SetOffSet(0, 0);
        pdu.SetUniqueId(int(kWriterId));
        pdu.GenerateXMLPDU();
        const std::string xml = pdu.PrintCompact();
        return PackedItem(xml, uint32_t(xml.size()));
    });
    // Stored, not compressed: as long as the buffer takes.
    RegisterItem("Item/StoredAtTheClamp", [] {
        const std::string text = ChangeOfText("x", kClamp - 200);
        return Le32(0) + Le32(uint32_t(text.size())) + text;
    });
    // The same length where no CDATA section is, which the library reads a character at a
    // time: a plain text and a CDATA section inside a comment (both refused beyond a quarter
    // megabyte), an attribute value, entities.
    RegisterItem("Item/PlainTextAtTheClamp", [] {
        return PackedItem(std::string(kChangeHead) + "<seginfo endnewline=\"0\" posnotemsg=\"\" special=\"0\">" +
                              Repeat("x", kClamp - 200) + "</seginfo></notecom>",
                          uint32_t(kClamp));
    });
    RegisterItem("Item/AttributeAtTheClamp", [] {
        return PackedItem(std::string(kChangeHead) + "<seginfo endnewline=\"0\" posnotemsg=\"\" special=\"0\" x=\"" +
                              Repeat("x", kClamp - 200) + "\"><![CDATA[a]]></seginfo></notecom>",
                          uint32_t(kClamp));
    });
    RegisterItem("Item/EntitiesAtTheClamp", [] {
        return PackedItem(std::string(kChangeHead) + "<seginfo endnewline=\"0\" posnotemsg=\"\" special=\"0\" x=\"" +
                              Repeat("&amp;", kClamp / 2 - 100) + "\">" + Repeat("&#x41;", kClamp / 2 - 100) + "</seginfo></notecom>",
                          uint32_t(kClamp));
    });
    RegisterItem("Item/CdataInACommentAtTheClamp", [] {
        return PackedItem(std::string(kChangeHead) + "<!-- <![CDATA[" + Repeat("x", kClamp - 200) +
                              "]]> --><seginfo endnewline=\"0\" posnotemsg=\"\" special=\"0\">a</seginfo></notecom>",
                          uint32_t(kClamp));
    });
    // Element nesting 31 deep (the guard's limit is 32), repeated to the clamp.
    RegisterItem("Item/NestingUnderTheGuard", [] {
        std::string nest;
        for (int i = 0; i < 30; ++i) nest += "<a>";
        for (int i = 0; i < 30; ++i) nest += "</a>";
        return PackedItem(std::string(kChangeHead) + Repeat(nest, kClamp - 200) + "</notecom>", uint32_t(kClamp));
    });
    // Many small elements side by side: the document the library builds is the largest.
    RegisterItem("Item/ManyElements", [] {
        return PackedItem(std::string(kChangeHead) + Repeat("<b/>", kClamp - 200) + "</notecom>", uint32_t(kClamp));
    });
    RegisterItem("Item/ManySegments", [] {
        return PackedItem(std::string(kChangeHead) +
                              Repeat("<seginfo endnewline=\"1\" posnotemsg=\"0,\" special=\"0\">abc</seginfo>",
                                     kClamp - 200) +
                              "</notecom>",
                          uint32_t(kClamp));
    });
    // A text full of "abc" with every one of them listed as an escaped "]]>".
    RegisterItem("Item/EscapesEverywhere", [] {
        const size_t text = kClamp / 3;
        return PackedItem(ChangeOfText("abc", text, EveryOffset(text, 3)), uint32_t(kClamp));
    });
    // Out-of-range numbers in every attribute, and a position list of them.
    RegisterItem("Item/NumbersOutOfRange", [] {
        const std::string big = "99999999999999999999999";
        const std::string pdu = "<notecom ver=\"1.0\" mtype=\"3\" useruniqueid=\"-" + big + "\" offset=\"" + big +
                                "\" offsetlast=\"-2147483649\" cacheid=\"4294967296\"><seginfo endnewline=\"" +
                                big + "\" posnotemsg=\"" + Repeat("2147483648,-2147483649," + big + ",", kClamp / 2) +
                                "\" special=\"-" + big + "\"><![CDATA[abc]]></seginfo></notecom>";
        return PackedItem(pdu, uint32_t(kClamp));
    });
}

// --- data units and resource messages

void RegisterUnits()
{
    // Empty envelopes back to back, as many as fit the clamp: 14 bytes each.
    const std::string chain = Repeat(BuildDataUnitEnvelope(33, 0, 0, ""), kClamp);
    benchmark::RegisterBenchmark("Unit/ChainOfEmptyEnvelopes", [chain](benchmark::State& state) {
        Measure(state, [chain]() {
            auto m = std::make_shared<CMeeting>();
            auto bytes = std::make_shared<std::string>(chain);
            return CCase{nullptr, [m, bytes] {
                m->reader.ApeDataIndication(0, 33, 0, 0, reinterpret_cast<unsigned char*>(&(*bytes)[0]),
                                            unsigned(bytes->size()));
            }, nullptr};
        }, double(chain.size()));
    })->Iterations(3)->Unit(benchmark::kMillisecond);

    const std::string chainOfOne = Repeat(BuildDataUnitEnvelope(33, 0, 0, "x"), kClamp);
    benchmark::RegisterBenchmark("Unit/ChainOfOneByteEnvelopes", [chainOfOne](benchmark::State& state) {
        Measure(state, [chainOfOne]() {
            auto m = std::make_shared<CMeeting>();
            auto bytes = std::make_shared<std::string>(chainOfOne);
            return CCase{nullptr, [m, bytes] {
                m->reader.ApeDataIndication(0, 33, 0, 0, reinterpret_cast<unsigned char*>(&(*bytes)[0]),
                                            unsigned(bytes->size()));
            }, nullptr};
        }, double(chainOfOne.size()));
    })->Iterations(3)->Unit(benchmark::kMillisecond);

    // A PKI resource message of small sealed records, each a whole-text unit.
    benchmark::RegisterBenchmark("Unit/PkiTinyRecords", [](benchmark::State& state) {
        double bytes = 0;
        Measure(state, [&bytes]() {
            CMeetingOptions options;
            options.bPki = true;
            auto m = std::make_shared<CMeeting>(options);
            auto* conference = dynamic_cast<CLocalConference*>(&m->harness.Meeting());
            const std::string record = conference->SealRecord(BuildDataUnitEnvelope(kWriterId, 0, 0, "x"));
            std::string sequence = Repeat(std::to_string(record.size()) + record, kClamp / 2);
            auto payload = std::make_shared<std::string>(sequence + std::string(sequence.size() + 1, '\0'));
            bytes = double(payload->size());
            return CCase{nullptr, [m, payload] {
                ARMMsg_SessRscInd msg;
                msg.pszResourceName = "ClosedCaption";
                msg.nLength = uint32_t(payload->size());
                msg.pData = reinterpret_cast<const unsigned char*>(payload->data());
                msg.nKind = 0;
                m->reader.Handle_ArmMsg_SessRscInd(&msg);
            }, nullptr};
        }, 0);
        state.counters["bytes"] = bytes;
    })->Iterations(3)->Unit(benchmark::kMillisecond);
}

// --- auto-save files

// Writes text to a fresh temporary file; the path, removed by the case's done().
std::string TempFile(const std::string& text)
{
    char path[] = "/tmp/note_hostile_XXXXXX";
    const int fd = mkstemp(path);
    if (fd >= 0) {
        for (size_t done = 0; done < text.size();) {
            const ssize_t n = write(fd, text.data() + done, text.size() - done);
            if (n <= 0) break;
            done += size_t(n);
        }
        close(fd);
    }
    return path;
}

// A captions writer loading the file made, as on rejoin; loaded is 1 when the file was taken.
void RegisterFile(const std::string& name, std::function<std::string()> makeFile)
{
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
        double bytes = 0;
        auto loaded = std::make_shared<bool>(false);
        Measure(state, [&bytes, makeFile, loaded]() {
            auto m = std::make_shared<CMeeting>();
            const std::string file = makeFile();
            bytes = double(file.size());
            auto path = std::make_shared<std::string>(TempFile(file));
            return CCase{nullptr, [m, path, loaded] {
                *loaded = m->writer.LoadXMLFile(m->writer.m_SaveInfo, path->c_str());
            }, [path] { std::remove(path->c_str()); }};
        }, 0);
        state.counters["bytes"] = bytes;
        state.counters["loaded"] = *loaded ? 1 : 0;
    })->Iterations(1)->Unit(benchmark::kMillisecond);
}

// A captioner's save document after n Returns on empty lines, the most changes a caption
// history can hold (each Return commits one character), as the client writes it.
std::string CaptionFile(size_t n)
{
    CNoteSaveInfoPDU record;
    std::string text;
    record.m_vecChangeInfoPdu.reserve(n);
    for (size_t i = 0; i < n; ++i) {
        CNoteChangeInfoPDU change;
        change.SetNoteMsg("\r\n");
        change.SetOffSet(int(text.size()), 0);
        change.SetOffSet(0, 1);
        change.SetUniqueId(int(kWriterId));
        change.SetCacheId(int(i + 1));
        record.m_vecChangeInfoPdu.push_back(change);
        text += "\r\n";
    }
    record.SetNoteShowMsg(text);
    record.SetPublishMsg(text);
    record.SetOldMsg(text);
    record.SetChannalID(301);
    record.SetUserType(1);
    record.GenerateXMLPDU();
    TiXmlPrinter printer;
    printer.SetIndent("    ");
    record.Accept(&printer);
    return printer.Str();
}

// A save document whose shown text is one CDATA section of about bytes bytes of "abc", each
// listed as an escaped "]]>".
std::string EscapedTextFile(size_t bytes)
{
    const size_t text = bytes / 4;  // the position list, 8 or 9 bytes an entry, takes the rest
    return Truncated("<notecom ver=\"1.0\" mtype=\"2\"><noteinfo><![CDATA[" + Repeat("abc", text) +
                         "]]></noteinfo><posnotemsg><![CDATA[" + EveryOffset(text, 3),
                     bytes - 40) +
           ",]]></posnotemsg></notecom>";
}

void RegisterFiles()
{
    // Half and all of the longest caption history (409,600 Returns on empty lines).
    for (size_t n : {CNoteClient::kCaptionsMaxTextLen / 2, CNoteClient::kCaptionsMaxTextLen})
        RegisterFile("File/CaptionHistory/" + std::to_string(n) + "Returns", [n] { return CaptionFile(n); });
    for (size_t mib : {32, 64}) {
        const size_t bytes = mib * 1024 * 1024 - 64;
        RegisterFile("File/EscapedText/" + std::to_string(mib) + "MiB", [bytes] { return EscapedTextFile(bytes); });
        RegisterFile("File/ManyElements/" + std::to_string(mib) + "MiB",
                     [bytes] {
                         return Truncated("<notecom ver=\"1.0\" mtype=\"2\">" + Repeat("<netinfo/>", bytes), bytes - 12) +
                                "</notecom>";
                     });
    }
    // A (sparse) file one byte over the limit: refused unread.
    benchmark::RegisterBenchmark("File/Oversized", [](benchmark::State& state) {
        const double bytes = double(COrvNoteBaseXML::kMaxFileBytes) + 1;
        Measure(state, [bytes]() {
            auto m = std::make_shared<CMeeting>();
            auto path = std::make_shared<std::string>(TempFile(""));
            if (truncate(path->c_str(), off_t(bytes)) != 0) std::perror("truncate");
            return CCase{nullptr, [m, path] { m->writer.LoadXMLFile(m->writer.m_SaveInfo, path->c_str()); },
                         [path] { std::remove(path->c_str()); }};
        }, bytes);
    })->Iterations(1)->Unit(benchmark::kMillisecond);
}

// --- what a long legitimate meeting writes

std::string FileText(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

// A note of bytes bytes of prose-like words with a line end every 80.
std::string Note(size_t bytes, unsigned seed)
{
    static const char* const kWords[] = {"the", "meeting", "note", "we", "review", "numbers", "and", "plan"};
    std::string text;
    while (text.size() < bytes) {
        seed = seed * 1103515245u + 12345u;
        text += kWords[(seed >> 16) % 8];
        text += (text.size() % 80 < 8) ? "\n" : " ";
    }
    text.resize(bytes);
    return text;
}

// The writer's auto-save file after the meeting ran; its size and how long it takes to load
// back for a writer who rejoins.
void Written(benchmark::State& state, NOTETAKERTYPE type, const std::function<void(CClientHarness&, CNoteClient&)>& meet)
{
    char dir[] = "/tmp/note_meeting_XXXXXX";
    if (!mkdtemp(dir)) return state.SkipWithError("no temporary folder");
    const std::string path = std::string(dir) + "/auto.xml";
    size_t changes = 0;
    {
        CClientHarness harness;
        CNoteClient& writer = harness.Join(kWriterId, type, NOTE_USER_WRITER, path);
        harness.Join(kReaderId, type, NOTE_USER_READER);
        meet(harness, writer);
        changes = writer.m_SaveInfo.m_vecChangeInfoPdu.size();
        writer.MeetingLost(1);
    }
    const double fileBytes = double(FileText(path).size());
    Measure(state, [&]() {
        auto h = std::make_shared<CClientHarness>();
        CNoteClient* rejoined = &h->Join(kWriterId, type, NOTE_USER_WRITER);
        return CCase{nullptr, [h, rejoined, path] {
            if (!rejoined->LoadXMLFile(rejoined->m_SaveInfo, path.c_str())) std::fprintf(stderr, "not loaded\n");
        }, nullptr};
    }, fileBytes);
    state.counters["changes"] = double(changes);
    std::remove(path.c_str());
    rmdir(dir);
}

void RegisterMeetings()
{
    // 1,000 publishes of an 80 KB note by the single note taker, each after an edit.
    benchmark::RegisterBenchmark("Meeting/Notes1000Publishes80KB", [](benchmark::State& state) {
        Written(state, NOTETAKER_SINGLE, [](CClientHarness& h, CNoteClient& writer) {
            std::string note = Note(80 * 1000, 7);
            for (int i = 0; i < 1000; ++i) {
                note[size_t(i * 79) % note.size()] = char('a' + i % 26);
                h.Type(writer, note);
                h.Publish(writer);
            }
        });
    })->Iterations(1)->Unit(benchmark::kMillisecond);
    // A full caption history of 409,600 characters in lines of 80 (79 and the line end).
    benchmark::RegisterBenchmark("Meeting/Captions409600In80CharLines", [](benchmark::State& state) {
        Written(state, NOTETAKER_CLOSED_CAPTIONS, [](CClientHarness& h, CNoteClient& writer) {
            for (int i = 0; i < 409600 / 80; ++i) TypeLine(h, writer, Note(79, unsigned(i) + 1).c_str());
        });
    })->Iterations(1)->Unit(benchmark::kMillisecond);
    // The same history made of empty lines (each Return one character) is the most change
    // PDUs a caption history can hold; driven here for its first lines (the file grows by the
    // same bytes for each further one).
    for (int lines : {2048, 4096}) {
        benchmark::RegisterBenchmark(("Meeting/CaptionsEmptyLines/" + std::to_string(lines)).c_str(),
                                     [lines](benchmark::State& state) {
            Written(state, NOTETAKER_CLOSED_CAPTIONS, [lines](CClientHarness& h, CNoteClient& writer) {
                for (int i = 0; i < lines; ++i) PressReturnAtEnd(h, writer);
            });
        })->Iterations(1)->Unit(benchmark::kMillisecond);
    }
}

}  // namespace

int main(int argc, char** argv)
{
    NoteHostUI_SetTraceOff();
    RegisterItems();
    RegisterUnits();
    RegisterFiles();
    RegisterMeetings();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
