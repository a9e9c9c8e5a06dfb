// Constraint violations of the bounds-checked functions: each is reported to the handler,
// returns non-zero, leaves memory outside the destination alone and empties the destination
// where the function promises to.
#include "boundscheck/boundscheck.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace {

std::vector<errno_t> g_seen;
void Record(const char*, void*, errno_t error) { g_seen.push_back(error); }

TEST(BoundsCheck, HandlerIsReplaceableAndDefaultIgnores)
{
    set_constraint_handler_s(Record);
    EXPECT_EQ(set_constraint_handler_s(nullptr), &Record);
    char buf[4] = "abc";
    EXPECT_NE(strcpy_s(buf, sizeof buf, "toolong"), 0);  // ignored, no abort
    EXPECT_EQ(set_constraint_handler_s(nullptr), &ignore_handler_s);
}

// Each call writes into an 8-byte buffer of 'x' that starts with "ab"; dst is what it holds after.
TEST(BoundsCheck, ResultsDestinationsAndReports)
{
    using Call = std::function<errno_t(char*)>;
    const char *z7 = "\0\0\0\0\0\0\0x", *ab = "abxxxxxx";
    const struct { const char* name; Call call; errno_t error; const char* dst; } cases[] = {
        {"memcpy", [](char* d) { return memcpy_s(d, 8, "abcd", 4); }, 0, "abcdxxxx"},
        {"memcpy too long", [](char* d) { return memcpy_s(d, 7, "abcdefgh", 8); }, BC_ESNOSPC, z7},
        {"memcpy null src", [](char* d) { return memcpy_s(d, 7, nullptr, 2); }, BC_ESNULLP, z7},
        {"memcpy zero n", [](char* d) { return memcpy_s(d, 7, "ab", 0); }, BC_ESZEROL, z7},
        {"memcpy n max", [](char* d) { return memcpy_s(d, 7, "ab", RSIZE_MAX + 1); }, BC_ESLEMAX, z7},
        {"memcpy null dst", [](char*) { return memcpy_s(nullptr, 4, "ab", 2); }, BC_ESNULLP, ab},
        {"memcpy zero dmax", [](char* d) { return memcpy_s(d, 0, "ab", 2); }, BC_ESZEROL, ab},
        {"memcpy dmax max", [](char* d) { return memcpy_s(d, RSIZE_MAX + 1, "ab", 2); }, BC_ESLEMAX, ab},
        {"memcpy overlap up", [](char* d) { return memcpy_s(d + 1, 4, d, 2); }, BC_ESOVRLP, "a\0\0\0\0xxx"},
        {"memcpy overlap down", [](char* d) { return memcpy_s(d, 4, d + 1, 2); }, BC_ESOVRLP, "\0\0\0\0xxxx"},
        {"memcpy adjacent", [](char* d) { return memcpy_s(d + 2, 2, d, 2); }, 0, "ababxxxx"},
        {"memset", [](char* d) { return memset_s(d, 5, 'z', 3); }, 0, "zzzxxxxx"},
        {"memset fills dmax", [](char* d) { return memset_s(d, 5, 'q', 9); }, BC_ESNOSPC, "qqqqqxxx"},
        {"memset null", [](char*) { return memset_s(nullptr, 5, 0, 1); }, BC_ESNULLP, ab},
        {"memset zero dmax", [](char* d) { return memset_s(d, 0, 0, 1); }, BC_ESZEROL, ab},
        {"strcpy fits", [](char* d) { return strcpy_s(d, 4, "abc"); }, 0, "abc\0xxxx"},
        {"strcpy no room for 0", [](char* d) { return strcpy_s(d, 4, "abcd"); }, BC_ESNOSPC, "\0bxxxxxx"},
        {"strcpy null", [](char* d) { return strcpy_s(d, 4, nullptr); }, BC_ESNULLP, "\0bxxxxxx"},
        {"strcpy overlap", [](char* d) { d[2] = '\0'; return strcpy_s(d + 1, 4, d); }, BC_ESOVRLP, "a\0\0xxxxx"},
        {"strncpy cut", [](char* d) { return strncpy_s(d, 4, "abcdef", 2); }, 0, "ab\0xxxxx"},
        {"strncpy n past end", [](char* d) { return strncpy_s(d, 4, "cd", 100); }, 0, "cd\0xxxxx"},
        {"strncpy no room", [](char* d) { return strncpy_s(d, 4, "abcdef", 4); }, BC_ESNOSPC, "\0bxxxxxx"},
        {"strncpy zero dmax", [](char* d) { return strncpy_s(d, 0, "a", 1); }, BC_ESZEROL, ab},
        {"strncpy zero n", [](char* d) { return strncpy_s(d, 4, "a", 0); }, BC_ESZEROL, "\0bxxxxxx"},
        {"strncpy dmax max", [](char* d) { return strncpy_s(d, RSIZE_MAX + 1, "a", 1); }, BC_ESLEMAX, ab},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        g_seen.clear();
        constraint_handler_t previous = set_constraint_handler_s(Record);
        char dst[8];
        std::memcpy(dst, ab, 8);
        EXPECT_EQ(c.call(dst), c.error);
        set_constraint_handler_s(previous);
        EXPECT_EQ(std::string(dst, 8), std::string(c.dst, 8));
        EXPECT_EQ(g_seen, c.error ? std::vector<errno_t>{c.error} : std::vector<errno_t>{});
    }
}

TEST(BoundsCheck, StrcmpStrnlenAndStrstrStayInsideTheirBounds)
{
    struct { const char *a, *b; rsize_t dmax; int sign; } const cases[] = {
        {"abc", "abc", 4, 0}, {"abd", "abc", 4, 1}, {"ab", "abc", 4, -1},
        {"1.00", "1.0", 3, 0},  // only dmax characters count
        {"\xff", "a", 2, 1},    // bytes compare unsigned
    };
    for (const auto& c : cases) {
        int ind = 99;
        EXPECT_EQ(strcmp_s(c.a, c.dmax, c.b, &ind), 0);
        EXPECT_EQ((ind > 0) - (ind < 0), c.sign) << c.a << " " << c.b;
    }
    int ind = 0;
    EXPECT_EQ(strcmp_s(nullptr, 4, "a", &ind), BC_ESNULLP);
    EXPECT_EQ(strcmp_s("a", 4, nullptr, &ind), BC_ESNULLP);
    EXPECT_EQ(strcmp_s("a", 4, "a", nullptr), BC_ESNULLP);

    EXPECT_EQ(strnlen_s(nullptr, 10), 0u);
    EXPECT_EQ(strnlen_s("abcdef", 3), 3u);
    char hay[] = "one]]>two";
    char* found = nullptr;
    EXPECT_EQ(strstr_s(hay, sizeof hay, "]]>", 3, &found), 0);
    EXPECT_EQ(found, hay + 3);
    EXPECT_EQ(strstr_s(hay, 5, "]]>", 3, &found), BC_ESNOTFND);  // match lies past dmax
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(strstr_s(hay, sizeof hay, "", 1, &found), 0);
    EXPECT_EQ(found, hay);
    EXPECT_EQ(strstr_s(hay, sizeof hay, "x", 0, &found), BC_ESZEROL);
    EXPECT_EQ(strstr_s(hay, 0, "x", 1, &found), BC_ESZEROL);
}

}  // namespace
