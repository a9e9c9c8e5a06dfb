// CMeetingState: what the participants of one local meeting share: the services themselves,
// the id counters, the cache names and their caches, the session resource ids, the recording
// and the meeting's cipher. Owned by CLocalConference; the services reach it by reference.
#pragma once

#include "conference/ChangeCache.h"
#include "conference/Meeting.h"
#include "conference/SealedRecords.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

class CLocalArmService;
class IRunLoop;

class CMeetingState {
public:
    explicit CMeetingState(const CMeetingOptions& options);
    ~CMeetingState();
    CMeetingState(const CMeetingState&) = delete;
    CMeetingState& operator=(const CMeetingState&) = delete;

    const CMeetingOptions& Options() const { return m_options; }
    const CSealedRecords& Sealer() const { return m_sealer; }

    // --- participants
    CLocalArmService* AddService(IRunLoop& loop);
    // The meeting's service behind service, or null for a foreign or released one.
    CLocalArmService* Find(const IArmService* service) const;
    const std::vector<std::shared_ptr<CLocalArmService>>& Services() const { return m_aServices; }
    // Forgets service; it is destroyed once no running callback holds it.
    int Release(CLocalArmService* service);

    // --- ids, each non-zero and unique in the meeting
    unsigned NewAttachId() { return m_nNextAttachId++; }
    // One id per session handle, the same for every participant.
    unsigned ResourceIdFor(unsigned sessionHandle);
    // One handle per cache name, the same for every participant; the cache is made with it.
    unsigned NameHandleFor(const std::string& name);

    // --- caches
    CChangeCache* FindCache(unsigned cacheHandle) const;
    // Applies a put and records the item when the put asks for it.
    void ApplyPut(CLocalArmService& putter, const CCachePut& put);
    // Drops every subscription of service.
    void ForgetSubscriptions(const CLocalArmService* service);
    void CloseAllCaches();
    const std::vector<CRecordedItem>& Recording() const { return m_aRecording; }

private:
    CMeetingOptions m_options;
    CSealedRecords m_sealer;
    unsigned m_nNextAttachId;
    unsigned m_nNextNameHandle;
    unsigned m_nNextResourceId;
    std::map<unsigned, unsigned> m_mapResourceIds;  // session handle to resource id
    std::map<std::string, unsigned> m_mapNameHandles;
    std::map<unsigned, std::unique_ptr<CChangeCache>> m_mapCaches;
    std::vector<CRecordedItem> m_aRecording;
    // Last member: destroyed first, while the caches they were subscribed to still exist.
    std::vector<std::shared_ptr<CLocalArmService>> m_aServices;
};
