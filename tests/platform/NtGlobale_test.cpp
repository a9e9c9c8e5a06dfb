// Line-ending conversions, strReplaceRow and SplitPath: the documented cases, embedded zero
// bytes, aliasing, and the one-pass conversions checked against step-by-step forms of their
// algorithms on many random texts (long enough to cross the 16-byte blocks), converted into
// strings of any earlier size.
#include "platform/NtGlobale.h"

#include <gtest/gtest.h>

#include <string.h>

#include <memory>
#include <utility>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace std::string_literals;

// ---- Step-by-step forms of the algorithms, kept naive on purpose ----

void LiteralMac(const std::string& in, std::string& out)
{
    if (in.empty()) return;
    const char* s = in.c_str();
    std::vector<char> buf(in.size() + 1, '\0');
    size_t w = 0;
    for (size_t i = 0; i < in.size(); ++i) {
        if (s[i] == '\r' && s[i + 1] == '\n') continue;
        buf[w++] = s[i];
    }
    out = buf.data();
}

void LiteralWin(const std::string& in, std::string& out)
{
    out.clear();
    if (in.empty()) return;
    const size_t n = in.size();
    std::vector<char> copy(in.begin(), in.end());
    copy.push_back('\0');
    std::vector<char> buf(2 * n + 1, '\0');
    size_t first = 0, w = 0;
    for (size_t i = 0; copy[i] != '\0'; ++i) {
        if (copy[i] == '\r' && copy[i + 1] != '\n') {
            memcpy(&buf[w], &copy[first], i - first + 1);
            w += i - first + 1;
            buf[w++] = '\n';
            first = i + 1;
        }
    }
    if (in[n - 1] != '\r') memcpy(&buf[w], &copy[first], n - first);
    out = buf.data();
}

void LiteralWin2(const std::string& in, std::string& out)
{
    out.clear();
    if (in.empty()) return;
    const size_t n = in.size();
    const char* s = in.c_str();
    std::vector<char> work(2 * n + 1, '\0');
    memcpy(work.data(), s, n);
    for (size_t i = 0, w = 0; s[i] != '\0'; ++i, ++w) {
        if (s[i] == '\n' && (i == 0 || s[i - 1] != '\r')) {
            memcpy(&work[w + 2], s + i + 1, n - i - 1);
            work[w] = '\r';
            work[w + 1] = '\n';
            ++w;
        }
    }
    LiteralWin(work.data(), out);
}

// false when the replacing did not end within the step limit.
bool LiteralReplace(std::string& text, const std::string& from, const std::string& to)
{
    size_t pos = text.find(from);
    for (int steps = 0; pos != std::string::npos; ++steps) {
        if (steps > 1000) return false;
        text.replace(pos, from.size(), to);
        pos = text.find(from, pos + from.size());
    }
    return true;
}

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

// ---- One pass against the step-by-step forms ----

// Texts of up to 300 bytes: line ends only, letters with only LF, only CR or only CR LF (the
// conversions have shortcuts for those), or everything mixed, sometimes with a zero byte.
// The conversions write into out's buffer as far as its size goes and make it longer where that
// runs short, part-way through the text: out starts with any size, and must not matter.
TEST(LineEnds, OnePassMatchesStepByStep)
{
    std::mt19937 rng(20240611);
    std::uniform_int_distribution<int> length(0, 300), pick(0, 99);
    for (int round = 0; round < 4000; ++round) {
        const int mode = pick(rng), size = length(rng);
        const std::string pieces[] = {"\r", "\n", "\r\n", "\0"s};
        std::string in;
        while (int(in.size()) < size) {
            const int p = pick(rng);
            const std::string letter(1, char('a' + p % 26));
            if (mode < 15) in += pieces[p & 1];
            else if (mode < 70) in += p < 15 ? pieces[(mode - 15) / 20] : letter;
            else in += p < 24 ? pieces[p / 12] : p == 24 && mode > 90 ? pieces[3] : letter;
        }
        const std::string held(rng() % (2 * in.size() + 120), '#');
        SCOPED_TRACE(::testing::PrintToString(in) + ", out held " + std::to_string(held.size()));
        const std::pair<void (*)(const std::string&, std::string&), void (*)(const std::string&, std::string&)> pairs[] = {
            {ConvertToMacText, LiteralMac}, {ConvertToWinText, LiteralWin}, {ConvertToWinText2, LiteralWin2}};
        for (const auto& [convert, literal] : pairs) {
            std::string want = held, got = held;
            literal(in, want);
            convert(in, got);
            ASSERT_EQ(got, want);
        }
        std::string win2;  // ConvertToWinText3 is ConvertToWinText2 with a null result for no text
        LiteralWin2(in, win2);
        ASSERT_EQ(Win3(in), win2.empty() ? "<null>" : win2);
    }
}

// The search resumes from's length after a match: the documented cases, then random texts
// against the step-by-step form.
TEST(StrReplaceRow, DocumentedCasesAndStepByStep)
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
    std::mt19937 rng(7);
    auto word = [&rng](int n) {
        std::string s;
        for (int i = 0; i < n; ++i) s += "ab\r\n"[rng() % 4];
        return s;
    };
    int compared = 0;
    for (int round = 0; round < 5000; ++round) {
        std::string text = word(rng() % 41), literal = text;
        const std::string from = word(1 + rng() % 5 % 3), to = word(rng() % 5);
        if (!LiteralReplace(literal, from, to)) continue;  // never ends; covered above
        ASSERT_TRUE(strReplaceRow(text, from, to));
        ASSERT_EQ(text, literal) << ::testing::PrintToString(literal) << " " << ::testing::PrintToString(from) << " -> " << ::testing::PrintToString(to);
        ++compared;
    }
    EXPECT_GT(compared, 4000) << compared;
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
