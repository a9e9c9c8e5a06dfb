// Line-end conversions, strReplaceRow and SplitPath on arbitrary bytes, against their rules
// written out byte by byte. Input: one byte choosing the lengths of from (1-3) and to (0-3)
// for strReplaceRow, those bytes, then the text (also the path).
#include "FuzzTarget.h"

#include "platform/NtGlobale.h"

#include <cstring>
#include <memory>
#include <vector>

namespace {

void LiteralMac(const std::string& in, std::string& out)
{
    if (in.empty()) return;
    const char* s = in.c_str();
    out.clear();
    for (size_t i = 0; s[i] != '\0'; ++i)
        if (!(s[i] == '\r' && s[i + 1] == '\n')) out += s[i];
}

void LiteralWin(const std::string& in, std::string& out)
{
    out.clear();
    if (in.empty()) return;
    const char* s = in.c_str();
    size_t first = 0, i = 0;
    for (; s[i] != '\0'; ++i) {
        if (s[i] == '\r' && s[i + 1] != '\n') {
            out.append(s + first, i - first + 1);
            out += '\n';
            first = i + 1;
        }
    }
    if (in.back() != '\r') out.append(s + first, i - first);
}

void LiteralWin2(const std::string& in, std::string& out)
{
    std::string lf;
    const char* s = in.c_str();
    for (size_t i = 0; s[i] != '\0'; ++i) {
        if (s[i] == '\n' && (i == 0 || s[i - 1] != '\r')) lf += '\r';
        lf += s[i];
    }
    LiteralWin(lf, out);
    if (in.empty()) out.clear();
}

std::string LiteralWin3(const char* in)
{
    std::string out;
    for (size_t i = 0; in[i] != '\0'; ++i) {
        if (in[i] == '\n' || in[i] == '\r') {
            out += "\r\n";
            if (in[i] == '\r' && in[i + 1] == '\n') ++i;
        } else {
            out += in[i];
        }
    }
    return out;
}

// false when the replacing would not end.
bool LiteralReplace(std::string& text, const std::string& from, const std::string& to)
{
    const size_t limit = text.size() + 8;
    size_t pos = text.find(from);
    for (size_t steps = 0; pos != std::string::npos; ++steps) {
        if (steps > limit) return false;
        text.replace(pos, from.size(), to);
        pos = text.find(from, pos + from.size());
    }
    return true;
}

// held: what the output string holds before; the conversions write into its buffer as far as
// its size goes and make it longer where that runs short, which must not matter.
void CheckConversion(void (*convert)(const std::string&, std::string&),
                     void (*literal)(const std::string&, std::string&), const std::string& in,
                     const std::string& held)
{
    std::string want = held;
    literal(in, want);
    std::string got = held;
    convert(in, got);
    FUZZ_CHECK(got == want);
    std::string same = in;
    convert(same, same);
    FUZZ_CHECK(same == (in.empty() ? in : want));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0) return 0;
    const size_t fromLen = 1 + data[0] % 3, toLen = (data[0] / 3) % 4;
    if (size < 1 + fromLen + toLen) return 0;
    const std::string from = FuzzBytes(data + 1, fromLen), to = FuzzBytes(data + 1 + fromLen, toLen);
    const std::string text = FuzzBytes(data + 1 + fromLen + toLen, size - 1 - fromLen - toLen);

    const std::string held(size_t(data[0]) * 131 % (2 * text.size() + 120), '#');
    CheckConversion(ConvertToMacText, LiteralMac, text, held);
    CheckConversion(ConvertToWinText, LiteralWin, text, held);
    CheckConversion(ConvertToWinText2, LiteralWin2, text, held);
    std::unique_ptr<char[]> win3(ConvertToWinText3(text.c_str()));
    FUZZ_CHECK(text.c_str()[0] == '\0' ? !win3 : win3 && LiteralWin3(text.c_str()) == win3.get());

    std::string literal = text, replaced = text;
    if (LiteralReplace(literal, from, to)) {
        strReplaceRow(replaced, from, to);
        FUZZ_CHECK(replaced == literal);
    }

    const char* path = text.c_str();
    const size_t n = std::strlen(path);
    std::vector<char> dir(n + 1, 'x'), name(n + 1, 'x'), ext(n + 1, 'x');
    SplitPath(path, dir.data(), name.data(), ext.data());
    const char* slash = std::strrchr(path, '/');
    const char* dot = std::strrchr(path, '.');
    FUZZ_CHECK(std::string(dir.data()) == (slash ? std::string(path, size_t(slash + 1 - path)) : ""));
    FUZZ_CHECK(std::string(name.data()) == (slash ? slash + 1 : path));
    FUZZ_CHECK(std::string(ext.data()) == (dot ? dot : ""));
    return 0;
}
