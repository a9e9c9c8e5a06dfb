// Test helpers for the client's side of the panel: the headless view behind a client's panel,
// the numbers of the messages the panel receives (read from its trace lines), and the
// telemetry actions reported, each for as long as the recorder lives.
#pragma once

#include "client/CNoteClient.h"
#include "panel/HeadlessTextView.h"
#include "panel/NoteViewController.h"
#include "tessarinnote/notehostui.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

inline NoteViewController& PanelOf(CNoteClient& client)
{
    return *static_cast<NoteViewController*>(client.GetPanel());
}

inline CHeadlessTextView& ViewOf(CNoteClient& client)
{
    return static_cast<CHeadlessTextView&>(PanelOf(client).View());
}

// Panel messages in the order they arrive, and the client's UI-message trace lines.
class CPanelMessageLog {
public:
    CPanelMessageLog() { NoteHostUI_SetTraceCallback(&OnTrace, this); }
    ~CPanelMessageLog() { NoteHostUI_SetTraceCallback(nullptr, nullptr); }
    CPanelMessageLog(const CPanelMessageLog&) = delete;
    CPanelMessageLog& operator=(const CPanelMessageLog&) = delete;

    // The messages among wanted, in order (all of them for an empty wanted).
    std::vector<int> Only(const std::vector<int>& wanted) const
    {
        std::vector<int> picked;
        for (int message : m_vecMessages) {
            bool keep = wanted.empty();
            for (int w : wanted) keep = keep || w == message;
            if (keep) picked.push_back(message);
        }
        return picked;
    }

    std::vector<int> m_vecMessages;
    std::vector<std::string> m_vecLines;

private:
    static void OnTrace(void* context, const char*, const char* line)
    {
        auto* self = static_cast<CPanelMessageLog*>(context);
        self->m_vecLines.push_back(line);
        static const char kPrefix[] = "NOTE:OnReceiveMessage:message = ";
        if (std::strncmp(line, kPrefix, sizeof kPrefix - 1) == 0)
            self->m_vecMessages.push_back(std::atoi(line + sizeof kPrefix - 1));
    }
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
