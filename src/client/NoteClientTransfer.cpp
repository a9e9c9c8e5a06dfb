// CNoteClient: packing PDUs into memory handles and resending the document.
//
// A packed cache item is two little-endian u32 (dwLenOut: the text's length after
// decompression, 0 for a stored text; dwRealLen: the body's length) and the body. Items come
// from other machines, so unpacking trusts neither length: the body is what the handle holds,
// and the text never grows past what a notepad can carry.
#include "client/CNoteClient.h"

#include "boundscheck/boundscheck.h"
#include "tessarinnote/notehostui.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

namespace {

const unsigned kHeaderBytes = 8;
// zlib's Z_OK; the engine returns zlib's status codes.
const int kCompressOk = 0;
// The longest text CompressPdu takes.
const size_t kMaxPackedText = 0x7FFFFFFF;
// Flags of a resent change that never reached the cache, with recording on, and of any other.
const unsigned kFlagsRecorded = CACHE_FLAG_BASE | CACHE_FLAG_RECORD_A | CACHE_FLAG_RECORD_B;
const unsigned kFlagsPlain = CACHE_FLAG_BASE;

#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
const bool kBigEndianHost = true;
#else
const bool kBigEndianHost = false;
#endif

void PutLe32(unsigned char* p, uint32_t v)
{
    for (int i = 0; i < 4; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}

uint32_t HostU32(const unsigned char* p)
{
    uint32_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

uint32_t Swap32(uint32_t v)
{
    return (v >> 24) | ((v >> 8) & 0xFF00u) | ((v << 8) & 0xFF0000u) | (v << 24);
}

// A zero-filled array of n bytes, or null when memory runs out.
std::unique_ptr<unsigned char[]> ZeroedBytes(size_t n)
{
    return std::unique_ptr<unsigned char[]>(new (std::nothrow) unsigned char[n]());
}

}  // namespace

unsigned CNoteClient::CompressPdu(const char* text)
{
    if (!text) text = "";
    const size_t len = strnlen_s(text, kMaxPackedText);
    const unsigned long capacity = static_cast<unsigned long>(len * 1.001 + 12 + 8);
    // Room for the header before the capacity zlib may fill, and zero-filled so that no byte
    // of the item is ever left unset (the empty item below writes only one of dwLenOut's).
    const size_t bufSize = kHeaderBytes + capacity + 1;
    // The product never freed this buffer; the handle holds a copy of it, so it goes on return.
    std::unique_ptr<unsigned char[]> buf = ZeroedBytes(bufSize);
    if (!buf) return 0;

    uint32_t realLen = 0;
    unsigned long packedLen = capacity;
    if (len != 0 &&
        m_CompressEngine.Compress(reinterpret_cast<unsigned char*>(const_cast<char*>(text)),
                                  buf.get() + kHeaderBytes, len, &packedLen) == kCompressOk &&
        packedLen < len) {
        realLen = static_cast<uint32_t>(packedLen);
        PutLe32(buf.get(), static_cast<uint32_t>(len));
        PutLe32(buf.get() + 4, realLen);
    } else if (len != 0) {
        // Stored as it is; dwLenOut stays 0 (the buffer is zero-filled already).
        realLen = static_cast<uint32_t>(len);
        PutLe32(buf.get() + 4, realLen);
        memcpy_s(buf.get() + kHeaderBytes, bufSize - kHeaderBytes, text, len);
    } else {
        // Deliberately only the low byte of dwLenOut: a receiver that found the others set
        // would fail to decompress an empty body and still end with an empty text.
        buf[0] = 0;
        PutLe32(buf.get() + 4, 0);
    }
    unsigned size = realLen + kHeaderBytes;
    return GetATMemHandle(&size, buf.get());
}

unsigned CNoteClient::GetATMemHandle(unsigned* size, void* data)
{
    if (!m_pArmService || !size || (!data && *size != 0)) return 0;
    unsigned handle = 0;
    if (m_pArmService->ArmService_AllocMemHandle(*size, &handle) != 0) return 0;
    if (m_pArmService->ArmService_WriteMemHandle(handle, 0, data, *size) != 0) {
        m_pArmService->ArmService_FreeMemHandle(handle);
        return 0;
    }
    return handle;
}

// *size: in, the capacity of out; out, the bytes read. A handle larger than out is not read.
int CNoteClient::ParseATMemHandle(unsigned handle, char* out, unsigned* size)
{
    if (handle == 0 || !m_pArmService || !out || !size) return 0;
    unsigned handleSize = 0;
    if (m_pArmService->ArmService_GetMemHandleSize(handle, &handleSize) != 0) return 0;
    if (handleSize > *size) return 0;
    unsigned read = handleSize;
    if (m_pArmService->ArmService_ReadMemHandle(handle, 0, out, &read) != 0) return 0;
    *size = read;
    return 1;
}

int CNoteClient::DecompressPdu(unsigned handle)
{
    unsigned dataLen = 0;
    if (m_pArmService) m_pArmService->ArmService_GetMemHandleSize(handle, &dataLen);
    MacInfoTrace2("note", "CNoteClient::DecompressPdu, dwDataLen = %ld", static_cast<long>(dataLen));
    if (!m_pTextBuf || m_nTextBufSize == 0 || dataLen < 3) return 0;

    // At least a whole header, so that a short item reads zeros instead of past its end.
    const size_t scratchSize = (dataLen < kHeaderBytes ? kHeaderBytes : size_t(dataLen)) + 1;
    std::unique_ptr<unsigned char[]> scratch = ZeroedBytes(scratchSize);
    if (!scratch) return 0;
    unsigned readLen = dataLen;
    if (!ParseATMemHandle(handle, reinterpret_cast<char*>(scratch.get()), &readLen)) readLen = 0;

    uint32_t lenOut = HostU32(scratch.get());
    uint32_t realLen = HostU32(scratch.get() + 4);
    if (kBigEndianHost) {
        MacInfoTrace2("note",
                      "CNoteClient::DecompressPdu, before swap, dwDataLen = %ld, dwRealLen = %ld, "
                      "dwLenOut = %ld",
                      static_cast<long>(dataLen), static_cast<long>(realLen), static_cast<long>(lenOut));
        lenOut = Swap32(lenOut);
        realLen = Swap32(realLen);
    }
    MacInfoTrace2("note", "CNoteClient::DecompressPdu, dwDataLen = %ld, dwRealLen = %ld, dwLenOut = %ld",
                  static_cast<long>(dataLen), static_cast<long>(realLen), static_cast<long>(lenOut));

    // The body is what the handle holds, whatever dwRealLen says.
    const uint32_t bodyHeld = readLen > kHeaderBytes ? readLen - kHeaderBytes : 0;
    if (realLen > bodyHeld) realLen = bodyHeld;
    // No notepad carries a text as long as its own work buffer: a longer announcement is
    // hostile and is cut there, so the buffer grows at most once, to twice that size.
    const uint32_t maxLenOut = BufSizeFor(m_nMaxTextLen);
    if (lenOut > maxLenOut) lenOut = maxLenOut;

    unsigned long limit = lenOut;
    if (lenOut + 1 > m_nTextBufSize) {
        const unsigned grown = lenOut * 2 + 1;
        char* bigger = NewTextBuf(grown);
        if (bigger) {
            FreeTextBuf(m_pTextBuf);
            m_pTextBuf = bigger;
            m_nTextBufSize = grown;
            m_nTextBufDirty = 0;  // allocated zeroed
            limit = grown;
        }
    }
    // One byte always stays zero, so the text is terminated.
    if (limit > m_nTextBufSize - 1) limit = m_nTextBufSize - 1;
    ClearTextBuf();

    // A text longer than the buffer a notepad starts with comes from no notepad: only an item
    // that announced as much, and so grew the buffer, gets there. Dropped, not taken apart and
    // applied: that would cost many times its megabytes.
    const size_t longest = BufSizeFor(m_nMaxTextLen) - 1;
    unsigned char* body = scratch.get() + kHeaderBytes;
    bool copyBody = lenOut == 0;
    if (!copyBody) {
        unsigned long written = limit;
        m_nTextBufDirty = static_cast<unsigned>(limit);  // a failed stream may write up to there
        if (m_CompressEngine.Decompress(body, reinterpret_cast<unsigned char*>(m_pTextBuf), realLen,
                                        &written) != kCompressOk) {
            // Taken as plain text; what a failed stream left behind goes first.
            ClearTextBuf();
            copyBody = true;
        } else if (written > longest) {
            ClearTextBuf();
        }
    }
    if (copyBody) {
        size_t n = realLen < m_nTextBufSize - 1 ? realLen : m_nTextBufSize - 1;
        if (n > longest) n = 0;
        if (n != 0) memcpy_s(m_pTextBuf, m_nTextBufSize, body, n);
        if (n > m_nTextBufDirty) m_nTextBufDirty = static_cast<unsigned>(n);
    }
    return 1;
}

char* CNoteClient::NewTextBuf(size_t size)
{
    return static_cast<char*>(calloc(size, 1));
}

void CNoteClient::FreeTextBuf(char* buffer)
{
    free(buffer);
}

void CNoteClient::ClearTextBuf()
{
    if (!m_pTextBuf) return;
    const unsigned n = m_nTextBufDirty < m_nTextBufSize ? m_nTextBufDirty : m_nTextBufSize;
    if (n != 0) memset_s(m_pTextBuf, m_nTextBufSize, 0, n);
    m_nTextBufDirty = 0;
}

void CNoteClient::SendAllBlockPdu(int all)
{
    if (!m_pArmService) return;
    const bool captions = m_nNotePadType == NOTETAKER_CLOSED_CAPTIONS;
    const unsigned itemId = captions ? 0 : m_nLastCacheId;
    const unsigned mode = captions ? CACHE_MODE_APPEND : CACHE_MODE_REPLACE_NEWEST;
    const bool recording = (m_nNBRStatus == 0 || m_nNBRStatus == 3) && !captions;

    std::vector<CNoteChangeInfoPDU>& changes = m_SaveInfo.m_vecChangeInfoPdu;
    // By index: the list is the client's own and puts never call back before they return,
    // but an index stays valid whatever happens to the list.
    for (size_t i = 0; i < changes.size(); ++i) {
        CNoteChangeInfoPDU& pdu = changes[i];
        const bool inCache = pdu.GetCacheId_INT() != 0;
        if (all == 0 && inCache) continue;
        const unsigned flags = !inCache && recording ? kFlagsRecorded : kFlagsPlain;
        // The stored change itself goes out with cache id 0; its own delivery stamps the new id.
        pdu.Clear();
        pdu.SetCacheId(0);
        pdu.GenerateXMLPDU();
        const std::string xml = pdu.PrintCompact();
        const unsigned handle = CompressPdu(xml.c_str());
        m_pArmService->ArmService_PutCacheItem(m_nApeUserId, m_nChangeCacheHandle, 0, itemId, mode,
                                               flags, handle, 0, 2);
        m_pArmService->ArmService_FreeMemHandle(handle);
    }
}
