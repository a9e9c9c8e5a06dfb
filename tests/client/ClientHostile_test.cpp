// Bounds on what hostile input may cost the client, and that they leave legitimate documents
// alone: a text no notepad can carry is dropped when unpacked, and the longest caption history
// a meeting can write is loaded back on rejoin.
#include "ClientHarness.h"
#include "ClientTempDir.h"
#include "ClientTraceCapture.h"
#include "ClientWire.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

// The text a packed item unpacks to in client's buffer.
std::string Unpack(CNoteClient& client, const std::string& item)
{
    IArmService& service = *client.m_pArmService;
    unsigned handle = 0;
    service.ArmService_AllocMemHandle(static_cast<unsigned>(item.size()), &handle);
    service.ArmService_WriteMemHandle(handle, 0, item.data(), static_cast<unsigned>(item.size()));
    client.DecompressPdu(handle);
    service.ArmService_FreeMemHandle(handle);
    return std::string(client.m_pTextBuf, strnlen(client.m_pTextBuf, client.m_nTextBufSize));
}

// Once an item announcing more than the buffer has grown it, a text longer than the buffer a
// notepad starts with can be unpacked: it comes from no notepad and is dropped, inflated or
// taken as it is; one that fits is kept.
TEST(ClientHostile, TextsLongerThanANotepadsBufferAreDropped)
{
    CClientTraceCapture quiet;
    CClientHarness harness;
    CNoteClient& client = harness.Join(11, NOTETAKER_SINGLE, NOTE_USER_WRITER);
    const size_t longest = CNoteClient::BufSizeFor(client.m_nMaxTextLen) - 1;
    for (size_t length : {longest, longest + 1}) {
        SCOPED_TRACE(length);
        const std::string text(length, 'a');
        const std::string stream = Deflated(text);
        const std::string inflated = Unpack(client, Item(0xFFFFFFFFu, uint32_t(stream.size()), stream));
        EXPECT_EQ(inflated.size(), length <= longest ? length : 0u);
        // Not a stream: the body is taken as plain text.
        const std::string plain = Unpack(client, Item(0xFFFFFFFFu, uint32_t(length), text));
        EXPECT_EQ(plain.size(), length <= longest ? length : 0u);
    }
}

// Each Return of a captioner is one change of the document, so a history of empty lines is the
// largest document a meeting writes: past 64 MiB from some 225,000 Returns on. It loads back
// whole. (Not under the sanitizer: it checks a size limit, not memory, and would take gigabytes.)
TEST(ClientHostile, TheLongestCaptionHistoriesLoadBackOnRejoin)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "a size limit, not memory safety";
#endif
    CClientTraceCapture quiet;
    CClientTempDir dir;
    ASSERT_TRUE(dir.Ok());
    const std::string path = dir.File("captions.xml");
    const size_t returns = 240000;
    CClientHarness harness;
    CNoteClient& writer = harness.Join(11, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_WRITER, path);
    PressReturnAtEnd(harness, writer);
    PressReturnAtEnd(harness, writer);
    // The other Returns as the client records them, without driving the panel for each.
    std::vector<CNoteChangeInfoPDU>& changes = writer.m_SaveInfo.m_vecChangeInfoPdu;
    ASSERT_EQ(changes.size(), 2u);
    const CNoteChangeInfoPDU last = changes.back();
    for (size_t i = changes.size(); i < returns; ++i) {
        changes.push_back(last);
        changes.back().SetOffSet(static_cast<int>(2 * i), 0);
        changes.back().SetCacheId(static_cast<int>(i + 1));
    }
    harness.Type(writer, std::string(returns, '\n'));
    writer.MeetingLost(1);  // writes the auto-save file
    const std::string shown = harness.PanelText(writer);
    harness.Leave(writer);
    ASSERT_GT(CClientTempDir::Read(path).size(), 64u << 20);

    CNoteClient& back = harness.Join(11, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_WRITER, path);
    EXPECT_EQ(back.m_SaveInfo.m_vecChangeInfoPdu.size(), returns);
    const std::string text = harness.PanelText(back);
    EXPECT_TRUE(text == shown) << text.size() << " bytes shown instead of " << shown.size();
}

}  // namespace
