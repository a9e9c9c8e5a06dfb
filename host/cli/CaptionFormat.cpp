// Caption output formats and the line tracker.
#include "CaptionFormat.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <ctime>

bool ParseCaptionFormat(const std::string& name, ECaptionFormat& format)
{
    if (name == "text" || name == "txt")
        format = ECaptionFormat::kText;
    else if (name == "srt")
        format = ECaptionFormat::kSrt;
    else if (name == "vtt")
        format = ECaptionFormat::kVtt;
    else if (name == "jsonl")
        format = ECaptionFormat::kJsonl;
    else
        return false;
    return true;
}

std::string FormatCueTime(double seconds, ECaptionFormat format)
{
    const std::int64_t ms = seconds > 0 ? static_cast<std::int64_t>(std::llround(seconds * 1000.0)) : 0;
    char text[48];
    std::snprintf(text, sizeof text, "%02lld:%02lld:%02lld%c%03lld", static_cast<long long>(ms / 3600000),
                  static_cast<long long>(ms / 60000 % 60), static_cast<long long>(ms / 1000 % 60),
                  format == ECaptionFormat::kSrt ? ',' : '.', static_cast<long long>(ms % 1000));
    return text;
}

std::string FormatIsoTime(double unixSeconds)
{
    const std::int64_t ms = static_cast<std::int64_t>(std::llround(unixSeconds * 1000.0));
    const std::time_t whole = static_cast<std::time_t>(ms / 1000);
    std::tm utc{};
    gmtime_r(&whole, &utc);
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900, utc.tm_mon + 1,
                  utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, static_cast<int>(ms % 1000));
    return text;
}

std::string JsonString(const std::string& text)
{
    std::string out = "\"";
    for (const char c : text) {
        const unsigned char u = static_cast<unsigned char>(c);
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (u < 0x20 || u == 0x7f) {
                char escaped[8];
                std::snprintf(escaped, sizeof escaped, "\\u%04x", u);
                out += escaped;
            } else {
                out += c;
            }
        }
    }
    return out + "\"";
}

unsigned Utf16Units(const std::string& utf8)
{
    unsigned units = 0;
    for (const char c : utf8) {
        const unsigned char u = static_cast<unsigned char>(c);
        if ((u & 0xC0) != 0x80) units += u >= 0xF0 ? 2 : 1;  // a lead byte; four bytes: a surrogate pair
    }
    return units;
}

std::string VttText(const std::string& text)
{
    std::string out;
    for (const char c : text) {
        if (c == '&')
            out += "&amp;";
        else if (c == '<')
            out += "&lt;";
        else if (c == '>')
            out += "&gt;";
        else
            out += c;
    }
    return out;
}

double CueEnd(double start, double next)
{
    const double longest = start + kCueSeconds;
    const double end = next < 0 ? longest : std::min(next, longest);
    return std::max(end, start + 0.001);
}

// ---------------------------------------------------------------- writer

std::string CCaptionWriter::Header() const
{
    return m_eFormat == ECaptionFormat::kVtt ? "WEBVTT\n\n" : "";
}

std::string CCaptionWriter::Format(const CCaptionLine& line)
{
    ++m_nLines;
    const bool cue = m_eFormat == ECaptionFormat::kSrt || m_eFormat == ECaptionFormat::kVtt;
    if (cue && line.strText.empty()) return "";
    switch (m_eFormat) {
    case ECaptionFormat::kText:
        return line.strText + "\n";
    case ECaptionFormat::kSrt:
        return std::to_string(++m_nCues) + "\n" + FormatCueTime(line.dStart, m_eFormat) + " --> " +
               FormatCueTime(line.dEnd, m_eFormat) + "\n" + line.strText + "\n\n";
    case ECaptionFormat::kVtt:
        ++m_nCues;
        return FormatCueTime(line.dStart, m_eFormat) + " --> " + FormatCueTime(line.dEnd, m_eFormat) + "\n" +
               VttText(line.strText) + "\n\n";
    case ECaptionFormat::kJsonl:
        return "{\"line\":" + std::to_string(m_nLines) + ",\"time\":\"" + FormatIsoTime(line.dArrivalUnix) +
               "\",\"text\":" + JsonString(line.strText) + "}\n";
    }
    return "";
}

bool CCaptionWriter::WriteHeader()
{
    if (m_bHeaderDone) return true;
    m_bHeaderDone = true;
    const std::string header = Header();
    return (header.empty() || std::fwrite(header.data(), 1, header.size(), m_pOut) == header.size()) &&
           std::fflush(m_pOut) == 0;
}

bool CCaptionWriter::Write(const CCaptionLine& line)
{
    if (!WriteHeader()) return false;
    const std::string text = Format(line);
    return (text.empty() || std::fwrite(text.data(), 1, text.size(), m_pOut) == text.size()) &&
           std::fflush(m_pOut) == 0;
}

// ---------------------------------------------------------------- lines of a growing text

std::vector<std::string> CLineTracker::Update(const std::string& text)
{
    if (text.compare(0, m_strSeen.size(), m_strSeen) != 0) {
        // Replaced: keep the lines both texts share, whole.
        std::size_t common = 0;
        const std::size_t most = std::min(text.size(), m_strSeen.size());
        while (common < most && text[common] == m_strSeen[common]) ++common;
        const std::size_t lineEnd = m_strSeen.rfind('\n', common == 0 ? 0 : common - 1);
        m_strSeen.resize(common == 0 || lineEnd == std::string::npos ? 0 : lineEnd + 1);
    }
    std::vector<std::string> lines;
    std::size_t start = m_strSeen.size();
    for (std::size_t end = text.find('\n', start); end != std::string::npos; end = text.find('\n', start)) {
        std::string line = text.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        lines.push_back(std::move(line));
        start = end + 1;
    }
    m_strSeen.append(text, m_strSeen.size(), start - m_strSeen.size());
    return lines;
}

std::string CLineTracker::Rest(const std::string& text) const
{
    return text.size() > m_strSeen.size() ? text.substr(m_strSeen.size()) : std::string();
}
