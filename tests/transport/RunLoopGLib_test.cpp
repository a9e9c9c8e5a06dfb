// CRunLoopGLib on a real GLib main context: the tick timer on the thread's default loop, posted
// callbacks, one-shot and self-removing timers. Loops are bounded by iteration counts; a
// backstop source only guarantees that a blocking iteration wakes up if a timer never fires.
#include "transport/RunLoopGLib.h"

#include "transport/NtTimer.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <ctime>
#include <vector>

namespace {

class CCountingTimer : public CNtTimer {
public:
    void OnTick() override { ++m_nTicks; }
    int m_nTicks = 0;
};

class RunLoopGLib : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_pContext = g_main_context_new();
        g_main_context_push_thread_default(m_pContext);
        m_pBackstop = g_timeout_source_new_seconds(30);
        g_source_set_callback(m_pBackstop, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr, nullptr);
        g_source_attach(m_pBackstop, m_pContext);
    }
    void TearDown() override
    {
        g_source_destroy(m_pBackstop);
        g_source_unref(m_pBackstop);
        g_main_context_pop_thread_default(m_pContext);
        g_main_context_unref(m_pContext);
    }
    // Iterates (blocking) until done() holds, at most maxIterations times.
    template <typename Done>
    bool IterateUntil(Done done, int maxIterations = 200)
    {
        for (int i = 0; i < maxIterations && !done(); ++i) g_main_context_iteration(m_pContext, TRUE);
        return done();
    }

    GMainContext* m_pContext = nullptr;
    GSource* m_pBackstop = nullptr;
};

TEST_F(RunLoopGLib, TimerOnThreadDefaultContextTicksAtOnceThenRepeatedly)
{
    // No loop installed: the timer goes to the GLib loop of the pushed thread-default context.
    CCountingTimer timer;
    timer.InstallTimer(0.05, 0.002);
    g_main_context_iteration(m_pContext, FALSE);
    EXPECT_EQ(timer.m_nTicks, 1);  // the past date fires on the first pass

    EXPECT_TRUE(IterateUntil([&] { return timer.m_nTicks >= 4; }));
    timer.RemoveTimer();
    const int ticks = timer.m_nTicks;
    for (int i = 0; i < 5; ++i) g_main_context_iteration(m_pContext, FALSE);
    EXPECT_EQ(timer.m_nTicks, ticks);
}

TEST_F(RunLoopGLib, PostedCallbacksRunInOrderAndLatePostsWait)
{
    CRunLoopGLib loop;
    EXPECT_EQ(loop.Context(), m_pContext);
    std::vector<int> order;
    loop.Post([&] { order.push_back(1); });
    loop.Post([&] {
        order.push_back(2);
        loop.Post([&] { order.push_back(4); });
    });
    loop.Post([&] { order.push_back(3); });
    g_main_context_iteration(m_pContext, FALSE);
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
    g_main_context_iteration(m_pContext, FALSE);
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3, 4}));
}

TEST_F(RunLoopGLib, OneShotSelfRemovingAndFutureTimers)
{
    int once = 0;
    int self = 0;
    int never = 0;
    {
        CRunLoopGLib loop(m_pContext);
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

TEST_F(RunLoopGLib, NowCountsFromTheReferenceDate)
{
    CRunLoopGLib loop(m_pContext);
    const double unixNow = static_cast<double>(std::time(nullptr));
    EXPECT_NEAR(loop.Now(), unixNow - 978307200.0, 5.0);
}

}  // namespace
