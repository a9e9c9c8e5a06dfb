// Resource messages of a PKI meeting: the walk over sealed records (each its decimal length and
// its bytes), which ends on every input, and the in-process conference's real sealed records,
// cut into several records, tampered with and truncated.
//
// The walk's rule: the records are read from the payload's text (up to its first NUL within the
// length), but every check measures from the text's end, as a stream's unmoving write position
// would: a text that fills the length yields no record (0); otherwise the walk needs room after
// the text (4 bytes, and each record's length) and ends with 1 where a check fails or the text
// holds no further record. A record that opens is dispatched, one that does not is dropped.
#include "ScriptedArmService.h"

#include "conference/DataUnits.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace {

const char kRevDataEnd[] = "CNoteClient::RevData,End";

std::string Unit(const std::string& text, unsigned from = 33)
{
    return BuildDataUnitEnvelope(from, 0, 0, text);
}

// A record the scripted service opens to plain.
std::string Open(const std::string& plain)
{
    return CScriptedArmService::Seal(plain);
}

std::string Sequence(const std::vector<std::string>& records)
{
    std::string sequence;
    for (const std::string& record : records) sequence += std::to_string(record.size()) + record;
    return sequence;
}

// A payload with room after its text for every record, as the conference sends it.
std::string WithRoom(const std::string& text)
{
    return text + std::string(text.size() + 1, '\0');
}

// The scripted client in a PKI meeting.
class ClientPkiWalk : public ScriptedClientTest {
protected:
    void SetUp() override
    {
        m_service.m_nConferenceFlags = ARM_CONFERENCE_FLAG_PKI;
        ScriptedClientTest::SetUp();
        m_client->SetNoteTextData("before");
    }

    int Walk(const std::string& payload, unsigned kind = 0)
    {
        ARMMsg_SessRscInd message = ResourceMessage(payload, kind);
        return m_client->Handle_ArmMsg_SessRscInd(&message);
    }
};

TEST_F(ClientPkiWalk, EveryRecordIsOpenedWithTheConferenceAndDispatchedInOrderAndFreed)
{
    const std::string payload = Sequence({Open(Unit("one")), Open(Unit("two")), Open(Unit("three"))});
    EXPECT_EQ(Walk(WithRoom(payload)), 1);  // ends where the text holds no further record
    EXPECT_EQ(m_service.m_vecOpened,
              (std::vector<std::string>{Open(Unit("one")), Open(Unit("two")), Open(Unit("three"))}));
    EXPECT_EQ(m_trace.Count(kRevDataEnd), 3);
    EXPECT_EQ(ViewOf(*m_client).Text(), "three");
    EXPECT_TRUE(m_service.m_setOpened.empty());  // every opened buffer went back
}

TEST_F(ClientPkiWalk, TheDefinedEndsOfTheWalk)
{
    const std::string goodSeq = Sequence({Open(Unit("good"))});
    struct Case {
        const char* what;
        std::string payload;
        int result;
        size_t opened;
        const char* text;
        unsigned kind = 0;
    } cases[] = {
        {"empty payload", "", 0, 0, "before"},
        {"a text that fills the length yields no record", goodSeq, 0, 0, "before"},
        {"fewer than 4 bytes of room", goodSeq + std::string(3, '\0'), 1, 0, "before"},
        {"room too small for the record", goodSeq + std::string(8, '\0'), 1, 0, "before"},
        {"room for the record", WithRoom(goodSeq), 1, 1, "good"},
        {"no digits", WithRoom("abcdefgh"), 1, 0, "before"},
        {"negative length", WithRoom("-5Sabcd"), 1, 0, "before"},
        {"length beyond an int", WithRoom("99999999999Sabcd"), 1, 0, "before"},
        {"record longer than the rest of the text", WithRoom("9Sabcd"), 1, 0, "before"},
        {"zero-length record", WithRoom("0000"), 1, 1, "before"},
        {"blanks and a plus sign before the length", WithRoom(" \n+" + goodSeq), 1, 1, "good"},
        {"garbage after a record", WithRoom(goodSeq + "xyzw"), 1, 1, "good"},
        {"records after the text's NUL are not read",
         WithRoom(goodSeq + std::string(1, '\0') + Sequence({Open(Unit("hidden"))})), 1, 1, "good"},
        {"a record that does not open is dropped and the walk goes on",
         WithRoom(Sequence({"Xforged", Open(Unit("after"))})), 1, 2, "after"},
        {"a record that opens to no valid envelope is no empty text",
         WithRoom(Sequence({Open("abc"), Open(std::string(20, '\xff'))})), 1, 2, "before"},
        // The message's kind applies to each record: 1 reports a change instead of a text.
        {"kind 1", WithRoom(Sequence({Open(Unit("a")), Open(Unit("b"))})), 1, 2, "before", 1},
        {"kind 2", WithRoom(goodSeq), 1, 1, "good", 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        m_service.m_vecOpened.clear();
        m_client->SetNoteTextData("before");
        m_client->m_bLastWasChange = 7;
        EXPECT_EQ(Walk(c.payload, c.kind), c.result);
        EXPECT_EQ(m_service.m_vecOpened.size(), c.opened);
        EXPECT_EQ(ViewOf(*m_client).Text(), c.text);
        if (c.kind) {
            EXPECT_EQ(m_client->m_bLastWasChange, c.kind == 1 ? 1u : 0u);
        }
    }
}

TEST_F(ClientPkiWalk, HostilePayloadsAlwaysEnd)
{
    std::mt19937 random(7u);
    const char alphabet[] = "0123456789S \n+-\x01\xff";
    for (int round = 0; round < 2000; ++round) {
        std::string payload(random() % 64, '\0');
        for (char& c : payload) c = alphabet[random() % (sizeof alphabet - 1)];
        const int result = Walk(round % 2 ? WithRoom(payload) : payload);
        EXPECT_TRUE(result == 0 || result == 1);
    }
    // A long run of small records: each step consumes bytes, so the walk ends after the last.
    std::string many;
    for (int i = 0; i < 5000; ++i) many += "3S00";
    m_service.m_vecOpened.clear();
    EXPECT_EQ(Walk(WithRoom(many)), 1);
    EXPECT_EQ(m_service.m_vecOpened.size(), 5000u);
}

// --- the in-process conference's sealed records

class ClientPkiMeeting : public ::testing::Test {
protected:
    ClientPkiMeeting() : m_harness(Options()) {}

    static CMeetingOptions Options()
    {
        CMeetingOptions options;
        options.bPki = true;
        return options;
    }

    void SetUp() override
    {
        // Every client registers its resource callback under attach id 0 (it registers before
        // attaching), so the reader, registered first, is the one the messages reach.
        m_pReader = &m_harness.Join(4711, NOTETAKER_SINGLE, NOTE_USER_READER);
        m_pWriter = &m_harness.Join(4712, NOTETAKER_SINGLE, NOTE_USER_WRITER);
        m_pConference = dynamic_cast<CLocalConference*>(&m_harness.Meeting());
        ASSERT_NE(m_pConference, nullptr);
        ASSERT_NE(m_pWriter->m_nApeUserId, 0u);
    }

    std::string Sealed(const std::string& text) const
    {
        return m_pConference->SealRecord(Unit(text, m_pWriter->m_nApeUserId));
    }

    CClientTraceCapture m_trace;
    CClientHarness m_harness;
    CNoteClient* m_pReader = nullptr;
    CNoteClient* m_pWriter = nullptr;
    CLocalConference* m_pConference = nullptr;
};

TEST_F(ClientPkiMeeting, ATextLargerThanOneRecordIsDispatchedRecordByRecord)
{
    std::string text(40000, '\0');
    for (size_t i = 0; i < text.size(); ++i) text[i] = static_cast<char>('a' + i % 26);
    const long before = m_trace.Count(kRevDataEnd);
    m_harness.Meeting().SendDataUnit(m_pWriter->m_pArmService, 0, 0, text, EDataRoute::kResourceCallback,
                                     "ClosedCaption", 0);
    m_harness.Settle();
    // Records of at most 16 KiB of envelope: three records, each replacing the whole text.
    const size_t chunk = kMaxSealedEnvelope - CDataPdu::kHeaderLen;
    EXPECT_EQ(m_trace.Count(kRevDataEnd) - before, 3);
    EXPECT_EQ(m_harness.PanelText(*m_pReader), text.substr(2 * chunk));
}

TEST_F(ClientPkiMeeting, ATamperedRecordIsRefusedAndTheOthersStillApply)
{
    std::string tampered = Sealed("evil");
    tampered[tampered.size() / 2] = tampered[tampered.size() / 2] == 'A' ? 'B' : 'A';

    std::string payload = WithRoom(Sequence({Sealed("good"), tampered}));
    ARMMsg_SessRscInd message = ResourceMessage(payload);
    EXPECT_EQ(ArmRscCallBack(0, ARM_MSG_SESS_RSC_IND, &message), 0);
    EXPECT_EQ(m_harness.PanelText(*m_pReader), "good");

    payload = WithRoom(Sequence({tampered, Sealed("after the forgery")}));
    message = ResourceMessage(payload);
    m_pReader->Handle_ArmMsg_SessRscInd(&message);
    EXPECT_EQ(m_harness.PanelText(*m_pReader), "after the forgery");
}

TEST_F(ClientPkiMeeting, ATruncatedSequenceKeepsTheRecordsBeforeTheCut)
{
    const std::string full = Sequence({Sealed("first"), Sealed("second")});
    const std::string cut = WithRoom(full.substr(0, full.size() - 5));
    ARMMsg_SessRscInd message = ResourceMessage(cut);
    EXPECT_EQ(m_pReader->Handle_ArmMsg_SessRscInd(&message), 1);
    EXPECT_EQ(m_harness.PanelText(*m_pReader), "first");
}

}  // namespace
