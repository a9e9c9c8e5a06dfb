// Meeting loss: the time-stamped service notices of the captions notepad, the auto-save of
// every notepad, and the host's kind 5.
#include "ClientHarness.h"
#include "ClientTempDir.h"
#include "panel/HeadlessTextView.h"
#include "panel/NoteViewController.h"
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

CHeadlessTextView& View(CNoteClient& client)
{
    return static_cast<CHeadlessTextView&>(static_cast<NoteViewController*>(client.GetPanel())->View());
}

class MeetingTest : public ::testing::Test {
protected:
    MeetingTest()
    {
        g_nHour = 9;
        g_nMinute = 30;
    }
    CNoteClient& Join(NOTETAKERTYPE type, unsigned userType = NOTE_USER_WRITER)
    {
        CNoteClient& client = m_harness.Join(1, type, userType);
        client.m_pfnNoticeClock = &FixedClock;
        return client;
    }

    CClientHarness m_harness;
};

TEST_F(MeetingTest, StampWritesNoonAsAmAndMidnightAsZero)
{
    struct SCase {
        int hour, minute;
        const char* stamp;
    };
    const SCase cases[] = {
        {0, 5, "00:05am "}, {9, 30, "09:30am "}, {12, 15, "12:15am "},
        {13, 0, "01:00pm "}, {23, 59, "11:59pm "},
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
    View(client).SetText("Hello");
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

TEST_F(MeetingTest, CaptionsNoticeIsAutoSaved)
{
    CClientTempDir dir;
    ASSERT_TRUE(dir.Ok());
    CNoteClient& client = Join(NOTETAKER_CLOSED_CAPTIONS);
    client.m_strAutoSavePath = dir.File("auto.xml");
    View(client).SetText("cap");
    client.MeetingLost(1);
    EXPECT_EQ(0u, client.m_bNeedAutoSave);

    CNoteSaveInfoPDU record;
    ASSERT_TRUE(record.LoadFile(client.m_strAutoSavePath));
    ASSERT_TRUE(record.ParseXMLPDU());
    EXPECT_EQ("cap\r\n09:30am " + Lost() + "\r\n", record.GetNoteShowMsg());  // as the panel gave it
    ASSERT_EQ(1, record.GetNetInfoCount_INT());
    std::string entry;
    record.GetNetInfo(0, entry);
    EXPECT_EQ("09:30am " + Lost(), entry);
}

TEST_F(MeetingTest, NoteTakingLossOnlyAutoSaves)
{
    for (NOTETAKERTYPE type : {NOTETAKER_ALL_PARTICIPANTS, NOTETAKER_SINGLE}) {
        CClientTempDir dir;
        ASSERT_TRUE(dir.Ok());
        CNoteClient& client = Join(type);
        client.m_strAutoSavePath = dir.File("auto.xml");
        View(client).SetText("my notes");
        client.m_bNeedAutoSave = 1;
        client.MeetingLost(1);
        EXPECT_EQ("my notes", m_harness.PanelText(client)) << type;
        EXPECT_TRUE(client.m_aNetInfo.empty()) << type;
        EXPECT_EQ(0u, client.m_bNeedAutoSave) << type;
        EXPECT_EQ("my notes", client.m_strShowMsg) << type;

        CNoteSaveInfoPDU record;
        ASSERT_TRUE(record.LoadFile(client.m_strAutoSavePath)) << type;
        ASSERT_TRUE(record.ParseXMLPDU()) << type;
        EXPECT_EQ("my notes", record.GetNoteShowMsg()) << type;
        m_harness.Leave(client);
    }
}

TEST_F(MeetingTest, KindFiveOnlyMarksTheClientsOwnChange)
{
    CClientTempDir dir;
    ASSERT_TRUE(dir.Ok());
    CNoteClient& client = Join(NOTETAKER_CLOSED_CAPTIONS);
    client.m_strAutoSavePath = dir.File("auto.xml");
    client.m_bNeedAutoSave = 1;
    client.m_bSelfChange = 0;
    View(client).SetText("a\nb");
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
    View(client).SetText("hidden");
    void* panel = client.GetPanel();
    client.SetPanel(nullptr);
    client.MeetingLost(1);
    client.SetPanel(panel);
    EXPECT_EQ("", client.m_strShowMsg);
    EXPECT_EQ((std::vector<std::string>{"09:30am " + Lost()}), NetInfo(client));
}

}  // namespace
