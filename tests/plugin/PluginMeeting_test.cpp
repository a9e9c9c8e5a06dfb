// Whole meetings through the loaded plug-in, from NoteNewInstance to NoteDeleteInstance.
#include "PluginFixture.h"

namespace {

using PluginMeeting = PluginTest;

TEST_P(PluginMeeting, CaptionsReachEveryReaderAndALateJoiner)
{
    auto captioner = Join(1, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_WRITER);
    auto reader = Join(2, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_READER);
    ASSERT_NE(nullptr, captioner->Panel());
    INoteHeadlessPanel& panel = *captioner->Panel();
    for (const char* line : {"Good morning.", "Today: the budget."}) {
        ASSERT_TRUE(panel.Type(line));
        panel.PressReturn();
    }
    const std::string lines = "Good morning.\nToday: the budget.\n";
    EXPECT_EQ(lines, captioner->PanelText());
    EXPECT_TRUE(Shows(*reader, lines)) << reader->PanelText();

    // Committed captions are on every screen: typing into them beeps and changes nothing.
    panel.Select(3, 0);
    EXPECT_FALSE(panel.Type("x"));
    EXPECT_FALSE(panel.DeleteBackward());
    EXPECT_EQ(2, panel.BeepCount());

    // Publish sends what was typed since; pressed again with nothing new it sends nothing.
    panel.Select(panel.Length(), 0);
    ASSERT_TRUE(panel.Type("Questions?"));
    PumpMainLoop(0.12);
    panel.ClickPublish();
    EXPECT_TRUE(Shows(*reader, lines + "Questions?"));
    PumpMainLoop(0.2);
    const std::vector<std::string> afterFirst = reader->HostSink().m_vecCalls;
    panel.ClickPublish();
    PumpMainLoop(0.3);
    EXPECT_EQ(afterFirst, reader->HostSink().m_vecCalls);

    // A reader's panel takes no typing; a late joiner catches up with everything.
    EXPECT_FALSE(reader->Panel()->Type("mine"));
    auto late = Join(3, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_READER);
    EXPECT_TRUE(Shows(*late, lines + "Questions?")) << late->PanelText();
}

TEST_P(PluginMeeting, ANoteTakerPublishesToTwoReaders)
{
    auto taker = Join(1, NOTETAKER_SINGLE, NOTE_USER_WRITER);
    auto first = Join(2, NOTETAKER_SINGLE, NOTE_USER_READER);
    auto second = Join(3, NOTETAKER_SINGLE, NOTE_USER_READER);
    INoteHeadlessPanel& panel = *taker->Panel();
    EXPECT_TRUE(first->Panel()->IsReadOnly());
    EXPECT_FALSE(first->Panel()->IsPublishVisible());
    EXPECT_FALSE(panel.IsReadOnly());

    ASSERT_TRUE(panel.Type("Agenda\n1. Budget"));
    // A person takes longer than the panel's tick to reach the button, which the tick enables.
    PumpMainLoop(0.12);
    EXPECT_EQ(1, m_plugin.NoteConfig(taker->Instance(), 2, 0, 0, nullptr));
    EXPECT_EQ(0, m_plugin.NoteConfig(first->Instance(), 2, 0, 0, nullptr));
    panel.ClickPublish();
    for (auto* reader : {first.get(), second.get()})
        EXPECT_TRUE(Shows(*reader, "Agenda\n1. Budget")) << reader->PanelText();
    EXPECT_EQ(0, m_plugin.NoteConfig(taker->Instance(), 2, 0, 0, nullptr));

    // An edit in the middle, published through the host's selector 3.
    panel.Select(6, 0);
    ASSERT_TRUE(panel.Type(" (draft)"));
    PumpMainLoop(0.12);
    EXPECT_EQ(0, m_plugin.NoteConfig(taker->Instance(), 3, 0, 0, nullptr));
    for (auto* reader : {first.get(), second.get()})
        EXPECT_TRUE(Shows(*reader, "Agenda (draft)\n1. Budget")) << reader->PanelText();

    // Publishing with nothing new puts nothing into the meeting's record.
    const size_t recorded = m_pMeeting->Recording().size();
    panel.ClickPublish();
    PumpMainLoop(0.2);
    EXPECT_EQ(recorded, m_pMeeting->Recording().size());
}

NOTE_ON_EVERY_CONFERENCE(PluginMeeting);

}  // namespace
