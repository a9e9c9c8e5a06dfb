// UTF-16 unit counting over UTF-8.
#include "panel/TextUnits.h"

#include <cstdint>
#include <cstring>

namespace {

// Whether the 8 bytes at text[pos] are all ASCII: one byte, one unit each. Texts are mostly
// ASCII, and the panel counts its whole text on every set and fetch.
bool AsciiWordAt(const std::string& text, size_t pos)
{
    if (pos + 8 > text.size()) return false;
    std::uint64_t word;
    std::memcpy(&word, text.data() + pos, 8);
    return (word & 0x8080808080808080ull) == 0;
}

// Whether the 32 bytes at text[pos] are all ASCII; long texts are mostly long ASCII runs.
bool AsciiBlockAt(const std::string& text, size_t pos)
{
    if (pos + 32 > text.size()) return false;
    std::uint64_t words[4];
    std::memcpy(words, text.data() + pos, 32);
    return ((words[0] | words[1] | words[2] | words[3]) & 0x8080808080808080ull) == 0;
}

bool IsContinuation(unsigned char c) { return (c & 0xC0) == 0x80; }

// The byte length and UTF-16 units of the character at text[pos]; an invalid or truncated
// sequence is one byte of one unit.
void NextCharacter(const std::string& text, size_t pos, size_t& bytes, unsigned& units)
{
    const unsigned char lead = static_cast<unsigned char>(text[pos]);
    size_t need = 1;
    units = 1;
    if (lead >= 0xC2 && lead <= 0xDF) {
        need = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        need = 3;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        need = 4;
        units = 2;
    }
    if (need > 1 && pos + need <= text.size()) {
        for (size_t i = 1; i < need; ++i) {
            if (!IsContinuation(static_cast<unsigned char>(text[pos + i]))) need = 1;
        }
    } else {
        need = 1;
    }
    if (need == 1) units = 1;
    bytes = need;
}

}  // namespace

unsigned Utf16Length(const std::string& utf8)
{
    unsigned total = 0;
    for (size_t pos = 0; pos < utf8.size();) {
        if (AsciiBlockAt(utf8, pos)) {
            pos += 32;
            total += 32;
            continue;
        }
        if (AsciiWordAt(utf8, pos)) {
            pos += 8;
            total += 8;
            continue;
        }
        size_t bytes = 0;
        unsigned units = 0;
        NextCharacter(utf8, pos, bytes, units);
        pos += bytes;
        total += units;
    }
    return total;
}

size_t Utf8PrefixBytes(const std::string& utf8, unsigned units)
{
    size_t pos = 0;
    unsigned taken = 0;
    while (pos < utf8.size()) {
        if (taken + 32 <= units && AsciiBlockAt(utf8, pos)) {
            pos += 32;
            taken += 32;
            continue;
        }
        if (taken + 8 <= units && AsciiWordAt(utf8, pos)) {
            pos += 8;
            taken += 8;
            continue;
        }
        size_t bytes = 0;
        unsigned charUnits = 0;
        NextCharacter(utf8, pos, bytes, charUnits);
        if (taken + charUnits > units) break;
        taken += charUnits;
        pos += bytes;
    }
    return pos;
}
