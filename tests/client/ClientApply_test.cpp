// Applying remote changes: when two change PDUs are the same, the save record's change list and
// its index, cache-id stamping, and HandleChangeMsg's merge (captions append, other notepads
// replace), its notices, and hostile PDUs.
#include "ClientHarness.h"
#include "ClientWire.h"

#include "platform/NtGlobale.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

namespace {

std::vector<std::string> ListTexts(CNoteClient& client)
{
    std::vector<std::string> texts;
    for (CNoteChangeInfoPDU& pdu : client.m_SaveInfo.m_vecChangeInfoPdu)
        texts.push_back(pdu.GetNoteMsg() + "/" + std::to_string(pdu.GetCacheId_INT()));
    return texts;
}

class ClientApply : public ::testing::Test {
protected:
    // A participant of its own whose shared text and panel hold text; nobody puts.
    CNoteClient& Join(NOTETAKERTYPE type, const std::string& text, unsigned userType = NOTE_USER_READER)
    {
        CNoteClient& client = m_harness.Join(m_nNextId++, type, userType);
        client.m_strOldMsg = client.m_strShowMsg = text;
        client.SetNoteTextData(text);
        m_harness.SinkOf(client).m_vecCalls.clear();
        return client;
    }
    CClientHarness m_harness;
    unsigned m_nNextId = 202;
};

TEST_F(ClientApply, ChangePdusAreEqualByTextOffsetAndRemovedCount)
{
    const struct { CNoteChangeInfoPDU other; int equal;
    } cases[] = {{Change("text", "04", "2"), 1}, {Change("texT", "4", "2"), 0}, {Change("tex", "4", "2"), 0},
                 {Change("text", "5", "2"), 0},  {Change("text", "4", "3"), 0}};
    CNoteClient& client = Join(NOTETAKER_CLOSED_CAPTIONS, "");
    CNoteChangeInfoPDU base = Change("text", "4", "2", 9);
    for (const auto& c : cases) {
        CNoteChangeInfoPDU other = c.other;
        other.SetCacheId(10);  // neither cache id, sender nor markers count
        other.SetUniqueId(2);
        other.AddNetInfo("#n#");
        EXPECT_EQ(client.CheckChangePduEqual(base, other), c.equal) << other.GetNoteMsg();
        EXPECT_EQ(client.CheckChangePduEqual(other, base), c.equal) << other.GetNoteMsg();
    }
}

TEST_F(ClientApply, TheChangeListDropsEmptyInsertionsAndTheCacheIdStampsTheNewestEqualEntry)
{
    for (NOTETAKERTYPE type : {NOTETAKER_CLOSED_CAPTIONS, NOTETAKER_SINGLE}) {
        CNoteClient& client = Join(type, "");
        client.AddChangePduToSavePdu(Change("a"));
        client.AddChangePduToSavePdu(Change("", "3", "0"));  // inserts nothing: dropped
        client.AddChangePduToSavePdu(Change("", "0", "2"));  // a deletion: kept
        client.AddChangePduToSavePdu(Change("b"));
        // The single note taker keeps one whole text.
        EXPECT_EQ(ListTexts(client), type == NOTETAKER_SINGLE ? (std::vector<std::string>{"b/0"})
                                                              : (std::vector<std::string>{"a/0", "/0", "b/0"}));
    }
    CNoteClient& client = Join(NOTETAKER_CLOSED_CAPTIONS, "");
    CNoteChangeInfoPDU first = Change("line"), other = Change("other", "4");
    EXPECT_EQ(client.SetSavePduCacheID(first, 5), 1);
    EXPECT_EQ(first.GetCacheId_INT(), 5);
    EXPECT_EQ(client.SetSavePduCacheID(other, 6), 1);
    client.AddChangePduToSavePdu(Change("line"));  // a second, unstamped copy
    CNoteChangeInfoPDU echo = Change("line");
    EXPECT_EQ(client.SetSavePduCacheID(echo, 7), 0);
    EXPECT_EQ(ListTexts(client), (std::vector<std::string>{"line/5", "other/6", "line/7"}));
    CNoteChangeInfoPDU again = Change("line");
    client.m_SaveInfo.m_vecChangeInfoPdu.resize(1);
    EXPECT_EQ(client.SetSavePduCacheID(again, 8), 0);  // the first entry is found too
    EXPECT_EQ(ListTexts(client), (std::vector<std::string>{"line/8"}));
}

TEST_F(ClientApply, CaptionsAppendAndKeepRecordedTextsForTheNextAppliedChange)
{
    CNoteClient& reader = Join(NOTETAKER_CLOSED_CAPTIONS, "Hello");
    const struct { const char* text; int apply, result; const char *shared, *pending;
    } steps[] = {{" one", 0, 0, "Hello", " one"}, {" two", 0, 0, "Hello", " one two"},
                 {"\r\nthree", 1, 4, "Hello one two\r\nthree", ""}};
    unsigned offset = 5;
    for (const auto& s : steps) {
        CNoteChangeInfoPDU pdu = Change(s.text, std::to_string(offset++));
        EXPECT_EQ(reader.HandleChangeMsg(pdu, s.apply), s.result) << s.text;
        EXPECT_EQ(reader.m_strOldMsg, s.shared) << s.text;
        EXPECT_EQ(reader.m_strRecvMsg, s.pending) << s.text;
    }
    EXPECT_EQ(m_harness.PanelText(reader), "Hello one two\nthree");
}

TEST_F(ClientApply, AnAppliedChangeTellsHostAndPanelAnEmptyOneIsIgnored)
{
    const std::vector<std::string> told = {"NeedSave 1", "SaveEnabled 1", "RemoteChange", "RemoteText 0"};
    const struct { NOTETAKERTYPE type; unsigned userType; const char *text, *removed; int countdown, result;
        // publishCleared: the captioner's Publish button follows the auto-save flag.
        const char* merged; std::vector<std::string> calls; int countdownAfter; bool publishCleared;
    } cases[] = {
        {NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_READER, "", "3", 0, 0, "abc", {}, 0, false},
        {NOTETAKER_SINGLE, NOTE_USER_READER, "", "0", 0, 0, "abc", {}, 0, false},
        {NOTETAKER_SINGLE, NOTE_USER_READER, "", "3", 0, 2, "", {"RemoteChange"}, 0, false},
        {NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_WRITER, "def", "3", 0, 2, "abcdef", told, 5, true},
        {NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_READER, "def", "3", 0, 2, "abcdef", told, 5, false},
        {NOTETAKER_SINGLE, NOTE_USER_WRITER, "def", "3", 3, 2, "def", told, 3, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.type) + "/" + std::to_string(c.userType) + " '" + c.text + "'");
        CNoteClient& client = Join(c.type, "abc", c.userType);
        client.SetFileNeedSave(false);
        ViewOf(client).SetPublishEnabled(true);
        client.m_bNeedAutoSave = 0;
        client.m_nScrolltoEnd = c.countdown;
        std::vector<std::string>& calls = m_harness.SinkOf(client).m_vecCalls;
        calls.clear();
        CNoteChangeInfoPDU pdu = Change(c.text, "0", c.removed);
        EXPECT_EQ(client.HandleChangeMsg(pdu, 1), c.result);
        EXPECT_EQ(client.m_strOldMsg, c.merged);
        EXPECT_EQ(m_harness.PanelText(client), c.merged);
        EXPECT_EQ(calls, c.calls);
        EXPECT_EQ(client.m_bNeedAutoSave, c.result ? 1u : 0u);
        EXPECT_EQ(client.m_nScrolltoEnd, c.countdownAfter);
        EXPECT_EQ(ViewOf(client).IsPublishEnabled(), !c.publishCleared);
    }
}

// --- the index of the change list: a lookup finds what a walk from the newest entry finds,
// whatever happens to the list in between.

bool SameChange(CNoteChangeInfoPDU& a, CNoteChangeInfoPDU& b)
{
    for (int which : {0, 1})
        if (atoi(a.GetOffSet(which).c_str()) != atoi(b.GetOffSet(which).c_str())) return false;
    return a.GetNoteMsg() == b.GetNoteMsg();
}

// Few values, so that equal changes are common: spellings of one number, texts equal only once
// recovered ("\n\n" reads as "\r\n") or once their markers are left out.
CNoteChangeInfoPDU RandomChange(std::mt19937& rng)
{
    static const char* const kOffsets[] = {"0", "", "5", "05", "5x", "7"};
    static const char* const kTexts[] = {"", "a", "b", "a\r\nb", "a\n\nb", "#m#a", "a]]>b"};
    CNoteChangeInfoPDU pdu;
    if (rng() % 3 == 0) pdu.AddNetInfo("#m#");
    pdu.SetNoteMsg(kTexts[rng() % 7]);
    pdu.SetOffSet(kOffsets[rng() % 6], 0);
    pdu.SetOffSet(kOffsets[rng() % 3], 1);
    return pdu;
}

TEST(ClientSaveList, LookupsFindTheEntryAWalkFromTheNewestFinds)
{
    std::mt19937 rng(20240611);
    CNoteClient client;
    std::vector<CNoteChangeInfoPDU>& list = client.m_SaveInfo.m_vecChangeInfoPdu;
    std::vector<CNoteChangeInfoPDU> parked;
    client.m_nNotePadType = NOTETAKER_CLOSED_CAPTIONS;
    for (int step = 0, id = 1; step < 6000; ++step, ++id) {
        const size_t at = list.empty() ? 0 : rng() % list.size();
        switch (list.empty() ? 0 : rng() % 32) {  // mostly lookups, so that the list grows
        case 1: list.push_back(RandomChange(rng)); break;
        case 2: list[at].SetNoteMsg(RandomChange(rng).GetNoteMsg()); break;
        case 3: list[at].SetOffSet(RandomChange(rng).GetOffSet(0), static_cast<int>(rng() % 2)); break;
        case 4: list[at] = RandomChange(rng); break;
        case 5: std::swap(list[at], list.back()); break;
        case 10: {
            CNoteChangeInfoPDU other = RandomChange(rng);
            other.GenerateXMLPDU();
            list[at].ParseXMLPDU(other.PrintCompact());
            break;
        }
        case 6: list.erase(list.begin() + static_cast<long>(at)); break;
        case 7: list.swap(parked); break;  // another list, perhaps looked up before, comes back
        case 8:
            if (rng() % 8 == 0) list = std::vector<CNoteChangeInfoPDU>(rng() % 4, RandomChange(rng));
            break;
        case 9:
            if (rng() % 8 == 0)
                client.m_nNotePadType =
                    client.m_nNotePadType == NOTETAKER_SINGLE ? NOTETAKER_CLOSED_CAPTIONS : NOTETAKER_SINGLE;
            break;
        default: {
            CNoteChangeInfoPDU pdu = RandomChange(rng);
            long expected = -1;
            for (size_t i = list.size(); i-- > 0 && expected < 0;)
                if (SameChange(list[i], pdu)) expected = static_cast<long>(i);
            const size_t before = list.size();
            ASSERT_EQ(client.SetSavePduCacheID(pdu, static_cast<unsigned>(id)), expected < 0 ? 1 : 0) << step;
            if (expected >= 0) {
                ASSERT_EQ(list.size(), before);
                for (size_t i = 0; i < list.size(); ++i)
                    ASSERT_EQ(list[i].GetCacheId_INT() == id, static_cast<long>(i) == expected) << step;
            } else if (atoi(pdu.GetOffSet(1).c_str()) != 0 || !pdu.GetNoteMsg().empty()) {
                ASSERT_EQ(list.size(), client.m_nNotePadType == NOTETAKER_SINGLE ? 1u : before + 1) << step;
                ASSERT_EQ(list.back().GetCacheId_INT(), id);
            }
        }
        }
    }
}

}  // namespace
