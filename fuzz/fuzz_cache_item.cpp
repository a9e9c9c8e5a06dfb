// Packed cache items through the client's whole receive path: unpacked from a memory handle,
// parsed, applied and recorded, as the change cache delivers them. Input: one byte choosing
// the notepad (bit 0: captions, else single note taker) and the role (bit 1: writer), then
// items, each a control byte (bits 0-2: the cache action, bit 3: refused, bits 4-7: the cache
// id less one), a little-endian 16-bit length and that many bytes (fewer at the end).
// Whatever arrives, every change the client keeps survives the auto-save document.
#include "FuzzClient.h"

#include "xml/NoteSaveInfoPDU.h"

namespace {

constexpr unsigned kCacheHandle = 44;

std::string Written(CNoteSaveInfoPDU& record)
{
    record.GenerateXMLPDU();
    TiXmlPrinter printer;
    printer.SetIndent("    ");
    record.Accept(&printer);
    return printer.Str();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0) return 0;
    CFuzzClient& host = CFuzzClient::Get(data[0] & 1 ? NOTETAKER_CLOSED_CAPTIONS : NOTETAKER_SINGLE, (data[0] >> 1) & 1);
    CNoteClient& client = host.Client();
    client.m_nApeUserId = 21;
    client.m_nChangeCacheHandle = kCacheHandle;

    for (size_t pos = 1; pos < size;) {
        const uint8_t control = data[pos];
        size_t len = pos + 2 < size ? size_t(data[pos + 1]) | size_t(data[pos + 2]) << 8 : 0;
        pos = std::min(pos + 3, size);
        len = std::min(len, size - pos);
        host.Service().m_strItem.assign(reinterpret_cast<const char*>(data + pos), len);
        pos += len;
        client.SharedDataReceivedEx(1, 1u + (control >> 4), kCacheHandle, CFuzzService::kItemHandle,
                                    (control & 8) ? ARM_REFUSED : 0, static_cast<tagCacheAction>(control & 7),
                                    0, 0, 0);
    }

    // Read back as the client reads its file: parsed as it is, then taken apart.
    CNoteSaveInfoPDU back;
    back.Parse(Written(client.m_SaveInfo).c_str());
    FUZZ_CHECK(back.ParseXMLPDU());
    FUZZ_CHECK(back.m_vecChangeInfoPdu.size() == client.m_SaveInfo.m_vecChangeInfoPdu.size());
    return 0;
}
