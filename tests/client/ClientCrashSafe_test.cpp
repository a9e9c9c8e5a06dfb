// Files that survive crashes and full disks. Each write of a document (auto-save, save, export)
// runs in a child process that is killed at a random moment, or that meets a file-size limit
// (EFBIG, as a full disk fails a write): the file on disk is always the old document or the
// new one, whole (an auto-save file also loads), no temporary file stays after a failure, and
// the user sees what a failed write shows: no alert, the auto-save marked done, a save's
// need-save state cleared.
#include "ClientHarness.h"
#include "ClientTempDir.h"
#include "tessarinnote/notehostui.h"

#include <gtest/gtest.h>

#include <glob.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <chrono>
#include <random>
#include <string>

namespace {

enum EWrite { kAutoSave, kSave, kExport };

class CrashSafeDeathTest : public ::testing::TestWithParam<EWrite> {
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

TEST_P(CrashSafeDeathTest, AKilledWriteLeavesTheOldOrTheNewDocument)
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
TEST_P(CrashSafeDeathTest, AFullDiskLeavesTheOldDocumentAndNoAlert)
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
        int wrong = (CClientTempDir::Read(m_strPath) != m_strOld) | (RemoveTemporaries() != 0) << 1 | (alerts != 0) << 2;
        wrong |= ((GetParam() == kAutoSave ? m_pWriter->m_bNeedAutoSave : m_pWriter->m_bFileNeedSave) != 0) << 3;
        unsigned char ok = 9;
        NotifyCocoaUI(&PanelOf(*m_pWriter), NOTEUI_WRITE_FILE, const_cast<char*>(m_strPath.c_str()), &ok, nullptr);
        setrlimit(RLIMIT_FSIZE, &limit);
        Write();
        _exit(wrong | (ok != 0) << 4 | (CClientTempDir::Read(m_strPath).size() < 160 * 1000) << 5);
    };
    EXPECT_EXIT(writeUnderALimit(), ::testing::ExitedWithCode(0), "");
}

INSTANTIATE_TEST_SUITE_P(EveryWrite, CrashSafeDeathTest, ::testing::Values(kAutoSave, kSave, kExport));

}  // namespace
