// Whole meetings through the loaded plug-in: a captioner and readers, one joining late.
#include "conference/LocalConference.h"
#include "loader/PluginParticipant.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

class PluginMeeting : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::string error;
        ASSERT_TRUE(m_plugin.Load(CNotePlugin::BuiltPath(), error)) << error;
    }
    std::unique_ptr<CPluginParticipant> Join(unsigned userId, NOTETAKERTYPE type, unsigned userType)
    {
        SParticipantSetup setup;
        setup.nUserId = userId;
        setup.notepadType = type;
        setup.nUserType = userType;
        auto participant = std::make_unique<CPluginParticipant>(m_plugin, *m_pMeeting, setup);
        PumpMainLoop(0.1);
        return participant;
    }

    CNotePlugin m_plugin;
    std::unique_ptr<IMeeting> m_pMeeting = NewLocalMeeting(CMeetingOptions());
};

TEST_F(PluginMeeting, CaptionsReachEveryReaderAndALateJoiner)
{
    auto captioner = Join(1, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_WRITER);
    auto reader = Join(2, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_READER);
    ASSERT_NE(nullptr, captioner->Panel());
    INoteHeadlessPanel& panel = *captioner->Panel();
    panel.Focus(true);
    for (const char* line : {"Good morning.", "Today: the budget."}) {
        ASSERT_TRUE(panel.Type(line));
        panel.PressReturn();
    }
    const std::string expected = "Good morning.\nToday: the budget.\n";
    EXPECT_EQ(expected, captioner->PanelText());
    EXPECT_TRUE(PumpMainLoopUntil([&] { return reader->PanelText() == expected; }, 5))
        << reader->PanelText();

    auto late = Join(3, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_READER);
    EXPECT_TRUE(PumpMainLoopUntil([&] { return late->PanelText() == expected; }, 5))
        << late->PanelText();
}

}  // namespace
