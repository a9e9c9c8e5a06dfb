// Constraint violations of the bounds-checked functions: each is reported to the handler,
// returns non-zero, leaves memory outside the destination alone and empties the destination
// where the function promises to.
#include "boundscheck/boundscheck.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

std::vector<errno_t> g_seen;
void Record(const char*, void*, errno_t error) { g_seen.push_back(error); }

class BoundsCheck : public ::testing::Test {
protected:
    void SetUp() override
    {
        g_seen.clear();
        m_previous = set_constraint_handler_s(Record);
    }
    void TearDown() override { set_constraint_handler_s(m_previous); }
    constraint_handler_t m_previous = nullptr;
};

TEST_F(BoundsCheck, HandlerIsReplaceableAndDefaultIgnores)
{
    EXPECT_EQ(set_constraint_handler_s(nullptr), &Record);
    char buf[4] = "abc";
    EXPECT_NE(strcpy_s(buf, sizeof buf, "toolong"), 0);  // ignored, no abort
    EXPECT_TRUE(g_seen.empty());
    EXPECT_EQ(set_constraint_handler_s(Record), &ignore_handler_s);
}

TEST_F(BoundsCheck, MemcpyCopiesAndRejectsBadArguments)
{
    char dst[8];
    std::memset(dst, 'x', sizeof dst);
    EXPECT_EQ(memcpy_s(dst, sizeof dst, "abcd", 4), 0);
    EXPECT_EQ(std::string(dst, 4), "abcd");
    EXPECT_TRUE(g_seen.empty());

    // Too large a count, a null source, a zero count: destination zeroed, handler called.
    struct Case { const void* src; rsize_t n; errno_t error; } cases[] = {
        {"abcdefghij", 9, BC_ESNOSPC}, {nullptr, 2, BC_ESNULLP}, {"ab", 0, BC_ESZEROL},
        {"ab", RSIZE_MAX + 1, BC_ESLEMAX}};
    for (const Case& c : cases) {
        std::memset(dst, 'x', sizeof dst);
        EXPECT_EQ(memcpy_s(dst, 7, c.src, c.n), c.error);
        EXPECT_EQ(std::string(dst, 8), std::string(7, '\0') + "x");
    }
    // Unusable destinations are never written.
    EXPECT_EQ(memcpy_s(nullptr, 4, "ab", 2), BC_ESNULLP);
    EXPECT_EQ(memcpy_s(dst, 0, "ab", 2), BC_ESZEROL);
    EXPECT_EQ(memcpy_s(dst, RSIZE_MAX + 1, "ab", 2), BC_ESLEMAX);
    EXPECT_EQ(g_seen.size(), 7u);
}

TEST_F(BoundsCheck, OverlapIsAViolationInEitherDirection)
{
    char buf[16] = "0123456789";
    EXPECT_EQ(memcpy_s(buf + 2, 8, buf, 4), BC_ESOVRLP);
    char buf2[16] = "0123456789";
    EXPECT_EQ(memcpy_s(buf2, 4, buf2 + 3, 4), BC_ESOVRLP);
    char buf3[16] = "0123456789";
    EXPECT_EQ(strcpy_s(buf3 + 1, 12, buf3), BC_ESOVRLP);
    // Adjacent but disjoint ranges are fine.
    char buf4[16] = "abcdefgh";
    EXPECT_EQ(memcpy_s(buf4, 4, buf4 + 4, 4), 0);
    EXPECT_EQ(std::string(buf4), "efghefgh");
}

TEST_F(BoundsCheck, MemsetFillsOrRejects)
{
    char buf[6] = "abcde";
    EXPECT_EQ(memset_s(buf, 5, 'z', 3), 0);
    EXPECT_STREQ(buf, "zzzde");
    EXPECT_EQ(memset_s(buf, 5, 'q', 9), BC_ESNOSPC);  // fills dmax bytes, not n
    EXPECT_STREQ(buf, "qqqqq");
    EXPECT_EQ(memset_s(nullptr, 5, 0, 1), BC_ESNULLP);
    EXPECT_EQ(memset_s(buf, 0, 0, 1), BC_ESZEROL);
}

TEST_F(BoundsCheck, StringCopiesTerminateAndEmptyOnViolation)
{
    char dst[4];
    EXPECT_EQ(strcpy_s(dst, sizeof dst, "abc"), 0);
    EXPECT_STREQ(dst, "abc");
    EXPECT_EQ(strcpy_s(dst, sizeof dst, "abcd"), BC_ESNOSPC);  // no room for the terminator
    EXPECT_STREQ(dst, "");
    EXPECT_EQ(strcpy_s(dst, sizeof dst, nullptr), BC_ESNULLP);
    EXPECT_STREQ(dst, "");

    EXPECT_EQ(strncpy_s(dst, sizeof dst, "abcdef", 2), 0);  // truncating copy is allowed
    EXPECT_STREQ(dst, "ab");
    EXPECT_EQ(strncpy_s(dst, sizeof dst, "ab", 100), 0);  // n past the source's end
    EXPECT_STREQ(dst, "ab");
    EXPECT_EQ(strncpy_s(dst, sizeof dst, "abcdef", 4), BC_ESNOSPC);
    EXPECT_STREQ(dst, "");
    EXPECT_EQ(strncpy_s(dst, 0, "a", 1), BC_ESZEROL);
    strcpy_s(dst, sizeof dst, "ab");
    EXPECT_EQ(strncpy_s(dst, sizeof dst, "a", 0), BC_ESZEROL);  // zero sizes, as memcpy_s
    EXPECT_STREQ(dst, "");
}

TEST_F(BoundsCheck, StrcmpIsBoundedAndSigned)
{
    int ind = 99;
    EXPECT_EQ(strcmp_s("abc", 4, "abc", &ind), 0);
    EXPECT_EQ(ind, 0);
    EXPECT_EQ(strcmp_s("abd", 4, "abc", &ind), 0);
    EXPECT_GT(ind, 0);
    EXPECT_EQ(strcmp_s("ab", 4, "abc", &ind), 0);
    EXPECT_LT(ind, 0);
    EXPECT_EQ(strcmp_s("1.00", 3, "1.0", &ind), 0);  // only dmax characters count
    EXPECT_EQ(ind, 0);
    EXPECT_EQ(strcmp_s("\xff", 2, "a", &ind), 0);  // bytes compare unsigned
    EXPECT_GT(ind, 0);
    EXPECT_EQ(strcmp_s(nullptr, 4, "a", &ind), BC_ESNULLP);
    EXPECT_EQ(strcmp_s("a", 4, "a", nullptr), BC_ESNULLP);
}

TEST_F(BoundsCheck, StrnlenAndStrstrStayInsideTheirBounds)
{
    EXPECT_EQ(strnlen_s(nullptr, 10), 0u);
    EXPECT_EQ(strnlen_s("abcdef", 3), 3u);
    const char unterminated[3] = {'a', 'b', 'c'};
    EXPECT_EQ(strnlen_s(unterminated, sizeof unterminated), 3u);

    char hay[] = "one]]>two";
    char* found = nullptr;
    EXPECT_EQ(strstr_s(hay, sizeof hay, "]]>", 3, &found), 0);
    EXPECT_EQ(found, hay + 3);
    EXPECT_EQ(strstr_s(hay, 5, "]]>", 3, &found), BC_ESNOTFND);  // match lies past dmax
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(strstr_s(hay, sizeof hay, "", 1, &found), 0);
    EXPECT_EQ(found, hay);
    EXPECT_EQ(strstr_s(hay, sizeof hay, "x", 0, &found), BC_ESZEROL);
    EXPECT_EQ(g_seen.size(), 1u);  // not found is an answer, not a violation
}

}  // namespace
