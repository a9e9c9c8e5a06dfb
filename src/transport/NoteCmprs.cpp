// CCompressEngine: zlib's one-shot compress2 and uncompress.
#include "transport/NoteCmprs.h"

#include <zlib.h>

namespace {

// Fixed, not configurable: favours speed over ratio; any level decompresses the same way.
const int kCompressLevel = 3;

bool ArgumentsUsable(const unsigned char* source, const unsigned char* dest, unsigned long sourceLen,
                     const unsigned long* destLen)
{
    return destLen && dest && (source || sourceLen == 0);
}

}  // namespace

CCompressEngine::CCompressEngine() = default;
CCompressEngine::~CCompressEngine() = default;

bool CCompressEngine::Initialize()
{
    return true;
}

void CCompressEngine::Cleanup() {}

bool CCompressEngine::CanCompress()
{
    return true;
}

int CCompressEngine::Compress(unsigned char* source, unsigned char* dest, unsigned long sourceLen,
                              unsigned long* destLen)
{
    if (!ArgumentsUsable(source, dest, sourceLen, destLen)) return Z_STREAM_ERROR;
    return compress2(dest, destLen, source, sourceLen, kCompressLevel);
}

int CCompressEngine::Decompress(unsigned char* source, unsigned char* dest, unsigned long sourceLen,
                                unsigned long* destLen)
{
    if (!ArgumentsUsable(source, dest, sourceLen, destLen)) return Z_STREAM_ERROR;
    return uncompress(dest, destLen, source, sourceLen);
}
