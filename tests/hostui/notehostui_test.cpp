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

TEST_F(HostUI, NullCallbackRestoresTheDefaults)
{
    unsetenv("NOTE_TRACE");
    NoteHostUI_SetTraceCallback(Recorder::Text, &m_rec);
    NoteHostUI_SetWarningCallback(Recorder::Text, &m_rec);
    NoteHostUI_SetTelemetryCallback(Recorder::Action, &m_rec);
    NoteHostUI_SetTraceCallback(nullptr, &m_rec);
    NoteHostUI_SetWarningCallback(nullptr, &m_rec);
    NoteHostUI_SetTelemetryCallback(nullptr, &m_rec);

    // The default level keeps error lines only (by format or by formatted text), written at once.
    testing::internal::CaptureStderr();
    MacInfoTrace2("note", "NoteInitialize %s", "Begine");
    MacInfoTrace2("note", "OnSave -CheckPrivileges error");
    MacInfoTrace2("note", "%s", "write Failed");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "note: OnSave -CheckPrivileges error\nnote: write Failed\n");
    testing::internal::CaptureStderr();
    ShowWarningWindow2("Title", "Body");
    SendTelemetryActionByID(2001);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Title: Body\n");
    EXPECT_TRUE(m_rec.texts.empty());
    EXPECT_TRUE(m_rec.actions.empty());
}

// What the default sink writes to standard error in a process that traces a few lines and
// then ends by exit (flushed at exit) or abort (flushed by the signal hook).
std::string DefaultSinkOutput(const char* level, const char* text, bool abortAtEnd)
{
    int pipeFds[2];
    if (pipe(pipeFds) != 0) return "no pipe";
    const pid_t child = fork();
    if (child == 0) {
        dup2(pipeFds[1], STDERR_FILENO);
        close(pipeFds[0]);
        if (level) setenv("NOTE_TRACE", level, 1); else unsetenv("NOTE_TRACE");
        if (text) setenv("NOTE_TRACE_TEXT", text, 1); else unsetenv("NOTE_TRACE_TEXT");
        NoteHostUI_SetTraceCallback(nullptr, nullptr);
        MacInfoTrace2("note", "HandleChangeMsg");
        MacInfoTrace2("note", "%s", std::string(300, 'x').c_str());
        MacInfoTrace2("note", "CNoteClient::SetNotepadType, no memory for %u bytes", 7u);
        MacInfoTrace2("note", "onPublish:(id)sender end");
        if (abortAtEnd) {
            const rlimit noCore{0, 0};
            setrlimit(RLIMIT_CORE, &noCore);
            abort();
        }
        exit(0);
    }
    close(pipeFds[1]);
    std::string out;
    char chunk[4096];
    ssize_t n;
    while ((n = read(pipeFds[0], chunk, sizeof chunk)) > 0) out.append(chunk, static_cast<size_t>(n));
    close(pipeFds[0]);
    waitpid(child, nullptr, 0);
    return out;
}

TEST(HostUIDefaultTrace, LevelTextAndEndOfProcess)
{
    const std::string error = "note: CNoteClient::SetNotepadType, no memory for 7 bytes\n";
    const std::string cut = "note: " + std::string(160, 'x') + "... [300 bytes]\n";
    const std::string whole = "note: " + std::string(300, 'x') + "\n";
    const std::string all = "note: HandleChangeMsg\n" + cut + error + "note: onPublish:(id)sender end\n";
    struct Case {
        const char* level;
        const char* text;
        bool abortAtEnd;
        std::string expected;
    } cases[] = {
        {nullptr, nullptr, false, error},
        {"errors", "full", true, error},
        {"none", nullptr, false, ""},
        {"all", nullptr, false, all},
        {"ALL", nullptr, true, all},
        {"all", "full", false, "note: HandleChangeMsg\n" + whole + error + "note: onPublish:(id)sender end\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.level ? c.level : "(unset)") + (c.abortAtEnd ? " abort" : " exit"));
        EXPECT_EQ(DefaultSinkOutput(c.level, c.text, c.abortAtEnd), c.expected);
    }
}

TEST_F(HostUI, EachSetterReplacesItsCallbackAndContext)
{
    Recorder first;
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
}

}  // namespace
