// A meeting across processes through the loaded plug-in: a captioner keeps typing while the
// meeting's redis-server is killed and restarted, and no line is lost.
#include "PluginFixture.h"

#include <signal.h>

namespace {

using PluginRedis = PluginTest;

TEST_P(PluginRedis, ACaptionerTypingThroughAnOutageLosesNoLine)
{
    CRedisTestServer server({"--appendonly", "yes", "--appendfsync", "always"});
    const CRedisMeetingOptions options = server.Options(UniqueTestMeetingId());
    std::string error;
    // The captioner and the reader are separate processes, each with its own connections.
    std::unique_ptr<IMeeting> captions = NewRedisMeeting(options, error);
    std::unique_ptr<IMeeting> audience = NewRedisMeeting(options, error);
    ASSERT_TRUE(captions && audience) << error;
    auto captioner = JoinMeeting(*captions, 1, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_WRITER);
    auto reader = JoinMeeting(*audience, 2, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_READER);
    INoteHeadlessPanel& panel = *captioner->Panel();
    const auto say = [&panel](const char* line) {
        panel.Select(panel.Length(), 0);
        ASSERT_TRUE(panel.Type(line));
        panel.PressReturn();
    };
    say("Before.");
    ASSERT_TRUE(Shows(*reader, "Before.\n")) << reader->PanelText();

    server.Stop(SIGKILL);
    // The instance hears of it and writes the notice into the captions.
    ASSERT_TRUE(PumpMainLoopUntil([&] { return captioner->PanelText().find("unavailable") != std::string::npos; }, 10));
    say("During one.");
    say("During two.");
    ASSERT_TRUE(server.Start());
    ASSERT_TRUE(PumpMainLoopUntil([&] { return captioner->PanelText().find("restored") != std::string::npos; }, 20));
    say("After.");

    // Every line is there once and in order, for the reader who lived through the outage (and
    // wrote its own notices) and for one who joins afterwards.
    const auto heardAll = [](const CPluginParticipant& who) {
        return PumpMainLoopUntil([&who] { return who.PanelText().find("After.") != std::string::npos; }, 20);
    };
    std::unique_ptr<IMeeting> later = NewRedisMeeting(options, error);
    ASSERT_TRUE(later) << error;
    auto late = JoinMeeting(*later, 3, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_READER);
    for (const CPluginParticipant* who : {reader.get(), late.get()}) {
        ASSERT_TRUE(heardAll(*who)) << who->PanelText();
        const std::string heard = who->PanelText();
        std::size_t last = 0;
        for (const char* line : {"Before.", "During one.", "During two.", "After."}) {
            const std::size_t at = heard.find(line);
            EXPECT_NE(at, std::string::npos) << line << " in " << heard;
            EXPECT_GE(at, last) << line << " in " << heard;
            EXPECT_EQ(heard.find(line, at + 1), std::string::npos) << line << " in " << heard;
            last = at;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, PluginRedis, ::testing::Values(EConferenceKind::kRedis), ConferenceKindName);

}  // namespace
