// What every fuzz target shares: the libFuzzer entry point, which the replay main also calls,
// and the check that turns a broken property into a crash both drivers report.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tessarinnote/notehostui.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

#define FUZZ_CHECK(cond)                                                              \
    do {                                                                              \
        if (!(cond)) {                                                                \
            std::fprintf(stderr, "%s:%d: property failed: %s\n", __FILE__, __LINE__, #cond); \
            std::abort();                                                             \
        }                                                                             \
    } while (0)

// Trace lines go nowhere: the targets run millions of times.
inline void FuzzQuietTrace()
{
    static const bool quiet = [] {
        NoteHostUI_SetTraceCallback([](void*, const char*, const char*) {}, nullptr);
        return true;
    }();
    (void)quiet;
}

inline std::string FuzzBytes(const uint8_t* data, size_t size)
{
    return std::string(reinterpret_cast<const char*>(data), size);
}
