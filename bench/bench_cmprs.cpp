// Compression throughput of CCompressEngine on change-PDU-like XML, beside zlib's own
// compress2 (level 3) and uncompress on the same data, so the wrapper's overhead shows.
// Figures are MB/s of uncompressed text in both directions.
#include "transport/NoteCmprs.h"

#include <benchmark/benchmark.h>
#include <zlib.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

// Change PDUs as the writer sends them: small XML envelopes around CDATA text of varied words.
std::vector<unsigned char> ChangePduText(size_t size)
{
    static const char* const kWords[] = {"the", "meeting", "agreed", "to", "move", "release", "date", "budget",
                                         "owner", "review", "customer", "feedback", "next", "week", "action",
                                         "item", "captions", "notes", "Friday", "minutes", "draft", "plan"};
    const size_t wordCount = sizeof kWords / sizeof kWords[0];
    std::string text;
    uint32_t seed = 2024;
    auto next = [&seed] { return seed = seed * 1664525u + 1013904223u; };
    for (unsigned cacheId = 1; text.size() < size; ++cacheId) {
        text += "<notecom ver=\"1.0\" mtype=\"3\" cacheid=\"" + std::to_string(cacheId) + "\" offset=\"" +
                std::to_string(next() % 80000) + "\" rmlen=\"" + std::to_string(next() % 40) +
                "\"><seginfo posnotemsg=\"\" segtype=\"1\"><![CDATA[";
        const unsigned words = 8 + next() % 24;
        for (unsigned w = 0; w < words; ++w) {
            text += kWords[(next() >> 16) % wordCount];
            text += (next() % 9 == 0) ? ".\r\n" : " ";
        }
        text += "]]></seginfo></notecom>";
    }
    text.resize(size);
    return std::vector<unsigned char>(text.begin(), text.end());
}

std::vector<unsigned char> Compressed(const std::vector<unsigned char>& plain)
{
    std::vector<unsigned char> out(compressBound(plain.size()));
    uLongf len = out.size();
    compress2(out.data(), &len, plain.data(), plain.size(), 3);
    out.resize(len);
    return out;
}

void BM_EngineCompress(benchmark::State& state)
{
    std::vector<unsigned char> plain = ChangePduText(static_cast<size_t>(state.range(0)));
    std::vector<unsigned char> out(compressBound(plain.size()));
    CCompressEngine engine;
    for (auto _ : state) {
        unsigned long len = out.size();
        if (engine.Compress(plain.data(), out.data(), plain.size(), &len) != Z_OK) state.SkipWithError("compress");
        benchmark::DoNotOptimize(len);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(plain.size()));
    state.counters["ratio"] = static_cast<double>(plain.size()) / static_cast<double>(Compressed(plain).size());
}

void BM_ZlibCompress2(benchmark::State& state)
{
    std::vector<unsigned char> plain = ChangePduText(static_cast<size_t>(state.range(0)));
    std::vector<unsigned char> out(compressBound(plain.size()));
    for (auto _ : state) {
        uLongf len = out.size();
        if (compress2(out.data(), &len, plain.data(), plain.size(), 3) != Z_OK) state.SkipWithError("compress2");
        benchmark::DoNotOptimize(len);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(plain.size()));
}

void BM_EngineDecompress(benchmark::State& state)
{
    std::vector<unsigned char> plain = ChangePduText(static_cast<size_t>(state.range(0)));
    std::vector<unsigned char> packed = Compressed(plain);
    std::vector<unsigned char> out(plain.size());
    CCompressEngine engine;
    for (auto _ : state) {
        unsigned long len = out.size();
        if (engine.Decompress(packed.data(), out.data(), packed.size(), &len) != Z_OK) state.SkipWithError("decompress");
        benchmark::DoNotOptimize(len);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(plain.size()));
}

void BM_ZlibUncompress(benchmark::State& state)
{
    std::vector<unsigned char> plain = ChangePduText(static_cast<size_t>(state.range(0)));
    std::vector<unsigned char> packed = Compressed(plain);
    std::vector<unsigned char> out(plain.size());
    for (auto _ : state) {
        uLongf len = out.size();
        if (uncompress(out.data(), &len, packed.data(), packed.size()) != Z_OK) state.SkipWithError("uncompress");
        benchmark::DoNotOptimize(len);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(plain.size()));
}

// 40 KB: a note-taker's whole text; 400 KB: a full closed-captions text.
BENCHMARK(BM_EngineCompress)->Arg(40 * 1024)->Arg(400 * 1024);
BENCHMARK(BM_ZlibCompress2)->Arg(40 * 1024)->Arg(400 * 1024);
BENCHMARK(BM_EngineDecompress)->Arg(40 * 1024)->Arg(400 * 1024);
BENCHMARK(BM_ZlibUncompress)->Arg(40 * 1024)->Arg(400 * 1024);

}  // namespace
