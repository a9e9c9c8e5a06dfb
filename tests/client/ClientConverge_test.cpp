// Convergence on the in-process conference: a writer and two readers, in the single-note-taker
// and the closed-captions notepads, end with the same text after every publish, and a late
// joiner rebuilds it from the cache. Texts include "]]>", "abc", line ends, non-ASCII UTF-8
// and empty publishes.
#include "ClientHarness.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr unsigned kWriterId = 11;
constexpr unsigned kFirstReaderId = 21;

// What the readers see of a writer's text: change segments turn every "]]>" into "]] >" for
// good, so the writer alone keeps the typed form.
std::string AsSent(std::string text)
{
    for (size_t p = text.find("]]>"); p != std::string::npos; p = text.find("]]>", p + 4))
        text.replace(p, 3, "]] >");
    return text;
}

// The change list of a save record: cache id and text of each change.
std::vector<std::pair<int, std::string>> ChangeList(CNoteClient& client)
{
    std::vector<std::pair<int, std::string>> list;
    for (CNoteChangeInfoPDU& pdu : client.m_SaveInfo.m_vecChangeInfoPdu)
        list.emplace_back(pdu.GetCacheId_INT(), pdu.GetNoteMsg());
    return list;
}

class ClientConverge : public ::testing::Test {
protected:
    void Start(NOTETAKERTYPE type)
    {
        m_pWriter = &m_harness.Join(kWriterId, type, NOTE_USER_WRITER);
        for (unsigned i = 0; i < 2; ++i) AddReader(type);
    }

    CNoteClient& AddReader(NOTETAKERTYPE type)
    {
        const unsigned id = kFirstReaderId + static_cast<unsigned>(m_vecReaders.size());
        m_vecReaders.push_back(&m_harness.Join(id, type, NOTE_USER_READER));
        return *m_vecReaders.back();
    }

    // Every reader shows and shares what the writer shows and shares, as sent.
    void ExpectConverged(const std::string& step)
    {
        CNoteClient& writer = *m_pWriter;
        const std::string shown = m_harness.PanelText(writer);
        EXPECT_EQ(writer.m_strOldMsg, CrLfText(writer)) << step;
        for (CNoteClient* reader : m_vecReaders) {
            EXPECT_EQ(m_harness.PanelText(*reader), AsSent(shown)) << step << " reader " << reader->m_nUserId;
            EXPECT_EQ(reader->m_strOldMsg, AsSent(writer.m_strOldMsg)) << step << " reader " << reader->m_nUserId;
            EXPECT_TRUE(reader->m_strRecvMsg.empty()) << step;
        }
    }

    CClientHarness m_harness;
    CNoteClient* m_pWriter = nullptr;
    std::vector<CNoteClient*> m_vecReaders;
};

// The texts a writer publishes one after the other: every shape of edit (insert, append,
// replace inside, delete, empty the note, unchanged).
const char* const kNoteTexts[] = {
    "hello",
    "hello world",
    "x ]]> y",
    "abc and abc]]>abc",
    "line1\nline2\n\nline4\n",
    "Gr\xC3\xBC\xC3\x9F" "e \xE2\x80\x93 \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x8E\x89",
    "",
    "after the empty one",
    "after the empty one",  // unchanged: nothing is sent
    "<notecom>&amp;</notecom>",
};

TEST_F(ClientConverge, NoteTakerPublishesAndReadersShowTheSameText)
{
    Start(NOTETAKER_SINGLE);
    for (const char* text : kNoteTexts) {
        m_harness.Type(*m_pWriter, text);
        m_harness.Publish(*m_pWriter);
        EXPECT_EQ(m_harness.PanelText(*m_pWriter), text);
        ExpectConverged(text);
    }
    // The note taker's list holds only its latest complete text, stamped by the echo.
    for (CNoteClient* client : {m_pWriter, m_vecReaders[0], m_vecReaders[1]}) {
        auto list = ChangeList(*client);
        ASSERT_EQ(list.size(), 1u);
        EXPECT_NE(list[0].first, 0);
        EXPECT_EQ(list[0].second, "<notecom>&amp;</notecom>");
    }
}

TEST_F(ClientConverge, NoteTakerLateJoinerGetsTheLatestText)
{
    Start(NOTETAKER_SINGLE);
    for (const char* text : {"first", "first\nsecond", "x ]]> abc \xC3\xA9"}) {
        m_harness.Type(*m_pWriter, text);
        m_harness.Publish(*m_pWriter);
    }
    AddReader(NOTETAKER_SINGLE);
    ExpectConverged("late joiner");
    m_harness.Type(*m_pWriter, "then more");
    m_harness.Publish(*m_pWriter);
    ExpectConverged("after the late joiner");
}

// The lines a captioner types, each ended with Return.
const char* const kCaptionLines[] = {
    "Hello",
    "x ]]> y",
    "abc",
    "Gr\xC3\xBC\xC3\x9F" "e \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x8E\x89",
    "",  // Return on an empty line sends its line end alone
    "abc]]>abc",
    "last line",
};

TEST_F(ClientConverge, CaptionerTypesLinesAndReadersAccumulateThem)
{
    Start(NOTETAKER_CLOSED_CAPTIONS);
    std::string expected;
    for (const char* line : kCaptionLines) {
        TypeLine(m_harness, *m_pWriter, line);
        expected += std::string(line) + "\n";
        EXPECT_EQ(m_harness.PanelText(*m_pWriter), expected);
        ExpectConverged(line);
    }
    // Text published with the button, without a line end.
    m_harness.Type(*m_pWriter, expected + "no line end");
    m_harness.Publish(*m_pWriter);
    ExpectConverged("button");
    // Every participant's save record lists the same changes under the same cache ids.
    const auto writerList = ChangeList(*m_pWriter);
    ASSERT_EQ(writerList.size(), std::size(kCaptionLines) + 1);
    for (const auto& entry : writerList) EXPECT_NE(entry.first, 0);
    for (CNoteClient* reader : m_vecReaders) EXPECT_EQ(ChangeList(*reader), writerList);
}

TEST_F(ClientConverge, CaptionLateJoinerRebuildsTheTextFromTheHistoryInOneApplication)
{
    Start(NOTETAKER_CLOSED_CAPTIONS);
    for (const char* line : kCaptionLines) TypeLine(m_harness, *m_pWriter, line);
    CNoteClient& late = AddReader(NOTETAKER_CLOSED_CAPTIONS);
    ExpectConverged("late joiner");
    EXPECT_EQ(ChangeList(late), ChangeList(*m_vecReaders[0]));
    // The history is applied at once: one notice, one countdown, one scroll to the end.
    const std::vector<std::string>& calls = m_harness.SinkOf(late).m_vecCalls;
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "RemoteChange"), 1);
    const int scrolls = ViewOf(late).ScrollCount();
    m_harness.Ticks(20);
    EXPECT_EQ(ViewOf(late).ScrollCount(), scrolls + 1);

    TypeLine(m_harness, *m_pWriter, "one more");
    ExpectConverged("after the late joiner");
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "RemoteChange"), 2);
}

TEST_F(ClientConverge, RemoteChangeOverwritesTextTypedButNotSent)
{
    // Notes: a second writer's typing is lost when the note taker's change arrives.
    Start(NOTETAKER_SINGLE);
    CNoteClient& reader = *m_vecReaders[0];
    m_harness.Type(reader, "typed but not sent");
    m_harness.Type(*m_pWriter, "published");
    m_harness.Publish(*m_pWriter);
    EXPECT_EQ(m_harness.PanelText(reader), "published");
    ExpectConverged("overwrite");
}

}  // namespace
