// Host UI library: callbacks receive exactly what the plug-in passed, long trace lines arrive
// whole, and clearing a callback brings back the default (standard error, telemetry dropped).
#include "tessarinnote/notehostui.h"

#include <gtest/gtest.h>

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
        NoteHostUI_SetTraceCallback(nullptr, nullptr);
        NoteHostUI_SetWarningCallback(nullptr, nullptr);
        NoteHostUI_SetTelemetryCallback(nullptr, nullptr);
    }
    Recorder m_rec;
};

TEST_F(HostUI, TraceCallbackGetsModuleAndWholeFormattedLine)
{
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
    NoteHostUI_SetTraceCallback(Recorder::Text, &m_rec);
    NoteHostUI_SetWarningCallback(Recorder::Text, &m_rec);
    NoteHostUI_SetTelemetryCallback(Recorder::Action, &m_rec);
    NoteHostUI_SetTraceCallback(nullptr, &m_rec);
    NoteHostUI_SetWarningCallback(nullptr, &m_rec);
    NoteHostUI_SetTelemetryCallback(nullptr, &m_rec);

    const std::string longText(5000, 'w');
    testing::internal::CaptureStderr();
    MacInfoTrace2("note", "NoteInitialize %s", "Begine");
    MacInfoTrace2("note", "%s", longText.c_str());
    ShowWarningWindow2("Title", "Body");
    SendTelemetryActionByID(2001);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "note: NoteInitialize Begine\nnote: " + longText + "\nTitle: Body\n");
    EXPECT_TRUE(m_rec.texts.empty());
    EXPECT_TRUE(m_rec.actions.empty());
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
