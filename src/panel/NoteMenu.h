// A context menu of the notes panel: items by tag (ENoteMenuTag) with their enabled state.
// Titles and drawing belong to the toolkit port; the rules only decide what is enabled.
#pragma once

#include "tessarinnote/headlesspanel.h"

#include <initializer_list>
#include <utility>
#include <vector>

class NoteMenu {
public:
    NoteMenu(std::initializer_list<int> tags)
    {
        for (int tag : tags) m_items.emplace_back(tag, true);
    }

    bool HasItem(int tag) const { return Find(tag) != nullptr; }
    bool IsEnabled(int tag) const
    {
        const std::pair<int, bool>* item = Find(tag);
        return item && item->second;
    }
    // A tag the menu does not have is ignored.
    void SetEnabled(int tag, bool enabled)
    {
        if (auto* item = const_cast<std::pair<int, bool>*>(Find(tag))) item->second = enabled;
    }

private:
    const std::pair<int, bool>* Find(int tag) const
    {
        for (const auto& item : m_items)
            if (item.first == tag) return &item;
        return nullptr;
    }

    std::vector<std::pair<int, bool>> m_items;
};
