// A host for client tests: a meeting on the in-process conference, a manual run loop with a
// virtual clock, and clients initialised the way the plug-in's entry functions do it
// (Initialize, a headless panel, then the notepad type and the user type); and what tests do
// with a client's headless panel.
#pragma once

#include "client/CNoteClient.h"
#include "conference/LocalConference.h"
#include "loader/HostSinkLog.h"
#include "panel/HeadlessTextView.h"
#include "panel/NoteViewController.h"
#include "transport/ManualRunLoop.h"

#include <memory>
#include <string>
#include <vector>

// Records what a client tells its host.
using CRecordingHostSink = CHostSinkLog;

// One participant: its client, its host sink and its initialisation record.
struct CHarnessParticipant {
    std::unique_ptr<CRecordingHostSink> pSink;
    std::unique_ptr<CNoteClient> pClient;
    _tagNoteData data;
};

class CClientHarness {
public:
    explicit CClientHarness(const CMeetingOptions& options = CMeetingOptions());
    ~CClientHarness();

    // A new client in this meeting: constructed with the harness loop current, initialised,
    // given a headless panel, then the notepad type and the user type. autoSavePath may be "".
    CNoteClient& Join(unsigned userId, NOTETAKERTYPE notepadType, unsigned userType,
                      const std::string& autoSavePath = "");
    // Destroys a client as NoteDeleteInstance would.
    void Leave(CNoteClient& client);

    // Runs posted callbacks until none are left (bounded).
    void Settle();
    // Advances the clock by n ticks of 50 ms, running what falls due.
    void Ticks(int n);

    // The panel text of a client (its headless view), and typing into it as a user would:
    // replace the text, then report the change (2021).
    std::string PanelText(CNoteClient& client);
    void Type(CNoteClient& client, const std::string& utf8Text);
    // The panel's Publish (2017, bPressEnter 0) or Return in captions (bPressEnter 1).
    void Publish(CNoteClient& client, bool pressEnter = false);

    IMeeting& Meeting() { return *m_pMeeting; }
    CManualRunLoop& Loop() { return m_loop; }
    CRecordingHostSink& SinkOf(CNoteClient& client);

private:
    CManualRunLoop m_loop{1000.0};
    CRunLoopScope m_scope{m_loop};
    std::unique_ptr<IMeeting> m_pMeeting;
    std::vector<CHarnessParticipant> m_vecParticipants;
};

// A client's headless panel and its view.
NoteViewController& PanelOf(CNoteClient& client);
CHeadlessTextView& ViewOf(CNoteClient& client);
// The panel text with CR LF line ends, as the client reads it (2002).
std::string CrLfText(CNoteClient& client);
void SetPanelMaxLength(CNoteClient& client, int maxLength);
// The captioner presses Return with the caret at the end of the text: the panel commits the
// text typed so far and sends it with bPressEnter set, then the view takes the line end, which
// is committed at once. The controller has no key handling of its own, so the commits are
// made by setting the same text again (2005 commits a caption's whole text).
void PressReturnAtEnd(CClientHarness& harness, CNoteClient& client);
// The captioner types line at the end of the text and presses Return.
void TypeLine(CClientHarness& harness, CNoteClient& client, const std::string& line);
// The client's net-info entries ("<null>" for a null one).
std::vector<std::string> NetInfo(const CNoteClient& client);
