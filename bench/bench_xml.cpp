// Generate + print + parse of change PDUs and save records. Time must grow linearly with the
// text, and a text full of "abc" (the escape stand-in) must cost about what a plain one does.
#include "xml/OrvNoteXML.h"

#include <benchmark/benchmark.h>

#include <string>

namespace {

// Caption-like text: words and CR LF line ends; withStandIns puts "abc" in every word.
std::string MakeText(size_t bytes, bool withStandIns)
{
    static const char* words[] = {"meeting", "notes", "agenda", "speaker", "caption", "item"};
    std::string text;
    for (size_t i = 0; text.size() < bytes; ++i) {
        text += words[i % 6];
        if (withStandIns) text += "abc";
        text += (i % 9 == 8) ? "\r\n" : " ";
    }
    text.resize(bytes);
    return text;
}

void ChangePduCycle(benchmark::State& state, bool withStandIns)
{
    const std::string text = MakeText(static_cast<size_t>(state.range(0)), withStandIns);
    for (auto _ : state) {
        CNoteChangeInfoPDU out;
        out.SetUniqueId(7);
        out.SetOffSet(12, 0);
        out.SetOffSet(15, 1);
        out.SetCacheId(3);
        out.SetNoteMsg(text);
        out.GenerateXMLPDU();
        const std::string printed = out.PrintCompact();
        CNoteChangeInfoPDU in;
        in.ParseXMLPDU(printed);
        benchmark::DoNotOptimize(in.GetNoteMsg());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

void SaveRecordCycle(benchmark::State& state, bool withStandIns)
{
    const std::string text = MakeText(static_cast<size_t>(state.range(0)), withStandIns);
    for (auto _ : state) {
        CNoteSaveInfoPDU out;
        out.SetNoteShowMsg(text);
        out.SetPublishMsg(text);
        out.SetChannalID(1234);
        out.SetUserType(1);
        out.AddNetInfo("net");
        out.GenerateXMLPDU();
        TiXmlPrinter printer;  // indented, as the auto-save file is written
        out.Accept(&printer);
        CNoteSaveInfoPDU in;
        in.ParseXMLPDU(printer.Str());
        benchmark::DoNotOptimize(in.GetNoteShowMsg());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

void BM_ChangePdu(benchmark::State& state) { ChangePduCycle(state, false); }
void BM_ChangePduFullOfAbc(benchmark::State& state) { ChangePduCycle(state, true); }
void BM_SaveRecord(benchmark::State& state) { SaveRecordCycle(state, false); }
void BM_SaveRecordFullOfAbc(benchmark::State& state) { SaveRecordCycle(state, true); }

// A save record holding 1,000 change PDUs of one caption line each, parsed from its string
// form (which runs the CDATA repair over the whole document).
void BM_SaveRecordThousandChanges(benchmark::State& state)
{
    CNoteSaveInfoPDU out;
    for (int i = 0; i < 1000; ++i) {
        CNoteChangeInfoPDU change;
        change.SetCacheId(i + 1);
        change.SetUniqueId(7);
        change.SetOffSet(i * 40, 0);
        change.SetNoteMsg("caption line " + std::to_string(i) + " ]]> spoken words\r\n");
        out.m_vecChangeInfoPdu.push_back(change);
    }
    for (auto _ : state) {
        out.GenerateXMLPDU();
        const std::string printed = out.PrintCompact();
        CNoteSaveInfoPDU in;
        in.ParseXMLPDU(printed);
        benchmark::DoNotOptimize(in.m_vecChangeInfoPdu.size());
    }
}

BENCHMARK(BM_ChangePdu)->Arg(100)->Arg(40 * 1024)->Arg(400 * 1024)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ChangePduFullOfAbc)->Arg(400 * 1024)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SaveRecord)->Arg(100)->Arg(40 * 1024)->Arg(400 * 1024)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SaveRecordFullOfAbc)->Arg(400 * 1024)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SaveRecordThousandChanges)->Unit(benchmark::kMillisecond);

}  // namespace
