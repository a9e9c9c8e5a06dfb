// Host UI library (libnotehostui): the trace, warning-window and telemetry services that the
// plug-in calls as it would call its host's frameworks. A host may redirect each of them by
// registering a callback; with none registered, trace lines and warnings go to standard error
// and telemetry is dropped.
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

// Shows a one-button warning window with a title and a text (both UTF-8).
NOTEHOSTUI_API void ShowWarningWindow2(const char* title, const char* text);

// Reports a telemetry action (the plug-in sends 2001 when a save starts, 2002 when a file is
// written).
NOTEHOSTUI_API void SendTelemetryActionByID(int actionId);

// Receives each formatted trace line (module tag, line without a trailing newline).
// Both strings are valid only during the call.
typedef void (*NoteTraceCallback)(void* context, const char* module, const char* line);
typedef void (*NoteWarningCallback)(void* context, const char* title, const char* text);
typedef void (*NoteTelemetryCallback)(void* context, int actionId);

// Each setter replaces the previous callback; a null callback restores the default behaviour.
NOTEHOSTUI_API void NoteHostUI_SetTraceCallback(NoteTraceCallback callback, void* context);
NOTEHOSTUI_API void NoteHostUI_SetWarningCallback(NoteWarningCallback callback, void* context);
NOTEHOSTUI_API void NoteHostUI_SetTelemetryCallback(NoteTelemetryCallback callback, void* context);

#ifdef __cplusplus
}
#endif
