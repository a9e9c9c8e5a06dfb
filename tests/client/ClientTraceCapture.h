// Recorders of the host UI library's callbacks for client tests, each for as long as it lives:
// the plug-in's trace lines (with the numbers of the messages the panel received, read from the
// panel's own trace line) and the telemetry actions reported. Standard error stays quiet.
#pragma once

#include "tessarinnote/notehostui.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

class CClientTraceCapture {
public:
    CClientTraceCapture() { NoteHostUI_SetTraceCallback(&CClientTraceCapture::Collect, this); }
    ~CClientTraceCapture() { NoteHostUI_SetTraceCallback(nullptr, nullptr); }
    CClientTraceCapture(const CClientTraceCapture&) = delete;
    CClientTraceCapture& operator=(const CClientTraceCapture&) = delete;

    void Clear() { m_lines.clear(); }
    long Count(const std::string& line) const { return std::count(m_lines.begin(), m_lines.end(), line); }
    // The lines that begin with prefix, in order.
    std::vector<std::string> StartingWith(const std::string& prefix) const
    {
        std::vector<std::string> found;
        for (const std::string& line : m_lines)
            if (line.compare(0, prefix.size(), prefix) == 0) found.push_back(line);
        return found;
    }
    // The messages the panel received, in order: those among wanted, all for an empty wanted.
    std::vector<int> PanelMessages(const std::vector<int>& wanted = {}) const
    {
        static const std::string kPrefix = "NOTE:OnReceiveMessage:message = ";
        std::vector<int> picked;
        for (const std::string& line : StartingWith(kPrefix)) {
            const int message = std::atoi(line.c_str() + kPrefix.size());
            if (wanted.empty() || std::find(wanted.begin(), wanted.end(), message) != wanted.end())
                picked.push_back(message);
        }
        return picked;
    }

private:
    static void Collect(void* context, const char* module, const char* line)
    {
        const std::string entry = std::string(module) == "note" ? line : std::string(module) + ": " + line;
        static_cast<CClientTraceCapture*>(context)->m_lines.push_back(entry);
    }

    std::vector<std::string> m_lines;
};

class CTelemetryLog {
public:
    CTelemetryLog() { NoteHostUI_SetTelemetryCallback(&OnAction, this); }
    ~CTelemetryLog() { NoteHostUI_SetTelemetryCallback(nullptr, nullptr); }
    CTelemetryLog(const CTelemetryLog&) = delete;
    CTelemetryLog& operator=(const CTelemetryLog&) = delete;

    std::vector<int> m_vecActions;

private:
    static void OnAction(void* context, int action)
    {
        static_cast<CTelemetryLog*>(context)->m_vecActions.push_back(action);
    }
};
