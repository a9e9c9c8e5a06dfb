// Host UI library: callbacks receive exactly what the plug-in passed, long trace lines arrive
// whole, and clearing a callback brings back the default (the level-filtered, buffered trace
// sink on standard error, telemetry dropped).
#include "tessarinnote/notehostui.h"

#include <gtest/gtest.h>

#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace {

struct Recorder {
    std::vector<std::string> texts;  // "module|line" or "title|text"
    std::vector<int> actions;
    static void Text(void* self, const char* a, const char* b)
    {
        static_cast<Recorder*>(self)->texts.push_back(std::string(a) + "|" + b);
    }
    static void Action(void* self, int id) { static_cast<Recorder*>(self)->actions.push_back(id); }
};

class HostUI : public ::testing::Test {
protected:
    void TearDown() override
    {
        unsetenv("NOTE_TRACE");
        NoteHostUI_SetTraceCallback(nullptr, nullptr);
        NoteHostUI_SetWarningCallback(nullptr, nullptr);
        NoteHostUI_SetTelemetryCallback(nullptr, nullptr);
    }
    Recorder m_rec;
};

TEST_F(HostUI, TraceCallbackGetsModuleAndWholeFormattedLine)
{
    // The default sink's level does not concern a callback.
    setenv("NOTE_TRACE", "none", 1);
    NoteHostUI_SetTraceCallback(nullptr, nullptr);
    NoteHostUI_SetTraceCallback(Recorder::Text, &m_rec);
    MacInfoTrace2("note", "CDataPdu::SerializeFromBuf, m_nDataLen =%d, nPos= %d", 5, -19);
    MacInfoTrace2(nullptr, "%s|%c", "text", 'x');
    std::vector<std::string> expected = {"note|CDataPdu::SerializeFromBuf, m_nDataLen =5, nPos= -19", "|text|x"};
    // Around the first buffer's size and well past a page.
    for (size_t length : {510u, 511u, 512u, 4097u, 70000u}) {
        const std::string text(length, 'q');
        MacInfoTrace2("note", "<%s>%d", text.c_str(), 42);
        expected.push_back("note|<" + text + ">42");
    }
    EXPECT_EQ(m_rec.texts, expected);
}

TEST_F(HostUI, EachSetterReplacesItsCallbackAndNullRestoresTheDefault)
{
    unsetenv("NOTE_TRACE");
    Recorder first;
    NoteHostUI_SetTraceCallback(Recorder::Text, &first);
    NoteHostUI_SetWarningCallback(Recorder::Text, &first);
    NoteHostUI_SetTelemetryCallback(Recorder::Action, &first);
    ShowWarningWindow2("Warning", "one");
    SendTelemetryActionByID(2001);
    NoteHostUI_SetWarningCallback(Recorder::Text, &m_rec);
    NoteHostUI_SetTelemetryCallback(Recorder::Action, &m_rec);
    testing::internal::CaptureStderr();
    ShowWarningWindow2(nullptr, nullptr);
    SendTelemetryActionByID(2002);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(first.texts, (std::vector<std::string>{"Warning|one"}));
    EXPECT_EQ(first.actions, (std::vector<int>{2001}));
    EXPECT_EQ(m_rec.texts, (std::vector<std::string>{"|"}));
    EXPECT_EQ(m_rec.actions, (std::vector<int>{2002}));

    NoteHostUI_SetTraceCallback(nullptr, &m_rec);
    NoteHostUI_SetWarningCallback(nullptr, &m_rec);
    NoteHostUI_SetTelemetryCallback(nullptr, &m_rec);
    testing::internal::CaptureStderr();
    MacInfoTrace2("note", "NoteInitialize %s", "Begine");  // below the default level
    MacInfoTrace2("note", "%s", "write Failed");           // an error line, whatever its format
    ShowWarningWindow2("Title", "Body");
    SendTelemetryActionByID(2003);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "note: write Failed\nTitle: Body\n");
    EXPECT_EQ(first.texts.size() + m_rec.texts.size() + m_rec.actions.size(), 3u);
}

// The default sink in a process of its own: what reaches standard error by level and text
// setting, written at exit, by the signal hook on abort, or at once (error lines, seen even
// after _exit).
TEST(HostUIDefaultTraceDeathTest, LevelTextAndEndOfProcess)
{
    const std::string error = "note: CNoteClient::SetNotepadType, no memory for 7 bytes\n";
    const std::string last = "note: NOTE:OnReceiveMessage:message = 2005\n";
    const std::string all = "note: HandleChangeMsg\nnote: x{160}\\.\\.\\. \\[300 bytes\\]\n" + error + last;
    const struct {
        const char *level, *text;
        int end;               // 0 exit, 1 abort, 2 _exit
        std::string expected;  // a regular expression
        bool off = false;      // a callback, then tracing off: neither writes anything
    } cases[] = {
        {"", "", 2, error}, {"errors", "full", 1, error}, {"none", "", 0, ""}, {"all", "", 0, all},
        {"ALL", "", 1, all}, {"all", "full", 0, "note: HandleChangeMsg\nnote: x{300}\n" + error + last},
        {"all", "", 0, "", true},
    };
    for (const auto& c : cases) {
        auto traceAndEnd = [&c] {
            setenv("NOTE_TRACE", c.level, 1);
            setenv("NOTE_TRACE_TEXT", c.text, 1);
            NoteHostUI_SetTraceCallback(nullptr, nullptr);
            if (c.off) {
                NoteHostUI_SetTraceCallback([](void*, const char*, const char* line) { fprintf(stderr, "%s\n", line); },
                                            nullptr);
                NoteHostUI_SetTraceOff();
            }
            MacInfoTrace2("note", "HandleChangeMsg");
            MacInfoTrace2("note", "%s", std::string(300, 'x').c_str());
            MacInfoTrace2("note", "CNoteClient::SetNotepadType, no memory for %u bytes", 7u);
            MacInfoTrace2("note", "NOTE:OnReceiveMessage:message = %d", 2005);
            const rlimit noCore{0, 0};
            setrlimit(RLIMIT_CORE, &noCore);
            if (c.end == 1) abort();
            c.end == 2 ? _exit(0) : exit(0);
        };
        auto ended = [&c](int status) { return c.end == 1 ? WIFSIGNALED(status) : WIFEXITED(status); };
        EXPECT_EXIT(traceAndEnd(), ended, "^" + c.expected + "$") << c.level << " " << c.text << " " << c.end;
    }
}

}  // namespace
