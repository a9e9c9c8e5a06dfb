// CLocalConference: the in-process meeting. Every participant's service lives in this process
// and posts its callbacks to the loop it was created with; nothing crosses a machine. It serves
// the contract tests, the benchmarks and single-machine hosts.
#pragma once

#include "conference/Meeting.h"

#include <memory>
#include <string>
#include <vector>

class CMeetingState;

class CLocalConference final : public IMeeting {
public:
    explicit CLocalConference(const CMeetingOptions& options);
    ~CLocalConference() override;
    CLocalConference(const CLocalConference&) = delete;
    CLocalConference& operator=(const CLocalConference&) = delete;

    IArmService* NewService(IRunLoop& loop) override;
    unsigned ConferenceHandle() const override;
    unsigned SessionHandle() const override;
    bool IsPki() const override;
    void SetConnected(IArmService* service, bool connected) override;
    void SetMeetingLostHandler(IArmService* service, std::function<void(int)> handler) override;
    void SendDataUnit(IArmService* from, unsigned toAttachId, short modifiedFlag, const std::string& payload,
                      EDataRoute route, const char* resourceName, unsigned kind) override;
    void CloseNotepad() override;
    std::vector<CRecordedItem> Recording() const override;

    // The sealed-record sequence SendDataUnit hands to resource callbacks in a PKI meeting for
    // this data unit (fresh nonces each call): payload cut into envelopes of at most 16 KiB,
    // each sealed with this meeting's key as one record. Empty when sealing is unavailable.
    std::string SealedRecordSequence(unsigned fromAttachId, unsigned toAttachId, short modifiedFlag,
                                     const std::string& payload) const;
    // One sealed record ("S" and base64) of bytes, under this meeting's key.
    std::string SealRecord(const std::string& bytes) const;

private:
    std::unique_ptr<CMeetingState> m_pState;
};

// A new in-process meeting.
std::unique_ptr<IMeeting> NewLocalMeeting(const CMeetingOptions& options);
