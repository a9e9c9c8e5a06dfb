// Test helper: collects the warnings and trace lines the code under test sends to the host UI
// library, through its callbacks, for as long as the object lives.
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
        NoteHostUI_SetWarningCallback(&OnWarning, this);
        NoteHostUI_SetTraceCallback(&OnTrace, this);
    }
    ~CHostUICapture()
    {
        NoteHostUI_SetWarningCallback(nullptr, nullptr);
        NoteHostUI_SetTraceCallback(nullptr, nullptr);
    }
    CHostUICapture(const CHostUICapture&) = delete;
    CHostUICapture& operator=(const CHostUICapture&) = delete;

    std::vector<SAlert> m_vecAlerts;
    std::vector<std::pair<std::string, std::string>> m_vecTrace;  // module, line

private:
    static void OnWarning(void* context, const char* title, const char* text)
    {
        static_cast<CHostUICapture*>(context)->m_vecAlerts.push_back({title, text});
    }
    static void OnTrace(void* context, const char* module, const char* line)
    {
        static_cast<CHostUICapture*>(context)->m_vecTrace.emplace_back(module, line);
    }
};
