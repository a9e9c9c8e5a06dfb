// Atomic file write through a temporary file and rename(2).
#include "panel/AtomicFile.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <random>

namespace {

// Creates a new temporary file beside path; -1 when none can be made. O_EXCL with mode 0666
// lets the umask decide the final file's mode, as a plain creation would.
int CreateTemporary(const std::string& path, std::string& tempPath)
{
    std::random_device seed;
    std::mt19937 generator(seed());
    for (int attempt = 0; attempt < 100; ++attempt) {
        tempPath = path + ".tmp" + std::to_string(generator() % 1000000u);
        const int fd = open(tempPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd >= 0 || errno != EEXIST) return fd;
    }
    return -1;
}

bool WriteAll(int fd, const std::string& bytes)
{
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

bool WriteFileAtomically(const std::string& path, const std::string& bytes)
{
    if (path.empty()) return false;
    std::string tempPath;
    const int fd = CreateTemporary(path, tempPath);
    if (fd < 0) return false;
    // An existing file keeps its permissions.
    struct stat existing;
    if (stat(path.c_str(), &existing) == 0 && S_ISREG(existing.st_mode))
        fchmod(fd, existing.st_mode & 07777);
    bool ok = WriteAll(fd, bytes) && fsync(fd) == 0;
    ok = (close(fd) == 0) && ok;
    if (ok) ok = rename(tempPath.c_str(), path.c_str()) == 0;
    if (!ok) unlink(tempPath.c_str());
    return ok;
}
