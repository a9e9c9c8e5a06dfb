// CChangeCache: put semantics and fan-out of one cache.
#include "conference/ChangeCache.h"

#include "conference/LocalArmService.h"

#include <algorithm>

namespace {

constexpr short kResultOk = 0;
constexpr short kResultRefused = ARM_REFUSED;

}  // namespace

const CChangeCache::CSubscriber* CChangeCache::FindSubscriber(const CLocalArmService* service) const
{
    for (const CSubscriber& subscriber : m_aSubscribers)
        if (subscriber.pService == service) return &subscriber;
    return nullptr;
}

IArmSharedDataSink* CChangeCache::AnswerSink(const CLocalArmService& putter) const
{
    const CSubscriber* subscriber = FindSubscriber(&putter);
    return subscriber ? subscriber->pSink : putter.DefaultSharedSink();
}

unsigned CChangeCache::Append(const CLocalArmService& putter, const CCachePut& put)
{
    const unsigned id = ++m_nLastId;
    m_aItems.push_back(CCacheItem{id, putter.AttachId(), put.pBytes});
    return id;
}

void CChangeCache::DeliverToAll(unsigned cacheId, const std::shared_ptr<const std::string>& bytes, short result,
                                tagCacheAction action, unsigned putterAttachId)
{
    const bool item = action == CACHE_ACTION_ADDED || action == CACHE_ACTION_UPDATED;
    for (const CSubscriber& subscriber : m_aSubscribers)
        if (subscriber.bHasHistory || !item)
            subscriber.pService->EmitDelivery(subscriber.pSink, cacheId, m_nHandle, bytes, result, action,
                                              putterAttachId);
}

unsigned CChangeCache::Put(CLocalArmService& putter, const CCachePut& put)
{
    const unsigned putterId = putter.AttachId();
    if (!put.bHasBytes) {
        if (put.nFlags & CACHE_FLAG_CLEAR) {
            m_aItems.clear();
            DeliverToAll(0, nullptr, kResultOk, CACHE_ACTION_CLEARED, putterId);
        } else if (IArmSharedDataSink* sink = AnswerSink(putter)) {
            putter.EmitDelivery(sink, NewestId(), m_nHandle, nullptr, kResultOk, CACHE_ACTION_SUBSCRIBED, 0);
        }
        return 0;
    }

    const bool append = put.nMode == CACHE_MODE_APPEND ||
                        (put.nMode == CACHE_MODE_REPLACE_NEWEST && (put.nItemId == 0 || m_aItems.empty()));
    if (append) {
        const unsigned id = Append(putter, put);
        DeliverToAll(id, put.pBytes, kResultOk, CACHE_ACTION_ADDED, putterId);
        putter.EmitCacheConfirm(m_nHandle, CACHE_ACTION_ADDED, id, kResultOk);
        return id;
    }
    if (put.nMode != CACHE_MODE_REPLACE_NEWEST) return 0;

    if (put.nItemId == NewestId()) {
        CCacheItem& newest = m_aItems.back();
        newest.pBytes = put.pBytes;
        newest.nPutterAttachId = putterId;
        DeliverToAll(newest.nId, put.pBytes, kResultOk, CACHE_ACTION_UPDATED, putterId);
        putter.EmitCacheConfirm(m_nHandle, CACHE_ACTION_UPDATED, newest.nId, kResultOk);
        return newest.nId;
    }
    // The writer changed an item that is no longer the newest: its text is stale.
    if (IArmSharedDataSink* sink = AnswerSink(putter))
        putter.EmitDelivery(sink, put.nItemId, m_nHandle, nullptr, kResultRefused, CACHE_ACTION_UPDATED, putterId);
    putter.EmitCacheConfirm(m_nHandle, CACHE_ACTION_UPDATED, put.nItemId, kResultRefused);
    return 0;
}

void CChangeCache::Subscribe(CLocalArmService& service, IArmSharedDataSink* sink)
{
    for (CSubscriber& subscriber : m_aSubscribers) {
        if (subscriber.pService != &service) continue;
        subscriber.pSink = sink;
        subscriber.bHasHistory = true;
        for (const CCacheItem& item : m_aItems) {
            const tagCacheAction action = (&item == &m_aItems.back()) ? CACHE_ACTION_ADDED : CACHE_ACTION_KNOWN;
            service.EmitDelivery(sink, item.nId, m_nHandle, item.pBytes, kResultOk, action, item.nPutterAttachId);
        }
        return;
    }
    m_aSubscribers.push_back(CSubscriber{&service, sink, false});
    service.EmitDelivery(sink, NewestId(), m_nHandle, nullptr, kResultOk, CACHE_ACTION_SUBSCRIBED, 0);
}

void CChangeCache::Close()
{
    DeliverToAll(0, nullptr, kResultOk, CACHE_ACTION_CLOSED, 0);
}

void CChangeCache::Forget(const CLocalArmService* service)
{
    m_aSubscribers.erase(std::remove_if(m_aSubscribers.begin(), m_aSubscribers.end(),
                                        [service](const CSubscriber& s) { return s.pService == service; }),
                         m_aSubscribers.end());
}
