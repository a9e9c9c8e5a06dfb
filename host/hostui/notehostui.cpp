// Host UI library: formats trace lines and routes trace lines, warnings and telemetry either to
// the callbacks a host registered or to the defaults (the buffered trace sink of
// DefaultTraceSink.h, standard error or a message box for the warning; telemetry dropped).
#include "tessarinnote/notehostui.h"

#include "DefaultTraceSink.h"

#include <QApplication>
#include <QMessageBox>
#include <QString>

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#include <memory>
#include <string>

namespace {

// A registered callback and the context it was registered with; everything runs on the host's
// main thread, so plain globals suffice.
template <typename Callback>
struct Hook {
    Callback callback = nullptr;
    void* context = nullptr;

    void Set(Callback newCallback, void* newContext)
    {
        callback = newCallback;
        context = newCallback ? newContext : nullptr;
    }
};

Hook<NoteTraceCallback> g_trace;
Hook<NoteWarningCallback> g_warning;
Hook<NoteTelemetryCallback> g_telemetry;
Hook<NoteSaveChooserCallback> g_chooser;
Hook<NoteHeadlessPanelCallback> g_panels;

// The headless clipboard; absent and empty are different, as on a real pasteboard.
struct Clipboard {
    bool hasText = false;
    bool hasURL = false;
    std::string text;
    std::string url;
} g_clipboard;

struct FreeDeleter {
    void operator()(char* p) const { free(p); }
};

const char* OrEmpty(const char* s) { return s ? s : ""; }

void EmitTrace(const char* module, const char* line)
{
    if (g_trace.callback)
        g_trace.callback(g_trace.context, module, line);
    else
        notehostui::DefaultTraceWrite(module, line);
}

}  // namespace

extern "C" {

void MacInfoTrace2(const char* module, const char* format, ...)
{
    if (!format) return;
    // The default sink drops most lines by level: they are not even formatted.
    if (!g_trace.callback && !notehostui::DefaultTraceWants(format)) return;
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
    if (g_warning.callback) {
        g_warning.callback(g_warning.context, OrEmpty(title), OrEmpty(text));
    } else if (qobject_cast<QApplication*>(QCoreApplication::instance())) {
        // A window system: the person at it sees the warning and confirms it.
        QMessageBox box(QMessageBox::Warning, QString::fromUtf8(OrEmpty(title)),
                        QString::fromUtf8(OrEmpty(text)), QMessageBox::Ok,
                        QApplication::activeWindow());
        box.exec();
    } else {
        notehostui::FlushDefaultTrace();
        fprintf(stderr, "%s: %s\n", OrEmpty(title), OrEmpty(text));
    }
}

void SendTelemetryActionByID(int actionId)
{
    if (g_telemetry.callback) g_telemetry.callback(g_telemetry.context, actionId);
}

void NoteHostUI_SetTraceCallback(NoteTraceCallback callback, void* context)
{
    // Lines already buffered keep their place before whatever comes next.
    notehostui::FlushDefaultTrace();
    g_trace.Set(callback, context);
    if (!callback) notehostui::ConfigureDefaultTrace();
}

void NoteHostUI_SetTraceOff(void)
{
    g_trace.Set(nullptr, nullptr);
    notehostui::SilenceDefaultTrace();
}

void NoteHostUI_SetWarningCallback(NoteWarningCallback callback, void* context)
{
    g_warning.Set(callback, context);
}

void NoteHostUI_SetTelemetryCallback(NoteTelemetryCallback callback, void* context)
{
    g_telemetry.Set(callback, context);
}

const char* NoteHostUI_ChooseSaveFile(const char* title, const char* defaultName)
{
    if (!g_chooser.callback) return nullptr;
    return g_chooser.callback(g_chooser.context, OrEmpty(title), OrEmpty(defaultName));
}

void NoteHostUI_SetSaveChooser(NoteSaveChooserCallback callback, void* context)
{
    g_chooser.Set(callback, context);
}

void NoteHostUI_SetHeadlessPanelCallback(NoteHeadlessPanelCallback callback, void* context)
{
    g_panels.Set(callback, context);
}

void NoteHostUI_AnnounceHeadlessPanel(INoteHeadlessPanel* panel, int created)
{
    if (g_panels.callback && panel) g_panels.callback(g_panels.context, panel, created);
}

void NoteHostUI_SetClipboard(const char* text, const char* url)
{
    g_clipboard.hasText = text != nullptr;
    g_clipboard.text = OrEmpty(text);
    g_clipboard.hasURL = url != nullptr;
    g_clipboard.url = OrEmpty(url);
}

const char* NoteHostUI_ClipboardText(void)
{
    return g_clipboard.hasText ? g_clipboard.text.c_str() : nullptr;
}

const char* NoteHostUI_ClipboardURL(void)
{
    return g_clipboard.hasURL ? g_clipboard.url.c_str() : nullptr;
}

}  // extern "C"
