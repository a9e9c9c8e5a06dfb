// CManualRunLoop and the current-loop switch: timer dates, repetition, removal from inside
// callbacks, and posted callbacks, all on the virtual clock.
#include "transport/ManualRunLoop.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

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

TEST_F(ManualRunLoop, PastDateFiresOnNextIterationThenEveryInterval)
{
    m_loop.AddTimer(0.05, 0.25, Log("t"));
    EXPECT_TRUE(m_log.empty());  // nothing runs by itself
    EXPECT_EQ(m_loop.RunPending(), 1);
    EXPECT_EQ(m_loop.RunPending(), 0);  // missed firings are not caught up
    EXPECT_EQ(m_loop.Advance(0.2), 0);
    EXPECT_EQ(m_loop.Advance(0.1), 1);
    EXPECT_EQ(m_loop.Advance(1.0), 4);
    const std::vector<std::string> expected = {"t@1000.000000", "t@1000.250000", "t@1000.500000",
                                               "t@1000.750000", "t@1001.000000", "t@1001.250000"};
    EXPECT_EQ(m_log, expected);
    EXPECT_DOUBLE_EQ(m_loop.Now(), 1001.3);
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

TEST_F(ManualRunLoop, RemovalIsOnceOnlyAndWorksFromCallbacks)
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
}

TEST_F(ManualRunLoop, PostedCallbacksRunInOrderAndLatePostsWait)
{
    std::vector<int> order;
    m_loop.Post([&] { order.push_back(1); });
    m_loop.Post([&] {
        order.push_back(2);
        m_loop.Post([&] { order.push_back(4); });
    });
    m_loop.Post(nullptr);
    m_loop.Post([&] { order.push_back(3); });
    EXPECT_EQ(m_loop.RunPending(), 3);
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(m_loop.RunPending(), 1);
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3, 4}));
}

TEST(CurrentRunLoop, ScopesInstallAndRestore)
{
    IRunLoop& fallback = GetCurrentRunLoop();
    CManualRunLoop outer;
    CManualRunLoop inner;
    {
        CRunLoopScope outerScope(outer);
        {
            CRunLoopScope innerScope(inner);
            EXPECT_EQ(&GetCurrentRunLoop(), &inner);
        }
        EXPECT_EQ(&GetCurrentRunLoop(), &outer);
    }
    EXPECT_EQ(&GetCurrentRunLoop(), &fallback);
}

}  // namespace
