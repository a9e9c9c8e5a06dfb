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
    for (uint32_t seed = 12345; out.size() < size;) {
        seed = seed * 1664525u + 1013904223u;
        out += text ? kWords[(seed >> 16) % 9] + std::to_string(seed % 97) : std::string(1, static_cast<char>(seed >> 24));
    }
    out.resize(size);
    return Bytes(out.begin(), out.end());
}

TEST(CompressEngine, RoundTripsAsZlibLevelThree)
{
    CCompressEngine engine;
    EXPECT_TRUE(engine.CanCompress());  // no set-up needed first
    EXPECT_TRUE(engine.Initialize());
    for (Bytes input : {Bytes{}, Sample(64 * 1024, true), Sample(3000, false), Bytes(409600, 'x')}) {
        Bytes packed(compressBound(input.size())), level3 = packed, level6 = packed;
        unsigned long len = packed.size(), len3 = len, len6 = len;
        ASSERT_EQ(engine.Compress(input.data(), packed.data(), input.size(), &len), Z_OK);
        ASSERT_EQ(compress2(level3.data(), &len3, input.data(), input.size(), 3), Z_OK);
        ASSERT_EQ(compress2(level6.data(), &len6, input.data(), input.size(), 6), Z_OK);
        packed.resize(len);
        level3.resize(len3);
        EXPECT_EQ(packed, level3) << input.size();
        if (input.size() == 64 * 1024) {
            EXPECT_NE(len3, len6);  // otherwise the sample proves nothing
        }

        Bytes restored(input.size() + 1);
        unsigned long restoredLen = restored.size();
        ASSERT_EQ(engine.Decompress(packed.data(), restored.data(), packed.size(), &restoredLen), Z_OK);
        restored.resize(restoredLen);
        EXPECT_EQ(restored, input);
    }
    engine.Cleanup();
}

TEST(CompressEngine, FailuresReturnZlibCodes)
{
    CCompressEngine engine;
    Bytes source = Sample(4096, true), packed(8192), out(8192);
    unsigned long len = packed.size();
    ASSERT_EQ(engine.Compress(source.data(), packed.data(), source.size(), &len), Z_OK);
    auto decompress = [&](unsigned char* input, unsigned long size, unsigned long capacity) {
        return engine.Decompress(input, out.data(), size, &capacity);
    };
    EXPECT_EQ(decompress(packed.data(), len, source.size() / 2), Z_BUF_ERROR);
    unsigned char junk[] = "<note>";
    EXPECT_EQ(decompress(junk, 6, out.size()), Z_DATA_ERROR);
    EXPECT_NE(decompress(packed.data(), len / 2, out.size()), Z_OK);
    unsigned long tinyLen = 4;
    EXPECT_EQ(engine.Compress(source.data(), out.data(), source.size(), &tinyLen), Z_BUF_ERROR);
    // Null arguments are refused, never dereferenced; zero bytes from nowhere are fine.
    EXPECT_EQ(engine.Compress(source.data(), out.data(), source.size(), nullptr), Z_STREAM_ERROR);
    EXPECT_EQ(engine.Compress(nullptr, out.data(), 10, &len), Z_STREAM_ERROR);
    EXPECT_EQ(engine.Decompress(packed.data(), nullptr, packed.size(), &len), Z_STREAM_ERROR);
    len = out.size();
    EXPECT_EQ(engine.Compress(nullptr, out.data(), 0, &len), Z_OK);
}

}  // namespace
