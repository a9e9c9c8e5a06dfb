// Line-ending conversions on 400 KB of text with a line end about every 40 bytes, against a
// plain memcpy of the same bytes. Goal: each conversion within 5 times the memcpy.
// The Mac direction gets CR LF text; the Win directions get LF text (ConvertToWinText, which
// leaves LF alone, gets CR text, so that it has work to do).
#include "platform/NtGlobale.h"

#include <benchmark/benchmark.h>

#include <string.h>

#include <memory>
#include <string>

namespace {

const size_t kTextSize = 400 * 1024;

std::string MakeText(const char* lineEnd)
{
    static const char* const kLines[] = {"The captioner types what the speaker says.",
                                         "Short line.",
                                         "Notes go out to everybody once they are published,",
                                         "and the auto-save file keeps them."};
    std::string text;
    text.reserve(kTextSize + 64);
    for (size_t i = 0; text.size() < kTextSize; ++i) {
        text += kLines[i % 4];
        text += lineEnd;
    }
    text.resize(kTextSize);
    return text;
}

void SetBytes(benchmark::State& state, size_t bytes)
{
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(bytes));
}

void BM_Memcpy(benchmark::State& state)
{
    const std::string in = MakeText("\r\n");
    std::unique_ptr<char[]> out(new char[in.size()]);
    for (auto _ : state) {
        memcpy(out.get(), in.data(), in.size());
        benchmark::DoNotOptimize(out.get());
        benchmark::ClobberMemory();
    }
    SetBytes(state, in.size());
}
BENCHMARK(BM_Memcpy);

void BM_ConvertToMacText(benchmark::State& state)
{
    const std::string in = MakeText("\r\n");
    std::string out;
    for (auto _ : state) {
        ConvertToMacText(in, out);
        benchmark::DoNotOptimize(out.data());
    }
    SetBytes(state, in.size());
}
BENCHMARK(BM_ConvertToMacText);

void RunWin(benchmark::State& state, void (*convert)(const std::string&, std::string&),
            const char* lineEnd)
{
    const std::string in = MakeText(lineEnd);
    std::string out;
    for (auto _ : state) {
        convert(in, out);
        benchmark::DoNotOptimize(out.data());
    }
    SetBytes(state, in.size());
}

void BM_ConvertToWinText_CR(benchmark::State& state) { RunWin(state, ConvertToWinText, "\r"); }
BENCHMARK(BM_ConvertToWinText_CR);

void BM_ConvertToWinText2_LF(benchmark::State& state) { RunWin(state, ConvertToWinText2, "\n"); }
BENCHMARK(BM_ConvertToWinText2_LF);

void BM_ConvertToWinText2_CR(benchmark::State& state) { RunWin(state, ConvertToWinText2, "\r"); }
BENCHMARK(BM_ConvertToWinText2_CR);

void BM_ConvertToWinText3(benchmark::State& state)
{
    const std::string in = MakeText("\n");
    for (auto _ : state) {
        std::unique_ptr<char[]> out(ConvertToWinText3(in.c_str()));
        benchmark::DoNotOptimize(out.get());
    }
    SetBytes(state, in.size());
}
BENCHMARK(BM_ConvertToWinText3);

}  // namespace
