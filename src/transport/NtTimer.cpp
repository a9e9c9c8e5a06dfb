// CNtTimer: one repeating run-loop timer per object.
#include "transport/NtTimer.h"

CNtTimer::CNtTimer() : m_pRunLoop(nullptr), m_hTimer(0) {}

CNtTimer::~CNtTimer()
{
    RemoveTimer();
}

void CNtTimer::InstallTimer(double fireDate, double interval)
{
    if (m_hTimer != 0) return;
    IRunLoop& loop = GetCurrentRunLoop();
    void* info = this;
    m_hTimer = loop.AddTimer(fireDate, interval, [info](IRunLoop::TimerId timer) { TimerHandler(timer, info); });
    if (m_hTimer != 0) m_pRunLoop = &loop;
}

void CNtTimer::RemoveTimer()
{
    if (m_hTimer == 0) return;
    m_pRunLoop->RemoveTimer(m_hTimer);
    m_hTimer = 0;
    m_pRunLoop = nullptr;
}

void CNtTimer::TimerHandler(IRunLoop::TimerId /*timer*/, void* info)
{
    if (!info) return;
    static_cast<CNtTimer*>(info)->OnTick();
}
