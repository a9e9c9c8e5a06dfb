// Finds CR and LF bytes 32 at a time, so that the line-ending conversions move text in blocks
// instead of byte by byte. SSE2 where the compiler targets it, plain C++ elsewhere; both
// give the same masks. Internal to the platform utilities.
#pragma once

#include <stdint.h>
#include <string.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace ntglobale {

enum { kScanBlock = 32 };

// Bit i of each mask describes byte i of a 32-byte block.
struct CBlockMasks {
    uint32_t cr;      // byte i is CR
    uint32_t lf;      // byte i is LF
    uint32_t nextLf;  // byte i + 1 is LF (byte 32 is the first of the next block)
};

// Copies the block at src to dst and returns its masks.
// REQUIRES: src[0] through src[32] readable, dst[0] through dst[31] writable, not overlapping.
inline CBlockMasks CopyAndScanBlock(char* dst, const char* src);

// Copies one block. REQUIRES: 32 bytes readable at src and writable at dst, not overlapping.
inline void CopyBlock(char* dst, const char* src) { memcpy(dst, src, kScanBlock); }

#if defined(__SSE2__)

inline uint32_t EqualMask(__m128i lo, __m128i hi, char c)
{
    const __m128i wanted = _mm_set1_epi8(c);
    const uint32_t low = static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(lo, wanted)));
    const uint32_t high = static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(hi, wanted)));
    return low | (high << 16);
}

inline CBlockMasks CopyAndScanBlock(char* dst, const char* src)
{
    const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src));
    const __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 16));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), lo);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 16), hi);
    const uint32_t lf = EqualMask(lo, hi, '\n');
    return {EqualMask(lo, hi, '\r'), lf, (lf >> 1) | (uint32_t(src[kScanBlock] == '\n') << 31)};
}

#else

inline CBlockMasks CopyAndScanBlock(char* dst, const char* src)
{
    CopyBlock(dst, src);
    CBlockMasks masks = {0, 0, 0};
    for (unsigned i = 0; i < kScanBlock; ++i) {
        const uint32_t bit = uint32_t(1) << i;
        if (src[i] == '\r') masks.cr |= bit;
        if (src[i] == '\n') masks.lf |= bit;
        if (src[i + 1] == '\n') masks.nextLf |= bit;
    }
    return masks;
}

#endif

}  // namespace ntglobale
