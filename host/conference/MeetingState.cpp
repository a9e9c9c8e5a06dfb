// CMeetingState: participants, ids, caches and the recording of one local meeting.
#include "conference/MeetingState.h"

#include "conference/LocalArmService.h"

#include <algorithm>

namespace {

// Separate ranges, so that an attach id passed where a cache handle belongs (or the reverse)
// fails instead of working by accident.
constexpr unsigned kFirstAttachId = 1001;
constexpr unsigned kFirstNameHandle = 2001;
constexpr unsigned kFirstResourceId = 301;

}  // namespace

CMeetingState::CMeetingState(const CMeetingOptions& options)
    : m_options(options),
      m_nNextAttachId(kFirstAttachId),
      m_nNextNameHandle(kFirstNameHandle),
      m_nNextResourceId(kFirstResourceId)
{
}

CMeetingState::~CMeetingState()
{
    m_aServices.clear();
}

CLocalArmService* CMeetingState::AddService(IRunLoop& loop)
{
    m_aServices.push_back(std::make_shared<CLocalArmService>(*this, loop));
    return m_aServices.back().get();
}

CLocalArmService* CMeetingState::Find(const IArmService* service) const
{
    if (!service) return nullptr;
    for (const auto& own : m_aServices)
        if (static_cast<const IArmService*>(own.get()) == service) return own.get();
    return nullptr;
}

int CMeetingState::Release(CLocalArmService* service)
{
    const auto found = std::find_if(m_aServices.begin(), m_aServices.end(),
                                    [service](const std::shared_ptr<CLocalArmService>& own) { return own.get() == service; });
    if (found == m_aServices.end()) return kArmFailed;
    ForgetSubscriptions(service);
    // Keeps the object alive until erase has returned; it may be the caller.
    const std::shared_ptr<CLocalArmService> last = *found;
    m_aServices.erase(found);
    return 0;
}

unsigned CMeetingState::ResourceIdFor(unsigned sessionHandle)
{
    const auto found = m_mapResourceIds.find(sessionHandle);
    if (found != m_mapResourceIds.end()) return found->second;
    const unsigned id = m_nNextResourceId++;
    m_mapResourceIds.emplace(sessionHandle, id);
    return id;
}

unsigned CMeetingState::NameHandleFor(const std::string& name)
{
    const auto found = m_mapNameHandles.find(name);
    if (found != m_mapNameHandles.end()) return found->second;
    const unsigned handle = m_nNextNameHandle++;
    m_mapNameHandles.emplace(name, handle);
    m_mapCaches.emplace(handle, std::make_unique<CChangeCache>(handle));
    return handle;
}

CChangeCache* CMeetingState::FindCache(unsigned cacheHandle) const
{
    const auto found = m_mapCaches.find(cacheHandle);
    return found == m_mapCaches.end() ? nullptr : found->second.get();
}

void CMeetingState::ApplyPut(CLocalArmService& putter, const CCachePut& put)
{
    CChangeCache* cache = FindCache(put.nCacheHandle);
    if (!cache) return;
    const unsigned id = cache->Put(putter, put);
    if (id == 0 || !put.pBytes || (put.nFlags & (CACHE_FLAG_RECORD_A | CACHE_FLAG_RECORD_B)) == 0) return;
    m_aRecording.push_back(CRecordedItem{put.nCacheHandle, id, putter.AttachId(), putter.Loop().Now(), *put.pBytes});
}

void CMeetingState::ForgetSubscriptions(const CLocalArmService* service)
{
    for (auto& entry : m_mapCaches) entry.second->Forget(service);
}

void CMeetingState::CloseAllCaches()
{
    for (auto& entry : m_mapCaches) entry.second->Close();
}
