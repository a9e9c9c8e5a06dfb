// Host UI library: formats trace lines and routes trace lines, warnings and telemetry either to
// the callbacks a host registered or to the defaults (standard error; telemetry dropped).
#include "tessarinnote/notehostui.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#include <memory>

namespace {

// A registered callback and the context it was registered with; everything runs on the host's
// main thread, so plain globals suffice.
template <typename Callback>
struct Hook {
    Callback callback = nullptr;
    void* context = nullptr;
};

Hook<NoteTraceCallback> g_trace;
Hook<NoteWarningCallback> g_warning;
Hook<NoteTelemetryCallback> g_telemetry;

struct FreeDeleter {
    void operator()(char* p) const { free(p); }
};

const char* OrEmpty(const char* s) { return s ? s : ""; }

void EmitTrace(const char* module, const char* line)
{
    if (g_trace.callback)
        g_trace.callback(g_trace.context, module, line);
    else
        fprintf(stderr, "%s: %s\n", module, line);
}

}  // namespace

extern "C" {

void MacInfoTrace2(const char* module, const char* format, ...)
{
    if (!format) return;
    module = OrEmpty(module);

    // Most lines fit the stack buffer; longer ones (whole texts are traced at times) get a heap
    // buffer of the exact size so nothing is cut off.
    char small[512];
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    const int needed = vsnprintf(small, sizeof small, format, args);
    va_end(args);

    if (needed < 0) {
        va_end(again);
        return;
    }
    if (static_cast<size_t>(needed) < sizeof small) {
        va_end(again);
        EmitTrace(module, small);
        return;
    }
    std::unique_ptr<char, FreeDeleter> large(static_cast<char*>(malloc(static_cast<size_t>(needed) + 1)));
    if (large) vsnprintf(large.get(), static_cast<size_t>(needed) + 1, format, again);
    va_end(again);
    // Out of memory: the truncated line is still better than none.
    EmitTrace(module, large ? large.get() : small);
}

void ShowWarningWindow2(const char* title, const char* text)
{
    if (g_warning.callback)
        g_warning.callback(g_warning.context, OrEmpty(title), OrEmpty(text));
    else
        fprintf(stderr, "%s: %s\n", OrEmpty(title), OrEmpty(text));
}

void SendTelemetryActionByID(int actionId)
{
    if (g_telemetry.callback) g_telemetry.callback(g_telemetry.context, actionId);
}

void NoteHostUI_SetTraceCallback(NoteTraceCallback callback, void* context)
{
    g_trace.callback = callback;
    g_trace.context = callback ? context : nullptr;
}

void NoteHostUI_SetWarningCallback(NoteWarningCallback callback, void* context)
{
    g_warning.callback = callback;
    g_warning.context = callback ? context : nullptr;
}

void NoteHostUI_SetTelemetryCallback(NoteTelemetryCallback callback, void* context)
{
    g_telemetry.callback = callback;
    g_telemetry.context = callback ? context : nullptr;
}

}  // extern "C"
