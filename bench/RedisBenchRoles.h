// The parts bench_redis plays in its child processes ("bench_redis --child ROLE ..."), and what
// the benchmark and its children agree on: the caption lines and the line protocol.
//
//   readers PORT MEETING FIRST_USER N RAW_KEY SHARED
//       N readers through the loaded plug-in (one meeting connection each, or SHARED=1: one for
//       the process), and N raw readers (connections blocking in XREAD on RAW_KEY, on the same
//       main loop, no plug-in).
//       Prints "ready" when all are in; then, until its standard input closes, notes when the
//       last of its plug-in readers' panels shows each caption line, and when the last raw
//       reader got each entry of RAW_KEY (field "n": the line's number, -1 ends the readers).
//       Prints "P line ns" and "R line ns" (CLOCK_MONOTONIC) for every line all N saw, and
//       "C plugin_ns raw_ns idle_ns": its CPU time while plug-in lines, raw lines and no lines
//       were sent (the parent writes 'P', 'R', 'I', or 'E' to stop booking, on its standard
//       input), then "done".
//   rss PORT MEETING USER CHARS
//       One reader joining the meeting until its panel shows CHARS characters. Prints
//       "rss REST_KB AFTER_KB PEAK_KB PEAK_RESET" (PEAK_RESET 1 when VmHWM could be reset at rest).
// A child that fails prints "error <reason>" and exits with 1.
#pragma once

#include <string>

// Every caption line has this many characters with its line end.
constexpr unsigned kLineChars = 80;
// The most lines a latency run types of each kind.
constexpr int kMaxLatencyLines = 4096;

// Caption line i: kLineChars - 1 characters that start with its number, no line end.
std::string CaptionLine(unsigned i);

// Runs the role named in argv[0]; the process's exit code.
int RunBenchChild(int argc, char** argv);
