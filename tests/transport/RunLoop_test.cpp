// The run loops and the tick timer. CManualRunLoop and the current-loop switch on the virtual
// clock: timer dates, repetition, removal from inside callbacks, posted callbacks. CNtTimer on
// the manual loop: the client's (0.05, 0.05) schedule, install and remove idempotence,
// reinstalling, the null-info callout and removal from the destructor. CRunLoopGLib on a real
// GLib main context: the tick timer on the thread's default loop, posted callbacks, one-shot and
// self-removing timers. GLib loops are bounded by iteration counts and never block.
#include "transport/ManualRunLoop.h"
#include "transport/NtTimer.h"
#include "transport/RunLoopGLib.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <ctime>
#include <functional>
#include <string>
#include <vector>

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

// Posts 1, 2 (which posts 4), a null callback and 3: one iteration runs 1, 2 and 3; what was
// posted during it waits for the next.
void ExpectPostsRunInOrderAndLateOnesWait(IRunLoop& loop, const std::function<void()>& iterate)
{
    std::vector<int> order;
    loop.Post([&] { order.push_back(1); });
    loop.Post([&] {
        order.push_back(2);
        loop.Post([&] { order.push_back(4); });
    });
    loop.Post(nullptr);
    loop.Post([&] { order.push_back(3); });
    iterate();
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
    iterate();
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3, 4}));
}

// ---- CManualRunLoop ----

class ManualRunLoop : public ::testing::Test {
protected:
    // A callback that logs "tag@time" whenever it runs.
    IRunLoop::TimerCallback Log(const std::string& tag)
    {
        return [this, tag](IRunLoop::TimerId) { m_log.push_back(tag + "@" + std::to_string(m_loop.Now())); };
    }
    CManualRunLoop m_loop{1000.0};
    std::vector<std::string> m_log;
};

TEST_F(ManualRunLoop, PastDateFiresOnNextIterationThenOnItsGrid)
{
    m_loop.Advance(0.125);
    m_loop.AddTimer(0.5, 0.25, Log("t"));  // grid 0.5 + k * 0.25: ... 1000.0, 1000.25 ...
    EXPECT_TRUE(m_log.empty());  // nothing runs by itself
    EXPECT_EQ(m_loop.RunPending(), 1);
    EXPECT_EQ(m_loop.RunPending(), 0);  // missed firings are not caught up
    EXPECT_EQ(m_loop.Advance(0.1), 0);
    EXPECT_EQ(m_loop.Advance(0.025), 1);  // the next grid point, not now + interval
    EXPECT_EQ(m_loop.Advance(1.0), 4);
    const std::vector<std::string> expected = {"t@1000.125000", "t@1000.250000", "t@1000.500000",
                                               "t@1000.750000", "t@1001.000000", "t@1001.250000"};
    EXPECT_EQ(m_log, expected);
    EXPECT_DOUBLE_EQ(m_loop.Now(), 1001.25);
}

TEST_F(ManualRunLoop, TimersAndPostsRunInDateOrderOlderFirstOnTies)
{
    m_loop.AddTimer(1002.0, 0, Log("once"));
    m_loop.AddTimer(1001.0, 1.0, Log("a"));
    m_loop.AddTimer(1001.0, 0.5, [this](IRunLoop::TimerId) {
        m_log.push_back("b@" + std::to_string(m_loop.Now()));
        m_loop.Post([this] { m_log.push_back("posted"); });
    });
    EXPECT_EQ(m_loop.Advance(2.0), 9);
    const std::vector<std::string> expected = {"a@1001.000000",    "b@1001.000000", "posted",
                                               "b@1001.500000",    "posted",        "once@1002.000000",
                                               "a@1002.000000",    "b@1002.000000", "posted"};
    EXPECT_EQ(m_log, expected);
    EXPECT_EQ(m_loop.TimerCount(), 2u);  // the one-shot timer is gone
}

TEST_F(ManualRunLoop, RemovalIsOnceOnlyAndWorksFromCallbacksPostsRunInOrder)
{
    int selfFired = 0;
    int otherFired = 0;
    IRunLoop::TimerId other = 0;
    IRunLoop::TimerId self = m_loop.AddTimer(0, 1.0, [&](IRunLoop::TimerId id) {
        ++selfFired;
        EXPECT_TRUE(m_loop.RemoveTimer(id));
        EXPECT_TRUE(m_loop.RemoveTimer(other));  // due in the same iteration, must not fire
    });
    other = m_loop.AddTimer(0, 1.0, [&](IRunLoop::TimerId) { ++otherFired; });
    ASSERT_NE(self, 0u);
    ASSERT_NE(other, self);

    m_loop.RunPending();
    m_loop.Advance(5);
    EXPECT_EQ(selfFired, 1);
    EXPECT_EQ(otherFired, 0);
    EXPECT_EQ(m_loop.TimerCount(), 0u);
    EXPECT_FALSE(m_loop.RemoveTimer(self));
    EXPECT_FALSE(m_loop.RemoveTimer(0));
    EXPECT_EQ(m_loop.AddTimer(0, 1, nullptr), 0u);

    std::vector<int> ran;
    ExpectPostsRunInOrderAndLateOnesWait(m_loop, [&] { ran.push_back(m_loop.RunPending()); });
    EXPECT_EQ(ran, (std::vector<int>{3, 1}));
}

// ---- CNtTimer ----

class NtTimer : public ::testing::Test {
protected:
    // A wall-clock-like reference date, so the client's 0.05 lies far in the past.
    CManualRunLoop m_loop{800000000.0};
    CRunLoopScope m_scope{m_loop};
};

TEST_F(NtTimer, TinyAbsoluteDateFiresAtOnceThenEveryFiftyMillisecondsAndASecondInstallIsIgnored)
{
    CCountingTimer timer;
    timer.InstallTimer(0.05, 0.05);
    timer.InstallTimer(0.05, 1.0);
    EXPECT_EQ(m_loop.TimerCount(), 1u);
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

TEST_F(NtTimer, RemoveIsIdempotentReinstallWorksAndATickMayRemoveItsTimer)
{
    CCountingTimer timer;
    timer.RemoveTimer();  // never installed
    EXPECT_FALSE(timer.IsTimerInstalled());
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
    timer.m_onTick = [&timer] {
        if (timer.m_nTicks == 4) timer.RemoveTimer();
    };
    m_loop.Advance(1.6);
    EXPECT_EQ(timer.m_nTicks, 3);
    m_loop.Advance(5);
    EXPECT_EQ(timer.m_nTicks, 4);
    EXPECT_EQ(m_loop.TimerCount(), 0u);

    // The callout ticks its info and ignores null.
    CNtTimer::TimerHandler(0, nullptr);
    CNtTimer::TimerHandler(7, static_cast<CNtTimer*>(&timer));
    EXPECT_EQ(timer.m_nTicks, 5);
}

// Scopes install and restore the current loop; a timer is removed from the loop it was installed
// on, whatever loop is current when it goes.
TEST_F(NtTimer, ScopesAndTheDestructorFindTheRightLoop)
{
    CManualRunLoop other(0.0);
    {
        CCountingTimer timer;
        timer.InstallTimer(0.05, 0.05);
        CRunLoopScope otherScope(other);
        EXPECT_EQ(&GetCurrentRunLoop(), &other);
    }
    EXPECT_EQ(&GetCurrentRunLoop(), &m_loop);
    EXPECT_EQ(m_loop.TimerCount(), 0u);
    EXPECT_EQ(m_loop.Advance(1.0), 0);
}

// ---- CRunLoopGLib ----

class RunLoopGLib : public ::testing::Test {
protected:
    void SetUp() override { g_main_context_push_thread_default(m_pContext); }
    void TearDown() override
    {
        g_main_context_pop_thread_default(m_pContext);
        g_main_context_unref(m_pContext);
    }
    // Iterates without blocking, a millisecond apart, until done() holds or two seconds passed.
    template <typename Done>
    bool IterateUntil(Done done)
    {
        for (int i = 0; i < 2000 && !done(); ++i, g_usleep(1000)) g_main_context_iteration(m_pContext, FALSE);
        return done();
    }
    GMainContext* m_pContext = g_main_context_new();
};

TEST_F(RunLoopGLib, ThreadDefaultContextRunsTimersAndPosts)
{
    // No loop installed: each GLib context has its own loop, and the timer goes to the one of
    // the pushed thread-default context.
    g_main_context_pop_thread_default(m_pContext);
    IRunLoop& global = GetCurrentRunLoop();
    g_main_context_push_thread_default(m_pContext);
    EXPECT_NE(&GetCurrentRunLoop(), &global);
    CCountingTimer timer;
    timer.InstallTimer(0.05, 0.002);
    g_main_context_iteration(m_pContext, FALSE);
    EXPECT_EQ(timer.m_nTicks, 1);  // the past date fires on the first pass

    EXPECT_TRUE(IterateUntil([&] { return timer.m_nTicks >= 4; }));
    timer.RemoveTimer();
    const int ticks = timer.m_nTicks;
    for (int i = 0; i < 5; ++i) g_main_context_iteration(m_pContext, FALSE);
    EXPECT_EQ(timer.m_nTicks, ticks);

    CRunLoopGLib loop;
    EXPECT_EQ(loop.Context(), m_pContext);
    ExpectPostsRunInOrderAndLateOnesWait(loop, [this] { g_main_context_iteration(m_pContext, FALSE); });
}

TEST_F(RunLoopGLib, OneShotSelfRemovingAndFutureTimers)
{
    int once = 0;
    int self = 0;
    int never = 0;
    {
        CRunLoopGLib loop(m_pContext);
        EXPECT_NEAR(loop.Now(), static_cast<double>(std::time(nullptr)) - 978307200.0, 5.0);  // from the reference date
        const IRunLoop::TimerId onceId = loop.AddTimer(0, 0, [&](IRunLoop::TimerId) { ++once; });
        loop.AddTimer(0, 0.001, [&](IRunLoop::TimerId id) {
            if (++self == 2) loop.RemoveTimer(id);
        });
        const IRunLoop::TimerId later = loop.AddTimer(loop.Now() + 3600, 1, [&](IRunLoop::TimerId) { ++never; });
        EXPECT_TRUE(IterateUntil([&] { return self >= 2; }));
        for (int i = 0; i < 5; ++i) g_main_context_iteration(m_pContext, FALSE);
        EXPECT_FALSE(loop.RemoveTimer(onceId));
        EXPECT_TRUE(loop.RemoveTimer(later));
        EXPECT_FALSE(loop.RemoveTimer(later));
        // Destroying the loop drops what is still pending.
        loop.AddTimer(0, 1, [&](IRunLoop::TimerId) { ++never; });
        loop.Post([&] { ++never; });
    }
    for (int i = 0; i < 5; ++i) g_main_context_iteration(m_pContext, FALSE);
    EXPECT_EQ(once, 1);
    EXPECT_EQ(self, 2);
    EXPECT_EQ(never, 0);
}

}  // namespace
