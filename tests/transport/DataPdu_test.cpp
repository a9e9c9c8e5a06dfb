// CDataPdu: parsing of well-formed, concatenated, truncated and lying envelopes, the exact trace
// lines of a parse, the deliberate SetData behaviour and the wire layout written back.
#include "transport/DataPdu.h"

#include "HostUICapture.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

void PutLE(std::string& out, uint32_t value, int bytes)
{
    for (int i = 0; i < bytes; ++i) out.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
}

// A header whose length field says len, whatever follows it.
std::string Header(int32_t from, int32_t to, int32_t len, uint16_t flag)
{
    std::string out;
    PutLE(out, static_cast<uint32_t>(from), 4);
    PutLE(out, static_cast<uint32_t>(to), 4);
    PutLE(out, static_cast<uint32_t>(len), 4);
    PutLE(out, flag, 2);
    return out;
}

std::string Envelope(int32_t from, int32_t to, const std::string& payload, uint16_t flag)
{
    return Header(from, to, static_cast<int32_t>(payload.size()), flag) + payload;
}

// Exactly sized heap copy, so that AddressSanitizer sees any read past the end.
std::vector<char> Exact(const std::string& bytes)
{
    return std::vector<char>(bytes.begin(), bytes.end());
}

std::string Payload(const CDataPdu& pdu)
{
    return pdu.GetData() ? std::string(pdu.GetData(), static_cast<size_t>(pdu.GetDataLen())) : std::string();
}

TEST(DataPdu, ParseJoinsAcceptedPayloadsAndKeepsLastAcceptedHeader)
{
    const std::string ab = Envelope(1, 2, "ab", 0);
    const struct {
        const char* name;
        std::string bytes;
        int from, to;
        short flag;
        std::string data;
    } cases[] = {
        {"header only", Header(7, 9, 0, 1), 7, 9, 1, ""},
        {"one payload", Envelope(7, 9, "hello", 0), 7, 9, 0, "hello"},
        {"payload with zero bytes", Envelope(7, 9, std::string("a\0b\0", 4), 0), 7, 9, 0, std::string("a\0b\0", 4)},
        {"two back to back", ab + Envelope(3, 4, "cde", 1), 3, 4, 1, "abcde"},
        {"empty between", ab + Header(5, 6, 0, 0) + Envelope(3, 4, "c", 1), 3, 4, 1, "abc"},
        {"trailing 13-byte fragment", ab + Header(5, 6, 0, 1).substr(0, 13), 1, 2, 0, "ab"},
        {"trailing 1-byte fragment", ab + "x", 1, 2, 0, "ab"},
        {"flag FFFF is -1", Envelope(1, 2, "z", 0xFFFF), 1, 2, -1, "z"},
        {"flag high bit is negative", Envelope(1, 2, "z", 0x8000), 1, 2, SHRT_MIN, "z"},
        {"negative ids", Envelope(-1, INT_MIN, "z", 0), -1, INT_MIN, 0, "z"},
        // Lying length fields: parsing stops there and keeps what came before.
        {"first length one too long", Header(1, 2, 4, 0) + "abc", 0, 0, 0, ""},
        {"later length past end", ab + Header(3, 4, 100, 1) + "cd", 1, 2, 0, "ab"},
        {"later length one too long", ab + Header(3, 4, 3, 1) + "cd", 1, 2, 0, "ab"},
        {"negative length", ab + Header(3, 4, -1, 1) + "cdefghijklmnopq", 1, 2, 0, "ab"},
        {"most negative length", Header(3, 4, INT_MIN, 1) + "cdef", 0, 0, 0, ""},
        {"huge length", ab + Header(3, 4, INT_MAX, 1), 1, 2, 0, "ab"},
        {"length overflowing the position", ab + Header(3, 4, INT_MAX - 13, 1) + "c", 1, 2, 0, "ab"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<char> src = Exact(c.bytes);
        CDataPdu pdu;
        pdu.SetData(nullptr, 4);  // a parse replaces a shorter payload held before
        pdu.SerializeFromBuf(src.data(), static_cast<int>(src.size()));
        EXPECT_EQ(pdu.GetUserFrom(), c.from);
        EXPECT_EQ(pdu.GetUserTo(), c.to);
        EXPECT_EQ(pdu.GetModifiedFlag(), c.flag);
        ASSERT_EQ(pdu.GetDataLen(), static_cast<int>(c.data.size()));
        ASSERT_NE(pdu.GetData(), nullptr);
        EXPECT_EQ(Payload(pdu), c.data);
        EXPECT_EQ(pdu.GetData()[pdu.GetDataLen()], '\0');
    }
}

TEST(DataPdu, ShortOrNegativeLengthChangesNothing)
{
    std::vector<char> src = Exact(Envelope(1, 2, "abcdef", 1));
    for (int len : {0, 1, 13, -1, -14, INT_MIN}) {
        CHostUICapture trace;
        CDataPdu pdu;
        pdu.SerializeFromBuf(src.data(), len);
        EXPECT_EQ(pdu.GetData(), nullptr) << len;
        EXPECT_EQ(pdu.GetDataLen(), 0) << len;
        EXPECT_EQ(pdu.GetUserFrom(), 0) << len;
        EXPECT_TRUE(trace.Lines().empty()) << len;
    }
    CDataPdu pdu;
    pdu.SerializeFromBuf(nullptr, 100);
    EXPECT_EQ(pdu.GetData(), nullptr);
}

TEST(DataPdu, TraceLinesOfATwoEnvelopeParse)
{
    std::vector<char> src = Exact(Envelope(1, 2, "ab", 0) + Envelope(-3, 4, "cde", 0xFFFF));
    CHostUICapture trace;
    CDataPdu pdu;
    pdu.SerializeFromBuf(src.data(), static_cast<int>(src.size()));
    std::vector<std::string> expected = {
        "CDataPdu::SerializeFromBuf, nDataLen =33",
        "CDataPdu::SerializeFromBuf, m_nUserFrom Before Swap =1",
        "CDataPdu::SerializeFromBuf, m_nUserFrom After Swap =1",
        "CDataPdu::SerializeFromBuf, m_nUserTo Before Swap =2",
        "CDataPdu::SerializeFromBuf, m_nUserTo After Swap =2",
        "CDataPdu::SerializeFromBuf, nLen Before Swap =2",
        "CDataPdu::SerializeFromBuf, nLen After Swap =2",
        "CDataPdu::SerializeFromBuf, m_sModifiedFlag Before Swap =0",
        "CDataPdu::SerializeFromBuf, m_sModifiedFlag After Swap =0",
        "CDataPdu::SerializeFromBuf, m_nDataLen =2, nPos= 16",
        "CDataPdu::SerializeFromBuf, m_nUserFrom Before Swap =-3",
        "CDataPdu::SerializeFromBuf, m_nUserFrom After Swap =-3",
        "CDataPdu::SerializeFromBuf, m_nUserTo Before Swap =4",
        "CDataPdu::SerializeFromBuf, m_nUserTo After Swap =4",
        "CDataPdu::SerializeFromBuf, nLen Before Swap =3",
        "CDataPdu::SerializeFromBuf, nLen After Swap =3",
        "CDataPdu::SerializeFromBuf, m_sModifiedFlag Before Swap =-1",
        "CDataPdu::SerializeFromBuf, m_sModifiedFlag After Swap =-1",
        "CDataPdu::SerializeFromBuf, m_nDataLen =5, nPos= 33",
    };
    EXPECT_EQ(trace.Lines(), expected);

    // A rejected envelope's header is traced, but no position line follows it.
    std::vector<char> lying = Exact(Envelope(1, 2, "ab", 0) + Header(-3, 4, 50, 0xFFFF));
    trace.Clear();
    CDataPdu other;
    other.SerializeFromBuf(lying.data(), static_cast<int>(lying.size()));
    expected.resize(18);
    expected[0] = "CDataPdu::SerializeFromBuf, nDataLen =30";
    expected[14] = "CDataPdu::SerializeFromBuf, nLen Before Swap =50";
    expected[15] = "CDataPdu::SerializeFromBuf, nLen After Swap =50";
    EXPECT_EQ(trace.Lines(), expected);
}

TEST(DataPdu, SetDataYieldsZeroFilledPayloadOfRequestedLength)
{
    struct Case {
        const char* data;
        int len;
        bool held;
    };
    const Case cases[] = {{"abc", 3, true}, {"abc", 1, true}, {nullptr, 5, true}, {"abc", 0, false}, {"abc", -4, false}};
    for (const Case& c : cases) {
        CDataPdu pdu;
        pdu.SetData("previous", 8);
        pdu.SetData(c.data, c.len);
        if (!c.held) {
            EXPECT_EQ(pdu.GetData(), nullptr) << c.len;
            EXPECT_EQ(pdu.GetDataLen(), 0) << c.len;
            continue;
        }
        ASSERT_NE(pdu.GetData(), nullptr) << c.len;
        EXPECT_EQ(pdu.GetDataLen(), c.len);
        EXPECT_EQ(Payload(pdu) + '\0', std::string(static_cast<size_t>(c.len) + 1, '\0'));
    }
}

TEST(DataPdu, SendDataLenIsPayloadPlusHeader)
{
    CDataPdu pdu;
    EXPECT_EQ(pdu.GetSendDataLen(), 14);
    pdu.SetData(nullptr, 5);
    EXPECT_EQ(pdu.GetSendDataLen(), 19);
    pdu.SetDataLen(100);  // a plain field: the buffer is not consulted
    EXPECT_EQ(pdu.GetSendDataLen(), 114);
    pdu.SetDataLen(INT_MAX);
    EXPECT_EQ(pdu.GetSendDataLen(), INT_MAX);
}

TEST(DataPdu, SerializeToBufRoundTripsParsedEnvelopes)
{
    const std::string inputs[] = {Header(7, 9, 0, 1), Envelope(7, 9, "hello", 0), Envelope(-1, 0, "z", 0xFFFF),
                                  Envelope(1, 2, std::string(5000, 'n'), 1)};
    for (const std::string& input : inputs) {
        std::vector<char> src = Exact(input);
        CDataPdu pdu;
        pdu.SerializeFromBuf(src.data(), static_cast<int>(src.size()));
        ASSERT_EQ(pdu.GetSendDataLen(), static_cast<int>(input.size()));
        std::vector<char> out(input.size());
        pdu.SerializeToBuf(out.data());
        EXPECT_EQ(std::string(out.begin(), out.end()), input);
    }
}

TEST(DataPdu, SerializeToBufWritesWireLayoutAndNeverReadsPastThePayload)
{
    // SetDataLen may claim more than is held: the shortfall is written as zero bytes.
    CDataPdu pdu;
    pdu.SetUserFrom(0x01020304);
    pdu.SetUserTo(-2);
    pdu.SetModifiedFlag(-1);
    pdu.SetData(nullptr, 2);
    pdu.SetDataLen(6);
    std::vector<char> out(static_cast<size_t>(pdu.GetSendDataLen()), 'x');
    pdu.SerializeToBuf(out.data());
    EXPECT_EQ(std::string(out.begin(), out.end()), Header(0x01020304, -2, 6, 0xFFFF) + std::string(6, '\0'));

    // Without a payload only the header is written.
    CDataPdu empty;
    empty.SetDataLen(4);
    std::vector<char> headerOnly(18, 'x');
    empty.SerializeToBuf(headerOnly.data());
    EXPECT_EQ(std::string(headerOnly.begin(), headerOnly.end()), Header(0, 0, 4, 0) + "xxxx");
}

}  // namespace
