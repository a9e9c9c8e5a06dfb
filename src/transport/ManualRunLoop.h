// CManualRunLoop: a run loop with a virtual clock, for tests. Nothing runs by itself: RunPending
// runs one iteration at the current time and Advance moves the clock forward, running each
// timer at its fire date and posted callbacks between, in order. Single-threaded.
#pragma once

#include "transport/RunLoop.h"

#include <cstddef>
#include <deque>
#include <map>
#include <memory>

class CManualRunLoop final : public IRunLoop {
public:
    // now: the starting time in reference-date seconds.
    explicit CManualRunLoop(double now = 0.0);

    TimerId AddTimer(double fireDate, double interval, TimerCallback callback) override;
    bool RemoveTimer(TimerId timer) override;
    void Post(PostedCallback callback) override;
    double Now() const override { return m_dNow; }

    // One iteration: the callbacks posted before the call, then each due timer once, earliest
    // first. Returns how many callbacks ran.
    int RunPending();
    // Moves the clock forward by seconds (negative counts as 0) and runs what falls due on the
    // way; the clock reads each timer's fire date while its callback runs. Returns how many ran.
    int Advance(double seconds);

    std::size_t TimerCount() const { return m_timers.size(); }
    std::size_t PostedCount() const { return m_posted.size(); }

private:
    struct Timer {
        double dNext;
        double dInterval;  // not positive: fires once
        std::shared_ptr<TimerCallback> callback;
    };

    int RunPosted();
    // The due timer with the earliest date (ties: the older timer), or 0.
    TimerId EarliestDue(double until) const;
    void Fire(TimerId id);

    double m_dNow;
    TimerId m_nNextId;
    std::map<TimerId, Timer> m_timers;
    std::deque<PostedCallback> m_posted;
};
