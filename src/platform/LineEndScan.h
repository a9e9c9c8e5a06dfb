// Finds CR and LF bytes 16 at a time, so that the line-ending conversions move text in blocks
// instead of byte by byte. SSE2 where the compiler targets it, plain C++ elsewhere; both
// give the same masks. Internal to the platform utilities.
#pragma once

#include <stdint.h>
#include <string.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace ntglobale {

// 16 bytes: the rest of a block after a line end then takes a single 16-byte copy. With 32-byte
// blocks those copies cost more than the shorter block loop saves.
enum { kScanBlock = 16 };

// Bit i of each mask describes byte i of a block; byte 16 is the first of the next block.
// Each mask is taken from the bytes in one go: a conversion uses one or two of them, and the
// compiler drops the others.
struct CBlockMasks {
    uint32_t cr;      // byte i is CR
    uint32_t lf;      // byte i is LF
    uint32_t crLf;    // byte i is CR and byte i + 1 LF
    uint32_t loneCr;  // byte i is CR and byte i + 1 not LF
};

// Copies the block at src to dst and returns its masks.
// REQUIRES: src[0] through src[16] readable, dst[0] through dst[15] writable, not overlapping.
inline CBlockMasks CopyAndScanBlock(char* dst, const char* src);

// Copies one block. REQUIRES: 16 bytes readable at src and writable at dst, not overlapping.
inline void CopyBlock(char* dst, const char* src) { memcpy(dst, src, kScanBlock); }

#if defined(__SSE2__)

inline uint32_t Mask(__m128i bytes)
{
    return static_cast<uint32_t>(_mm_movemask_epi8(bytes));
}

inline CBlockMasks CopyAndScanBlock(char* dst, const char* src)
{
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src));
    const __m128i next = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 1));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), bytes);
    const __m128i cr = _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\r'));
    const __m128i nextLf = _mm_cmpeq_epi8(next, _mm_set1_epi8('\n'));
    return {Mask(cr), Mask(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('\n'))),
            Mask(_mm_and_si128(cr, nextLf)), Mask(_mm_andnot_si128(nextLf, cr))};
}

#else

inline CBlockMasks CopyAndScanBlock(char* dst, const char* src)
{
    CopyBlock(dst, src);
    CBlockMasks masks = {0, 0, 0, 0};
    for (unsigned i = 0; i < kScanBlock; ++i) {
        const uint32_t bit = uint32_t(1) << i;
        if (src[i] == '\r') masks.cr |= bit;
        if (src[i] == '\n') masks.lf |= bit;
        if (src[i] == '\r' && src[i + 1] == '\n') masks.crLf |= bit;
        if (src[i] == '\r' && src[i + 1] != '\n') masks.loneCr |= bit;
    }
    return masks;
}

#endif

}  // namespace ntglobale
