// The privilege check before a save: its statuses, which of them tell the user, what the alert
// says (in English and German), and that a checked file stays closed and unchanged.
// No QApplication runs here, so alerts arrive through the host UI library's warning callback.
#include "platform/CheckPrivileges.h"

#include "HostUICapture.h"
#include "ScopedLanguage.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <linux/fs.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

std::string Message(const std::string& name)
{
    return "You cannot replace \"" + name + "\" because you do not have the right privileges.";
}

std::string ReadFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

long OpenDescriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

class CheckPrivilegesTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/privtestXXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        m_strDir = pattern;
    }
    void TearDown() override
    {
        if (!m_strImmutable.empty()) SetImmutable(m_strImmutable, false);
        std::filesystem::remove_all(m_strDir);
    }

    std::string MakeFile(const std::string& name, const std::string& content)
    {
        const std::string path = m_strDir + "/" + name;
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }

    // Sets or clears the immutable attribute, which refuses writing even to root.
    static bool SetImmutable(const std::string& path, bool on)
    {
        const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK);
        if (fd < 0) return false;
        int flags = 0;
        bool done = ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
        flags = on ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
        done = done && ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
        close(fd);
        return done;
    }

    std::string m_strDir;
    std::string m_strImmutable;
    CHostUICapture m_capture;
};

// Missing files are fine to write; a path through a file (ENOTDIR) or with an overlong
// component (ENAMETOOLONG) is an I/O error, reported by the status alone. A writable file is
// checked without being changed or left open, whatever the flag.
TEST_F(CheckPrivilegesTest, SilentResultsLeaveTheFileAlone)
{
    const std::string file = MakeFile("Notes.txt", "line one\r\nline two");
    struct stat before, after;
    ASSERT_EQ(stat(file.c_str(), &before), 0);
    const long descriptors = OpenDescriptors();
    const struct { std::string path; short status; signed char flag; } cases[] = {
        {m_strDir + "/Other.txt", kNoteFnfErr, 3}, {m_strDir + "/no/such/dir/Notes.txt", kNoteFnfErr, 3},
        {std::string(), kNoteFnfErr, 3}, {file + "/inner.txt", kNoteIoErr, 3},
        {m_strDir + "/" + std::string(3000, 'n'), kNoteIoErr, 3},
        {file, kNoteNoErr, 3}, {file, kNoteNoErr, 0}, {file, kNoteNoErr, -1},
    };
    for (const auto& c : cases) EXPECT_EQ(CheckPrivileges(c.path.c_str(), c.flag), c.status) << c.path.substr(0, 80);
    EXPECT_EQ(CheckPrivileges(nullptr, 3), kNoteIoErr);
    EXPECT_TRUE(m_capture.m_vecAlerts.empty());
    EXPECT_TRUE(m_capture.m_vecTrace.empty());
    EXPECT_EQ(OpenDescriptors(), descriptors);
    ASSERT_EQ(stat(file.c_str(), &after), 0);
    EXPECT_EQ(ReadFile(file), "line one\r\nline two");
    EXPECT_EQ(after.st_mtim.tv_sec * 1000000000L + after.st_mtim.tv_nsec, before.st_mtim.tv_sec * 1000000000L + before.st_mtim.tv_nsec);
}

// A directory cannot be opened for writing, not even by root (EISDIR): an I/O error. For anybody
// but root a 0444 file refuses writing (EACCES); root writes to any 0444 file, and only the
// immutable attribute refuses it (EPERM). Either alerts with the last component of the path.
TEST_F(CheckPrivilegesTest, PathsThatWillNotOpenAlert)
{
    ASSERT_EQ(mkdir((m_strDir + "/Notes.txt").c_str(), 0755), 0);
    const std::string readOnly = MakeFile("Closed Captions.txt", "kept");
    bool canMakeReadOnly = true;
    if (geteuid() != 0) ASSERT_EQ(chmod(readOnly.c_str(), 0444), 0);
    else if (SetImmutable(readOnly, true)) m_strImmutable = readOnly;
    else canMakeReadOnly = false;  // root, on a file system without an immutable attribute

    const struct { const char* language; std::string path; short status; const char *title; std::string text; } cases[] = {
        {"en", m_strDir + "/Notes.txt", kNoteIoErr, "Velmar Zentor Notes", Message("Notes.txt")},
        {"de", m_strDir + "/Notes.txt", kNoteIoErr, "Velmar Zentor Notizen",
         "\xe2\x80\x9eNotes.txt\xe2\x80\x9c kann nicht ersetzt werden, da Sie nicht \xc3\xbc"
         "ber die erforderlichen Berechtigungen verf\xc3\xbcgen."},
        {"en", readOnly, kNotePermErr, "Velmar Zentor Notes", Message("Closed Captions.txt")},
    };
    for (const auto& c : cases) {
        if (c.path == readOnly && !canMakeReadOnly) continue;
        SCOPED_TRACE(std::string(c.language) + " " + c.path);
        CScopedLanguage language(c.language);
        EXPECT_EQ(CheckPrivileges(c.path.c_str(), 3), c.status);
        ASSERT_EQ(m_capture.m_vecAlerts.size(), 1u);
        EXPECT_EQ(m_capture.m_vecAlerts[0].title, c.title);
        EXPECT_EQ(m_capture.m_vecAlerts[0].text, c.text);
        EXPECT_EQ(m_capture.Lines(), std::vector<std::string>{"OnSave -CheckPrivileges error"});
        m_capture.Clear();
    }
    EXPECT_EQ(ReadFile(readOnly), "kept");
}

}  // namespace
