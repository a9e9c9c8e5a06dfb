// The client core and the conference handshake on a scripted service: Initialize and teardown,
// each handshake step with its exact arguments, the instance registry and the routing of
// resource messages, hostile payloads included.
#include "ScriptedArmService.h"

#include "conference/DataUnits.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace {

using Calls = std::vector<std::string>;
constexpr unsigned kAttachId = 21, kCacheHandle = 44;
const char kSubscribe[] = "Subscribe 21 44 0 3 255";

long RegistryEntriesOf(const CNoteClient* client)
{
    return std::count_if(g_aApeCltMap.begin(), g_aApeCltMap.end(),
                         [&](const tagApeCltMap* e) { return e->pClient == client; });
}

class ClientCore : public ScriptedClientTest {
protected:
    void Attached()
    {
        m_client->m_nApeUserId = kAttachId;
        m_client->m_nChangeCacheHandle = kCacheHandle;
    }
};

TEST_F(ClientCore, InitializeConnectsRegistersKeepsHostTextsAndTeardownUndoesIt)
{
    CScriptedArmService service;
    std::unique_ptr<CNoteClient> client = NewScriptedClient(service, &m_sink);
    EXPECT_EQ(service.Take(), (Calls{"Connect '' 0 0 0", "RegisterRscCallBack 0"}));
    EXPECT_EQ(g_aApeCltMap.back()->pClient, client.get());
    // Initialized again: the service already set stays, empty host texts change nothing.
    CScriptedArmService second;
    _tagNoteData data = ScriptedNoteData(&second);
    data.pszHostText1 = "alpha";
    data.pszHostText2 = "beta";
    client->Initialize(data);
    data.pszHostText1 = "";
    data.pszHostText2 = nullptr;
    client->Initialize(data);
    EXPECT_EQ(client->m_pArmService, &service);
    EXPECT_EQ(client->m_strHostText1 + client->m_strHostText2, "alphabeta");
    EXPECT_EQ(RegistryEntriesOf(client.get()), 3);
    client->ApeAttachConfirm(12, 0, 0);
    service.Take();
    const size_t timers = m_loop.TimerCount();
    const CNoteClient* gone = client.get();
    client.reset();
    EXPECT_EQ(service.Take(), (Calls{"Detach 12", "Leave 0 5", "Disconnect 1", "Release"}));
    EXPECT_EQ(m_loop.TimerCount(), timers - 1);
    EXPECT_EQ(RegistryEntriesOf(gone), 0);
}

TEST_F(ClientCore, ConnectJoinAttachAndEnrolSteps)
{
    for (short result : {short(19), short(0), short(1)}) m_client->ConnectConfirm(result, 0);
    m_client->ConferenceJoinConfirm(5, nullptr, 1, 0);
    m_client->m_conferenceHandle = 0x10005;  // attached with the handle's 16 bits
    m_client->ConferenceJoinConfirm(5, nullptr, 0, 0);
    EXPECT_EQ(m_service.Take(), (Calls{"Connect '' 0 0 0", "Join 0 5 3", "Attach 0 5"}));

    EXPECT_EQ(m_client->ApeAttachConfirm(kAttachId, 5, 0), 0);
    EXPECT_EQ(m_client->m_nApeUserId, kAttachId);
    EXPECT_EQ(m_service.Take(), (Calls{"Enroll 21 16 6 0 1 6 3"}));
    const std::uint64_t value = m_service.m_capability.nValue;
    EXPECT_EQ(m_service.m_strCapabilityKey + std::to_string(value), "c_session_id1");
    EXPECT_EQ(m_service.m_strEnrollValue, std::string("U4711\x01"));
    m_service.m_nEnrollResult = 1;
    EXPECT_FALSE(m_client->Enroll());
}

TEST_F(ClientCore, TheEnrolConfirmNamesTheCacheByTheFirstResource)
{
    ARMSessionResource resources[2] = {{1, 2, 3, 4, 305}, {1, 2, 3, 4, 999}};
    m_client->m_nApeUserId = kAttachId;
    m_client->m_nChangeCacheHandle = kCacheHandle;
    m_client->ApeEnrollConfirm(kAttachId, 3, 2, resources);  // failed
    EXPECT_EQ(m_client->m_nChangeCacheHandle, kCacheHandle);
    m_client->ApeEnrollConfirm(kAttachId, 0, 2, resources);
    EXPECT_EQ(m_service.Take(), (Calls{"RegisterResources 21 2", "AllocNameHandles 21 1 note_changeinfo_cache_305 0"}));
    EXPECT_EQ(m_client->m_nChangeCacheHandle, 0u);  // forgotten until the confirm
    EXPECT_EQ(m_service.m_strAllocName, "note_changeinfo_cache_305" + std::string(64 - 25, '\0'));
}

TEST_F(ClientCore, TheNameHandleConfirmTakesOnlyItsOwnNameAndSubscribes)
{
    m_client->m_nApeUserId = kAttachId;
    m_client->m_nResourceId = 305;
    m_client->AllocAllCacheHandles();
    m_service.Take();
    NameHandles names[2] = {};
    std::strcpy(names[0].szName, "note_changeinfo_cache_305");
    names[0].nHandle = kCacheHandle;
    std::strcpy(names[1].szName, "note_changeinfo_cache_306");
    names[1].nHandle = 55;
    EXPECT_EQ(m_client->AllocNameHandleConfirm(kAttachId, 2, names, 0), 0);  // the count differs
    EXPECT_EQ(m_client->AllocNameHandleConfirm(kAttachId, 1, names + 1, 0), 1);
    EXPECT_EQ(m_client->AllocNameHandleConfirm(kAttachId, 1, nullptr, 0), 1);
    EXPECT_EQ(m_client->m_nChangeCacheHandle, 0u);
    EXPECT_TRUE(m_service.Take().empty());
    EXPECT_EQ(m_client->AllocNameHandleConfirm(kAttachId, 1, names, 0), 1);
    EXPECT_EQ(m_client->m_nChangeCacheHandle, kCacheHandle);
    EXPECT_EQ(m_service.Take(), (Calls{kSubscribe}));
}

TEST_F(ClientCore, OnlyAStoredItemOfTheChangeOrSaveCacheMarksTheDocumentForAutoSave)
{
    Attached();
    m_client->m_nSaveCacheHandle = 9;
    ViewOf(*m_client).SetText("line one\nline two");
    const struct { unsigned attachId, cacheHandle; int action; short result; int returned; unsigned needAutoSave;
    } cases[] = {{0, kCacheHandle, 1, 0, 1, 0},         {kAttachId, kCacheHandle, 1, 0, 0, 1},
                 {kAttachId, kCacheHandle, 2, 0, 0, 1}, {kAttachId, kCacheHandle, 1, 19, 0, 0},
                 {kAttachId, kCacheHandle, 3, 0, 0, 0}, {kAttachId, 45, 1, 0, 0, 0}, {kAttachId, 9, 2, 0, 0, 1}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.cacheHandle) + " action " + std::to_string(c.action));
        m_client->m_bNeedAutoSave = 0;
        m_client->m_strPublishMsg = "old";
        EXPECT_EQ(
            m_client->ApeCacheActionConfirmEx(c.attachId, c.cacheHandle, tagCacheAction(c.action), 1, 0, c.result),
            c.returned);
        EXPECT_EQ(m_client->m_bNeedAutoSave, c.needAutoSave);
        EXPECT_EQ(m_client->m_strPublishMsg, c.needAutoSave ? "line one\r\nline two" : "old");
    }
}

TEST_F(ClientCore, CachePutsSubscriptionsAndThePkiQuery)
{
    m_client->RequestAllNoteData();        // no attach id yet
    m_client->SubscribeChangeNoteCache();  // no attach id yet
    EXPECT_TRUE(m_service.Take().empty());
    Attached();
    m_client->SetAllCaches();
    m_client->RequestAllNoteData();
    m_client->SubscribeChangeNoteCache();
    EXPECT_EQ(m_service.Take(), (Calls{"Put 21 44 0 0 0 0x1000000 0 0 1", kSubscribe, kSubscribe}));
    m_client->m_bStopSubscribe = 1;
    m_client->SubscribeChangeNoteCache();
    EXPECT_TRUE(m_service.Take().empty());

    for (std::uint64_t flags : {0ull, 4ull, 3ull, 0xffull}) {
        m_service.m_nConferenceFlags = flags;
        EXPECT_EQ(m_client->IsPKIMeeting(), (flags & 4) != 0) << flags;
    }
    EXPECT_EQ(m_service.m_nQueriedHandle, kScriptedConference);
    CNoteClient serviceless;
    EXPECT_FALSE(serviceless.IsPKIMeeting());
}

// --- the registry and the routing of resource messages: two clients under attach id 0

class ClientRegistry : public ScriptedClientTest {
protected:
    void SetUp() override
    {
        ScriptedClientTest::SetUp();
        m_second = NewScriptedClient(m_secondService);
    }
    void TearDown() override
    {
        m_second.reset();
        ScriptedClientTest::TearDown();
    }
    int Send(unsigned id, const char* name, unsigned kind, const std::string& text = "routed", int type = 1)
    {
        const std::string unit = BuildDataUnitEnvelope(33, 0, 0, text);
        ARMMsg_SessRscInd message = ResourceMessage(unit, kind, name);
        return ArmRscCallBack(id, static_cast<ARMMsgType>(type), &message);
    }

    CScriptedArmService m_secondService;
    std::unique_ptr<CNoteClient> m_second;
};

TEST_F(ClientRegistry, TheFirstRegisteredGetsTheMessageOthersAreDropped)
{
    EXPECT_EQ(ArmRscCallBack(0, ARM_MSG_SESS_RSC_IND, nullptr), 1);
    EXPECT_EQ(Send(0, "NoteTake", 0, "wrong type", 2), 0);
    EXPECT_EQ(Send(3, "NoteTake", 0, "unregistered id"), 0);
    for (const char* name : {"notetake", "NoteTakeX", "ClosedCaptions", ""}) Send(0, name, 0, name);
    EXPECT_EQ(ViewOf(*m_client).Text(), "");
    EXPECT_EQ(Send(0, "NoteTake", 0, "for the first"), 0);
    EXPECT_EQ(ViewOf(*m_client).Text(), "for the first");
    EXPECT_EQ(ViewOf(*m_second).Text(), "");
    m_client.reset();
    Send(0, "NoteTake", 0, "for the second");
    EXPECT_EQ(ViewOf(*m_second).Text(), "for the second");
}

TEST_F(ClientRegistry, BothResourceNamesReachTheHandlerAndTheKindSelectsTheAction)
{
    const struct { const char* name; unsigned kind, selfChange, lastWasChange; const char* text;
    } cases[] = {{"ClosedCaption", 0, 0, 0, "k0"}, {"NoteTake", 1, 1, 0, "k0"}, {"NoteTake", 1, 0, 1, "k0"},
                 {"NoteTake", 2, 0, 0, "k2"}, {"NoteTake", 77, 0, 0, "k2"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.name) + " " + std::to_string(c.kind));
        m_client->m_bSelfChange = c.selfChange;
        Send(0, c.name, c.kind, "k" + std::to_string(c.kind));
        EXPECT_EQ(m_client->m_bLastWasChange, c.lastWasChange);
        EXPECT_EQ(m_client->m_bSelfChange, c.selfChange);
        EXPECT_EQ(ViewOf(*m_client).Text(), c.text);
    }
}

TEST_F(ClientRegistry, MalformedWholeTextPayloadsNeitherCrashNorWipeTheNote)
{
    CNoteClient& client = *m_client;
    Send(0, "NoteTake", 0, "keep me");
    const std::string unit = BuildDataUnitEnvelope(33, 0, 0, "0123456789");
    for (const std::string& payload : {std::string("ab"), unit.substr(0, 13), unit.substr(0, 20),
                                       std::string(14, '\xff'),
                                       BuildDataUnitEnvelope(33, 0, 0, "x").replace(8, 4, "\xff\xff\xff\x7f", 4),
                                       BuildDataUnitEnvelope(0, 0, 0, "")}) {
        ARMMsg_SessRscInd message = ResourceMessage(payload);
        EXPECT_EQ(client.Handle_ArmMsg_SessRscInd(&message), 0);
    }
    EXPECT_EQ(client.Handle_ArmMsg_SessRscInd(nullptr), 1);
    EXPECT_EQ(ViewOf(client).Text(), "keep me");
    std::mt19937 random(20240611u);
    for (size_t size = 0; size < 300; ++size) {
        std::string garbage(size, '\0');
        for (char& c : garbage) c = static_cast<char>(random() & 0xff);
        ARMMsg_SessRscInd message = ResourceMessage(garbage, size % 3, "ClosedCaption");
        EXPECT_EQ(client.Handle_ArmMsg_SessRscInd(&message), 0);
    }
}

}  // namespace
