// Line-ending conversions, strReplaceRow and SplitPath: the documented cases, embedded zero
// bytes and aliasing. The lineends fuzz target checks them against step-by-step forms of their
// algorithms on any text, converted into strings of any earlier size.
#include "platform/NtGlobale.h"

#include <gtest/gtest.h>

#include <memory>
#include <utility>
#include <string>

namespace {

using namespace std::string_literals;

std::string Win3(const std::string& in)
{
    std::unique_ptr<char[]> out(ConvertToWinText3(in.c_str()));
    return out ? std::string(out.get()) : "<null>";
}

// CR and LF written out as C escapes; "<null>" is a null result of ConvertToWinText3. The
// conversions stop at the first zero byte.
struct CConversionCase {
    std::string in, mac, win, win2, win3;
} const kConversions[] = {
    {"a\r\nb", "a\nb", "a\r\nb", "a\r\nb", "a\r\nb"}, {"a\rb", "a\rb", "a\r\nb", "a\r\nb", "a\r\nb"},
    {"a\nb", "a\nb", "a\nb", "a\r\nb", "a\r\nb"}, {"\r\r", "\r\r", "\r\n\r\n", "\r\n\r\n", "\r\n\r\n"},
    {"\n\n", "\n\n", "\n\n", "\r\n\r\n", "\r\n\r\n"}, {"\r\n\n", "\n\n", "\r\n\n", "\r\n\r\n", "\r\n\r\n"},
    {"\r\n\r", "\n\r", "\r\n\r\n", "\r\n\r\n", "\r\n\r\n"}, {"\n\r", "\n\r", "\n\r\n", "\r\n\r\n", "\r\n\r\n"},
    {"x\r\r\ny\n\n\rz", "x\r\ny\n\n\rz", "x\r\n\r\ny\n\n\r\nz", "x\r\n\r\ny\r\n\r\n\r\nz", "x\r\n\r\ny\r\n\r\n\r\nz"},
    {"no line end", "no line end", "no line end", "no line end", "no line end"},
    {"a\r\n\0b\r\n"s, "a\n", "a\r\n", "a\r\n", "a\r\n"}, {"a\r\0\nb"s, "a\r", "a\r\n", "a\r\n", "a\r\n"},
    {"\0abc"s, "", "", "", "<null>"},  // not empty, so out is replaced even for Mac
    // Ends in CR after a zero: only text through the last lone CR survives.
    {"x\ry\0z\r"s, "x\ry", "x\r\n", "x\r\ny", "x\r\ny"}, {"xy\0\r"s, "xy", "", "xy", "xy"},
};

// All four conversions of each case, each into a string that held other text and into the
// input string itself.
TEST(LineEnds, DocumentedConversions)
{
    for (const CConversionCase& c : kConversions) {
        SCOPED_TRACE(::testing::PrintToString(c.in));
        const std::pair<void (*)(const std::string&, std::string&), const std::string*> conversions[] = {
            {ConvertToMacText, &c.mac}, {ConvertToWinText, &c.win}, {ConvertToWinText2, &c.win2}};
        for (const auto& [convert, want] : conversions) {
            std::string out = "old";
            convert(c.in, out);
            EXPECT_EQ(out, *want);
            out = c.in;
            convert(out, out);
            EXPECT_EQ(out, *want);
        }
        EXPECT_EQ(Win3(c.in), c.win3);
    }
    std::string out = "kept";
    ConvertToMacText("", out);
    EXPECT_EQ(out, "kept");  // unlike the Win conversions
    ConvertToWinText("", out);
    EXPECT_EQ(out, "");
    out = "kept";
    ConvertToWinText2("", out);
    EXPECT_EQ(out, "");
    EXPECT_EQ(ConvertToWinText3(nullptr), nullptr);
    EXPECT_EQ(ConvertToWinText3(""), nullptr);
}

// The search resumes from's length after a match.
TEST(StrReplaceRow, DocumentedCases)
{
    struct { std::string text, from, to, result; } const cases[] = {
        {"x\r\n\r\ny", "\r\n", "\n", "x\n\r\ny"},  // the shortening skip
        {"aaaa", "aa", "b", "baa"},               // resumes at 2 of "baa": the a at 1 is skipped
        {"a\0b\0c"s, "\0"s, "-", "a-b-c"}, {"abc", "", "x", "abc"},
        // After ab -> abab the search resumes inside the inserted ab; replacing would never end,
        // so it stops there. A match from inside the inserted text into the old one is replaced.
        {"ab-", "ab", "abab", "abab-"}, {"abb", "ab", "xya", "xyxya"},
    };
    for (const auto& c : cases) {
        std::string text = c.text;
        EXPECT_TRUE(strReplaceRow(text, c.from, c.to));
        EXPECT_EQ(text, c.result) << ::testing::PrintToString(c.text);
    }
}

TEST(SplitPath, PartsNullArgumentsAndSizedOutputs)
{
    struct { const char *path, *dir, *name, *ext; } const cases[] = {
        {"/Users/a/Notes.txt", "/Users/a/", "Notes.txt", ".txt"}, {"file.txt", "", "file.txt", ".txt"},
        {"/tmp/", "/tmp/", "", ""}, {"/a.b/c", "/a.b/", "c", ".b/c"},  // the last dot of the whole path
        {"noext", "", "noext", ""}, {"/", "/", "", ""}, {".hidden", "", ".hidden", ".hidden"},
        {"", "", "", ""}, {"a/b.c.d", "a/", "b.c.d", ".d"},
    };
    for (const auto& c : cases) {
        char dir[64] = "x", name[64] = "x", ext[64] = "x";
        SplitPath(c.path, dir, name, ext);
        EXPECT_EQ(std::string(dir) + "|" + name + "|" + ext, std::string(c.dir) + "|" + c.name + "|" + c.ext) << c.path;
    }
    char name[16] = "untouched", ext[16] = "";
    SplitPath(nullptr, nullptr, name, nullptr);
    EXPECT_STREQ(name, "untouched");
    SplitPath("/x/y.z", nullptr, nullptr, ext);
    EXPECT_STREQ(ext, ".z");

    // "/d/" then a name of three two-byte characters: a cut never splits a character, and
    // nothing is written past the size given.
    memset(name, 'x', sizeof name);
    SplitPath("/d/\xc3\xa4\xc3\xb6\xc3\xbc.t", nullptr, 0, name, 4, nullptr, 0);
    EXPECT_STREQ(name, "\xc3\xa4");
    EXPECT_EQ(name[4], 'x');
    char dir[3];
    SplitPath("/long/dir/x", dir, sizeof dir, nullptr, 0, nullptr, 0);
    EXPECT_STREQ(dir, "/l");
    SplitPath("a.txt", nullptr, 0, nullptr, 0, ext, 0);  // size 0: left alone
    EXPECT_STREQ(ext, ".z");
}

}  // namespace
