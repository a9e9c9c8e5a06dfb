#include "client/SaveListIndex.h"

size_t CSaveListIndex::KeyHash(CNoteChangeInfoPDU& pdu)
{
    // Offsets of captions grow by a line each: spread them over the bits before mixing in.
    uint64_t h = static_cast<uint32_t>(pdu.GetOffSet_INT(0));
    h = h * 0x9E3779B97F4A7C15ull ^ static_cast<uint32_t>(pdu.GetOffSet_INT(1));
    h = h * 0x9E3779B97F4A7C15ull ^ pdu.GetNoteMsgHash();
    return static_cast<size_t>(h ^ (h >> 29));
}

void CSaveListIndex::Follow(std::vector<CNoteChangeInfoPDU>& list)
{
    const uint64_t keyChanges = CNoteChangeInfoPDU::IndexedKeyChanges();
    if (keyChanges != m_nKeyChanges || list.data() != m_pData || list.size() < m_nRead) {
        m_newest.clear();
        m_older.clear();
        m_nRead = 0;
    }
    for (size_t i = m_nRead; i < list.size(); ++i) {
        list[i].MarkIndexed();
        const auto placed = m_newest.emplace(KeyHash(list[i]), i);
        m_older.push_back(placed.second ? kNone : placed.first->second);
        if (!placed.second) placed.first->second = i;
    }
    m_nRead = list.size();
    m_pData = list.data();
    m_nKeyChanges = keyChanges;
}
