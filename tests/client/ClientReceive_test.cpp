// The receive path: whole texts (RevData and direct data units, hostile ones included) and
// change-cache deliveries by action, on a scripted service, plus real deliveries from the
// in-process conference.
#include "ClientWire.h"
#include "ScriptedArmService.h"

#include "conference/DataUnits.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr unsigned kOther = 33;
constexpr unsigned kAttachId = 21;
constexpr unsigned kCacheHandle = 44;
const char kRevDataEnd[] = "CNoteClient::RevData,End";
const char kPut[] = "Put 21 44 0 0 0 0x1000000 0 0 1";
const char kSubscribe[] = "Subscribe 21 44 0 3 255";

bool Contains(const std::vector<std::string>& calls, const std::string& call)
{
    return std::find(calls.begin(), calls.end(), call) != calls.end();
}

// The scripted client attached as kAttachId to the change cache kCacheHandle, in the single
// note taker's notepad.
class ClientReceive : public ScriptedClientTest {
protected:
    void SetUp() override
    {
        ScriptedClientTest::SetUp();
        m_client->m_nApeUserId = kAttachId;
        m_client->m_nChangeCacheHandle = kCacheHandle;
        m_client->m_nNotePadType = NOTETAKER_SINGLE;
    }

    std::string Text() { return ViewOf(*m_client).Text(); }
    void Show(const std::string& text) { ViewOf(*m_client).SetText(text); }
    int Receive(const std::string& text, unsigned from = kOther, short flag = 0)
    {
        std::string wire = BuildDataUnitEnvelope(from, kScriptedUserId, flag, text);
        CDataPdu pdu;
        pdu.SerializeFromBuf(reinterpret_cast<unsigned char*>(&wire[0]), static_cast<int>(wire.size()));
        return m_client->RevData(&pdu);
    }
    int Direct(std::string wire)
    {
        return m_client->ApeDataIndication(kAttachId, kOther, 0, 0, reinterpret_cast<unsigned char*>(&wire[0]),
                                           static_cast<unsigned>(wire.size()));
    }
    int HandleCache(unsigned cacheId, const std::string& text, int action, short result = 0)
    {
        return m_client->HandleChangeInfoCache(cacheId, kCacheHandle, text.c_str(), static_cast<tagCacheAction>(action),
                                               result);
    }
};

// --- whole texts

TEST_F(ClientReceive, TheModifiedFlagSelectsWhatHappensToTheText)
{
    Show("panel text");
    EXPECT_EQ(m_client->RevData(nullptr), 1);
    // Flag 1 without data leaves the text; with data the data alone is the text.
    CDataPdu bare;
    bare.SetUserFrom(static_cast<int>(kOther));
    bare.SetModifiedFlag(1);
    EXPECT_EQ(m_client->RevData(&bare), 0);
    EXPECT_EQ(Text(), "panel text");
    EXPECT_EQ(Receive("replacement", kOther, 1), 0);
    EXPECT_EQ(Text(), "replacement");
    EXPECT_TRUE(Contains(m_sink.m_vecCalls, "NeedSave 1"));

    // Any other flag leaves the text, and the rest of the step still runs.
    for (short flag : {short(2), short(-1), short(0x100)}) {
        m_trace.Clear();
        Receive("ignored", kOther, flag);
        EXPECT_EQ(Text(), "replacement") << flag;
        EXPECT_EQ(m_trace.Count(kRevDataEnd), 1) << flag;
    }

    // Flag 0 replaces the text; without data it empties the note.
    Receive("whole text");
    EXPECT_EQ(Text(), "whole text");
    bare.SetModifiedFlag(0);
    m_client->RevData(&bare);
    EXPECT_EQ(Text(), "");
}

TEST_F(ClientReceive, TheCaptionerKeepsItsOwnTextAReaderTakesTheOthers)
{
    m_client->m_nNotePadType = NOTETAKER_CLOSED_CAPTIONS;
    m_client->m_nUserType = NOTE_USER_WRITER;
    Show("my captions");
    EXPECT_EQ(Receive("somebody else's"), 0);
    EXPECT_EQ(Text(), "my captions");
    EXPECT_EQ(m_trace.Count(kRevDataEnd), 0);

    m_client->m_nUserType = NOTE_USER_READER;
    Receive("somebody else's");
    EXPECT_EQ(Text(), "somebody else's");
}

TEST_F(ClientReceive, AnEmptiedNoteNeedsSavingOnlyIfItWasSavedBefore)
{
    for (unsigned savedBefore : {1u, 0u}) {
        SCOPED_TRACE(savedBefore);
        Show("something");
        m_client->m_bSavedBefore = savedBefore;
        m_client->SetFileNeedSave(!savedBefore);
        m_sink.m_vecCalls.clear();
        Receive("");
        EXPECT_EQ(Text(), "");
        EXPECT_EQ(m_client->m_bFileNeedSave, savedBefore);
        EXPECT_EQ(m_sink.m_vecCalls, (std::vector<std::string>{savedBefore ? "NeedSave 1" : "NeedSave 0",
                                                                savedBefore ? "SaveEnabled 1" : "SaveEnabled 0"}));
    }
    // Without a host sink the need-save state is left alone.
    m_client->m_pHostSink = nullptr;
    m_client->SetFileNeedSave(true);
    Receive("");
    EXPECT_EQ(m_client->m_bFileNeedSave, 1);
}

TEST_F(ClientReceive, OwnDataClearsTheOutstandingChangeAndOthersWaitForIt)
{
    Show("typed");
    m_client->m_bSelfChange = 1;
    Receive("from another");
    EXPECT_EQ(Text(), "typed");
    EXPECT_EQ(m_client->m_bSelfChange, 1u);

    Receive("my own echo", kScriptedUserId);
    EXPECT_EQ(m_client->m_bSelfChange, 0u);
    EXPECT_EQ(Text(), "typed");

    Receive("from another");
    EXPECT_EQ(Text(), "from another");
}

TEST_F(ClientReceive, DirectDataUnitsFromSenderZeroOrHostileOnesLeaveTheNote)
{
    Show("kept");
    Direct(BuildDataUnitEnvelope(0, kScriptedUserId, 0, "from sender 0"));
    unsigned char small[16] = {0x21, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 0xff, 0x7f, 0, 0, 'x', 'y'};
    m_client->ApeDataIndication(kAttachId, kOther, 0, 0, nullptr, 100);
    m_client->ApeDataIndication(kAttachId, kOther, 0, 0, small, 0);
    m_client->ApeDataIndication(kAttachId, kOther, 0, 0, small, 13);
    m_client->ApeDataIndication(kAttachId, kOther, 0, 0, small, sizeof small);  // length INT_MAX
    m_client->ApeDataIndication(kAttachId, kOther, 0, 0, small, 0xffffffffu);   // never read
    m_client->ApeDataIndication(kAttachId, kOther, 0, 0, small, 0x80000000u);
    EXPECT_EQ(Text(), "kept");
    EXPECT_EQ(m_trace.Count(kRevDataEnd), 0);

    std::mt19937 random(99u);
    for (size_t size = 1; size < 200; ++size) {
        std::string garbage(size, '\0');
        for (char& c : garbage) c = static_cast<char>(random());
        EXPECT_EQ(Direct(garbage), 0);
    }

    EXPECT_EQ(Direct(BuildDataUnitEnvelope(kOther, kScriptedUserId, 0, "direct")), 0);
    EXPECT_EQ(Text(), "direct");
}

// --- change-cache deliveries

TEST_F(ClientReceive, ADeliveryForNobodyOrAnotherCacheIsDropped)
{
    m_client->m_pTextBuf[0] = 'Z';  // as an earlier item would have left it
    m_client->m_nTextBufDirty = 1;
    EXPECT_EQ(m_client->SharedDataReceivedEx(0, 3, kCacheHandle, 0, 0, CACHE_ACTION_ADDED, 0, 0, 0), 0);
    EXPECT_EQ(m_client->m_pTextBuf[0], 'Z');  // not even unpacked

    EXPECT_EQ(m_client->SharedDataReceivedEx(1, 3, kCacheHandle + 1, 0, 0, CACHE_ACTION_SUBSCRIBED, 0, 0, 0), 0);
    EXPECT_EQ(m_client->m_pTextBuf[0], 0);  // unpacked, then dropped
    EXPECT_EQ(m_client->m_nLastCacheId, 0u);

    EXPECT_EQ(m_client->SharedDataReceivedEx(1, 3, kCacheHandle, 0, 0, CACHE_ACTION_SUBSCRIBED, 0, 0, 0), 0);
    EXPECT_EQ(m_client->m_nLastCacheId, 3u);
}

// Every item or notice the change cache delivers, from the same state: last cache id 3, an
// empty note and change list, subscribed.
TEST_F(ClientReceive, EachCacheActionTakesInWhatItShould)
{
    const std::string change = ChangeXml("remote text");
    struct Case {
        const char* what;
        unsigned notepadType;
        bool loaded;      // a writer's auto-save file was loaded
        bool stopped;     // the subscription was closed
        unsigned cacheId;
        int action;
        short result;
        const char* text;
        int returned;
        unsigned lastCacheId;
        bool applied;     // handed to HandleChangeMsg
        bool listed;      // in the change list, stamped with the cache id
        bool needSendAll;
        std::vector<std::string> calls;
    } cases[] = {
        {"subscribed", 2, false, false, 12, CACHE_ACTION_SUBSCRIBED, 0, "", 0, 12, false, false, false, {kSubscribe}},
        {"subscribed, closed", 2, false, true, 12, CACHE_ACTION_SUBSCRIBED, 0, "", 0, 12, false, false, false, {}},
        {"closed", 2, false, false, 13, CACHE_ACTION_CLOSED, 0, "", 0, 3, false, false, false, {}},
        {"a failed close", 2, false, false, 13, CACHE_ACTION_CLOSED, 5, "", 0, 3, false, false, false, {}},
        // A refused update puts again; after a loaded file the whole document must follow.
        {"refused add", 2, false, false, 9, CACHE_ACTION_ADDED, ARM_REFUSED, change.c_str(), 0, 3, false, false, false, {kPut}},
        {"refused add, loaded", 2, true, false, 9, CACHE_ACTION_ADDED, ARM_REFUSED, change.c_str(), 0, 3, false, false, true, {kPut}},
        {"refused update", 2, false, false, 9, CACHE_ACTION_UPDATED, ARM_REFUSED, change.c_str(), 0, 3, false, false, false, {kPut}},
        {"refused update, loaded", 2, true, false, 9, CACHE_ACTION_UPDATED, ARM_REFUSED, change.c_str(), 0, 3, false, false, true, {kPut}},
        {"refused replay", 2, false, false, 9, CACHE_ACTION_REPLAYED, ARM_REFUSED, change.c_str(), 0, 3, false, false, false, {kPut}},
        {"refused replay, loaded", 2, true, false, 9, CACHE_ACTION_REPLAYED, ARM_REFUSED, change.c_str(), 0, 3, false, false, true, {kPut}},
        // Accepted items end the loaded-file state; recorded and known ones are not shown.
        {"added, loaded", 2, true, false, 7, CACHE_ACTION_ADDED, 0, change.c_str(), 1, 7, true, true, false, {}},
        {"recorded", 2, false, false, 20, CACHE_ACTION_RECORDED, 0, change.c_str(), 1, 20, true, true, false, {}},
        {"known", 2, false, false, 21, CACHE_ACTION_KNOWN, 0, change.c_str(), 1, 21, true, true, false, {}},
        {"a change that fails to parse", 2, false, false, 7, CACHE_ACTION_ADDED, 0,
         "<notecom ver=\"1.0\" mtype=\"3\"><broken", 0, 7, true, false, false, {}},
        {"an empty item", 2, false, false, 8, CACHE_ACTION_ADDED, 0, "", 0, 8, true, false, false, {}},
        {"no item", 2, false, false, 8, CACHE_ACTION_ADDED, 0, nullptr, 0, 8, true, false, false, {}},
        // Items that are not taken in.
        {"all-participants notepad", 1, false, false, 7, CACHE_ACTION_ADDED, 0, change.c_str(), 0, 7, false, false, false, {}},
        {"no notepad type", 0, false, false, 7, CACHE_ACTION_KNOWN, 0, change.c_str(), 0, 3, false, false, false, {}},
        {"cache id 0", 2, false, false, 0, CACHE_ACTION_ADDED, 0, change.c_str(), 0, 0, false, false, false, {}},
        {"cleared", 2, false, false, 7, CACHE_ACTION_CLEARED, 0, change.c_str(), 0, 3, false, false, false, {}},
        {"action above 7", 2, false, false, 7, 8, 0, change.c_str(), 0, 3, false, false, false, {}},
        {"negative action", 2, false, false, 7, -1, 0, change.c_str(), 0, 3, false, false, false, {}},
        {"another failure", 2, false, false, 7, CACHE_ACTION_ADDED, 5, change.c_str(), 1, 7, false, false, false, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        m_client->m_nNotePadType = c.notepadType;
        m_client->m_bFileLoaded = c.loaded;
        m_client->m_bStopSubscribe = c.stopped;
        m_client->m_bNeedSendAll = false;
        m_client->m_nLastCacheId = 3;
        m_client->m_SaveInfo.m_vecChangeInfoPdu.clear();
        m_client->SetNoteTextData("");
        m_client->m_strOldMsg.clear();
        m_client->m_strRecvMsg.clear();
        m_trace.Clear();
        EXPECT_EQ(m_client->HandleChangeInfoCache(c.cacheId, kCacheHandle, c.text,
                                                  static_cast<tagCacheAction>(c.action), c.result),
                  c.returned);
        EXPECT_EQ(m_client->m_nLastCacheId, c.lastCacheId);
        EXPECT_EQ(m_trace.Count("HandleChangeMsg"), c.applied ? 1 : 0);
        // Only a new item is shown.
        EXPECT_EQ(Text(), c.listed && c.action == CACHE_ACTION_ADDED ? "remote text" : "");
        ASSERT_EQ(m_client->m_SaveInfo.m_vecChangeInfoPdu.size(), c.listed ? 1u : 0u);
        if (c.listed) {
            EXPECT_EQ(m_client->m_SaveInfo.m_vecChangeInfoPdu[0].GetNoteMsg(), "remote text");
            EXPECT_EQ(m_client->m_SaveInfo.m_vecChangeInfoPdu[0].GetCacheId_INT(), static_cast<int>(c.cacheId));
        }
        EXPECT_EQ(m_client->m_bNeedSendAll, c.needSendAll);
        EXPECT_EQ(m_client->m_bFileLoaded, c.loaded && c.result == ARM_REFUSED);
        EXPECT_EQ(m_client->m_bStopSubscribe, c.stopped || (c.action == CACHE_ACTION_CLOSED && c.result == 0));
        EXPECT_EQ(m_service.Take(), c.calls);
    }
}

// A writer that reloaded its auto-save file and whose first update is refused sends its whole
// document before the next subscription, or the readers never get it.
TEST_F(ClientReceive, AWriterWithALoadedFileSendsTheDocumentAtTheNextSubscription)
{
    m_client->m_SaveInfo.m_vecChangeInfoPdu.push_back(Change("from the auto-save file"));
    for (unsigned userType : {NOTE_USER_READER, NOTE_USER_WRITER}) {
        SCOPED_TRACE(userType);
        m_client->m_nUserType = userType;
        m_client->m_bFileLoaded = true;
        HandleCache(4, ChangeXml("first update"), CACHE_ACTION_UPDATED, ARM_REFUSED);
        EXPECT_EQ(m_service.Take(), (std::vector<std::string>{kPut}));
        HandleCache(9, "", CACHE_ACTION_SUBSCRIBED);  // the answer to the resynchronisation
        // The scripted service has no memory handles: the change goes as handle 0. A reader
        // only subscribes.
        std::vector<std::string> expected = {kSubscribe};
        if (userType == NOTE_USER_WRITER) expected.insert(expected.begin(), "Put 21 44 0 9 2 0x1000090 0 0 2");
        EXPECT_EQ(m_service.Take(), expected);
        EXPECT_FALSE(m_client->m_bNeedSendAll);
    }
}

// --- real deliveries from the in-process conference

TEST(ClientReceiveMeeting, CacheItemsOfAnotherParticipantReachTheReaderAndGarbageDoesNoHarm)
{
    CClientTraceCapture trace;
    CClientHarness harness;
    CNoteClient& reader = harness.Join(4711, NOTETAKER_SINGLE, NOTE_USER_READER);
    CNoteClient& other = harness.Join(4712, NOTETAKER_SINGLE, NOTE_USER_READER);
    IArmService* service = other.m_pArmService;

    auto put = [&](const std::string& item) {
        unsigned handle = 0;
        ASSERT_EQ(service->ArmService_AllocMemHandle(static_cast<unsigned>(item.size()), &handle), 0);
        ASSERT_EQ(service->ArmService_WriteMemHandle(handle, 0, item.data(), static_cast<unsigned>(item.size())), 0);
        // Appending puts (item id 0): every one is new.
        ASSERT_EQ(service->ArmService_PutCacheItem(other.m_nApeUserId, other.m_nChangeCacheHandle, 0, 0,
                                                   CACHE_MODE_REPLACE_NEWEST, CACHE_FLAG_BASE, handle, 0, 2),
                  0);
        service->ArmService_FreeMemHandle(handle);
        harness.Settle();
    };

    put(PackedPlain(ChangeXml("delivered through the cache")));
    EXPECT_EQ(harness.PanelText(reader), "delivered through the cache");

    std::mt19937 random(5u);
    for (size_t size = 1; size < 80; size += 3) {
        std::string garbage(size, '\0');
        for (char& c : garbage) c = static_cast<char>(random());
        put(garbage);
    }
    put(PackedPlain(std::string(300, '\xff')));
    put(PackedPlain("]]>]]><notecom"));
    put(PackedPlain(ChangeXml("still alive")));
    EXPECT_EQ(harness.PanelText(reader), "still alive");
}

}  // namespace
