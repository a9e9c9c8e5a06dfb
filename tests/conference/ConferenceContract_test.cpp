// What every conference behind IMeeting must do, checked through the service interface only:
// the handshake, name handles, the change cache, recording, data units, PKI records, outages
// and memory handles. The suite runs once per conference implementation.
#include "TestParticipant.h"
#include "conference/LocalConference.h"
#include "transport/DataPdu.h"
#include "transport/ManualRunLoop.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

struct CConferenceKind {
    const char* pszName;
    std::function<std::unique_ptr<IMeeting>(const CMeetingOptions&)> make;
};

std::vector<int> Actions(const std::vector<CCacheEvent>& events)
{
    std::vector<int> actions;
    for (const CCacheEvent& e : events) actions.push_back(e.nAction);
    return actions;
}

std::vector<std::string> Bytes(const std::vector<CCacheEvent>& events)
{
    std::vector<std::string> bytes;
    for (const CCacheEvent& e : events) bytes.push_back(e.strBytes);
    return bytes;
}

class ConferenceContract : public ::testing::TestWithParam<CConferenceKind> {
protected:
    void Open(const CMeetingOptions& options = CMeetingOptions())
    {
        m_meeting = GetParam().make(options);
        ASSERT_TRUE(m_meeting);
    }

    std::unique_ptr<CTestParticipant> NewParticipant(unsigned userId)
    {
        return std::unique_ptr<CTestParticipant>(
            new CTestParticipant(*m_meeting, m_loop, [this] { Settle(); }, userId));
    }

    // Every callback produced so far arrives; bounded so a host that keeps posting fails.
    void Settle()
    {
        for (int round = 0; round < 10000 && m_loop.RunPending() > 0; ++round) {}
    }

    CManualRunLoop m_loop{1000.0};
    std::unique_ptr<IMeeting> m_meeting;
};

TEST_P(ConferenceContract, HandshakeAnswersLaterInOrderAndShortcutsRepeats)
{
    Open();
    auto a = NewParticipant(4711);
    EXPECT_EQ(a->Connect(), ARM_OK);
    EXPECT_TRUE(a->m_vecCallbacks.empty());  // never from inside the call
    EXPECT_EQ(a->Connect(), ARM_ALREADY_CONNECTED);
    Settle();
    EXPECT_EQ(a->m_vecCallbacks, std::vector<std::string>{"ConnectConfirm"});
    EXPECT_EQ(a->m_nConnectResult, 0);

    EXPECT_EQ(a->Join(), ARM_OK);
    EXPECT_EQ(a->m_vecCallbacks.size(), 1u);
    Settle();
    EXPECT_EQ(a->Join(), ARM_ALREADY_JOINED);
    EXPECT_EQ(a->m_nJoinResult, 0);

    unsigned written = 0;
    EXPECT_EQ(a->Service()->ArmService_AttachUser(a.get(), 0,
                                                  static_cast<unsigned short>(m_meeting->ConferenceHandle()),
                                                  &written),
              ARM_OK);
    EXPECT_NE(written, 0u);  // written at once
    Settle();
    EXPECT_EQ(a->AttachId(), written);
    EXPECT_EQ(a->Enroll(), ARM_OK);
    Settle();
    EXPECT_EQ(a->m_nEnrollResult, 0);
    EXPECT_GE(a->m_nEnrollCount, 1);
    EXPECT_NE(a->ResourceId(), 0u);
    EXPECT_EQ(a->m_vecCallbacks,
              (std::vector<std::string>{"ConnectConfirm", "ConferenceJoinConfirm", "ApeAttachConfirm",
                                        "ApeEnrollConfirm"}));
}

TEST_P(ConferenceContract, ParticipantsShareResourceIdAndNameHandles)
{
    Open();
    auto a = NewParticipant(1);
    auto b = NewParticipant(2);
    const unsigned ha = a->JoinAndSubscribe("note_changeinfo_cache_x");
    const unsigned hb = b->JoinAndSubscribe("note_changeinfo_cache_x");
    EXPECT_NE(a->AttachId(), b->AttachId());
    EXPECT_NE(a->ResourceId(), 0u);
    EXPECT_EQ(a->ResourceId(), b->ResourceId());
    EXPECT_NE(ha, 0u);
    EXPECT_EQ(ha, hb);
    ASSERT_EQ(a->m_vecNames.size(), 1u);
    EXPECT_STREQ(a->m_vecNames[0].szName, "note_changeinfo_cache_x");

    a->AllocCache("another_cache");
    Settle();
    ASSERT_EQ(a->m_vecNames.size(), 2u);
    EXPECT_NE(a->m_vecNames[1].nHandle, 0u);
    EXPECT_NE(a->m_vecNames[1].nHandle, ha);
}

TEST_P(ConferenceContract, FirstSubscribeAnswersNewestIdThenDeliversHistory)
{
    Open();
    auto writer = NewParticipant(1);
    const unsigned cache = writer->JoinAndSubscribe("c");
    ASSERT_EQ(writer->m_vecCache.size(), 1u);
    EXPECT_EQ(writer->m_vecCache[0].nAction, CACHE_ACTION_SUBSCRIBED);
    EXPECT_EQ(writer->m_vecCache[0].nCacheId, 0u);  // empty cache
    EXPECT_FALSE(writer->m_vecCache[0].bHadHandle);

    for (const char* line : {"one", "two", "three"}) writer->Put(cache, 0, CACHE_MODE_APPEND, CACHE_FLAG_BASE, line);
    Settle();
    // The putter, subscribed, hears its own appends, and gets a confirm for each.
    EXPECT_EQ(Bytes(writer->m_vecCache), (std::vector<std::string>{"", "one", "two", "three"}));
    ASSERT_EQ(writer->m_vecConfirms.size(), 3u);
    EXPECT_EQ(writer->m_vecConfirms[2].nAction, CACHE_ACTION_ADDED);
    EXPECT_EQ(writer->m_vecConfirms[2].nResult, 0);
    const unsigned id1 = writer->m_vecCache[1].nCacheId;
    EXPECT_GE(id1, 1u);
    EXPECT_EQ(writer->m_vecCache[3].nCacheId, id1 + 2);

    // A late joiner: the first subscribe reports the newest id, the second brings the history
    // as known items and the newest as added.
    auto late = NewParticipant(2);
    late->JoinAndSubscribe("c");
    ASSERT_EQ(late->m_vecCache.size(), 1u);
    EXPECT_EQ(late->m_vecCache[0].nAction, CACHE_ACTION_SUBSCRIBED);
    EXPECT_EQ(late->m_vecCache[0].nCacheId, id1 + 2);
    late->Subscribe(cache);
    Settle();
    EXPECT_EQ(Actions(late->m_vecCache),
              (std::vector<int>{CACHE_ACTION_SUBSCRIBED, CACHE_ACTION_KNOWN, CACHE_ACTION_KNOWN,
                                CACHE_ACTION_ADDED}));
    EXPECT_EQ(Bytes(late->m_vecCache), (std::vector<std::string>{"", "one", "two", "three"}));
    EXPECT_EQ(late->m_vecCache[1].nPutter, writer->AttachId());
}

TEST_P(ConferenceContract, ReplaceInPlaceRefusesStaleUpdatesToThePutterOnly)
{
    Open();
    auto writer = NewParticipant(1);
    auto reader = NewParticipant(2);
    const unsigned cache = writer->JoinAndSubscribe("c");
    reader->JoinAndSubscribe("c");

    writer->Put(cache, 0, CACHE_MODE_REPLACE_NEWEST, CACHE_FLAG_BASE, "v1");  // empty: append
    Settle();
    ASSERT_EQ(reader->m_vecCache.size(), 2u);
    const unsigned id = reader->m_vecCache[1].nCacheId;
    EXPECT_EQ(reader->m_vecCache[1].nAction, CACHE_ACTION_ADDED);

    writer->Put(cache, id, CACHE_MODE_REPLACE_NEWEST, CACHE_FLAG_BASE, "v2");
    Settle();
    ASSERT_EQ(reader->m_vecCache.size(), 3u);
    EXPECT_EQ(reader->m_vecCache[2].nAction, CACHE_ACTION_UPDATED);
    EXPECT_EQ(reader->m_vecCache[2].nCacheId, id);  // same id
    EXPECT_EQ(reader->m_vecCache[2].strBytes, "v2");
    EXPECT_EQ(writer->m_vecConfirms.back().nAction, CACHE_ACTION_UPDATED);
    EXPECT_EQ(writer->m_vecConfirms.back().nResult, 0);

    // The reader builds on the newest item; then the writer's update on the old id is stale.
    reader->Put(cache, id, CACHE_MODE_REPLACE_NEWEST, CACHE_FLAG_BASE, "v3");
    Settle();
    const size_t readerSeen = reader->m_vecCache.size();
    writer->Put(cache, id + 7, CACHE_MODE_REPLACE_NEWEST, CACHE_FLAG_BASE, "stale");
    Settle();
    EXPECT_EQ(reader->m_vecCache.size(), readerSeen);  // nobody else hears a refusal
    const CCacheEvent& refused = writer->m_vecCache.back();
    EXPECT_EQ(refused.nAction, CACHE_ACTION_UPDATED);
    EXPECT_EQ(refused.nResult, ARM_REFUSED);
    EXPECT_FALSE(refused.bHadHandle);
    EXPECT_EQ(writer->m_vecConfirms.back().nResult, ARM_REFUSED);

    // The cache still holds the last accepted bytes.
    auto late = NewParticipant(3);
    late->JoinAndSubscribe("c");
    late->Subscribe(cache);
    Settle();
    EXPECT_EQ(Bytes(late->m_vecCache), (std::vector<std::string>{"", "v3"}));
}

TEST_P(ConferenceContract, ClearAndResynchronise)
{
    Open();
    auto a = NewParticipant(1);
    auto b = NewParticipant(2);
    const unsigned cache = a->JoinAndSubscribe("c");
    b->JoinAndSubscribe("c");
    a->Put(cache, 0, CACHE_MODE_APPEND, CACHE_FLAG_BASE, "x");
    a->Put(cache, 0, CACHE_MODE_APPEND, CACHE_FLAG_BASE, "y");
    Settle();
    const unsigned newest = b->m_vecCache.back().nCacheId;

    b->PutNoHandle(cache, CACHE_FLAG_BASE);  // resynchronise: b alone hears the newest id
    Settle();
    EXPECT_EQ(b->m_vecCache.back().nAction, CACHE_ACTION_SUBSCRIBED);
    EXPECT_EQ(b->m_vecCache.back().nCacheId, newest);
    EXPECT_NE(a->m_vecCache.back().nAction, CACHE_ACTION_SUBSCRIBED);

    a->PutNoHandle(cache, CACHE_FLAG_CLEAR);
    Settle();
    for (CTestParticipant* p : {a.get(), b.get()}) {
        EXPECT_EQ(p->m_vecCache.back().nAction, CACHE_ACTION_CLEARED);
        EXPECT_EQ(p->m_vecCache.back().nResult, 0);
    }
    // Ids are never reused after a clear.
    a->Put(cache, 0, CACHE_MODE_APPEND, CACHE_FLAG_BASE, "z");
    Settle();
    EXPECT_GT(b->m_vecCache.back().nCacheId, newest);
    auto late = NewParticipant(3);
    late->JoinAndSubscribe("c");
    late->Subscribe(cache);
    Settle();
    EXPECT_EQ(Bytes(late->m_vecCache), (std::vector<std::string>{"", "z"}));
}

TEST_P(ConferenceContract, RecordingFlagsKeepItemsWithArrivalTimes)
{
    Open();
    auto a = NewParticipant(1);
    const unsigned cache = a->JoinAndSubscribe("c");
    a->Put(cache, 0, CACHE_MODE_APPEND, CACHE_FLAG_BASE, "not recorded");
    m_loop.Advance(2.5);
    const double before = m_loop.Now();
    a->Put(cache, 0, CACHE_MODE_APPEND, CACHE_FLAG_BASE | CACHE_FLAG_RECORD_A | CACHE_FLAG_RECORD_B, "recorded");
    m_loop.Advance(1.0);
    a->Put(cache, 0, CACHE_MODE_APPEND, CACHE_FLAG_BASE | CACHE_FLAG_RECORD_A, "also");
    Settle();
    const std::vector<CRecordedItem> recording = m_meeting->Recording();
    ASSERT_EQ(recording.size(), 2u);
    EXPECT_EQ(recording[0].strBytes, "recorded");
    EXPECT_EQ(recording[0].nPutterAttachId, a->AttachId());
    EXPECT_DOUBLE_EQ(recording[0].dArrivalTime, before);
    EXPECT_DOUBLE_EQ(recording[1].dArrivalTime, before + 1.0);
    EXPECT_EQ(recording[1].strBytes, "also");
}

TEST_P(ConferenceContract, DataUnitsArriveDirectlyAndThroughTheResourceCallback)
{
    Open();
    auto a = NewParticipant(1);
    auto b = NewParticipant(2);
    auto c = NewParticipant(3);
    for (CTestParticipant* p : {a.get(), b.get(), c.get()}) p->JoinAndSubscribe("c");

    m_meeting->SendDataUnit(a->Service(), b->AttachId(), 0, "whole text", EDataRoute::kDirect, nullptr, 0);
    m_meeting->SendDataUnit(a->Service(), 0, 1, "to all", EDataRoute::kResourceCallback,
                            RESOURCE_CLOSED_CAPTION, 2);
    m_meeting->SendDataUnit(a->Service(), c->AttachId(), -1, "note", EDataRoute::kResourceCallback,
                            RESOURCE_NOTE_TAKE, 1);
    EXPECT_TRUE(b->m_vecData.empty());
    Settle();

    ASSERT_EQ(b->m_vecData.size(), 2u);
    EXPECT_FALSE(b->m_vecData[0].bViaResource);
    CDataPdu direct;
    direct.SerializeFromBuf(&b->m_vecData[0].strBytes[0], static_cast<int>(b->m_vecData[0].strBytes.size()));
    EXPECT_EQ(std::string(direct.GetData(), static_cast<size_t>(direct.GetDataLen())), "whole text");
    EXPECT_EQ(direct.GetUserFrom(), static_cast<int>(a->AttachId()));
    EXPECT_EQ(direct.GetModifiedFlag(), 0);

    EXPECT_TRUE(b->m_vecData[1].bViaResource);
    EXPECT_EQ(b->m_vecData[1].strResourceName, RESOURCE_CLOSED_CAPTION);
    EXPECT_EQ(b->m_vecData[1].nKind, 2u);
    CDataPdu viaResource;
    viaResource.SerializeFromBuf(&b->m_vecData[1].strBytes[0], static_cast<int>(b->m_vecData[1].strBytes.size()));
    EXPECT_EQ(std::string(viaResource.GetData(), static_cast<size_t>(viaResource.GetDataLen())), "to all");
    EXPECT_EQ(viaResource.GetModifiedFlag(), 1);

    EXPECT_TRUE(a->m_vecData.empty());  // "all" means every other participant
    ASSERT_EQ(c->m_vecData.size(), 2u);
    EXPECT_EQ(c->m_vecData[1].strResourceName, RESOURCE_NOTE_TAKE);
    CDataPdu note;
    note.SerializeFromBuf(&c->m_vecData[1].strBytes[0], static_cast<int>(c->m_vecData[1].strBytes.size()));
    EXPECT_EQ(note.GetModifiedFlag(), -1);
}

// Splits a sealed-record sequence: decimal length, then that many bytes, repeated.
std::vector<std::string> SplitRecords(const std::string& sequence)
{
    std::vector<std::string> records;
    size_t at = 0;
    while (at < sequence.size()) {
        size_t digits = at;
        while (digits < sequence.size() && std::isdigit(static_cast<unsigned char>(sequence[digits]))) ++digits;
        if (digits == at) break;
        const size_t length = std::strtoul(sequence.substr(at, digits - at).c_str(), nullptr, 10);
        if (digits + length > sequence.size()) break;
        records.push_back(sequence.substr(digits, length));
        at = digits + length;
    }
    return records;
}

std::string OpenRecord(IArmService* service, unsigned conference, const std::string& record, int* result)
{
    unsigned char* out = nullptr;
    unsigned outLength = 0;
    *result = service->ArmService_Decrypt(conference, static_cast<unsigned>(record.size()),
                                          reinterpret_cast<const unsigned char*>(record.data()), &out,
                                          &outLength, 0);
    std::string opened;
    if (*result == 0 && out) opened.assign(reinterpret_cast<char*>(out), outLength);
    if (out) service->ArmService_FreeBuffer(out);
    return opened;
}

TEST_P(ConferenceContract, PkiMeetingsSealRecordsThatOnlyVerifyUntampered)
{
    CMeetingOptions options;
    options.bPki = true;
    options.nConferenceHandle = 42;
    Open(options);
    auto a = NewParticipant(1);
    auto b = NewParticipant(2);
    a->JoinAndSubscribe("c");
    b->JoinAndSubscribe("c");
    ARMConferenceQuery query = {m_meeting->ConferenceHandle(), 0};
    EXPECT_EQ(b->Service()->ArmService_QueryConference(ARM_QUERY_CONFERENCE_FLAGS, &query), 0);
    EXPECT_TRUE(query.flags & ARM_CONFERENCE_FLAG_PKI);

    const std::string text(40000, 'q');  // long enough for several records
    m_meeting->SendDataUnit(a->Service(), b->AttachId(), 0, text, EDataRoute::kResourceCallback,
                            RESOURCE_NOTE_TAKE, 0);
    Settle();
    ASSERT_EQ(b->m_vecData.size(), 1u);
    const std::vector<std::string> records = SplitRecords(b->m_vecData[0].strBytes);
    ASSERT_GE(records.size(), 1u);
    std::string envelope;
    for (const std::string& record : records) {
        int result = -1;
        envelope += OpenRecord(b->Service(), m_meeting->ConferenceHandle(), record, &result);
        EXPECT_EQ(result, 0);
    }
    CDataPdu pdu;
    pdu.SerializeFromBuf(&envelope[0], static_cast<int>(envelope.size()));
    EXPECT_EQ(std::string(pdu.GetData(), static_cast<size_t>(pdu.GetDataLen())), text);

    std::string tampered = records[0];
    tampered[tampered.size() / 2] = tampered[tampered.size() / 2] == 'A' ? 'B' : 'A';
    int result = 0;
    EXPECT_EQ(OpenRecord(b->Service(), m_meeting->ConferenceHandle(), tampered, &result), "");
    EXPECT_NE(result, 0);
    OpenRecord(b->Service(), m_meeting->ConferenceHandle() + 1, records[0], &result);
    EXPECT_NE(result, 0);
    OpenRecord(b->Service(), m_meeting->ConferenceHandle(), "", &result);
    EXPECT_NE(result, 0);
}

TEST_P(ConferenceContract, NonPkiMeetingsSayNo)
{
    Open();
    auto a = NewParticipant(1);
    a->JoinAndSubscribe("c");
    ARMConferenceQuery query = {m_meeting->ConferenceHandle(), 0};
    a->Service()->ArmService_QueryConference(ARM_QUERY_CONFERENCE_FLAGS, &query);
    EXPECT_FALSE(query.flags & ARM_CONFERENCE_FLAG_PKI);
}

TEST_P(ConferenceContract, AnOutageQueuesPutsAndDeliversMissedItemsInOrder)
{
    Open();
    auto captioner = NewParticipant(1);
    auto reader = NewParticipant(2);
    const unsigned cache = captioner->JoinAndSubscribe("c");
    reader->JoinAndSubscribe("c");

    m_meeting->SetConnected(captioner->Service(), false);
    Settle();
    EXPECT_EQ(captioner->m_vecMeetingLost, std::vector<int>{1});
    EXPECT_EQ(captioner->Put(cache, 0, CACHE_MODE_APPEND, CACHE_FLAG_BASE, "typed while down 1"), 0);
    captioner->Put(cache, 0, CACHE_MODE_APPEND, CACHE_FLAG_BASE, "typed while down 2");
    reader->Put(cache, 0, CACHE_MODE_APPEND, CACHE_FLAG_BASE, "said while down");
    Settle();
    EXPECT_EQ(Bytes(reader->m_vecCache), (std::vector<std::string>{"", "said while down"}));
    const size_t captionerSeen = captioner->m_vecCache.size();

    // Back: the participant hears everything in cache order, what it missed first, then its
    // own queued lines as they are put.
    m_meeting->SetConnected(captioner->Service(), true);
    Settle();
    EXPECT_EQ(captioner->m_vecMeetingLost, (std::vector<int>{1, 0}));
    EXPECT_EQ(Bytes(reader->m_vecCache),
              (std::vector<std::string>{"", "said while down", "typed while down 1", "typed while down 2"}));
    std::vector<CCacheEvent> caughtEvents(captioner->m_vecCache.begin() + static_cast<long>(captionerSeen),
                                          captioner->m_vecCache.end());
    EXPECT_EQ(Bytes(caughtEvents),
              (std::vector<std::string>{"said while down", "typed while down 1", "typed while down 2"}));
    for (const CCacheEvent& e : caughtEvents) EXPECT_EQ(e.nAction, CACHE_ACTION_ADDED);

    // Nothing confirmed is lost: a late joiner sees everything.
    auto late = NewParticipant(3);
    late->JoinAndSubscribe("c");
    late->Subscribe(cache);
    Settle();
    EXPECT_EQ(late->m_vecCache.size(), 4u);
}

TEST_P(ConferenceContract, CloseNotepadTellsEverySubscriber)
{
    Open();
    auto a = NewParticipant(1);
    auto b = NewParticipant(2);
    a->JoinAndSubscribe("c");
    b->JoinAndSubscribe("c");
    m_meeting->CloseNotepad();
    Settle();
    for (CTestParticipant* p : {a.get(), b.get()}) {
        EXPECT_EQ(p->m_vecCache.back().nAction, CACHE_ACTION_CLOSED);
        EXPECT_EQ(p->m_vecCache.back().nResult, 0);
    }
}

TEST_P(ConferenceContract, MemoryHandlesRefuseMisuse)
{
    Open();
    auto a = NewParticipant(1);
    IArmService* s = a->Service();
    unsigned handle = 0;
    ASSERT_EQ(s->ArmService_AllocMemHandle(8, &handle), 0);
    EXPECT_NE(handle, 0u);
    unsigned size = 0;
    EXPECT_EQ(s->ArmService_GetMemHandleSize(handle, &size), 0);
    EXPECT_EQ(size, 8u);
    EXPECT_EQ(s->ArmService_WriteMemHandle(handle, 0, "12345678", 8), 0);
    EXPECT_NE(s->ArmService_WriteMemHandle(handle, 0, "123456789", 9), 0);  // oversize
    EXPECT_NE(s->ArmService_WriteMemHandle(handle, 1, "1", 1), 0);          // offset must be 0
    char buf[16] = {};
    unsigned capacity = 4;
    EXPECT_NE(s->ArmService_ReadMemHandle(handle, 0, buf, &capacity), 0);  // too small to hold it
    capacity = sizeof buf;
    EXPECT_EQ(s->ArmService_ReadMemHandle(handle, 0, buf, &capacity), 0);
    EXPECT_EQ(capacity, 8u);
    EXPECT_EQ(std::string(buf, 8), "12345678");

    for (unsigned bad : {0u, handle + 1000u}) {
        EXPECT_NE(s->ArmService_GetMemHandleSize(bad, &size), 0);
        EXPECT_NE(s->ArmService_WriteMemHandle(bad, 0, "x", 1), 0);
        capacity = sizeof buf;
        EXPECT_NE(s->ArmService_ReadMemHandle(bad, 0, buf, &capacity), 0);
        EXPECT_NE(s->ArmService_FreeMemHandle(bad), 0);
    }
    unsigned huge = 0;
    EXPECT_NE(s->ArmService_AllocMemHandle(0xFFFFFFFFu, &huge), 0);
    EXPECT_EQ(huge, 0u);
    EXPECT_EQ(s->ArmService_FreeMemHandle(handle), 0);
    EXPECT_NE(s->ArmService_FreeMemHandle(handle), 0);  // freed twice
    EXPECT_TRUE(a->m_vecCallbacks.empty());
}

INSTANTIATE_TEST_SUITE_P(Local, ConferenceContract,
                         ::testing::Values(CConferenceKind{"local", NewLocalMeeting}),
                         [](const ::testing::TestParamInfo<CConferenceKind>& kind) {
                             return std::string(kind.param.pszName);
                         });

}  // namespace
