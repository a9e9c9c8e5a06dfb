// IRunLoop: the event loop of one thread, as the plug-in sees it: repeating timers on absolute
// fire dates, callbacks posted to the next iteration, and the current time. Dates are seconds
// since the reference date 2001-01-01 00:00:00 UTC. Each thread has a current run loop; by
// default it is a GLib loop on the thread's GLib main context, and tests install a manual one.
// A run loop and everything registered on it belong to the thread that runs it.
#pragma once

#include <cstdint>
#include <functional>

class IRunLoop {
public:
    // Identifies a timer of one loop; 0 is never a valid timer.
    typedef std::uint64_t TimerId;
    typedef std::function<void(TimerId)> TimerCallback;
    typedef std::function<void()> PostedCallback;

    virtual ~IRunLoop() = default;

    // Adds a timer that first fires at fireDate (reference-date seconds; a date in the past
    // fires on the next iteration) and then every interval seconds until removed; an interval
    // that is not positive fires once. Returns 0 for a null callback.
    virtual TimerId AddTimer(double fireDate, double interval, TimerCallback callback) = 0;
    // Removes the timer; false when it is not (or no longer) a timer of this loop. A callback
    // may remove its own timer.
    virtual bool RemoveTimer(TimerId timer) = 0;
    // Runs callback once on the next iteration; callbacks run in the order posted.
    virtual void Post(PostedCallback callback) = 0;
    // The current time in reference-date seconds.
    virtual double Now() const = 0;
};

// Seconds from the Unix epoch to the reference date.
constexpr double kReferenceDateUnixSeconds = 978307200.0;

// The calling thread's current run loop: the one installed with SetCurrentRunLoop, else the
// GLib loop of the thread's default GLib main context (created on first use).
IRunLoop& GetCurrentRunLoop();
// Makes loop the calling thread's current run loop (null goes back to the GLib default);
// returns the previously installed loop, or null. REQUIRES: loop outlives its installation.
IRunLoop* SetCurrentRunLoop(IRunLoop* loop);

// Installs a run loop as current for a scope and restores the previous one.
class CRunLoopScope {
public:
    explicit CRunLoopScope(IRunLoop& loop) : m_pPrevious(SetCurrentRunLoop(&loop)) {}
    ~CRunLoopScope() { SetCurrentRunLoop(m_pPrevious); }
    CRunLoopScope(const CRunLoopScope&) = delete;
    CRunLoopScope& operator=(const CRunLoopScope&) = delete;

private:
    IRunLoop* m_pPrevious;
};
