// The conference handshake, step by step on a scripted service: exact arguments, results that
// select the next step, the cache name, name-handle confirms, put confirms, subscription and the
// PKI query.
#include "ScriptedArmService.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr unsigned kAttachId = 21;
constexpr unsigned kCacheHandle = 44;
const char kSubscribe[] = "Subscribe 21 44 0 3 255";

class ClientHandshakeSteps : public ScriptedClientTest {
protected:
    // The client attached as kAttachId with the change cache kCacheHandle.
    void Attached()
    {
        m_client->m_nApeUserId = kAttachId;
        m_client->m_nChangeCacheHandle = kCacheHandle;
    }
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
    };
    for (const Case& c : cases) {
        m_service.m_nJoinResult = c.joinResult;
        EXPECT_EQ(m_client->ConnectConfirm(c.result, 0), 0);
        EXPECT_EQ(m_service.Take(), c.calls) << "result " << c.result;
    }
}

TEST_F(ClientHandshakeSteps, OnlyASuccessfulJoinAttachesWithTheConferenceHandleIn16Bits)
{
    EXPECT_EQ(m_client->ConferenceJoinConfirm(5, nullptr, 1, 0), 0);
    EXPECT_TRUE(m_service.Take().empty());

    m_client->m_conferenceHandle = 0x10005;
    m_service.m_nAttachIdToWrite = 33;
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
    const std::uint64_t value = m_service.m_capability.nValue;
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(m_service.m_strCapabilityKey, "c_session_id");
    EXPECT_EQ(value, 1u);
    EXPECT_EQ(m_service.m_strEnrollValue, std::string("U4711\x01"));
    m_client->m_nUserId = 4294967295u;
    EXPECT_TRUE(m_client->Enroll());
    EXPECT_EQ(m_service.m_strEnrollValue, "U4294967295\x01");
    m_service.m_nEnrollResult = 1;
    EXPECT_FALSE(m_client->Enroll());
}

TEST_F(ClientHandshakeSteps, TheEnrolConfirmNamesTheCacheByTheFirstResource)
{
    ARMSessionResource resources[2] = {{1, 2, 3, 4, 305}, {1, 2, 3, 4, 999}};
    struct Case {
        const char* what;
        short result, count;
        ARMSessionResource* resources;
        unsigned resourceId;  // afterwards, from 77
        std::vector<std::string> calls;
    } cases[] = {
        {"failed", 3, 1, resources, 77, {}},
        {"two records", 0, 2, resources, 305,
         {"RegisterResources 21 2", "AllocNameHandles 21 1 note_changeinfo_cache_305 0"}},
        {"no records", 0, 0, nullptr, 77, {"RegisterResources 21 0", "AllocNameHandles 21 1 note_changeinfo_cache_77 0"}},
        {"a count without records", 0, 1, nullptr, 77,
         {"RegisterResources 21 1", "AllocNameHandles 21 1 note_changeinfo_cache_77 0"}},
        {"a negative count", 0, -1, resources + 1, 77,
         {"RegisterResources 21 4294967295", "AllocNameHandles 21 1 note_changeinfo_cache_77 0"}},
    };
    m_client->m_nApeUserId = kAttachId;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        m_client->m_nResourceId = 77;
        m_client->m_bWaitEnroll = 1;
        m_client->m_nChangeCacheHandle = kCacheHandle;
        EXPECT_EQ(m_client->ApeEnrollConfirm(kAttachId, c.result, c.count, c.resources), 0);
        EXPECT_EQ(m_service.Take(), c.calls);
        EXPECT_EQ(m_client->m_nResourceId, c.resourceId);
        EXPECT_EQ(m_client->m_bWaitEnroll, c.result ? 1u : 0u);
        // Asking for the name handle forgets the old one until the confirm.
        EXPECT_EQ(m_client->m_nChangeCacheHandle, c.result ? kCacheHandle : 0u);
    }
    EXPECT_FALSE(m_client->m_bFileLoaded);  // no auto-save file
    EXPECT_EQ(m_client->m_nCacheCount, 1u);
    // The request's 64 name bytes are zero after the text.
    EXPECT_EQ(m_service.m_strAllocName, "note_changeinfo_cache_77" + std::string(64 - 24, '\0'));
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
    std::strcpy(names[1].szName, "note_changeinfo_cache_306");
    names[1].nHandle = 55;
    NameHandles* other = names + 1;
    EXPECT_EQ(m_client->AllocNameHandleConfirm(kAttachId, 2, names, 0), 0);  // count differs
    EXPECT_EQ(m_client->AllocNameHandleConfirm(kAttachId, 1, other, 0), 1);
    EXPECT_EQ(m_client->m_nChangeCacheHandle, 0u);
    EXPECT_TRUE(m_service.Take().empty());

    EXPECT_EQ(m_client->AllocNameHandleConfirm(kAttachId, 1, names, 0), 1);
    EXPECT_EQ(m_client->m_nChangeCacheHandle, kCacheHandle);
    EXPECT_EQ(m_service.Take(), (std::vector<std::string>{kSubscribe}));

    // Another name with a handle held already: the subscription is issued again.
    EXPECT_EQ(m_client->AllocNameHandleConfirm(kAttachId, 1, other, 0), 1);
    EXPECT_EQ(m_service.Take(), (std::vector<std::string>{kSubscribe}));

    // A name filling all 64 bytes without a terminator, and no records at all.
    std::memset(other->szName, 'x', sizeof other->szName);
    EXPECT_EQ(m_client->AllocNameHandleConfirm(kAttachId, 1, other, 0), 1);
    EXPECT_EQ(m_client->AllocNameHandleConfirm(kAttachId, 1, nullptr, 0), 1);
    EXPECT_EQ(m_client->m_nChangeCacheHandle, kCacheHandle);
}

TEST_F(ClientHandshakeSteps, OnlyAStoredItemOfTheChangeOrSaveCacheMarksTheDocumentForAutoSave)
{
    Attached();
    m_client->m_nSaveCacheHandle = 9;
    ViewOf(*m_client).SetText("line one\nline two");
    struct Case {
        unsigned attachId, cacheHandle;
        int action;
        short result;
        int returned;
        unsigned needAutoSave;
    } cases[] = {
        {0, kCacheHandle, 1, 0, 1, 0},         {kAttachId, 0, 1, 0, 1, 0},         {kAttachId, kCacheHandle, 1, 0, 0, 1},
        {kAttachId, kCacheHandle, 2, 0, 0, 1}, {kAttachId, kCacheHandle, 1, 19, 0, 0},
        {kAttachId, kCacheHandle, 0, 0, 0, 0}, {kAttachId, kCacheHandle, 3, 0, 0, 0},
        {kAttachId, kCacheHandle, 6, 0, 0, 0}, {kAttachId, 45, 1, 0, 0, 0},
        {kAttachId, 9, 2, 0, 0, 1},            {kAttachId, 9, 1, 19, 0, 0},        {kAttachId, 9, 5, 0, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE("cache " + std::to_string(c.cacheHandle) + " action " + std::to_string(c.action) + " result " +
                     std::to_string(c.result));
        m_client->m_bNeedAutoSave = 0;
        m_client->m_strPublishMsg = "old";
        EXPECT_EQ(m_client->ApeCacheActionConfirmEx(c.attachId, c.cacheHandle, static_cast<tagCacheAction>(c.action),
                                                    1, 0, c.result),
                  c.returned);
        EXPECT_EQ(m_client->m_bNeedAutoSave, c.needAutoSave);
        // A stored item's text is the panel's, now published.
        EXPECT_EQ(m_client->m_strPublishMsg, c.needAutoSave ? "line one\r\nline two" : "old");
    }
}

TEST_F(ClientHandshakeSteps, CachePutsAndSubscriptionsCarryTheirFixedArguments)
{
    m_client->RequestAllNoteData();        // no attach id yet
    m_client->CheckNoteCacheStatus();      // no handle yet
    m_client->SubscribeChangeNoteCache();  // no attach id yet
    EXPECT_TRUE(m_service.Take().empty());

    Attached();
    m_client->SetAllCaches();
    m_client->RequestAllNoteData();
    m_client->CheckNoteCacheStatus();
    m_client->SubscribeChangeNoteCache();
    EXPECT_EQ(m_service.Take(), (std::vector<std::string>{"Put 21 44 0 0 0 0x1000000 0 0 1", kSubscribe, kSubscribe,
                                                          kSubscribe}));

    m_client->m_bStopSubscribe = 1;
    m_client->SubscribeChangeNoteCache();
    EXPECT_TRUE(m_service.Take().empty());
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
    EXPECT_EQ(m_service.m_nQueriedHandle, kScriptedConference);

    CNoteClient serviceless;
    EXPECT_FALSE(serviceless.IsPKIMeeting());
    serviceless.SetAllCaches();
    serviceless.AllocAllCacheHandles();
    EXPECT_FALSE(serviceless.Enroll());
}

}  // namespace
