// The receive path on a scripted service: whole texts (RevData, direct data units, hostile
// ones), change-cache deliveries by action, and the walk over a PKI meeting's sealed records;
// then real deliveries and sealed records of the in-process conference.
#include "ClientWire.h"
#include "ScriptedArmService.h"

#include "conference/DataUnits.h"

#include <gtest/gtest.h>

#include <random>

namespace {

using Calls = std::vector<std::string>;
constexpr unsigned kOther = 33, kAttachId = 21, kCacheHandle = 44;
const char kRevDataEnd[] = "CNoteClient::RevData,End";
const char kPut[] = "Put 21 44 0 0 0 0x1000000 0 0 1";
const char kSubscribe[] = "Subscribe 21 44 0 3 255";

std::string Unit(const std::string& text, unsigned from = kOther) { return BuildDataUnitEnvelope(from, 0, 0, text); }

// Sealed records, each its decimal length and its bytes, with the room after the text the
// conference leaves.
std::string Sequence(const std::vector<std::string>& records)
{
    std::string sequence;
    for (const std::string& record : records) sequence += std::to_string(record.size()) + record;
    return sequence;
}
std::string WithRoom(const std::string& text) { return text + std::string(text.size() + 1, '\0'); }
std::string Open(const std::string& text) { return CScriptedArmService::Seal(Unit(text)); }

// Attached as kAttachId to the change cache kCacheHandle, in the single note taker's notepad.
class ClientReceive : public ScriptedClientTest {
protected:
    void SetUp() override
    {
        m_service.m_nConferenceFlags = m_nFlags;
        ScriptedClientTest::SetUp();
        m_client->m_nApeUserId = kAttachId;
        m_client->m_nChangeCacheHandle = kCacheHandle;
        m_client->m_nNotePadType = NOTETAKER_SINGLE;
    }
    std::string Text() { return ViewOf(*m_client).Text(); }
    int Receive(const std::string& text, unsigned from = kOther, short flag = 0)
    {
        std::string wire = BuildDataUnitEnvelope(from, kScriptedUserId, flag, text);
        CDataPdu pdu;
        pdu.SerializeFromBuf(reinterpret_cast<unsigned char*>(&wire[0]), static_cast<int>(wire.size()));
        return m_client->RevData(&pdu);
    }
    int Direct(std::string wire, unsigned length)
    {
        return m_client->ApeDataIndication(kAttachId, kOther, 0, 0, reinterpret_cast<unsigned char*>(&wire[0]), length);
    }
    int Walk(const std::string& payload, unsigned kind = 0)
    {
        ARMMsg_SessRscInd message = ResourceMessage(payload, kind);
        return m_client->Handle_ArmMsg_SessRscInd(&message);
    }
    std::uint64_t m_nFlags = 0;
};

TEST_F(ClientReceive, TheModifiedFlagAndTheSenderSelectWhatHappensToTheText)
{
    ViewOf(*m_client).SetText("panel text");
    EXPECT_EQ(m_client->RevData(nullptr), 1);
    CDataPdu bare;
    bare.SetUserFrom(static_cast<int>(kOther));
    bare.SetModifiedFlag(1);
    EXPECT_EQ(m_client->RevData(&bare), 0);  // flag 1 without data leaves the text
    EXPECT_EQ(Text(), "panel text");
    EXPECT_EQ(Receive("replacement", kOther, 1), 0);
    EXPECT_EQ(Text(), "replacement");
    Receive("ignored", kOther, 2);  // any other flag leaves the text
    EXPECT_EQ(Text(), "replacement");
    EXPECT_EQ(m_trace.Count(kRevDataEnd), 3);
    // An own change outstanding: others wait for the echo.
    m_client->m_bSelfChange = 1;
    Receive("from another");
    EXPECT_EQ(Text(), "replacement");
    Receive("my own echo", kScriptedUserId);
    EXPECT_EQ(m_client->m_bSelfChange, 0u);
    EXPECT_EQ(Text(), "replacement");
    // The captioner keeps its own text, a reader takes the others'.
    m_client->m_nNotePadType = NOTETAKER_CLOSED_CAPTIONS;
    m_client->m_nUserType = NOTE_USER_WRITER;
    m_trace.Clear();
    EXPECT_EQ(Receive("somebody else's"), 0);
    EXPECT_EQ(Text(), "replacement");
    EXPECT_EQ(m_trace.Count(kRevDataEnd), 0);
    m_client->m_nUserType = NOTE_USER_READER;
    Receive("somebody else's");
    EXPECT_EQ(Text(), "somebody else's");
}

TEST_F(ClientReceive, DirectDataUnitsFromSenderZeroOrHostileOnesLeaveTheNote)
{
    ViewOf(*m_client).SetText("kept");
    const std::string zero = BuildDataUnitEnvelope(0, kScriptedUserId, 0, "from sender 0");
    Direct(zero, unsigned(zero.size()));
    const std::string small("\x21\0\0\0\0\0\0\0\xff\xff\xff\x7f\0\0xy", 16);  // length INT_MAX
    for (unsigned length : {0u, 13u, 16u, 0xffffffffu, 0x80000000u}) Direct(small, length);
    m_client->ApeDataIndication(kAttachId, kOther, 0, 0, nullptr, 100);
    EXPECT_EQ(Text(), "kept");
    EXPECT_EQ(m_trace.Count(kRevDataEnd), 0);
    std::mt19937 random(99u);
    for (size_t size = 1; size < 200; ++size) {
        std::string garbage(size, '\0');
        for (char& c : garbage) c = static_cast<char>(random());
        EXPECT_EQ(Direct(garbage, unsigned(size)), 0);
    }
    const std::string direct = BuildDataUnitEnvelope(kOther, kScriptedUserId, 0, "direct");
    EXPECT_EQ(Direct(direct, unsigned(direct.size())), 0);
    EXPECT_EQ(Text(), "direct");
}

TEST_F(ClientReceive, ADeliveryForNobodyOrAnotherCacheIsDropped)
{
    m_client->m_pTextBuf[0] = 'Z';  // as an earlier item would have left it
    m_client->m_nTextBufDirty = 1;
    EXPECT_EQ(m_client->SharedDataReceivedEx(0, 3, kCacheHandle, 0, 0, CACHE_ACTION_ADDED, 0, 0, 0), 0);
    EXPECT_EQ(m_client->m_pTextBuf[0], 'Z');  // not even unpacked
    m_client->SharedDataReceivedEx(1, 3, kCacheHandle + 1, 0, 0, CACHE_ACTION_SUBSCRIBED, 0, 0, 0);
    EXPECT_EQ(m_client->m_nLastCacheId, 0u);
    m_client->SharedDataReceivedEx(1, 3, kCacheHandle, 0, 0, CACHE_ACTION_SUBSCRIBED, 0, 0, 0);
    EXPECT_EQ(m_client->m_nLastCacheId, 3u);
}

// Every item or notice the change cache delivers, from the same state: last cache id 3, an
// empty note and change list, subscribed.
TEST_F(ClientReceive, EachCacheActionTakesInWhatItShould)
{
    const std::string change = ChangeXml("remote text");
    const char* item = change.c_str();
    const struct { unsigned notepadType; bool loaded, stopped; unsigned cacheId; int action; short result;
        const char* text; int returned; unsigned lastCacheId; bool applied, listed, needSendAll; Calls calls;
    } cases[] = {
        {2, false, false, 12, CACHE_ACTION_SUBSCRIBED, 0, "", 0, 12, false, false, false, {kSubscribe}},
        {2, false, true, 12, CACHE_ACTION_SUBSCRIBED, 0, "", 0, 12, false, false, false, {}},
        {2, false, false, 13, CACHE_ACTION_CLOSED, 0, "", 0, 3, false, false, false, {}},
        {2, false, false, 13, CACHE_ACTION_CLOSED, 5, "", 0, 3, false, false, false, {}},
        // A refused update puts again; after a loaded file the whole document must follow.
        {2, false, false, 9, CACHE_ACTION_ADDED, ARM_REFUSED, item, 0, 3, false, false, false, {kPut}},
        {2, true, false, 9, CACHE_ACTION_UPDATED, ARM_REFUSED, item, 0, 3, false, false, true, {kPut}},
        {2, true, false, 9, CACHE_ACTION_REPLAYED, ARM_REFUSED, item, 0, 3, false, false, true, {kPut}},
        {2, true, false, 7, CACHE_ACTION_ADDED, 0, item, 1, 7, true, true, false, {}},
        {2, false, false, 21, CACHE_ACTION_KNOWN, 0, item, 1, 21, true, true, false, {}},
        {2, false, false, 7, CACHE_ACTION_ADDED, 0, "<notecom ver=\"1.0\"><broken", 0, 7, true, false, false, {}},
        {1, false, false, 7, CACHE_ACTION_ADDED, 0, item, 0, 7, false, false, false, {}},
        {0, false, false, 7, CACHE_ACTION_KNOWN, 0, item, 0, 3, false, false, false, {}},
        {2, false, false, 0, CACHE_ACTION_ADDED, 0, item, 0, 0, false, false, false, {}},
        {2, false, false, 7, 8, 0, item, 0, 3, false, false, false, {}},
        {2, false, false, 7, CACHE_ACTION_ADDED, 5, item, 1, 7, false, false, false, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.cacheId) + " action " + std::to_string(c.action));
        m_client->m_nNotePadType = c.notepadType;
        m_client->m_bFileLoaded = c.loaded;
        m_client->m_bStopSubscribe = c.stopped;
        m_client->m_bNeedSendAll = false;
        m_client->m_nLastCacheId = 3;
        m_client->m_SaveInfo.m_vecChangeInfoPdu.clear();
        m_client->SetNoteTextData("");
        m_client->m_strOldMsg.clear();
        m_trace.Clear();
        EXPECT_EQ(m_client->HandleChangeInfoCache(c.cacheId, kCacheHandle, c.text, tagCacheAction(c.action), c.result),
                  c.returned);
        EXPECT_EQ(m_client->m_nLastCacheId, c.lastCacheId);
        EXPECT_EQ(m_trace.Count("HandleChangeMsg"), c.applied ? 1 : 0);
        EXPECT_EQ(Text(), c.listed && c.action == CACHE_ACTION_ADDED ? "remote text" : "");  // only a new item shows
        ASSERT_EQ(m_client->m_SaveInfo.m_vecChangeInfoPdu.size(), c.listed ? 1u : 0u);
        if (c.listed) { EXPECT_EQ(m_client->m_SaveInfo.m_vecChangeInfoPdu[0].GetCacheId_INT(), int(c.cacheId)); }
        EXPECT_EQ(m_client->m_bNeedSendAll, c.needSendAll);
        EXPECT_EQ(m_client->m_bFileLoaded, c.loaded && c.result == ARM_REFUSED);
        EXPECT_EQ(m_client->m_bStopSubscribe, c.stopped || (c.action == CACHE_ACTION_CLOSED && c.result == 0));
        EXPECT_EQ(m_service.Take(), c.calls);
    }
}

// A writer that reloaded its auto-save file and whose first update is refused sends its whole
// document before the next subscription; a reader only subscribes.
TEST_F(ClientReceive, AWriterWithALoadedFileSendsTheDocumentAtTheNextSubscription)
{
    m_client->m_SaveInfo.m_vecChangeInfoPdu.push_back(Change("from the auto-save file"));
    for (unsigned userType : {NOTE_USER_READER, NOTE_USER_WRITER}) {
        m_client->m_nUserType = userType;
        m_client->m_bFileLoaded = true;
        m_client->HandleChangeInfoCache(4, kCacheHandle, "", CACHE_ACTION_UPDATED, ARM_REFUSED);
        EXPECT_EQ(m_service.Take(), (Calls{kPut}));
        m_client->HandleChangeInfoCache(9, kCacheHandle, "", CACHE_ACTION_SUBSCRIBED, 0);
        Calls expected = {kSubscribe};
        if (userType == NOTE_USER_WRITER) expected.insert(expected.begin(), "Put 21 44 0 9 2 0x1000090 0 0 2");
        EXPECT_EQ(m_service.Take(), expected);
        EXPECT_FALSE(m_client->m_bNeedSendAll);
    }
}

// --- PKI meetings. The walk reads records from the payload's text (up to its first NUL within
// the length), but measures every check from the text's end: a text that fills the length
// yields no record (0); otherwise it needs room after the text (4 bytes, and each record's
// length) and ends with 1 where a check fails or no record follows.

class ClientPkiWalk : public ClientReceive {
protected:
    ClientPkiWalk() { m_nFlags = ARM_CONFERENCE_FLAG_PKI; }
};

TEST_F(ClientPkiWalk, TheDefinedEndsOfTheWalk)
{
    const std::string good = Sequence({Open("good")});
    const struct { std::string payload; int result; size_t opened; const char* text; unsigned kind; } cases[] = {
        {"", 0, 0, "before", 0},
        {good, 0, 0, "before", 0},
        {good + std::string(3, '\0'), 1, 0, "before", 0},
        {good + std::string(8, '\0'), 1, 0, "before", 0},
        {WithRoom("abcdefgh"), 1, 0, "before", 0},
        {WithRoom("-5Sabcd"), 1, 0, "before", 0},
        {WithRoom("99999999999Sabcd"), 1, 0, "before", 0},
        {WithRoom("9Sabcd"), 1, 0, "before", 0},
        {WithRoom(" \n+" + good + "xyzw"), 1, 1, "good", 0},
        {WithRoom(good + std::string(1, '\0') + Sequence({Open("hidden")})), 1, 1, "good", 0},
        {WithRoom(Sequence({"Xforged", Open("one"), Open("two")})), 1, 3, "two", 0},
        {WithRoom(Sequence({CScriptedArmService::Seal("abc")})), 1, 1, "before", 0},
        {WithRoom(Sequence({Open("a"), Open("b")})), 1, 2, "before", 1},  // kind 1 reports a change
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.payload.substr(0, 12));
        m_service.m_vecOpened.clear();
        m_client->SetNoteTextData("before");
        m_client->m_bLastWasChange = 7;
        EXPECT_EQ(Walk(c.payload, c.kind), c.result);
        EXPECT_EQ(m_service.m_vecOpened.size(), c.opened);
        EXPECT_EQ(Text(), c.text);
        if (c.kind) { EXPECT_EQ(m_client->m_bLastWasChange, 1u); }
    }
    EXPECT_TRUE(m_service.m_setOpened.empty());  // every opened buffer went back
}

// --- the in-process conference

// Real sealed records: the reader, registered first, gets the resource messages (every client
// registers under attach id 0 before it attaches).
TEST(ClientPkiMeeting, SealedRecordsSplitTamperedAndTruncated)
{
    CClientTraceCapture trace;
    CMeetingOptions options;
    options.bPki = true;
    CClientHarness harness(options);
    CNoteClient& reader = harness.Join(4711, NOTETAKER_SINGLE, NOTE_USER_READER);
    CNoteClient& writer = harness.Join(4712, NOTETAKER_SINGLE, NOTE_USER_WRITER);
    auto& conference = dynamic_cast<CLocalConference&>(harness.Meeting());
    auto sealed = [&](const std::string& text) { return conference.SealRecord(Unit(text, writer.m_nApeUserId)); };
    auto deliver = [&](const std::string& payload) {
        ARMMsg_SessRscInd message = ResourceMessage(payload);
        return ArmRscCallBack(0, ARM_MSG_SESS_RSC_IND, &message);
    };

    // A text larger than one record goes record by record, each replacing the whole text.
    const long before = trace.Count(kRevDataEnd);
    std::string text(40000, '\0');
    for (size_t i = 0; i < text.size(); ++i) text[i] = static_cast<char>('a' + i % 26);
    harness.Meeting().SendDataUnit(writer.m_pArmService, 0, 0, text, EDataRoute::kResourceCallback, "ClosedCaption", 0);
    harness.Settle();
    EXPECT_EQ(trace.Count(kRevDataEnd) - before, 3);
    EXPECT_EQ(harness.PanelText(reader), text.substr(2 * (kMaxSealedEnvelope - CDataPdu::kHeaderLen)));

    std::string tampered = sealed("evil");
    tampered[tampered.size() / 2] = tampered[tampered.size() / 2] == 'A' ? 'B' : 'A';
    EXPECT_EQ(deliver(WithRoom(Sequence({sealed("good"), tampered}))), 0);
    EXPECT_EQ(harness.PanelText(reader), "good");
    deliver(WithRoom(Sequence({tampered, sealed("after the forgery")})));
    EXPECT_EQ(harness.PanelText(reader), "after the forgery");
    const std::string full = Sequence({sealed("first"), sealed("second")});
    deliver(WithRoom(full.substr(0, full.size() - 5)));
    EXPECT_EQ(harness.PanelText(reader), "first");
}

}  // namespace
