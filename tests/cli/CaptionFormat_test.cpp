// The caption formats notectl writes: cue times as SubRip and WebVTT define them, whole cues,
// escaping for WebVTT and JSON, cue ends, and the line tracker on a text that grows or is
// replaced.
#include "CaptionFormat.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

TEST(CaptionFormat, CueTimes)
{
    const struct {
        double seconds;
        ECaptionFormat format;
        const char* expected;
    } cases[] = {
        {0, ECaptionFormat::kSrt, "00:00:00,000"},
        {0, ECaptionFormat::kVtt, "00:00:00.000"},
        {3661.5, ECaptionFormat::kSrt, "01:01:01,500"},
        {59.9996, ECaptionFormat::kVtt, "00:01:00.000"},  // rounded to the millisecond
        {0.0014, ECaptionFormat::kSrt, "00:00:00,001"},
        {-2, ECaptionFormat::kVtt, "00:00:00.000"},
        {100 * 3600 + 0.25, ECaptionFormat::kSrt, "100:00:00,250"},
    };
    for (const auto& c : cases) EXPECT_EQ(FormatCueTime(c.seconds, c.format), c.expected) << c.seconds;
}

TEST(CaptionFormat, WholeCuesPerFormat)
{
    const CCaptionLine first{"a <b> & c", 1.5, 3.0, 1738314300.25};
    const CCaptionLine blank{"", 3.0, 4.0, 1738314301.5};
    const CCaptionLine last{"say \"hi\"\\\t\x01", 4.0, 8.0, 1738314302.0};
    const struct {
        ECaptionFormat format;
        const char* expected;
    } cases[] = {
        {ECaptionFormat::kSrt,
         "1\n00:00:01,500 --> 00:00:03,000\na <b> & c\n\n2\n00:00:04,000 --> 00:00:08,000\nsay \"hi\"\\\t\x01\n\n"},
        {ECaptionFormat::kVtt,
         "WEBVTT\n\n00:00:01.500 --> 00:00:03.000\na &lt;b&gt; &amp; c\n\n"
         "00:00:04.000 --> 00:00:08.000\nsay \"hi\"\\\t\x01\n\n"},
        {ECaptionFormat::kText, "a <b> & c\n\nsay \"hi\"\\\t\x01\n"},
        {ECaptionFormat::kJsonl,
         "{\"line\":1,\"time\":\"2025-01-31T09:05:00.250Z\",\"text\":\"a <b> & c\"}\n"
         "{\"line\":2,\"time\":\"2025-01-31T09:05:01.500Z\",\"text\":\"\"}\n"
         "{\"line\":3,\"time\":\"2025-01-31T09:05:02.000Z\",\"text\":\"say \\\"hi\\\"\\\\\\t\\u0001\"}\n"},
    };
    for (const auto& c : cases) {
        CCaptionWriter writer(c.format, nullptr);
        std::string written = writer.Header();
        for (const CCaptionLine* line : {&first, &blank, &last}) written += writer.Format(*line);
        EXPECT_EQ(written, c.expected);
    }
}

TEST(CaptionFormat, CueEnds)
{
    EXPECT_DOUBLE_EQ(CueEnd(10, 12), 12);                        // until the next line
    EXPECT_DOUBLE_EQ(CueEnd(10, 30), 10 + kCueSeconds);          // at most kCueSeconds
    EXPECT_DOUBLE_EQ(CueEnd(10, -1), 10 + kCueSeconds);          // nothing follows
    EXPECT_DOUBLE_EQ(CueEnd(10, 10), 10.001);                    // never empty
    EXPECT_EQ(Utf16Units("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"), 5u);  // a, e-acute, euro, a surrogate pair
}

TEST(CaptionFormat, LineTrackerTellsEachCompleteLineOnce)
{
    CLineTracker tracker;
    const struct {
        const char* text;
        std::vector<std::string> lines;
    } steps[] = {
        {"one\ntw", {"one"}},
        {"one\ntwo\n", {"two"}},
        {"one\ntwo\n\n09:41am notice\n", {"", "09:41am notice"}},
        {"one\ntwo\nthree\n", {"three"}},  // replaced after "two": only what follows is new
        {"", {}},
        {"four\r\n", {"four"}},
    };
    for (const auto& step : steps) EXPECT_EQ(tracker.Update(step.text), step.lines) << step.text;
    EXPECT_EQ(tracker.Rest("four\r\nfi"), "fi");
}
