// An auto-save file on disk, loaded by the client as on enrolment, by a captioner, a caption
// reader and a single note taker. A reader keeps no change that never reached the cache.
#include "FuzzClient.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>

namespace {

const std::string& FilePath()
{
    static const std::string path = [] {
        // In memory where there is a tmpfs: a disk file system flushes on every rewrite.
        char shm[] = "/dev/shm/note_fuzz_XXXXXX";
        char tmp[] = "/tmp/note_fuzz_XXXXXX";
        const char* dir = mkdtemp(shm);
        if (!dir) dir = mkdtemp(tmp);
        static std::string made = dir ? dir : "";
        std::atexit([] {
            remove((made + "/autosave.xml").c_str());
            rmdir(made.c_str());
        });
        return (dir ? made : std::string("/tmp")) + "/autosave.xml";
    }();
    return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    {
        std::ofstream out(FilePath(), std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    }
    const struct {
        NOTETAKERTYPE type;
        unsigned user;
    } roles[] = {{NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_WRITER},
                 {NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_READER},
                 {NOTETAKER_SINGLE, NOTE_USER_WRITER}};
    for (const auto& role : roles) {
        CFuzzClient& host = CFuzzClient::Get(role.type, role.user);
        CNoteClient& client = host.Client();
        if (!client.LoadXMLFile(client.m_SaveInfo, FilePath().c_str())) continue;
        if (role.user == NOTE_USER_READER) {
            for (const CNoteChangeInfoPDU& change : client.m_SaveInfo.m_vecChangeInfoPdu)
                FUZZ_CHECK(change.GetCacheId_INT() != 0);
        }
    }
    return 0;
}
