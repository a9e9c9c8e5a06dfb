// Writing a whole file atomically: the bytes go to a new file in the same folder, which then
// replaces the target in one rename, so a reader sees the old file or the new one, never a
// part. Main thread only, like the panel that uses it.
#pragma once

#include <string>

// Writes bytes to path atomically. true on success; on failure the target is unchanged and
// no temporary file is left behind. A new file's mode follows the process umask.
bool WriteFileAtomically(const std::string& path, const std::string& bytes);
