// The receive path: whole texts (RevData and direct data units, hostile ones included) and
// change-cache deliveries by action, on a scripted service, plus real deliveries from the
// in-process conference.
#include "ClientHarness.h"
#include "ClientTraceCapture.h"
#include "ScriptedArmService.h"

#include "conference/DataUnits.h"
#include "panel/NoteViewController.h"
#include "tessarinnote/uiinterface.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr unsigned kUserId = 4711;
constexpr unsigned kOther = 33;
constexpr unsigned kAttachId = 21;
constexpr unsigned kCacheHandle = 44;
const char kRevDataEnd[] = "CNoteClient::RevData,End";
const char kPut[] = "Put 21 44 0 0 0 0x1000000 0 0 1";
const char kSubscribe[] = "Subscribe 21 44 0 3 255";

std::string Unit(const std::string& text, unsigned from = kOther, short flag = 0)
{
    return BuildDataUnitEnvelope(from, kUserId, flag, text);
}

// A data unit filled from its wire form, as the receive path gets it.
struct CUnit {
    explicit CUnit(const std::string& wire) : bytes(wire) { pdu.SerializeFromBuf(&bytes[0], static_cast<int>(bytes.size())); }
    std::string bytes;
    CDataPdu pdu;
};

// The XML of a change PDU carrying text.
std::string ChangeXml(const std::string& text)
{
    CNoteChangeInfoPDU pdu;
    pdu.SetNoteMsg(text);
    pdu.SetOffSet(0, 0);
    pdu.SetOffSet(0, 1);
    pdu.SetUniqueId(99);
    pdu.GenerateXMLPDU();
    return pdu.PrintCompact();
}

// A packed cache item holding text uncompressed: u32 0, u32 length, the bytes.
std::string PackedPlain(const std::string& text)
{
    std::string item(8, '\0');
    const unsigned length = static_cast<unsigned>(text.size());
    for (int i = 0; i < 4; ++i) item[4 + i] = static_cast<char>(length >> (8 * i) & 0xff);
    return item + text;
}

bool Contains(const std::vector<std::string>& calls, const std::string& call)
{
    return std::find(calls.begin(), calls.end(), call) != calls.end();
}

// A client attached on a scripted service, with a host sink and a headless panel.
class ClientReceive : public ::testing::Test {
protected:
    void SetUp() override
    {
        _tagNoteData data;
        std::memset(&data, 0, sizeof data);
        data.pArmService = &m_service;
        data.pHostSink = &m_sink;
        data.conferenceHandle = 5;
        data.nUserId = kUserId;
        m_client.reset(new CNoteClient);
        m_client->Initialize(data);
        void* panel = nullptr;
        CreateUI(&panel, nullptr, m_client.get());
        m_client->SetPanel(panel);
        m_client->m_nApeUserId = kAttachId;
        m_client->m_nChangeCacheHandle = kCacheHandle;
        m_client->m_nNotePadType = NOTETAKER_SINGLE;
        m_service.Take();
    }
    void TearDown() override { m_client.reset(); }

    std::string Text() { return static_cast<NoteViewController*>(m_client->GetPanel())->View().Text(); }
    void Show(const std::string& text) { static_cast<NoteViewController*>(m_client->GetPanel())->View().SetText(text); }
    int Receive(const std::string& text, unsigned from = kOther, short flag = 0)
    {
        CUnit unit(Unit(text, from, flag));
        return m_client->RevData(&unit.pdu);
    }
    int Cache(unsigned cacheId, const std::string& text, int action, short result = 0)
    {
        return m_client->HandleChangeInfoCache(cacheId, kCacheHandle, text.c_str(), static_cast<tagCacheAction>(action),
                                               result);
    }

    CManualRunLoop m_loop{1000.0};
    CRunLoopScope m_scope{m_loop};
    CClientTraceCapture m_trace;
    CScriptedArmService m_service;
    CRecordingHostSink m_sink;
    std::unique_ptr<CNoteClient> m_client;
};

// --- whole texts

TEST_F(ClientReceive, AWholeTextReplacesTheNoteAndMarksItForSaving)
{
    Show("old text");
    EXPECT_EQ(m_client->RevData(nullptr), 1);
    EXPECT_EQ(Receive("new text"), 0);
    EXPECT_EQ(Text(), "new text");
    EXPECT_TRUE(Contains(m_sink.m_vecCalls, "NeedSave 1"));
    EXPECT_EQ(m_trace.Count(kRevDataEnd), 1);
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

TEST_F(ClientReceive, TheModifiedFlagSelectsWhatHappensToTheText)
{
    Show("panel text");
    // Flag 1 without data leaves the text; with data the data alone is the text.
    CDataPdu bare;
    bare.SetUserFrom(static_cast<int>(kOther));
    bare.SetModifiedFlag(1);
    EXPECT_EQ(m_client->RevData(&bare), 0);
    EXPECT_EQ(Text(), "panel text");
    Receive("replacement", kOther, 1);
    EXPECT_EQ(Text(), "replacement");

    // Any other flag leaves the text, and the rest of the step still runs.
    for (short flag : {short(2), short(-1), short(0x100)}) {
        m_trace.Clear();
        Receive("ignored", kOther, flag);
        EXPECT_EQ(Text(), "replacement") << flag;
        EXPECT_EQ(m_trace.Count(kRevDataEnd), 1) << flag;
    }

    // Flag 0 without data empties the note.
    bare.SetModifiedFlag(0);
    m_client->RevData(&bare);
    EXPECT_EQ(Text(), "");
}

TEST_F(ClientReceive, AnEmptiedNoteNeedsSavingOnlyIfItWasSavedBefore)
{
    Show("something");
    m_client->m_bSavedBefore = 1;
    m_client->SetFileNeedSave(false);
    m_sink.m_vecCalls.clear();
    Receive("");
    EXPECT_EQ(Text(), "");
    EXPECT_EQ(m_client->m_bFileNeedSave, 1);
    EXPECT_TRUE(Contains(m_sink.m_vecCalls, "SaveEnabled 1"));
    EXPECT_FALSE(Contains(m_sink.m_vecCalls, "SaveEnabled 0"));

    m_client->m_bSavedBefore = 0;
    m_sink.m_vecCalls.clear();
    Receive("");
    EXPECT_EQ(m_client->m_bFileNeedSave, 0);
    EXPECT_TRUE(Contains(m_sink.m_vecCalls, "SaveEnabled 0"));
    EXPECT_FALSE(Contains(m_sink.m_vecCalls, "NeedSave 1"));

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

    Receive("my own echo", kUserId);
    EXPECT_EQ(m_client->m_bSelfChange, 0u);
    EXPECT_EQ(Text(), "typed");

    Receive("from another");
    EXPECT_EQ(Text(), "from another");
}

TEST_F(ClientReceive, ADirectDataUnitIsTracedAndSenderZeroIsDropped)
{
    Show("kept");
    std::string wire = Unit("direct", 0);
    m_client->ApeDataIndication(kAttachId, 0, 0, 0, reinterpret_cast<unsigned char*>(&wire[0]),
                                static_cast<unsigned>(wire.size()));
    EXPECT_EQ(Text(), "kept");
    EXPECT_EQ(m_trace.Count(kRevDataEnd), 0);

    m_trace.Clear();
    wire = Unit("direct");
    EXPECT_EQ(m_client->ApeDataIndication(kAttachId, kOther, 0, 0, reinterpret_cast<unsigned char*>(&wire[0]),
                                          static_cast<unsigned>(wire.size())),
              0);
    EXPECT_EQ(Text(), "direct");
    const std::vector<std::string> lines = m_trace.StartingWith("CNoteClient::ApeDataIndication");
    EXPECT_EQ(lines, (std::vector<std::string>{"CNoteClient::ApeDataIndication, Begin",
                                               "CNoteClient::ApeDataIndication, FromUserId=33,ToUserId=4711",
                                               "CNoteClient::ApeDataIndication, END"}));
}

TEST_F(ClientReceive, HostileDataUnitsNeitherCrashNorWipeTheNote)
{
    Show("kept");
    unsigned char small[16] = {0x21, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 0xff, 0x7f, 0, 0, 'x', 'y'};
    m_client->ApeDataIndication(kAttachId, kOther, 0, 0, nullptr, 100);
    m_client->ApeDataIndication(kAttachId, kOther, 0, 0, small, 0);
    m_client->ApeDataIndication(kAttachId, kOther, 0, 0, small, 13);
    m_client->ApeDataIndication(kAttachId, kOther, 0, 0, small, sizeof small);  // length INT_MAX
    m_client->ApeDataIndication(kAttachId, kOther, 0, 0, small, 0xffffffffu);   // never read
    m_client->ApeDataIndication(kAttachId, kOther, 0, 0, small, 0x80000000u);
    EXPECT_EQ(Text(), "kept");

    std::mt19937 random(99u);
    for (size_t size = 1; size < 200; ++size) {
        std::vector<unsigned char> garbage(size);
        for (unsigned char& c : garbage) c = static_cast<unsigned char>(random());
        EXPECT_EQ(m_client->ApeDataIndication(kAttachId, kOther, 0, 0, garbage.data(), static_cast<unsigned>(size)), 0);
    }
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
    EXPECT_TRUE(m_trace.StartingWith("CNoteClient::HandleChangeInfoCache").empty());

    EXPECT_EQ(m_client->SharedDataReceivedEx(1, 3, kCacheHandle, 0, 0, CACHE_ACTION_SUBSCRIBED, 0, 0, 0), 0);
    EXPECT_EQ(m_trace.StartingWith("CNoteClient::HandleChangeInfoCache"),
              (std::vector<std::string>{
                  "CNoteClient::HandleChangeInfoCache cache_id=3,entity_id=44,cache_action=0,cache_action=0"}));
    EXPECT_EQ(m_client->m_nLastCacheId, 3u);
}

TEST_F(ClientReceive, TheSubscriptionAnswerRecordsTheNewestIdAndSubscribesUnlessStopped)
{
    EXPECT_EQ(Cache(12, "", CACHE_ACTION_SUBSCRIBED), 0);
    EXPECT_EQ(m_client->m_nLastCacheId, 12u);
    EXPECT_EQ(m_service.Take(), (std::vector<std::string>{kSubscribe}));

    EXPECT_EQ(Cache(13, "", CACHE_ACTION_CLOSED, 5), 0);  // a failed close changes nothing
    EXPECT_EQ(m_client->m_bStopSubscribe, 0u);
    EXPECT_EQ(Cache(13, "", CACHE_ACTION_CLOSED), 0);
    EXPECT_EQ(m_client->m_bStopSubscribe, 1u);
    EXPECT_EQ(m_client->m_nLastCacheId, 12u);
    Cache(14, "", CACHE_ACTION_SUBSCRIBED);
    EXPECT_EQ(m_client->m_nLastCacheId, 14u);
    EXPECT_TRUE(m_service.Take().empty());
}

TEST_F(ClientReceive, ARefusedUpdateReissuesThePutAndAfterALoadedFileAsksForTheWholeDocument)
{
    for (int action : {CACHE_ACTION_ADDED, CACHE_ACTION_UPDATED, CACHE_ACTION_REPLAYED}) {
        for (bool loaded : {false, true}) {
            m_client->m_bFileLoaded = loaded;
            m_client->m_bNeedSendAll = false;
            m_client->m_nLastCacheId = 3;
            EXPECT_EQ(Cache(9, ChangeXml("refused"), action, ARM_REFUSED), 0);
            EXPECT_EQ(m_client->m_bNeedSendAll, loaded) << action;
            EXPECT_EQ(m_client->m_bFileLoaded, loaded) << action;
            EXPECT_EQ(m_client->m_nLastCacheId, 3u) << action;
            EXPECT_EQ(m_service.Take(), (std::vector<std::string>{kPut})) << action;
        }
    }
    EXPECT_EQ(m_trace.Count("HandleChangeMsg"), 0);
}

TEST_F(ClientReceive, AWriterWithALoadedFileSendsTheDocumentAtTheNextSubscription)
{
    m_client->m_nUserType = NOTE_USER_WRITER;
    m_client->m_bFileLoaded = true;
    CNoteChangeInfoPDU change;
    change.SetNoteMsg("from the auto-save file");
    m_client->m_SaveInfo.m_vecChangeInfoPdu.push_back(change);

    Cache(4, ChangeXml("first update"), CACHE_ACTION_UPDATED, ARM_REFUSED);
    EXPECT_EQ(m_service.Take(), (std::vector<std::string>{kPut}));
    Cache(9, "", CACHE_ACTION_SUBSCRIBED);  // the answer to the resynchronisation
    EXPECT_EQ(m_service.Take(), (std::vector<std::string>{"Put 21 44 0 9 2 0x1000090 0 0 2", kSubscribe}));
    EXPECT_FALSE(m_client->m_bNeedSendAll);
}

TEST_F(ClientReceive, AnAcceptedChangeIsAppliedAndEndsTheLoadedFileState)
{
    m_client->m_bFileLoaded = true;
    EXPECT_EQ(Cache(7, ChangeXml("remote text"), CACHE_ACTION_ADDED), 1);
    EXPECT_FALSE(m_client->m_bFileLoaded);
    EXPECT_EQ(m_client->m_nLastCacheId, 7u);
    EXPECT_EQ(Text(), "remote text");
    EXPECT_EQ(m_client->m_strOldMsg, "remote text");
    ASSERT_EQ(m_client->m_SaveInfo.m_vecChangeInfoPdu.size(), 1u);
    EXPECT_EQ(m_client->m_SaveInfo.m_vecChangeInfoPdu[0].GetCacheId_INT(), 7);

    // A later refusal no longer asks for the whole document.
    Cache(8, ChangeXml("late"), CACHE_ACTION_UPDATED, ARM_REFUSED);
    EXPECT_FALSE(m_client->m_bNeedSendAll);
}

TEST_F(ClientReceive, KnownItemsAreRecordedButNotShown)
{
    for (int action : {CACHE_ACTION_RECORDED, CACHE_ACTION_KNOWN}) {
        const std::string text = "history " + std::to_string(action);
        EXPECT_EQ(Cache(20u + static_cast<unsigned>(action), ChangeXml(text), action), 1);
        EXPECT_EQ(m_client->m_nLastCacheId, 20u + static_cast<unsigned>(action));
        EXPECT_EQ(Text(), "");
        ASSERT_FALSE(m_client->m_SaveInfo.m_vecChangeInfoPdu.empty());
        EXPECT_EQ(m_client->m_SaveInfo.m_vecChangeInfoPdu.back().GetNoteMsg(), text);
    }
}

TEST_F(ClientReceive, ItemsThatAreNotTakenInLeaveTheNoteAlone)
{
    struct Case {
        const char* what;
        unsigned notepadType;
        unsigned cacheId;
        int action;
        short result;
        unsigned lastCacheId;  // afterwards, from 3
        int returned;
    } cases[] = {
        {"all-participants notepad", NOTETAKER_ALL_PARTICIPANTS, 7, CACHE_ACTION_ADDED, 0, 7, 0},
        {"no notepad type", 0, 7, CACHE_ACTION_KNOWN, 0, 3, 0},
        {"cache id 0", NOTETAKER_SINGLE, 0, CACHE_ACTION_ADDED, 0, 0, 0},
        {"cleared", NOTETAKER_SINGLE, 7, CACHE_ACTION_CLEARED, 0, 3, 0},
        {"action above 7", NOTETAKER_SINGLE, 7, 8, 0, 3, 0},
        {"negative action", NOTETAKER_SINGLE, 7, -1, 0, 3, 0},
        {"another failure", NOTETAKER_SINGLE, 7, CACHE_ACTION_ADDED, 5, 7, 1},
    };
    for (const Case& c : cases) {
        m_client->m_nNotePadType = c.notepadType;
        m_client->m_nLastCacheId = 3;
        m_trace.Clear();
        EXPECT_EQ(Cache(c.cacheId, ChangeXml("not shown"), c.action, c.result), c.returned) << c.what;
        EXPECT_EQ(m_client->m_nLastCacheId, c.lastCacheId) << c.what;
        EXPECT_EQ(Text(), "") << c.what;
        EXPECT_EQ(m_trace.Count("HandleChangeMsg"), 0) << c.what;
        EXPECT_TRUE(m_service.Take().empty()) << c.what;
    }
}

TEST_F(ClientReceive, AChangeThatFailsToParseIsStillHandedOnAndReportedAsSuch)
{
    EXPECT_EQ(Cache(7, "<notecom ver=\"1.0\" mtype=\"3\"><broken", CACHE_ACTION_ADDED), 0);
    EXPECT_EQ(m_trace.Count("HandleChangeMsg"), 1);
    EXPECT_EQ(Cache(8, "", CACHE_ACTION_ADDED), 0);
    EXPECT_EQ(m_client->HandleChangeInfoCache(9, kCacheHandle, nullptr, CACHE_ACTION_ADDED, 0), 0);
    EXPECT_EQ(m_trace.Count("HandleChangeMsg"), 3);
    EXPECT_EQ(Text(), "");
}

// --- real deliveries from the in-process conference

TEST(ClientReceiveMeeting, CacheItemsOfAnotherParticipantReachTheReaderAndGarbageDoesNoHarm)
{
    CClientTraceCapture trace;
    CClientHarness harness;
    CNoteClient& reader = harness.Join(kUserId, NOTETAKER_SINGLE, NOTE_USER_READER);
    CNoteClient& other = harness.Join(kUserId + 1, NOTETAKER_SINGLE, NOTE_USER_READER);
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
