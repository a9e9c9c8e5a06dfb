// Lifetimes in the in-process meeting: callbacks already posted for a released, detached or
// destroyed participant are dropped, not run against freed state; delivery handles live only
// for the callback; each participant hears on its own loop. AddressSanitizer catches the rest.
#include "TestParticipant.h"
#include "conference/LocalConference.h"
#include "transport/ManualRunLoop.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

class LocalConferenceLifetime : public ::testing::Test {
protected:
    // A participant hearing on loop, subscribed to cache "c" unless join is false.
    std::unique_ptr<CTestParticipant> Joined(CManualRunLoop& loop, bool join = true)
    {
        auto p = std::make_unique<CTestParticipant>(*m_meeting, loop, [&loop] { while (loop.RunPending() > 0) {} }, 1);
        if (join) m_nCache = p->JoinAndSubscribe("c");
        return p;
    }

    CManualRunLoop m_loop;
    std::unique_ptr<IMeeting> m_meeting = NewLocalMeeting(CMeetingOptions());
    unsigned m_nCache = 0;
};

TEST_F(LocalConferenceLifetime, CallbacksPostedForAReleasedServiceAreDropped)
{
    auto kept = Joined(m_loop, false);
    kept->Connect();
    kept->Join();
    EXPECT_EQ(kept->Release(), 0);
    EXPECT_EQ(m_loop.RunPending(), 2);  // both posted callbacks ran, and did nothing
    EXPECT_TRUE(kept->m_vecCallbacks.empty());
    // As the plug-in does it: the sink is gone with the service before the loop runs.
    auto freed = Joined(m_loop, false);
    freed->Connect();
    IArmService* service = freed->Service();
    freed.reset();
    m_loop.RunPending();
    m_meeting->SetConnected(service, false);  // a released service is no longer the meeting's
    EXPECT_EQ(m_loop.PostedCount(), 0u);
}

TEST_F(LocalConferenceLifetime, ReleasedDetachedOrReleasingSubscribersHearNothingMore)
{
    auto writer = Joined(m_loop);
    auto released = Joined(m_loop);
    auto detached = Joined(m_loop);
    writer->Append(m_nCache, "first");
    released.reset();
    EXPECT_EQ(detached->Service()->ArmService_DetachUser(detached->AttachId()), 0);
    EXPECT_NE(detached->Service()->ArmService_DetachUser(detached->AttachId()), 0);
    writer->Append(m_nCache, "second");
    m_loop.RunPending();
    EXPECT_EQ(writer->m_vecCache.size(), 3u);    // subscribed, first, second
    EXPECT_EQ(detached->m_vecCache.size(), 1u);  // only the subscription answer of before
    EXPECT_NE(detached->Append(m_nCache, "x"), 0);
    // Delivery handles live only for the callback.
    unsigned size = 0;
    EXPECT_EQ(writer->m_vecCache[1].strBytes, "first");  // read inside the callback
    EXPECT_NE(writer->Service()->ArmService_GetMemHandleSize(writer->m_vecCache[1].nMemHandle, &size), 0);

    writer->Append(m_nCache, "one");
    writer->Append(m_nCache, "two");
    writer->m_fnOnDelivery = [&writer] { writer->Release(); };  // from inside a delivery
    m_loop.RunPending();
    EXPECT_EQ(writer->m_vecCache.size(), 4u);  // "two" and the confirms dropped
}

TEST_F(LocalConferenceLifetime, CallbacksOutliveTheMeetingHarmlessly)
{
    auto p = Joined(m_loop);
    p->Append(m_nCache, "pending");
    const size_t before = p->m_vecCallbacks.size();
    m_meeting.reset();
    p->ForgetService();
    m_loop.RunPending();
    EXPECT_EQ(p->m_vecCallbacks.size(), before);
}

TEST_F(LocalConferenceLifetime, EachParticipantHearsOnItsOwnLoop)
{
    CManualRunLoop otherLoop;
    auto writer = Joined(m_loop);
    auto reader = Joined(otherLoop);
    writer->Append(m_nCache, "line");
    m_loop.RunPending();
    EXPECT_EQ(reader->m_vecCache.size(), 1u);
    otherLoop.RunPending();
    EXPECT_EQ(reader->m_vecCache.size(), 2u);
}

}  // namespace
