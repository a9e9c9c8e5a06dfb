// What every conference behind IMeeting must do, checked through the service interface only:
// the handshake, name handles, the change cache, recording, data units, PKI records, outages
// and memory handles. The suite runs once per conference implementation: in-process, and on a
// real redis-server.
#include "RedisTestServer.h"
#include "TestParticipant.h"
#include "conference/LocalConference.h"
#include "conference/SealedRecords.h"
#include "transport/DataPdu.h"
#include "transport/ManualRunLoop.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

struct CConferenceKind {
    const char* pszName;
    std::function<std::unique_ptr<IMeeting>(const CMeetingOptions&)> make;
    bool bRedis;  // replies arrive on the GLib main context, which settling turns too
};

void PrintTo(const CConferenceKind& kind, std::ostream* out)
{
    *out << kind.pszName;
}

std::vector<std::string> Bytes(const std::vector<CCacheEvent>& events)
{
    std::vector<std::string> bytes;
    for (const CCacheEvent& e : events) bytes.push_back(e.strBytes);
    return bytes;
}

// The envelopes of a data unit, parsed as the client parses them.
struct CEnvelope {
    int nFrom;
    short nFlag;
    std::string strPayload;
};

CEnvelope ParseEnvelope(std::string bytes)
{
    CDataPdu pdu;
    pdu.SerializeFromBuf(&bytes[0], static_cast<int>(bytes.size()));
    return {pdu.GetUserFrom(), pdu.GetModifiedFlag(),
            pdu.GetData() ? std::string(pdu.GetData(), static_cast<size_t>(pdu.GetDataLen())) : "<none>"};
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
        return std::make_unique<CTestParticipant>(*m_meeting, m_loop, [this] { Settle(); }, userId);
    }

    // Every callback produced so far arrives; bounded so a host that keeps posting fails. A
    // Redis meeting is settled when all it sent is answered and delivered.
    void Settle()
    {
        const gint64 deadline = g_get_monotonic_time() + 20 * G_USEC_PER_SEC;
        for (;;) {
            for (int round = 0; round < 10000 && m_loop.RunPending() > 0; ++round) {}
            if (!GetParam().bRedis || (IsRedisMeetingSettled(*m_meeting) && m_loop.PostedCount() == 0)) return;
            if (g_get_monotonic_time() > deadline) {
                ADD_FAILURE() << "the meeting did not settle";
                return;
            }
            g_main_context_iteration(nullptr, TRUE);  // the links' watchdogs wake it at least every 200 ms
        }
    }

    // A participant that joined and subscribed to cache "c".
    std::unique_ptr<CTestParticipant> Joined(unsigned userId)
    {
        std::unique_ptr<CTestParticipant> p = NewParticipant(userId);
        p->JoinAndSubscribe("c");
        return p;
    }

    // What a participant joining now finds in cache: the second subscribe brings the history.
    std::vector<std::string> LateJoinerSees() { return Bytes(Joined(99)->m_vecCache); }

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
    EXPECT_EQ(a->m_nConnectResult, 0);
    EXPECT_EQ(a->Join(), ARM_OK);
    EXPECT_EQ(a->m_vecCallbacks.size(), 1u);
    Settle();
    EXPECT_EQ(a->Join(), ARM_ALREADY_JOINED);
    EXPECT_EQ(a->m_nJoinResult, 0);
    EXPECT_EQ(a->Attach(), ARM_OK);
    const unsigned written = a->AttachId();  // written at once
    EXPECT_NE(written, 0u);
    Settle();
    EXPECT_EQ(a->AttachId(), written);
    EXPECT_EQ(a->Enroll(), ARM_OK);
    Settle();
    EXPECT_EQ(a->m_nEnrollResult, 0);
    EXPECT_GE(a->m_nEnrollCount, 1);
    EXPECT_EQ(a->m_vecCallbacks, (std::vector<std::string>{"ConnectConfirm", "ConferenceJoinConfirm",
                                                           "ApeAttachConfirm", "ApeEnrollConfirm"}));
    ARMConferenceQuery query = {m_meeting->ConferenceHandle(), 0};
    EXPECT_EQ(a->Service()->ArmService_QueryConference(ARM_QUERY_CONFERENCE_FLAGS, &query), 0);
    EXPECT_FALSE(query.flags & ARM_CONFERENCE_FLAG_PKI);

    // A second participant shares the resource id and the name handles.
    a->AllocCache("note_changeinfo_cache_x");
    Settle();
    auto b = NewParticipant(2);
    EXPECT_EQ(b->JoinAndSubscribe("note_changeinfo_cache_x"), a->Cache());
    EXPECT_NE(a->AttachId(), b->AttachId());
    EXPECT_NE(a->ResourceId(), 0u);
    EXPECT_EQ(a->ResourceId(), b->ResourceId());
    EXPECT_NE(a->Cache(), 0u);
    EXPECT_STREQ(a->m_vecNames[0].szName, "note_changeinfo_cache_x");
    a->AllocCache("another_cache");
    Settle();
    ASSERT_EQ(a->m_vecNames.size(), 2u);
    EXPECT_NE(a->m_vecNames[1].nHandle, 0u);
    EXPECT_NE(a->m_vecNames[1].nHandle, a->m_vecNames[0].nHandle);
}

TEST_P(ConferenceContract, FirstSubscribeAnswersNewestIdThenDeliversHistory)
{
    Open();
    auto writer = Joined(1);
    const unsigned cache = writer->Cache();
    ASSERT_EQ(writer->m_vecCache.size(), 1u);
    EXPECT_EQ(writer->m_vecCache[0].nAction, CACHE_ACTION_SUBSCRIBED);
    EXPECT_EQ(writer->m_vecCache[0].nCacheId, 0u);  // empty cache
    EXPECT_EQ(writer->m_vecCache[0].nMemHandle, 0u);
    for (const char* line : {"one", "two", "three"}) writer->Append(cache, line);
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
    // as known items and the newest as added. What is put in between comes with the history,
    // not before it (a caption line would be shown ahead of the earlier ones).
    auto late = NewParticipant(2);
    late->JoinAndSubscribe("c", false);
    ASSERT_EQ(late->m_vecCache.size(), 1u);
    EXPECT_EQ(late->m_vecCache[0].nCacheId, id1 + 2);
    writer->Append(cache, "four");
    Settle();
    EXPECT_EQ(late->m_vecCache.size(), 1u);
    late->Subscribe(cache);
    Settle();
    writer->Append(cache, "five");
    Settle();
    std::vector<int> actions;
    for (const CCacheEvent& e : late->m_vecCache) actions.push_back(e.nAction);
    EXPECT_EQ(actions, (std::vector<int>{CACHE_ACTION_SUBSCRIBED, CACHE_ACTION_KNOWN, CACHE_ACTION_KNOWN,
                                         CACHE_ACTION_KNOWN, CACHE_ACTION_ADDED, CACHE_ACTION_ADDED}));
    EXPECT_EQ(Bytes(late->m_vecCache), (std::vector<std::string>{"", "one", "two", "three", "four", "five"}));
    EXPECT_EQ(late->m_vecCache[1].nPutter, writer->AttachId());
}

TEST_P(ConferenceContract, ReplaceInPlaceRefusesStaleUpdatesToThePutterOnly)
{
    Open();
    auto writer = Joined(1);
    const unsigned cache = writer->Cache();
    auto reader = Joined(2);
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
    EXPECT_EQ(refused.nMemHandle, 0u);
    EXPECT_EQ(writer->m_vecConfirms.back().nResult, ARM_REFUSED);
    EXPECT_EQ(LateJoinerSees(), (std::vector<std::string>{"", "v3"}));
}

TEST_P(ConferenceContract, ResynchroniseClearAndClose)
{
    Open();
    auto a = Joined(1);
    const unsigned cache = a->Cache();
    auto b = Joined(2);
    a->Append(cache, "x");
    a->Append(cache, "y");
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
    a->Append(cache, "z");
    Settle();
    EXPECT_GT(b->m_vecCache.back().nCacheId, newest);  // ids are never reused after a clear
    EXPECT_EQ(LateJoinerSees(), (std::vector<std::string>{"", "z"}));
    m_meeting->CloseNotepad();
    Settle();
    for (CTestParticipant* p : {a.get(), b.get()}) {
        EXPECT_EQ(p->m_vecCache.back().nAction, CACHE_ACTION_CLOSED);
        EXPECT_EQ(p->m_vecCache.back().nResult, 0);
    }
}

TEST_P(ConferenceContract, RecordingFlagsKeepItemsWithArrivalTimes)
{
    Open();
    auto a = Joined(1);
    a->Append(a->Cache(), "not recorded");
    m_loop.Advance(2.5);
    const double before = m_loop.Now();
    a->Put(a->Cache(), 0, CACHE_MODE_APPEND, CACHE_FLAG_BASE | CACHE_FLAG_RECORD_A | CACHE_FLAG_RECORD_B, "recorded");
    m_loop.Advance(1.0);
    a->Put(a->Cache(), 0, CACHE_MODE_APPEND, CACHE_FLAG_BASE | CACHE_FLAG_RECORD_A, "also");
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
    auto a = Joined(1);
    auto b = Joined(2);
    auto c = Joined(3);
    m_meeting->SendDataUnit(a->Service(), b->AttachId(), 0, "whole text", EDataRoute::kDirect, nullptr, 0);
    m_meeting->SendDataUnit(a->Service(), 0, 1, "to all", EDataRoute::kResourceCallback, RESOURCE_CLOSED_CAPTION, 2);
    m_meeting->SendDataUnit(a->Service(), c->AttachId(), -1, "note", EDataRoute::kResourceCallback,
                            RESOURCE_NOTE_TAKE, 1);
    EXPECT_TRUE(b->m_vecData.empty());
    Settle();
    ASSERT_EQ(b->m_vecData.size(), 2u);
    EXPECT_FALSE(b->m_vecData[0].bViaResource);
    const CEnvelope direct = ParseEnvelope(b->m_vecData[0].strBytes);
    EXPECT_EQ(direct.strPayload, "whole text");
    EXPECT_EQ(direct.nFrom, static_cast<int>(a->AttachId()));
    EXPECT_EQ(direct.nFlag, 0);
    EXPECT_TRUE(b->m_vecData[1].bViaResource);
    EXPECT_EQ(b->m_vecData[1].strResourceName, RESOURCE_CLOSED_CAPTION);
    EXPECT_EQ(b->m_vecData[1].nKind, 2u);
    EXPECT_EQ(ParseEnvelope(b->m_vecData[1].strBytes).strPayload, "to all");
    EXPECT_EQ(ParseEnvelope(b->m_vecData[1].strBytes).nFlag, 1);
    EXPECT_TRUE(a->m_vecData.empty());  // "all" means every other participant
    ASSERT_EQ(c->m_vecData.size(), 2u);
    EXPECT_EQ(c->m_vecData[1].strResourceName, RESOURCE_NOTE_TAKE);
    EXPECT_EQ(ParseEnvelope(c->m_vecData[1].strBytes).nFlag, -1);
}

TEST_P(ConferenceContract, PkiMeetingsSealRecordsThatOnlyVerifyUntampered)
{
    CMeetingOptions options;
    options.bPki = true;
    options.nConferenceHandle = 42;
    Open(options);
    auto a = Joined(1);
    auto b = Joined(2);
    ARMConferenceQuery query = {m_meeting->ConferenceHandle(), 0};
    EXPECT_EQ(b->Service()->ArmService_QueryConference(ARM_QUERY_CONFERENCE_FLAGS, &query), 0);
    EXPECT_TRUE(query.flags & ARM_CONFERENCE_FLAG_PKI);

    const std::string text(40000, 'q');  // long enough for several records
    m_meeting->SendDataUnit(a->Service(), b->AttachId(), 0, text, EDataRoute::kResourceCallback, RESOURCE_NOTE_TAKE, 0);
    Settle();
    ASSERT_EQ(b->m_vecData.size(), 1u);
    // The sequence, a NUL and as many zero bytes again: the room the plug-in measures against.
    const std::string sequence = b->m_vecData[0].strBytes.c_str();
    EXPECT_EQ(b->m_vecData[0].strBytes, sequence + std::string(sequence.size() + 1, '\0'));
    std::vector<std::string> records;
    ASSERT_TRUE(SplitSealedSequence(sequence, &records));
    std::string envelope;
    const auto open = [&](const std::string& record, unsigned conference) {
        unsigned char* out = nullptr;
        unsigned length = 0;
        const int result = b->Service()->ArmService_Decrypt(conference, static_cast<unsigned>(record.size()),
                                                            reinterpret_cast<const unsigned char*>(record.data()),
                                                            &out, &length, 0);
        if (result == 0 && out) envelope.append(reinterpret_cast<char*>(out), length);
        if (out) b->Service()->ArmService_FreeBuffer(out);
        return result;
    };
    for (const std::string& record : records) EXPECT_EQ(open(record, m_meeting->ConferenceHandle()), 0);
    EXPECT_EQ(ParseEnvelope(envelope).strPayload, text);

    envelope.clear();
    std::string tampered = records[0];
    tampered[tampered.size() / 2] = tampered[tampered.size() / 2] == 'A' ? 'B' : 'A';
    EXPECT_NE(open(tampered, m_meeting->ConferenceHandle()), 0);
    EXPECT_NE(open(records[0], m_meeting->ConferenceHandle() + 1), 0);
    EXPECT_NE(open("", m_meeting->ConferenceHandle()), 0);
    EXPECT_EQ(envelope, "");
}

TEST_P(ConferenceContract, AnOutageQueuesPutsAndDeliversMissedItemsInOrder)
{
    Open();
    auto captioner = Joined(1);
    const unsigned cache = captioner->Cache();
    auto reader = Joined(2);
    m_meeting->SetConnected(captioner->Service(), false);
    Settle();
    EXPECT_EQ(captioner->m_vecMeetingLost, std::vector<int>{1});
    EXPECT_EQ(captioner->Append(cache, "typed while down 1"), 0);
    captioner->Append(cache, "typed while down 2");
    reader->Append(cache, "said while down");
    Settle();
    EXPECT_EQ(Bytes(reader->m_vecCache), (std::vector<std::string>{"", "said while down"}));
    const size_t captionerSeen = captioner->m_vecCache.size();

    // Back: the participant hears everything in cache order, what it missed first, then its
    // own queued lines as they are put.
    m_meeting->SetConnected(captioner->Service(), true);
    Settle();
    EXPECT_EQ(captioner->m_vecMeetingLost, (std::vector<int>{1, 0}));
    const std::vector<std::string> all = {"", "said while down", "typed while down 1", "typed while down 2"};
    EXPECT_EQ(Bytes(reader->m_vecCache), all);
    std::vector<CCacheEvent> caught(captioner->m_vecCache.begin() + static_cast<long>(captionerSeen),
                                    captioner->m_vecCache.end());
    EXPECT_EQ(Bytes(caught), std::vector<std::string>(all.begin() + 1, all.end()));
    for (const CCacheEvent& e : caught) EXPECT_EQ(e.nAction, CACHE_ACTION_ADDED);
    EXPECT_EQ(LateJoinerSees(), all);  // nothing confirmed is lost
}

TEST_P(ConferenceContract, MemoryHandlesRefuseMisuse)
{
    Open();
    auto a = NewParticipant(1);
    IArmService* s = a->Service();
    unsigned handle = 0, size = 0, capacity = 4;
    ASSERT_EQ(s->ArmService_AllocMemHandle(8, &handle), 0);
    EXPECT_EQ(s->ArmService_GetMemHandleSize(handle, &size), 0);
    EXPECT_EQ(size, 8u);
    EXPECT_EQ(s->ArmService_WriteMemHandle(handle, 0, "12345678", 8), 0);
    EXPECT_NE(s->ArmService_WriteMemHandle(handle, 0, "123456789", 9), 0);  // oversize
    EXPECT_NE(s->ArmService_WriteMemHandle(handle, 1, "1", 1), 0);          // offset must be 0
    char buf[16] = {};
    EXPECT_NE(s->ArmService_ReadMemHandle(handle, 0, buf, &capacity), 0);  // too small to hold it
    capacity = sizeof buf;
    EXPECT_EQ(s->ArmService_ReadMemHandle(handle, 0, buf, &capacity), 0);
    EXPECT_EQ(std::string(buf, capacity), "12345678");
    for (unsigned bad : {0u, handle + 1000u}) {
        EXPECT_NE(s->ArmService_GetMemHandleSize(bad, &size), 0);
        EXPECT_NE(s->ArmService_WriteMemHandle(bad, 0, "x", 1), 0);
        EXPECT_NE(s->ArmService_ReadMemHandle(bad, 0, buf, &capacity), 0);
    }
    unsigned huge = 0;
    EXPECT_NE(s->ArmService_AllocMemHandle(0xFFFFFFFFu, &huge), 0);
    EXPECT_EQ(huge, 0u);
    EXPECT_EQ(s->ArmService_FreeMemHandle(handle), 0);
    EXPECT_NE(s->ArmService_FreeMemHandle(handle), 0);  // freed twice
    EXPECT_TRUE(a->m_vecCallbacks.empty());
}

INSTANTIATE_TEST_SUITE_P(Kinds, ConferenceContract,
                         ::testing::Values(CConferenceKind{"local", NewLocalMeeting, false},
                                           CConferenceKind{"redis", NewTestRedisMeeting, true}),
                         [](const ::testing::TestParamInfo<CConferenceKind>& kind) {
                             return std::string(kind.param.pszName);
                         });

}  // namespace
