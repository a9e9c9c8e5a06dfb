// Line-ending conversions, strReplaceRow and SplitPath: the documented cases, embedded zero
// bytes, aliasing, and the one-pass conversions checked against step-by-step forms of their
// algorithms on many random texts (long enough to cross the 16-byte blocks), converted into
// strings of any earlier size.
#include "platform/NtGlobale.h"

#include <gtest/gtest.h>

#include <string.h>

#include <memory>
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

std::string LiteralWin3(const char* in)
{
    std::string out;
    for (size_t i = 0; in[i] != '\0'; ++i) {
        if (in[i] == '\n') {
            out += "\r\n";
        } else if (in[i] == '\r') {
            out += "\r\n";
            if (in[i + 1] == '\n') ++i;
        } else {
            out += in[i];
        }
    }
    return out;
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

// ---- Documented cases ----

struct CConversionCase {
    std::string in;
    std::string mac, win, win2, win3;
};

// CR and LF written out as C escapes; "<null>" is a null result of ConvertToWinText3.
const CConversionCase kConversions[] = {
    {"a\r\nb", "a\nb", "a\r\nb", "a\r\nb", "a\r\nb"},
    {"a\rb", "a\rb", "a\r\nb", "a\r\nb", "a\r\nb"},
    {"a\nb", "a\nb", "a\nb", "a\r\nb", "a\r\nb"},
    {"\r\r", "\r\r", "\r\n\r\n", "\r\n\r\n", "\r\n\r\n"},
    {"\n\n", "\n\n", "\n\n", "\r\n\r\n", "\r\n\r\n"},
    {"\r\n\n", "\n\n", "\r\n\n", "\r\n\r\n", "\r\n\r\n"},
    {"\r\n\r", "\n\r", "\r\n\r\n", "\r\n\r\n", "\r\n\r\n"},
    {"\n\r", "\n\r", "\n\r\n", "\r\n\r\n", "\r\n\r\n"},
    {"x\r\r\ny\n\n\rz", "x\r\ny\n\n\rz", "x\r\n\r\ny\n\n\r\nz", "x\r\n\r\ny\r\n\r\n\r\nz",
     "x\r\n\r\ny\r\n\r\n\r\nz"},
    {"no line end", "no line end", "no line end", "no line end", "no line end"},
};

// All four conversions of c.in, each into a string that held other text and into the input
// string itself.
void ExpectConversions(const CConversionCase& c)
{
    SCOPED_TRACE(::testing::PrintToString(c.in));
    const struct {
        void (*convert)(const std::string&, std::string&);
        const std::string& want;
    } conversions[] = {{ConvertToMacText, c.mac}, {ConvertToWinText, c.win}, {ConvertToWinText2, c.win2}};
    for (const auto& k : conversions) {
        std::string out = "old";
        k.convert(c.in, out);
        EXPECT_EQ(out, k.want);
        out = c.in;
        k.convert(out, out);
        EXPECT_EQ(out, k.want);
    }
    EXPECT_EQ(Win3(c.in), c.win3);
}

TEST(LineEnds, DocumentedConversions)
{
    for (const CConversionCase& c : kConversions) ExpectConversions(c);
}

TEST(LineEnds, EmptyInput)
{
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

TEST(LineEnds, StopAtFirstZeroByte)
{
    const CConversionCase cases[] = {
        {"a\r\n\0b\r\n"s, "a\n", "a\r\n", "a\r\n", "a\r\n"},
        {"a\r\0\nb"s, "a\r", "a\r\n", "a\r\n", "a\r\n"},
        {"\0abc"s, "", "", "", "<null>"},  // not empty, so out is replaced even for Mac
        // Ends in CR after a zero: only text through the last lone CR survives.
        {"x\ry\0z\r"s, "x\ry", "x\r\n", "x\r\ny", "x\r\ny"},
        {"xy\0\r"s, "xy", "", "xy", "xy"},
    };
    for (const CConversionCase& c : cases) ExpectConversions(c);
}

// ---- One pass against the step-by-step forms ----

// Texts of up to 300 bytes: line ends only, letters with only LF, only CR or only CR LF (the
// conversions have shortcuts for those), or everything mixed, sometimes with a zero byte.
std::string RandomText(std::mt19937& rng)
{
    std::uniform_int_distribution<int> length(0, 300), pick(0, 99);
    const int mode = pick(rng);
    const int size = length(rng);
    std::string s;
    while (int(s.size()) < size) {
        const int p = pick(rng);
        const char letter = char('a' + p % 26);
        if (mode < 15)
            s += "\r\n"[p & 1];
        else if (mode < 35)
            s += p < 15 ? '\n' : letter;
        else if (mode < 55)
            s += p < 15 ? '\r' : letter;
        else if (mode < 70)
            s += p < 15 ? std::string("\r\n") : std::string(1, letter);
        else if (p < 12)
            s += '\r';
        else if (p < 24)
            s += '\n';
        else if (p == 24 && mode > 90)
            s += '\0';
        else
            s += letter;
    }
    return s;
}

// The conversions write into out's buffer as far as its size goes and make it longer where that
// runs short, part-way through the text: out starts with any size, and must not matter.
TEST(LineEnds, OnePassMatchesStepByStep)
{
    std::mt19937 rng(20240611);
    for (int round = 0; round < 4000; ++round) {
        const std::string in = RandomText(rng);
        const std::string held(rng() % (2 * in.size() + 120), '#');
        SCOPED_TRACE(::testing::PrintToString(in) + ", out held " + std::to_string(held.size()));
        std::string want = held, got = held;
        LiteralMac(in, want);
        ConvertToMacText(in, got);
        ASSERT_EQ(got, want);
        got = held;
        LiteralWin(in, want);
        ConvertToWinText(in, got);
        ASSERT_EQ(got, want);
        got = held;
        LiteralWin2(in, want);
        ConvertToWinText2(in, got);
        ASSERT_EQ(got, want);
        ASSERT_EQ(Win3(in), in.c_str()[0] ? LiteralWin3(in.c_str()) : "<null>");
    }
}

// ---- strReplaceRow ----

TEST(StrReplaceRow, SearchResumesAFromLengthAfterTheMatch)
{
    struct Case {
        std::string text, from, to, result;
    } cases[] = {
        {"x\r\n\r\ny", "\r\n", "\n", "x\n\r\ny"},  // the shortening skip
        {"aaaa", "aa", "b", "baa"},           // resumes at 2 of "baa": the a at 1 is skipped
        {"a\0b\0c"s, "\0"s, "-", "a-b-c"},  // zero bytes are ordinary bytes here
        {"abc", "", "x", "abc"},             // an empty from changes nothing
        // After ab -> abab the search resumes inside the inserted ab; replacing would never
        // end, so it stops there.
        {"ab-", "ab", "abab", "abab-"},
        // A match from inside the inserted text into the old one is replaced.
        {"abb", "ab", "xya", "xyxya"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.text));
        std::string text = c.text;
        EXPECT_TRUE(strReplaceRow(text, c.from, c.to));
        EXPECT_EQ(text, c.result);
    }
}

TEST(StrReplaceRow, MatchesStepByStepOnRandomTexts)
{
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> len(0, 40), shortLen(0, 4), letter(0, 3);
    auto word = [&](int n) {
        std::string s;
        for (int i = 0; i < n; ++i) s += "ab\r\n"[letter(rng)];
        return s;
    };
    int compared = 0;
    for (int round = 0; round < 5000; ++round) {
        std::string text = word(len(rng));
        const std::string from = word(1 + shortLen(rng) % 3), to = word(shortLen(rng));
        std::string literal = text;
        if (!LiteralReplace(literal, from, to)) continue;  // never ends; covered above
        SCOPED_TRACE(::testing::PrintToString(text) + " " + ::testing::PrintToString(from) +
                     " -> " + ::testing::PrintToString(to));
        ASSERT_TRUE(strReplaceRow(text, from, to));
        ASSERT_EQ(text, literal);
        ++compared;
    }
    EXPECT_GT(compared, 4000) << compared;
}

// ---- SplitPath ----

TEST(SplitPath, Parts)
{
    struct Case {
        const char *path, *dir, *name, *ext;
    } cases[] = {
        {"/Users/a/Notes.txt", "/Users/a/", "Notes.txt", ".txt"},
        {"file.txt", "", "file.txt", ".txt"},
        {"/tmp/", "/tmp/", "", ""},
        {"/a.b/c", "/a.b/", "c", ".b/c"},  // the last dot of the whole path
        {"noext", "", "noext", ""},
        {"/", "/", "", ""},
        {".hidden", "", ".hidden", ".hidden"},
        {"", "", "", ""},
        {"a/b.c.d", "a/", "b.c.d", ".d"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        char dir[64], name[64], ext[64];
        memset(dir, 'x', sizeof dir);
        memset(name, 'x', sizeof name);
        memset(ext, 'x', sizeof ext);
        SplitPath(c.path, dir, name, ext);
        EXPECT_STREQ(dir, c.dir);
        EXPECT_STREQ(name, c.name);
        EXPECT_STREQ(ext, c.ext);
    }
}

TEST(SplitPath, NullArgumentsAreSkipped)
{
    char name[16] = "untouched";
    SplitPath(nullptr, nullptr, name, nullptr);
    EXPECT_STREQ(name, "untouched");
    SplitPath("/x/y.z", nullptr, nullptr, nullptr);  // nothing wanted: nothing to crash on
    char ext[16] = "";
    SplitPath("/x/y.z", nullptr, nullptr, ext);
    EXPECT_STREQ(ext, ".z");
    SplitPath("/x/y.z", nullptr, name, nullptr);
    EXPECT_STREQ(name, "y.z");
}

TEST(SplitPath, SizedOutputsAreCutWithoutSplittingCharacters)
{
    // "/d/" then a name of three two-byte characters.
    const char* path = "/d/\xc3\xa4\xc3\xb6\xc3\xbc.t";
    char name[8];
    memset(name, 'x', sizeof name);
    SplitPath(path, nullptr, 0, name, 4, nullptr, 0);
    EXPECT_STREQ(name, "\xc3\xa4");  // a third byte would split the second character
    EXPECT_EQ(name[4], 'x');         // nothing written past the size given

    char dir[3];
    SplitPath("/long/dir/x", dir, sizeof dir, nullptr, 0, nullptr, 0);
    EXPECT_STREQ(dir, "/l");

    char ext[4] = "old";
    SplitPath("a.txt", nullptr, 0, nullptr, 0, ext, 0);  // size 0: left alone
    EXPECT_STREQ(ext, "old");
}

}  // namespace
