// Collects the plug-in's trace lines through the host UI library's trace callback while it
// lives, so client tests can look for exact lines (and keep standard error quiet).
#pragma once

#include "tessarinnote/notehostui.h"

#include <algorithm>
#include <string>
#include <vector>

class CClientTraceCapture {
public:
    CClientTraceCapture() { NoteHostUI_SetTraceCallback(&CClientTraceCapture::Collect, this); }
    ~CClientTraceCapture() { NoteHostUI_SetTraceCallback(nullptr, nullptr); }
    CClientTraceCapture(const CClientTraceCapture&) = delete;
    CClientTraceCapture& operator=(const CClientTraceCapture&) = delete;

    const std::vector<std::string>& Lines() const { return m_lines; }
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

private:
    static void Collect(void* context, const char* module, const char* line)
    {
        const std::string entry = std::string(module) == "note" ? line : std::string(module) + ": " + line;
        static_cast<CClientTraceCapture*>(context)->m_lines.push_back(entry);
    }

    std::vector<std::string> m_lines;
};
