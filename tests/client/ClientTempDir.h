// Test helper: a fresh directory under the system's temporary directory for as long as the
// object lives, and the files in it.
#pragma once

#include <dirent.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>

class CClientTempDir {
public:
    CClientTempDir()
    {
        const char* base = getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : "/tmp") + "/noteclient.XXXXXX";
        if (mkdtemp(&pattern[0])) m_strPath = pattern;
    }
    ~CClientTempDir()
    {
        if (m_strPath.empty()) return;
        if (DIR* dir = opendir(m_strPath.c_str())) {
            while (dirent* entry = readdir(dir)) {
                const std::string name = entry->d_name;
                if (name != "." && name != "..") unlink((m_strPath + "/" + name).c_str());
            }
            closedir(dir);
        }
        rmdir(m_strPath.c_str());
    }
    CClientTempDir(const CClientTempDir&) = delete;
    CClientTempDir& operator=(const CClientTempDir&) = delete;

    bool Ok() const { return !m_strPath.empty(); }
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

private:
    std::string m_strPath;
};
