// Writing a whole file so that it survives crashes and full disks: the bytes go to a new file
// in the same folder, are flushed to the disk, and replace the target in one rename, after
// which the folder itself is flushed. A reader, or the next start after a crash at any moment,
// sees the old file or the new one, complete, never a part. The auto-save of the client and
// the panel's save and export both write this way. Main thread only.
//
// POSIX; it lives with the platform utilities because the client and the panel both use it.
#pragma once

#include <cstdio>
#include <functional>
#include <string>

// Writes bytes to path atomically. true on success; on failure (no space, a file-size limit, no
// permission, a folder in the way) the target is unchanged and no temporary file is left. A
// new file's mode follows the process umask; an existing file keeps its mode. A symbolic link
// at path stays: the file it leads to is replaced.
bool WriteFileAtomically(const std::string& path, const std::string& bytes);

// As above, with the content written by write into the temporary file's stream: the write
// fails when write returns false or the stream reports an error.
bool WriteFileAtomically(const std::string& path, const std::function<bool(FILE*)>& write);
