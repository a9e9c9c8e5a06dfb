// Lifetimes in the in-process meeting: callbacks already posted for a released, detached or
// destroyed participant are dropped, not run against freed state; delivery handles live only
// for the callback; each participant hears on its own loop. AddressSanitizer catches the rest.
#include "conference/LocalConference.h"
#include "transport/ManualRunLoop.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

// Answers the handshake and counts what arrives; every sink operation it does not care about
// returns 0.
class CCountingSink : public IArmNodeControllerSink,
                      public IArmConferenceSink,
                      public IArmApeSink,
                      public IArmSharedDataSink,
                      public IArmAllocHandleSink {
public:
    int ConnectConfirm(short, unsigned) override { return Count(); }
    int DisconnectIndication(short) override { return 0; }
    int DisconnectConfirm(short) override { return Count(); }
    int TransportStatusIndication(short, unsigned) override { return 0; }
    int ConferenceJoinConfirm(unsigned short, char*, short, unsigned) override { return Count(); }
    int ConferenceLeaveIndication(unsigned short, char*, short) override { return 0; }
    int ConferenceRosterConfirm(unsigned short, short, short, ARMNodeRecord*) override { return 0; }
    int ConferenceRosterChanged(unsigned short, short, short, short, ARMNodeRecord*) override { return 0; }
    int ApeRosterConfirm(unsigned short, short, short, ARMApeRoster*) override { return 0; }
    int ApeRosterChanged(unsigned short, short, short, short, ARMApeRoster*) override { return 0; }
    int ApeAttachConfirm(unsigned, short, unsigned) override { return Count(); }
    int ApeEnrollConfirm(unsigned, short, short, ARMSessionResource*) override { return Count(); }
    int ApeRosterConfirm(unsigned, unsigned short, short, short, ARMApeRoster*) override { return 0; }
    int ApeRosterChanged(unsigned, unsigned short, short, short, short, ARMApeRoster*) override { return 0; }
    int ApeDataIndication(unsigned, unsigned, unsigned, short, unsigned char*, unsigned) override { return Count(); }
    int ApeTokenGrabConfirm(unsigned, short, unsigned short) override { return 0; }
    int ApeTokenInhibitConfirm(unsigned, short, unsigned short) override { return 0; }
    int ApeTokenGiveConfirm(unsigned, short, unsigned short) override { return 0; }
    int ApeTokenGiveIndication(unsigned, unsigned, unsigned short) override { return 0; }
    int ApeTokenPleaseIndication(unsigned, unsigned, unsigned short) override { return 0; }
    int ApeTokenReleaseConfirm(unsigned, short, unsigned short) override { return 0; }
    int ApeTokenTestConfirm(unsigned, short, unsigned short) override { return 0; }
    int ApeDetachIndication(unsigned, short) override { return 0; }
    int ConferenceRosterConfirm(unsigned, unsigned short, short, short, ARMNodeRecord*) override { return 0; }
    int ConferenceRosterChanged(unsigned, unsigned short, short, short, short, ARMNodeRecord*) override { return 0; }
    int ApeCacheActionConfirmEx(unsigned, unsigned, tagCacheAction, unsigned, unsigned, short) override
    {
        return Count();
    }
    int SharedDataReceivedEx(unsigned, unsigned, unsigned, unsigned memHandle, short, tagCacheAction,
                             unsigned, unsigned, short) override
    {
        m_aHandles.push_back(memHandle);
        if (m_fnOnDelivery) m_fnOnDelivery();
        return Count();
    }
    int AllocNameHandleConfirm(unsigned, unsigned, NameHandles* names, unsigned) override
    {
        m_nCacheHandle = names[0].nHandle;
        return Count();
    }

    int Count() { return ++m_nCalls, 0; }

    int m_nCalls = 0;
    unsigned m_nCacheHandle = 0;
    std::vector<unsigned> m_aHandles;
    std::function<void()> m_fnOnDelivery;
};

// Runs the handshake on service up to a subscribed cache "c"; returns the attach id.
unsigned JoinAndSubscribe(IMeeting& meeting, IArmService* service, CCountingSink& sink, CManualRunLoop& loop)
{
    unsigned attachId = 0;
    service->ArmService_Connect(&sink, "", 0, 0, 0);
    service->ArmService_JoinConference(0, meeting.ConferenceHandle(), &sink, 3);
    service->ArmService_AttachUser(&sink, 0, static_cast<unsigned short>(meeting.ConferenceHandle()), &attachId);
    NameHandles name;
    std::memset(&name, 0, sizeof name);
    std::strcpy(name.szName, "c");
    service->ArmService_AllocNameHandles(attachId, 1, &name, &sink);
    loop.RunPending();
    service->ArmService_SubscribeCache(attachId, sink.m_nCacheHandle, 0, 3, 255, &sink);
    loop.RunPending();
    return attachId;
}

int PutText(IArmService* service, unsigned attachId, unsigned cache, const std::string& text)
{
    unsigned handle = 0;
    service->ArmService_AllocMemHandle(static_cast<unsigned>(text.size()), &handle);
    service->ArmService_WriteMemHandle(handle, 0, text.data(), static_cast<unsigned>(text.size()));
    const int result = service->ArmService_PutCacheItem(attachId, cache, 0, 0, CACHE_MODE_APPEND, 0, handle, 0, 2);
    service->ArmService_FreeMemHandle(handle);
    return result;
}

class LocalConferenceLifetime : public ::testing::Test {
protected:
    CManualRunLoop m_loop;
    std::unique_ptr<IMeeting> m_meeting = NewLocalMeeting(CMeetingOptions());
};

TEST_F(LocalConferenceLifetime, CallbacksPostedForAReleasedServiceAreDropped)
{
    CCountingSink kept;
    IArmService* service = m_meeting->NewService(m_loop);
    service->ArmService_Connect(&kept, "", 0, 0, 0);
    service->ArmService_JoinConference(0, m_meeting->ConferenceHandle(), &kept, 3);
    EXPECT_EQ(service->ArmService_Release(), 0);
    EXPECT_EQ(m_loop.RunPending(), 2);  // both posted callbacks ran, and did nothing
    EXPECT_EQ(kept.m_nCalls, 0);

    // As the plug-in does it: the sink is gone with the service before the loop runs.
    auto freed = std::make_unique<CCountingSink>();
    service = m_meeting->NewService(m_loop);
    service->ArmService_Connect(freed.get(), "", 0, 0, 0);
    service->ArmService_Release();
    freed.reset();
    m_loop.RunPending();
    m_meeting->SetConnected(service, false);  // a released service is no longer the meeting's
    EXPECT_EQ(m_loop.PostedCount(), 0u);
}

TEST_F(LocalConferenceLifetime, AReleasedSubscriberHearsNothingMore)
{
    CCountingSink writerSink;
    auto readerSink = std::make_unique<CCountingSink>();
    IArmService* writer = m_meeting->NewService(m_loop);
    IArmService* reader = m_meeting->NewService(m_loop);
    const unsigned writerId = JoinAndSubscribe(*m_meeting, writer, writerSink, m_loop);
    JoinAndSubscribe(*m_meeting, reader, *readerSink, m_loop);

    PutText(writer, writerId, writerSink.m_nCacheHandle, "first");
    reader->ArmService_Release();
    readerSink.reset();
    PutText(writer, writerId, writerSink.m_nCacheHandle, "second");
    m_loop.RunPending();
    EXPECT_EQ(writerSink.m_aHandles.size(), 3u);  // subscribed, first, second
}

TEST_F(LocalConferenceLifetime, ReleaseFromInsideADeliveryIsSafe)
{
    CCountingSink sink;
    IArmService* service = m_meeting->NewService(m_loop);
    const unsigned attachId = JoinAndSubscribe(*m_meeting, service, sink, m_loop);
    PutText(service, attachId, sink.m_nCacheHandle, "one");
    PutText(service, attachId, sink.m_nCacheHandle, "two");
    sink.m_fnOnDelivery = [&] {
        service->ArmService_Release();
        sink.m_fnOnDelivery = nullptr;
    };
    m_loop.RunPending();
    EXPECT_EQ(sink.m_aHandles.size(), 2u);  // subscribed and "one"; "two" and the confirms dropped
}

TEST_F(LocalConferenceLifetime, CallbacksOutliveTheMeetingHarmlessly)
{
    CCountingSink sink;
    IArmService* service = m_meeting->NewService(m_loop);
    const unsigned attachId = JoinAndSubscribe(*m_meeting, service, sink, m_loop);
    PutText(service, attachId, sink.m_nCacheHandle, "pending");
    const int before = sink.m_nCalls;
    m_meeting.reset();
    m_loop.RunPending();
    EXPECT_EQ(sink.m_nCalls, before);
}

TEST_F(LocalConferenceLifetime, DetachDropsWhatWasPostedAndStopsDeliveries)
{
    CCountingSink writerSink;
    CCountingSink readerSink;
    IArmService* writer = m_meeting->NewService(m_loop);
    IArmService* reader = m_meeting->NewService(m_loop);
    const unsigned writerId = JoinAndSubscribe(*m_meeting, writer, writerSink, m_loop);
    const unsigned readerId = JoinAndSubscribe(*m_meeting, reader, readerSink, m_loop);

    PutText(writer, writerId, writerSink.m_nCacheHandle, "posted before the detach");
    EXPECT_EQ(reader->ArmService_DetachUser(readerId), 0);
    EXPECT_NE(reader->ArmService_DetachUser(readerId), 0);
    PutText(writer, writerId, writerSink.m_nCacheHandle, "after");
    m_loop.RunPending();
    EXPECT_EQ(readerSink.m_aHandles.size(), 1u);  // only the subscription answer of before
    EXPECT_NE(PutText(reader, readerId, readerSink.m_nCacheHandle, "x"), 0);
    reader->ArmService_Release();
    writer->ArmService_Release();
}

TEST_F(LocalConferenceLifetime, DeliveryHandlesLiveOnlyForTheCallback)
{
    CCountingSink sink;
    IArmService* service = m_meeting->NewService(m_loop);
    const unsigned attachId = JoinAndSubscribe(*m_meeting, service, sink, m_loop);
    unsigned sizeInside = 0;
    int resultInside = -1;
    sink.m_fnOnDelivery = [&] { resultInside = service->ArmService_GetMemHandleSize(sink.m_aHandles.back(), &sizeInside); };
    PutText(service, attachId, sink.m_nCacheHandle, "12345");
    m_loop.RunPending();
    EXPECT_EQ(resultInside, 0);
    EXPECT_EQ(sizeInside, 5u);
    unsigned sizeAfter = 0;
    EXPECT_NE(service->ArmService_GetMemHandleSize(sink.m_aHandles.back(), &sizeAfter), 0);
    service->ArmService_Release();
}

TEST_F(LocalConferenceLifetime, EachParticipantHearsOnItsOwnLoop)
{
    CManualRunLoop otherLoop;
    CCountingSink writerSink;
    CCountingSink readerSink;
    IArmService* writer = m_meeting->NewService(m_loop);
    IArmService* reader = m_meeting->NewService(otherLoop);
    const unsigned writerId = JoinAndSubscribe(*m_meeting, writer, writerSink, m_loop);
    JoinAndSubscribe(*m_meeting, reader, readerSink, otherLoop);
    PutText(writer, writerId, writerSink.m_nCacheHandle, "line");
    m_loop.RunPending();
    EXPECT_EQ(readerSink.m_aHandles.size(), 1u);
    otherLoop.RunPending();
    EXPECT_EQ(readerSink.m_aHandles.size(), 2u);
    writer->ArmService_Release();
    reader->ArmService_Release();
}

}  // namespace
