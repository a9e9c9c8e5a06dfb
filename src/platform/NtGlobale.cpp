// Line-ending conversions in one pass over the input and path splitting.
//
// The conversions share one walk (ConvertLineEnds): each 32-byte block is copied to the output
// whole, and only at the line-end bytes the rule picks is the output patched and the rest of the
// block copied again one place further on (or back). Text with a line end every few dozen bytes
// thus converts several times faster than byte by byte.
#include "platform/NtGlobale.h"

#include "boundscheck/boundscheck.h"
#include "platform/LineEndScan.h"

#include <string.h>

#include <algorithm>
#include <new>

namespace {

using ntglobale::CBlockMasks;
using ntglobale::kScanBlock;

enum class ERule {
    kDropCrBeforeLf,  // CR LF -> LF
    kLoneCr,          // CR not followed by LF -> CR LF
    kLoneCrOrLf,      // CR not followed by LF, LF not preceded by CR -> CR LF
    kEveryCr,         // CR -> CR LF, for text without LF
    kEveryLf,         // LF -> CR LF, for text without CR
};

// Bytes of one block the rule applies to. prevCr is 1 when the byte before the block is CR.
template <ERule kRule>
uint32_t PickedInBlock(const CBlockMasks& m, uint32_t prevCr)
{
    switch (kRule) {
    case ERule::kDropCrBeforeLf:
        return m.cr & m.nextLf;
    case ERule::kLoneCr:
        return m.cr & ~m.nextLf;
    case ERule::kLoneCrOrLf:
        return (m.cr & ~m.nextLf) | (m.lf & ~((m.cr << 1) | prevCr));
    case ERule::kEveryCr:
        return m.cr;
    case ERule::kEveryLf:
        return m.lf;
    }
    return 0;
}

// The same for byte i alone. REQUIRES: s[i + 1] readable.
template <ERule kRule>
bool PickedAt(const char* s, size_t i)
{
    const bool loneCr = s[i] == '\r' && s[i + 1] != '\n';
    switch (kRule) {
    case ERule::kDropCrBeforeLf:
        return s[i] == '\r' && s[i + 1] == '\n';
    case ERule::kLoneCr:
        return loneCr;
    case ERule::kLoneCrOrLf:
        return loneCr || (s[i] == '\n' && (i == 0 || s[i - 1] != '\r'));
    case ERule::kEveryCr:
        return s[i] == '\r';
    case ERule::kEveryLf:
        return s[i] == '\n';
    }
    return false;
}

// Converts s[0, n) into o: a picked byte is dropped (kDropCrBeforeLf) or written as CR LF (the
// other rules). Returns the bytes written; does not terminate o.
// REQUIRES: s[0, n) holds no zero byte and s[n] is readable; o holds n bytes
// (kDropCrBeforeLf) or 2n bytes (the other rules). The block stores stay within those sizes: a
// block is taken only while 64 input bytes remain, and output runs at most twice as far as
// input.
template <ERule kRule>
size_t ConvertLineEnds(const char* s, size_t n, char* o)
{
    constexpr bool kDrop = kRule == ERule::kDropCrBeforeLf;
    ptrdiff_t shift = 0;  // output index of input byte j is j + shift
    uint32_t prevCr = 0;
    size_t base = 0;
    for (; base + 2 * kScanBlock <= n; base += kScanBlock) {
        const CBlockMasks masks = ntglobale::CopyAndScanBlock(o + base + shift, s + base);
        uint32_t picked = PickedInBlock<kRule>(masks, prevCr);
        prevCr = masks.cr >> (kScanBlock - 1);
        while (picked) {
            const ptrdiff_t k = ptrdiff_t(base) + __builtin_ctz(picked);
            picked &= picked - 1;
            if (kDrop) {
                --shift;
            } else {
                o[k + shift] = '\r';
                o[k + shift + 1] = '\n';
                ++shift;
            }
            ntglobale::CopyBlock(o + k + 1 + shift, s + k + 1);
        }
    }
    char* w = o + base + shift;
    for (size_t i = base; i < n; ++i) {
        if (!PickedAt<kRule>(s, i)) {
            *w++ = s[i];
        } else if (!kDrop) {
            *w++ = '\r';
            *w++ = '\n';
        }
    }
    return size_t(w - o);
}

bool Holds(const char* s, size_t n, char c) { return memchr(s, c, n) != nullptr; }

// Lone CR and lone LF -> CR LF. Panel text has LF only and old text CR only; for these a
// cheaper rule gives the same result. REQUIRES: as ConvertLineEnds, o holding 2n bytes.
size_t ConvertAnyToCrLf(const char* s, size_t n, char* o)
{
    if (!Holds(s, n, '\r')) return ConvertLineEnds<ERule::kEveryLf>(s, n, o);
    if (!Holds(s, n, '\n')) return ConvertLineEnds<ERule::kEveryCr>(s, n, o);
    return ConvertLineEnds<ERule::kLoneCrOrLf>(s, n, o);
}

// Length of s before its first zero byte (all of it when there is none).
size_t TextLength(const std::string& s)
{
    const void* zero = memchr(s.data(), '\0', s.size());
    return zero ? size_t(static_cast<const char*>(zero) - s.data()) : s.size();
}

// Output length up to and including the CR LF of the last lone CR among s[0, inLen), given the
// whole converted length; 0 without a lone CR. REQUIRES: s[inLen] == 0.
size_t LengthThroughLastLoneCr(const char* s, size_t inLen, size_t outLen)
{
    for (size_t j = inLen; j-- > 0;) {
        if (s[j] == '\r' && s[j + 1] != '\n') return outLen - (inLen - 1 - j);
    }
    return 0;
}

// Copies count bytes of src into dest as a string, cut to fit size bytes without splitting a
// UTF-8 sequence. size 0: nothing is written.
void CopyPart(char* dest, size_t size, const char* src, size_t count)
{
    if (!dest || size == 0) return;
    if (count >= size) {
        count = size - 1;
        while (count > 0 && (static_cast<unsigned char>(src[count]) & 0xC0) == 0x80) --count;
    }
    strncpy_s(dest, size, src, count);
}

// Whether from occurs at offset i of head followed by tail.
bool MatchesAcross(const std::string& head, size_t i, const std::string& tail, size_t tailPos,
                   const std::string& from)
{
    for (size_t t = 0; t < from.size(); ++t) {
        const size_t at = i + t;
        char c;
        if (at < head.size()) {
            c = head[at];
        } else {
            const size_t tailAt = tailPos + (at - head.size());
            if (tailAt >= tail.size()) return false;
            c = tail[tailAt];
        }
        if (c != from[t]) return false;
    }
    return true;
}

}  // namespace

bool strReplaceRow(std::string& text, const std::string& from, const std::string& to)
{
    const size_t m = from.size();
    if (m == 0) return true;
    size_t q = text.find(from);
    if (q == std::string::npos) return true;

    // The text is rebuilt from left to right. Everything before the resumed search position is
    // final; what lies after it is either the original text from j on, or, when to is longer
    // than from, the not yet searched tail of to (inserted) followed by the original from j.
    const std::string inserted = to.size() > m ? to.substr(m) : std::string();
    std::string result;
    result.reserve(text.size());
    size_t j = 0;
    bool insertedPending = false;

    // Replaces a match that ends just before original position end.
    auto replace = [&](size_t end) {
        j = end;
        if (to.size() >= m) {
            result.append(to, 0, m);
            insertedPending = !inserted.empty();
        } else {
            // The search resumes m - to.size() original bytes after the match; they are kept.
            result.append(to);
            const size_t skip = std::min(m - to.size(), text.size() - j);
            result.append(text, j, skip);
            j += skip;
        }
    };

    result.append(text, 0, q);
    replace(q + m);
    for (;;) {
        if (insertedPending) {
            insertedPending = false;
            size_t i = 0;
            while (i < inserted.size() && !MatchesAcross(inserted, i, text, j, from)) ++i;
            if (i < inserted.size() && i + m <= inserted.size()) {
                // A match wholly inside the inserted bytes would be replaced forever.
                result.append(inserted);
                break;
            }
            if (i < inserted.size()) {
                result.append(inserted, 0, i);
                replace(j + (m - (inserted.size() - i)));
                continue;
            }
            result.append(inserted);
        }
        q = text.find(from, j);
        if (q == std::string::npos) break;
        result.append(text, j, q - j);
        replace(q + m);
    }
    result.append(text, j, std::string::npos);
    text.swap(result);
    return true;
}

void ConvertToMacText(const std::string& in, std::string& out)
{
    if (in.empty()) return;
    const size_t len = TextLength(in);
    // Without both CR and LF there is no CR LF: the text stays as it is.
    std::string converted;
    if (!Holds(in.data(), len, '\r') || !Holds(in.data(), len, '\n')) {
        converted.assign(in, 0, len);
    } else {
        converted.resize(len);
        converted.resize(ConvertLineEnds<ERule::kDropCrBeforeLf>(in.c_str(), len, &converted[0]));
    }
    out.swap(converted);
}

void ConvertToWinText(const std::string& in, std::string& out)
{
    const size_t n = in.size();
    if (n == 0) {
        out.clear();
        return;
    }
    const size_t textLen = TextLength(in);
    const char* s = in.c_str();
    std::string converted;
    if (!Holds(s, textLen, '\r')) {
        converted.assign(in, 0, textLen);
    } else {
        converted.resize(2 * textLen);
        size_t len = Holds(s, textLen, '\n')
                         ? ConvertLineEnds<ERule::kLoneCr>(s, textLen, &converted[0])
                         : ConvertLineEnds<ERule::kEveryCr>(s, textLen, &converted[0]);
        converted.resize(len);
    }
    // Text is only ever flushed up to a lone CR; when the input ends in CR the unflushed rest
    // before a zero byte is never appended.
    if (textLen < n && in[n - 1] == '\r')
        converted.resize(LengthThroughLastLoneCr(s, textLen, converted.size()));
    out.swap(converted);
}

void ConvertToWinText2(const std::string& in, std::string& out)
{
    const size_t n = in.size();
    if (n == 0) {
        out.clear();
        return;
    }
    // Lone LF -> CR LF followed by lone CR -> CR LF is the same as both at once: a CR put before
    // a lone LF is never lone, and a lone CR is never followed by an LF.
    const size_t textLen = TextLength(in);
    std::string converted(2 * textLen, '\0');
    converted.resize(ConvertAnyToCrLf(in.c_str(), textLen, &converted[0]));
    out.swap(converted);
}

char* ConvertToWinText3(const char* in)
{
    if (!in || in[0] == '\0') return nullptr;
    const size_t n = strlen(in);
    char* converted = new (std::nothrow) char[2 * n + 1];
    if (!converted) return nullptr;
    converted[ConvertAnyToCrLf(in, n, converted)] = '\0';
    return converted;
}

void SplitPath(const char* path, char* dir, size_t dirSize, char* name, size_t nameSize,
               char* ext, size_t extSize)
{
    if (!path || (!dir && !name && !ext)) return;
    const size_t len = strlen(path);
    const char* slash = strrchr(path, '/');
    const char* dot = strrchr(path, '.');
    const char* nameStart = slash ? slash + 1 : path;
    CopyPart(dir, dirSize, path, size_t(nameStart - path));
    CopyPart(name, nameSize, nameStart, len - size_t(nameStart - path));
    CopyPart(ext, extSize, dot ? dot : path + len, dot ? len - size_t(dot - path) : 0);
}

void SplitPath(const char* path, char* dir, char* name, char* ext)
{
    if (!path) return;
    const size_t size = strlen(path) + 1;
    SplitPath(path, dir, size, name, size, ext, size);
}
