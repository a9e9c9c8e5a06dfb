// Finds, in the save record's change list, the newest entry equal to a change, as a walk from
// the newest entry to the oldest would, without comparing against every entry: a late joiner
// takes in thousands of changes, each looked up once.
//
// Entries are chained by a hash of what equality compares (both offsets as integers and the
// note text), newest first, so every entry equal to a change is on that change's chain and
// the first equal one found is the newest. The index follows the list whatever changes it:
// entries appended since the last lookup are added; a list that shrank or moved, or whose
// read entries changed their offsets or text or went away (CNoteChangeInfoPDU counts that),
// is read again from the start. Main thread only.
#pragma once

#include "xml/NoteChangeInfoPDU.h"

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

class CSaveListIndex {
public:
    // Position of the newest entry e of list for which equal(e, pdu) holds, or -1. equal may
    // hold only for an entry with pdu's offsets (GetOffSet_INT) and note text.
    template <typename Equal>
    long FindNewest(std::vector<CNoteChangeInfoPDU>& list, CNoteChangeInfoPDU& pdu, Equal equal)
    {
        Follow(list);
        const auto it = m_newest.find(KeyHash(pdu));
        if (it == m_newest.end()) return -1;
        for (size_t i = it->second; i != kNone; i = m_older[i])
            if (equal(list[i], pdu)) return static_cast<long>(i);
        return -1;
    }

private:
    static constexpr size_t kNone = static_cast<size_t>(-1);

    static size_t KeyHash(CNoteChangeInfoPDU& pdu);
    // Brings the chains up to date with list.
    void Follow(std::vector<CNoteChangeInfoPDU>& list);

    const CNoteChangeInfoPDU* m_pData = nullptr;  // list storage when last read
    size_t m_nRead = 0;                            // entries read
    uint64_t m_nKeyChanges = 0;                    // IndexedKeyChanges() when last read
    std::unordered_map<size_t, size_t> m_newest;   // key hash -> newest position
    std::vector<size_t> m_older;                   // position -> next older one on its chain
};
