// UTF-16 unit counting over UTF-8, including malformed input.
#include "panel/TextUnits.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

TEST(TextUnits, LengthAndPrefixes)
{
    // text, its length, a prefix asked for in units, and the bytes of that prefix
    struct { std::string text; unsigned length, units; size_t bytes; } const cases[] = {
        {"", 0, 3, 0}, {"abc", 3, 2, 2}, {"abc", 3, 9, 3},
        {"\xC3\xA9t\xC3\xA9", 3, 2, 3}, {"\xE2\x82\xAC!", 2, 1, 3},  // two and three bytes, one unit
        {"a\xF0\x9F\x98\x80z", 4, 2, 1}, {"a\xF0\x9F\x98\x80z", 4, 3, 5},  // the pair is not split
        {"\xFF\xC3", 2, 1, 1}, {"\xE2\x28\xA1", 3, 3, 3}, {"\xC0\xAF", 2, 2, 2},  // stray, truncated, bad, overlong
        {std::string("a\0b", 3), 3, 2, 2},  // a zero byte is a character
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.length, Utf16Length(c.text)) << c.text;
        EXPECT_EQ(c.bytes, Utf8PrefixBytes(c.text, c.units)) << c.text << " " << c.units;
    }
}

// Long mixed texts, where runs of ASCII meet multi-byte and broken characters at every offset:
// each character's bytes and units are known, so every prefix boundary is too.
TEST(TextUnits, LongMixedTextsCountEveryCharacterOnce)
{
    struct Piece { const char* bytes; unsigned units; };
    const Piece pieces[] = {{"a", 1}, {"0123456789", 10}, {"\xC3\xA9", 1}, {"\xE2\x82\xAC", 1},
                            {"\xF0\x9F\x98\x80", 2}, {"\xFF", 1}, {"\n", 1}};
    std::mt19937 random(99);
    for (int round = 0; round < 200; ++round) {
        std::string text;
        std::vector<size_t> byteAt = {0};   // bytes before the k-th unit boundary
        std::vector<unsigned> unitAt = {0};
        const int count = 1 + static_cast<int>(random() % 60);
        for (int k = 0; k < count; ++k) {
            const Piece& piece = pieces[random() % (sizeof pieces / sizeof *pieces)];
            const std::string bytes = piece.bytes;
            const bool ascii = static_cast<unsigned char>(bytes[0]) < 0x80;
            for (size_t i = 0; i < (ascii ? bytes.size() : 1); ++i) {
                text += ascii ? bytes.substr(i, 1) : bytes;
                byteAt.push_back(text.size());
                unitAt.push_back(unitAt.back() + (ascii ? 1 : piece.units));
            }
        }
        ASSERT_EQ(unitAt.back(), Utf16Length(text)) << text;
        for (size_t k = 0; k < unitAt.size(); ++k) {
            ASSERT_EQ(byteAt[k], Utf8PrefixBytes(text, unitAt[k])) << text << " " << unitAt[k];
            // One unit short of a surrogate pair's end stops before the pair.
            if (k > 0 && unitAt[k] - unitAt[k - 1] == 2) {
                ASSERT_EQ(byteAt[k - 1], Utf8PrefixBytes(text, unitAt[k] - 1)) << text;
            }
        }
    }
}

}  // namespace
