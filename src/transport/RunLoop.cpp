// The calling thread's current run loop.
#include "transport/RunLoop.h"

#include "transport/RunLoopGLib.h"

#include <memory>
#include <vector>

namespace {

// Initial-exec: the plug-in is loaded with dlopen, and its few bytes of thread-local state then
// live in the static TLS block rather than behind __tls_get_addr, whose dynamic blocks the leak
// checker of the sanitizer build misreads (its tracer crashed at exit).
#define NOTE_TLS thread_local __attribute__((tls_model("initial-exec")))
NOTE_TLS IRunLoop* t_pInstalled = nullptr;
// One GLib loop per main context that was this thread's default when asked for, so code that
// pushes a thread-default context gets timers on that context and not on an earlier one.
NOTE_TLS std::vector<std::unique_ptr<CRunLoopGLib>> t_glibLoops;
#undef NOTE_TLS

}  // namespace

IRunLoop& GetCurrentRunLoop()
{
    if (t_pInstalled) return *t_pInstalled;
    GMainContext* context = g_main_context_get_thread_default();
    if (!context) context = g_main_context_default();
    for (const std::unique_ptr<CRunLoopGLib>& loop : t_glibLoops)
        if (loop->Context() == context) return *loop;
    t_glibLoops.push_back(std::make_unique<CRunLoopGLib>(context));
    return *t_glibLoops.back();
}

IRunLoop* SetCurrentRunLoop(IRunLoop* loop)
{
    IRunLoop* previous = t_pInstalled;
    t_pInstalled = loop;
    return previous;
}
