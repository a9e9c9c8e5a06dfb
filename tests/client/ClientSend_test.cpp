// Local edit detection and sending: the edit finder, what a send puts into the change cache,
// when nothing is sent, the save-record copy, and the host's content notice.
#include "ClientWire.h"
#include "ScriptedArmService.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr unsigned kWriterId = 101;

// A writer of type, alone in a fresh meeting, whose puts are recorded.
class ClientSend : public ::testing::Test {
protected:
    CNoteClient& Writer(NOTETAKERTYPE type)
    {
        m_pService.reset();
        m_pHarness.reset();
        m_pHarness.reset(new CClientHarness);
        CNoteClient& client = m_pHarness->Join(kWriterId, type, NOTE_USER_WRITER);
        m_pService.reset(new CRecordedService(client));
        return client;
    }

    const std::vector<CScriptedArmService::SPut>& Puts() const { return m_pService->Puts(); }

    // The change PDU of put i.
    CNoteChangeInfoPDU PutPdu(size_t i)
    {
        EXPECT_LT(i, Puts().size());
        return i < Puts().size() ? UnpackChange(Puts()[i].strBytes) : CNoteChangeInfoPDU();
    }

    // CompareMsg on the shared text oldText, the compared text show and newText as given:
    // offset, removed count and what is left of newText.
    static std::string Compare(CNoteClient& client, const std::string& oldText, const std::string& show,
                               std::string newText)
    {
        client.m_strOldMsg = oldText;
        client.m_strShowMsg = show;
        int removed = -1;
        const int offset = client.CompareMsg(newText, removed);
        return std::to_string(offset) + " " + std::to_string(removed) + " '" + newText + "'";
    }

    std::unique_ptr<CClientHarness> m_pHarness;
    std::unique_ptr<CRecordedService> m_pService;  // goes before the clients
};

// --- the edit finder

TEST_F(ClientSend, CompareMsgFindsOneEditPrefixFirst)
{
    const std::string block(256, 'L');  // bytes compared at once
    struct Case {
        std::string oldText;  // the shared text, CR LF form
        std::string panel;    // what the panel shows (LF)
        bool pressEnter;      // newText gets the CR LF of a Return
        const char* found;    // offset, removed count, inserted text
    } cases[] = {
        {"abc", "abXc", false, "2 0 'X'"},
        {"aaa", "aa", false, "2 1 ''"},  // the prefix wins over the suffix
        {"", "hello", false, "0 0 'hello'"},
        {"hello", "", false, "0 5 ''"},
        {"abc", "abc", true, "3 0 '\r\n'"},
        {"hello world", "hello brave world", false, "6 0 'brave '"},
        {"abcdef", "abXYef", false, "2 2 'XY'"},
        {"abab", "ab", false, "2 2 ''"},
        {"aab", "ab", false, "1 1 ''"},  // prefix and suffix never overlap
        {"ab", "aab", false, "1 0 'a'"},
        {"ab", "abab", false, "2 0 'ab'"},
        {"one\r\ntwo", "one\nthree", false, "6 2 'hree'"},
        {"line\r\n", "line\nnext", true, "6 0 'next\r\n'"},
        {"Gr\xC3\xBC\xC3\x9F" "e", "Gr\xC3\xBC\xC3\x9F" "e!", false, "7 0 '!'"},  // bytes, not characters
        {"\xE6\x97\xA5", "\xE6\x9C\xAC", false, "1 2 '\x9C\xAC'"},  // a byte difference inside a character
        // Edits next to and beyond whole blocks.
        {block + "a" + block, block + "bc" + block, false, "256 1 'bc'"},
        {"A" + block, "B" + block, false, "0 1 'B'"},
        {block + block + block, block + block + block + "x", false, "768 0 'x'"},
    };
    CNoteClient& client = Writer(NOTETAKER_ALL_PARTICIPANTS);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.oldText.substr(0, 20) + " -> " + c.panel.substr(0, 20));
        m_pHarness->Type(client, c.panel);
        const std::string show = CrLfText(client);
        EXPECT_EQ(Compare(client, c.oldText, show, show + (c.pressEnter ? "\r\n" : "")), c.found);
    }
}

TEST_F(ClientSend, CompareMsgStaysInsideTextsThatDisagreeWithThePanel)
{
    struct Case {
        const char* oldText;
        const char* panel;    // the whole panel text (its length is the current length)
        const char* show;     // the text compared
        const char* newText;  // what the caller passes
        const char* found;
    } cases[] = {
        // A committed caption shorter than the whole panel text: no suffix is read past it.
        {"abcd", "abXd-more", "abXd", "abXd", "2 2 'Xd'"},
        {"abc", "abc and more", "abc", "abc\r\n", "3 0 '\r\n'"},
        // A show text longer than the panel text.
        {"abcd", "ab", "abcdefgh", "abcdefgh", "2 2 'cdefgh'"},
        // newText shorter than the prefix and suffix found: nothing is inserted.
        {"abcXdef", "abcYdef", "abcYdef", "", "3 1 ''"},
        {"abc", "abc", "abc", "a", "3 0 ''"},
        // An empty panel: everything was deleted, newText stays as given.
        {"hello", "", "hello", "kept", "0 5 'kept'"},
    };
    CNoteClient& client = Writer(NOTETAKER_ALL_PARTICIPANTS);
    for (const Case& c : cases) {
        m_pHarness->Type(client, c.panel);
        EXPECT_EQ(Compare(client, c.oldText, c.show, c.newText), c.found) << c.oldText << " / " << c.show;
    }
}

// --- what a send puts

TEST_F(ClientSend, ArgumentsFollowNotepadTypeAndRecordingStatus)
{
    struct Case {
        NOTETAKERTYPE type;
        unsigned long nbrStatus;
        unsigned flags, mode;
    } cases[] = {
        {NOTETAKER_SINGLE, 0, 0x1000090, 2},          {NOTETAKER_SINGLE, 3, 0x1000090, 2},
        {NOTETAKER_SINGLE, 1, 0x1000000, 2},          {NOTETAKER_SINGLE, 2, 0x1000000, 2},
        {NOTETAKER_CLOSED_CAPTIONS, 0, 0x1000000, 1}, {NOTETAKER_CLOSED_CAPTIONS, 3, 0x1000000, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.type) + " " + std::to_string(c.nbrStatus));
        CNoteClient& writer = Writer(c.type);
        writer.SetNBRStatus(c.nbrStatus);
        m_pHarness->Type(writer, "first");
        m_pHarness->Publish(writer);
        const unsigned firstId = writer.m_nLastCacheId;
        m_pHarness->Type(writer, "first second");
        m_pHarness->Publish(writer);
        ASSERT_EQ(Puts().size(), 2u);
        for (const CScriptedArmService::SPut& put : Puts()) {
            EXPECT_EQ(put.nAttachId, writer.m_nApeUserId);
            EXPECT_EQ(put.nCacheHandle, writer.m_nChangeCacheHandle);
            EXPECT_NE(put.nCacheHandle, 0u);
            EXPECT_EQ(put.nMode, c.mode);
            EXPECT_EQ(put.nFlags, c.flags);
            EXPECT_EQ(put.nPriority, 2u);
            EXPECT_EQ(put.nResult, 0);
        }
        // Notes build on the newest item; captions always append.
        EXPECT_NE(firstId, 0u);
        EXPECT_EQ(Puts()[1].nItemId, c.type == NOTETAKER_CLOSED_CAPTIONS ? 0u : firstId);
        EXPECT_EQ(m_pService->Frees(), 2) << "every packed item is freed";
    }
}

TEST_F(ClientSend, ThePduCarriesTheEditFromTheWriterTheNoteTakerSendsTheWholeText)
{
    struct Case {
        NOTETAKERTYPE type;
        std::vector<std::string> texts;  // typed and published one after the other
        std::vector<std::string> sent;   // offset, removed count, text of each put
    } cases[] = {
        {NOTETAKER_CLOSED_CAPTIONS, {"Hello", "Hello world"}, {"0 0 Hello", "5 0  world"}},
        // The single note taker's offsets stay as found.
        {NOTETAKER_SINGLE, {"hello", "hello\nworld", "world"}, {"0 0 hello", "5 0 hello\r\nworld", "0 7 world"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.type);
        CNoteClient& writer = Writer(c.type);
        for (const std::string& text : c.texts) {
            m_pHarness->Type(writer, text);
            m_pHarness->Publish(writer);
        }
        ASSERT_EQ(Puts().size(), c.sent.size());
        for (size_t i = 0; i < c.sent.size(); ++i) {
            CNoteChangeInfoPDU pdu = PutPdu(i);
            EXPECT_EQ(std::to_string(pdu.GetOffSet_INT(0)) + " " + std::to_string(pdu.GetOffSet_INT(1)) + " " +
                          pdu.GetNoteMsg(),
                      c.sent[i]);
            EXPECT_EQ(pdu.GetUniqueId_INT(), static_cast<int>(kWriterId));
            EXPECT_EQ(pdu.GetCacheId_INT(), 0);
        }
        EXPECT_EQ(writer.m_strOldMsg, CrLfText(writer));
    }
}

TEST_F(ClientSend, NothingIsSentForAnUnchangedText)
{
    CNoteClient& writer = Writer(NOTETAKER_SINGLE);
    m_pHarness->Publish(writer);  // both texts empty
    EXPECT_TRUE(Puts().empty());

    m_pHarness->Type(writer, "same");
    m_pHarness->Publish(writer);
    ASSERT_EQ(Puts().size(), 1u);
    writer.m_bNeedAutoSave = 0;
    m_pHarness->Publish(writer);
    EXPECT_EQ(Puts().size(), 1u);
    EXPECT_EQ(writer.m_strOldMsg, "same");
    EXPECT_EQ(writer.m_bNeedAutoSave, 0u);
}

TEST_F(ClientSend, PressEnterSendsALineEndUnlessTheCaptionIsFull)
{
    struct Case {
        int maxLength;
        size_t puts;
        const char* oldAfter;
    } cases[] = {{10, 1, "abc\r\n"}, {3, 0, "abc"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.maxLength);
        CNoteClient& writer = Writer(NOTETAKER_CLOSED_CAPTIONS);
        SetPanelMaxLength(writer, c.maxLength);
        writer.SetNoteTextData("abc");  // shown and committed, as an applied caption is
        writer.m_strOldMsg = "abc";
        m_pHarness->Publish(writer, true);
        ASSERT_EQ(Puts().size(), c.puts);
        EXPECT_EQ(writer.m_strOldMsg, c.oldAfter);
        if (c.puts) {
            CNoteChangeInfoPDU pdu = PutPdu(0);
            EXPECT_EQ(pdu.GetOffSet_INT(0), 3);
            EXPECT_EQ(pdu.GetOffSet_INT(1), 0);
            EXPECT_EQ(pdu.GetNoteMsg(), "\r\n");
        }
    }
}

// --- the save record and the client's own state

TEST_F(ClientSend, SendMarksAutoSaveAndFreesNetInfosAndTheHandle)
{
    CNoteClient& writer = Writer(NOTETAKER_SINGLE);
    for (const char* info : {"#a#", "", "#b#"}) {
        char* copy = new char[strlen(info) + 1];
        memcpy(copy, info, strlen(info) + 1);
        writer.m_aNetInfo.push_back(copy);
    }
    writer.m_bNeedAutoSave = 0;
    m_pHarness->Type(writer, "x#a#y#b#");
    writer.SendChangeInfoPDU(0);
    EXPECT_EQ(writer.m_bNeedAutoSave, 1u);
    EXPECT_TRUE(writer.m_aNetInfo.empty());
    EXPECT_EQ(m_pService->Frees(), 1);
    ASSERT_EQ(Puts().size(), 1u);
    // Only the markers before the first empty one cut the text.
    const CNoteChangeInfoPDU sent = PutPdu(0);
    std::vector<std::string> segments;
    for (const CNoteSegInfo& seg : sent.GetSegments())
        segments.push_back((seg.GetSpecial() ? "*" : "") + seg.GetSegInfo());
    EXPECT_EQ(segments, (std::vector<std::string>{"x", "*#a#", "y#b#"}));
}

TEST_F(ClientSend, SetNoteTextDataShowsMacLineEndsAndMarksContent)
{
    CNoteClient& client = Writer(NOTETAKER_ALL_PARTICIPANTS);
    for (const char* text : {"", "a\r\nb\r\n"}) {
        client.m_bHasContent = 0;
        client.m_bTextChanged = 0;
        client.SetNoteTextData(text);
        EXPECT_EQ(m_pHarness->PanelText(client), *text ? "a\nb\n" : "");
        EXPECT_EQ(client.m_bHasContent, *text ? 1u : 0u);
        EXPECT_EQ(client.m_bTextChanged, 1);
    }
}

TEST_F(ClientSend, ChangeMessageTellsTheHostOnlyWhenHasContentChanges)
{
    CNoteClient& client = Writer(NOTETAKER_ALL_PARTICIPANTS);
    std::vector<std::string>& calls = m_pHarness->SinkOf(client).m_vecCalls;
    m_pHarness->Type(client, "");
    client.ChangeMessage();
    calls.clear();
    struct Step {
        const char* text;
        unsigned char result;
        std::vector<std::string> calls;
    } steps[] = {
        {"x", 1, {"HasContent 1"}},
        {"xy", 1, {}},
        {"", 0, {"HasContent 0"}},
        {"", 0, {}},
    };
    for (const Step& s : steps) {
        m_pHarness->Type(client, s.text);
        EXPECT_EQ(client.ChangeMessage(), s.result) << s.text;
        EXPECT_EQ(calls, s.calls) << s.text;
        calls.clear();
    }
}

}  // namespace
