// CMemHandleTable beyond what the service interface shows: stale handles after reuse of a slot,
// the budget and the conference's own delivery handles outside it.
#include "conference/MemHandleTable.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <vector>

namespace {

TEST(MemHandleTable, AFreedHandleStaysInvalidWhenItsSlotIsReused)
{
    CMemHandleTable table;
    const unsigned first = table.Alloc(4);
    ASSERT_NE(first, 0u);
    ASSERT_EQ(table.Free(first), 0);
    const unsigned second = table.Alloc(4);
    ASSERT_NE(second, 0u);
    EXPECT_NE(second, first);
    unsigned size = 0;
    EXPECT_NE(table.Size(first, &size), 0);
    EXPECT_NE(table.Write(first, 0, "abcd", 4), 0);
    EXPECT_NE(table.Free(first), 0);
    EXPECT_EQ(table.Size(second, &size), 0);  // the new owner is untouched
    EXPECT_EQ(table.Count(), 1u);
}

TEST(MemHandleTable, HandlesAreDistinctAndNonZeroAcrossManySlots)
{
    CMemHandleTable table;
    std::set<unsigned> seen;
    for (int round = 0; round < 3; ++round) {
        std::vector<unsigned> live;
        for (int i = 0; i < 5000; ++i) {
            const unsigned handle = table.Alloc(1);
            ASSERT_NE(handle, 0u);
            EXPECT_TRUE(seen.insert(handle).second) << "handle handed out twice";
            live.push_back(handle);
        }
        for (unsigned handle : live) ASSERT_EQ(table.Free(handle), 0);
    }
    EXPECT_EQ(table.Count(), 0u);
}

TEST(MemHandleTable, NewHandlesReadBackZeroedAndShortWritesKeepTheRest)
{
    CMemHandleTable table;
    const unsigned handle = table.Alloc(6);
    ASSERT_EQ(table.Write(handle, 0, "ab", 2), 0);
    char out[6];
    unsigned size = sizeof out;
    ASSERT_EQ(table.Read(handle, 0, out, &size), 0);
    EXPECT_EQ(size, 6u);
    EXPECT_EQ(std::memcmp(out, "ab\0\0\0\0", 6), 0);
}

TEST(MemHandleTable, BudgetBoundsWhatTheParticipantHoldsButNotDeliveries)
{
    CMemHandleTable table(100);
    const unsigned a = table.Alloc(60);
    ASSERT_NE(a, 0u);
    EXPECT_EQ(table.Alloc(41), 0u);  // would pass the budget
    const unsigned b = table.Alloc(40);
    EXPECT_NE(b, 0u);
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

TEST(MemHandleTable, ZeroSizedHandlesAreValid)
{
    CMemHandleTable table;
    const unsigned handle = table.Alloc(0);
    ASSERT_NE(handle, 0u);
    unsigned size = 99;
    EXPECT_EQ(table.Size(handle, &size), 0);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(table.Write(handle, 0, nullptr, 0), 0);
    EXPECT_NE(table.Write(handle, 0, "x", 1), 0);
    EXPECT_EQ(table.AllocCopy(nullptr, 4), 0u);
}

}  // namespace
