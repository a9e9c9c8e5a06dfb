// CMemHandleTable: one participant's memory handles, the buffers through which cache items
// carry their bytes. Handles are non-zero 32-bit values; a freed handle is not handed out again
// until its slot has been reused 4096 times, so a stale handle almost always fails instead of
// reaching somebody else's bytes. Single-threaded, like the loop that owns the participant.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

class CMemHandleTable {
public:
    // The most a participant may hold in handles it allocated itself.
    static constexpr std::uint64_t kDefaultBudget = 256u * 1024u * 1024u;

    explicit CMemHandleTable(std::uint64_t budget = kDefaultBudget);
    CMemHandleTable(const CMemHandleTable&) = delete;
    CMemHandleTable& operator=(const CMemHandleTable&) = delete;

    // A zero-filled handle of size bytes, or 0 when the budget or the table is exhausted.
    unsigned Alloc(unsigned size);
    // A handle holding a copy of data[0, size), outside the budget: the conference's own
    // delivery handles, freed as soon as the receiver's callback returns. 0 when out of slots.
    unsigned AllocCopy(const void* data, unsigned size);
    // 0 on success; non-zero (and nothing changes) for 0 or an unknown handle.
    int Free(unsigned handle);
    // 0 and *size; non-zero for 0, an unknown handle or a null size.
    int Size(unsigned handle, unsigned* size) const;
    // Writes size bytes at offset 0. Non-zero for a non-zero offset, a size larger than the
    // handle, null data with a non-zero size, or 0 / an unknown handle.
    int Write(unsigned handle, unsigned offset, const void* data, unsigned size);
    // Reads the whole handle. *size: in, the capacity of out; out, the bytes read. Non-zero
    // (nothing written) for a non-zero offset, a capacity below the handle's size, a null
    // size or out, or 0 / an unknown handle.
    int Read(unsigned handle, unsigned offset, void* out, unsigned* size) const;

    // The bytes of a handle without copying, or null with *size 0 when unknown.
    const unsigned char* Bytes(unsigned handle, unsigned* size) const;

    std::uint64_t BytesHeld() const { return m_nBudgetUsed; }
    std::size_t Count() const { return m_nLive; }

private:
    static constexpr unsigned kIndexBits = 20;
    static constexpr unsigned kIndexMask = (1u << kIndexBits) - 1;  // also the slot limit
    static constexpr unsigned kGenerationMask = 0xFFFu;

    struct Slot {
        std::unique_ptr<unsigned char[]> pBuf;
        unsigned nSize = 0;
        unsigned nGeneration = 0;
        bool bUsed = false;
        bool bBudgeted = false;  // counted against the budget
    };

    // The slot of a live handle, or null.
    Slot* Find(unsigned handle);
    const Slot* Find(unsigned handle) const;
    // A free slot's index, growing the table; false when the table is full.
    bool TakeSlot(unsigned* index);
    unsigned HandleOf(unsigned index) const;

    std::uint64_t m_nBudget;
    std::uint64_t m_nBudgetUsed;
    std::size_t m_nLive;
    std::vector<Slot> m_aSlots;
    std::vector<unsigned> m_aFree;
};
