// A host for tests of the loaded plug-in: the plug-in file built with the tests, a meeting
// (in-process, or on a real redis-server: every test runs on both), participants with headless
// panels, and the trace lines and warnings the plug-in writes.
#pragma once

#include "HostUICapture.h"
#include "RedisTestServer.h"
#include "conference/LocalConference.h"
#include "loader/PluginParticipant.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

enum class EConferenceKind { kLocal, kRedis };

inline void PrintTo(EConferenceKind kind, std::ostream* out) { *out << (kind == EConferenceKind::kLocal ? "local" : "redis"); }

// Runs the tests of a suite on every conference.
#define NOTE_ON_EVERY_CONFERENCE(suite)                                                                  \
    INSTANTIATE_TEST_SUITE_P(Kinds, suite, ::testing::Values(EConferenceKind::kLocal, EConferenceKind::kRedis), \
                             [](const auto& kind) { return ::testing::PrintToString(kind.param); })

class PluginTest : public ::testing::TestWithParam<EConferenceKind> {
protected:
    void SetUp() override
    {
        std::string error;
        ASSERT_TRUE(m_plugin.Load(CNotePlugin::BuiltPath(), error)) << error;
    }
    void TearDown() override { NoteHostUI_SetClipboard(nullptr, nullptr); }

    // A participant, joined and settled (its handshake and first subscription done).
    std::unique_ptr<CPluginParticipant> Join(unsigned userId, NOTETAKERTYPE type, unsigned userType)
    {
        SParticipantSetup setup;
        setup.nUserId = userId;
        setup.notepadType = type;
        setup.nUserType = userType;
        auto participant = std::make_unique<CPluginParticipant>(m_plugin, *m_pMeeting, setup);
        PumpMainLoop(0.08);
        // Over Redis the handshake also waits for the server: until all is answered and applied.
        EXPECT_TRUE(GetParam() == EConferenceKind::kLocal ||
                    PumpMainLoopUntil([this] { return IsRedisMeetingSettled(*m_pMeeting) && !g_main_context_pending(nullptr); }, 10));
        return participant;
    }

    // Waits (bounded) until the participant's panel shows text.
    static bool Shows(const CPluginParticipant& who, const std::string& text)
    {
        return PumpMainLoopUntil([&] { return who.PanelText() == text; }, 5);
    }
    int TraceCount(const std::string& line) const
    {
        const std::vector<std::string> lines = m_ui.Lines();
        return int(std::count(lines.begin(), lines.end(), line));
    }

    CHostUICapture m_ui;
    CNotePlugin m_plugin;
    std::unique_ptr<IMeeting> m_pMeeting = GetParam() == EConferenceKind::kLocal ? NewLocalMeeting(CMeetingOptions())
                                                                                 : NewTestRedisMeeting(CMeetingOptions());
};
