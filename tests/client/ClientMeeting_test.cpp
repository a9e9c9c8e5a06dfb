// Meeting loss: the time-stamped service notices of the captions notepad, the auto-save of
// every notepad, and the host's kind 5.
#include "ClientHarness.h"
#include "ClientTempDir.h"

#include "platform/LoadLocalizedString.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// The time the fixed clock reports.
int g_nHour = 9;
int g_nMinute = 30;

void FixedClock(int* hour, int* minute)
{
    *hour = g_nHour;
    *minute = g_nMinute;
}

// The notices as the client looks them up.
std::string Lost()
{
    return GetLocalizedString(
        "Closed Captions is currently unavailable. Service will be restored as soon as possible.",
        kTessarinNoteBundleId, nullptr);
}
std::string Restored() { return GetLocalizedString("Service restored.", kTessarinNoteBundleId, nullptr); }

class MeetingTest : public ::testing::Test {
protected:
    MeetingTest()
    {
        g_nHour = 9;
        g_nMinute = 30;
    }
    void SetUp() override { ASSERT_TRUE(m_dir.Ok()); }
    // A writer of type whose auto-save file is m_dir's auto.xml.
    CNoteClient& Join(NOTETAKERTYPE type)
    {
        CNoteClient& client = m_harness.Join(1, type, NOTE_USER_WRITER);
        client.m_pfnNoticeClock = &FixedClock;
        client.m_strAutoSavePath = m_dir.File("auto.xml");
        return client;
    }

    CClientTempDir m_dir;
    CClientHarness m_harness;
};

// Deliberately noon is written with am, and midnight as 00.
TEST_F(MeetingTest, StampWritesNoonAsAmAndMidnightAsZero)
{
    struct SCase {
        int hour, minute;
        const char* stamp;
    };
    const SCase cases[] = {
        {0, 5, "00:05am "}, {9, 30, "09:30am "}, {12, 15, "12:15am "}, {13, 0, "01:00pm "}, {23, 59, "11:59pm "},
    };
    CNoteClient& client = Join(NOTETAKER_CLOSED_CAPTIONS);
    for (const SCase& c : cases) {
        g_nHour = c.hour;
        g_nMinute = c.minute;
        client.MeetingLost(1);
        ASSERT_FALSE(client.m_aNetInfo.empty());
        EXPECT_EQ(c.stamp + Lost(), std::string(client.m_aNetInfo.back()));
    }
}

TEST_F(MeetingTest, LossThenRestoreLeavesTwoNoticeLines)
{
    CNoteClient& client = Join(NOTETAKER_CLOSED_CAPTIONS);
    ViewOf(client).SetText("Hello");
    client.MeetingLost(1);
    EXPECT_EQ("Hello", client.m_strShowMsg);  // the text as it was before the notice
    g_nHour = 14;
    g_nMinute = 2;
    client.MeetingLost(0);

    const std::string lostLine = "09:30am " + Lost();
    const std::string restoredLine = "02:02pm " + Restored();
    EXPECT_EQ("Hello\n" + lostLine + "\n\n" + restoredLine + "\n", m_harness.PanelText(client));
    EXPECT_EQ((std::vector<std::string>{lostLine, restoredLine}), NetInfo(client));
    EXPECT_EQ("Hello\r\n" + lostLine + "\r\n", client.m_strShowMsg);
    EXPECT_EQ(0u, client.m_bSelfChange);
}

TEST_F(MeetingTest, EveryNotepadIsAutoSavedOnlyCaptionsGetANotice)
{
    struct Case {
        NOTETAKERTYPE type;
        std::string saved;  // as the panel gave it
        std::vector<std::string> notices;
    } const cases[] = {
        {NOTETAKER_CLOSED_CAPTIONS, "my\r\nnotes\r\n09:30am " + Lost() + "\r\n", {"09:30am " + Lost()}},
        {NOTETAKER_ALL_PARTICIPANTS, "my\r\nnotes", {}},
        {NOTETAKER_SINGLE, "my\r\nnotes", {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.type);
        CNoteClient& client = Join(c.type);
        ViewOf(client).SetText("my\nnotes");
        // Captions need nothing else to save: the notice is a change of its own.
        client.m_bNeedAutoSave = c.type == NOTETAKER_CLOSED_CAPTIONS ? 0 : 1;
        client.MeetingLost(1);
        EXPECT_EQ(0u, client.m_bNeedAutoSave);
        EXPECT_EQ(c.notices, NetInfo(client));
        EXPECT_EQ("my\r\nnotes", client.m_strShowMsg);

        CNoteSaveInfoPDU record;
        ASSERT_TRUE(record.LoadFile(client.m_strAutoSavePath));
        ASSERT_TRUE(record.ParseXMLPDU());
        EXPECT_EQ(c.saved, record.GetNoteShowMsg());
        std::vector<std::string> saved(record.GetNetInfoCount_INT());
        for (size_t i = 0; i < saved.size(); ++i) record.GetNetInfo(static_cast<int>(i), saved[i]);
        EXPECT_EQ(c.notices, saved);
        m_harness.Leave(client);
    }
}

TEST_F(MeetingTest, KindFiveOnlyMarksTheClientsOwnChange)
{
    CNoteClient& client = Join(NOTETAKER_CLOSED_CAPTIONS);
    client.m_bNeedAutoSave = 1;
    client.m_bSelfChange = 0;
    ViewOf(client).SetText("a\nb");
    client.MeetingLost(5);
    EXPECT_EQ(1u, client.m_bSelfChange);
    EXPECT_EQ("a\r\nb", client.m_strShowMsg);
    EXPECT_EQ("a\nb", m_harness.PanelText(client));
    EXPECT_TRUE(client.m_aNetInfo.empty());
    EXPECT_EQ(1u, client.m_bNeedAutoSave);
    EXPECT_FALSE(CClientTempDir::Exists(client.m_strAutoSavePath));
}

TEST_F(MeetingTest, WithoutPanelTheNoteIsJustTheNotice)
{
    CNoteClient& client = Join(NOTETAKER_CLOSED_CAPTIONS);
    ViewOf(client).SetText("hidden");
    void* panel = client.GetPanel();
    client.SetPanel(nullptr);
    client.MeetingLost(1);
    client.SetPanel(panel);
    EXPECT_EQ("", client.m_strShowMsg);
    EXPECT_EQ((std::vector<std::string>{"09:30am " + Lost()}), NetInfo(client));
}

}  // namespace
