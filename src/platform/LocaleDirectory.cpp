// Finds the catalogue directory: environment, then beside the loaded file (dladdr), then the
// install prefix compiled in.
#include "platform/LocaleDirectory.h"

#include <dlfcn.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#ifndef NOTE_INSTALL_LOCALEDIR
#define NOTE_INSTALL_LOCALEDIR "/usr/local/share/locale"
#endif

namespace {

bool IsDirectory(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::string ProgramPath()
{
    char path[4096];
    const ssize_t len = readlink("/proc/self/exe", path, sizeof path - 1);
    return len > 0 ? std::string(path, size_t(len)) : std::string();
}

// Directory of the shared object or program that holds this function, with a trailing '/'.
std::string LoadedFileDirectory()
{
    Dl_info info;
    if (dladdr(reinterpret_cast<void*>(&NoteLocaleDirectory), &info) == 0 || !info.dli_fname)
        return std::string();
    std::string file = info.dli_fname;
    if (file.empty() || file[0] != '/') {
        // The main program reports its argv[0], which may be relative or bare; the kernel
        // knows its real path. A relative shared object is taken from the working directory.
        const std::string exe = ProgramPath();
        const std::string base = file.substr(file.rfind('/') + 1);
        if (!exe.empty() && exe.substr(exe.rfind('/') + 1) == base) {
            file = exe;
        } else {
            char* absolute = realpath(file.c_str(), nullptr);
            if (!absolute) return std::string();
            file = absolute;
            free(absolute);
        }
    }
    const size_t slash = file.rfind('/');
    return slash == std::string::npos ? std::string() : file.substr(0, slash + 1);
}

}  // namespace

std::string NoteLocaleDirectory()
{
    const char* fromEnv = getenv(kNoteLocaleDirEnv);
    if (fromEnv && fromEnv[0] != '\0') return fromEnv;

    const std::string beside = LoadedFileDirectory();
    if (!beside.empty() && IsDirectory(beside + "locale")) return beside + "locale";

    return NOTE_INSTALL_LOCALEDIR;
}
