// The sealed-record codec and the sealed data units of a PKI meeting: records open only under
// their own meeting's key and only untouched; sequences split back into their records; every
// record of a long data unit opens to one complete envelope.
#include "conference/DataUnits.h"
#include "conference/SealedRecords.h"
#include "transport/DataPdu.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

namespace {

// Opens record into a buffer that held a byte, so that a failure must empty it.
std::string OpenText(const CSealedRecords& sealer, const std::string& record, int* result)
{
    std::vector<unsigned char> plain{'x'};
    *result = sealer.Open(reinterpret_cast<const unsigned char*>(record.data()), record.size(), &plain);
    return std::string(plain.begin(), plain.end());
}

TEST(SealedRecords, RoundTripsAnyBytesAsPrintableText)
{
    CSealedRecords sealer;
    ASSERT_TRUE(sealer.IsUsable());
    for (const std::string& plain : {std::string(), std::string("a"), std::string("\0\x01\xff zero", 8),
                                     std::string(70000, 'z')}) {
        const std::string record = sealer.Seal(plain.data(), plain.size());
        ASSERT_FALSE(record.empty());
        EXPECT_EQ(record[0], 'S');
        for (char c : record) EXPECT_TRUE(c > ' ' && c < 127) << "record holds a non-printable byte";
        int result = -1;
        EXPECT_EQ(OpenText(sealer, record, &result), plain);
        EXPECT_EQ(result, 0);
    }
    EXPECT_NE(sealer.Seal("same", 4), sealer.Seal("same", 4));  // a fresh nonce each time
}

TEST(SealedRecords, RefusesAnythingButAnUntouchedRecordOfItsOwnKey)
{
    CSealedRecords sealer;
    CSealedRecords otherMeeting;
    // 12 bytes seal to 52, so the base64 text ends in padding.
    const std::string record = sealer.Seal("the minutes.", 12);
    std::string flipped = record;
    flipped[flipped.size() / 2] = flipped[flipped.size() / 2] == 'A' ? 'B' : 'A';
    std::string unpadded = record;
    while (!unpadded.empty() && unpadded.back() == '=') unpadded.pop_back();
    ASSERT_NE(unpadded, record);

    const struct {
        const char* name;
        std::string text;
        int expected;
    } cases[] = {
        {"empty", "", CSealedRecords::kNotARecord},
        {"no leading S", "T" + record.substr(1), CSealedRecords::kNotARecord},
        {"letter only", "S", CSealedRecords::kNotARecord},
        {"bad base64", "S!!!!", CSealedRecords::kBadBase64},
        {"padding missing", unpadded, CSealedRecords::kBadBase64},
        {"truncated", record.substr(0, record.size() - 4), CSealedRecords::kAuthFailed},
        {"shorter than nonce and tag", "SAAAA", CSealedRecords::kTooShort},
        {"one byte changed", flipped, CSealedRecords::kAuthFailed},
    };
    for (const auto& c : cases) {
        int result = 0;
        EXPECT_EQ(OpenText(sealer, c.text, &result), "") << c.name;
        EXPECT_EQ(result, c.expected) << c.name;
    }
    int result = 0;
    EXPECT_EQ(OpenText(otherMeeting, record, &result), "");
    EXPECT_EQ(result, CSealedRecords::kAuthFailed);

    std::vector<unsigned char> plain;
    EXPECT_EQ(sealer.Open(nullptr, 10, &plain), CSealedRecords::kNotARecord);
    const std::string huge = "S" + std::string(CSealedRecords::kMaxRecordLength, 'A');
    EXPECT_EQ(OpenText(sealer, huge, &result), "");
    EXPECT_EQ(result, CSealedRecords::kTooLong);
}

TEST(SealedRecords, SequencesSplitBackIntoTheirRecords)
{
    std::string sequence;
    AppendSealedRecord(&sequence, "Sabc");
    AppendSealedRecord(&sequence, std::string(12, 'S'));
    EXPECT_EQ(sequence, "4Sabc12SSSSSSSSSSSS");
    std::vector<std::string> records;
    ASSERT_TRUE(SplitSealedSequence(sequence, &records));
    EXPECT_EQ(records, (std::vector<std::string>{"Sabc", std::string(12, 'S')}));

    for (const char* bad : {"5Sabc", "Sabc", "0", "4Sabc3", "99999999999S"})
        EXPECT_FALSE(SplitSealedSequence(bad, &records)) << bad;
    EXPECT_TRUE(SplitSealedSequence("", &records));
    EXPECT_TRUE(records.empty());
}

TEST(SealedDataUnits, EveryRecordOpensToOneCompleteEnvelope)
{
    CSealedRecords sealer;
    const size_t chunk = kMaxSealedEnvelope - CDataPdu::kHeaderLen;
    for (size_t length : {size_t(0), size_t(5), chunk, chunk + 1, 3 * chunk + 7}) {
        SCOPED_TRACE(length);
        std::string payload(length, '\0');
        for (size_t i = 0; i < length; ++i) payload[i] = static_cast<char>('a' + i % 26);
        std::vector<std::string> records;
        ASSERT_TRUE(SplitSealedSequence(SealDataUnit(sealer, 1001, 1002, -1, payload), &records));
        ASSERT_EQ(records.size(), length == 0 ? 1u : (length + chunk - 1) / chunk);
        std::string joined;
        for (const std::string& record : records) {
            // Parsed as the client parses one opened record.
            int result = -1;
            std::string plain = OpenText(sealer, record, &result);
            ASSERT_EQ(result, 0);
            EXPECT_LE(plain.size(), kMaxSealedEnvelope);
            CDataPdu pdu;
            pdu.SerializeFromBuf(&plain[0], static_cast<int>(plain.size()));
            const std::string part = pdu.GetData() ? std::string(pdu.GetData(), size_t(pdu.GetDataLen())) : "";
            EXPECT_EQ(plain.size(), part.size() + CDataPdu::kHeaderLen);  // exactly one envelope
            EXPECT_EQ(std::make_tuple(pdu.GetUserFrom(), pdu.GetUserTo(), pdu.GetModifiedFlag()),
                      std::make_tuple(1001, 1002, short(-1)));
            joined += part;
        }
        EXPECT_EQ(joined, payload);
    }
}

TEST(SealedDataUnits, EnvelopeIsTheWireLayout)
{
    const std::string envelope = BuildDataUnitEnvelope(0x01020304u, 7, 0x0506, "hi");
    EXPECT_EQ(envelope, std::string("\x04\x03\x02\x01\x07\0\0\0\x02\0\0\0\x06\x05hi", 16));
}

}  // namespace
