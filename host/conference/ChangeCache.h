// CChangeCache: one shared cache of a local meeting: its items in id order, the participants
// subscribed to it, and who hears what for each kind of put. Ids start at 1, only grow, and are
// never reused, not even after a clear. Item bytes are shared, never copied here; each receiver
// gets its own copy in a fresh memory handle when its callback runs.
#pragma once

#include "tessarinnote/armsinks.h"

#include <memory>
#include <string>
#include <vector>

class CLocalArmService;

struct CCacheItem {
    unsigned nId;
    unsigned nPutterAttachId;
    std::shared_ptr<const std::string> pBytes;
};

// One put as the putter made it, the bytes already copied out of its memory handle.
struct CCachePut {
    unsigned nCacheHandle = 0;
    unsigned nItemId = 0;
    unsigned nMode = 0;
    unsigned nFlags = 0;
    bool bHasBytes = false;  // false: the put named handle 0 (clear or resynchronise)
    std::shared_ptr<const std::string> pBytes;
};

class CChangeCache {
public:
    explicit CChangeCache(unsigned handle) : m_nHandle(handle), m_nLastId(0) {}
    CChangeCache(const CChangeCache&) = delete;
    CChangeCache& operator=(const CChangeCache&) = delete;

    unsigned Handle() const { return m_nHandle; }
    // The newest item's id, 0 when the cache is empty.
    unsigned NewestId() const { return m_aItems.empty() ? 0 : m_aItems.back().nId; }
    const std::vector<CCacheItem>& Items() const { return m_aItems; }

    // Applies put for putter and emits every resulting callback. Returns the id of the item
    // stored or replaced, 0 when none was (clear, resynchronise, refused, unknown mode).
    unsigned Put(CLocalArmService& putter, const CCachePut& put);
    // The first call of an attach id registers it and answers with the newest id; later calls
    // deliver the items, history as known and the newest as added. Items put in between come
    // with that history, not before it: the subscriber is sent new items only once it has it.
    void Subscribe(CLocalArmService& service, IArmSharedDataSink* sink);
    // Tells every subscriber that the notepad was closed.
    void Close();
    // Drops every subscription of service (detached, left or released).
    void Forget(const CLocalArmService* service);

    bool IsSubscribed(const CLocalArmService* service) const { return FindSubscriber(service) != nullptr; }

private:
    struct CSubscriber {
        CLocalArmService* pService;
        IArmSharedDataSink* pSink;
        bool bHasHistory;  // a later call delivered the items
    };

    const CSubscriber* FindSubscriber(const CLocalArmService* service) const;
    // The putter's sink for answers meant for it alone: its subscription's, else its default.
    IArmSharedDataSink* AnswerSink(const CLocalArmService& putter) const;
    unsigned Append(const CLocalArmService& putter, const CCachePut& put);
    void DeliverToAll(unsigned cacheId, const std::shared_ptr<const std::string>& bytes, short result,
                      tagCacheAction action, unsigned putterAttachId);

    unsigned m_nHandle;
    unsigned m_nLastId;  // the last id handed out, also after a clear
    std::vector<CCacheItem> m_aItems;
    std::vector<CSubscriber> m_aSubscribers;
};
