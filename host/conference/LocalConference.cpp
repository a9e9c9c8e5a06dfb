// CLocalConference: the meeting-wide operations over the shared state.
#include "conference/LocalConference.h"

#include "conference/DataUnits.h"
#include "conference/LocalArmService.h"
#include "conference/MeetingState.h"

CLocalConference::CLocalConference(const CMeetingOptions& options) : m_pState(new CMeetingState(options)) {}

CLocalConference::~CLocalConference() = default;

IArmService* CLocalConference::NewService(IRunLoop& loop)
{
    return m_pState->AddService(loop);
}

unsigned CLocalConference::ConferenceHandle() const
{
    return m_pState->Options().nConferenceHandle;
}

unsigned CLocalConference::SessionHandle() const
{
    return m_pState->Options().nSessionHandle;
}

bool CLocalConference::IsPki() const
{
    return m_pState->Options().bPki;
}

void CLocalConference::SetConnected(IArmService* service, bool connected)
{
    if (CLocalArmService* own = m_pState->Find(service)) own->SetConnected(connected);
}

void CLocalConference::SetMeetingLostHandler(IArmService* service, std::function<void(int)> handler)
{
    if (CLocalArmService* own = m_pState->Find(service)) own->SetMeetingLostHandler(std::move(handler));
}

void CLocalConference::SendDataUnit(IArmService* from, unsigned toAttachId, short modifiedFlag,
                                    const std::string& payload, EDataRoute route, const char* resourceName,
                                    unsigned kind)
{
    const CLocalArmService* sender = m_pState->Find(from);
    if (!sender) return;
    const unsigned fromAttachId = sender->AttachId();

    std::string bytes;
    if (route == EDataRoute::kResourceCallback && IsPki()) {
        bytes = SealedRecordSequence(fromAttachId, toAttachId, modifiedFlag, payload);
        // The plug-in measures every record against the room after the text, as if its
        // position stayed at the text's end: a NUL ends the text, zero bytes give the room.
        if (!bytes.empty()) bytes.append(bytes.size() + 1, '\0');
    } else
        bytes = BuildDataUnitEnvelope(fromAttachId, toAttachId, modifiedFlag, payload);
    if (bytes.empty()) return;
    // Built once; every receiver's callback shares it.
    const auto shared = std::make_shared<const std::string>(std::move(bytes));
    const auto name = std::make_shared<const std::string>(resourceName ? resourceName : "");

    for (const auto& receiver : m_pState->Services()) {
        const unsigned attachId = receiver->AttachId();
        if (attachId == 0) continue;
        if (toAttachId != 0 ? attachId != toAttachId : receiver.get() == sender) continue;
        if (route == EDataRoute::kDirect)
            receiver->EmitDataIndication(fromAttachId, shared);
        else
            receiver->EmitResourceMessage(shared, name, kind);
    }
}

void CLocalConference::CloseNotepad()
{
    m_pState->CloseAllCaches();
}

std::vector<CRecordedItem> CLocalConference::Recording() const
{
    return m_pState->Recording();
}

std::string CLocalConference::SealedRecordSequence(unsigned fromAttachId, unsigned toAttachId, short modifiedFlag,
                                                   const std::string& payload) const
{
    return SealDataUnit(m_pState->Sealer(), fromAttachId, toAttachId, modifiedFlag, payload);
}

std::string CLocalConference::SealRecord(const std::string& bytes) const
{
    return m_pState->Sealer().Seal(bytes.data(), bytes.size());
}

std::unique_ptr<IMeeting> NewLocalMeeting(const CMeetingOptions& options)
{
    return std::make_unique<CLocalConference>(options);
}
