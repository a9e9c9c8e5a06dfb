// The exported functions themselves: results for null handles, trace lines, the order
// NoteInitialize applies the record in, NoteConfig's selectors, and whole meetings driven
// through them from NoteNewInstance to NoteDeleteInstance.
#include "PluginFixture.h"

#include <unistd.h>

#include <climits>

namespace {

using PluginEntry = PluginTest;

TEST_P(PluginEntry, NullHandlesGiveTheirResultsAndDoNothing)
{
    CNotePlugin& p = m_plugin;
    _tagNoteData data = {};
    EXPECT_EQ(-1, p.NoteDeleteInstance(nullptr));
    EXPECT_EQ(-1, p.NoteInitialize(nullptr, &data));
    EXPECT_EQ(-1, p.NoteSetUserType(nullptr, 1));
    EXPECT_EQ(-1, p.NoteSetNotepadType(nullptr, NOTETAKER_SINGLE));
    EXPECT_EQ(-1, p.NoteMeetingLost(nullptr, 1));
    EXPECT_EQ(-1, p.NoteFileSave(nullptr));
    EXPECT_EQ(-1, p.NoteFileSaveAs(nullptr));
    EXPECT_EQ(-1, p.NoteSaveFileToFolder(nullptr, "/tmp"));
    EXPECT_EQ(0, p.NoteGetFileSaveState(nullptr));
    for (long selector : {1L, 2L, 3L, 4L}) EXPECT_EQ(0, p.NoteConfig(nullptr, selector, 0, 0, "/tmp/x.xml")) << selector;
    EXPECT_EQ(-1, p.NoteSetAutoSavePath(nullptr, "/tmp/x.xml"));
    EXPECT_EQ(-1L, p.NoteGetPasteStatus(nullptr));
    EXPECT_EQ(0xFFFFFFFFu, p.SetNBR2Status(nullptr, 1));
    EXPECT_EQ(0, p.CreateUI(nullptr, nullptr, nullptr));
    EXPECT_EQ(3, p.DestoryUI(nullptr));
    EXPECT_EQ(3, p.NotifyCocoaUI(nullptr, 2013, nullptr, nullptr, nullptr));
    EXPECT_EQ(3, p.CancelSink(nullptr));
    // The initialisation and the configuration trace before they test the handle.
    EXPECT_EQ(1, TraceCount("NoteInitialize Begine"));
    EXPECT_EQ(0, TraceCount("NoteInitialize End"));
    EXPECT_EQ(5, TraceCount("NoteGetFileSaveState Begine"));
}

TEST_P(PluginEntry, ALifetimeTracesEachStep)
{
    {
        auto reader = Join(1, NOTETAKER_SINGLE, NOTE_USER_READER);
        EXPECT_EQ(0, m_plugin.NoteSetUserType(reader->Instance(), NOTE_USER_WRITER));
        EXPECT_EQ(0, m_plugin.SetNBR2Status(reader->Instance(), 3));
    }
    // The entry functions' lines and the panel bridge's, in order; numbers are handles.
    const std::vector<std::string> expected = {
        "NoteNewInstance Begine", "NoteNewInstance ",    "NoteInitialize Begine",   "CreateUI, retData = 0x",
        "NoteInitialize End",     "NoteSetUserType Begine", "NoteSetUserType End", "NoteDeleteInstance ",
        "DestoryUI, control = 0x", "DestoryUI, control = 0x", "NoteDeleteInstance  End"};
    std::vector<std::string> entries;
    for (const std::string& line : m_ui.Lines())
        if (line.rfind("Note", 0) == 0 || line.rfind("CreateUI", 0) == 0 || line.rfind("DestoryUI", 0) == 0)
            entries.push_back(line);
    ASSERT_EQ(expected.size(), entries.size());
    for (size_t i = 0; i < expected.size(); ++i) EXPECT_EQ(0u, entries[i].find(expected[i])) << entries[i];
    EXPECT_EQ(" End", entries[1].substr(entries[1].size() - 4));
    EXPECT_EQ(" Begine", entries[7].substr(entries[7].size() - 7));
}

TEST_P(PluginEntry, ACaptionMeetingTakesTheCaptionsLimitAndReachesEveryReader)
{
    // NoteInitialize applies the notepad type before the user type: the captions limit holds (a
    // paste longer than the notes limit is taken) and the writer's controls are on.
    auto captioner = Join(1, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_WRITER);
    auto reader = Join(2, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_READER);
    INoteHeadlessPanel& panel = *captioner->Panel();
    EXPECT_FALSE(panel.IsReadOnly());
    EXPECT_TRUE(panel.IsPublishVisible());
    EXPECT_TRUE(reader->Panel()->IsReadOnly());
    EXPECT_FALSE(reader->Panel()->IsPublishVisible());
    panel.Focus(true);
    EXPECT_EQ(1, m_plugin.NoteGetPasteStatus(captioner->Instance()));  // nothing to paste
    NoteHostUI_SetClipboard(std::string(409601, 'c').c_str(), nullptr);
    EXPECT_EQ(2, m_plugin.NoteGetPasteStatus(captioner->Instance()));  // too long
    const std::string longer(81921, 'c');
    NoteHostUI_SetClipboard(longer.c_str(), nullptr);
    panel.PasteKey();
    EXPECT_EQ(81921u, panel.Length());
    panel.Select(0, panel.Length());
    EXPECT_TRUE(panel.DeleteBackward());
    for (const char* line : {"Good morning.", "Today: the budget."}) {
        ASSERT_TRUE(panel.Type(line));
        panel.PressReturn();
    }
    const std::string lines = "Good morning.\nToday: the budget.\n";
    EXPECT_TRUE(Shows(*reader, lines)) << reader->PanelText();
    auto late = Join(3, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_READER);
    EXPECT_TRUE(Shows(*late, lines)) << late->PanelText();
}

TEST_P(PluginEntry, ConfigSelectorsSetThePathReportAndPublish)
{
    char dir[] = "/tmp/pluginentryXXXXXX";
    ASSERT_NE(nullptr, mkdtemp(dir));
    const std::string autoSave = std::string(dir) + "/auto.xml";
    auto taker = Join(1, NOTETAKER_SINGLE, NOTE_USER_WRITER);
    auto reader = Join(2, NOTETAKER_SINGLE, NOTE_USER_READER);
    auto second = Join(3, NOTETAKER_SINGLE, NOTE_USER_READER);
    void* instance = taker->Instance();
    ASSERT_TRUE(taker->Panel()->Type("minutes"));
    PumpMainLoop(0.12);  // the panel's tick sees the change

    EXPECT_EQ(0, m_plugin.NoteConfig(instance, 1, 0, 0, autoSave.c_str()));
    EXPECT_EQ(1, m_plugin.NoteConfig(instance, 2, 0, 0, nullptr));
    EXPECT_EQ(0, m_plugin.NoteConfig(reader->Instance(), 2, 0, 0, nullptr));
    // Unknown selectors change nothing, publishing included.
    for (long selector : {0L, 4L, LONG_MAX}) EXPECT_EQ(0, m_plugin.NoteConfig(instance, selector, 0, 0, "x"));
    PumpMainLoop(0.2);
    EXPECT_EQ("", reader->PanelText());
    EXPECT_EQ(0, m_plugin.NoteConfig(instance, 3, 0, 0, nullptr));
    for (auto* who : {reader.get(), second.get()}) EXPECT_TRUE(Shows(*who, "minutes")) << who->PanelText();
    EXPECT_EQ(0, m_plugin.NoteConfig(instance, 2, 0, 0, nullptr));

    // An edit in the middle goes out with the button; with nothing new, nothing is recorded.
    taker->Panel()->Select(3, 0);
    ASSERT_TRUE(taker->Panel()->Type("(draft)"));
    PumpMainLoop(0.12);
    taker->Panel()->ClickPublish();
    EXPECT_TRUE(Shows(*second, "min(draft)utes"));
    PumpMainLoop(0.2);
    const size_t recorded = m_pMeeting->Recording().size();
    const std::vector<std::string> heard = reader->HostSink().m_vecCalls;
    taker->Panel()->ClickPublish();
    PumpMainLoop(0.3);
    EXPECT_EQ(recorded, m_pMeeting->Recording().size());
    EXPECT_EQ(heard, reader->HostSink().m_vecCalls);

    // The path set by selector 1 is where a lost meeting leaves the document.
    EXPECT_EQ(0, m_plugin.NoteMeetingLost(instance, 1));
    EXPECT_EQ(0, access(autoSave.c_str(), F_OK));
    unlink(autoSave.c_str());
    rmdir(dir);
}

NOTE_ON_EVERY_CONFERENCE(PluginEntry);

}  // namespace
