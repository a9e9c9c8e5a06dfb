// Escaping of note text for CDATA sections and the character-conversion members.
//
// "]]>" and its stand-in "abc" have the same length, as have "\r\n" and "\n\n", so every
// replacement here overwrites bytes in place and recorded offsets never move.
#include "xml/OrvNoteBaseXML.h"

#include <algorithm>
#include <cstring>

namespace {

const char kCdataEnd[] = "]]>";
const char kCdataEndStandIn[] = "abc";
const char kCdataStart[] = "<![CDATA[";

// Offsets of every occurrence of needle in s, ascending. Offsets are long throughout, so a
// string of any size is walked without wrapping.
std::vector<long> FindAll(const std::string& s, const char* needle)
{
    std::vector<long> found;
    for (size_t p = s.find(needle); p != std::string::npos; p = s.find(needle, p + 1)) {
        found.push_back(static_cast<long>(p));
    }
    return found;
}

// The last offset in sorted[0, count) whose match of length len ends within limit, moving
// count down past the ones that do not; -1 if none. limit only ever shrinks between calls.
long LastWithin(const std::vector<long>& sorted, size_t& count, long limit, long len)
{
    while (count > 0 && sorted[count - 1] + len > limit) --count;
    return count > 0 ? sorted[count - 1] : -1;
}

// Replaces every occurrence left to right, recording the offsets when asked. The search
// resumes after the old text's length; a longer replacement is stepped over whole, so that
// it can never be matched again.
void ReplaceAll(std::string& s, const std::string& from, const std::string& to,
                NotePosList* record)
{
    const size_t n = from.size();
    if (n == 0) return;
    const size_t step = std::max(n, to.size());
    for (size_t p = s.find(from); p != std::string::npos; p = s.find(from, p + step)) {
        s.replace(p, n, to);
        if (record) record->push_back(static_cast<int>(p));
    }
}

}  // namespace

bool COrvNoteBaseXML::strReplace(std::string& s, std::string from, std::string to)
{
    ReplaceAll(s, from, to, 0);
    return true;
}

bool COrvNoteBaseXML::strReplace(NotePosList& pos, std::string& s, std::string from,
                                 std::string to, int usePositions)
{
    if (!usePositions) {
        pos.clear();
        ReplaceAll(s, from, to, &pos);
        return true;
    }
    // Offsets come from received documents: one outside the string has nothing to replace.
    // Near the end, the bytes that remain are replaced and the string grows.
    const size_t n = from.size();
    for (int p : pos) {
        if (p < 0 || static_cast<size_t>(p) > s.size()) continue;
        s.replace(static_cast<size_t>(p), n, to);
    }
    return true;
}

void COrvNoteBaseXML::strToSafe(std::string& s)
{
    if (m_bSafeLineBreaks) strReplace(s, "\r\n", "\n\n");
    strReplace(s, kCdataEnd, kCdataEndStandIn);
}

void COrvNoteBaseXML::strToSafe(std::string& s, NotePosList& pos)
{
    if (m_bSafeLineBreaks) strReplace(s, "\r\n", "\n\n");
    strReplace(pos, s, kCdataEnd, kCdataEndStandIn, 0);
}

void COrvNoteBaseXML::strToRecover(std::string& s)
{
    strReplace(s, kCdataEndStandIn, kCdataEnd);
    strReplace(s, "\n\n", "\r\n");
}

void COrvNoteBaseXML::strToRecover(std::string& s, NotePosList pos)
{
    strReplace(pos, s, kCdataEndStandIn, kCdataEnd, 1);
    strReplace(s, "\n\n", "\r\n");
}

// Scans backwards over ever shorter prefixes w = pdu[0, limit): each pass looks at the last
// "abc", "]]>" and "<![CDATA[" inside w. Instead of copying prefixes, the occurrences are
// found once and walked with cursors, since limit only shrinks. The one change a pass can
// make turns an "abc" into "]]>", which removes that "abc" and adds exactly one "]]>" at the
// same offset (no other occurrence can overlap those bytes).
void COrvNoteBaseXML::strPduToSafe(std::string& pdu)
{
    const long kEndLen = 3, kStartLen = sizeof kCdataStart - 1;
    const std::vector<long> standIns = FindAll(pdu, kCdataEndStandIn);
    const std::vector<long> ends = FindAll(pdu, kCdataEnd);
    const std::vector<long> starts = FindAll(pdu, kCdataStart);
    std::vector<long> written;  // "]]>" written by this function, descending
    size_t nStandIns = standIns.size(), nEnds = ends.size(), nStarts = starts.size();
    size_t firstWritten = 0;
    long limit = static_cast<long>(pdu.size());

    for (;;) {
        const long a = LastWithin(standIns, nStandIns, limit, kEndLen);
        long b = LastWithin(ends, nEnds, limit, kEndLen);
        while (firstWritten < written.size() && written[firstWritten] + kEndLen > limit) {
            ++firstWritten;
        }
        if (firstWritten < written.size()) b = std::max(b, written[firstWritten]);
        const long c = LastWithin(starts, nStarts, limit, kStartLen);
        if (c == -1 || a == -1) break;

        bool progressed = false;
        if (a < c) {
            limit = std::max(a - 1, 0L);
            progressed = true;
        }
        if (b == -1 || b < c) {
            std::memcpy(&pdu[static_cast<size_t>(a)], kCdataEnd, kEndLen);
            --nStandIns;  // a was the last candidate
            written.push_back(a);
            limit = std::max(c - 1, 0L);
            progressed = true;
        }
        // The last "abc" and "]]>" both lie in the last section: nothing left to repair.
        if (!progressed) break;
    }
}

int COrvNoteBaseXML::ASCII2UTF8(char* dst, const char* src)
{
    // A non-ASCII byte starts a two-byte character that comes out as three bytes of a
    // scratch buffer that is never filled in: in effect the text ends there.
    const unsigned char scratch[4] = {0, 0, 0, 0};
    const size_t n = std::strlen(src) + 1;
    size_t i = 0;
    size_t j = 0;
    while (i < n) {
        const unsigned char c = static_cast<unsigned char>(src[i]);
        if (c < 0x80) {
            dst[j++] = static_cast<char>(c);
            i += 1;
        } else {
            std::memcpy(dst + j, scratch, 3);
            i += 2;
            j += 3;
        }
    }
    dst[j] = 0;
    return static_cast<int>(j);
}

void COrvNoteBaseXML::UTF8ToUnicode(unsigned short* dst, const char* src)
{
    // Bytes after a terminator read as zero instead of past the string.
    const unsigned char s0 = static_cast<unsigned char>(src[0]);
    const unsigned char s1 = s0 ? static_cast<unsigned char>(src[1]) : 0;
    const unsigned char s2 = s1 ? static_cast<unsigned char>(src[2]) : 0;
    unsigned char* out = reinterpret_cast<unsigned char*>(dst);
    out[0] = static_cast<unsigned char>((s1 << 6) | (s2 & 0x3F));
    out[1] = static_cast<unsigned char>((s0 << 4) | ((s1 >> 2) & 0x0F));
}

void COrvNoteBaseXML::UTF8ToASCII(char*, const char*) {}

void COrvNoteBaseXML::ASCII2Unicode(unsigned short*, const char*) {}

void COrvNoteBaseXML::Unicode2UTF8(char*, const unsigned short*) {}

void COrvNoteBaseXML::UnicodeToASCII(char*, unsigned short) {}
