// The client core: Initialize, teardown, the instance registry and the routing of resource
// messages, and the non-PKI resource path under hostile payloads.
#include "ScriptedArmService.h"

#include "conference/DataUnits.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

std::string TextUnit(const std::string& text, unsigned from = 33)
{
    return BuildDataUnitEnvelope(from, 0, 0, text);
}

long RegistryEntriesOf(const CNoteClient* client)
{
    return std::count_if(g_aApeCltMap.begin(), g_aApeCltMap.end(),
                         [&](const tagApeCltMap* e) { return e->pClient == client; });
}

using ClientCore = ScriptedClientTest;

TEST_F(ClientCore, InitializeConnectsAndRegistersOncePerCall)
{
    CScriptedArmService service;
    const size_t before = g_aApeCltMap.size();
    std::unique_ptr<CNoteClient> client = NewScriptedClient(service, &m_sink);
    EXPECT_EQ(service.Take(), (std::vector<std::string>{"Connect '' 0 0 0", "RegisterRscCallBack 0"}));
    ASSERT_EQ(g_aApeCltMap.size(), before + 1);
    EXPECT_EQ(g_aApeCltMap.back()->nId, 0u);
    EXPECT_EQ(g_aApeCltMap.back()->pClient, client.get());

    // Initialized again: the service already set stays, and empty host texts change nothing.
    CScriptedArmService second;
    _tagNoteData data = ScriptedNoteData(&second);
    data.pszHostText1 = "alpha";
    data.pszHostText2 = "beta";
    client->Initialize(data);
    data.pszHostText1 = "";
    data.pszHostText2 = nullptr;
    client->Initialize(data);
    EXPECT_EQ(client->m_pArmService, &service);
    EXPECT_TRUE(second.m_vecCalls.empty());
    EXPECT_EQ(client->m_strHostText1, "alpha");
    EXPECT_EQ(client->m_strHostText2, "beta");
    EXPECT_EQ(RegistryEntriesOf(client.get()), 3);

    // The destructor leaves none of its entries behind.
    const CNoteClient* gone = client.get();
    client.reset();
    EXPECT_EQ(RegistryEntriesOf(gone), 0);
}

TEST_F(ClientCore, TeardownDetachesIfAttachedThenLeavesDisconnectsAndStopsTheTick)
{
    for (unsigned attachId : {0u, 12u}) {
        SCOPED_TRACE(attachId);
        CScriptedArmService service;
        std::unique_ptr<CNoteClient> client = NewScriptedClient(service);
        if (attachId) client->ApeAttachConfirm(attachId, 0, 0);
        service.Take();
        const size_t timers = m_loop.TimerCount();
        client.reset();
        std::vector<std::string> expected = {"Leave 0 5", "Disconnect 1", "Release"};
        if (attachId) expected.insert(expected.begin(), "Detach 12");
        EXPECT_EQ(service.Take(), expected);
        EXPECT_EQ(m_loop.TimerCount(), timers - 1);
    }
}

TEST_F(ClientCore, AlreadyConnectedAndJoinedHostAttachesInsideInitializeBeforeRegistering)
{
    CScriptedArmService service;
    service.m_nConnectResult = ARM_ALREADY_CONNECTED;
    service.m_nJoinResult = ARM_ALREADY_JOINED;
    service.m_nAttachIdToWrite = 9;
    std::unique_ptr<CNoteClient> client = NewScriptedClient(service);
    EXPECT_EQ(service.Take(), (std::vector<std::string>{"Connect '' 0 0 0", "Join 0 5 3", "Attach 0 5",
                                                        "RegisterRscCallBack 9"}));
    EXPECT_EQ(client->m_nApeUserId, 9u);
    ASSERT_FALSE(g_aApeCltMap.empty());
    EXPECT_EQ(g_aApeCltMap.back()->nId, 9u);
}

// --- the registry and the routing of resource messages

// Two clients registered under attach id 0 (neither attached): m_client first.
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
        const std::string unit = TextUnit(text);
        ARMMsg_SessRscInd message = ResourceMessage(unit, kind, name);
        return ArmRscCallBack(id, static_cast<ARMMsgType>(type), &message);
    }

    CScriptedArmService m_secondService;
    std::unique_ptr<CNoteClient> m_second;
};

TEST_F(ClientRegistry, TwoClientsUnderOneIdTheFirstRegisteredGetsTheMessage)
{
    EXPECT_EQ(Send(0, "NoteTake", 0, "for the first"), 0);
    EXPECT_EQ(ViewOf(*m_client).Text(), "for the first");
    EXPECT_EQ(ViewOf(*m_second).Text(), "");
    EXPECT_EQ(m_second->m_bLastWasChange, 1u);

    // Once the first is gone, the second is the first entry under the id.
    m_client.reset();
    Send(0, "NoteTake", 0, "for the second");
    EXPECT_EQ(ViewOf(*m_second).Text(), "for the second");
}

TEST_F(ClientRegistry, BothResourceNamesReachTheHandlerAndTheKindSelectsTheAction)
{
    struct Case {
        const char* name;
        unsigned kind;
        unsigned selfChange;  // an own change outstanding
        unsigned lastWasChange;
        const char* text;  // the panel's text afterwards
    } cases[] = {
        {"ClosedCaption", 0, 0, 0, "k0"}, {"NoteTake", 1, 1, 0, "k0"},      {"NoteTake", 1, 0, 1, "k0"},
        {"NoteTake", 2, 0, 0, "k2"},      {"ClosedCaption", 1, 0, 1, "k2"}, {"ClosedCaption", 3, 0, 0, "k3"},
        {"NoteTake", 4, 0, 0, "k3"},      {"NoteTake", 77, 0, 0, "k3"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.name) + " kind " + std::to_string(c.kind));
        m_client->m_bSelfChange = c.selfChange;
        Send(0, c.name, c.kind, "k" + std::to_string(c.kind));
        EXPECT_EQ(m_client->m_bLastWasChange, c.lastWasChange);
        EXPECT_EQ(m_client->m_bSelfChange, c.selfChange);
        EXPECT_EQ(ViewOf(*m_client).Text(), c.text);
    }
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
    ARMMsg_SessRscInd message = ResourceMessage(unit, 0, nullptr);
    EXPECT_EQ(ArmRscCallBack(0, ARM_MSG_SESS_RSC_IND, &message), 0);

    for (CNoteClient* client : {m_client.get(), m_second.get()}) {
        EXPECT_EQ(ViewOf(*client).Text(), "");
        EXPECT_EQ(client->m_bLastWasChange, 1u);
    }
}

// --- the non-PKI resource path under hostile payloads

TEST_F(ClientRegistry, MalformedWholeTextPayloadsNeitherCrashNorWipeTheNote)
{
    CNoteClient& client = *m_client;
    Send(0, "NoteTake", 0, "keep me");
    ASSERT_EQ(ViewOf(client).Text(), "keep me");

    std::string header = TextUnit("0123456789");
    std::vector<std::string> payloads = {
        "",
        "ab",
        header.substr(0, 13),                                // shorter than a header
        header.substr(0, 20),                                // length field beyond the bytes
        std::string(14, '\xff'),                             // negative length, sender -1 rejected
        TextUnit("x").replace(8, 4, "\xff\xff\xff\x7f", 4),  // length INT_MAX
        TextUnit("x").replace(8, 4, "\x00\x00\x00\x80", 4),  // length INT_MIN
        TextUnit("", 0),                                     // a well-formed unit from sender 0
    };
    for (size_t i = 0; i < payloads.size(); ++i) {
        ARMMsg_SessRscInd message = ResourceMessage(payloads[i]);
        EXPECT_EQ(client.Handle_ArmMsg_SessRscInd(&message), 0) << i;
        EXPECT_EQ(ViewOf(client).Text(), "keep me") << "payload " << i;
    }

    ARMMsg_SessRscInd nothing = ResourceMessage("");
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
            ARMMsg_SessRscInd message = ResourceMessage(garbage, kind, "ClosedCaption");
            EXPECT_EQ(client.Handle_ArmMsg_SessRscInd(&message), 0);
        }
    }
}

}  // namespace
