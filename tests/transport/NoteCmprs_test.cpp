// CCompressEngine: round trips, the exact level-3 zlib stream, and zlib's failure codes passed
// through unchanged.
#include "transport/NoteCmprs.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

// Pseudo-random bytes; with text=true, words of change-PDU-like XML, varied enough that
// compression levels differ in their output.
Bytes Sample(size_t size, bool text)
{
    static const char* const kWords[] = {"<notecom ver=\"1.0\" mtype=\"3\">", "<![CDATA[", "]]></seginfo>",
                                         "minutes ", "action ", "owner ", "budget ", "review\r\n", "deadline "};
    std::string out;
    uint32_t seed = 12345;
    while (out.size() < size) {
        seed = seed * 1664525u + 1013904223u;
        if (text)
            out += kWords[(seed >> 16) % 9] + std::to_string(seed % 97);
        else
            out += static_cast<char>(seed >> 24);
    }
    out.resize(size);
    return Bytes(out.begin(), out.end());
}

int Compress(Bytes source, Bytes& out)
{
    CCompressEngine engine;
    out.assign(compressBound(source.size()), 0);
    unsigned long len = out.size();
    const int rc = engine.Compress(source.data(), out.data(), source.size(), &len);
    out.resize(rc == Z_OK ? len : 0);
    return rc;
}

TEST(CompressEngine, RoundTripRestoresInput)
{
    CCompressEngine engine;
    EXPECT_TRUE(engine.CanCompress());  // no set-up needed first
    EXPECT_TRUE(engine.Initialize());
    for (const Bytes& input : {Bytes{}, Bytes{'a'}, Sample(40 * 1024, true), Sample(3000, false), Bytes(409600, 'x')}) {
        Bytes packed;
        ASSERT_EQ(Compress(input, packed), Z_OK) << input.size();
        EXPECT_GT(packed.size(), 0u);  // even zero bytes make a header and a trailer

        Bytes restored(input.size() + 1);
        unsigned long restoredLen = restored.size();
        ASSERT_EQ(engine.Decompress(packed.data(), restored.data(), packed.size(), &restoredLen), Z_OK);
        restored.resize(restoredLen);
        EXPECT_EQ(restored, input);
    }
    engine.Cleanup();
}

TEST(CompressEngine, CompressIsZlibLevelThree)
{
    const Bytes source = Sample(64 * 1024, true);
    auto level = [&source](int n) {
        Bytes out(compressBound(source.size()));
        uLongf len = out.size();
        EXPECT_EQ(compress2(out.data(), &len, source.data(), source.size(), n), Z_OK);
        out.resize(len);
        return out;
    };
    Bytes ours;
    ASSERT_EQ(Compress(source, ours), Z_OK);
    EXPECT_EQ(ours, level(3));
    ASSERT_NE(level(3), level(6));  // otherwise the sample proves nothing
}

TEST(CompressEngine, FailuresReturnZlibCodes)
{
    CCompressEngine engine;
    Bytes source = Sample(4096, true);
    Bytes packed;
    ASSERT_EQ(Compress(source, packed), Z_OK);
    Bytes out(8192);
    auto decompress = [&](Bytes input, unsigned long capacity) {
        return engine.Decompress(input.data(), out.data(), input.size(), &capacity);
    };
    EXPECT_EQ(decompress(packed, source.size() / 2), Z_BUF_ERROR);
    EXPECT_EQ(decompress(Bytes{'<', 'n', 'o', 't', 'e', '>'}, out.size()), Z_DATA_ERROR);
    EXPECT_NE(decompress(Bytes(packed.begin(), packed.begin() + packed.size() / 2), out.size()), Z_OK);

    unsigned long tinyLen = 4;
    EXPECT_EQ(engine.Compress(source.data(), out.data(), source.size(), &tinyLen), Z_BUF_ERROR);

    // Null arguments are refused, never dereferenced.
    unsigned long len = out.size();
    EXPECT_EQ(engine.Compress(source.data(), out.data(), source.size(), nullptr), Z_STREAM_ERROR);
    EXPECT_EQ(engine.Compress(nullptr, out.data(), 10, &len), Z_STREAM_ERROR);
    EXPECT_EQ(engine.Decompress(packed.data(), nullptr, packed.size(), &len), Z_STREAM_ERROR);
}

}  // namespace
