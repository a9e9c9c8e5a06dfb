// Full-document transfer: packing a PDU text into a memory handle, unpacking received handles
// (well-formed, truncated and hostile), and resending the document's changes into the change
// cache of the in-process conference.
#include "ClientWire.h"
#include "ScriptedArmService.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace {

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

// What a C string reading of bytes gives: up to the first zero byte.
std::string AsCString(const std::string& bytes)
{
    return bytes.substr(0, bytes.find('\0'));
}

class TransferTest : public ::testing::Test {
protected:
    CNoteClient& Writer(NOTETAKERTYPE type = NOTETAKER_SINGLE) { return m_harness.Join(m_nNextId++, type, NOTE_USER_WRITER); }
    static IArmService& Service(CNoteClient& client) { return *client.m_pArmService; }

    static std::string HandleBytes(CNoteClient& client, unsigned handle)
    {
        unsigned size = 0;
        if (Service(client).ArmService_GetMemHandleSize(handle, &size) != 0) return "<none>";
        std::string bytes(size, '\0');
        if (size) Service(client).ArmService_ReadMemHandle(handle, 0, &bytes[0], &size);
        return bytes;
    }
    // Unpacks bytes through a fresh handle; the text buffer as a string, or "<0>" when
    // DecompressPdu did nothing.
    static std::string Unpack(CNoteClient& client, const std::string& bytes)
    {
        unsigned handle = 0;
        Service(client).ArmService_AllocMemHandle(static_cast<unsigned>(bytes.size()), &handle);
        if (!bytes.empty())
            Service(client).ArmService_WriteMemHandle(handle, 0, bytes.data(), static_cast<unsigned>(bytes.size()));
        const int done = client.DecompressPdu(handle);
        Service(client).ArmService_FreeMemHandle(handle);
        return done ? std::string(client.m_pTextBuf) : "<0>";
    }

    CClientHarness m_harness;
    unsigned m_nNextId = 1;
};

// --- packing and memory handles

TEST_F(TransferTest, PackedItemsStoreOrCompressAndComeBackUnchanged)
{
    struct Case {
        const char* what;
        std::string text;
        bool compressed;
    } const cases[] = {
        {"empty", "", false},
        {"one byte", "x", false},
        {"incompressible", Incompressible(777), false},
        {"repetitive", std::string(3000, 'q') + "end", true},
        {"line ends and UTF-8", "caf\xc3\xa9\r\nline", false},
    };
    CNoteClient& client = Writer();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const unsigned handle = client.CompressPdu(c.text.c_str());
        ASSERT_NE(0u, handle);
        const std::string item = HandleBytes(client, handle);
        ASSERT_GE(item.size(), 8u);
        EXPECT_EQ(item.size() - 8, Le32At(item, 4));
        if (c.compressed) {
            EXPECT_EQ(c.text.size(), Le32At(item, 0));
            EXPECT_LT(item.size(), 200u);
        } else {
            EXPECT_EQ(Item(0, static_cast<uint32_t>(c.text.size()), c.text), item);
        }
        ASSERT_EQ(1, client.DecompressPdu(handle));
        EXPECT_EQ(c.text, std::string(client.m_pTextBuf));
        Service(client).ArmService_FreeMemHandle(handle);
    }
    // A null text packs as the empty one.
    const unsigned handle = client.CompressPdu(nullptr);
    EXPECT_EQ(Item(0, 0, ""), HandleBytes(client, handle));
    Service(client).ArmService_FreeMemHandle(handle);
}

TEST_F(TransferTest, MemoryHandlesAreReadOnlyWholeAndNeverWithoutAService)
{
    CNoteClient& client = Writer();
    unsigned size = 5;
    const unsigned handle = client.GetATMemHandle(&size, const_cast<char*>("abcde"));
    ASSERT_NE(0u, handle);
    char out[16] = {};
    unsigned outSize = sizeof out;
    EXPECT_EQ(1, client.ParseATMemHandle(handle, out, &outSize));
    EXPECT_EQ("abcde", std::string(out, outSize));
    // Larger than the output, unknown, or freed: not read.
    outSize = 4;
    EXPECT_EQ(0, client.ParseATMemHandle(handle, out, &outSize));
    EXPECT_EQ("abcde", std::string(out, 5));
    EXPECT_EQ(0, client.ParseATMemHandle(0, out, &outSize));
    Service(client).ArmService_FreeMemHandle(handle);
    outSize = sizeof out;
    EXPECT_EQ(0, client.ParseATMemHandle(handle, out, &outSize));

    IArmService* service = client.m_pArmService;
    client.m_pArmService = nullptr;
    EXPECT_EQ(0u, client.CompressPdu("text"));
    EXPECT_EQ(0u, client.GetATMemHandle(&size, const_cast<char*>("text")));
    client.SendAllBlockPdu(1);
    client.m_pArmService = service;
}

// --- unpacking

TEST_F(TransferTest, UnpackedItemsTrustNeitherLength)
{
    const std::string stream = Deflated(std::string(400, 'z'));
    const std::string longer = Deflated(std::string(300, 'y'));
    struct Case {
        const char* what;
        std::string item;
        std::string text;
    } const cases[] = {
        {"two bytes do nothing", std::string(2, '\0'), "<0>"},
        {"one byte does nothing", "a", "<0>"},
        {"a body length beyond the handle reads only the handle", Item(0, 100000, "hello"), "hello"},
        {"a body length of 2^32 - 1", Item(0, 0xFFFFFFFF, "hello"), "hello"},
        // A stream cut by the handle fails to decompress and is taken as the bytes held.
        {"a cut stream", Item(400, 0xFFFFFFF0, stream.substr(0, 4)), AsCString(stream.substr(0, 4))},
        {"a body that is no stream is taken as text", Item(5, 5, "plain"), "plain"},
        {"a stream producing more than announced is taken as its bytes",
         Item(10, static_cast<uint32_t>(longer.size()), longer), AsCString(longer)},
    };
    CNoteClient& client = Writer();
    for (const Case& c : cases) {
        std::strcpy(client.m_pTextBuf, "kept");
        client.m_nTextBufDirty = 5;
        EXPECT_EQ(c.text, Unpack(client, c.item)) << c.what;
    }
    EXPECT_EQ(0, client.DecompressPdu(0));
    // A header cut short reads as empty, whatever an earlier item left in the buffer.
    for (size_t n = 3; n < 8; ++n) {
        for (uint32_t lenOut : {0u, 5u}) {
            std::strcpy(client.m_pTextBuf, "old");
            client.m_nTextBufDirty = 4;
            EXPECT_EQ("", Unpack(client, Item(lenOut, 0xFFFF, "").substr(0, n))) << n << " " << lenOut;
        }
    }
}

TEST_F(TransferTest, AShortItemAfterALongOneLeavesNothingOfTheLongOne)
{
    CNoteClient& client = Writer();
    const std::string longText(5000, 'L');
    const std::string stream = Deflated(longText);
    for (const std::string& item : {PackedPlain(longText), Item(5000, static_cast<uint32_t>(stream.size()), stream)}) {
        EXPECT_EQ(longText, Unpack(client, item));
        EXPECT_EQ("ab", Unpack(client, PackedPlain("ab")));
        EXPECT_TRUE(std::all_of(client.m_pTextBuf + 2, client.m_pTextBuf + client.m_nTextBufSize,
                                [](char c) { return c == 0; }));
    }
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

// The work buffer is bound by the notepad's limit, not by the lengths items announce.
TEST_F(TransferTest, HostileAnnouncedLengthIsClampedToTheNotepad)
{
    for (NOTETAKERTYPE type : {NOTETAKER_SINGLE, NOTETAKER_CLOSED_CAPTIONS}) {
        SCOPED_TRACE(type);
        CNoteClient& client = Writer(type);
        const unsigned limit = CNoteClient::BufSizeFor(client.m_nMaxTextLen) * 2 + 1;
        const std::string stream = Deflated("small");
        for (uint32_t lenOut : {0xFFFFFFF0u, 0x80000000u, 0xFFFFFFF0u}) {
            EXPECT_EQ("small", Unpack(client, Item(lenOut, static_cast<uint32_t>(stream.size()), stream)));
            // Not gigabytes, and not growing with every hostile item.
            EXPECT_EQ(limit, client.m_nTextBufSize);
        }
    }
}

// --- resending the document

class ResendTest : public TransferTest {
protected:
    static void SetChanges(CNoteClient& client, const std::vector<std::pair<std::string, int>>& changes)
    {
        client.m_SaveInfo.m_vecChangeInfoPdu.clear();
        for (const auto& change : changes)
            client.m_SaveInfo.m_vecChangeInfoPdu.push_back(Change(change.first, "0", "0", change.second));
    }
    static std::vector<std::string> Texts(const std::vector<CScriptedArmService::SPut>& puts)
    {
        std::vector<std::string> texts;
        for (const CScriptedArmService::SPut& put : puts) texts.push_back(UnpackChange(put.strBytes).GetNoteMsg());
        return texts;
    }
};

TEST_F(ResendTest, EveryChangeReachesTheCacheWithCacheIdZero)
{
    CNoteClient& client = Writer();
    ASSERT_NE(0u, client.m_nChangeCacheHandle);
    SetChanges(client, {{"one", 0}, {"two", 7}, {"three", 0}});
    const size_t recordedBefore = m_harness.Meeting().Recording().size();
    CRecordedService service(client);
    client.SendAllBlockPdu(1);

    ASSERT_EQ(3u, service.Puts().size());
    EXPECT_EQ((std::vector<std::string>{"one", "two", "three"}), Texts(service.Puts()));
    for (const CScriptedArmService::SPut& put : service.Puts()) {
        EXPECT_EQ(0, put.nResult);
        EXPECT_EQ(client.m_nApeUserId, put.nAttachId);
        EXPECT_EQ(client.m_nChangeCacheHandle, put.nCacheHandle);
        EXPECT_EQ(2u, put.nPriority);
        EXPECT_EQ(0, UnpackChange(put.strBytes).GetCacheId_INT());
    }
    EXPECT_EQ(3, service.Frees());
    // The items with the recording flags arrived in the meeting's cache with their bytes.
    const std::vector<CRecordedItem> recorded = m_harness.Meeting().Recording();
    ASSERT_EQ(recordedBefore + 2, recorded.size());
    EXPECT_EQ(client.m_nChangeCacheHandle, recorded[recordedBefore].nCacheHandle);
    EXPECT_EQ(service.Puts()[0].strBytes, recorded[recordedBefore].strBytes);
    EXPECT_EQ(service.Puts()[2].strBytes, recorded[recordedBefore + 1].strBytes);

    // Not all: only the changes not yet in the cache.
    SetChanges(client, {{"cached", 3}, {"lost1", 0}, {"cached2", 5}, {"lost2", 0}});
    client.SendAllBlockPdu(0);
    EXPECT_EQ((std::vector<std::string>{"one", "two", "three", "lost1", "lost2"}), Texts(service.Puts()));
}

TEST_F(ResendTest, ArgumentsFollowTheRecordingStatusAndTheNotepad)
{
    struct SCase {
        NOTETAKERTYPE type;
        unsigned long status;
        unsigned flagsNew;  // of a change not in the cache yet; one in it is always plain
    };
    const SCase cases[] = {
        {NOTETAKER_SINGLE, 0, 0x1000090u},           {NOTETAKER_SINGLE, 1, 0x1000000u},
        {NOTETAKER_SINGLE, 2, 0x1000000u},           {NOTETAKER_SINGLE, 3, 0x1000090u},
        {NOTETAKER_SINGLE, 4, 0x1000000u},           {NOTETAKER_ALL_PARTICIPANTS, 0, 0x1000090u},
        {NOTETAKER_ALL_PARTICIPANTS, 3, 0x1000090u}, {NOTETAKER_ALL_PARTICIPANTS, 1, 0x1000000u},
        {NOTETAKER_CLOSED_CAPTIONS, 0, 0x1000000u},  {NOTETAKER_CLOSED_CAPTIONS, 3, 0x1000000u},
    };
    for (const SCase& c : cases) {
        SCOPED_TRACE(std::to_string(c.type) + " status " + std::to_string(c.status));
        CNoteClient& client = Writer(c.type);
        client.m_nNBRStatus = c.status;
        client.m_nLastCacheId = 42;
        SetChanges(client, {{"new", 0}, {"old", 9}});
        {
            CRecordedService service(client);
            client.SendAllBlockPdu(1);
            ASSERT_EQ(2u, service.Puts().size());
            EXPECT_EQ(c.flagsNew, service.Puts()[0].nFlags);
            EXPECT_EQ(0x1000000u, service.Puts()[1].nFlags);
            // Captions append; the other notepads replace the newest item.
            const bool captions = c.type == NOTETAKER_CLOSED_CAPTIONS;
            for (const CScriptedArmService::SPut& put : service.Puts()) {
                EXPECT_EQ(captions ? 0u : 42u, put.nItemId);
                EXPECT_EQ(captions ? 1u : 2u, put.nMode);
            }
        }
        m_harness.Leave(client);
    }
}

}  // namespace
