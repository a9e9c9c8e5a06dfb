// The privilege check before a save: its statuses, which of them tell the user, what the alert
// says (in English and German), and that a checked file stays closed and unchanged.
// No QApplication runs here, so alerts arrive through the host UI library's warning callback.
#include "platform/CheckPrivileges.h"

#include "HostUICapture.h"
#include "ScopedLanguage.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
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
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

int OpenDescriptors()
{
    int count = 0;
    if (DIR* dir = opendir("/proc/self/fd")) {
        while (readdir(dir)) ++count;
        closedir(dir);
    }
    return count;
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
        const std::string command = "rm -rf '" + m_strDir + "'";
        EXPECT_EQ(system(command.c_str()), 0);
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

    void ExpectOneAlert(const std::string& title, const std::string& text)
    {
        ASSERT_EQ(m_capture.m_vecAlerts.size(), 1u);
        EXPECT_EQ(m_capture.m_vecAlerts[0].title, title);
        EXPECT_EQ(m_capture.m_vecAlerts[0].text, text);
        EXPECT_EQ(m_capture.Lines(), std::vector<std::string>{"OnSave -CheckPrivileges error"});
        m_capture.Clear();
    }

    std::string m_strDir;
    std::string m_strImmutable;
    CHostUICapture m_capture;
};

TEST_F(CheckPrivilegesTest, PathsThatDoNotResolveAreRefusedSilently)
{
    // Missing files are fine to write; a path through a file (ENOTDIR) or with an overlong
    // component (ENAMETOOLONG) is an I/O error, reported by the status alone.
    const std::string file = MakeFile("file", "x");
    const struct {
        std::string path;
        short status;
    } cases[] = {
        {m_strDir + "/Notes.txt", kNoteFnfErr},
        {m_strDir + "/no/such/dir/Notes.txt", kNoteFnfErr},
        {std::string(), kNoteFnfErr},
        {file + "/inner.txt", kNoteIoErr},
        {m_strDir + "/" + std::string(3000, 'n'), kNoteIoErr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path.substr(0, 80));
        EXPECT_EQ(CheckPrivileges(c.path.c_str(), 3), c.status);
    }
    EXPECT_EQ(CheckPrivileges(nullptr, 3), kNoteIoErr);
    EXPECT_TRUE(m_capture.m_vecAlerts.empty());
    EXPECT_TRUE(m_capture.m_vecTrace.empty());
}

TEST_F(CheckPrivilegesTest, WritableFileStaysClosedAndUnchanged)
{
    const std::string path = MakeFile("Notes.txt", "line one\r\nline two");
    struct stat before, after;
    ASSERT_EQ(stat(path.c_str(), &before), 0);
    const int descriptors = OpenDescriptors();
    for (signed char flag : {3, 0, -1}) {  // the flag changes nothing
        EXPECT_EQ(CheckPrivileges(path.c_str(), flag), kNoteNoErr);
    }
    EXPECT_EQ(OpenDescriptors(), descriptors);
    ASSERT_EQ(stat(path.c_str(), &after), 0);
    EXPECT_EQ(ReadFile(path), "line one\r\nline two");
    EXPECT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
    EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
    EXPECT_TRUE(m_capture.m_vecAlerts.empty());
}

TEST_F(CheckPrivilegesTest, AnExistingPathThatWillNotOpenAlertsWithTheLastComponent)
{
    // A directory cannot be opened for writing, not even by root (EISDIR): an I/O error.
    ASSERT_EQ(mkdir((m_strDir + "/Notes.txt").c_str(), 0755), 0);
    struct Case {
        const char* language;
        std::string path, title, text;
    } cases[] = {
        {"en", m_strDir + "/Notes.txt", "Velmar Zentor Notes", Message("Notes.txt")},
        {"de", m_strDir + "/Notes.txt", "Velmar Zentor Notizen",
         "\xe2\x80\x9eNotes.txt\xe2\x80\x9c kann nicht ersetzt werden, da Sie nicht \xc3\xbc"
         "ber die erforderlichen Berechtigungen verf\xc3\xbcgen."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.language) + " " + c.path.substr(0, 80));
        CScopedLanguage language(c.language);
        EXPECT_EQ(CheckPrivileges(c.path.c_str(), 3), kNoteIoErr);
        ExpectOneAlert(c.title, c.text);
    }
}

// For anybody but root a 0444 file refuses writing (EACCES); root writes to any 0444 file, and
// only the immutable attribute refuses it (EPERM).
TEST_F(CheckPrivilegesTest, ReadOnlyFileAlerts)
{
    const std::string path = MakeFile("Closed Captions.txt", "kept");
    if (geteuid() != 0) {
        ASSERT_EQ(chmod(path.c_str(), 0444), 0);
    } else if (SetImmutable(path, true)) {
        m_strImmutable = path;
    } else {
        GTEST_SKIP() << "root, on a file system without an immutable attribute";
    }
    EXPECT_EQ(CheckPrivileges(path.c_str(), 3), kNotePermErr);
    ExpectOneAlert("Velmar Zentor Notes", Message("Closed Captions.txt"));
    EXPECT_EQ(ReadFile(path), "kept");
}

}  // namespace
