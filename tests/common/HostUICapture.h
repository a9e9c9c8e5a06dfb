// Collects the trace lines and warnings the code under test sends to the host UI library,
// through its callbacks, for as long as it lives, so tests can compare them exactly.
#pragma once

#include "tessarinnote/notehostui.h"

#include <string>
#include <utility>
#include <vector>

class CHostUICapture {
public:
    struct SAlert {
        std::string title, text;
    };

    CHostUICapture()
    {
        NoteHostUI_SetTraceCallback(&OnTrace, this);
        NoteHostUI_SetWarningCallback(&OnWarning, this);
    }
    ~CHostUICapture()
    {
        NoteHostUI_SetTraceCallback(nullptr, nullptr);
        NoteHostUI_SetWarningCallback(nullptr, nullptr);
    }
    CHostUICapture(const CHostUICapture&) = delete;
    CHostUICapture& operator=(const CHostUICapture&) = delete;

    void Clear()
    {
        m_vecTrace.clear();
        m_vecAlerts.clear();
    }

    // The trace lines, those of module "note" as they are and another module's as
    // "module: line", so that they show.
    std::vector<std::string> Lines() const
    {
        std::vector<std::string> lines;
        for (const auto& entry : m_vecTrace)
            lines.push_back(entry.first == "note" ? entry.second : entry.first + ": " + entry.second);
        return lines;
    }

    std::vector<std::pair<std::string, std::string>> m_vecTrace;  // module, line
    std::vector<SAlert> m_vecAlerts;

private:
    static void OnTrace(void* context, const char* module, const char* line)
    {
        static_cast<CHostUICapture*>(context)->m_vecTrace.emplace_back(module, line);
    }
    static void OnWarning(void* context, const char* title, const char* text)
    {
        static_cast<CHostUICapture*>(context)->m_vecAlerts.push_back({title, text});
    }
};
