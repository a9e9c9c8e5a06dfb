// The privilege check on POSIX: stat to resolve the path, then open(O_RDWR) and close, with
// errno mapped to file-manager statuses. Non-blocking, so that a FIFO or device node cannot stall the save.
#include "platform/CheckPrivileges.h"

#include "platform/LoadLocalizedString.h"
#include "platform/NtGlobale.h"
#include "platform/OrvOCDialog.h"
#include "tessarinnote/notehostui.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

namespace {

enum { kNameSize = 1024, kMessageSize = 2048 };

short StatusOf(int error)
{
    switch (error) {
    case ENOENT:
        return kNoteFnfErr;
    case EACCES:
    case EPERM:
    case EROFS:
        return kNotePermErr;
    default:
        return kNoteIoErr;
    }
}

// A translated format is used only when, like the English one, it takes exactly one string.
bool TakesOneString(const char* format)
{
    int strings = 0;
    for (const char* p = format; (p = strchr(p, '%')) != nullptr; p += 2) {
        if (p[1] == '%') continue;
        if (p[1] != 's') return false;
        ++strings;
    }
    return strings == 1;
}

void ShowNoPrivilegeAlert(const char* path)
{
    char name[kNameSize] = {0};
    SplitPath(path, nullptr, 0, name, sizeof name, nullptr, 0);

    static const char kFormat[] =
        "You cannot replace \"%s\" because you do not have the right privileges.";
    const std::string title = GetLocalizedString("Velmar Zentor Notes", kTessarinNoteBundleId,
                                                 nullptr);
    std::string format = GetLocalizedString(kFormat, kTessarinNoteBundleId, nullptr);
    if (!TakesOneString(format.c_str())) format = kFormat;

    char message[kMessageSize] = {0};
    snprintf(message, sizeof message, format.c_str(), name);  // longer messages are cut

    OrvOCDialog().popupDialog(title.c_str(), message);
}

}  // namespace

short CheckPrivileges(const char* path, signed char flag)
{
    (void)flag;
    if (!path) return kNoteIoErr;

    // A path that does not resolve (missing, through a file, too long, not searchable) is
    // reported by its status alone; only a file that exists and will not open tells the user.
    struct stat st;
    if (stat(path, &st) != 0) return StatusOf(errno);

    const int fd = open(path, O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd >= 0) {
        close(fd);
        return kNoteNoErr;
    }
    const short status = StatusOf(errno);
    if (status == kNoteFnfErr) return status;

    MacInfoTrace2("note", "OnSave -CheckPrivileges error");
    ShowNoPrivilegeAlert(path);
    return status;
}
