// CMemHandleTable: slot table with generation-tagged handles.
#include "conference/MemHandleTable.h"

#include <cstring>
#include <new>

CMemHandleTable::CMemHandleTable(std::uint64_t budget) : m_nBudget(budget), m_nBudgetUsed(0), m_nLive(0) {}

unsigned CMemHandleTable::HandleOf(unsigned index) const
{
    // index + 1 keeps every handle non-zero whatever the generation.
    return ((m_aSlots[index].nGeneration & kGenerationMask) << kIndexBits) | (index + 1);
}

CMemHandleTable::Slot* CMemHandleTable::Find(unsigned handle)
{
    return const_cast<Slot*>(static_cast<const CMemHandleTable*>(this)->Find(handle));
}

const CMemHandleTable::Slot* CMemHandleTable::Find(unsigned handle) const
{
    const unsigned low = handle & kIndexMask;
    if (low == 0 || low > m_aSlots.size()) return nullptr;
    const Slot& slot = m_aSlots[low - 1];
    if (!slot.bUsed || (slot.nGeneration & kGenerationMask) != (handle >> kIndexBits)) return nullptr;
    return &slot;
}

bool CMemHandleTable::TakeSlot(unsigned* index)
{
    if (!m_aFree.empty()) {
        *index = m_aFree.back();
        m_aFree.pop_back();
        return true;
    }
    if (m_aSlots.size() >= kIndexMask) return false;
    m_aSlots.emplace_back();
    *index = static_cast<unsigned>(m_aSlots.size() - 1);
    return true;
}

unsigned CMemHandleTable::Alloc(unsigned size)
{
    if (size > m_nBudget - m_nBudgetUsed) return 0;
    // Zero-filled, so that bytes the client never wrote read back as zeros.
    std::unique_ptr<unsigned char[]> buf(new (std::nothrow) unsigned char[size ? size : 1]());
    unsigned index = 0;
    if (!buf || !TakeSlot(&index)) return 0;
    Slot& slot = m_aSlots[index];
    slot.pBuf = std::move(buf);
    slot.nSize = size;
    slot.bUsed = true;
    slot.bBudgeted = true;
    m_nBudgetUsed += size;
    ++m_nLive;
    return HandleOf(index);
}

unsigned CMemHandleTable::AllocCopy(const void* data, unsigned size)
{
    if (size != 0 && !data) return 0;
    std::unique_ptr<unsigned char[]> buf(new (std::nothrow) unsigned char[size ? size : 1]);
    unsigned index = 0;
    if (!buf || !TakeSlot(&index)) return 0;
    if (size != 0) std::memcpy(buf.get(), data, size);
    Slot& slot = m_aSlots[index];
    slot.pBuf = std::move(buf);
    slot.nSize = size;
    slot.bUsed = true;
    slot.bBudgeted = false;
    ++m_nLive;
    return HandleOf(index);
}

int CMemHandleTable::Free(unsigned handle)
{
    Slot* slot = Find(handle);
    if (!slot) return 1;
    if (slot->bBudgeted) m_nBudgetUsed -= slot->nSize;
    slot->pBuf.reset();
    slot->nSize = 0;
    slot->bUsed = false;
    slot->bBudgeted = false;
    ++slot->nGeneration;
    --m_nLive;
    m_aFree.push_back(static_cast<unsigned>(slot - m_aSlots.data()));
    return 0;
}

int CMemHandleTable::Size(unsigned handle, unsigned* size) const
{
    const Slot* slot = Find(handle);
    if (!slot || !size) return 1;
    *size = slot->nSize;
    return 0;
}

int CMemHandleTable::Write(unsigned handle, unsigned offset, const void* data, unsigned size)
{
    Slot* slot = Find(handle);
    if (!slot || offset != 0 || size > slot->nSize || (size != 0 && !data)) return 1;
    if (size != 0) std::memcpy(slot->pBuf.get(), data, size);
    return 0;
}

int CMemHandleTable::Read(unsigned handle, unsigned offset, void* out, unsigned* size) const
{
    const Slot* slot = Find(handle);
    if (!slot || offset != 0 || !out || !size || *size < slot->nSize) return 1;
    if (slot->nSize != 0) std::memcpy(out, slot->pBuf.get(), slot->nSize);
    *size = slot->nSize;
    return 0;
}

const unsigned char* CMemHandleTable::Bytes(unsigned handle, unsigned* size) const
{
    const Slot* slot = Find(handle);
    *size = slot ? slot->nSize : 0;
    return slot ? slot->pBuf.get() : nullptr;
}
