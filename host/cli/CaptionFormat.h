// How notectl writes caption lines: plain text, SubRip (SRT), WebVTT and JSON lines, and the
// tracker that turns a growing caption text into its complete lines. Pure functions and small
// value classes; no I/O except through the FILE the writer is given.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

enum class ECaptionFormat { kText, kSrt, kVtt, kJsonl };

// "text", "txt", "srt", "vtt", "jsonl"; false for anything else.
bool ParseCaptionFormat(const std::string& name, ECaptionFormat& format);

// A cue time: "HH:MM:SS,mmm" (SRT) or "HH:MM:SS.mmm" (WebVTT); hours take more digits past 99.
// Negative seconds count as 0; milliseconds are rounded.
std::string FormatCueTime(double seconds, ECaptionFormat format);
// UTC time as ISO 8601 with milliseconds: "2025-01-31T09:05:00.250Z".
std::string FormatIsoTime(double unixSeconds);
// A JSON string literal (quotes included) of UTF-8 text: '"', '\\' and control characters
// escaped; other characters as they are.
std::string JsonString(const std::string& text);
// The length of valid UTF-8 text in UTF-16 units, as the notepad's panel counts it.
unsigned Utf16Units(const std::string& utf8);
// WebVTT cue text: '&', '<' and '>' as character references (so no "-->" either).
std::string VttText(const std::string& text);

// One caption line with its times: start and end in seconds from the first caption (SRT and
// WebVTT cues), and the arrival as Unix time (JSON lines).
struct CCaptionLine {
    std::string strText;
    double dStart = 0;
    double dEnd = 0;
    double dArrivalUnix = 0;
};

// How long a cue shows when nothing follows it soon, in seconds.
constexpr double kCueSeconds = 4.0;

// The cue end of a line that starts at start and is followed by a line at next (negative: none):
// the next line's start, at most kCueSeconds after start, at least 1 ms after it.
double CueEnd(double start, double next);

// Writes lines one by one in a format, numbering the cues; empty lines make no SRT or WebVTT
// cue. Each line is flushed, for a reader at the other end of a pipe.
class CCaptionWriter {
public:
    CCaptionWriter(ECaptionFormat format, std::FILE* out) : m_eFormat(format), m_pOut(out) {}

    // The text before the first line ("WEBVTT" and a blank line for WebVTT).
    std::string Header() const;
    // One line as it is written.
    std::string Format(const CCaptionLine& line);
    // Writes the header once, then the line; false when the output failed (a closed pipe).
    bool Write(const CCaptionLine& line);
    bool WriteHeader();

private:
    ECaptionFormat m_eFormat;
    std::FILE* m_pOut;
    unsigned m_nCues = 0;
    unsigned m_nLines = 0;
    bool m_bHeaderDone = false;
};

// Follows a caption text as it grows and tells each complete line once. A text that no longer
// begins with what was seen (cleared, replaced) is followed from where the two part.
class CLineTracker {
public:
    // The lines completed since the last call, without their line ends.
    std::vector<std::string> Update(const std::string& text);
    // The text after the last complete line (a line still being written).
    std::string Rest(const std::string& text) const;

private:
    std::string m_strSeen;  // the text up to and with the last line end told
};
