// Collects the trace lines of module "note" through the host UI library's trace callback for
// as long as it lives, so tests can compare them exactly.
#pragma once

#include "tessarinnote/notehostui.h"

#include <string>
#include <vector>

class CTraceCapture {
public:
    CTraceCapture() { NoteHostUI_SetTraceCallback(&CTraceCapture::Collect, this); }
    ~CTraceCapture() { NoteHostUI_SetTraceCallback(nullptr, nullptr); }
    CTraceCapture(const CTraceCapture&) = delete;
    CTraceCapture& operator=(const CTraceCapture&) = delete;

    const std::vector<std::string>& Lines() const { return m_lines; }
    void Clear() { m_lines.clear(); }

private:
    static void Collect(void* context, const char* module, const char* line)
    {
        // Lines of another module would be a fault of their own: keep them visible.
        std::string entry = std::string(module) == "note" ? line : std::string(module) + ": " + line;
        static_cast<CTraceCapture*>(context)->m_lines.push_back(entry);
    }

    std::vector<std::string> m_lines;
};
