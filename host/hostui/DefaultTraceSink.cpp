// The default trace sink: level filter, shortened texts, a line buffer for standard error and
// the hooks that write it out at the end.
#include "DefaultTraceSink.h"

#include <errno.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <exception>

namespace notehostui {
namespace {

enum ETraceLevel { kTraceNone, kTraceErrors, kTraceAll };

constexpr size_t kBufferBytes = 32 * 1024;
constexpr size_t kLongLine = 256;
constexpr size_t kShownPrefix = 160;
const char* const kErrorWords[] = {"error", "fail", "no memory"};
const int kFatalSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};

struct CTraceState {
    bool bConfigured = false;
    bool bHooked = false;
    bool bFullText = false;
    ETraceLevel eLevel = kTraceErrors;
    size_t nUsed = 0;
    char szBuffer[kBufferBytes];
};
CTraceState g_state;
std::terminate_handler g_previousTerminate = nullptr;

// write(2) of all bytes; usable from a signal handler.
void WriteAll(const char* p, size_t n)
{
    while (n > 0) {
        const ssize_t done = write(STDERR_FILENO, p, n);
        if (done < 0 && errno == EINTR) continue;
        if (done <= 0) return;
        p += done;
        n -= static_cast<size_t>(done);
    }
}

bool MentionsError(const char* text)
{
    for (const char* p = text; *p; ++p)
        for (const char* word : kErrorWords)
            if (strncasecmp(p, word, strlen(word)) == 0) return true;
    return false;
}

void OnFatalSignal(int signalNumber)
{
    FlushDefaultTrace();
    signal(signalNumber, SIG_DFL);
    raise(signalNumber);
}

void OnTerminate()
{
    FlushDefaultTrace();
    if (g_previousTerminate) g_previousTerminate();
    abort();
}

// The handlers are added once, and only where the process had none of its own.
void InstallHooks()
{
    if (g_state.bHooked) return;
    g_state.bHooked = true;
    for (int signalNumber : kFatalSignals) {
        struct sigaction current;
        if (sigaction(signalNumber, nullptr, &current) != 0) continue;
        if ((current.sa_flags & SA_SIGINFO) || current.sa_handler != SIG_DFL) continue;
        struct sigaction ours;
        memset(&ours, 0, sizeof ours);
        ours.sa_handler = OnFatalSignal;
        ours.sa_flags = SA_RESETHAND | SA_NODEFER;
        sigemptyset(&ours.sa_mask);
        sigaction(signalNumber, &ours, nullptr);
    }
    g_previousTerminate = std::set_terminate(OnTerminate);
}

// Flushes at exit; lines traced later (other libraries' exit code) are written at once.
struct CExitFlush {
    ~CExitFlush()
    {
        FlushDefaultTrace();
        g_state.eLevel = kTraceNone;
    }
} g_exitFlush;

void Append(const char* bytes, size_t n)
{
    memcpy(g_state.szBuffer + g_state.nUsed, bytes, n);
    g_state.nUsed += n;
}

}  // namespace

void ConfigureDefaultTrace()
{
    FlushDefaultTrace();
    const char* level = getenv("NOTE_TRACE");
    const char* text = getenv("NOTE_TRACE_TEXT");
    g_state.eLevel = kTraceErrors;
    if (level && strcasecmp(level, "none") == 0) g_state.eLevel = kTraceNone;
    if (level && strcasecmp(level, "all") == 0) g_state.eLevel = kTraceAll;
    g_state.bFullText = text && strcasecmp(text, "full") == 0;
    g_state.bConfigured = true;
    if (g_state.eLevel != kTraceNone) InstallHooks();
}

void SilenceDefaultTrace()
{
    FlushDefaultTrace();
    g_state.eLevel = kTraceNone;
    g_state.bConfigured = true;
}

bool DefaultTraceWants(const char* format)
{
    if (!g_state.bConfigured) ConfigureDefaultTrace();
    switch (g_state.eLevel) {
    case kTraceNone: return false;
    case kTraceAll: return true;
    default: break;
    }
    // Formats are literals traced again and again: the answer for each address is kept in a
    // small direct-mapped table, so a busy meeting pays one lookup per line.
    struct CSeenFormat {
        const char* pFormat;
        bool bWanted;
    };
    static CSeenFormat s_seen[256];
    CSeenFormat& slot = s_seen[(reinterpret_cast<uintptr_t>(format) >> 3) & 255];
    if (slot.pFormat != format) {
        slot.pFormat = format;
        slot.bWanted = MentionsError(format) || strstr(format, "%s") != nullptr;
    }
    return slot.bWanted;
}

void DefaultTraceWrite(const char* module, const char* line)
{
    if (!g_state.bConfigured) ConfigureDefaultTrace();
    const bool error = MentionsError(line);
    if (g_state.eLevel == kTraceNone || (g_state.eLevel == kTraceErrors && !error)) return;

    size_t textLen = strlen(line);
    char cut[48] = "";
    if (!g_state.bFullText && textLen > kLongLine) {
        snprintf(cut, sizeof cut, "... [%zu bytes]", textLen);
        textLen = kShownPrefix;
        // Whole characters only: never end inside a UTF-8 sequence.
        while (textLen > 0 && (static_cast<unsigned char>(line[textLen]) & 0xC0) == 0x80) --textLen;
    }
    const size_t moduleLen = strlen(module);
    const size_t cutLen = strlen(cut);
    const size_t total = moduleLen + 2 + textLen + cutLen + 1;
    if (total > kBufferBytes - g_state.nUsed) FlushDefaultTrace();
    if (total > kBufferBytes) {
        WriteAll(module, moduleLen);
        WriteAll(": ", 2);
        WriteAll(line, textLen);
        WriteAll(cut, cutLen);
        WriteAll("\n", 1);
        return;
    }
    Append(module, moduleLen);
    Append(": ", 2);
    Append(line, textLen);
    Append(cut, cutLen);
    Append("\n", 1);
    if (error) FlushDefaultTrace();
}

void FlushDefaultTrace()
{
    const size_t used = g_state.nUsed;
    g_state.nUsed = 0;
    WriteAll(g_state.szBuffer, used);
}

}  // namespace notehostui
