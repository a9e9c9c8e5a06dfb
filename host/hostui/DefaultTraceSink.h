// The host UI library's own trace sink, used while no host registered a trace callback. It is
// built to cost little: lines are kept in a buffer and written to standard error in batches of
// whole lines, and lines below the chosen level are dropped before they are even formatted.
//
//   NOTE_TRACE       none | errors | all (default: errors). An error line is one whose text
//                    mentions "error", "fail" or "no memory" (any case); error lines are
//                    written at once, the others in batches.
//   NOTE_TRACE_TEXT  full: lines are written whole. Otherwise a line longer than 256 bytes
//                    (a whole note text) is cut to its first 160 bytes and its length.
//
// The buffer is written out when full, before the default warning writes to standard error,
// at exit, on a fatal signal (SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, where nobody else
// handles it) and from std::terminate. Main thread only, as every host UI service.
#pragma once

namespace notehostui {

// Reads NOTE_TRACE and NOTE_TRACE_TEXT again; done at first use and whenever a host goes back
// to the default sink.
void ConfigureDefaultTrace();
// Drops every line unformatted until the sink is configured again: a host with tracing off.
void SilenceDefaultTrace();

// Whether a line of this printf format can pass the level at all: false means drop it without
// formatting. The answer is kept per address: formats are string literals.
bool DefaultTraceWants(const char* format);

// Takes one formatted line (without its newline).
void DefaultTraceWrite(const char* module, const char* line);

// Writes out what the buffer holds.
void FlushDefaultTrace();

}  // namespace notehostui
