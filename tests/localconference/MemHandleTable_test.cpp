// CMemHandleTable beyond what the service interface shows: stale handles after reuse of a slot,
// zeroed new handles, the budget and the conference's own delivery handles outside it.
#include "conference/MemHandleTable.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <vector>

namespace {

TEST(MemHandleTable, HandlesStayUniqueAndAFreedOneStaysInvalidWhenItsSlotIsReused)
{
    CMemHandleTable table;
    std::set<unsigned> seen;
    unsigned stale = 0;
    for (int round = 0; round < 3; ++round) {
        std::vector<unsigned> live;
        for (int i = 0; i < 5000; ++i) {
            live.push_back(table.Alloc(round == 2 ? 0 : 4));
            ASSERT_NE(live.back(), 0u);
            ASSERT_TRUE(seen.insert(live.back()).second) << "handle handed out twice";
        }
        for (unsigned handle : live) ASSERT_EQ(table.Free(stale = handle), 0);
    }
    const unsigned fresh = table.Alloc(6);  // may take the slot of the one freed last
    unsigned size = 99;
    EXPECT_NE(table.Size(stale, &size), 0);
    EXPECT_NE(table.Write(stale, 0, "abcd", 4), 0);
    EXPECT_NE(table.Free(stale), 0);
    EXPECT_EQ(table.Count(), 1u);
    // New handles read back zeroed; a short write keeps the rest.
    ASSERT_EQ(table.Write(fresh, 0, "ab", 2), 0);
    char out[6];
    size = sizeof out;
    ASSERT_EQ(table.Read(fresh, 0, out, &size), 0);
    EXPECT_EQ(size, 6u);
    EXPECT_EQ(std::memcmp(out, "ab\0\0\0\0", 6), 0);
    // Zero-sized handles are valid and hold nothing.
    const unsigned empty = table.Alloc(0);
    EXPECT_EQ(table.Size(empty, &size), 0);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(table.Write(empty, 0, nullptr, 0), 0);
    EXPECT_NE(table.Write(empty, 0, "x", 1), 0);
    EXPECT_EQ(table.AllocCopy(nullptr, 4), 0u);
}

TEST(MemHandleTable, BudgetBoundsWhatTheParticipantHoldsButNotDeliveries)
{
    CMemHandleTable table(100);
    const unsigned a = table.Alloc(60);
    ASSERT_NE(a, 0u);
    EXPECT_EQ(table.Alloc(41), 0u);  // would pass the budget
    EXPECT_NE(table.Alloc(40), 0u);
    EXPECT_EQ(table.BytesHeld(), 100u);
    const char bytes[64] = "delivered";
    const unsigned delivery = table.AllocCopy(bytes, sizeof bytes);
    ASSERT_NE(delivery, 0u);  // the host's own, freed after the callback
    EXPECT_EQ(table.BytesHeld(), 100u);
    unsigned size = 0;
    const unsigned char* held = table.Bytes(delivery, &size);
    ASSERT_NE(held, nullptr);
    EXPECT_EQ(size, sizeof bytes);
    EXPECT_STREQ(reinterpret_cast<const char*>(held), "delivered");
    EXPECT_EQ(table.Free(delivery), 0);
    EXPECT_EQ(table.Free(a), 0);
    EXPECT_EQ(table.BytesHeld(), 40u);
    EXPECT_NE(table.Alloc(60), 0u);
}

}  // namespace
