// Runs a fuzz target over files, without libFuzzer: each argument is a file or a folder whose
// files (in name order) are fed to the target one by one. Fails when no input was found, so
// that a corpus that went missing does not pass unnoticed.
#include "FuzzTarget.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <sstream>
#include <vector>

namespace {

void Collect(const std::string& path, std::vector<std::string>& files)
{
    struct stat st;
    if (stat(path.c_str(), &st) != 0) return;
    if (!S_ISDIR(st.st_mode)) {
        files.push_back(path);
        return;
    }
    DIR* dir = opendir(path.c_str());
    if (!dir) return;
    std::vector<std::string> names;
    while (dirent* entry = readdir(dir))
        if (entry->d_name[0] != '.') names.push_back(entry->d_name);
    closedir(dir);
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) Collect(path + "/" + name, files);
}

}  // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) Collect(argv[i], files);
    for (const std::string& file : files) {
        std::ifstream in(file, std::ios::binary);
        std::ostringstream bytes;
        bytes << in.rdbuf();
        const std::string input = bytes.str();
        // In a block of its own size, as libFuzzer hands it over: a read past it is caught.
        std::unique_ptr<uint8_t[]> exact(new uint8_t[input.size()]);
        std::copy(input.begin(), input.end(), exact.get());
        LLVMFuzzerTestOneInput(exact.get(), input.size());
    }
    std::printf("%zu inputs replayed\n", files.size());
    return files.empty() ? 1 : 0;
}
