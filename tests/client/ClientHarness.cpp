// The client test host.
#include "ClientHarness.h"

#include "tessarinnote/uiinterface.h"

#include <cstring>

CClientHarness::CClientHarness(const CMeetingOptions& options) : m_pMeeting(NewLocalMeeting(options)) {}

CClientHarness::~CClientHarness()
{
    while (!m_vecParticipants.empty()) Leave(*m_vecParticipants.back().pClient);
}

CNoteClient& CClientHarness::Join(unsigned userId, NOTETAKERTYPE notepadType, unsigned userType,
                                  const std::string& autoSavePath)
{
    CHarnessParticipant participant;
    participant.pSink.reset(new CRecordingHostSink);
    participant.pClient.reset(new CNoteClient);
    std::memset(&participant.data, 0, sizeof participant.data);
    participant.data.pHostSink = participant.pSink.get();
    participant.data.pArmService = m_pMeeting->NewService(m_loop);
    participant.data.conferenceHandle = m_pMeeting->ConferenceHandle();
    participant.data.sessionHandle = m_pMeeting->SessionHandle();
    participant.data.nUserId = userId;
    participant.data.nNotepadType = notepadType;
    participant.data.nUserType = userType;
    CNoteClient& client = *participant.pClient;
    if (!autoSavePath.empty()) client.SetAutoSaveFilePath(autoSavePath.c_str());
    client.Initialize(participant.data);
    void* panel = nullptr;
    CreateUI(&panel, client.GetParentView(), &client);
    client.SetPanel(panel);
    client.SetNotepadType(notepadType);
    client.SetUserType(static_cast<int>(userType));
    m_vecParticipants.push_back(std::move(participant));
    Settle();
    return client;
}

void CClientHarness::Leave(CNoteClient& client)
{
    for (auto it = m_vecParticipants.begin(); it != m_vecParticipants.end(); ++it) {
        if (it->pClient.get() != &client) continue;
        it->pClient.reset();
        m_vecParticipants.erase(it);
        break;
    }
    Settle();
}

void CClientHarness::Settle()
{
    // Posted callbacks only; the 50 ms tick is driven by Ticks().
    for (int round = 0; round < 100000 && m_loop.PostedCount() > 0; ++round) m_loop.RunPending();
}

void CClientHarness::Ticks(int n)
{
    for (int i = 0; i < n; ++i) {
        m_loop.Advance(0.05);
        Settle();
    }
}

std::string CClientHarness::PanelText(CNoteClient& client)
{
    return client.GetPanel() ? ViewOf(client).Text() : std::string();
}

void CClientHarness::Type(CNoteClient& client, const std::string& utf8Text)
{
    ViewOf(client).SetText(utf8Text);
    client.HandleUIMessage(NOTEUI_TEXT_CHANGED, nullptr, nullptr);
}

void CClientHarness::Publish(CNoteClient& client, bool pressEnter)
{
    PanelOf(client).onPublish(!pressEnter);
    Settle();
}

CRecordingHostSink& CClientHarness::SinkOf(CNoteClient& client)
{
    for (CHarnessParticipant& p : m_vecParticipants)
        if (p.pClient.get() == &client) return *p.pSink;
    static CRecordingHostSink none;
    return none;
}

NoteViewController& PanelOf(CNoteClient& client)
{
    return *static_cast<NoteViewController*>(client.GetPanel());
}

CHeadlessTextView& ViewOf(CNoteClient& client)
{
    return static_cast<CHeadlessTextView&>(PanelOf(client).View());
}

std::string CrLfText(CNoteClient& client)
{
    std::string text;
    NotifyCocoaUI(client.GetPanel(), NOTEUI_GET_TEXT_CRLF, nullptr, &text, nullptr);
    return text;
}

void SetPanelMaxLength(CNoteClient& client, int maxLength)
{
    NotifyCocoaUI(client.GetPanel(), NOTEUI_SET_MAX_LENGTH, &maxLength, nullptr, nullptr);
}

void PressReturnAtEnd(CClientHarness& harness, CNoteClient& client)
{
    NoteViewController& panel = PanelOf(client);
    std::string text = panel.View().Text();
    NotifyCocoaUI(&panel, NOTEUI_SET_TEXT, const_cast<char*>(text.c_str()), nullptr, nullptr);
    harness.Publish(client, true);
    text = panel.View().Text() + "\n";
    NotifyCocoaUI(&panel, NOTEUI_SET_TEXT, const_cast<char*>(text.c_str()), nullptr, nullptr);
    client.HandleUIMessage(NOTEUI_TEXT_CHANGED, nullptr, nullptr);
    harness.Settle();
}

void TypeLine(CClientHarness& harness, CNoteClient& client, const std::string& line)
{
    harness.Type(client, harness.PanelText(client) + line);
    PressReturnAtEnd(harness, client);
}

std::vector<std::string> NetInfo(const CNoteClient& client)
{
    std::vector<std::string> entries;
    for (const char* entry : client.m_aNetInfo) entries.push_back(entry ? entry : "<null>");
    return entries;
}
