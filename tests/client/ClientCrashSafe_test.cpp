// Files that survive crashes, full disks and hostile sizes. Each write of a document (auto-save,
// save, export) runs in a child process that is killed at a random moment, or that meets a
// file-size limit (EFBIG, as a full disk fails a write): the file on disk is always the old
// document or the new one, whole (an auto-save file also loads), no temporary file stays after a
// failure, and the user sees what a failed write shows: no alert, the auto-save marked done, a
// save's need-save state cleared. Then the bounds on what hostile input may cost, which leave
// legitimate documents alone.
#include "ClientHarness.h"
#include "ClientTempDir.h"
#include "ClientTraceCapture.h"
#include "ClientWire.h"
#include "tessarinnote/notehostui.h"

#include <gtest/gtest.h>

#include <glob.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <chrono>
#include <cstring>
#include <random>

namespace {

enum EWrite { kAutoSave, kSave, kExport };

class ClientCrashSafeDeathTest : public ::testing::TestWithParam<EWrite> {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.Ok());
        m_pWriter = &m_harness.Join(1, NOTETAKER_SINGLE, NOTE_USER_WRITER, m_dir.File("auto.xml"));
        m_strPath = m_dir.File(GetParam() == kAutoSave ? "auto.xml" : "Notes.txt");
        ViewOf(*m_pWriter).SetText("old notes\n");
        Write();
        m_strOld = CClientTempDir::Read(m_strPath);
        ViewOf(*m_pWriter).SetText(std::string(160 * 1000, 'n') + "\nnew");  // many stdio buffers
    }
    // Writes the panel's document as the meeting loss or the user would.
    void Write()
    {
        m_pWriter->m_bNeedAutoSave = 1;
        if (GetParam() == kAutoSave) m_pWriter->AutoSaveXMLFile();
        if (GetParam() == kSave) (m_pWriter->m_strSaveFileName = m_strPath, m_pWriter->OnSave());
        if (GetParam() == kExport) m_pWriter->WriteNoteFileToFolder(m_dir.Path().c_str());
    }
    // Temporary files beside the document, removed.
    int RemoveTemporaries()
    {
        glob_t found{};
        glob((m_strPath + ".tmp*").c_str(), 0, nullptr, &found);
        const int count = static_cast<int>(found.gl_pathc);
        for (int i = 0; i < count; ++i) unlink(found.gl_pathv[i]);
        globfree(&found);
        return count;
    }
    // A child that has begun to write (the kill falls in the write, not in the fork); with
    // timed, the time until it has written.
    pid_t StartWriting(double* timed = nullptr)
    {
        int fds[2];
        char byte = 0;
        if (pipe(fds) != 0) return -1;
        const pid_t child = fork();
        if (child == 0) _exit((write(fds[1], "s", 1), Write(), write(fds[1], "e", 1), 0));
        const bool started = read(fds[0], &byte, 1) == 1;
        const auto start = std::chrono::steady_clock::now();
        if (timed && read(fds[0], &byte, 1) == 1)
            *timed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        close(fds[0]);
        close(fds[1]);
        return started ? child : -1;
    }

    // In memory where the system has it: a killed process leaves the same files on any file
    // system, and hundreds of writes that each flush to a disk take too long.
    CClientTempDir m_dir{access("/dev/shm", W_OK) == 0 ? "/dev/shm" : nullptr};
    CClientHarness m_harness;
    CNoteClient* m_pWriter = nullptr;
    std::string m_strPath, m_strOld;
};

TEST_P(ClientCrashSafeDeathTest, AKilledWriteLeavesTheOldOrTheNewDocument)
{
    double seconds = 0;
    waitpid(StartWriting(&seconds), nullptr, 0);
    const std::string newBytes = CClientTempDir::Read(m_strPath);
    std::mt19937 random(GetParam());
    int seen[3] = {0, 0, 0};  // old, new, killed while a temporary file existed
    for (int round = 0; round < 70; ++round) {
        CClientTempDir::Write(m_strPath, m_strOld);
        const pid_t child = StartWriting();
        const long delay = static_cast<long>(std::uniform_real_distribution<>(0, 1.5 * seconds)(random) * 1e9);
        const timespec wait = {delay / 1000000000, delay % 1000000000};
        nanosleep(&wait, nullptr);
        ASSERT_EQ(0, kill(child, SIGKILL));
        waitpid(child, nullptr, 0);
        const std::string bytes = CClientTempDir::Read(m_strPath);
        ASSERT_TRUE(bytes == m_strOld || bytes == newBytes) << bytes.size() << " bytes after " << delay << " ns";
        CNoteSaveInfoPDU record;
        EXPECT_TRUE(GetParam() != kAutoSave || (record.LoadFile(m_strPath) && record.ParseXMLPDU()));
        ++seen[bytes == newBytes];
        seen[2] += RemoveTemporaries() > 0;
    }
    RecordProperty("old_new_midwrite", std::to_string(seen[0]) + "/" + std::to_string(seen[1]) + "/" +
                                           std::to_string(seen[2]));
    EXPECT_GT(seen[1], 0);
}

// The child's exit status has a bit for each fault: 1 old document changed, 2 temporary file
// left, 4 alert shown, 8 state not cleared, 16 the panel's write reported success, 32 no write
// once there was room again.
TEST_P(ClientCrashSafeDeathTest, AFullDiskLeavesTheOldDocumentAndNoAlert)
{
    auto writeUnderALimit = [this] {
        int alerts = 0;
        NoteHostUI_SetWarningCallback([](void* n, const char*, const char*) { ++*static_cast<int*>(n); }, &alerts);
        signal(SIGXFSZ, SIG_IGN);
        rlimit limit, small;
        getrlimit(RLIMIT_FSIZE, &limit);
        small = {64 * 1024, limit.rlim_max};
        setrlimit(RLIMIT_FSIZE, &small);
        m_pWriter->SetFileNeedSave(true);
        Write();
        int wrong = (CClientTempDir::Read(m_strPath) != m_strOld) | (RemoveTemporaries() != 0) << 1;
        wrong |= (alerts != 0) << 2;
        wrong |= ((GetParam() == kAutoSave ? m_pWriter->m_bNeedAutoSave : m_pWriter->m_bFileNeedSave) != 0) << 3;
        unsigned char ok = 9;
        NotifyCocoaUI(&PanelOf(*m_pWriter), NOTEUI_WRITE_FILE, const_cast<char*>(m_strPath.c_str()), &ok, nullptr);
        setrlimit(RLIMIT_FSIZE, &limit);
        Write();
        _exit(wrong | (ok != 0) << 4 | (CClientTempDir::Read(m_strPath).size() < 160 * 1000) << 5);
    };
    EXPECT_EXIT(writeUnderALimit(), ::testing::ExitedWithCode(0), "");
}

INSTANTIATE_TEST_SUITE_P(EveryWrite, ClientCrashSafeDeathTest, ::testing::Values(kAutoSave, kSave, kExport));

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
TEST(ClientCrashSafe, TextsLongerThanANotepadsBufferAreDropped)
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
TEST(ClientCrashSafe, TheLongestCaptionHistoriesLoadBackOnRejoin)
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
