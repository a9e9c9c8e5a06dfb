// Applying remote changes: when two change PDUs are the same, the save record's change list,
// cache-id stamping, and HandleChangeMsg's merge (captions append, other notepads replace),
// its notices, and hostile PDUs.
#include "ClientHarness.h"
#include "ClientWire.h"

#include "platform/NtGlobale.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::vector<std::string> ListTexts(CNoteClient& client)
{
    std::vector<std::string> texts;
    for (CNoteChangeInfoPDU& pdu : client.m_SaveInfo.m_vecChangeInfoPdu) texts.push_back(pdu.GetNoteMsg());
    return texts;
}

class ClientApply : public ::testing::Test {
protected:
    // A participant of its own whose shared text and panel hold text; nobody puts, so the
    // participants do not meet.
    CNoteClient& Join(NOTETAKERTYPE type, const std::string& text, unsigned userType = NOTE_USER_READER)
    {
        CNoteClient& client = m_harness.Join(m_nNextId++, type, userType);
        client.m_strOldMsg = text;
        client.m_strShowMsg = text;
        client.SetNoteTextData(text);
        m_harness.SinkOf(client).m_vecCalls.clear();
        return client;
    }

    CClientHarness m_harness;
    unsigned m_nNextId = 202;
};

// --- equality and the change list

TEST_F(ClientApply, ChangePdusAreEqualByTextOffsetAndRemovedCount)
{
    struct Case {
        CNoteChangeInfoPDU other;
        int equal;
    } cases[] = {
        {Change("text", "4", "2"), 1},
        {Change("text", "04", "2"), 1},  // the numbers, not their spelling
        {Change("texT", "4", "2"), 0},
        {Change("tex", "4", "2"), 0},
        {Change("text!", "4", "2"), 0},
        {Change("text", "5", "2"), 0},
        {Change("text", "4", "3"), 0},
        {Change("", "4", "2"), 0},
    };
    CNoteClient& client = Join(NOTETAKER_CLOSED_CAPTIONS, "");
    CNoteChangeInfoPDU base = Change("text", "4", "2", 9);
    base.SetUniqueId(1);
    for (Case& c : cases) {
        // Neither cache id, sender nor markers count.
        c.other.SetCacheId(10);
        c.other.SetUniqueId(2);
        c.other.AddNetInfo("#n#");
        EXPECT_EQ(client.CheckChangePduEqual(base, c.other), c.equal) << c.other.GetNoteMsg();
        EXPECT_EQ(client.CheckChangePduEqual(c.other, base), c.equal) << c.other.GetNoteMsg();
    }
}

TEST_F(ClientApply, ChangeListDropsEmptyInsertionsAndKeepsOneWholeTextForTheNoteTaker)
{
    struct Case {
        NOTETAKERTYPE type;
        std::vector<std::string> listed;
    } cases[] = {
        {NOTETAKER_CLOSED_CAPTIONS, {"a", "", "b"}},
        {NOTETAKER_ALL_PARTICIPANTS, {"a", "", "b"}},
        {NOTETAKER_SINGLE, {"b"}},
    };
    for (const Case& c : cases) {
        CNoteClient& client = Join(c.type, "");
        client.AddChangePduToSavePdu(Change("a"));
        client.AddChangePduToSavePdu(Change("", "3", "0"));  // inserts nothing: dropped
        client.AddChangePduToSavePdu(Change("", "0", "2"));  // a deletion: kept
        client.AddChangePduToSavePdu(Change("b"));
        EXPECT_EQ(ListTexts(client), c.listed) << c.type;
    }
}

TEST_F(ClientApply, CacheIdStampsTheNewestEqualEntryOrAddsTheChange)
{
    CNoteClient& client = Join(NOTETAKER_CLOSED_CAPTIONS, "");
    CNoteChangeInfoPDU first = Change("line");
    EXPECT_EQ(client.SetSavePduCacheID(first, 5), 1);
    EXPECT_EQ(first.GetCacheId_INT(), 5);
    CNoteChangeInfoPDU other = Change("other", "4");
    EXPECT_EQ(client.SetSavePduCacheID(other, 6), 1);
    client.AddChangePduToSavePdu(Change("line"));  // a second, unstamped copy

    CNoteChangeInfoPDU echo = Change("line");
    EXPECT_EQ(client.SetSavePduCacheID(echo, 7), 0);
    std::vector<CNoteChangeInfoPDU>& list = client.m_SaveInfo.m_vecChangeInfoPdu;
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(list[0].GetCacheId_INT(), 5);
    EXPECT_EQ(list[1].GetCacheId_INT(), 6);
    EXPECT_EQ(list[2].GetCacheId_INT(), 7);
    EXPECT_EQ(echo.GetCacheId_INT(), 0) << "a known change is not stamped itself";
}

// --- the merge

TEST_F(ClientApply, OwnEchoOnlyStampsItsCacheId)
{
    CNoteClient& writer = Join(NOTETAKER_CLOSED_CAPTIONS, "", NOTE_USER_WRITER);
    m_harness.Type(writer, "Hello");
    writer.SendChangeInfoPDU(0);
    writer.m_nLastCacheId = 42;
    writer.m_bNeedAutoSave = 0;
    CNoteChangeInfoPDU echo = Change("Hello");
    EXPECT_EQ(writer.HandleChangeMsg(echo, 1), 0);
    EXPECT_EQ(writer.m_strOldMsg, "Hello");
    EXPECT_EQ(m_harness.PanelText(writer), "Hello");
    ASSERT_EQ(writer.m_SaveInfo.m_vecChangeInfoPdu.size(), 1u);
    EXPECT_EQ(writer.m_SaveInfo.m_vecChangeInfoPdu[0].GetCacheId_INT(), 42);
    EXPECT_EQ(writer.m_nScrolltoEnd, 0);
    EXPECT_EQ(writer.m_bNeedAutoSave, 0u);
}

TEST_F(ClientApply, CaptionsAppendAndKeepRecordedTextsForTheNextAppliedChange)
{
    struct Step {
        const char* text;
        int apply;
        int result;
        const char* shared;
        const char* pending;
    };
    const std::vector<std::vector<Step>> runs = {
        {{" world", 1, 4, "Hello world", ""}},
        {{" one", 0, 0, "Hello", " one"}, {" two", 0, 0, "Hello", " one two"},
         {"\r\nthree", 1, 4, "Hello one two\r\nthree", ""}},
    };
    for (const std::vector<Step>& run : runs) {
        CNoteClient& reader = Join(NOTETAKER_CLOSED_CAPTIONS, "Hello");
        unsigned offset = 5;
        for (const Step& s : run) {
            CNoteChangeInfoPDU pdu = Change(s.text, std::to_string(offset++));
            EXPECT_EQ(reader.HandleChangeMsg(pdu, s.apply), s.result) << s.text;
            EXPECT_EQ(reader.m_strOldMsg, s.shared) << s.text;
            EXPECT_EQ(reader.m_strRecvMsg, s.pending) << s.text;
        }
        std::string shown = reader.m_strOldMsg;
        ConvertToMacText(shown, shown);
        EXPECT_EQ(m_harness.PanelText(reader), shown);
    }
}

TEST_F(ClientApply, OffsetsNeverMoveTheMergeCaptionsAppendNotesReplace)
{
    const char* values[] = {"0", "1", "3", "-1", "-2147483648", "2147483647", "99999999999999", "x", ""};
    struct Case {
        NOTETAKERTYPE type;
        const char* merged;
    } cases[] = {
        {NOTETAKER_CLOSED_CAPTIONS, "abcdef"},
        {NOTETAKER_ALL_PARTICIPANTS, "def"},
        {NOTETAKER_SINGLE, "def"},
    };
    for (const Case& c : cases) {
        for (const char* offset : values) {
            for (const char* removed : {"0", "2", offset}) {
                SCOPED_TRACE(std::to_string(c.type) + " " + offset + " " + removed);
                CNoteClient& client = Join(c.type, "abc");
                CNoteChangeInfoPDU pdu = Change("def", offset, removed);
                EXPECT_EQ(client.HandleChangeMsg(pdu, 1), 2);
                EXPECT_EQ(client.m_strOldMsg, c.merged);
                EXPECT_EQ(client.m_strShowMsg, c.merged);
                EXPECT_EQ(m_harness.PanelText(client), c.merged);
            }
        }
    }
}

TEST_F(ClientApply, CaptionTextOfOnlyAMarkerAppendsNothingButCountsAsAChange)
{
    struct Case {
        const char* text;
        std::vector<std::string> markers;
        const char* shared;
    } cases[] = {
        {"#n#", {"#n#"}, "Hello"},
        {"a#n#bcd#n#", {"#n#"}, "Helloabcd"},
        // The removal resumes three bytes after a removed marker, so one close behind stays.
        {"#n#x#n#", {"#n#"}, "Hellox#n#"},
        {"a#n#b#m#", {"#n#", "", "#m#"}, "Helloab#m#"},  // markers after an empty one stay
    };
    for (const Case& c : cases) {
        CNoteClient& reader = Join(NOTETAKER_CLOSED_CAPTIONS, "Hello");
        // Markers added after the text: the text keeps them as plain text to be removed.
        CNoteChangeInfoPDU pdu = Change(c.text, "5");
        for (const std::string& m : c.markers) pdu.AddNetInfo(m);
        EXPECT_EQ(reader.HandleChangeMsg(pdu, 1), 4) << c.text;
        EXPECT_EQ(reader.m_strOldMsg, c.shared) << c.text;
        EXPECT_EQ(reader.m_nScrolltoEnd, 5) << c.text;
        EXPECT_EQ(m_harness.SinkOf(reader).m_vecCalls.back(), "RemoteText 0") << c.text;
    }
}

TEST_F(ClientApply, AnAppliedChangeTellsHostAndPanelAnEmptyOneIsIgnored)
{
    const std::vector<std::string> told = {"NeedSave 1", "SaveEnabled 1", "RemoteChange", "RemoteText 0"};
    struct Case {
        const char* what;
        NOTETAKERTYPE type;
        unsigned userType;
        const char* text;
        const char* removed;
        int countdown;  // running before the change
        int result;
        const char* merged;
        std::vector<std::string> calls;
        int countdownAfter;
        bool publishCleared;  // the captioner's Publish button follows the auto-save flag
    } cases[] = {
        {"empty caption", NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_READER, "", "0", 0, 0, "abc", {}, 0, false},
        {"captions never remove", NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_READER, "", "3", 0, 0, "abc", {}, 0, false},
        {"empty note", NOTETAKER_SINGLE, NOTE_USER_READER, "", "0", 0, 0, "abc", {}, 0, false},
        // Nothing to scroll to; the text is read back from the panel.
        {"emptying note", NOTETAKER_SINGLE, NOTE_USER_READER, "", "3", 0, 2, "", {"RemoteChange"}, 0, false},
        {"captioner", NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_WRITER, "def", "3", 0, 2, "abcdef", told, 5, true},
        {"caption reader", NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_READER, "def", "3", 0, 2, "abcdef", told, 5, false},
        {"note reader", NOTETAKER_SINGLE, NOTE_USER_READER, "def", "3", 0, 2, "def", told, 5, false},
        {"a running countdown is not restarted", NOTETAKER_SINGLE, NOTE_USER_READER, "def", "3", 3, 2, "def", told,
         3, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
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
        EXPECT_EQ(client.m_strShowMsg, c.merged);
        EXPECT_EQ(m_harness.PanelText(client), c.merged);
        EXPECT_EQ(calls, c.calls);
        EXPECT_EQ(client.m_bFileNeedSave, c.calls.size() > 1 ? 1 : 0);
        EXPECT_EQ(client.m_bNeedAutoSave, c.result ? 1u : 0u);
        EXPECT_EQ(client.m_nScrolltoEnd, c.countdownAfter);
        EXPECT_EQ(ViewOf(client).IsPublishEnabled(), !c.publishCleared);
    }
}

// --- hostile PDUs

TEST_F(ClientApply, ParsedHostilePdusAreClampedNeverMisread)
{
    const char* pdus[] = {
        // positions far past the text, negative ones, absurd offsets
        "<notecom ver=\"1.0\" mtype=\"3\" offset=\"-99\" offsetlast=\"1e30\" cacheid=\"-1\">"
        "<seginfo endnewline=\"1\" posnotemsg=\"500,-3,2,\" special=\"0\"><![CDATA[ab]]></seginfo></notecom>",
        "<notecom ver=\"1.0\" mtype=\"3\"><seginfo posnotemsg=\"2147483647,\"/></notecom>",
        "<notecom ver=\"1.0\" mtype=\"3\" offset=\"2147483648\" offsetlast=\"-2147483649\"/>",
        "not xml at all",
        "",
    };
    for (NOTETAKERTYPE type : {NOTETAKER_CLOSED_CAPTIONS, NOTETAKER_SINGLE}) {
        for (const char* text : pdus) {
            CNoteClient& reader = Join(type, "base");
            CNoteChangeInfoPDU pdu;
            pdu.ParseXMLPDU(text);
            const std::string carried = pdu.GetNoteMsg();
            const int result = reader.HandleChangeMsg(pdu, 1);
            EXPECT_TRUE(result == 0 || result == 3) << text;
            if (result == 3) {
                EXPECT_EQ(reader.m_strOldMsg, type == NOTETAKER_CLOSED_CAPTIONS ? "base" + carried : carried);
            }
        }
    }
}

TEST_F(ClientApply, HugeTextsAreAppliedWhole)
{
    const std::string huge(1 << 20, 'h');
    CNoteClient& notes = Join(NOTETAKER_SINGLE, "abc");
    CNoteChangeInfoPDU replace = Change(huge, "2147483647", "-1");
    EXPECT_EQ(notes.HandleChangeMsg(replace, 1), 2);
    EXPECT_EQ(notes.m_strOldMsg, huge);
    EXPECT_EQ(m_harness.PanelText(notes).size(), huge.size());

    CNoteClient& captions = Join(NOTETAKER_CLOSED_CAPTIONS, "abc");
    CNoteChangeInfoPDU recorded = Change(huge, "1");
    CNoteChangeInfoPDU applied = Change(huge, "2");
    EXPECT_EQ(captions.HandleChangeMsg(recorded, 0), 0);
    EXPECT_EQ(captions.HandleChangeMsg(applied, 1), 2);
    EXPECT_EQ(captions.m_strOldMsg, "abc" + huge + huge);
}

}  // namespace
