// CNtTimer: abstract base that gives a derived class (the note client) a periodic OnTick on the
// run loop of the thread that installed it. Two states: no timer, installed. Ticks run between,
// never during, the other work of that loop; nothing is locked.
#pragma once

#include "transport/RunLoop.h"

class CNtTimer {
public:
    CNtTimer();
    // Removes the timer.
    virtual ~CNtTimer();
    CNtTimer(const CNtTimer&) = delete;
    CNtTimer& operator=(const CNtTimer&) = delete;

    // Adds a repeating timer to the calling thread's current run loop. fireDate is absolute, in
    // seconds since 2001-01-01 00:00:00 UTC, so a tiny date such as 0.05 lies in the past and
    // means "fire on the next iteration, then every interval". Does nothing while installed.
    // REQUIRES: that run loop outlives the installed timer.
    void InstallTimer(double fireDate, double interval);
    // Removes the timer if one is installed; safe to call repeatedly.
    void RemoveTimer();
    // The timer's callout: info is the CNtTimer to tick; a null info does nothing.
    static void TimerHandler(IRunLoop::TimerId timer, void* info);

    bool IsTimerInstalled() const { return m_hTimer != 0; }

    virtual void OnTick() = 0;

private:
    IRunLoop* m_pRunLoop;  // the loop m_hTimer belongs to
    IRunLoop::TimerId m_hTimer;
};
