// CNtTimer on the manual run loop: the client's (0.05, 0.05) schedule, install and remove
// idempotence, reinstalling, the null-info callout and removal from the destructor.
#include "transport/NtTimer.h"

#include "transport/ManualRunLoop.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

class CCountingTimer : public CNtTimer {
public:
    void OnTick() override
    {
        ++m_nTicks;
        if (m_onTick) m_onTick();
    }
    int m_nTicks = 0;
    std::function<void()> m_onTick;
};

class NtTimer : public ::testing::Test {
protected:
    // A wall-clock-like reference date, so the client's 0.05 lies far in the past.
    CManualRunLoop m_loop{800000000.0};
    CRunLoopScope m_scope{m_loop};
};

TEST_F(NtTimer, TinyAbsoluteDateFiresAtOnceThenEveryFiftyMilliseconds)
{
    CCountingTimer timer;
    timer.InstallTimer(0.05, 0.05);
    EXPECT_EQ(timer.m_nTicks, 0);
    m_loop.RunPending();
    EXPECT_EQ(timer.m_nTicks, 1);
    m_loop.Advance(0.04);
    EXPECT_EQ(timer.m_nTicks, 1);
    m_loop.Advance(0.02);
    EXPECT_EQ(timer.m_nTicks, 2);
    m_loop.Advance(0.5);  // now 0.56 s after the first tick
    EXPECT_EQ(timer.m_nTicks, 12);
}

TEST_F(NtTimer, SecondInstallKeepsTheFirstTimer)
{
    CCountingTimer timer;
    timer.InstallTimer(0.05, 1.0);
    timer.InstallTimer(0.05, 0.25);
    EXPECT_EQ(m_loop.TimerCount(), 1u);
    m_loop.RunPending();
    m_loop.Advance(2.01);
    EXPECT_EQ(timer.m_nTicks, 3);  // at 0, 1 and 2 s: the interval stayed 1 s
}

TEST_F(NtTimer, RemoveIsIdempotentAndReinstallWorks)
{
    CCountingTimer idle;
    idle.RemoveTimer();  // never installed
    EXPECT_FALSE(idle.IsTimerInstalled());

    CCountingTimer timer;
    timer.InstallTimer(0.05, 0.5);
    m_loop.RunPending();
    timer.RemoveTimer();
    timer.RemoveTimer();
    EXPECT_FALSE(timer.IsTimerInstalled());
    EXPECT_EQ(m_loop.TimerCount(), 0u);
    m_loop.Advance(3);
    EXPECT_EQ(timer.m_nTicks, 1);

    timer.InstallTimer(m_loop.Now() + 1.0, 0.5);  // a future date waits for it
    EXPECT_TRUE(timer.IsTimerInstalled());
    m_loop.RunPending();
    EXPECT_EQ(timer.m_nTicks, 1);
    m_loop.Advance(1.6);
    EXPECT_EQ(timer.m_nTicks, 3);
}

TEST_F(NtTimer, CalloutTicksItsInfoAndIgnoresNull)
{
    CCountingTimer timer;
    CNtTimer::TimerHandler(0, nullptr);
    CNtTimer::TimerHandler(0, &timer);
    CNtTimer::TimerHandler(7, static_cast<CNtTimer*>(&timer));
    EXPECT_EQ(timer.m_nTicks, 2);
}

TEST_F(NtTimer, TickMayRemoveItsOwnTimer)
{
    CCountingTimer timer;
    timer.m_onTick = [&timer] {
        if (timer.m_nTicks == 3) timer.RemoveTimer();
    };
    timer.InstallTimer(0.05, 0.05);
    m_loop.RunPending();
    m_loop.Advance(1.0);
    EXPECT_EQ(timer.m_nTicks, 3);
    EXPECT_EQ(m_loop.TimerCount(), 0u);
}

TEST_F(NtTimer, DestructorRemovesTheTimerFromItsOwnLoop)
{
    {
        CCountingTimer timer;
        timer.InstallTimer(0.05, 0.05);
        CManualRunLoop other(0.0);
        CRunLoopScope otherScope(other);  // a later current loop does not matter
    }
    EXPECT_EQ(m_loop.TimerCount(), 0u);
    EXPECT_EQ(m_loop.Advance(1.0), 0);
}

}  // namespace
