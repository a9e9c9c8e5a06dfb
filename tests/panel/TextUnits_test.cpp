// UTF-16 unit counting over UTF-8, including malformed input.
#include "panel/TextUnits.h"

#include <gtest/gtest.h>

namespace {

TEST(TextUnits, LengthAndPrefixes)
{
    struct {
        std::string text;
        unsigned length;
        unsigned units;   // prefix asked for
        size_t bytes;     // bytes of that prefix
    } const cases[] = {
        {"", 0, 3, 0},
        {"abc", 3, 2, 2},
        {"abc", 3, 9, 3},
        {"\xC3\xA9t\xC3\xA9", 3, 2, 3},                 // two-byte characters
        {"\xE2\x82\xAC!", 2, 1, 3},                     // three bytes, one unit
        {"a\xF0\x9F\x98\x80z", 4, 2, 1},                // the pair is not split
        {"a\xF0\x9F\x98\x80z", 4, 3, 5},
        {"\xFF\xC3", 2, 1, 1},                          // stray and truncated bytes
        {"\xE2\x28\xA1", 3, 3, 3},                      // bad continuation
        {"\xC0\xAF", 2, 2, 2},                          // overlong lead
        {std::string("a\0b", 3), 3, 2, 2},              // a zero byte is a character
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.length, Utf16Length(c.text)) << c.text;
        EXPECT_EQ(c.bytes, Utf8PrefixBytes(c.text, c.units)) << c.text << " " << c.units;
    }
}

}  // namespace
