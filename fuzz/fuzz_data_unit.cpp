// A received buffer of data-unit envelopes: the payloads joined must be those of the whole
// envelopes at its start (a step-by-step walk here), with the last one's header, and the
// envelope must write back as it was read.
#include "FuzzTarget.h"

#include "transport/DataPdu.h"

#include <climits>
#include <cstring>
#include <vector>

namespace {

int32_t Le32(const uint8_t* p)
{
    return static_cast<int32_t>(uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24);
}

struct CExpected {
    int32_t from = 0, to = 0;
    int16_t flag = 0;
    std::string payload;
};

CExpected Walk(const uint8_t* data, size_t size)
{
    CExpected e;
    for (size_t pos = 0; size - pos >= CDataPdu::kHeaderLen;) {
        const uint8_t* h = data + pos;
        const int32_t len = Le32(h + 8);
        if (len < 0 || size_t(len) > size - pos - CDataPdu::kHeaderLen) break;
        e.from = Le32(h);
        e.to = Le32(h + 4);
        e.flag = static_cast<int16_t>(h[12] | h[13] << 8);
        e.payload.append(reinterpret_cast<const char*>(h + CDataPdu::kHeaderLen), size_t(len));
        pos += CDataPdu::kHeaderLen + size_t(len);
    }
    return e;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size >= INT_MAX) return 0;
    FuzzQuietTrace();
    CDataPdu pdu;
    pdu.SerializeFromBuf(const_cast<uint8_t*>(data), static_cast<int>(size));
    if (size < size_t(CDataPdu::kHeaderLen)) {
        FUZZ_CHECK(pdu.GetData() == nullptr && pdu.GetUserFrom() == 0);
        return 0;
    }
    const CExpected want = Walk(data, size);
    FUZZ_CHECK(pdu.GetUserFrom() == want.from && pdu.GetUserTo() == want.to);
    FUZZ_CHECK(pdu.GetModifiedFlag() == want.flag);
    FUZZ_CHECK(pdu.GetDataLen() == static_cast<int>(want.payload.size()));
    FUZZ_CHECK(pdu.GetData() && std::memcmp(pdu.GetData(), want.payload.data(), want.payload.size()) == 0);
    FUZZ_CHECK(pdu.GetData()[want.payload.size()] == '\0');

    std::vector<uint8_t> wire(static_cast<size_t>(pdu.GetSendDataLen()));
    pdu.SerializeToBuf(wire.data());
    CDataPdu back;
    back.SerializeFromBuf(wire.data(), static_cast<int>(wire.size()));
    FUZZ_CHECK(back.GetUserFrom() == want.from && back.GetModifiedFlag() == want.flag);
    FUZZ_CHECK(std::string(back.GetData(), size_t(back.GetDataLen())) == want.payload);
    return 0;
}
