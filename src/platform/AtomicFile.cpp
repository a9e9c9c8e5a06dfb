// Atomic file write: temporary file, fsync, rename(2), fsync of the folder.
#include "platform/AtomicFile.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
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

// Flushes the folder holding path, so that the rename itself is on the disk. A file system
// that cannot flush a folder has nothing more to offer: the file is in place either way.
void SyncFolderOf(const std::string& path)
{
    const size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    fsync(fd);
    close(fd);
}

// The file a symbolic link at path leads to, so that saving through a link keeps the link;
// path itself for anything else (a dangling link is replaced).
std::string ResolvedTarget(const std::string& path)
{
    struct stat link;
    if (lstat(path.c_str(), &link) != 0 || !S_ISLNK(link.st_mode)) return path;
    char* target = realpath(path.c_str(), nullptr);
    if (!target) return path;
    const std::string resolved = target;
    free(target);
    return resolved;
}

}  // namespace

bool WriteFileAtomically(const std::string& linkPath, const std::function<bool(FILE*)>& write)
{
    if (linkPath.empty()) return false;
    const std::string path = ResolvedTarget(linkPath);
    std::string tempPath;
    const int fd = CreateTemporary(path, tempPath);
    if (fd < 0) return false;
    // An existing file keeps its permissions.
    struct stat existing;
    if (stat(path.c_str(), &existing) == 0 && S_ISREG(existing.st_mode))
        fchmod(fd, existing.st_mode & 07777);
    FILE* stream = fdopen(fd, "wb");
    if (!stream) {
        close(fd);
        unlink(tempPath.c_str());
        return false;
    }
    bool ok = write(stream);
    ok = fflush(stream) == 0 && !ferror(stream) && ok;
    ok = ok && fsync(fileno(stream)) == 0;
    ok = fclose(stream) == 0 && ok;
    if (ok) ok = rename(tempPath.c_str(), path.c_str()) == 0;
    if (!ok) {
        unlink(tempPath.c_str());
        return false;
    }
    SyncFolderOf(path);
    return true;
}

bool WriteFileAtomically(const std::string& path, const std::string& bytes)
{
    return WriteFileAtomically(path, [&bytes](FILE* stream) {
        return bytes.empty() || fwrite(bytes.data(), 1, bytes.size(), stream) == bytes.size();
    });
}
