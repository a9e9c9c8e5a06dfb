// The panel controller's message table, on the headless view: conversions, the committed
// caption length, the dialog, the atomic file write, the buttons, and null arguments.
#include "../platform/HostUICapture.h"
#include "ControllerFixture.h"
#include "SaveChooser.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

TEST_F(ControllerTest, WholeTextComesWithCrLfOrUnconverted)
{
    struct { const char *text, *crlf; } const cases[] = {{"", ""}, {"one line", "one line"}, {"a\nb", "a\r\nb"},
        {"a\r\nb\rc\n", "a\r\nb\r\nc\r\n"}, {"\n\n", "\r\n\r\n"},
        {"gr\xC3\xBC\xC3\x9F\n\xF0\x9F\x98\x80", "gr\xC3\xBC\xC3\x9F\r\n\xF0\x9F\x98\x80"}};
    for (const auto& c : cases) {
        m_view->SetText(c.text);
        EXPECT_EQ(c.crlf, Get(NOTEUI_GET_TEXT_CRLF)) << c.text;
        EXPECT_EQ(c.text, Get(NOTEUI_GET_TEXT_RAW)) << c.text;
    }
}

// In captions the client's text is committed whole, counted in UTF-16 units; the committed
// text comes back with CR LF, up to that length (never splitting a surrogate pair), and says
// whether it is full: at or over the maximum, or with no limit set yet (below it, the int is
// left as it was).
TEST_F(ControllerTest, CommittedCaptionText)
{
    SetInt(NOTEUI_SET_NOTEPAD_TYPE, 2);
    Send(NOTEUI_SET_TEXT, const_cast<char*>("notes"));
    EXPECT_EQ("notes", m_view->Text());
    EXPECT_EQ(0u, m_controller.getPublishedTextLength());
    struct { int maxLen; const char *committed, *shown; unsigned length; const char* text; int full; } const cases[] = {
        {100, "\xF0\x9F\x98\x80\xC3\xA9\n", nullptr, 4, "\xF0\x9F\x98\x80\xC3\xA9\r\n", 7},
        {100, "line one\nline", "line one\nline two typed", 13, "line one\r\nline", 7},
        {100, "a\xF0\x9F\x98\x80", "a", 3, "a", 7},
        {6, "12345", nullptr, 5, "12345", 7}, {5, "12345", nullptr, 5, "12345", 1},
        {4, "12345", nullptr, 5, "12345", 1}, {0, "", nullptr, 0, "", 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.committed);
        Captions(c.maxLen, c.committed);
        EXPECT_EQ(c.length, m_controller.getPublishedTextLength());
        if (c.shown) m_view->SetText(c.shown);  // the captioner types on, or deletes
        int full = 7;
        std::string text;
        Send(NOTEUI_GET_COMMITTED_TEXT, &full, &text);
        EXPECT_EQ(c.text, text);
        EXPECT_EQ(c.full, full);
    }
}

TEST_F(ControllerTest, FlagsQueriesAndCommandsDriveTheView)
{
    const std::pair<unsigned, bool (CHeadlessTextView::*)() const> flags[] = {
        {NOTEUI_ENABLE_SAVE, &CHeadlessTextView::IsSaveEnabled}, {NOTEUI_ENABLE_PUBLISH, &CHeadlessTextView::IsPublishEnabled},
        {NOTEUI_SHOW_PUBLISH, &CHeadlessTextView::IsPublishVisible}, {NOTEUI_SET_READ_ONLY, &CHeadlessTextView::IsReadOnly}};
    for (const auto& [message, state] : flags) {
        for (bool value : {true, false, true}) {
            SetFlag(message, value);
            EXPECT_EQ(value, (m_view->*state)()) << message;
        }
    }
    for (bool hidden : {true, false}) {
        m_view->SetHidden(hidden);
        unsigned char out = 9;
        Send(NOTEUI_IS_HIDDEN, nullptr, &out);
        EXPECT_EQ(hidden ? 1 : 0, out);
    }
    // Scrolling to the end moves the caret there; an empty text has nothing to scroll to.
    Send(NOTEUI_SCROLL_TO_END);
    EXPECT_EQ(0, m_view->ScrollCount());
    Send(NOTEUI_SET_TEXT, const_cast<char*>("abc"));
    m_view->Select(1, 1);
    Send(NOTEUI_SCROLL_TO_END);
    unsigned location = 0, length = 9;
    m_view->GetSelection(&location, &length);
    EXPECT_EQ(1, m_view->ScrollCount());
    EXPECT_EQ(std::make_pair(3u, 0u), std::make_pair(location, length));
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
    for (unsigned message : std::initializer_list<unsigned>{NOTEUI_SET_USER_TYPE, NOTEUI_SET_NOTEPAD_TYPE, NOTEUI_GET_TEXT_CRLF, NOTEUI_GET_TEXT_RAW,
                             NOTEUI_GET_COMMITTED_TEXT, NOTEUI_SET_TEXT, NOTEUI_ENABLE_SAVE, NOTEUI_ENABLE_PUBLISH,
                             NOTEUI_SHOW_PUBLISH, NOTEUI_SET_READ_ONLY, NOTEUI_RUN_SAVE_DIALOG, NOTEUI_WRITE_FILE,
                             NOTEUI_GET_PASTE_STATUS, NOTEUI_SET_MAX_LENGTH, NOTEUI_IS_HIDDEN, 1999u}) {
        EXPECT_EQ(0, Send(message)) << message;
    }
    // The in pointer given, the out pointer null.
    std::string path = "/tmp/never-written.txt";
    int number = 0;
    EXPECT_EQ(0, Send(NOTEUI_GET_COMMITTED_TEXT, &number));
    EXPECT_EQ(0, Send(NOTEUI_RUN_SAVE_DIALOG, &path));
    EXPECT_EQ(0, Send(NOTEUI_WRITE_FILE, const_cast<char*>(path.c_str())));
    EXPECT_EQ(0, Send(2017, &path));
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

// The view cancels until told otherwise; a chooser confirms with a path or cancels; without a
// sink the dialog is neither.
TEST_F(ControllerTest, SaveDialogTitlesDefaultNamesAndResults)
{
    m_controller.setSink(&m_sink);
    struct { int notepadType; const char *pathIn, *title, *defaultName; } const cases[] = {
        {1, "", "Save Notes As", "Notes.txt"}, {2, "", "Save Notes As", "Notes.txt"},
        {3, "", "Save Closed Captions As", "Closed Captions.txt"},
        {3, "/home/me/minutes.txt", "Save Closed Captions As", "/home/me/minutes.txt"},
    };
    for (const auto& c : cases) {
        SetInt(NOTEUI_SET_NOTEPAD_TYPE, c.notepadType);
        std::string path = c.pathIn;
        int result = 7;
        Send(NOTEUI_RUN_SAVE_DIALOG, &path, &result);
        EXPECT_EQ(std::string(c.title) + "|" + c.defaultName, m_view->LastDialogTitle() + "|" + m_view->LastDialogDefaultName());
        EXPECT_EQ(-1, result);
        EXPECT_EQ("", path);
    }
    struct { bool sink, confirm; int result; const char* path; } const results[] = {
        {true, true, 0, "/tmp/chosen.txt"}, {true, false, -1, ""}, {false, true, NOTEUI_DIALOG_CANCELLED, ""},
    };
    for (const auto& c : results) {
        m_controller.setSink(c.sink ? &m_sink : nullptr);
        CScopedSaveChooser chooser(c.confirm, "/tmp/chosen.txt");
        std::string path = "kept.txt";
        int result = 7;
        Send(NOTEUI_RUN_SAVE_DIALOG, &path, &result);
        EXPECT_EQ(c.result, result);
        EXPECT_EQ(c.path, path);
    }
    EXPECT_EQ(7, m_view->DialogCount());
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
    m_controller.setSink(&m_sink);
    NoteHostUI_SetSaveChooser(&AbortingChooser, &m_controller);
    std::string path;
    int result = 0;
    Send(NOTEUI_RUN_SAVE_DIALOG, &path, &result);
    NoteHostUI_SetSaveChooser(nullptr, nullptr);
    EXPECT_EQ(1, m_view->AbortCount());
    EXPECT_EQ(NOTEUI_DIALOG_CANCELLED, result);  // neither confirmed nor cancelled
    EXPECT_EQ("", path);
    Send(NOTEUI_ABORT_SAVE_DIALOG);
    EXPECT_EQ(1, m_view->AbortCount());
}

// --- writing the file (2011)

class WriteFileTest : public ControllerTest {
protected:
    WriteFileTest()
    {
        char dir[] = "/tmp/panelwriteXXXXXX";
        m_strDir = mkdtemp(dir) ? dir : "";
    }
    ~WriteFileTest() override { std::filesystem::remove_all(m_strDir); }
    std::vector<std::string> Entries() const
    {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(m_strDir)) names.insert(entry.path().filename());
        return {names.begin(), names.end()};
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

// The panel's text is written as it is, replacing an existing file in one step: a reader that
// opened the old file keeps reading it whole, and mode and links are kept. A failed write says
// so and leaves nothing behind.
TEST_F(WriteFileTest, WritesAtomicallyOrNotAtAll)
{
    ASSERT_FALSE(m_strDir.empty());
    const std::string path = m_strDir + "/Notes.txt";
    m_view->SetText("first\nsecond \xC3\xA9\n");
    EXPECT_EQ(1, Write(path));
    EXPECT_EQ("first\nsecond \xC3\xA9\n", Read(path));
    chmod(path.c_str(), 0640);
    std::ifstream reader(path, std::ios::binary);
    m_view->SetText("new");
    EXPECT_EQ(1, Write(path));
    EXPECT_EQ("new", Read(path));
    EXPECT_EQ("first\nsecond \xC3\xA9\n", std::string(std::istreambuf_iterator<char>(reader), std::istreambuf_iterator<char>()));
    struct stat st;
    ASSERT_EQ(0, stat(path.c_str(), &st));
    EXPECT_EQ(0640u, st.st_mode & 07777);

    const std::string link = m_strDir + "/Link.txt";
    ASSERT_EQ(0, symlink("Notes.txt", link.c_str()));
    m_view->SetText("through the link");
    EXPECT_EQ(1, Write(link));
    ASSERT_EQ(0, lstat(link.c_str(), &st));
    EXPECT_TRUE(S_ISLNK(st.st_mode));
    EXPECT_EQ("through the link", Read(path));

    EXPECT_EQ(0, Write(m_strDir + "/missing/Notes.txt"));
    EXPECT_EQ(0, Write(""));
    const std::string folder = m_strDir + "/folder";  // rename fails, the temporary file goes again
    ASSERT_EQ(0, mkdir(folder.c_str(), 0700));
    EXPECT_EQ(0, Write(folder));
    EXPECT_EQ((std::vector<std::string>{"Link.txt", "Notes.txt", "folder"}), Entries());
    rmdir(folder.c_str());
}

// --- the buttons

// Publish in captions sends only when something new was typed (Return always goes through);
// elsewhere it always sends. Buttons reach only an attached sink.
TEST_F(ControllerTest, PublishAndSaveButtons)
{
    CHostUICapture capture;
    m_controller.onPublish(true);
    m_controller.onSave();
    EXPECT_EQ(2u, capture.m_vecTrace.size());  // onPublish's begin and end lines
    m_controller.setSink(&m_sink);
    Captions(100, "old");
    m_view->SetText("old new");
    m_controller.onPublish(true);
    EXPECT_EQ(7u, m_controller.getPublishedTextLength());
    m_controller.onPublish(true);
    m_controller.onPublish(false);
    SetInt(NOTEUI_SET_NOTEPAD_TYPE, 2);
    m_controller.onPublish(true);
    m_controller.onPublish(true);
    m_controller.onSave();
    std::vector<std::pair<int, int>> calls;
    for (const auto& call : m_sink.m_vecCalls) calls.push_back({call.nMsg, call.nPressEnter});
    EXPECT_EQ(calls, (std::vector<std::pair<int, int>>{{NOTEUI_SEND_EDIT, 0}, {NOTEUI_SEND_EDIT, 1}, {NOTEUI_SEND_EDIT, 0},
                                                       {NOTEUI_SEND_EDIT, 0}, {NOTEUI_SAVE, -1}}));
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
