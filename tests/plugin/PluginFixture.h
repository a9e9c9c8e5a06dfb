// A host for tests of the loaded plug-in: the plug-in file built with the tests, a meeting
// (in-process, or on a real redis-server: every test runs on both), participants with headless
// panels, and the trace lines the plug-in writes.
#pragma once

#include "RedisTestServer.h"
#include "conference/LocalConference.h"
#include "loader/PluginParticipant.h"
#include "tessarinnote/notehostui.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

enum class EConferenceKind { kLocal, kRedis };

inline void PrintTo(EConferenceKind kind, std::ostream* out)
{
    *out << (kind == EConferenceKind::kLocal ? "local" : "redis");
}

inline std::string ConferenceKindName(const ::testing::TestParamInfo<EConferenceKind>& kind)
{
    return ::testing::PrintToString(kind.param);
}

// Runs the tests of a suite on every conference.
#define NOTE_ON_EVERY_CONFERENCE(suite)                                                              \
    INSTANTIATE_TEST_SUITE_P(Kinds, suite, ::testing::Values(EConferenceKind::kLocal, EConferenceKind::kRedis), \
                             ConferenceKindName)

class PluginTest : public ::testing::TestWithParam<EConferenceKind> {
protected:
    PluginTest() { NoteHostUI_SetTraceCallback(&OnTrace, this); }
    ~PluginTest() override { NoteHostUI_SetTraceCallback(nullptr, nullptr); }

    void SetUp() override
    {
        std::string error;
        ASSERT_TRUE(m_plugin.Load(CNotePlugin::BuiltPath(), error)) << error;
    }

    // A participant, joined and settled (its handshake and first subscription done).
    std::unique_ptr<CPluginParticipant> Join(unsigned userId, NOTETAKERTYPE type,
                                             unsigned userType,
                                             const std::string& autoSavePath = "")
    {
        return JoinMeeting(*m_pMeeting, userId, type, userType, autoSavePath);
    }
    std::unique_ptr<CPluginParticipant> JoinMeeting(IMeeting& meeting, unsigned userId, NOTETAKERTYPE type,
                                                    unsigned userType, const std::string& autoSavePath = "")
    {
        SParticipantSetup setup;
        setup.nUserId = userId;
        setup.notepadType = type;
        setup.nUserType = userType;
        setup.strAutoSavePath = autoSavePath;
        auto participant = std::make_unique<CPluginParticipant>(m_plugin, meeting, setup);
        PumpMainLoop(0.08);
        // Over Redis the handshake also waits for the server: until all is answered and applied.
        if (GetParam() == EConferenceKind::kRedis) {
            EXPECT_TRUE(PumpMainLoopUntil(
                [&meeting] { return IsRedisMeetingSettled(meeting) && !g_main_context_pending(nullptr); }, 10));
        }
        return participant;
    }

    // Waits (bounded) until the participant's panel shows text.
    static bool Shows(const CPluginParticipant& who, const std::string& text)
    {
        return PumpMainLoopUntil([&] { return who.PanelText() == text; }, 5);
    }

    int TraceCount(const std::string& line) const
    {
        int n = 0;
        for (const std::string& traced : m_vecTraces) n += traced == line;
        return n;
    }

    CNotePlugin m_plugin;
    std::unique_ptr<IMeeting> m_pMeeting = GetParam() == EConferenceKind::kLocal ? NewLocalMeeting(CMeetingOptions())
                                                                                 : NewTestRedisMeeting(CMeetingOptions());
    std::vector<std::string> m_vecTraces;

private:
    static void OnTrace(void* context, const char*, const char* line)
    {
        static_cast<PluginTest*>(context)->m_vecTraces.push_back(line);
    }
};
