// The text view's rules on the headless panel: what typing may change, the trim of an
// over-long edit, Return in captions, the menus by notepad type, and the container's geometry.
#include "ControllerFixture.h"
#include "panel/NoteView.h"

#include <set>
#include <vector>
#include <utility>

namespace {

using TextViewTest = ControllerTest;

TEST_F(TextViewTest, TypingRespectsTheLimitAndCutsWhatOverflows)
{
    SetInt(NOTEUI_SET_NOTEPAD_TYPE, 2);
    SetInt(NOTEUI_SET_MAX_LENGTH, 5);
    m_controller.setSink(&m_sink);
    Send(NOTEUI_SET_TEXT, const_cast<char*>("abcd"));

    // Several characters at once are let in while one fits, then cut to the limit.
    m_view->Select(1, 0);
    EXPECT_TRUE(m_view->Type("xyz"));
    EXPECT_STREQ("axyzb", m_view->ShownText());
    EXPECT_EQ(NOTEUI_TEXT_CHANGED, m_sink.m_vecCalls.back().nMsg);

    // At the limit: typing beeps, replacing a selection does not grow and is fine.
    EXPECT_FALSE(m_view->Type("q"));
    EXPECT_EQ(1, m_view->BeepCount());
    m_view->Select(0, 2);
    EXPECT_TRUE(m_view->Type("Q"));
    EXPECT_STREQ("Qyzb", m_view->ShownText());

    // Deleting takes a whole character, a surrogate pair included.
    Send(NOTEUI_SET_TEXT, const_cast<char*>("a\xF0\x9F\x98\x80"));
    EXPECT_TRUE(m_view->DeleteBackward());
    EXPECT_STREQ("a", m_view->ShownText());

    // A read-only text takes nothing, without a beep.
    SetFlag(NOTEUI_SET_READ_ONLY, true);
    EXPECT_FALSE(m_view->Type("b"));
    EXPECT_EQ(1, m_view->BeepCount());
}

TEST_F(TextViewTest, AnOverlongReplacementKeepsWhatFitsAndTheTextAfterIt)
{
    SetInt(NOTEUI_SET_NOTEPAD_TYPE, 1);
    SetInt(NOTEUI_SET_MAX_LENGTH, 8);
    Send(NOTEUI_SET_TEXT, const_cast<char*>("abcdef"));
    // A typed character remembers where the selection was...
    m_view->Select(2, 0);
    ASSERT_TRUE(m_view->Type("Q"));
    // ...and an edit of another range than the selection (as a drop or an input method makes)
    // remembers its text; when it overflows, the text is rebuilt from both.
    ASSERT_TRUE(m_controller.TextView().EditRange(3, 1, "WXYZ"));
    EXPECT_STREQ("abWXZdef", m_view->ShownText());
}

TEST_F(TextViewTest, ReturnInCaptionsPublishesAndCommitsTheLine)
{
    Captions(12, "old\n");
    m_controller.setSink(&m_sink);
    ASSERT_TRUE(m_view->Type("new"));
    m_sink.m_vecCalls.clear();

    m_view->PressReturn();
    EXPECT_STREQ("old\nnew\n", m_view->ShownText());
    EXPECT_EQ(8u, m_controller.getPublishedTextLength());
    ASSERT_EQ(2u, m_sink.m_vecCalls.size());
    EXPECT_EQ(NOTEUI_SEND_EDIT, m_sink.m_vecCalls[0].nMsg);
    EXPECT_EQ(1, m_sink.m_vecCalls[0].nPressEnter);
    EXPECT_EQ(NOTEUI_TEXT_CHANGED, m_sink.m_vecCalls[1].nMsg);

    // Return inside the uncommitted line commits up to the caret only.
    ASSERT_TRUE(m_view->Type("abc"));
    m_view->Select(9, 0);
    m_view->PressReturn();
    EXPECT_STREQ("old\nnew\na\nbc", m_view->ShownText());
    EXPECT_EQ(9u, m_controller.getPublishedTextLength());

    // With the committed text at the limit, Return neither publishes nor commits.
    Captions(4, "full");
    m_sink.m_vecCalls.clear();
    m_view->PressReturn();
    EXPECT_TRUE(m_sink.m_vecCalls.empty());
    EXPECT_EQ(4u, m_controller.getPublishedTextLength());
}

TEST_F(TextViewTest, EachNotepadHasItsMenu)
{
    m_controller.setSink(&m_sink);
    const std::pair<int, std::set<int>> cases[] = {{1, {NOTEMENU_PUBLISH}}, {2, {}},
        {3, {NOTEMENU_CUT, NOTEMENU_DELETE, NOTEMENU_PUBLISH}}, {0, {10, 11, 12, 13, 14, 15, 16}}};
    for (const auto& [type, missing] : cases) {
        SetInt(NOTEUI_SET_NOTEPAD_TYPE, type);
        for (int tag = NOTEMENU_CUT; tag <= NOTEMENU_PUBLISH; ++tag) {
            EXPECT_EQ(missing.count(tag) == 1, m_view->MenuItemState(tag) == -1) << type << " " << tag;
        }
    }
    // Save follows the client's need to save.
    SetInt(NOTEUI_SET_NOTEPAD_TYPE, 1);
    EXPECT_EQ(0, m_view->MenuItemState(NOTEMENU_SAVE));
    m_sink.m_nNeedSave = 1;
    EXPECT_EQ(1, m_view->MenuItemState(NOTEMENU_SAVE));
    EXPECT_TRUE(m_view->ChooseMenuItem(NOTEMENU_SAVE));
    EXPECT_EQ(NOTEUI_SAVE, m_sink.m_vecCalls.back().nMsg);
}

TEST(NoteViewGeometry, ButtonsSitBottomRightAndTheTextFillsTheRest)
{
    const NotePanelLayout layout = LayoutNotePanel(400.5, 300, 60, 70);
    EXPECT_FLOAT_EQ(400.5f - 4 - 10 - 60 - 70, static_cast<float>(layout.publish.x));
    // publish y, width, height; save x (330.5 truncated), width; text y, width, height
    EXPECT_EQ((std::vector<double>{4, 70, 24, 330, 60, 33, 400.5, 300 - 8 - 24 - 1}),
              (std::vector<double>{layout.publish.y, layout.publish.width, layout.publish.height, layout.save.x,
                                   layout.save.width, layout.text.y, layout.text.width, layout.text.height}));
    EXPECT_EQ(10 + 32.5, NoteViewSeparatorY(10));
}

}  // namespace
