// Local edit detection and sending: the edit finder, what a send puts into the change cache,
// when nothing is sent, the save-record copy, and the two small panel and host notices.
#include "ClientHarness.h"
#include "ClientTraceCapture.h"
#include "ScriptedArmService.h"

#include "transport/NoteCmprs.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr unsigned kWriterId = 101;

std::uint32_t Le32(const std::string& b, size_t at)
{
    return std::uint32_t(std::uint8_t(b[at])) | std::uint32_t(std::uint8_t(b[at + 1])) << 8 |
           std::uint32_t(std::uint8_t(b[at + 2])) << 16 | std::uint32_t(std::uint8_t(b[at + 3])) << 24;
}

// The change PDU in a packed cache item: u32 unpacked length (0: stored), u32 body length, body.
CNoteChangeInfoPDU Unpack(const std::string& item)
{
    CNoteChangeInfoPDU pdu;
    if (item.size() < 8 || Le32(item, 4) > item.size() - 8) return pdu;
    const std::uint32_t lenOut = Le32(item, 0), realLen = Le32(item, 4);
    std::string text = item.substr(8, realLen);
    if (lenOut != 0) {
        text.assign(lenOut, '\0');
        unsigned long textLen = lenOut;
        std::string body = item.substr(8, realLen);
        CCompressEngine engine;
        EXPECT_EQ(engine.Decompress(reinterpret_cast<unsigned char*>(&body[0]),
                                    reinterpret_cast<unsigned char*>(&text[0]), realLen, &textLen), 0);
        text.resize(textLen);
    }
    EXPECT_TRUE(pdu.ParseXMLPDU(text)) << text;
    return pdu;
}

const char kSendBegin[] = "CNoteClient::SendChangeInfoPDU(BOOL bPressEnter)";
const char kSendEnd[] = "CNoteClient::SendChangeInfoPDU(BOOL bPressEnter) end";

class ClientSend : public ::testing::Test {
protected:
    CNoteClient& Writer(NOTETAKERTYPE type)
    {
        CNoteClient& client = m_harness.Join(kWriterId, type, NOTE_USER_WRITER);
        m_pService.reset(new CRecordedService(client));
        return client;
    }

    const std::vector<CScriptedArmService::SPut>& Puts() const { return m_pService->Puts(); }

    // The change PDU of put i.
    CNoteChangeInfoPDU PutPdu(size_t i)
    {
        EXPECT_LT(i, Puts().size());
        return i < Puts().size() ? Unpack(Puts()[i].strBytes) : CNoteChangeInfoPDU();
    }

    CClientHarness m_harness;
    std::unique_ptr<CRecordedService> m_pService;  // goes before the clients
};

// --- the edit finder

TEST_F(ClientSend, CompareMsgFindsOneEditPrefixFirst)
{
    struct Case {
        const char* oldText;   // the shared text, CR LF form
        const char* panel;     // what the panel shows (LF)
        bool pressEnter;       // newText gets the CR LF of a Return
        int offset, removed;
        const char* inserted;
    } cases[] = {
        {"abc", "abXc", false, 2, 0, "X"},
        {"aaa", "aa", false, 2, 1, ""},  // the prefix wins over the suffix
        {"", "hello", false, 0, 0, "hello"},
        {"hello", "", false, 0, 5, ""},
        {"abc", "abc", true, 3, 0, "\r\n"},
        {"hello world", "hello brave world", false, 6, 0, "brave "},
        {"abcdef", "abXYef", false, 2, 2, "XY"},
        {"abab", "ab", false, 2, 2, ""},
        {"aab", "ab", false, 1, 1, ""},  // prefix and suffix never overlap
        {"ab", "aab", false, 1, 0, "a"},
        {"ab", "abab", false, 2, 0, "ab"},
        {"one\r\ntwo", "one\nthree", false, 6, 2, "hree"},
        {"line\r\n", "line\nnext", true, 6, 0, "next\r\n"},
        {"Gr\xC3\xBC\xC3\x9F" "e", "Gr\xC3\xBC\xC3\x9F" "e!", false, 7, 0, "!"},  // bytes, not characters
        {"\xE6\x97\xA5", "\xE6\x9C\xAC", false, 1, 2, "\x9C\xAC"},  // a byte difference inside a character
    };
    CNoteClient& client = Writer(NOTETAKER_ALL_PARTICIPANTS);
    for (const Case& c : cases) {
        client.m_strOldMsg = c.oldText;
        m_harness.Type(client, c.panel);
        client.m_strShowMsg = CrLfText(client);
        std::string newText = client.m_strShowMsg + (c.pressEnter ? "\r\n" : "");
        int removed = -1;
        EXPECT_EQ(client.CompareMsg(newText, removed), c.offset) << c.oldText << " -> " << c.panel;
        EXPECT_EQ(removed, c.removed) << c.oldText << " -> " << c.panel;
        EXPECT_EQ(newText, c.inserted) << c.oldText << " -> " << c.panel;
    }
}

TEST_F(ClientSend, CompareMsgStaysInsideTextsThatDisagreeWithThePanel)
{
    struct Case {
        const char* oldText;
        const char* panel;     // the whole panel text (its length is the current length)
        const char* show;      // the text compared
        const char* newText;   // what the caller passes
        int offset, removed;
        const char* inserted;
    } cases[] = {
        // A committed caption shorter than the whole panel text: no suffix is read past it.
        {"abcd", "abXd-more", "abXd", "abXd", 2, 2, "Xd"},
        {"abc", "abc and more", "abc", "abc\r\n", 3, 0, "\r\n"},
        // A show text longer than the panel text.
        {"abcd", "ab", "abcdefgh", "abcdefgh", 2, 2, "cdefgh"},
        // newText shorter than the prefix and suffix found: nothing is inserted.
        {"abcXdef", "abcYdef", "abcYdef", "", 3, 1, ""},
        {"abc", "abc", "abc", "a", 3, 0, ""},
        // An empty panel: everything was deleted, newText stays as given.
        {"hello", "", "hello", "kept", 0, 5, "kept"},
    };
    CNoteClient& client = Writer(NOTETAKER_ALL_PARTICIPANTS);
    for (const Case& c : cases) {
        client.m_strOldMsg = c.oldText;
        m_harness.Type(client, c.panel);
        client.m_strShowMsg = c.show;
        std::string newText = c.newText;
        int removed = -1;
        EXPECT_EQ(client.CompareMsg(newText, removed), c.offset) << c.oldText << " / " << c.show;
        EXPECT_EQ(removed, c.removed) << c.oldText << " / " << c.show;
        EXPECT_EQ(newText, c.inserted) << c.oldText << " / " << c.show;
    }
}

// --- what a send puts

TEST(ClientSendPut, ArgumentsFollowNotepadTypeAndRecordingStatus)
{
    struct Case {
        NOTETAKERTYPE type;
        unsigned long nbrStatus;
        unsigned flags, mode;
    } cases[] = {
        {NOTETAKER_SINGLE, 0, 0x1000090, 2},
        {NOTETAKER_SINGLE, 3, 0x1000090, 2},
        {NOTETAKER_SINGLE, 1, 0x1000000, 2},
        {NOTETAKER_SINGLE, 2, 0x1000000, 2},
        {NOTETAKER_CLOSED_CAPTIONS, 0, 0x1000000, 1},
        {NOTETAKER_CLOSED_CAPTIONS, 3, 0x1000000, 1},
        {NOTETAKER_CLOSED_CAPTIONS, 1, 0x1000000, 1},
    };
    for (const Case& c : cases) {
        CClientHarness harness;
        CNoteClient& writer = harness.Join(kWriterId, c.type, NOTE_USER_WRITER);
        CRecordedService service(writer);
        writer.SetNBRStatus(c.nbrStatus);
        harness.Type(writer, "first");
        harness.Publish(writer);
        const unsigned firstId = writer.m_nLastCacheId;
        harness.Type(writer, "first second");
        harness.Publish(writer);
        ASSERT_EQ(service.Puts().size(), 2u) << c.type << " " << c.nbrStatus;
        for (const CScriptedArmService::SPut& put : service.Puts()) {
            EXPECT_EQ(put.nAttachId, writer.m_nApeUserId);
            EXPECT_EQ(put.nCacheHandle, writer.m_nChangeCacheHandle);
            EXPECT_NE(put.nCacheHandle, 0u);
            EXPECT_EQ(put.nMode, c.mode) << c.type;
            EXPECT_EQ(put.nFlags, c.flags) << c.type << " " << c.nbrStatus;
            EXPECT_EQ(put.nPriority, 2u);
            EXPECT_EQ(put.nResult, 0);
        }
        // Notes build on the newest item; captions always append.
        EXPECT_NE(firstId, 0u);
        EXPECT_EQ(service.Puts()[1].nItemId, c.type == NOTETAKER_CLOSED_CAPTIONS ? 0u : firstId);
        EXPECT_EQ(service.Frees(), 2) << "every packed item is freed";
    }
}

TEST_F(ClientSend, CaptionPduCarriesTheEditAndTheSender)
{
    CNoteClient& writer = Writer(NOTETAKER_CLOSED_CAPTIONS);
    m_harness.Type(writer, "Hello");
    m_harness.Publish(writer);
    m_harness.Type(writer, "Hello world");
    m_harness.Publish(writer);
    ASSERT_EQ(Puts().size(), 2u);
    struct Expected {
        int offset, removed;
        const char* text;
    } expected[] = {{0, 0, "Hello"}, {5, 0, " world"}};
    for (size_t i = 0; i < 2; ++i) {
        CNoteChangeInfoPDU pdu = PutPdu(i);
        EXPECT_EQ(pdu.GetOffSet_INT(0), expected[i].offset);
        EXPECT_EQ(pdu.GetOffSet_INT(1), expected[i].removed);
        EXPECT_EQ(pdu.GetNoteMsg(), expected[i].text);
        EXPECT_EQ(pdu.GetUniqueId_INT(), static_cast<int>(kWriterId));
        EXPECT_EQ(pdu.GetCacheId_INT(), 0);
    }
    EXPECT_EQ(writer.m_strOldMsg, "Hello world");
}

TEST_F(ClientSend, SingleNoteTakerSendsTheWholeTextWithTheFoundOffsets)
{
    CNoteClient& writer = Writer(NOTETAKER_SINGLE);
    m_harness.Type(writer, "hello");
    m_harness.Publish(writer);
    m_harness.Type(writer, "hello\nworld");
    m_harness.Publish(writer);
    m_harness.Type(writer, "world");
    m_harness.Publish(writer);
    ASSERT_EQ(Puts().size(), 3u);
    struct Expected {
        int offset, removed;
        const char* text;
    } expected[] = {{0, 0, "hello"}, {5, 0, "hello\r\nworld"}, {0, 7, "world"}};
    for (size_t i = 0; i < 3; ++i) {
        CNoteChangeInfoPDU pdu = PutPdu(i);
        EXPECT_EQ(pdu.GetOffSet_INT(0), expected[i].offset) << i;
        EXPECT_EQ(pdu.GetOffSet_INT(1), expected[i].removed) << i;
        EXPECT_EQ(pdu.GetNoteMsg(), expected[i].text) << i;
    }
}

TEST_F(ClientSend, NothingIsSentForAnUnchangedText)
{
    CClientTraceCapture capture;
    CNoteClient& writer = Writer(NOTETAKER_SINGLE);
    m_harness.Publish(writer);  // both texts empty
    EXPECT_TRUE(Puts().empty());
    EXPECT_EQ(capture.Count(kSendBegin), 1);
    EXPECT_EQ(capture.Count(kSendEnd), 0);

    m_harness.Type(writer, "same");
    m_harness.Publish(writer);
    ASSERT_EQ(Puts().size(), 1u);
    writer.m_bNeedAutoSave = 0;
    m_harness.Publish(writer);
    EXPECT_EQ(Puts().size(), 1u);
    EXPECT_EQ(writer.m_strOldMsg, "same");
    EXPECT_EQ(writer.m_bNeedAutoSave, 0u);
    EXPECT_EQ(capture.Count(kSendBegin), 3);
    EXPECT_EQ(capture.Count(kSendEnd), 1);
}

TEST(ClientSendPut, PressEnterSendsALineEndUnlessTheCaptionIsFull)
{
    struct Case {
        int maxLength;
        size_t puts;
        const char* oldAfter;
    } cases[] = {{10, 1, "abc\r\n"}, {3, 0, "abc"}};
    for (const Case& c : cases) {
        CClientHarness harness;
        CNoteClient& writer = harness.Join(kWriterId, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_WRITER);
        CRecordedService service(writer);
        SetPanelMaxLength(writer, c.maxLength);
        writer.SetNoteTextData("abc");  // shown and committed, as an applied caption is
        writer.m_strOldMsg = "abc";
        harness.Publish(writer, true);
        ASSERT_EQ(service.Puts().size(), c.puts) << c.maxLength;
        EXPECT_EQ(writer.m_strOldMsg, c.oldAfter) << c.maxLength;
        if (c.puts == 0) continue;
        CNoteChangeInfoPDU pdu = Unpack(service.Puts()[0].strBytes);
        EXPECT_EQ(pdu.GetOffSet_INT(0), 3);
        EXPECT_EQ(pdu.GetOffSet_INT(1), 0);
        EXPECT_EQ(pdu.GetNoteMsg(), "\r\n");
    }
}

TEST_F(ClientSend, ReturnSendsTheCommittedLineWithItsLineEnd)
{
    CNoteClient& writer = Writer(NOTETAKER_CLOSED_CAPTIONS);
    m_harness.Type(writer, "first");
    PressReturnAtEnd(m_harness, writer);
    m_harness.Type(writer, "first\nsecond");
    PressReturnAtEnd(m_harness, writer);
    ASSERT_EQ(Puts().size(), 2u);
    EXPECT_EQ(PutPdu(0).GetNoteMsg(), "first\r\n");
    EXPECT_EQ(PutPdu(1).GetNoteMsg(), "second\r\n");
    EXPECT_EQ(PutPdu(1).GetOffSet_INT(0), 7);
    EXPECT_EQ(writer.m_strOldMsg, "first\r\nsecond\r\n");
    EXPECT_EQ(writer.m_strOldMsg, CrLfText(writer));
}

// --- the save record and the client's own state

TEST_F(ClientSend, SaveRecordCopyHasNoCacheIdUntilTheEcho)
{
    CNoteClient& writer = Writer(NOTETAKER_CLOSED_CAPTIONS);
    m_harness.Type(writer, "Hello");
    writer.SendChangeInfoPDU(0);
    std::vector<CNoteChangeInfoPDU>& changes = writer.m_SaveInfo.m_vecChangeInfoPdu;
    ASSERT_EQ(changes.size(), 1u);
    EXPECT_EQ(changes[0].GetCacheId_INT(), 0);
    EXPECT_EQ(changes[0].GetNoteMsg(), "Hello");
    EXPECT_EQ(changes[0].GetOffSet_INT(0), 0);
    EXPECT_EQ(changes[0].GetOffSet_INT(1), 0);

    m_harness.Settle();  // the cache echoes the change back
    ASSERT_EQ(changes.size(), 1u);
    EXPECT_NE(changes[0].GetCacheId_INT(), 0);
    EXPECT_EQ(static_cast<unsigned>(changes[0].GetCacheId_INT()), writer.m_nLastCacheId);
    EXPECT_EQ(writer.m_strOldMsg, "Hello");
    EXPECT_EQ(m_harness.PanelText(writer), "Hello");
}

TEST_F(ClientSend, SendMarksAutoSaveAndFreesNetInfosAndTheHandle)
{
    CNoteClient& writer = Writer(NOTETAKER_SINGLE);
    for (const char* info : {"#a#", "", "#b#"}) {
        char* copy = new char[strlen(info) + 1];
        memcpy(copy, info, strlen(info) + 1);
        writer.m_aNetInfo.push_back(copy);
    }
    writer.m_bNeedAutoSave = 0;
    m_harness.Type(writer, "x#a#y#b#");
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

TEST_F(ClientSend, SetNoteTextDataShowsMacLineEnds)
{
    struct Case {
        const char* text;
        const char* shown;
        unsigned hasContent;
    } cases[] = {{"", "", 0}, {"a\r\nb\r\n", "a\nb\n", 1}, {"one", "one", 1}};
    CNoteClient& client = Writer(NOTETAKER_ALL_PARTICIPANTS);
    for (const Case& c : cases) {
        m_harness.Type(client, "previous");
        client.m_bHasContent = 0;
        client.m_bTextChanged = 0;
        client.SetNoteTextData(c.text);
        EXPECT_EQ(m_harness.PanelText(client), c.shown);
        EXPECT_EQ(client.m_bHasContent, c.hasContent) << c.text;
        EXPECT_EQ(client.m_bTextChanged, 1) << c.text;
    }
}

TEST_F(ClientSend, ChangeMessageTellsTheHostOnlyWhenHasContentChanges)
{
    CNoteClient& client = Writer(NOTETAKER_ALL_PARTICIPANTS);
    std::vector<std::string>& calls = m_harness.SinkOf(client).m_vecCalls;
    m_harness.Type(client, "");
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
        m_harness.Type(client, s.text);
        EXPECT_EQ(client.ChangeMessage(), s.result) << s.text;
        EXPECT_EQ(calls, s.calls) << s.text;
        calls.clear();
    }
}

}  // namespace
