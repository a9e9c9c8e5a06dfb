// The panel's rules as a person meets them through the loaded plug-in: pastes against the
// length limit, the warning an over-long paste shows, and the context menu by role.
#include "PluginFixture.h"

namespace {

class PluginPanel : public PluginTest {
protected:
    PluginPanel() { NoteHostUI_SetWarningCallback(&OnWarning, this); }
    ~PluginPanel() override
    {
        NoteHostUI_SetWarningCallback(nullptr, nullptr);
        NoteHostUI_SetClipboard(nullptr, nullptr);
    }
    std::vector<std::string> m_vecWarnings;  // "title|text"

private:
    static void OnWarning(void* context, const char* title, const char* text)
    {
        static_cast<PluginPanel*>(context)->m_vecWarnings.push_back(std::string(title) + "|" + text);
    }
};

const unsigned kNotesMax = 81920;

TEST_P(PluginPanel, PastesCountTheirNetGrowthAgainstTheLimit)
{
    auto writer = Join(1, NOTETAKER_ALL_PARTICIPANTS, NOTE_USER_WRITER);
    INoteHeadlessPanel& panel = *writer->Panel();
    ASSERT_TRUE(panel.Type("abc"));
    panel.Focus(true);
    EXPECT_EQ(1, m_plugin.NoteGetPasteStatus(writer->Instance()));  // nothing to paste

    // One unit too many: nothing changes and the warning shows.
    const std::string over(kNotesMax - 2, 'x');
    NoteHostUI_SetClipboard(over.c_str(), nullptr);
    EXPECT_EQ(2, m_plugin.NoteGetPasteStatus(writer->Instance()));
    panel.PasteKey();
    EXPECT_EQ("abc", writer->PanelText());
    EXPECT_EQ((std::vector<std::string>{
                  "Velmar Zentor Notes|Unable to paste all of the selected text into the Notes "
                  "panel. Please delete some text and try again."}),
              m_vecWarnings);

    // Replacing the selection counts only the growth: the same paste over one character fits.
    panel.Select(1, 1);
    panel.PasteKey();
    EXPECT_EQ(kNotesMax, panel.Length());
    EXPECT_EQ("a" + over + "c", writer->PanelText());
    EXPECT_EQ(1u, m_vecWarnings.size());

    // At the limit even one typed character is refused, with a beep.
    EXPECT_FALSE(panel.Type("y"));
    EXPECT_EQ(1, panel.BeepCount());
}

TEST_P(PluginPanel, CaptionPastesStayOutOfCommittedText)
{
    auto captioner = Join(1, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_WRITER);
    INoteHeadlessPanel& panel = *captioner->Panel();
    panel.Focus(true);
    ASSERT_TRUE(panel.Type("committed"));
    panel.PressReturn();
    NoteHostUI_SetClipboard(nullptr, "https://example.org/agenda");

    panel.Select(2, 0);
    EXPECT_EQ(1, m_plugin.NoteGetPasteStatus(captioner->Instance()));
    EXPECT_EQ(0, panel.MenuItemState(NOTEMENU_PASTE));
    panel.PasteKey();
    EXPECT_EQ("committed\n", captioner->PanelText());

    panel.Select(panel.Length(), 0);
    EXPECT_EQ(1, panel.MenuItemState(NOTEMENU_PASTE));
    EXPECT_TRUE(panel.ChooseMenuItem(NOTEMENU_PASTE));
    EXPECT_EQ("committed\nhttps://example.org/agenda", captioner->PanelText());

    // An over-long caption paste names the captions panel.
    const std::string over(409600, 'x');
    NoteHostUI_SetClipboard(over.c_str(), nullptr);
    panel.PasteKey();
    ASSERT_EQ(1u, m_vecWarnings.size());
    EXPECT_EQ(0u, m_vecWarnings[0].find("Velmar Zentor Closed Captions|Unable to paste all of "
                                        "the selected text into the Closed Captions panel."));
}

TEST_P(PluginPanel, TheContextMenuFollowsRoleSelectionAndText)
{
    auto taker = Join(1, NOTETAKER_SINGLE, NOTE_USER_WRITER);
    auto reader = Join(2, NOTETAKER_SINGLE, NOTE_USER_READER);
    NoteHostUI_SetClipboard("clip", nullptr);
    INoteHeadlessPanel& mine = *taker->Panel();
    ASSERT_TRUE(mine.Type("Agenda"));
    PumpMainLoop(0.12);

    mine.Select(0, 6);
    for (int tag : {NOTEMENU_CUT, NOTEMENU_COPY, NOTEMENU_PASTE, NOTEMENU_DELETE,
                    NOTEMENU_SELECT_ALL, NOTEMENU_SAVE, NOTEMENU_PUBLISH})
        EXPECT_EQ(1, mine.MenuItemState(tag)) << tag;
    mine.Select(6, 0);
    EXPECT_EQ(0, mine.MenuItemState(NOTEMENU_CUT));
    EXPECT_EQ(0, mine.MenuItemState(NOTEMENU_COPY));

    // Publishing from the menu reaches the reader, whose own menu never pastes.
    EXPECT_TRUE(mine.ChooseMenuItem(NOTEMENU_PUBLISH));
    ASSERT_TRUE(Shows(*reader, "Agenda"));
    INoteHeadlessPanel& theirs = *reader->Panel();
    theirs.Select(0, 3);
    EXPECT_EQ(0, theirs.MenuItemState(NOTEMENU_PASTE));
    EXPECT_EQ(0, theirs.MenuItemState(NOTEMENU_PUBLISH));
    EXPECT_EQ(1, theirs.MenuItemState(NOTEMENU_CUT));
    // Copy works for a reader; cutting read-only text takes nothing away.
    EXPECT_TRUE(theirs.ChooseMenuItem(NOTEMENU_COPY));
    EXPECT_STREQ("Age", NoteHostUI_ClipboardText());
    EXPECT_TRUE(theirs.ChooseMenuItem(NOTEMENU_CUT));
    EXPECT_EQ("Agenda", reader->PanelText());
}

NOTE_ON_EVERY_CONFERENCE(PluginPanel);

}  // namespace
