// Host UI library (libnotehostui): the trace, warning-window and telemetry services that the
// plug-in calls as it would call its host's frameworks. A host may redirect each of them by
// registering a callback; with none registered, warnings go to standard error, telemetry is
// dropped, and trace lines go to standard error through a buffered sink: NOTE_TRACE=none,
// errors (the default: lines that mention an error or a failure) or all; NOTE_TRACE_TEXT=full
// writes long lines whole instead of a prefix and their length. A registered callback receives
// every line whole, whatever these variables say.
// All functions are called on the host's main thread.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#if defined(NOTEHOSTUI_BUILD)
#define NOTEHOSTUI_API __attribute__((visibility("default")))
#else
#define NOTEHOSTUI_API
#endif

// Writes one trace line: module tag (for the plug-in always "note") and a printf-style format.
NOTEHOSTUI_API void MacInfoTrace2(const char* module, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

// Shows a one-button warning window with a title and a text (both UTF-8): the registered
// warning callback, else a modal message box when a QApplication exists, else standard error.
NOTEHOSTUI_API void ShowWarningWindow2(const char* title, const char* text);

// Reports a telemetry action (the plug-in sends 2001 when a save starts, 2002 when a file is
// written).
NOTEHOSTUI_API void SendTelemetryActionByID(int actionId);

// Receives each formatted trace line (module tag, line without a trailing newline).
// Both strings are valid only during the call.
typedef void (*NoteTraceCallback)(void* context, const char* module, const char* line);
typedef void (*NoteWarningCallback)(void* context, const char* title, const char* text);
typedef void (*NoteTelemetryCallback)(void* context, int actionId);

// Each setter replaces the previous callback; a null callback restores the default behaviour
// (for the trace: the default sink, reading NOTE_TRACE and NOTE_TRACE_TEXT again).
NOTEHOSTUI_API void NoteHostUI_SetTraceCallback(NoteTraceCallback callback, void* context);
// Tracing off: drops the callback and every line, before it is formatted (a callback that
// ignores its lines still pays for formatting each of them). Undone by the setter above.
NOTEHOSTUI_API void NoteHostUI_SetTraceOff(void);
NOTEHOSTUI_API void NoteHostUI_SetWarningCallback(NoteWarningCallback callback, void* context);
NOTEHOSTUI_API void NoteHostUI_SetTelemetryCallback(NoteTelemetryCallback callback, void* context);

// Hosts without a window: the plug-in's headless panels take the system services they would
// otherwise get from the window system from here.
#ifdef __cplusplus
class INoteHeadlessPanel;
#else
typedef struct INoteHeadlessPanel INoteHeadlessPanel;
#endif

// Answers a headless panel's save dialog: the chosen path (UTF-8, valid until the next call),
// or null to cancel. Without a chooser every save dialog is cancelled.
typedef const char* (*NoteSaveChooserCallback)(void* context, const char* title,
                                                const char* defaultName);
NOTEHOSTUI_API void NoteHostUI_SetSaveChooser(NoteSaveChooserCallback callback, void* context);
NOTEHOSTUI_API const char* NoteHostUI_ChooseSaveFile(const char* title, const char* defaultName);

// Told when a headless panel is created (created 1) and before it goes (created 0).
typedef void (*NoteHeadlessPanelCallback)(void* context, INoteHeadlessPanel* panel, int created);
NOTEHOSTUI_API void NoteHostUI_SetHeadlessPanelCallback(NoteHeadlessPanelCallback callback,
                                                        void* context);
NOTEHOSTUI_API void NoteHostUI_AnnounceHeadlessPanel(INoteHeadlessPanel* panel, int created);

// The clipboard of a host without a window: a plain string and a URL, each may be absent
// (null). What the panels copy lands here as a plain string.
NOTEHOSTUI_API void NoteHostUI_SetClipboard(const char* text, const char* url);
NOTEHOSTUI_API const char* NoteHostUI_ClipboardText(void);
NOTEHOSTUI_API const char* NoteHostUI_ClipboardURL(void);

#ifdef __cplusplus
}
#endif
