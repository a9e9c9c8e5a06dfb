// Full-document transfer: packing a PDU text into a memory handle, unpacking received handles
// (well-formed, truncated and hostile), and resending the document's changes into the change
// cache of the in-process conference.
#include "ClientHarness.h"
#include "ClientTraceCapture.h"
#include "ScriptedArmService.h"

#include <gtest/gtest.h>

#include <algorithm>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

std::string Le32(uint32_t v)
{
    std::string s(4, '\0');
    for (int i = 0; i < 4; ++i) s[i] = static_cast<char>(v >> (8 * i));
    return s;
}

uint32_t Le32At(const std::string& s, size_t at)
{
    uint32_t v = 0;
    for (int i = 3; i >= 0; --i) v = (v << 8) | static_cast<unsigned char>(s[at + i]);
    return v;
}

// Bytes 1 to 255 in no pattern zlib can use: a text that does not compress.
std::string Incompressible(size_t n)
{
    std::string s;
    uint32_t x = 12345;
    while (s.size() < n) {
        x = x * 1103515245u + 12345u;
        const char c = static_cast<char>((x >> 16) & 0xFF);
        if (c != 0) s += c;
    }
    return s;
}

std::string Deflated(const std::string& text)
{
    CCompressEngine engine;
    std::string out(text.size() + 64, '\0');
    unsigned long outLen = out.size();
    engine.Compress(reinterpret_cast<unsigned char*>(const_cast<char*>(text.data())),
                    reinterpret_cast<unsigned char*>(&out[0]), text.size(), &outLen);
    out.resize(outLen);
    return out;
}

// What a C string reading of bytes gives: up to the first zero byte.
std::string AsCString(const std::string& bytes)
{
    return bytes.substr(0, bytes.find('\0'));
}

std::string Item(uint32_t lenOut, uint32_t realLen, const std::string& body)
{
    return Le32(lenOut) + Le32(realLen) + body;
}

class TransferTest : public ::testing::Test {
protected:
    CNoteClient& Writer(NOTETAKERTYPE type = NOTETAKER_SINGLE)
    {
        return m_harness.Join(1, type, NOTE_USER_WRITER);
    }
    static IArmService& Service(CNoteClient& client) { return *client.m_pArmService; }

    static std::string HandleBytes(CNoteClient& client, unsigned handle)
    {
        unsigned size = 0;
        if (Service(client).ArmService_GetMemHandleSize(handle, &size) != 0) return "<none>";
        std::string bytes(size, '\0');
        if (size && Service(client).ArmService_ReadMemHandle(handle, 0, &bytes[0], &size) != 0)
            return "<unreadable>";
        return bytes;
    }
    static unsigned NewHandle(CNoteClient& client, const std::string& bytes)
    {
        unsigned handle = 0;
        Service(client).ArmService_AllocMemHandle(static_cast<unsigned>(bytes.size()), &handle);
        if (!bytes.empty())
            Service(client).ArmService_WriteMemHandle(handle, 0, bytes.data(),
                                                      static_cast<unsigned>(bytes.size()));
        return handle;
    }
    // Unpacks bytes through a fresh handle; the text buffer as a string, or "<0>" when
    // DecompressPdu did nothing.
    static std::string Unpack(CNoteClient& client, const std::string& bytes)
    {
        const unsigned handle = NewHandle(client, bytes);
        const int done = client.DecompressPdu(handle);
        Service(client).ArmService_FreeMemHandle(handle);
        return done ? std::string(client.m_pTextBuf) : "<0>";
    }

    CClientHarness m_harness;
};

// --- packing

TEST_F(TransferTest, TextThatDoesNotCompressIsStoredAsItIs)
{
    CNoteClient& client = Writer();
    const std::string text = Incompressible(100);
    const unsigned handle = client.CompressPdu(text.c_str());
    const std::string item = HandleBytes(client, handle);
    ASSERT_EQ(108u, item.size());
    EXPECT_EQ(0u, Le32At(item, 0));
    EXPECT_EQ(100u, Le32At(item, 4));
    EXPECT_EQ(text, item.substr(8));
    Service(client).ArmService_FreeMemHandle(handle);
}

TEST_F(TransferTest, TextThatCompressesCarriesItsLengthAndTheStream)
{
    CNoteClient& client = Writer();
    const std::string text(5000, 'a');
    const unsigned handle = client.CompressPdu(text.c_str());
    const std::string item = HandleBytes(client, handle);
    ASSERT_GE(item.size(), 8u);
    EXPECT_EQ(5000u, Le32At(item, 0));
    EXPECT_EQ(item.size() - 8, Le32At(item, 4));
    EXPECT_LT(item.size(), 200u);
    Service(client).ArmService_FreeMemHandle(handle);
}

TEST_F(TransferTest, EmptyTextIsAnEightByteItemWithNoBody)
{
    CNoteClient& client = Writer();
    for (const char* text : {"", static_cast<const char*>(nullptr)}) {
        const unsigned handle = client.CompressPdu(text);
        EXPECT_EQ(Item(0, 0, ""), HandleBytes(client, handle));
        Service(client).ArmService_FreeMemHandle(handle);
    }
}

TEST_F(TransferTest, PackedTextsComeBackUnchanged)
{
    CNoteClient& client = Writer();
    const std::vector<std::string> texts = {"", "x", std::string(3000, 'q') + "end",
                                            Incompressible(777), "caf\xc3\xa9\r\nline"};
    for (const std::string& text : texts) {
        const unsigned handle = client.CompressPdu(text.c_str());
        ASSERT_NE(0u, handle);
        ASSERT_EQ(1, client.DecompressPdu(handle));
        EXPECT_EQ(text, std::string(client.m_pTextBuf));
        Service(client).ArmService_FreeMemHandle(handle);
    }
}

TEST_F(TransferTest, WithoutServiceNothingIsPacked)
{
    CNoteClient& client = Writer();
    IArmService* service = client.m_pArmService;
    client.m_pArmService = nullptr;
    EXPECT_EQ(0u, client.CompressPdu("text"));
    unsigned size = 4;
    EXPECT_EQ(0u, client.GetATMemHandle(&size, const_cast<char*>("text")));
    client.m_pArmService = service;
}

// --- memory handles

TEST_F(TransferTest, MemoryHandleHoldsTheBytesAndReadsBackWhole)
{
    CNoteClient& client = Writer();
    unsigned size = 5;
    const unsigned handle = client.GetATMemHandle(&size, const_cast<char*>("abcde"));
    ASSERT_NE(0u, handle);
    char out[16] = {};
    unsigned outSize = sizeof out;
    EXPECT_EQ(1, client.ParseATMemHandle(handle, out, &outSize));
    EXPECT_EQ(5u, outSize);
    EXPECT_EQ("abcde", std::string(out, outSize));
    Service(client).ArmService_FreeMemHandle(handle);
}

TEST_F(TransferTest, HandleLargerThanTheOutputOrUnknownIsNotRead)
{
    CNoteClient& client = Writer();
    const unsigned handle = NewHandle(client, "0123456789");
    char out[4] = {'-', '-', '-', '-'};
    unsigned outSize = sizeof out;
    EXPECT_EQ(0, client.ParseATMemHandle(handle, out, &outSize));
    EXPECT_EQ(std::string(4, '-'), std::string(out, 4));
    EXPECT_EQ(0, client.ParseATMemHandle(0, out, &outSize));
    Service(client).ArmService_FreeMemHandle(handle);
    EXPECT_EQ(0, client.ParseATMemHandle(handle, out, &outSize));
}

// --- unpacking

TEST_F(TransferTest, UnpackingTracesTheHandleAndTheHeader)
{
    CNoteClient& client = Writer();
    CClientTraceCapture capture;
    Unpack(client, Item(0, 2, "hi"));
    EXPECT_EQ((std::vector<std::string>{
                  "CNoteClient::DecompressPdu, dwDataLen = 10",
                  "CNoteClient::DecompressPdu, dwDataLen = 10, dwRealLen = 2, dwLenOut = 0"}),
              capture.StartingWith("CNoteClient::DecompressPdu"));
}

TEST_F(TransferTest, HandlesShorterThanThreeBytesDoNothing)
{
    CNoteClient& client = Writer();
    std::strcpy(client.m_pTextBuf, "kept");
    EXPECT_EQ("<0>", Unpack(client, std::string(2, '\0')));
    EXPECT_EQ("<0>", Unpack(client, "a"));
    EXPECT_EQ(0, client.DecompressPdu(0));
    EXPECT_EQ("kept", std::string(client.m_pTextBuf));
}

TEST_F(TransferTest, AShortItemAfterALongOneLeavesNothingOfTheLongOne)
{
    CNoteClient& client = Writer();
    const std::string longText(5000, 'L');
    const unsigned packedLong = client.CompressPdu(longText.c_str());
    ASSERT_EQ(1, client.DecompressPdu(packedLong));
    Service(client).ArmService_FreeMemHandle(packedLong);
    const unsigned packedShort = client.CompressPdu("ab");
    ASSERT_EQ(1, client.DecompressPdu(packedShort));
    Service(client).ArmService_FreeMemHandle(packedShort);
    EXPECT_EQ("ab", std::string(client.m_pTextBuf));
    EXPECT_TRUE(std::all_of(client.m_pTextBuf + 2, client.m_pTextBuf + client.m_nTextBufSize,
                            [](char c) { return c == 0; }));
}

TEST_F(TransferTest, HeaderCutShortReadsAsEmpty)
{
    CNoteClient& client = Writer();
    for (size_t n = 3; n < 8; ++n) {
        std::strcpy(client.m_pTextBuf, "old");  // as an earlier item would have left it
        client.m_nTextBufDirty = 4;
        EXPECT_EQ("", Unpack(client, Item(0, 0xFFFF, "").substr(0, n))) << n;
        EXPECT_EQ("", Unpack(client, Item(5, 0xFFFF, "").substr(0, n))) << n;
    }
}

TEST_F(TransferTest, BodyLengthBeyondTheHandleReadsOnlyTheHandle)
{
    CNoteClient& client = Writer();
    EXPECT_EQ("hello", Unpack(client, Item(0, 100000, "hello")));
    EXPECT_EQ("hello", Unpack(client, Item(0, 0xFFFFFFFF, "hello")));
    // A stream cut by the handle fails to decompress and is taken as the bytes held.
    const std::string stream = Deflated(std::string(400, 'z'));
    EXPECT_EQ(AsCString(stream.substr(0, 4)), Unpack(client, Item(400, 0xFFFFFFF0, stream.substr(0, 4))));
}

TEST_F(TransferTest, BodyThatIsNoStreamIsTakenAsText)
{
    CNoteClient& client = Writer();
    EXPECT_EQ("plain", Unpack(client, Item(5, 5, "plain")));
    // A stream that produces more than it announced is also taken as its bytes.
    const std::string stream = Deflated(std::string(300, 'y'));
    EXPECT_EQ(AsCString(stream), Unpack(client, Item(10, static_cast<uint32_t>(stream.size()), stream)));
}

TEST_F(TransferTest, StoredBodyLongerThanTheBufferIsCutToIt)
{
    CNoteClient& client = Writer();
    const unsigned bufSize = client.m_nTextBufSize;
    const std::string body(bufSize + 100, 'b');
    const std::string text = Unpack(client, Item(0, static_cast<uint32_t>(body.size()), body));
    EXPECT_EQ(bufSize, client.m_nTextBufSize);
    EXPECT_EQ(bufSize - 1, text.size());
}

TEST_F(TransferTest, AnnouncedLengthBeyondTheBufferGrowsIt)
{
    CNoteClient& client = Writer();
    const unsigned bufSize = client.m_nTextBufSize;
    ASSERT_EQ(CNoteClient::BufSizeFor(client.m_nMaxTextLen), bufSize);
    const std::string text = "grown " + std::string(1000, 'g');
    const std::string stream = Deflated(text);
    EXPECT_EQ(text, Unpack(client, Item(bufSize, static_cast<uint32_t>(stream.size()), stream)));
    EXPECT_EQ(bufSize * 2 + 1, client.m_nTextBufSize);
    // The grown buffer is used whole: it is zeroed and terminated past the text.
    client.m_pTextBuf[client.m_nTextBufSize - 1] = 'x';  // as an item filling it would leave it
    client.m_nTextBufDirty = client.m_nTextBufSize;
    EXPECT_EQ("s", Unpack(client, Item(0, 1, "s")));
    EXPECT_EQ('\0', client.m_pTextBuf[client.m_nTextBufSize - 1]);
}

TEST_F(TransferTest, HostileAnnouncedLengthIsClampedToTheNotepad)
{
    CNoteClient& client = Writer();
    const unsigned limit = CNoteClient::BufSizeFor(client.m_nMaxTextLen) * 2 + 1;
    const std::string stream = Deflated("small");
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ("small", Unpack(client, Item(0xFFFFFFF0, static_cast<uint32_t>(stream.size()), stream)));
        // Not gigabytes, and not growing with every hostile item.
        EXPECT_EQ(limit, client.m_nTextBufSize);
    }
    EXPECT_LT(client.m_nTextBufSize, 4u * 1024 * 1024);
}

TEST_F(TransferTest, CaptionsBufferIsClampedToTheCaptionsLimit)
{
    CNoteClient& client = Writer(NOTETAKER_CLOSED_CAPTIONS);
    ASSERT_EQ(CNoteClient::kCaptionsMaxTextLen, client.m_nMaxTextLen);
    const std::string stream = Deflated("caption");
    EXPECT_EQ("caption", Unpack(client, Item(0x80000000u, static_cast<uint32_t>(stream.size()), stream)));
    EXPECT_EQ(CNoteClient::BufSizeFor(CNoteClient::kCaptionsMaxTextLen) * 2 + 1, client.m_nTextBufSize);
}

// --- resending the document

CNoteChangeInfoPDU Change(const std::string& text, int cacheId)
{
    CNoteChangeInfoPDU pdu;
    pdu.SetOffSet(0, 0);
    pdu.SetOffSet(0, 1);
    pdu.SetUniqueId(1);
    pdu.SetCacheId(cacheId);
    pdu.SetNoteMsg(text);
    return pdu;
}

// The change PDU a packed cache item carries.
CNoteChangeInfoPDU Unpacked(const std::string& item)
{
    CNoteChangeInfoPDU pdu;
    if (item.size() < 8) return pdu;
    const uint32_t lenOut = Le32At(item, 0);
    std::string xml = item.substr(8);
    if (lenOut != 0) {
        std::string text(lenOut, '\0');
        unsigned long textLen = lenOut;
        CCompressEngine engine;
        engine.Decompress(reinterpret_cast<unsigned char*>(&xml[0]),
                          reinterpret_cast<unsigned char*>(&text[0]), xml.size(), &textLen);
        text.resize(textLen);
        xml = text;
    }
    pdu.ParseXMLPDU(xml);
    return pdu;
}

class ResendTest : public TransferTest {
protected:
    static void SetChanges(CNoteClient& client, const std::vector<std::pair<std::string, int>>& changes)
    {
        client.m_SaveInfo.m_vecChangeInfoPdu.clear();
        for (const auto& change : changes)
            client.m_SaveInfo.m_vecChangeInfoPdu.push_back(Change(change.first, change.second));
    }
    static std::vector<std::string> Texts(const std::vector<CScriptedArmService::SPut>& puts)
    {
        std::vector<std::string> texts;
        for (const CScriptedArmService::SPut& put : puts) texts.push_back(Unpacked(put.strBytes).GetNoteMsg());
        return texts;
    }
};

TEST_F(ResendTest, EveryChangeReachesTheCacheWithCacheIdZero)
{
    CNoteClient& client = Writer();
    ASSERT_NE(0u, client.m_nChangeCacheHandle);
    client.m_nNBRStatus = 0;
    client.m_nLastCacheId = 0;
    SetChanges(client, {{"one", 0}, {"two", 7}, {"three", 0}});
    const size_t recordedBefore = m_harness.Meeting().Recording().size();
    CRecordedService service(client);
    client.SendAllBlockPdu(1);

    ASSERT_EQ(3u, service.Puts().size());
    EXPECT_EQ((std::vector<std::string>{"one", "two", "three"}), Texts(service.Puts()));
    const unsigned expectedFlags[] = {0x1000090u, 0x1000000u, 0x1000090u};
    for (size_t i = 0; i < 3; ++i) {
        const CScriptedArmService::SPut& put = service.Puts()[i];
        EXPECT_EQ(0, put.nResult) << i;
        EXPECT_EQ(client.m_nApeUserId, put.nAttachId);
        EXPECT_EQ(client.m_nChangeCacheHandle, put.nCacheHandle);
        EXPECT_EQ(0u, put.nItemId);
        EXPECT_EQ(2u, put.nMode);
        EXPECT_EQ(2u, put.nPriority);
        EXPECT_EQ(expectedFlags[i], put.nFlags) << i;
        EXPECT_EQ(0, Unpacked(put.strBytes).GetCacheId_INT()) << i;
    }
    EXPECT_EQ(3, service.Frees());
    // The items with the recording flags arrived in the meeting's cache with their bytes.
    const std::vector<CRecordedItem> recorded = m_harness.Meeting().Recording();
    ASSERT_EQ(recordedBefore + 2, recorded.size());
    EXPECT_EQ(client.m_nChangeCacheHandle, recorded[recordedBefore].nCacheHandle);
    EXPECT_EQ(service.Puts()[0].strBytes, recorded[recordedBefore].strBytes);
    EXPECT_EQ(service.Puts()[2].strBytes, recorded[recordedBefore + 1].strBytes);
}

TEST_F(ResendTest, OnlyChangesNotYetInTheCacheWhenNotAll)
{
    CNoteClient& client = Writer();
    SetChanges(client, {{"cached", 3}, {"lost1", 0}, {"cached2", 5}, {"lost2", 0}});
    CRecordedService service(client);
    client.SendAllBlockPdu(0);
    EXPECT_EQ((std::vector<std::string>{"lost1", "lost2"}), Texts(service.Puts()));
}

TEST_F(ResendTest, NothingWithoutChangesOrService)
{
    CNoteClient& client = Writer();
    SetChanges(client, {});
    {
        CRecordedService service(client);
        client.SendAllBlockPdu(1);
        EXPECT_TRUE(service.Puts().empty());
    }
    SetChanges(client, {{"a", 0}});
    IArmService* inner = client.m_pArmService;
    client.m_pArmService = nullptr;
    client.SendAllBlockPdu(1);
    client.m_pArmService = inner;
}

TEST_F(ResendTest, FlagsFollowTheRecordingStatusAndTheNotepad)
{
    struct SCase {
        NOTETAKERTYPE type;
        unsigned long status;
        unsigned flagsNew;
    };
    const SCase cases[] = {
        {NOTETAKER_SINGLE, 0, 0x1000090u},          {NOTETAKER_SINGLE, 1, 0x1000000u},
        {NOTETAKER_SINGLE, 2, 0x1000000u},          {NOTETAKER_SINGLE, 3, 0x1000090u},
        {NOTETAKER_SINGLE, 4, 0x1000000u},          {NOTETAKER_ALL_PARTICIPANTS, 0, 0x1000090u},
        {NOTETAKER_ALL_PARTICIPANTS, 3, 0x1000090u}, {NOTETAKER_ALL_PARTICIPANTS, 1, 0x1000000u},
        {NOTETAKER_CLOSED_CAPTIONS, 0, 0x1000000u},  {NOTETAKER_CLOSED_CAPTIONS, 3, 0x1000000u},
        {NOTETAKER_CLOSED_CAPTIONS, 1, 0x1000000u},
    };
    unsigned userId = 10;
    for (const SCase& c : cases) {
        CNoteClient& client = m_harness.Join(userId++, c.type, NOTE_USER_WRITER);
        client.m_nNBRStatus = c.status;
        SetChanges(client, {{"new", 0}, {"old", 9}});
        {
            CRecordedService service(client);
            client.SendAllBlockPdu(1);
            ASSERT_EQ(2u, service.Puts().size());
            EXPECT_EQ(c.flagsNew, service.Puts()[0].nFlags) << c.type << " status " << c.status;
            EXPECT_EQ(0x1000000u, service.Puts()[1].nFlags) << c.type << " status " << c.status;
        }
        m_harness.Leave(client);
    }
}

TEST_F(ResendTest, CaptionsAppendAndNotesReplaceTheLastItem)
{
    CNoteClient& notes = Writer(NOTETAKER_SINGLE);
    notes.m_nLastCacheId = 42;
    SetChanges(notes, {{"n", 0}});
    {
        CRecordedService service(notes);
        notes.SendAllBlockPdu(1);
        ASSERT_EQ(1u, service.Puts().size());
        EXPECT_EQ(42u, service.Puts()[0].nItemId);
        EXPECT_EQ(2u, service.Puts()[0].nMode);
    }
    m_harness.Leave(notes);

    CNoteClient& captions = m_harness.Join(2, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_WRITER);
    captions.m_nLastCacheId = 42;
    SetChanges(captions, {{"c", 0}});
    CRecordedService service(captions);
    captions.SendAllBlockPdu(1);
    ASSERT_EQ(1u, service.Puts().size());
    EXPECT_EQ(0u, service.Puts()[0].nItemId);
    EXPECT_EQ(1u, service.Puts()[0].nMode);
    EXPECT_EQ(0, service.Puts()[0].nResult);
}

}  // namespace
