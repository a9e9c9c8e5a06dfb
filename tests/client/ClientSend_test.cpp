// Local edits and transfer: the edit finder, what a send puts into the change cache and when
// nothing is sent, packing a PDU into a memory handle and unpacking received ones (truncated and
// hostile), and resending the document's changes into the in-process conference's cache.
#include "ClientWire.h"
#include "ScriptedArmService.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

namespace {

using Puts = std::vector<CScriptedArmService::SPut>;
constexpr unsigned kWriterId = 101;

// Bytes 1 to 255 in no pattern zlib can use.
std::string Incompressible(size_t n)
{
    std::string s;
    for (uint32_t x = 12345; s.size() < n;)
        if (const char c = static_cast<char>(((x = x * 1103515245u + 12345u) >> 16) & 0xFF)) s += c;
    return s;
}

std::vector<std::string> Sent(const Puts& puts)
{
    std::vector<std::string> sent;
    for (const CScriptedArmService::SPut& put : puts) {
        CNoteChangeInfoPDU pdu = UnpackChange(put.strBytes);
        sent.push_back(std::to_string(pdu.GetOffSet_INT(0)) + " " + std::to_string(pdu.GetOffSet_INT(1)) + " " +
                       pdu.GetNoteMsg() + "/" + std::to_string(pdu.GetCacheId_INT()));
    }
    return sent;
}

// Writers, each alone in a fresh meeting, whose puts are recorded.
class ClientSend : public ::testing::Test {
protected:
    CNoteClient& Writer(NOTETAKERTYPE type)
    {
        m_pService.reset();
        m_pHarness.reset();  // before the next one: each makes its loop current
        m_pHarness.reset(new CClientHarness);
        CNoteClient& client = m_pHarness->Join(kWriterId, type, NOTE_USER_WRITER);
        m_pService.reset(new CRecordedService(client));
        return client;
    }
    void Publish(CNoteClient& writer, const std::string& text)
    {
        m_pHarness->Type(writer, text);
        m_pHarness->Publish(writer);
    }
    const Puts& Put() const { return m_pService->Puts(); }
    // Unpacks bytes through a fresh handle: the text buffer, or "<0>" when nothing was done.
    static std::string Unpack(CNoteClient& client, const std::string& bytes)
    {
        IArmService& service = *client.m_pArmService;
        unsigned handle = 0;
        service.ArmService_AllocMemHandle(static_cast<unsigned>(bytes.size()), &handle);
        if (!bytes.empty())
            service.ArmService_WriteMemHandle(handle, 0, bytes.data(), static_cast<unsigned>(bytes.size()));
        const int done = client.DecompressPdu(handle);
        service.ArmService_FreeMemHandle(handle);
        return done ? std::string(client.m_pTextBuf) : "<0>";
    }

    std::unique_ptr<CClientHarness> m_pHarness;
    std::unique_ptr<CRecordedService> m_pService;  // goes before the clients
};

TEST_F(ClientSend, CompareMsgFindsOneEditPrefixFirst)
{
    const std::string b(256, 'L');  // bytes compared at once
    // found: offset, removed count, what is left of newText.
    const struct { std::string oldText, panel, show, newText; const char* found;
    } cases[] = {
        {"abc", "abXc", "abXc", "abXc", "2 0 'X'"},
        {"aaa", "aa", "aa", "aa", "2 1 ''"},  // the prefix wins over the suffix
        {"", "hello", "hello", "hello", "0 0 'hello'"},
        {"hello", "", "hello", "kept", "0 5 'kept'"},  // an empty panel: everything was deleted
        {"abc", "abc", "abc", "abc\r\n", "3 0 '\r\n'"},
        {"abcdef", "abXYef", "abXYef", "abXYef", "2 2 'XY'"},
        {"aab", "ab", "ab", "ab", "1 1 ''"},  // prefix and suffix never overlap
        {"one\r\ntwo", "one\nthree", "one\r\nthree", "one\r\nthree", "6 2 'hree'"},
        {"\xE6\x97\xA5", "\xE6\x9C\xAC", "\xE6\x9C\xAC", "\xE6\x9C\xAC", "1 2 '\x9C\xAC'"},  // bytes, not characters
        {b + "a" + b, b + "bc" + b, b + "bc" + b, b + "bc" + b, "256 1 'bc'"},
        {"A" + b, "B" + b, "B" + b, "B" + b, "0 1 'B'"},
        {b + b + b, b + b + b + "x", b + b + b + "x", b + b + b + "x", "768 0 'x'"},
        // A committed caption shorter than the whole panel text: no suffix is read past it.
        {"abcd", "abXd-more", "abXd", "abXd", "2 2 'Xd'"},
        {"abcd", "ab", "abcdefgh", "abcdefgh", "2 2 'cdefgh'"},  // a show text longer than the panel's
        {"abcXdef", "abcYdef", "abcYdef", "", "3 1 ''"},          // newText shorter than prefix and suffix
    };
    CNoteClient& client = Writer(NOTETAKER_ALL_PARTICIPANTS);
    for (const auto& c : cases) {
        m_pHarness->Type(client, c.panel);
        client.m_strOldMsg = c.oldText;
        client.m_strShowMsg = c.show;
        std::string newText = c.newText;
        int removed = -1;
        const int offset = client.CompareMsg(newText, removed);
        EXPECT_EQ(std::to_string(offset) + " " + std::to_string(removed) + " '" + newText + "'", c.found)
            << c.oldText.substr(0, 20) << " -> " << c.panel.substr(0, 20);
    }
}

TEST_F(ClientSend, ArgumentsAndEditFollowNotepadTypeAndRecordingStatus)
{
    const struct { NOTETAKERTYPE type; unsigned long nbrStatus; unsigned flags, mode; std::vector<std::string> sent;
    } cases[] = {
        {NOTETAKER_SINGLE, 0, 0x1000090, 2, {"0 0 hello/0", "5 0 hello\r\nworld/0", "0 7 world/0"}},
        {NOTETAKER_SINGLE, 3, 0x1000090, 2, {"0 0 hello/0", "5 0 hello\r\nworld/0", "0 7 world/0"}},
        {NOTETAKER_SINGLE, 1, 0x1000000, 2, {"0 0 hello/0", "5 0 hello\r\nworld/0", "0 7 world/0"}},
        {NOTETAKER_CLOSED_CAPTIONS, 0, 0x1000000, 1, {"0 0 hello/0", "5 0 \r\nworld/0"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.type) + " " + std::to_string(c.nbrStatus));
        CNoteClient& writer = Writer(c.type);
        writer.SetNBRStatus(c.nbrStatus);
        Publish(writer, "hello");
        const unsigned firstId = writer.m_nLastCacheId;
        Publish(writer, "hello\nworld");
        if (c.type == NOTETAKER_SINGLE) Publish(writer, "world");  // the note taker sends the whole text
        EXPECT_EQ(Sent(Put()), c.sent);
        for (const CScriptedArmService::SPut& put : Put()) {
            EXPECT_EQ(put.nAttachId, writer.m_nApeUserId);
            EXPECT_EQ(put.nCacheHandle, writer.m_nChangeCacheHandle);
            EXPECT_EQ(put.nMode, c.mode);
            EXPECT_EQ(put.nFlags, c.flags);
            EXPECT_EQ(put.nPriority, 2u);
            EXPECT_EQ(UnpackChange(put.strBytes).GetUniqueId_INT(), int(kWriterId));
        }
        EXPECT_NE(firstId, 0u);  // notes build on the newest item, captions append
        EXPECT_EQ(Put()[1].nItemId, c.type == NOTETAKER_CLOSED_CAPTIONS ? 0u : firstId);
        EXPECT_EQ(m_pService->Frees(), int(c.sent.size()));
        EXPECT_EQ(writer.m_strOldMsg, CrLfText(writer));
    }
}

TEST_F(ClientSend, NothingIsSentForAnUnchangedTextOrAFullCaption)
{
    CNoteClient& writer = Writer(NOTETAKER_SINGLE);
    m_pHarness->Publish(writer);  // both texts empty
    EXPECT_TRUE(Put().empty());
    Publish(writer, "same");
    writer.m_bNeedAutoSave = 0;
    m_pHarness->Publish(writer);
    EXPECT_EQ(Put().size(), 1u);
    EXPECT_EQ(writer.m_bNeedAutoSave, 0u);
    for (int maxLength : {10, 3}) {  // Return sends a line end unless the caption is full
        CNoteClient& captioner = Writer(NOTETAKER_CLOSED_CAPTIONS);
        SetPanelMaxLength(captioner, maxLength);
        captioner.SetNoteTextData("abc");  // shown and committed, as an applied caption is
        captioner.m_strOldMsg = "abc";
        m_pHarness->Publish(captioner, true);
        EXPECT_EQ(Sent(Put()), maxLength == 3 ? std::vector<std::string>{} : std::vector<std::string>{"3 0 \r\n/0"});
        EXPECT_EQ(captioner.m_strOldMsg, maxLength == 3 ? "abc" : "abc\r\n");
    }
}

TEST_F(ClientSend, SendMarksAutoSaveAndCutsTheTextAtTheMarkersBeforeAnEmptyOne)
{
    CNoteClient& writer = Writer(NOTETAKER_SINGLE);
    for (const char* info : {"#a#", "", "#b#"}) writer.m_aNetInfo.push_back(strcpy(new char[strlen(info) + 1], info));
    writer.m_bNeedAutoSave = 0;
    m_pHarness->Type(writer, "x#a#y#b#");
    writer.SendChangeInfoPDU(0);
    EXPECT_EQ(writer.m_bNeedAutoSave, 1u);
    EXPECT_TRUE(writer.m_aNetInfo.empty());
    ASSERT_EQ(Put().size(), 1u);
    std::vector<std::string> segments;
    const CNoteChangeInfoPDU sent = UnpackChange(Put()[0].strBytes);
    for (const CNoteSegInfo& seg : sent.GetSegments())
        segments.push_back((seg.GetSpecial() ? "*" : "") + seg.GetSegInfo());
    EXPECT_EQ(segments, (std::vector<std::string>{"x", "*#a#", "y#b#"}));
}

// --- packing and unpacking

TEST_F(ClientSend, PackedItemsStoreOrCompressAndComeBackUnchanged)
{
    CNoteClient& client = Writer(NOTETAKER_SINGLE);
    IArmService& service = *client.m_pArmService;
    for (const std::string& text : {std::string(), std::string("x"), Incompressible(777), std::string(3000, 'q')}) {
        const unsigned handle = client.CompressPdu(text.c_str());
        unsigned size = 0;
        ASSERT_EQ(service.ArmService_GetMemHandleSize(handle, &size), 0);
        std::string item(size, '\0');
        service.ArmService_ReadMemHandle(handle, 0, &item[0], &size);
        if (text.size() == 3000)
            EXPECT_EQ(Le32At(item, 0), 3000u);
        else
            EXPECT_EQ(item, PackedPlain(text));
        ASSERT_EQ(client.DecompressPdu(handle), 1);
        EXPECT_EQ(std::string(client.m_pTextBuf), text);
        service.ArmService_FreeMemHandle(handle);
    }
    unsigned size = 5;
    const unsigned handle = client.GetATMemHandle(&size, const_cast<char*>("abcde"));
    char out[16] = {};
    unsigned outSize = 4;  // larger than the output, unknown or freed: not read
    EXPECT_EQ(client.ParseATMemHandle(handle, out, &outSize), 0);
    EXPECT_EQ(client.ParseATMemHandle(0, out, &outSize), 0);
    outSize = sizeof out;
    EXPECT_EQ(client.ParseATMemHandle(handle, out, &outSize), 1);
    EXPECT_EQ(std::string(out, outSize), "abcde");
    service.ArmService_FreeMemHandle(handle);
    EXPECT_EQ(client.ParseATMemHandle(handle, out, &outSize), 0);
    client.m_pArmService = nullptr;
    EXPECT_EQ(client.CompressPdu("text"), 0u);
    client.m_pArmService = &service;
}

TEST_F(ClientSend, UnpackedItemsTrustNeitherLength)
{
    const std::string stream = Deflated(std::string(400, 'z')), longer = Deflated(std::string(300, 'y'));
    const struct { std::string item, text; } cases[] = {
        {std::string(2, '\0'), "<0>"},
        {Item(0, 100000, "hello"), "hello"},  // a body length beyond the handle
        {Item(0, 0xFFFFFFFF, "hello"), "hello"},
        // A stream cut by the handle fails to decompress and is taken as the bytes held.
        {Item(400, 0xFFFFFFF0, stream.substr(0, 4)), stream.substr(0, 4).c_str()},
        {Item(5, 5, "plain"), "plain"},
        {Item(10, uint32_t(longer.size()), longer), longer.c_str()},  // more than announced
    };
    CNoteClient& client = Writer(NOTETAKER_SINGLE);
    for (const auto& c : cases) {
        strcpy(client.m_pTextBuf, "kept");
        client.m_nTextBufDirty = 5;
        EXPECT_EQ(Unpack(client, c.item), c.text) << c.item.size();
    }
    EXPECT_EQ(client.DecompressPdu(0), 0);
    for (size_t n = 3; n < 8; ++n) {  // a header cut short reads as empty
        strcpy(client.m_pTextBuf, "old");
        client.m_nTextBufDirty = 4;
        EXPECT_EQ(Unpack(client, Item(5, 0xFFFF, "").substr(0, n)), "") << n;
    }
    // A short item after a long one leaves nothing of the long one.
    EXPECT_EQ(Unpack(client, PackedPlain(std::string(5000, 'L'))), std::string(5000, 'L'));
    EXPECT_EQ(Unpack(client, PackedPlain("ab")), "ab");
    EXPECT_TRUE(
        std::all_of(client.m_pTextBuf + 2, client.m_pTextBuf + client.m_nTextBufSize, [](char c) { return !c; }));
}

TEST_F(ClientSend, TheWorkBufferIsCutGrownAndClampedToTheNotepad)
{
    for (NOTETAKERTYPE type : {NOTETAKER_SINGLE, NOTETAKER_CLOSED_CAPTIONS}) {
        CNoteClient& client = Writer(type);
        const unsigned bufSize = client.m_nTextBufSize;
        const std::string body(bufSize + 100, 'b');  // a stored body longer than the buffer is cut
        EXPECT_EQ(Unpack(client, Item(0, uint32_t(body.size()), body)).size(), bufSize - 1);
        const std::string text = "grown " + std::string(1000, 'g');
        const std::string stream = Deflated(text);
        EXPECT_EQ(Unpack(client, Item(bufSize, uint32_t(stream.size()), stream)), text);
        EXPECT_EQ(client.m_nTextBufSize, bufSize * 2 + 1);
        client.m_pTextBuf[client.m_nTextBufSize - 1] = 'x';  // as an item filling it would leave it
        client.m_nTextBufDirty = client.m_nTextBufSize;
        EXPECT_EQ(Unpack(client, Item(0, 1, "s")), "s");
        EXPECT_EQ(client.m_pTextBuf[client.m_nTextBufSize - 1], '\0');
        // Hostile announced lengths: not gigabytes, and not growing with every item.
        const std::string small = Deflated("small");
        for (uint32_t lenOut : {0xFFFFFFF0u, 0x80000000u}) {
            EXPECT_EQ(Unpack(client, Item(lenOut, uint32_t(small.size()), small)), "small");
            EXPECT_EQ(client.m_nTextBufSize, CNoteClient::BufSizeFor(client.m_nMaxTextLen) * 2 + 1);
        }
    }
}

// --- resending the document

TEST_F(ClientSend, EveryChangeNotInTheCacheIsResentWithCacheIdZero)
{
    // flagsNew: of a change not in the cache yet; one in it is always plain.
    const struct { NOTETAKERTYPE type; unsigned long status; unsigned flagsNew;
    } cases[] = {{NOTETAKER_SINGLE, 0, 0x1000090u},          {NOTETAKER_SINGLE, 3, 0x1000090u},
                 {NOTETAKER_SINGLE, 4, 0x1000000u},          {NOTETAKER_ALL_PARTICIPANTS, 1, 0x1000000u},
                 {NOTETAKER_CLOSED_CAPTIONS, 0, 0x1000000u}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.type) + " status " + std::to_string(c.status));
        CNoteClient& client = Writer(c.type);
        client.m_nNBRStatus = c.status;
        client.m_nLastCacheId = 42;
        client.m_SaveInfo.m_vecChangeInfoPdu = {Change("new"), Change("old", "0", "0", 9)};
        client.SendAllBlockPdu(1);
        EXPECT_EQ(Sent(Put()), (std::vector<std::string>{"0 0 new/0", "0 0 old/0"}));
        EXPECT_EQ(Put()[0].nFlags, c.flagsNew);
        EXPECT_EQ(Put()[1].nFlags, 0x1000000u);
        for (const CScriptedArmService::SPut& put : Put()) {
            EXPECT_EQ(put.nItemId, c.type == NOTETAKER_CLOSED_CAPTIONS ? 0u : 42u);  // captions append
            EXPECT_EQ(put.nMode, c.type == NOTETAKER_CLOSED_CAPTIONS ? 1u : 2u);
        }
        EXPECT_EQ(m_pService->Frees(), 2);
        // Not all: only the changes not yet in the cache.
        client.m_SaveInfo.m_vecChangeInfoPdu = {Change("cached", "0", "0", 3), Change("lost")};
        client.SendAllBlockPdu(0);
        EXPECT_EQ(Sent(Put()).back(), "0 0 lost/0");
        EXPECT_EQ(Put().size(), 3u);
    }
}

}  // namespace
