// Line-ending conversions in one pass over the input and path splitting.
//
// The conversions share one walk (ConvertBlocks): each 16-byte block is copied to the output
// whole, and only at the line-end bytes the rule picks is the output patched and the rest of the
// block copied again one place further on (or back). Text with a line end every few dozen bytes
// thus converts several times faster than byte by byte. The output is written straight into
// the caller's string, whose buffer is kept from call to call.
#include "platform/NtGlobale.h"

#include "boundscheck/boundscheck.h"
#include "platform/LineEndScan.h"

#include <string.h>

#include <algorithm>
#include <new>
#include <type_traits>

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
        return m.crLf;
    case ERule::kLoneCr:
        return m.loneCr;
    case ERule::kLoneCrOrLf:
        return m.loneCr | (m.lf & ~((m.cr << 1) | prevCr));
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

// How far a conversion has got: input bytes read, output bytes written.
struct CProgress {
    size_t in;
    size_t out;
};

// Output room one block may use: up to 32 bytes of its own, and the copy after its last picked
// byte runs a block further.
constexpr size_t kBlockRoom = 3 * kScanBlock;

// Most output bytes per input byte.
template <ERule kRule>
constexpr size_t kWidening = kRule == ERule::kDropCrBeforeLf ? 1 : 2;

// Converts the block at r: copies it to w and, at each picked byte, drops it (kDropCrBeforeLf)
// or writes CR LF for it (the other rules) and copies the rest of the block again one place
// further back or on. Then moves w past the block's output. prevCr is 1 when the byte before
// the block is CR, and is set for the next block. REQUIRES: r[0] through r[31] readable;
// kBlockRoom bytes writable from w on. Declared inline, as the compiler must inline it at each
// call: as a call it runs 3 times slower.
template <ERule kRule>
inline void ConvertBlock(const char* r, char*& w, uint32_t& prevCr)
{
    const CBlockMasks masks = ntglobale::CopyAndScanBlock(w, r);
    uint32_t picked = PickedInBlock<kRule>(masks, prevCr);
    prevCr = masks.cr >> (kScanBlock - 1);
    // From here on byte i of the block goes to w + i.
    while (picked) {
        const unsigned i = unsigned(__builtin_ctz(picked));
        picked &= picked - 1;
        if (kRule == ERule::kDropCrBeforeLf) {
            --w;
        } else {
            memcpy(w + i, "\r\n", 2);
            ++w;
        }
        ntglobale::CopyBlock(w + i + 1, r + i + 1);
    }
    w += kScanBlock;
}

// Converts s[p.in, n) into o from o[p.out] on, a block at a time. Stops while fewer than two
// blocks of input remain, or when fewer than kBlockRoom bytes of room are left; advances p.
// REQUIRES: s[n] readable; p.out <= room; o holds room bytes.
template <ERule kRule>
void ConvertBlocks(const char* s, size_t n, char* o, size_t room, CProgress& p)
{
    const char* r = s + p.in;
    char* w = o + p.out;
    uint32_t prevCr = p.in > 0 && s[p.in - 1] == '\r';
    for (;;) {
        const size_t in = size_t(r - s), out = size_t(w - o);
        if (n - in < 2 * kScanBlock || room - out < kBlockRoom) break;
        // As many blocks as fit even if each widens fully: the room is checked once per run.
        const size_t fit = (room - out - kBlockRoom) / (kWidening<kRule> * kScanBlock) + 1;
        const size_t blocks = std::min((n - in) / kScanBlock - 1, fit);
        const char* const end = r + blocks * kScanBlock;
        // Two blocks a round: the loop is then less sensitive to where its code lands (one
        // block a round ran a third slower in one build, only for lying across three 64-byte
        // code lines).
        for (; end - r >= 2 * kScanBlock; r += 2 * kScanBlock) {
            ConvertBlock<kRule>(r, w, prevCr);
            ConvertBlock<kRule>(r + kScanBlock, w, prevCr);
        }
        if (r != end) {
            ConvertBlock<kRule>(r, w, prevCr);
            r += kScanBlock;
        }
    }
    p = {size_t(r - s), size_t(w - o)};
}

// Converts s[p.in, n) byte by byte, as ConvertBlocks. REQUIRES: s[n] readable; o holds
// p.out + kWidening * (n - p.in) bytes.
template <ERule kRule>
void ConvertBytes(const char* s, size_t n, char* o, CProgress& p)
{
    char* w = o + p.out;
    for (size_t i = p.in; i < n; ++i) {
        if (!PickedAt<kRule>(s, i)) {
            *w++ = s[i];
        } else if (kRule != ERule::kDropCrBeforeLf) {
            *w++ = '\r';
            *w++ = '\n';
        }
    }
    p = {n, size_t(w - o)};
}

// Converts s[0, n) into o, which holds kWidening * n + 1 bytes. Returns the converted length;
// does not terminate o. REQUIRES: s[n] readable.
template <ERule kRule>
size_t ConvertLineEnds(const char* s, size_t n, char* o)
{
    CProgress p = {0, 0};
    ConvertBlocks<kRule>(s, n, o, kWidening<kRule> * n + 1, p);
    ConvertBytes<kRule>(s, n, o, p);
    return p.out;
}

// Makes out s[0, n) converted. The output length is only known at the end, so out's present
// size serves as room and grows only by what the rest may need when it runs short: a string
// converted again and again is neither reallocated nor zero-filled, a new one is zero-filled
// about once. REQUIRES: s[n] readable; s not inside out.
template <ERule kRule>
void ConvertInto(const char* s, size_t n, std::string& out)
{
    out.reserve(kWidening<kRule> * n + kBlockRoom);
    // Lower bounds: widening keeps every byte; a dropped CR is followed by a kept LF.
    const size_t least = (kRule == ERule::kDropCrBeforeLf ? n / 2 : n) + kBlockRoom;
    if (out.size() < least) out.resize(least);
    CProgress p = {0, 0};
    ConvertBlocks<kRule>(s, n, &out[0], out.size(), p);
    const size_t rest = p.out + kWidening<kRule> * (n - p.in) + kBlockRoom;
    if (out.size() < rest) {
        out.resize(rest);
        ConvertBlocks<kRule>(s, n, &out[0], out.size(), p);
    }
    ConvertBytes<kRule>(s, n, &out[0], p);
    out.resize(p.out);
}

bool Holds(const char* s, size_t n, char c) { return memchr(s, c, n) != nullptr; }

// Calls convert(rule) with the rule for lone CR and lone LF -> CR LF (rule as an
// std::integral_constant). Panel text has LF only and old text CR only; for these a cheaper rule
// gives the same result.
template <typename Convert>
void ConvertAnyToCrLf(const char* s, size_t n, Convert convert)
{
    if (!Holds(s, n, '\r')) return convert(std::integral_constant<ERule, ERule::kEveryLf>());
    if (!Holds(s, n, '\n')) return convert(std::integral_constant<ERule, ERule::kEveryCr>());
    convert(std::integral_constant<ERule, ERule::kLoneCrOrLf>());
}

// Runs convert(dest) with dest = out, or, when out is in itself (in is read while dest is
// written), with a new string that then replaces out.
template <typename Convert>
void IntoOutput(const std::string& in, std::string& out, Convert convert)
{
    if (&in != &out) return convert(out);
    std::string converted;
    convert(converted);
    out.swap(converted);
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
    if (count == 0) {
        dest[0] = '\0';  // the bounds-checked copy refuses a zero count
        return;
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
    if (!Holds(in.data(), len, '\r') || !Holds(in.data(), len, '\n')) {
        out.assign(in, 0, len);
        return;
    }
    IntoOutput(in, out, [&](std::string& dest) {
        ConvertInto<ERule::kDropCrBeforeLf>(in.c_str(), len, dest);
    });
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
    IntoOutput(in, out, [&](std::string& dest) {
        if (!Holds(s, textLen, '\r')) {
            dest.assign(in, 0, textLen);
        } else if (Holds(s, textLen, '\n')) {
            ConvertInto<ERule::kLoneCr>(s, textLen, dest);
        } else {
            ConvertInto<ERule::kEveryCr>(s, textLen, dest);
        }
        // Text is only ever flushed up to a lone CR; when the input ends in CR the unflushed
        // rest before a zero byte is never appended.
        if (textLen < n && in[n - 1] == '\r')
            dest.resize(LengthThroughLastLoneCr(s, textLen, dest.size()));
    });
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
    const char* s = in.c_str();
    IntoOutput(in, out, [&](std::string& dest) {
        ConvertAnyToCrLf(s, textLen, [&](auto rule) {
            ConvertInto<decltype(rule)::value>(s, textLen, dest);
        });
    });
}

char* ConvertToWinText3(const char* in)
{
    if (!in || in[0] == '\0') return nullptr;
    const size_t n = strlen(in);
    char* converted = new (std::nothrow) char[2 * n + 1];
    if (!converted) return nullptr;
    ConvertAnyToCrLf(in, n, [&](auto rule) {
        converted[ConvertLineEnds<decltype(rule)::value>(in, n, converted)] = '\0';
    });
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
