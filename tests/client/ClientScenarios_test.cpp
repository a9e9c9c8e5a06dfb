// End-to-end on the in-process conference, each client checked by what its participant sees
// (panel text, auto-save file, host-sink calls): writers and readers converge after every
// publish and late joiners rebuild the text; a writer with a reloaded file whose first update is
// refused resends its document; a writer that loses the meeting loses nothing; private notes
// stay private; whole texts take every road; the notepad type changes mid-meeting.
#include "ClientHarness.h"
#include "ClientTempDir.h"

#include "platform/LoadLocalizedString.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

namespace {

using Texts = std::vector<std::string>;
constexpr unsigned kWriterId = 11, kReaderId = 21;

void FixedClock(int* hour, int* minute)
{
    *hour = 9;
    *minute = 30;
}
std::string LostNotice()
{
    return "09:30am " + GetLocalizedString("Closed Captions is currently unavailable. Service will be restored as soon "
                                           "as possible.",
                                           kTessarinNoteBundleId, nullptr);
}
// The non-empty lines of a text.
Texts Lines(const std::string& text)
{
    Texts lines;
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
// Change segments turn every "]]>" into "]] >" for good: the writer alone keeps the typed form.
std::string AsSent(std::string text)
{
    for (size_t p = text.find("]]>"); p != std::string::npos; p = text.find("]]>", p + 4)) text.replace(p, 3, "]] >");
    return text;
}
Texts ChangeList(CNoteSaveInfoPDU& record)
{
    Texts list;
    for (CNoteChangeInfoPDU& pdu : record.m_vecChangeInfoPdu)
        list.push_back(std::to_string(pdu.GetCacheId_INT() != 0) + pdu.GetNoteMsg());
    return list;
}

// A meeting of one writer and its readers.
struct CScenario {
    CNoteClient& Writer(NOTETAKERTYPE type, const std::string& path = "")
    {
        m_pWriter = &m_harness.Join(kWriterId, type, NOTE_USER_WRITER, path);
        m_pWriter->m_pfnNoticeClock = &FixedClock;
        CNoteClient* writer = m_pWriter;  // as a host wires NoteMeetingLost
        m_harness.Meeting().SetMeetingLostHandler(writer->m_pArmService,
                                                  [writer](int kind) { writer->MeetingLost(kind); });
        return *m_pWriter;
    }
    CNoteClient& Reader(NOTETAKERTYPE type)
    {
        m_vecReaders.push_back(&m_harness.Join(kReaderId + unsigned(m_vecReaders.size()), type, NOTE_USER_READER));
        return *m_vecReaders.back();
    }
    void Publish(const std::string& text)
    {
        m_harness.Type(*m_pWriter, text);
        m_harness.Publish(*m_pWriter);
    }
    void Disconnect()
    {
        m_harness.Meeting().SetConnected(m_pWriter->m_pArmService, false);
        m_harness.Settle();
    }
    // Every reader shows and shares what the writer shows and shares, as sent.
    void ExpectConverged(const std::string& step)
    {
        EXPECT_EQ(m_pWriter->m_strOldMsg, CrLfText(*m_pWriter)) << step;
        for (CNoteClient* reader : m_vecReaders) {
            EXPECT_EQ(m_harness.PanelText(*reader), AsSent(m_harness.PanelText(*m_pWriter))) << step;
            EXPECT_EQ(reader->m_strOldMsg, AsSent(m_pWriter->m_strOldMsg)) << step;
            EXPECT_TRUE(reader->m_strRecvMsg.empty()) << step;
        }
    }
    // The writer answered as the conference answers a put naming an item no longer the newest.
    void RefuseStaleUpdate(unsigned staleItemId)
    {
        m_pWriter->SharedDataReceivedEx(1, staleItemId, m_pWriter->m_nChangeCacheHandle, 0, ARM_REFUSED,
                                        CACHE_ACTION_UPDATED, m_pWriter->m_nApeUserId, 0, 0);
        m_harness.Settle();
    }

    CClientTempDir m_dir;
    const std::string m_strPath = m_dir.File("auto.xml");
    CClientHarness m_harness;
    CNoteClient* m_pWriter = nullptr;
    std::vector<CNoteClient*> m_vecReaders;
};

class ClientScenario : public ::testing::Test, public CScenario {};

TEST_F(ClientScenario, TheNoteTakersReadersShowItsTextAfterEveryPublishAndALateJoinerTheLatest)
{
    Writer(NOTETAKER_SINGLE);
    Reader(NOTETAKER_SINGLE);
    Reader(NOTETAKER_SINGLE);
    for (const char* text : {"hello", "hello world", "x ]]> y", "abc and abc]]>abc", "line1\nline2\n\nline4\n",
                             "Gr\xC3\xBC\xC3\x9F" "e \xE2\x80\x93 \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x8E\x89", "",
                             "after the empty one", "after the empty one", "<notecom>&amp;</notecom>"}) {
        Publish(text);
        EXPECT_EQ(m_harness.PanelText(*m_pWriter), text);
        ExpectConverged(text);
    }
    // The note taker's list holds only its latest complete text, stamped by the echo.
    for (CNoteClient* client : {m_pWriter, m_vecReaders[0], m_vecReaders[1]})
        EXPECT_EQ(ChangeList(client->m_SaveInfo), (Texts{"1<notecom>&amp;</notecom>"}));
    Reader(NOTETAKER_SINGLE);
    ExpectConverged("late joiner");
    Publish("then more");
    ExpectConverged("after the late joiner");
}

TEST_F(ClientScenario, ACaptionersReadersAccumulateItsLinesAndALateJoinerRebuildsThemInOneApplication)
{
    Writer(NOTETAKER_CLOSED_CAPTIONS);
    Reader(NOTETAKER_CLOSED_CAPTIONS);
    Reader(NOTETAKER_CLOSED_CAPTIONS);
    std::string expected;
    // Return on an empty line sends its line end alone.
    for (const char* line : {"Hello", "x ]]> y", "abc", "Gr\xC3\xBC\xC3\x9F" "e \xF0\x9F\x8E\x89", "", "abc]]>abc"}) {
        TypeLine(m_harness, *m_pWriter, line);
        expected += std::string(line) + "\n";
        EXPECT_EQ(m_harness.PanelText(*m_pWriter), expected);
        ExpectConverged(line);
    }
    Publish(expected + "no line end");  // with the button, without a line end
    ExpectConverged("button");
    const Texts writerList = ChangeList(m_pWriter->m_SaveInfo);
    ASSERT_EQ(writerList.size(), 7u);
    for (const std::string& entry : writerList) EXPECT_EQ(entry[0], '1');
    for (CNoteClient* reader : m_vecReaders) EXPECT_EQ(ChangeList(reader->m_SaveInfo), writerList);

    CNoteClient& late = Reader(NOTETAKER_CLOSED_CAPTIONS);
    ExpectConverged("late joiner");
    EXPECT_EQ(ChangeList(late.m_SaveInfo), writerList);
    // The history is applied at once: one notice, one countdown, one scroll to the end.
    EXPECT_EQ(CountCalls(m_harness.SinkOf(late), "RemoteChange"), 1);
    const int scrolls = ViewOf(late).ScrollCount();
    m_harness.Ticks(20);
    EXPECT_EQ(ViewOf(late).ScrollCount(), scrolls + 1);
    TypeLine(m_harness, *m_pWriter, "one more");
    ExpectConverged("after the late joiner");
    EXPECT_EQ(CountCalls(m_harness.SinkOf(late), "RemoteChange"), 2);
}

// Caption changes end with CR LF: the auto-save file must give them back byte for byte, or their
// escape offsets move and the reloaded change list comes back empty.
TEST_F(ClientScenario, AWriterWithALoadedFileWhoseFirstUpdateIsRefusedResendsItsDocumentOnce)
{
    ASSERT_TRUE(m_dir.Ok());
    for (NOTETAKERTYPE type : {NOTETAKER_SINGLE, NOTETAKER_CLOSED_CAPTIONS}) {
        SCOPED_TRACE(type);
        const bool captions = type == NOTETAKER_CLOSED_CAPTIONS;
        {
            CClientTempDir::Remove(m_strPath);
            CScenario earlier;
            earlier.Writer(type, m_strPath);
            for (const char* text : {"one", "two"}) {
                if (captions)
                    TypeLine(earlier.m_harness, *earlier.m_pWriter, text);
                else
                    earlier.Publish(text);
            }
            earlier.Disconnect();
        }
        CScenario now;
        CNoteClient& reader = now.Reader(type);
        CNoteClient& writer = now.Writer(type, m_strPath);
        EXPECT_EQ(Lines(now.m_harness.PanelText(writer)),
                  captions ? (Texts{"one", "two", LostNotice()}) : (Texts{"two"}));
        EXPECT_EQ(now.m_harness.PanelText(reader), "");
        now.RefuseStaleUpdate(7);
        EXPECT_EQ(now.m_harness.PanelText(reader), captions ? "one\ntwo\n" : "two");
        const size_t items = now.m_harness.Meeting().Recording().size();
        now.RefuseStaleUpdate(7);  // a second refusal finds no loaded file any more
        EXPECT_EQ(now.m_harness.Meeting().Recording().size(), items);
        if (captions)
            TypeLine(now.m_harness, writer, "three");
        else
            now.Publish("two, three");
        EXPECT_EQ(Lines(now.m_harness.PanelText(reader)),
                  captions ? (Texts{"one", "two", "three"}) : (Texts{"two, three"}));
    }
}

TEST_F(ClientScenario, ANewInstanceOfTheCaptionerLosesNothingAndResendsWhatWasNotDelivered)
{
    ASSERT_TRUE(m_dir.Ok());
    Reader(NOTETAKER_CLOSED_CAPTIONS);
    Reader(NOTETAKER_CLOSED_CAPTIONS);
    Writer(NOTETAKER_CLOSED_CAPTIONS, m_strPath);
    TypeLine(m_harness, *m_pWriter, "first");
    TypeLine(m_harness, *m_pWriter, "second");
    // The line typed as the connection goes never reaches the meeting.
    m_harness.Meeting().SetConnected(m_pWriter->m_pArmService, false);
    Publish(m_harness.PanelText(*m_pWriter) + "third\n");
    const std::string shown = m_harness.PanelText(*m_pWriter), published = m_pWriter->m_strPublishMsg;
    EXPECT_EQ(shown, "first\nsecond\nthird\n\n" + LostNotice() + "\n");
    for (CNoteClient* reader : m_vecReaders) EXPECT_EQ(m_harness.PanelText(*reader), "first\nsecond\n");
    // The file holds the text, the notice and the undelivered change.
    CNoteSaveInfoPDU record;
    ASSERT_TRUE(record.LoadFile(m_strPath) && record.ParseXMLPDU());
    EXPECT_EQ(Lines(record.GetNoteShowMsg()), (Texts{"first", "second", "third", LostNotice()}));
    std::string notice;
    record.GetNetInfo(0, notice);
    EXPECT_EQ(notice, LostNotice());
    std::string stamped;  // the undelivered change has no cache id
    for (const std::string& change : ChangeList(record)) stamped += change[0];
    EXPECT_EQ(stamped, "110");

    // A new instance for the same user loads the file when it enrols, without applying the
    // history it already holds a second time.
    m_harness.Leave(*m_pWriter);
    Writer(NOTETAKER_CLOSED_CAPTIONS, m_strPath);
    EXPECT_EQ(m_harness.PanelText(*m_pWriter), shown);
    EXPECT_EQ(m_pWriter->m_strPublishMsg, published);
    EXPECT_EQ(NetInfo(*m_pWriter), (Texts{LostNotice()}));
    EXPECT_EQ(CountCalls(m_harness.SinkOf(*m_pWriter), "RemoteChange"), 0);
    // Its next line sends the undelivered one first; the notice stays its own.
    TypeLine(m_harness, *m_pWriter, "fourth");
    for (CNoteClient* reader : m_vecReaders)
        EXPECT_EQ(Lines(m_harness.PanelText(*reader)), (Texts{"first", "second", "third", "fourth"}));
    CNoteClient& late = Reader(NOTETAKER_CLOSED_CAPTIONS);
    EXPECT_EQ(m_harness.PanelText(late), m_harness.PanelText(*m_vecReaders[0]));
}

// Every client registers its resource callback before it is attached, under id 0, so a resource
// message reaches the first client of the process: the reader joins first. A direct data unit
// reaches every other participant.
TEST(ClientScenarioWholeText, EveryRoadReachesTheReadersPanel)
{
    for (bool pki : {false, true}) {
        for (EDataRoute route : {EDataRoute::kDirect, EDataRoute::kResourceCallback}) {
            SCOPED_TRACE(std::to_string(pki) + (route == EDataRoute::kDirect ? " direct" : " resource"));
            CMeetingOptions options;
            options.bPki = pki;
            CClientHarness harness(options);
            CNoteClient& reader = harness.Join(kReaderId, NOTETAKER_SINGLE, NOTE_USER_READER);
            CNoteClient& writer = harness.Join(kWriterId, NOTETAKER_SINGLE, NOTE_USER_WRITER);
            harness.Type(writer, "published first");
            harness.Publish(writer);
            const long needSave = CountCalls(harness.SinkOf(reader), "NeedSave 1");
            const std::string text = "whole text\nGr\xC3\xBC\xC3\x9F" "e";
            harness.Meeting().SendDataUnit(writer.m_pArmService, 0, 0, text, route, RESOURCE_NOTE_TAKE, 0);
            harness.Settle();
            EXPECT_EQ(harness.PanelText(reader), text);
            EXPECT_GT(CountCalls(harness.SinkOf(reader), "NeedSave 1"), needSave);
            EXPECT_EQ(harness.PanelText(writer), "published first");
            harness.Type(writer, "published again");  // the next publish puts the note taker's text back
            harness.Publish(writer);
            EXPECT_EQ(harness.PanelText(reader), "published again");
        }
    }
}

TEST_F(ClientScenario, ANotepadTypeChangeClearsEveryonesTextAndTheCache)
{
    Writer(NOTETAKER_CLOSED_CAPTIONS);
    Reader(NOTETAKER_CLOSED_CAPTIONS);
    Reader(NOTETAKER_CLOSED_CAPTIONS);
    TypeLine(m_harness, *m_pWriter, "caption before the change");
    ASSERT_EQ(m_harness.PanelText(*m_vecReaders[0]), "caption before the change\n");
    std::vector<CNoteClient*> everyone = {m_pWriter, m_vecReaders[0], m_vecReaders[1]};
    for (CNoteClient* client : everyone) client->SetNotepadType(NOTETAKER_SINGLE);  // the writer first
    m_harness.Settle();
    for (CNoteClient* client : everyone) {
        EXPECT_EQ(m_harness.PanelText(*client), "") << client->m_nUserId;
        EXPECT_TRUE(client->m_SaveInfo.m_vecChangeInfoPdu.empty()) << client->m_nUserId;
    }
    everyone.push_back(&Reader(NOTETAKER_SINGLE));  // nobody who joins now sees the old captions
    EXPECT_EQ(m_harness.PanelText(*everyone.back()), "");
    Publish("notes now");
    for (CNoteClient* client : everyone) EXPECT_EQ(m_harness.PanelText(*client), "notes now") << client->m_nUserId;
}

}  // namespace
