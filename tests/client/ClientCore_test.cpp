// The client core: construction defaults, Initialize, the instance registry and the routing of
// resource messages, the non-PKI resource path under hostile payloads, and teardown.
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

constexpr unsigned kConference = 5;
constexpr unsigned kSession = 6;
constexpr unsigned kUserId = 4711;
constexpr unsigned kOtherSender = 33;

_tagNoteData NoteData(IArmService* service, INoteHostSink* sink = nullptr)
{
    _tagNoteData data;
    std::memset(&data, 0, sizeof data);
    data.pHostSink = sink;
    data.pArmService = service;
    data.conferenceHandle = kConference;
    data.sessionHandle = kSession;
    data.nUserId = kUserId;
    return data;
}

ARMMsg_SessRscInd Message(const char* name, const std::string& bytes, unsigned kind)
{
    ARMMsg_SessRscInd message;
    message.pszResourceName = name;
    message.nLength = static_cast<std::uint32_t>(bytes.size());
    message.pData = reinterpret_cast<const unsigned char*>(bytes.data());
    message.nKind = kind;
    return message;
}

std::string TextUnit(const std::string& text, unsigned from = kOtherSender, short flag = 0)
{
    return BuildDataUnitEnvelope(from, 0, flag, text);
}

void GivePanel(CNoteClient& client)
{
    void* panel = nullptr;
    CreateUI(&panel, nullptr, &client);
    client.SetPanel(panel);
}

std::string PanelText(CNoteClient& client)
{
    NoteViewController* panel = static_cast<NoteViewController*>(client.GetPanel());
    return panel ? panel->View().Text() : std::string();
}

size_t RegistryEntriesOf(const CNoteClient& client)
{
    return static_cast<size_t>(std::count_if(g_aApeCltMap.begin(), g_aApeCltMap.end(),
                                              [&](const tagApeCltMap* e) { return e->pClient == &client; }));
}

// A client on a scripted service with a headless panel; the loop is the test's.
class ClientCoreTest : public ::testing::Test {
protected:
    CManualRunLoop m_loop{1000.0};
    CRunLoopScope m_scope{m_loop};
    CClientTraceCapture m_trace;
};

// --- construction

TEST_F(ClientCoreTest, ConstructionSetsEveryDefaultAndInstallsTheTick)
{
    CNoteClient client;
    EXPECT_EQ(client.m_pArmService, nullptr);
    EXPECT_EQ(client.m_nUserType, 0u);
    EXPECT_EQ(client.m_nUserId, 0u);
    EXPECT_EQ(client.m_nResourceId, 0u);
    EXPECT_EQ(client.m_nApeUserId, 0u);
    EXPECT_EQ(client.m_conferenceHandle, 0u);
    EXPECT_EQ(client.m_sessionHandle, 0u);
    EXPECT_EQ(client.m_pHostSink, nullptr);
    EXPECT_FALSE(client.m_bFileLoaded);
    EXPECT_FALSE(client.m_bNeedSendAll);
    EXPECT_EQ(client.m_nLastCacheId, 0u);
    EXPECT_EQ(client.m_nCacheCount, 0u);
    EXPECT_EQ(client.m_nSaveCacheHandle, 0u);
    EXPECT_TRUE(std::all_of(std::begin(client.m_szChangeCacheName), std::end(client.m_szChangeCacheName),
                            [](char c) { return c == 0; }));
    EXPECT_EQ(client.m_nChangeCacheHandle, 0u);
    EXPECT_TRUE(client.m_SaveInfo.m_vecChangeInfoPdu.empty());
    EXPECT_TRUE(client.m_aBlocks.empty());
    EXPECT_EQ(client.m_nNotePadType, 0u);
    EXPECT_EQ(client.m_bSelfChange, 0u);
    EXPECT_EQ(client.m_bStopSubscribe, 0u);
    EXPECT_EQ(client.m_pUI, nullptr);
    EXPECT_EQ(client.m_pParent, nullptr);
    EXPECT_EQ(client.m_bFileNeedSave, 0);
    EXPECT_EQ(client.m_bAlive, 1u);
    EXPECT_EQ(client.m_bNeedAutoSave, 0u);
    EXPECT_TRUE(client.m_strAutoSavePath.empty() && client.m_strSaveFileName.empty());
    EXPECT_TRUE(client.m_strOldMsg.empty() && client.m_strShowMsg.empty() && client.m_strPublishMsg.empty());
    EXPECT_EQ(client.m_bLastWasChange, 1u);
    EXPECT_EQ(client.m_bSavedBefore, 0u);
    EXPECT_EQ(client.m_bHasContent, 0u);
    EXPECT_TRUE(client.m_aNetInfo.empty());
    EXPECT_EQ(client.m_nMaxTextLen, 81920u);
    ASSERT_EQ(client.m_nTextBufSize, 491521u);
    ASSERT_NE(client.m_pTextBuf, nullptr);
    EXPECT_TRUE(std::all_of(client.m_pTextBuf, client.m_pTextBuf + client.m_nTextBufSize,
                            [](char c) { return c == 0; }));
    EXPECT_TRUE(client.IsTimerInstalled());
    EXPECT_EQ(m_loop.TimerCount(), 1u);
}

TEST_F(ClientCoreTest, ResetNetInfoFreesAndEmptiesSkippingNullEntries)
{
    CNoteClient client;
    client.m_aNetInfo.push_back(new char[4]{'a', 'b', 'c', 0});
    client.m_aNetInfo.push_back(nullptr);
    client.m_aNetInfo.push_back(new char[1]{0});
    client.ResetNetInfo();  // the sanitizer build sees a leak or a bad free
    EXPECT_TRUE(client.m_aNetInfo.empty());
    client.m_aNetInfo.push_back(new char[2]{'x', 0});  // the destructor frees what is left
}

// --- Initialize

TEST_F(ClientCoreTest, InitializeCopiesTheRecordConnectsAndRegisters)
{
    CScriptedArmService service;
    CRecordingHostSink sink;
    {
        CNoteClient client;
        _tagNoteData data = NoteData(&service, &sink);
        data.pszHostText1 = "alpha";
        data.pszHostText2 = "beta";
        const size_t before = g_aApeCltMap.size();
        client.Initialize(data);

        EXPECT_EQ(client.m_pArmService, &service);
        EXPECT_EQ(client.m_pHostSink, &sink);
        EXPECT_EQ(client.m_conferenceHandle, kConference);
        EXPECT_EQ(client.m_sessionHandle, kSession);
        EXPECT_EQ(client.m_nUserId, kUserId);
        EXPECT_EQ(client.m_strHostText1, "alpha");
        EXPECT_EQ(client.m_strHostText2, "beta");
        EXPECT_EQ(service.Take(), (std::vector<std::string>{"Connect '' 0 0 0", "RegisterRscCallBack 0"}));
        EXPECT_EQ(service.m_pNodeSink, static_cast<IArmNodeControllerSink*>(&client));
        EXPECT_EQ(service.m_pRscCallBack, &ArmRscCallBack);
        ASSERT_EQ(g_aApeCltMap.size(), before + 1);
        EXPECT_EQ(g_aApeCltMap.back()->nId, 0u);
        EXPECT_EQ(g_aApeCltMap.back()->pClient, &client);
        EXPECT_EQ(m_trace.Count("CATNoteClient::Initialize"), 1);
    }
    EXPECT_EQ(service.Take(), (std::vector<std::string>{"Leave 0 5", "Disconnect 1", "Release"}));
}

TEST_F(ClientCoreTest, InitializeKeepsAServiceAlreadySetAndIgnoresEmptyHostTexts)
{
    CScriptedArmService first;
    CScriptedArmService second;
    CNoteClient client;
    client.m_pArmService = &first;
    client.m_strHostText1 = "kept";
    client.m_strHostText2 = "kept too";
    _tagNoteData data = NoteData(&second);
    data.pszHostText1 = "";
    data.pszHostText2 = nullptr;
    client.Initialize(data);
    EXPECT_EQ(client.m_pArmService, &first);
    EXPECT_EQ(first.m_vecCalls.size(), 2u);
    EXPECT_TRUE(second.m_vecCalls.empty());
    EXPECT_EQ(client.m_strHostText1, "kept");
    EXPECT_EQ(client.m_strHostText2, "kept too");
}

TEST_F(ClientCoreTest, AlreadyConnectedAndJoinedHostAttachesInsideInitializeBeforeRegistering)
{
    CScriptedArmService service;
    service.m_nConnectResult = ARM_ALREADY_CONNECTED;
    service.m_nJoinResult = ARM_ALREADY_JOINED;
    service.m_nAttachIdToWrite = 9;
    CNoteClient client;
    _tagNoteData data = NoteData(&service);
    client.Initialize(data);
    EXPECT_EQ(service.Take(), (std::vector<std::string>{"Connect '' 0 0 0", "Join 0 5 3", "Attach 0 5",
                                                        "RegisterRscCallBack 9"}));
    EXPECT_EQ(client.m_nApeUserId, 9u);
    ASSERT_FALSE(g_aApeCltMap.empty());
    EXPECT_EQ(g_aApeCltMap.back()->nId, 9u);
}

TEST_F(ClientCoreTest, DestroyingAClientThatNeverAttachedStillLeavesAndDisconnects)
{
    CScriptedArmService service;
    auto client = std::make_unique<CNoteClient>();
    _tagNoteData data = NoteData(&service);
    client->Initialize(data);
    ASSERT_EQ(RegistryEntriesOf(*client), 1u);
    service.Take();
    const CNoteClient* gone = client.get();
    const IArmConferenceSink* conferenceSink = client.get();
    const IArmNodeControllerSink* nodeSink = client.get();
    client.reset();
    EXPECT_EQ(service.Take(), (std::vector<std::string>{"Leave 0 5", "Disconnect 1", "Release"}));
    EXPECT_EQ(service.m_pLeaveSink, conferenceSink);
    EXPECT_EQ(service.m_pDisconnectSink, nodeSink);
    EXPECT_EQ(std::count_if(g_aApeCltMap.begin(), g_aApeCltMap.end(),
                            [&](const tagApeCltMap* e) { return e->pClient == gone; }),
              0);
    EXPECT_EQ(m_loop.TimerCount(), 0u);
}

TEST_F(ClientCoreTest, DestroyingAnAttachedClientDetachesFirst)
{
    CScriptedArmService service;
    auto client = std::make_unique<CNoteClient>();
    _tagNoteData data = NoteData(&service);
    client->Initialize(data);
    client->ApeAttachConfirm(12, 0, 0);
    GivePanel(*client);
    service.Take();
    client.reset();
    EXPECT_EQ(service.Take(),
              (std::vector<std::string>{"Detach 12", "Leave 0 5", "Disconnect 1", "Release"}));
}

TEST_F(ClientCoreTest, EachInitializeAddsAnEntryAndTheDestructorLeavesNoneBehind)
{
    CScriptedArmService service;
    auto client = std::make_unique<CNoteClient>();
    _tagNoteData data = NoteData(&service);
    client->Initialize(data);
    client->Initialize(data);
    EXPECT_EQ(RegistryEntriesOf(*client), 2u);
    const CNoteClient* gone = client.get();
    client.reset();
    EXPECT_EQ(std::count_if(g_aApeCltMap.begin(), g_aApeCltMap.end(),
                            [&](const tagApeCltMap* e) { return e->pClient == gone; }),
              0);
    // A message for the id now finds nobody.
    const std::string unit = TextUnit("late");
    ARMMsg_SessRscInd message = Message("NoteTake", unit, 0);
    EXPECT_EQ(ArmRscCallBack(0, ARM_MSG_SESS_RSC_IND, &message), 0);
}

// --- the registry and the routing of resource messages

class ClientRegistry : public ClientCoreTest {
protected:
    void SetUp() override
    {
        for (int i = 0; i < 2; ++i) {
            m_clients[i].reset(new CNoteClient);
            _tagNoteData data = NoteData(&m_services[i]);
            m_clients[i]->Initialize(data);
            GivePanel(*m_clients[i]);
        }
    }
    void TearDown() override
    {
        for (auto& client : m_clients) client.reset();
    }

    int Send(unsigned id, const char* name, unsigned kind, const std::string& text = "routed", int type = 1)
    {
        const std::string unit = TextUnit(text);
        ARMMsg_SessRscInd message = Message(name, unit, kind);
        return ArmRscCallBack(id, static_cast<ARMMsgType>(type), &message);
    }

    CScriptedArmService m_services[2];
    std::unique_ptr<CNoteClient> m_clients[2];
};

TEST_F(ClientRegistry, TwoClientsUnderOneIdTheFirstRegisteredGetsTheMessage)
{
    EXPECT_EQ(Send(0, "NoteTake", 0, "for the first"), 0);
    EXPECT_EQ(PanelText(*m_clients[0]), "for the first");
    EXPECT_EQ(m_clients[0]->m_bLastWasChange, 0u);
    EXPECT_EQ(PanelText(*m_clients[1]), "");
    EXPECT_EQ(m_clients[1]->m_bLastWasChange, 1u);

    // Once the first is gone, the second is the first entry under the id.
    m_clients[0].reset();
    Send(0, "NoteTake", 0, "for the second");
    EXPECT_EQ(PanelText(*m_clients[1]), "for the second");
}

TEST_F(ClientRegistry, BothResourceNamesReachTheSameHandlerAndTheKindSelectsTheAction)
{
    struct Case {
        const char* name;
        unsigned kind;
        unsigned lastWasChange;
        const char* text;  // the panel's text afterwards
    } cases[] = {
        {"ClosedCaption", 0, 0, "k0"}, {"NoteTake", 1, 1, "k0"}, {"NoteTake", 2, 0, "k2"},
        {"ClosedCaption", 1, 1, "k2"}, {"ClosedCaption", 3, 0, "k3"}, {"NoteTake", 4, 0, "k3"},
        {"NoteTake", 77, 0, "k3"},
    };
    CNoteClient& client = *m_clients[0];
    for (const Case& c : cases) {
        Send(0, c.name, c.kind, "k" + std::to_string(c.kind));
        EXPECT_EQ(client.m_bLastWasChange, c.lastWasChange) << c.name << " kind " << c.kind;
        EXPECT_EQ(PanelText(client), c.text) << c.name << " kind " << c.kind;
    }
}

TEST_F(ClientRegistry, AChangeIndicationWhileAnOwnChangeIsOutstandingChangesNothing)
{
    CNoteClient& client = *m_clients[0];
    Send(0, "NoteTake", 0, "text");
    ASSERT_EQ(client.m_bLastWasChange, 0u);
    client.m_bSelfChange = 1;
    Send(0, "NoteTake", 1);
    EXPECT_EQ(client.m_bLastWasChange, 0u);
    EXPECT_EQ(client.m_bSelfChange, 1u);
    client.m_bSelfChange = 0;
    Send(0, "ClosedCaption", 1);
    EXPECT_EQ(client.m_bLastWasChange, 1u);
}

TEST_F(ClientRegistry, MessagesForNobodyOfAnotherTypeOrNameAreDropped)
{
    EXPECT_EQ(ArmRscCallBack(0, ARM_MSG_SESS_RSC_IND, nullptr), 1);
    EXPECT_EQ(Send(0, "NoteTake", 0, "wrong type", 2), 0);
    EXPECT_EQ(Send(0, "NoteTake", 0, "wrong type", 0), 0);
    EXPECT_EQ(Send(3, "NoteTake", 0, "unregistered id"), 0);
    for (const char* name : {"notetake", "NoteTak", "NoteTakeX", "ClosedCaptions", "Closed", "", "NOTETAKE"})
        EXPECT_EQ(Send(0, name, 0, name), 0) << name;
    const std::string unit = TextUnit("no name");
    ARMMsg_SessRscInd message = Message(nullptr, unit, 0);
    EXPECT_EQ(ArmRscCallBack(0, ARM_MSG_SESS_RSC_IND, &message), 0);

    for (auto& client : m_clients) {
        EXPECT_EQ(PanelText(*client), "");
        EXPECT_EQ(client->m_bLastWasChange, 1u);
    }
}

// --- the non-PKI resource path under hostile payloads

TEST_F(ClientRegistry, MalformedWholeTextPayloadsNeitherCrashNorWipeTheNote)
{
    CNoteClient& client = *m_clients[0];
    Send(0, "NoteTake", 0, "keep me");
    ASSERT_EQ(PanelText(client), "keep me");

    std::string header = TextUnit("0123456789");
    std::vector<std::string> payloads = {
        "",
        "ab",
        header.substr(0, 13),                                  // shorter than a header
        header.substr(0, 20),                                  // length field beyond the bytes
        std::string(14, '\xff'),                               // negative length, sender -1 rejected
        TextUnit("x").replace(8, 4, "\xff\xff\xff\x7f", 4),    // length INT_MAX
        TextUnit("x").replace(8, 4, "\x00\x00\x00\x80", 4),    // length INT_MIN
        TextUnit("", 0),                                       // a well-formed unit from sender 0
    };
    for (size_t i = 0; i < payloads.size(); ++i) {
        ARMMsg_SessRscInd message = Message("NoteTake", payloads[i], 0);
        EXPECT_EQ(client.Handle_ArmMsg_SessRscInd(&message), 0) << i;
        EXPECT_EQ(PanelText(client), "keep me") << "payload " << i;
    }

    ARMMsg_SessRscInd nothing = Message("NoteTake", "", 0);
    nothing.pData = nullptr;
    nothing.nLength = 1000;
    EXPECT_EQ(client.Handle_ArmMsg_SessRscInd(&nothing), 0);
    EXPECT_EQ(client.Handle_ArmMsg_SessRscInd(nullptr), 1);

    // Random bytes of every small size: whatever they parse to, nothing reads out of bounds.
    std::mt19937 random(20240611u);
    for (size_t size = 0; size < 300; ++size) {
        std::string garbage(size, '\0');
        for (char& c : garbage) c = static_cast<char>(random() & 0xff);
        for (unsigned kind : {0u, 1u, 2u}) {
            ARMMsg_SessRscInd message = Message("ClosedCaption", garbage, kind);
            EXPECT_EQ(client.Handle_ArmMsg_SessRscInd(&message), 0);
        }
    }
}

}  // namespace
