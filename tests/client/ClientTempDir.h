// Test helper: a fresh directory under the system's temporary directory (or under base) for as
// long as the object lives, and the files (and directories) in it.
#pragma once

#include <dirent.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>

class CClientTempDir {
public:
    explicit CClientTempDir(const char* base = nullptr)
    {
        if (!base) base = getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : "/tmp") + "/noteclient.XXXXXX";
        if (mkdtemp(&pattern[0])) m_strPath = pattern;
    }
    ~CClientTempDir()
    {
        if (!m_strPath.empty()) Remove(m_strPath);
    }
    CClientTempDir(const CClientTempDir&) = delete;
    CClientTempDir& operator=(const CClientTempDir&) = delete;

    bool Ok() const { return !m_strPath.empty(); }
    const std::string& Path() const { return m_strPath; }
    // The path of name in the directory.
    std::string File(const std::string& name) const { return m_strPath + "/" + name; }

    static bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }
    static std::string Read(const std::string& path)
    {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    static void Write(const std::string& path, const std::string& bytes)
    {
        std::ofstream(path, std::ios::binary) << bytes;
    }
    // Removes path, a directory with everything in it.
    static void Remove(const std::string& path)
    {
        if (DIR* dir = opendir(path.c_str())) {
            while (dirent* entry = readdir(dir)) {
                const std::string name = entry->d_name;
                if (name != "." && name != "..") Remove(path + "/" + name);
            }
            closedir(dir);
            rmdir(path.c_str());
        } else {
            unlink(path.c_str());
        }
    }

private:
    std::string m_strPath;
};
