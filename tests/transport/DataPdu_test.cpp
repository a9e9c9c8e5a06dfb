// CDataPdu: parsing of well-formed, concatenated, truncated and lying envelopes, the exact trace
// lines of a parse, the deliberate SetData behaviour and the wire layout written back.
#include "transport/DataPdu.h"

#include "HostUICapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace {

// A header whose length field says len, whatever follows it: little-endian fields.
std::string Header(int32_t from, int32_t to, int32_t len, uint16_t flag)
{
    std::string out;
    for (const auto& [value, bytes] : {std::pair<uint32_t, int>{uint32_t(from), 4}, {uint32_t(to), 4}, {uint32_t(len), 4}, {flag, 2}}) {
        for (int i = 0; i < bytes; ++i) out.push_back(static_cast<char>(value >> (8 * i)));
    }
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
    const struct { const char* name; std::string bytes; int from, to; short flag; std::string data; } cases[] = {
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
        EXPECT_EQ(std::make_tuple(pdu.GetUserFrom(), pdu.GetUserTo(), pdu.GetModifiedFlag()), std::make_tuple(c.from, c.to, c.flag));
        ASSERT_EQ(pdu.GetDataLen(), static_cast<int>(c.data.size()));
        ASSERT_NE(pdu.GetData(), nullptr);
        EXPECT_EQ(Payload(pdu), c.data);
        EXPECT_EQ(pdu.GetData()[pdu.GetDataLen()], '\0');
    }
}

TEST(DataPdu, ShortOrNegativeLengthChangesNothingAndTracesNothing)
{
    std::vector<char> src = Exact(Envelope(1, 2, "abcdef", 1));
    for (int len : {0, 1, 13, -1, -14, INT_MIN}) {
        CHostUICapture trace;
        CDataPdu pdu;
        pdu.SerializeFromBuf(src.data(), len);
        EXPECT_TRUE(pdu.GetData() == nullptr && pdu.GetDataLen() == 0 && pdu.GetUserFrom() == 0) << len;
        EXPECT_TRUE(trace.Lines().empty()) << len;
    }
    CDataPdu pdu;
    pdu.SerializeFromBuf(nullptr, 100);
    EXPECT_EQ(pdu.GetData(), nullptr);
}

// Each envelope's header is traced before and after the byte swap; an accepted one adds the
// position line, a rejected one does not.
TEST(DataPdu, TraceLinesOfAParse)
{
    std::vector<char> src = Exact(Envelope(1, 2, "ab", 0) + Header(-3, 4, 50, 0xFFFF));
    CHostUICapture trace;
    CDataPdu pdu;
    pdu.SerializeFromBuf(src.data(), static_cast<int>(src.size()));
    std::vector<std::string> expected = {"CDataPdu::SerializeFromBuf, nDataLen =30"};
    for (const auto& [from, to, len, flag] : {std::array<int, 4>{1, 2, 2, 0}, std::array<int, 4>{-3, 4, 50, -1}}) {
        for (const auto& [name, value] : {std::pair{"m_nUserFrom", from}, {"m_nUserTo", to}, {"nLen", len}, {"m_sModifiedFlag", flag}}) {
            for (const char* when : {" Before Swap =", " After Swap ="}) {
                expected.push_back(std::string("CDataPdu::SerializeFromBuf, ") + name + when + std::to_string(value));
            }
        }
        if (len == 2) expected.push_back("CDataPdu::SerializeFromBuf, m_nDataLen =2, nPos= 16");
    }
    EXPECT_EQ(trace.Lines(), expected);
}

// SetData yields a zero-filled payload of the requested length, whatever data it is given.
TEST(DataPdu, SetDataAndSendDataLen)
{
    for (const auto& [data, len] : {std::pair{"abc", 3}, {"abc", 1}, {nullptr, 5}, {"abc", 0}, {"abc", -4}}) {
        CDataPdu pdu;
        pdu.SetData("previous", 8);
        pdu.SetData(data, len);
        EXPECT_EQ(pdu.GetDataLen(), std::max(len, 0)) << len;
        ASSERT_EQ(pdu.GetData() != nullptr, len > 0) << len;
        if (len > 0) {
            EXPECT_EQ(std::string(pdu.GetData(), size_t(len) + 1), std::string(size_t(len) + 1, '\0'));
        }
    }
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
