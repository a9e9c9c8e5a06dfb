// The panel controller's message table, on the headless view: conversions, the committed
// caption length, the dialog, the atomic file write, the buttons, and null arguments.
#include "../platform/HostUICapture.h"
#include "panel/HeadlessTextView.h"
#include "panel/NoteViewController.h"
#include "ControllerFixture.h"
#include "SaveChooser.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace {

TEST_F(ControllerTest, WholeTextComesWithCrLfOrUnconverted)
{
    struct {
        const char* text;
        const char* crlf;
    } const cases[] = {
        {"", ""},
        {"one line", "one line"},
        {"a\nb", "a\r\nb"},
        {"a\r\nb\rc\n", "a\r\nb\r\nc\r\n"},
        {"\n\n", "\r\n\r\n"},
        {"gr\xC3\xBC\xC3\x9F\n\xF0\x9F\x98\x80", "gr\xC3\xBC\xC3\x9F\r\n\xF0\x9F\x98\x80"},
    };
    for (const auto& c : cases) {
        m_view->SetText(c.text);
        EXPECT_EQ(c.crlf, Get(NOTEUI_GET_TEXT_CRLF)) << c.text;
        EXPECT_EQ(c.text, Get(NOTEUI_GET_TEXT_RAW)) << c.text;
    }
}

TEST_F(ControllerTest, SetTextCommitsTheWholeCaptionOnlyInCaptions)
{
    SetInt(NOTEUI_SET_NOTEPAD_TYPE, 2);
    Send(NOTEUI_SET_TEXT, const_cast<char*>("notes"));
    EXPECT_EQ("notes", m_view->Text());
    EXPECT_EQ(0u, m_controller.getPublishedTextLength());

    // Committed length counts UTF-16 units: 2 + 1 + 1 for the emoji, e-acute and line end.
    Captions(100, "\xF0\x9F\x98\x80\xC3\xA9\n");
    EXPECT_EQ(4u, m_controller.getPublishedTextLength());
    Send(NOTEUI_SET_TEXT, const_cast<char*>(""));
    EXPECT_EQ(0u, m_controller.getPublishedTextLength());
}

TEST_F(ControllerTest, CommittedTextStopsAtTheCommittedLengthWithCrLf)
{
    Captions(100, "line one\nline");
    m_view->SetText("line one\nline two typed");  // the captioner types on
    int full = 0;
    std::string text;
    Send(NOTEUI_GET_COMMITTED_TEXT, &full, &text);
    EXPECT_EQ("line one\r\nline", text);
    EXPECT_EQ(0, full);
}

TEST_F(ControllerTest, CommittedTextNeverSplitsASurrogatePair)
{
    Captions(100, "a\xF0\x9F\x98\x80");  // 3 units committed
    m_view->SetText("a");                  // shorter than committed: all of it
    int full = 0;
    std::string text;
    Send(NOTEUI_GET_COMMITTED_TEXT, &full, &text);
    EXPECT_EQ("a", text);
}

TEST_F(ControllerTest, CommittedTextReportsFullAtTheMaximum)
{
    struct {
        int maxLen;
        const char* committed;
        int full;
    } const cases[] = {
        {6, "12345", 7},   // below: the int is left as it was
        {5, "12345", 1},   // at the maximum
        {4, "12345", 1},   // over it (the limit was lowered)
        {0, "", 1},        // no limit set yet
    };
    for (const auto& c : cases) {
        Captions(c.maxLen, c.committed);
        int full = 7;
        std::string text;
        Send(NOTEUI_GET_COMMITTED_TEXT, &full, &text);
        EXPECT_EQ(c.full, full) << c.maxLen << " " << c.committed;
        EXPECT_EQ(c.committed, text);
    }
}

TEST_F(ControllerTest, FlagsDriveTheViewAndItsButtons)
{
    struct {
        unsigned message;
        bool (CHeadlessTextView::*state)() const;
    } const cases[] = {
        {NOTEUI_ENABLE_SAVE, &CHeadlessTextView::IsSaveEnabled},
        {NOTEUI_ENABLE_PUBLISH, &CHeadlessTextView::IsPublishEnabled},
        {NOTEUI_SHOW_PUBLISH, &CHeadlessTextView::IsPublishVisible},
        {NOTEUI_SET_READ_ONLY, &CHeadlessTextView::IsReadOnly},
    };
    for (const auto& c : cases) {
        for (bool value : {true, false, true}) {
            SetFlag(c.message, value);
            EXPECT_EQ(value, (m_view->*c.state)()) << c.message;
        }
    }
}

TEST_F(ControllerTest, ViewQueriesAndCommands)
{
    // Scrolling to the end moves the caret there; an empty text has nothing to scroll to.
    Send(NOTEUI_SCROLL_TO_END);
    EXPECT_EQ(0, m_view->ScrollCount());
    Send(NOTEUI_SET_TEXT, const_cast<char*>("abc"));
    m_view->Select(1, 1);
    Send(NOTEUI_SCROLL_TO_END);
    EXPECT_EQ(1, m_view->ScrollCount());
    unsigned location = 0, length = 9;
    m_view->GetSelection(&location, &length);
    EXPECT_EQ(3u, location);
    EXPECT_EQ(0u, length);

    for (bool hidden : {true, false}) {
        m_view->SetHidden(hidden);
        unsigned char out = 9;
        Send(NOTEUI_IS_HIDDEN, nullptr, &out);
        EXPECT_EQ(hidden ? 1 : 0, out);
    }

    SetInt(NOTEUI_SET_USER_TYPE, 1);
    SetInt(NOTEUI_SET_NOTEPAD_TYPE, 2);
    EXPECT_EQ(1, m_controller.getUserType());
    EXPECT_EQ(2, m_controller.notePadType());
}

TEST_F(ControllerTest, MessagesWithoutTheirPointersDoNothing)
{
    Captions(5, "abc");
    m_view->SetHidden(true);
    m_controller.setSink(&m_sink);
    CScopedSaveChooser chooser(true, "/tmp/never-written.txt");
    struct {
        unsigned message;
        bool withIn;  // the in pointer given, the out pointer null
    } const cases[] = {
        {NOTEUI_SET_USER_TYPE, false},    {NOTEUI_SET_NOTEPAD_TYPE, false},
        {NOTEUI_GET_TEXT_CRLF, false},    {NOTEUI_GET_TEXT_RAW, false},
        {NOTEUI_GET_COMMITTED_TEXT, false}, {NOTEUI_GET_COMMITTED_TEXT, true},
        {NOTEUI_SET_TEXT, false},         {NOTEUI_ENABLE_SAVE, false},
        {NOTEUI_ENABLE_PUBLISH, false},   {NOTEUI_SHOW_PUBLISH, false},
        {NOTEUI_SET_READ_ONLY, false},    {NOTEUI_RUN_SAVE_DIALOG, false},
        {NOTEUI_RUN_SAVE_DIALOG, true},   {NOTEUI_WRITE_FILE, false},
        {NOTEUI_WRITE_FILE, true},        {NOTEUI_GET_PASTE_STATUS, false},
        {NOTEUI_SET_MAX_LENGTH, false},   {NOTEUI_IS_HIDDEN, false},
        {1999, false},                    {2017, true},
    };
    for (const auto& c : cases) {
        std::string path = "/tmp/never-written.txt";
        void* in = c.withIn ? static_cast<void*>(&path) : nullptr;
        if (c.message == NOTEUI_WRITE_FILE && c.withIn) in = const_cast<char*>(path.c_str());
        int number = 0;
        if (c.message == NOTEUI_GET_COMMITTED_TEXT && c.withIn) in = &number;
        EXPECT_EQ(0, Send(c.message, in, nullptr)) << c.message;
    }
    EXPECT_EQ("abc", m_view->Text());
    EXPECT_EQ(3u, m_controller.getPublishedTextLength());
    EXPECT_EQ(3, m_controller.notePadType());
    EXPECT_EQ(0, m_controller.getUserType());
    EXPECT_TRUE(m_view->IsSaveEnabled() && m_view->IsPublishEnabled() &&
                m_view->IsPublishVisible() && !m_view->IsReadOnly());
    EXPECT_EQ(0, m_view->DialogCount());
    EXPECT_NE(0, access("/tmp/never-written.txt", F_OK));
    EXPECT_TRUE(m_sink.m_vecCalls.empty());
    // The limit of 5 still holds: a sixth character is refused.
    m_view->Select(3, 0);
    EXPECT_TRUE(m_view->Type("de"));
    EXPECT_FALSE(m_view->Type("f"));
}

TEST_F(ControllerTest, EveryMessageIsTraced)
{
    CHostUICapture capture;
    std::string text;
    Send(NOTEUI_GET_TEXT_RAW, nullptr, &text);
    Send(4242);
    ASSERT_EQ(2u, capture.m_vecTrace.size());
    EXPECT_EQ("note", capture.m_vecTrace[0].first);
    EXPECT_EQ("NOTE:OnReceiveMessage:message = 2003", capture.m_vecTrace[0].second);
    EXPECT_EQ("NOTE:OnReceiveMessage:message = 4242", capture.m_vecTrace[1].second);
}

// --- the save dialog (2010, 2012)

TEST_F(ControllerTest, SaveDialogTitlesAndDefaultNamesByNotepad)
{
    m_controller.setSink(&m_sink);
    struct {
        int notepadType;
        const char* pathIn;
        const char* title;
        const char* defaultName;
    } const cases[] = {
        {1, "", "Save Notes As", "Notes.txt"},
        {2, "", "Save Notes As", "Notes.txt"},
        {3, "", "Save Closed Captions As", "Closed Captions.txt"},
        {3, "/home/me/minutes.txt", "Save Closed Captions As", "/home/me/minutes.txt"},
    };
    for (const auto& c : cases) {
        SetInt(NOTEUI_SET_NOTEPAD_TYPE, c.notepadType);
        std::string path = c.pathIn;
        int result = 7;
        Send(NOTEUI_RUN_SAVE_DIALOG, &path, &result);
        EXPECT_EQ(c.title, m_view->LastDialogTitle());
        EXPECT_EQ(c.defaultName, m_view->LastDialogDefaultName());
        EXPECT_EQ(-1, result);  // the view cancels until told otherwise
        EXPECT_EQ("", path);
    }
}

TEST_F(ControllerTest, SaveDialogResults)
{
    struct {
        bool sink;
        bool confirm;
        int result;
        const char* path;
        int dialogs;
    } const cases[] = {
        {true, true, 0, "/tmp/chosen.txt", 1},
        {true, false, -1, "", 1},
        {false, true, NOTEUI_DIALOG_CANCELLED, "", 1},
    };
    for (const auto& c : cases) {
        CHeadlessTextView* view = new CHeadlessTextView;
        NoteViewController controller{std::unique_ptr<INoteTextViewPort>(view)};
        controller.setSink(c.sink ? &m_sink : nullptr);
        CScopedSaveChooser chooser(c.confirm, "/tmp/chosen.txt");
        std::string path = "kept.txt";
        int result = 7;
        controller.OnReceiveMessage(NOTEUI_RUN_SAVE_DIALOG, &path, &result, nullptr);
        EXPECT_EQ(c.result, result);
        EXPECT_EQ(c.path, path);
        EXPECT_EQ(c.dialogs, view->DialogCount());
    }
}

// A chooser that is still open when the client aborts the dialog.
const char* AbortingChooser(void* controller, const char*, const char*)
{
    static_cast<NoteViewController*>(controller)->OnReceiveMessage(NOTEUI_ABORT_SAVE_DIALOG, nullptr,
                                                                    nullptr, nullptr);
    return "/tmp/chosen.txt";
}

TEST_F(ControllerTest, AbortReachesOnlyAnOpenDialog)
{
    Send(NOTEUI_ABORT_SAVE_DIALOG);
    EXPECT_EQ(0, m_view->AbortCount());

    CHeadlessTextView* view = new CHeadlessTextView;
    NoteViewController controller{std::unique_ptr<INoteTextViewPort>(view)};
    controller.setSink(&m_sink);
    NoteHostUI_SetSaveChooser(&AbortingChooser, &controller);
    std::string path;
    int result = 0;
    controller.OnReceiveMessage(NOTEUI_RUN_SAVE_DIALOG, &path, &result, nullptr);
    NoteHostUI_SetSaveChooser(nullptr, nullptr);
    EXPECT_EQ(1, view->AbortCount());
    EXPECT_EQ(NOTEUI_DIALOG_CANCELLED, result);  // neither confirmed nor cancelled
    EXPECT_EQ("", path);
    controller.OnReceiveMessage(NOTEUI_ABORT_SAVE_DIALOG, nullptr, nullptr, nullptr);
    EXPECT_EQ(1, view->AbortCount());
}

// --- writing the file (2011)

class WriteFileTest : public ControllerTest {
protected:
    WriteFileTest()
    {
        char dir[] = "/tmp/panelwriteXXXXXX";
        m_strDir = mkdtemp(dir) ? dir : "";
    }
    ~WriteFileTest() override
    {
        for (const std::string& name : Entries()) unlink((m_strDir + "/" + name).c_str());
        rmdir(m_strDir.c_str());
    }
    std::vector<std::string> Entries() const
    {
        std::vector<std::string> names;
        if (DIR* dir = opendir(m_strDir.c_str())) {
            while (dirent* entry = readdir(dir)) {
                const std::string name = entry->d_name;
                if (name != "." && name != "..") names.push_back(name);
            }
            closedir(dir);
        }
        return names;
    }
    static std::string Read(const std::string& path)
    {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    int Write(const std::string& path)
    {
        unsigned char ok = 9;
        Send(NOTEUI_WRITE_FILE, const_cast<char*>(path.c_str()), &ok);
        return ok;
    }
    std::string m_strDir;
};

TEST_F(WriteFileTest, WritesThePanelTextAsItIs)
{
    ASSERT_FALSE(m_strDir.empty());
    const std::string path = m_strDir + "/Notes.txt";
    m_view->SetText("first\nsecond \xC3\xA9\n");
    EXPECT_EQ(1, Write(path));
    EXPECT_EQ("first\nsecond \xC3\xA9\n", Read(path));
    EXPECT_EQ(std::vector<std::string>{"Notes.txt"}, Entries());
}

TEST_F(WriteFileTest, ReplacesAnExistingFileInOneStep)
{
    ASSERT_FALSE(m_strDir.empty());
    const std::string path = m_strDir + "/Notes.txt";
    { std::ofstream(path) << "old text"; }
    chmod(path.c_str(), 0640);
    // A reader that opened the old file keeps reading the old file, whole.
    std::ifstream reader(path, std::ios::binary);
    m_view->SetText("new");
    EXPECT_EQ(1, Write(path));
    EXPECT_EQ("new", Read(path));
    EXPECT_EQ("old text", std::string(std::istreambuf_iterator<char>(reader),
                                      std::istreambuf_iterator<char>()));
    struct stat st;
    ASSERT_EQ(0, stat(path.c_str(), &st));
    EXPECT_EQ(0640u, st.st_mode & 07777);
    EXPECT_EQ(1u, Entries().size());

    // Saved through a link, the link stays and its file gets the text.
    const std::string link = m_strDir + "/Link.txt";
    ASSERT_EQ(0, symlink("Notes.txt", link.c_str()));
    m_view->SetText("through the link");
    EXPECT_EQ(1, Write(link));
    ASSERT_EQ(0, lstat(link.c_str(), &st));
    EXPECT_TRUE(S_ISLNK(st.st_mode));
    EXPECT_EQ("through the link", Read(path));
}

TEST_F(WriteFileTest, AFailedWriteSaysSoAndLeavesNothing)
{
    ASSERT_FALSE(m_strDir.empty());
    m_view->SetText("text");
    EXPECT_EQ(0, Write(m_strDir + "/missing/Notes.txt"));
    EXPECT_EQ(0, Write(""));
    // The target is a folder: rename fails, the temporary file goes again.
    const std::string folder = m_strDir + "/folder";
    ASSERT_EQ(0, mkdir(folder.c_str(), 0700));
    EXPECT_EQ(0, Write(folder));
    EXPECT_EQ(std::vector<std::string>{"folder"}, Entries());
    rmdir(folder.c_str());
}

// --- the buttons

TEST_F(ControllerTest, PublishInCaptionsSendsOnlyWhenSomethingNewWasTyped)
{
    m_controller.setSink(&m_sink);
    Captions(100, "old");
    m_view->SetText("old new");
    m_controller.onPublish(true);
    EXPECT_EQ(7u, m_controller.getPublishedTextLength());
    m_controller.onPublish(true);  // nothing typed since
    m_controller.onPublish(false); // Return always goes through
    ASSERT_EQ(2u, m_sink.m_vecCalls.size());
    EXPECT_EQ(NOTEUI_SEND_EDIT, m_sink.m_vecCalls[0].nMsg);
    EXPECT_EQ(0, m_sink.m_vecCalls[0].nPressEnter);
    EXPECT_EQ(1, m_sink.m_vecCalls[1].nPressEnter);
}

TEST_F(ControllerTest, PublishOutsideCaptionsAlwaysSends)
{
    m_controller.setSink(&m_sink);
    SetInt(NOTEUI_SET_NOTEPAD_TYPE, 2);
    m_view->SetText("notes");
    m_controller.onPublish(true);
    m_controller.onPublish(true);
    ASSERT_EQ(2u, m_sink.m_vecCalls.size());
    EXPECT_EQ(0u, m_controller.getPublishedTextLength());
}

TEST_F(ControllerTest, ButtonsReachOnlyAnAttachedSink)
{
    CHostUICapture capture;
    m_controller.onPublish(true);
    m_controller.onSave();
    EXPECT_EQ(2u, capture.m_vecTrace.size());  // onPublish's begin and end lines
    m_controller.setSink(&m_sink);
    m_controller.onSave();
    ASSERT_EQ(1u, m_sink.m_vecCalls.size());
    EXPECT_EQ(NOTEUI_SAVE, m_sink.m_vecCalls[0].nMsg);
    EXPECT_EQ(-1, m_sink.m_vecCalls[0].nPressEnter);
}

// --- the bridge

TEST(PanelBridge, AddressesThePanelAndWithdrawsTheSink)
{
    CRecordingUISink sink;
    void* panel = nullptr;
    EXPECT_EQ(0, CreateUI(&panel, nullptr, &sink));
    ASSERT_NE(nullptr, panel);
    EXPECT_EQ(0, NotifyCocoaUI(panel, NOTEUI_SET_TEXT, const_cast<char*>("x"), nullptr, nullptr));
    std::string text;
    NotifyCocoaUI(panel, NOTEUI_GET_TEXT_RAW, nullptr, &text, nullptr);
    EXPECT_EQ("x", text);
    auto* controller = static_cast<NoteViewController*>(panel);
    controller->onSave();
    EXPECT_EQ(0, CancelSink(panel));
    controller->onSave();
    EXPECT_EQ(1u, sink.m_vecCalls.size());
    EXPECT_EQ(0, DestoryUI(panel));

    EXPECT_EQ(3, NotifyCocoaUI(nullptr, NOTEUI_SCROLL_TO_END, nullptr, nullptr, nullptr));
    EXPECT_EQ(3, CancelSink(nullptr));
    EXPECT_EQ(3, DestoryUI(nullptr));
}

}  // namespace
