// End-to-end scenarios on the in-process conference: several clients in one meeting, each
// checked by what its participant sees (panel text, auto-save file, host-sink calls).
//   - a writer that reloaded its auto-save file and whose first update is refused resends its
//     whole document (once), and the readers end with it;
//   - a writer that loses the meeting: its auto-save file, a new instance that loads it, and
//     the changes it could not deliver, resent;
//   - private notes stay private;
//   - whole texts through every road, in plain and PKI meetings;
//   - the notepad type changes mid-meeting.
#include "ClientHarness.h"
#include "ClientTempDir.h"

#include "platform/LoadLocalizedString.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr unsigned kWriterId = 11;
constexpr unsigned kFirstReaderId = 21;

void FixedClock(int* hour, int* minute)
{
    *hour = 9;
    *minute = 30;
}

std::string LostNotice()
{
    return "09:30am " +
           GetLocalizedString(
               "Closed Captions is currently unavailable. Service will be restored as soon as possible.",
               kTessarinNoteBundleId, nullptr);
}

// The non-empty lines of a text, in order.
std::vector<std::string> Lines(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (!line.empty()) lines.push_back(line);
    }
    return lines;
}

long CountCalls(CRecordingHostSink& sink, const std::string& call)
{
    return std::count(sink.m_vecCalls.begin(), sink.m_vecCalls.end(), call);
}

// Wires the meeting's lost-meeting handler to the client as a host wires NoteMeetingLost, and
// fixes the clock of its service notices.
void WireMeetingLost(CClientHarness& harness, CNoteClient& client)
{
    client.m_pfnNoticeClock = &FixedClock;
    harness.Meeting().SetMeetingLostHandler(client.m_pArmService, [&client](int kind) { client.MeetingLost(kind); });
}

void SetConnected(CClientHarness& harness, CNoteClient& client, bool connected)
{
    harness.Meeting().SetConnected(client.m_pArmService, connected);
    harness.Settle();
}

// The auto-save file at path, parsed; false when it is missing or no save record.
bool ReadRecord(const std::string& path, CNoteSaveInfoPDU& record)
{
    return record.LoadFile(path) && record.ParseXMLPDU();
}

// The conference's answer to a put that named an item that is no longer the newest.
void RefuseStaleUpdate(CClientHarness& harness, CNoteClient& writer, unsigned staleItemId)
{
    writer.SharedDataReceivedEx(1, staleItemId, writer.m_nChangeCacheHandle, 0, ARM_REFUSED, CACHE_ACTION_UPDATED,
                                writer.m_nApeUserId, 0, 0);
    harness.Settle();
}

// Leaves an auto-save file at path written by a writer of type that typed texts (each
// published; captions lines each ended with Return) and then lost the meeting.
void WriteAutoSaveInAnEarlierMeeting(NOTETAKERTYPE type, const std::string& path,
                                     const std::vector<std::string>& texts)
{
    CClientHarness earlier;
    CNoteClient& writer = earlier.Join(kWriterId, type, NOTE_USER_WRITER, path);
    WireMeetingLost(earlier, writer);
    for (const std::string& text : texts) {
        if (type == NOTETAKER_CLOSED_CAPTIONS) {
            TypeLine(earlier, writer, text);
        } else {
            earlier.Type(writer, text);
            earlier.Publish(writer);
        }
    }
    SetConnected(earlier, writer, false);
}

// ------------------------------------------------------------------ 1. refused first update

TEST(ClientScenarioRefusedUpdate, NoteTakerWithALoadedFileResendsItsTextAndReadersShowIt)
{
    CClientTempDir dir;
    ASSERT_TRUE(dir.Ok());
    const std::string path = dir.File("auto.xml");
    WriteAutoSaveInAnEarlierMeeting(NOTETAKER_SINGLE, path, {"draft", "draft of the minutes"});

    CClientHarness harness;
    CNoteClient& r1 = harness.Join(kFirstReaderId, NOTETAKER_SINGLE, NOTE_USER_READER);
    CNoteClient& r2 = harness.Join(kFirstReaderId + 1, NOTETAKER_SINGLE, NOTE_USER_READER);
    CNoteClient& writer = harness.Join(kWriterId, NOTETAKER_SINGLE, NOTE_USER_WRITER, path);
    ASSERT_EQ(harness.PanelText(writer), "draft of the minutes");
    EXPECT_EQ(harness.PanelText(r1), "");

    RefuseStaleUpdate(harness, writer, 7);
    for (CNoteClient* reader : {&r1, &r2}) EXPECT_EQ(harness.PanelText(*reader), "draft of the minutes");
    EXPECT_EQ(harness.PanelText(writer), "draft of the minutes");

    // The document went once: a second refusal finds no loaded file any more.
    const size_t items = harness.Meeting().Recording().size();
    RefuseStaleUpdate(harness, writer, 7);
    EXPECT_EQ(harness.Meeting().Recording().size(), items);

    // Editing goes on from there for everybody.
    harness.Type(writer, "draft of the minutes, final");
    harness.Publish(writer);
    for (CNoteClient* reader : {&r1, &r2}) EXPECT_EQ(harness.PanelText(*reader), "draft of the minutes, final");
}

// Caption changes end with CR LF: the auto-save file must give them back byte for byte, or
// their escape offsets move and the reloaded change list comes back empty.
TEST(ClientScenarioRefusedUpdate, CaptionerWithALoadedFileResendsEveryLine)
{
    CClientTempDir dir;
    ASSERT_TRUE(dir.Ok());
    const std::string path = dir.File("auto.xml");
    WriteAutoSaveInAnEarlierMeeting(NOTETAKER_CLOSED_CAPTIONS, path, {"one", "two", "three"});

    CClientHarness harness;
    CNoteClient& reader = harness.Join(kFirstReaderId, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_READER);
    CNoteClient& writer = harness.Join(kWriterId, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_WRITER, path);
    EXPECT_EQ(Lines(harness.PanelText(writer)), (std::vector<std::string>{"one", "two", "three", LostNotice()}));

    RefuseStaleUpdate(harness, writer, 3);
    EXPECT_EQ(harness.PanelText(reader), "one\ntwo\nthree\n");
    TypeLine(harness, writer, "four");
    EXPECT_EQ(Lines(harness.PanelText(reader)), (std::vector<std::string>{"one", "two", "three", "four"}));
}

// ------------------------------------------------------------------ 2. writer loses the meeting

TEST(ClientScenarioMeetingLoss, ANewInstanceOfTheCaptionerLosesNothingAndResendsWhatWasNotDelivered)
{
    CClientTempDir dir;
    ASSERT_TRUE(dir.Ok());
    const std::string path = dir.File("auto.xml");
    CClientHarness harness;
    CNoteClient& r1 = harness.Join(kFirstReaderId, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_READER);
    CNoteClient& r2 = harness.Join(kFirstReaderId + 1, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_READER);
    CNoteClient* writer = &harness.Join(kWriterId, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_WRITER, path);
    WireMeetingLost(harness, *writer);
    TypeLine(harness, *writer, "first");
    TypeLine(harness, *writer, "second");

    // The line typed as the connection goes never reaches the meeting.
    harness.Meeting().SetConnected(writer->m_pArmService, false);
    harness.Type(*writer, harness.PanelText(*writer) + "third\n");
    harness.Publish(*writer);
    const std::string shownBefore = harness.PanelText(*writer);
    const std::string publishBefore = writer->m_strPublishMsg;
    EXPECT_EQ(shownBefore, "first\nsecond\nthird\n\n" + LostNotice() + "\n");
    for (CNoteClient* reader : {&r1, &r2}) EXPECT_EQ(harness.PanelText(*reader), "first\nsecond\n");

    // The file holds the text, the notice and the undelivered change.
    CNoteSaveInfoPDU record;
    ASSERT_TRUE(ReadRecord(path, record));
    EXPECT_EQ(Lines(record.GetNoteShowMsg()), (std::vector<std::string>{"first", "second", "third", LostNotice()}));
    ASSERT_EQ(record.GetNetInfoCount_INT(), 1);
    std::string notice;
    record.GetNetInfo(0, notice);
    EXPECT_EQ(notice, LostNotice());
    ASSERT_EQ(record.m_vecChangeInfoPdu.size(), 3u);
    EXPECT_NE(record.m_vecChangeInfoPdu[0].GetCacheId_INT(), 0);
    EXPECT_NE(record.m_vecChangeInfoPdu[1].GetCacheId_INT(), 0);
    EXPECT_EQ(record.m_vecChangeInfoPdu[2].GetCacheId_INT(), 0);

    // The instance goes; a new one for the same user loads the file when it enrols.
    harness.Leave(*writer);
    writer = &harness.Join(kWriterId, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_WRITER, path);
    WireMeetingLost(harness, *writer);
    EXPECT_EQ(harness.PanelText(*writer), shownBefore);
    EXPECT_EQ(writer->m_strPublishMsg, publishBefore);
    ASSERT_EQ(writer->m_aNetInfo.size(), 1u);
    EXPECT_EQ(std::string(writer->m_aNetInfo[0]), LostNotice());
    // The history it already holds is not applied a second time.
    EXPECT_EQ(CountCalls(harness.SinkOf(*writer), "RemoteChange"), 0);

    // Its next line sends the undelivered one first; the notice itself stays its own.
    TypeLine(harness, *writer, "fourth");
    for (CNoteClient* reader : {&r1, &r2}) {
        EXPECT_EQ(Lines(harness.PanelText(*reader)), (std::vector<std::string>{"first", "second", "third", "fourth"}))
            << harness.PanelText(*reader);
        EXPECT_EQ(harness.PanelText(*reader).find("unavailable"), std::string::npos);
    }
    // A late joiner rebuilds the same lines from the cache.
    CNoteClient& late = harness.Join(kFirstReaderId + 2, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_READER);
    EXPECT_EQ(harness.PanelText(late), harness.PanelText(r1));
}

TEST(ClientScenarioMeetingLoss, ANewInstanceOfTheNoteTakerKeepsItsTextAndPublishText)
{
    CClientTempDir dir;
    ASSERT_TRUE(dir.Ok());
    const std::string path = dir.File("auto.xml");
    CClientHarness harness;
    CNoteClient& reader = harness.Join(kFirstReaderId, NOTETAKER_SINGLE, NOTE_USER_READER);
    CNoteClient* writer = &harness.Join(kWriterId, NOTETAKER_SINGLE, NOTE_USER_WRITER, path);
    WireMeetingLost(harness, *writer);
    harness.Type(*writer, "agreed");
    harness.Publish(*writer);
    harness.Type(*writer, "agreed\nand typed while cut off");

    SetConnected(harness, *writer, false);
    EXPECT_EQ(harness.PanelText(*writer), "agreed\nand typed while cut off");  // no notice in notes
    const std::string publishBefore = writer->m_strPublishMsg;
    CNoteSaveInfoPDU record;
    ASSERT_TRUE(ReadRecord(path, record));
    EXPECT_EQ(Lines(record.GetNoteShowMsg()), (std::vector<std::string>{"agreed", "and typed while cut off"}));
    EXPECT_EQ(record.GetNetInfoCount_INT(), 0);

    harness.Leave(*writer);
    writer = &harness.Join(kWriterId, NOTETAKER_SINGLE, NOTE_USER_WRITER, path);
    // The meeting's newest item is the change the file already holds: it is not applied again,
    // so the text typed while cut off is still there, and it is published from there.
    EXPECT_EQ(harness.PanelText(*writer), "agreed\nand typed while cut off");
    EXPECT_EQ(writer->m_strPublishMsg, publishBefore);
    EXPECT_EQ(CountCalls(harness.SinkOf(*writer), "RemoteChange"), 0);
    EXPECT_EQ(harness.PanelText(reader), "agreed");
    // The reloaded text counts as the shared one, so publishing it alone sends nothing; the
    // next edit carries it to everybody (each change holds the whole note).
    harness.Publish(*writer);
    EXPECT_EQ(harness.PanelText(reader), "agreed");
    harness.Type(*writer, "agreed\nand typed while cut off\nmore");
    harness.Publish(*writer);
    EXPECT_EQ(harness.PanelText(reader), "agreed\nand typed while cut off\nmore");
}

// ------------------------------------------------------------------ 3. private notes

TEST(ClientScenarioPrivateNotes, EachParticipantKeepsItsOwnText)
{
    CClientHarness harness;
    std::vector<CNoteClient*> clients;
    for (unsigned i = 0; i < 3; ++i)
        clients.push_back(&harness.Join(kFirstReaderId + i, NOTETAKER_ALL_PARTICIPANTS, i == 0 ? NOTE_USER_WRITER
                                                                                               : NOTE_USER_READER));
    const std::vector<std::string> texts = {"mine, the host's", "reader one's own", "reader two's own"};
    for (size_t i = 0; i < clients.size(); ++i) {
        harness.Type(*clients[i], texts[i]);
        harness.Publish(*clients[i]);
        harness.Type(*clients[i], texts[i] + "\nmore");
        harness.Publish(*clients[i], true);
    }
    harness.Ticks(10);
    for (size_t i = 0; i < clients.size(); ++i) {
        EXPECT_EQ(harness.PanelText(*clients[i]), texts[i] + "\nmore");
        EXPECT_EQ(CountCalls(harness.SinkOf(*clients[i]), "RemoteChange"), 0);
    }
    CNoteClient& late = harness.Join(kFirstReaderId + 5, NOTETAKER_ALL_PARTICIPANTS, NOTE_USER_READER);
    EXPECT_EQ(harness.PanelText(late), "");
    EXPECT_EQ(CountCalls(harness.SinkOf(late), "RemoteChange"), 0);
}

// ------------------------------------------------------------------ 4. whole texts

struct SRoad {
    bool bPki;
    EDataRoute route;
    const char* name;
};

const SRoad kRoads[] = {
    {false, EDataRoute::kDirect, "plain direct"},
    {false, EDataRoute::kResourceCallback, "plain resource"},
    {true, EDataRoute::kDirect, "PKI direct"},
    {true, EDataRoute::kResourceCallback, "PKI resource"},
};

// Every client registers its resource callback before it is attached, under id 0, so a
// resource message is routed to the first client of the process: the reader that must see the
// text joins first. A direct data unit reaches every other participant.
TEST(ClientScenarioWholeText, EveryRoadReachesTheReadersPanel)
{
    for (const SRoad& road : kRoads) {
        CMeetingOptions options;
        options.bPki = road.bPki;
        CClientHarness harness(options);
        ASSERT_EQ(harness.Meeting().IsPki(), road.bPki);
        CNoteClient& reader = harness.Join(kFirstReaderId, NOTETAKER_SINGLE, NOTE_USER_READER);
        CNoteClient& writer = harness.Join(kWriterId, NOTETAKER_SINGLE, NOTE_USER_WRITER);
        harness.Type(writer, "published first");
        harness.Publish(writer);
        ASSERT_EQ(harness.PanelText(reader), "published first");
        const long needSave = CountCalls(harness.SinkOf(reader), "NeedSave 1") +
                              CountCalls(harness.SinkOf(reader), "SaveEnabled 1");

        const std::string text = std::string("whole text, ") + road.name + "\nGr\xC3\xBC\xC3\x9F" "e";
        harness.Meeting().SendDataUnit(writer.m_pArmService, 0, 0, text, road.route, RESOURCE_NOTE_TAKE, 0);
        harness.Settle();
        EXPECT_EQ(harness.PanelText(reader), text) << road.name;
        EXPECT_GT(CountCalls(harness.SinkOf(reader), "NeedSave 1") + CountCalls(harness.SinkOf(reader), "SaveEnabled 1"),
                  needSave)
            << road.name;
        EXPECT_EQ(harness.PanelText(writer), "published first") << road.name;

        // Addressed to the reader alone.
        harness.Meeting().SendDataUnit(writer.m_pArmService, reader.m_nApeUserId, 0, "for the reader", road.route,
                                       RESOURCE_NOTE_TAKE, 0);
        harness.Settle();
        EXPECT_EQ(harness.PanelText(reader), "for the reader") << road.name;
        EXPECT_EQ(harness.PanelText(writer), "published first") << road.name;

        // The next publish puts the note taker's text back everywhere.
        harness.Type(writer, "published again");
        harness.Publish(writer);
        EXPECT_EQ(harness.PanelText(reader), "published again") << road.name;
    }
}

// ------------------------------------------------------------------ 5. the notepad type

TEST(ClientScenarioRoles, ANotepadTypeChangeClearsEveryonesTextAndTheCache)
{
    CClientHarness harness;
    CNoteClient& writer = harness.Join(kWriterId, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_WRITER);
    CNoteClient& r1 = harness.Join(kFirstReaderId, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_READER);
    CNoteClient& r2 = harness.Join(kFirstReaderId + 1, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_READER);
    TypeLine(harness, writer, "caption before the change");
    ASSERT_EQ(harness.PanelText(r1), "caption before the change\n");

    // The host switches every participant to the single note taker, the writer first.
    for (CNoteClient* client : {&writer, &r1, &r2}) client->SetNotepadType(NOTETAKER_SINGLE);
    harness.Settle();
    for (CNoteClient* client : {&writer, &r1, &r2}) {
        EXPECT_EQ(harness.PanelText(*client), "") << client->m_nUserId;
        EXPECT_TRUE(client->m_SaveInfo.m_vecChangeInfoPdu.empty()) << client->m_nUserId;
    }
    // Nobody who joins the new notepad sees the old captions.
    CNoteClient& late = harness.Join(kFirstReaderId + 2, NOTETAKER_SINGLE, NOTE_USER_READER);
    EXPECT_EQ(harness.PanelText(late), "");

    harness.Type(writer, "notes now");
    harness.Publish(writer);
    for (CNoteClient* client : {&writer, &r1, &r2, &late})
        EXPECT_EQ(harness.PanelText(*client), "notes now") << client->m_nUserId;
}

}  // namespace
