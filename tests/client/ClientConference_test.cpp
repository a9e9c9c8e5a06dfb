// The conference handshake: against the in-process conference (the state after it settles, the
// already-connected shortcut) and step by step on a scripted service (exact arguments, results
// that select the next step, the cache name, name-handle confirms, put confirms, subscription).
#include "ClientHarness.h"
#include "ClientTraceCapture.h"
#include "ScriptedArmService.h"

#include "panel/NoteViewController.h"
#include "tessarinnote/uiinterface.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr unsigned kConference = 5;
constexpr unsigned kSession = 6;
constexpr unsigned kUserId = 4711;
constexpr unsigned kAttachId = 21;
constexpr unsigned kCacheHandle = 44;

std::string CacheName(unsigned resourceId)
{
    return "note_changeinfo_cache_" + std::to_string(resourceId);
}

std::string SubscribedLine(unsigned cacheId, unsigned cacheHandle, int action)
{
    return "CNoteClient::HandleChangeInfoCache cache_id=" + std::to_string(cacheId) +
           ",entity_id=" + std::to_string(cacheHandle) + ",cache_action=" + std::to_string(action) +
           ",cache_action=" + std::to_string(action);
}

// A packed cache item holding text uncompressed: u32 0, u32 length, the bytes.
std::string PackedPlain(const std::string& text)
{
    std::string item(8, '\0');
    const unsigned length = static_cast<unsigned>(text.size());
    for (int i = 0; i < 4; ++i) item[4 + i] = static_cast<char>(length >> (8 * i) & 0xff);
    return item + text;
}

// --- against the in-process conference

TEST(ClientHandshake, ASettledHandshakeLeavesTheClientEnrolledNamedAndSubscribed)
{
    CClientTraceCapture trace;
    CClientHarness harness;
    CNoteClient& first = harness.Join(kUserId, NOTETAKER_SINGLE, NOTE_USER_WRITER);
    CNoteClient& second = harness.Join(kUserId + 1, NOTETAKER_SINGLE, NOTE_USER_READER);

    EXPECT_NE(first.m_nApeUserId, 0u);
    EXPECT_NE(first.m_nApeUserId, second.m_nApeUserId);
    EXPECT_NE(first.m_nResourceId, 0u);
    EXPECT_EQ(first.m_nResourceId, second.m_nResourceId);
    EXPECT_EQ(std::string(first.m_szChangeCacheName), CacheName(first.m_nResourceId));
    EXPECT_EQ(first.m_nCacheCount, 1u);
    EXPECT_EQ(first.m_bWaitEnroll, 0u);
    ASSERT_NE(first.m_nChangeCacheHandle, 0u);
    EXPECT_EQ(first.m_nChangeCacheHandle, second.m_nChangeCacheHandle);
    // The first subscription is answered with action 0 and the newest id of the empty cache.
    EXPECT_EQ(trace.Count(SubscribedLine(0, first.m_nChangeCacheHandle, 0)), 2);

    // Subscribed: an item another participant puts reaches the first client.
    IArmService* service = second.m_pArmService;
    const std::string item = PackedPlain("<not a change pdu/>");
    unsigned handle = 0;
    ASSERT_EQ(service->ArmService_AllocMemHandle(static_cast<unsigned>(item.size()), &handle), 0);
    ASSERT_EQ(service->ArmService_WriteMemHandle(handle, 0, item.data(), static_cast<unsigned>(item.size())), 0);
    ASSERT_EQ(service->ArmService_PutCacheItem(second.m_nApeUserId, second.m_nChangeCacheHandle, 0, 0,
                                               CACHE_MODE_REPLACE_NEWEST, CACHE_FLAG_BASE, handle, 0, 2),
              0);
    service->ArmService_FreeMemHandle(handle);
    harness.Settle();
    EXPECT_EQ(trace.Count(SubscribedLine(1, first.m_nChangeCacheHandle, 1)), 2);  // both subscribers
    EXPECT_EQ(first.m_nLastCacheId, 1u);
}

TEST(ClientHandshake, AServiceAlreadyConnectedAndJoinedAttachesInsideInitialize)
{
    CClientTraceCapture trace;
    CManualRunLoop loop(1000.0);
    CRunLoopScope scope(loop);
    std::unique_ptr<IMeeting> meeting = NewLocalMeeting(CMeetingOptions());
    IArmService* service = meeting->NewService(loop);

    // Another object of the host connected and joined on this service before.
    CNoteClient earlier;
    ASSERT_EQ(service->ArmService_Connect(&earlier, "", 0, 0, 0), 0);
    ASSERT_EQ(service->ArmService_JoinConference(0, meeting->ConferenceHandle(), &earlier, 3), 0);
    for (int i = 0; i < 100 && loop.PostedCount() > 0; ++i) loop.RunPending();

    auto client = std::make_unique<CNoteClient>();
    _tagNoteData data;
    std::memset(&data, 0, sizeof data);
    data.pArmService = service;
    data.conferenceHandle = meeting->ConferenceHandle();
    data.sessionHandle = meeting->SessionHandle();
    data.nUserId = kUserId;
    client->Initialize(data);
    const unsigned attachId = client->m_nApeUserId;
    EXPECT_NE(attachId, 0u);
    ASSERT_FALSE(g_aApeCltMap.empty());
    EXPECT_EQ(g_aApeCltMap.back()->nId, attachId);
    EXPECT_EQ(g_aApeCltMap.back()->pClient, client.get());

    for (int i = 0; i < 100 && loop.PostedCount() > 0; ++i) loop.RunPending();
    EXPECT_NE(client->m_nChangeCacheHandle, 0u);
    EXPECT_EQ(std::string(client->m_szChangeCacheName), CacheName(client->m_nResourceId));
    EXPECT_EQ(trace.Count(SubscribedLine(0, client->m_nChangeCacheHandle, 0)), 1);
    client.reset();  // releases the service
}

// --- step by step on a scripted service

class ClientHandshakeSteps : public ::testing::Test {
protected:
    void SetUp() override
    {
        _tagNoteData data;
        std::memset(&data, 0, sizeof data);
        data.pArmService = &m_service;
        data.conferenceHandle = kConference;
        data.sessionHandle = kSession;
        data.nUserId = kUserId;
        m_client.reset(new CNoteClient);
        m_client->Initialize(data);
        m_service.Take();
    }
    void TearDown() override { m_client.reset(); }

    // The client attached as kAttachId with the change cache kCacheHandle.
    void Attached()
    {
        m_client->m_nApeUserId = kAttachId;
        m_client->m_nChangeCacheHandle = kCacheHandle;
    }

    CManualRunLoop m_loop{1000.0};
    CRunLoopScope m_scope{m_loop};
    CClientTraceCapture m_trace;
    CScriptedArmService m_service;
    std::unique_ptr<CNoteClient> m_client;
};

TEST_F(ClientHandshakeSteps, TheConnectResultSelectsTheNextStep)
{
    struct Case {
        short result;
        int joinResult;
        std::vector<std::string> calls;
    } cases[] = {
        {19, 0, {"Connect '' 0 0 0"}},
        {0, 0, {"Join 0 5 3"}},
        {0, ARM_ALREADY_JOINED, {"Join 0 5 3", "Attach 0 5"}},
        {1, 0, {}},
        {-1, 0, {}},
        {1215, 0, {}},
        {1201, 0, {}},
    };
    for (const Case& c : cases) {
        m_service.m_nJoinResult = c.joinResult;
        EXPECT_EQ(m_client->ConnectConfirm(c.result, 0), 0);
        EXPECT_EQ(m_service.Take(), c.calls) << "result " << c.result;
    }
    EXPECT_EQ(m_service.m_pNodeSink, static_cast<IArmNodeControllerSink*>(m_client.get()));
    EXPECT_EQ(m_service.m_pConferenceSink, static_cast<IArmConferenceSink*>(m_client.get()));
}

TEST_F(ClientHandshakeSteps, OnlyASuccessfulJoinAttachesWithTheConferenceHandleIn16Bits)
{
    EXPECT_EQ(m_client->ConferenceJoinConfirm(kConference, nullptr, 1, 0), 0);
    EXPECT_TRUE(m_service.Take().empty());

    m_client->m_conferenceHandle = 0x10005;
    m_service.m_nAttachIdToWrite = 33;
    EXPECT_EQ(m_client->ConferenceJoinConfirm(5, nullptr, 0, 0), 0);
    EXPECT_EQ(m_service.Take(), (std::vector<std::string>{"Attach 0 5"}));
    EXPECT_EQ(m_client->m_nApeUserId, 33u);
    EXPECT_EQ(m_service.m_pApeSink, static_cast<IArmApeSink*>(m_client.get()));

    m_service.m_nAttachResult = 1;  // refused: nothing written, nothing else happens
    m_service.m_nAttachIdToWrite = 34;
    EXPECT_EQ(m_client->ConferenceJoinConfirm(5, nullptr, 0, 0), 0);
    EXPECT_EQ(m_service.Take(), (std::vector<std::string>{"Attach 0 5"}));
    EXPECT_EQ(m_client->m_nApeUserId, 33u);
}

TEST_F(ClientHandshakeSteps, TheAttachConfirmStoresTheIdWhateverTheResultAndEnrols)
{
    EXPECT_EQ(m_client->ApeAttachConfirm(kAttachId, 5, 0), 0);
    EXPECT_EQ(m_client->m_nApeUserId, kAttachId);
    EXPECT_EQ(m_service.Take(), (std::vector<std::string>{"Enroll 21 16 6 0 1 6 3"}));
    // Packed fields are copied out before comparing.
    const unsigned count = m_service.m_capability.nCount;
    const unsigned unused = m_service.m_capability.nUnused;
    const std::uint64_t value = m_service.m_capability.nValue;
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(unused, 0u);
    EXPECT_EQ(m_service.m_strCapabilityKey, "c_session_id");
    EXPECT_EQ(value, 1u);
    EXPECT_EQ(m_service.m_strEnrollValue, std::string("U4711\x01"));

    struct Case {
        unsigned userId;
        const char* value;
    } cases[] = {{0, "U0\x01"}, {4294967295u, "U4294967295\x01"}, {305, "U305\x01"}};
    for (const Case& c : cases) {
        m_client->m_nUserId = c.userId;
        EXPECT_TRUE(m_client->Enroll());
        EXPECT_EQ(m_service.m_strEnrollValue, c.value);
    }
    m_service.m_nEnrollResult = 1;
    EXPECT_FALSE(m_client->Enroll());
}

TEST_F(ClientHandshakeSteps, AFailedEnrolmentEndsTheHandshake)
{
    m_client->m_bWaitEnroll = 1;
    ARMSessionResource resource = {1, 2, 3, 4, 305};
    EXPECT_EQ(m_client->ApeEnrollConfirm(kAttachId, 3, 1, &resource), 0);
    EXPECT_TRUE(m_service.Take().empty());
    EXPECT_EQ(m_client->m_nResourceId, 0u);
    EXPECT_EQ(m_client->m_bWaitEnroll, 1u);
}

TEST_F(ClientHandshakeSteps, AnEnrolmentWithoutResourcesKeepsIdZeroInTheCacheName)
{
    m_client->m_nApeUserId = kAttachId;
    m_client->m_bWaitEnroll = 1;
    EXPECT_EQ(m_client->ApeEnrollConfirm(kAttachId, 0, 0, nullptr), 0);
    EXPECT_EQ(m_client->m_nResourceId, 0u);
    EXPECT_EQ(m_client->m_bWaitEnroll, 0u);
    EXPECT_FALSE(m_client->m_bFileLoaded);  // no auto-save file
    EXPECT_EQ(m_service.Take(), (std::vector<std::string>{"RegisterResources 21 0",
                                                          "AllocNameHandles 21 1 note_changeinfo_cache_0 0"}));
    EXPECT_EQ(std::string(m_client->m_szChangeCacheName), "note_changeinfo_cache_0");
    EXPECT_EQ(m_client->m_nCacheCount, 1u);
    // The request's 64 name bytes are zero after the text.
    EXPECT_EQ(m_service.m_strAllocName, "note_changeinfo_cache_0" + std::string(64 - 23, '\0'));
    EXPECT_EQ(m_service.m_pSharedSink, static_cast<IArmSharedDataSink*>(m_client.get()));
    EXPECT_EQ(m_service.m_pAllocSink, static_cast<IArmAllocHandleSink*>(m_client.get()));
}

TEST_F(ClientHandshakeSteps, TheFirstResourceRecordNamesTheCache)
{
    m_client->m_nApeUserId = kAttachId;
    ARMSessionResource resources[2] = {{1, 2, 3, 4, 305}, {1, 2, 3, 4, 999}};
    m_client->ApeEnrollConfirm(kAttachId, 0, 2, resources);
    EXPECT_EQ(m_client->m_nResourceId, 305u);
    EXPECT_EQ(std::string(m_client->m_szChangeCacheName), "note_changeinfo_cache_305");
    EXPECT_EQ(m_service.Take().back(), "AllocNameHandles 21 1 note_changeinfo_cache_305 0");

    // A count without records, or a negative count, keeps the id.
    m_client->ApeEnrollConfirm(kAttachId, 0, 1, nullptr);
    m_client->ApeEnrollConfirm(kAttachId, 0, -1, resources + 1);
    EXPECT_EQ(m_client->m_nResourceId, 305u);

    // Asking again forgets the old handle until the confirm.
    m_client->m_nChangeCacheHandle = kCacheHandle;
    m_client->AllocAllCacheHandles();
    EXPECT_EQ(m_client->m_nChangeCacheHandle, 0u);
}

TEST_F(ClientHandshakeSteps, TheNameHandleConfirmTakesOnlyItsOwnNameAndSubscribes)
{
    m_client->m_nApeUserId = kAttachId;
    m_client->m_nResourceId = 305;
    m_client->AllocAllCacheHandles();
    m_service.Take();

    NameHandles names[2];
    std::memset(names, 0, sizeof names);
    std::strcpy(names[0].szName, "note_changeinfo_cache_305");
    names[0].nHandle = kCacheHandle;
    EXPECT_EQ(m_client->AllocNameHandleConfirm(kAttachId, 2, names, 0), 0);  // count differs
    EXPECT_EQ(m_client->m_nChangeCacheHandle, 0u);
    EXPECT_TRUE(m_service.Take().empty());

    NameHandles other[1];
    std::memset(other, 0, sizeof other);
    std::strcpy(other[0].szName, "note_changeinfo_cache_306");
    other[0].nHandle = 55;
    EXPECT_EQ(m_client->AllocNameHandleConfirm(kAttachId, 1, other, 0), 1);
    EXPECT_EQ(m_client->m_nChangeCacheHandle, 0u);
    EXPECT_TRUE(m_service.Take().empty());

    EXPECT_EQ(m_client->AllocNameHandleConfirm(kAttachId, 1, names, 0), 1);
    EXPECT_EQ(m_client->m_nChangeCacheHandle, kCacheHandle);
    EXPECT_EQ(m_service.Take(), (std::vector<std::string>{"Subscribe 21 44 0 3 255"}));
    EXPECT_EQ(m_service.m_pSharedSink, static_cast<IArmSharedDataSink*>(m_client.get()));

    // Another name with a handle held already: the subscription is issued again.
    EXPECT_EQ(m_client->AllocNameHandleConfirm(kAttachId, 1, other, 0), 1);
    EXPECT_EQ(m_client->m_nChangeCacheHandle, kCacheHandle);
    EXPECT_EQ(m_service.Take(), (std::vector<std::string>{"Subscribe 21 44 0 3 255"}));

    // A name filling all 64 bytes without a terminator, and no records at all.
    std::memset(other[0].szName, 'x', sizeof other[0].szName);
    EXPECT_EQ(m_client->AllocNameHandleConfirm(kAttachId, 1, other, 0), 1);
    EXPECT_EQ(m_client->AllocNameHandleConfirm(kAttachId, 1, nullptr, 0), 1);
    EXPECT_EQ(m_client->m_nChangeCacheHandle, kCacheHandle);
}

TEST_F(ClientHandshakeSteps, OnlyAStoredItemOfTheChangeOrSaveCacheMarksTheDocumentForAutoSave)
{
    Attached();
    m_client->m_nSaveCacheHandle = 9;
    struct Case {
        unsigned attachId, cacheHandle;
        int action;
        short result;
        int returned;
        unsigned needAutoSave;
    } cases[] = {
        {0, kCacheHandle, 1, 0, 1, 0},  {kAttachId, 0, 1, 0, 1, 0},     {kAttachId, kCacheHandle, 1, 0, 0, 1},
        {kAttachId, kCacheHandle, 2, 0, 0, 1}, {kAttachId, kCacheHandle, 1, 19, 0, 0},
        {kAttachId, kCacheHandle, 0, 0, 0, 0}, {kAttachId, kCacheHandle, 3, 0, 0, 0},
        {kAttachId, kCacheHandle, 6, 0, 0, 0}, {kAttachId, 45, 1, 0, 0, 0},
        {kAttachId, 9, 2, 0, 0, 1},     {kAttachId, 9, 1, 19, 0, 0},    {kAttachId, 9, 5, 0, 0, 0},
    };
    for (const Case& c : cases) {
        m_client->m_bNeedAutoSave = 0;
        EXPECT_EQ(m_client->ApeCacheActionConfirmEx(c.attachId, c.cacheHandle, static_cast<tagCacheAction>(c.action),
                                                    1, 0, c.result),
                  c.returned);
        EXPECT_EQ(m_client->m_bNeedAutoSave, c.needAutoSave)
            << "cache " << c.cacheHandle << " action " << c.action << " result " << c.result;
    }
}

TEST_F(ClientHandshakeSteps, AConfirmedPutTakesThePanelTextAsThePublishedText)
{
    Attached();
    void* panel = nullptr;
    CreateUI(&panel, nullptr, m_client.get());
    m_client->SetPanel(panel);
    static_cast<NoteViewController*>(panel)->View().SetText("line one\nline two");
    m_client->m_strPublishMsg = "old";
    m_client->ApeCacheActionConfirmEx(kAttachId, kCacheHandle, CACHE_ACTION_ADDED, 1, 0, 19);
    EXPECT_EQ(m_client->m_strPublishMsg, "old");
    m_client->ApeCacheActionConfirmEx(kAttachId, kCacheHandle, CACHE_ACTION_ADDED, 1, 0, 0);
    EXPECT_EQ(m_client->m_strPublishMsg, "line one\r\nline two");
}

TEST_F(ClientHandshakeSteps, CachePutsAndSubscriptionsCarryTheirFixedArguments)
{
    m_client->RequestAllNoteData();  // no attach id yet
    m_client->CheckNoteCacheStatus();  // no handle yet
    m_client->SubscribeChangeNoteCache();  // no attach id yet
    EXPECT_TRUE(m_service.Take().empty());

    Attached();
    m_client->SetAllCaches();
    m_client->RequestAllNoteData();
    m_client->CheckNoteCacheStatus();
    m_client->SubscribeChangeNoteCache();
    EXPECT_EQ(m_service.Take(), (std::vector<std::string>{"Put 21 44 0 0 0 0x1000000 0 0 1", "Subscribe 21 44 0 3 255",
                                                          "Subscribe 21 44 0 3 255", "Subscribe 21 44 0 3 255"}));

    m_client->m_bStopSubscribe = 1;
    m_client->SubscribeChangeNoteCache();
    EXPECT_TRUE(m_service.Take().empty());
}

TEST_F(ClientHandshakeSteps, AWriterWhoMustSendAllSendsTheDocumentBeforeSubscribing)
{
    Attached();
    m_client->m_nNotePadType = NOTETAKER_SINGLE;
    m_client->m_nLastCacheId = 8;
    CNoteChangeInfoPDU change;
    change.SetNoteMsg("held back");
    m_client->m_SaveInfo.m_vecChangeInfoPdu.push_back(change);

    m_client->m_bNeedSendAll = true;
    m_client->m_nUserType = NOTE_USER_READER;  // a reader only subscribes
    m_client->SubscribeChangeNoteCache();
    EXPECT_FALSE(m_client->m_bNeedSendAll);
    EXPECT_EQ(m_service.Take(), (std::vector<std::string>{"Subscribe 21 44 0 3 255"}));

    m_client->m_bNeedSendAll = true;
    m_client->m_nUserType = NOTE_USER_WRITER;
    m_client->SubscribeChangeNoteCache();
    EXPECT_FALSE(m_client->m_bNeedSendAll);
    // The scripted service has no memory handles, so the document's one change goes as handle 0.
    EXPECT_EQ(m_service.Take(),
              (std::vector<std::string>{"Put 21 44 0 8 2 0x1000090 0 0 2", "Subscribe 21 44 0 3 255"}));
}

TEST_F(ClientHandshakeSteps, APkiMeetingIsTheFlagValue4OfTheConferenceQuery)
{
    struct Case {
        std::uint64_t flags;
        bool pki;
    } cases[] = {{0, false}, {4, true}, {3, false}, {0xff, true}, {~std::uint64_t{4}, false}};
    for (const Case& c : cases) {
        m_service.m_nConferenceFlags = c.flags;
        EXPECT_EQ(m_client->IsPKIMeeting(), c.pki) << c.flags;
    }
    EXPECT_EQ(m_service.m_nQueriedHandle, kConference);

    CNoteClient serviceless;
    EXPECT_FALSE(serviceless.IsPKIMeeting());
    serviceless.SetAllCaches();
    serviceless.AllocAllCacheHandles();
    EXPECT_FALSE(serviceless.Enroll());
    EXPECT_EQ(serviceless.m_nCacheCount, 0u);
}

}  // namespace
