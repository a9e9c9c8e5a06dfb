// CPluginParticipant: one person in a meeting through the loaded plug-in, as a host without a
// window runs it: an instance initialised with a null parent view, so it gets a headless panel
// the person acts on. Callbacks and the instance's tick run on the GLib default main context,
// which PumpMainLoop turns. Main thread only.
#pragma once

#include "conference/Meeting.h"
#include "loader/HostSinkLog.h"
#include "loader/NotePlugin.h"
#include "tessarinnote/headlesspanel.h"

#include <functional>
#include <string>

struct SParticipantSetup {
    unsigned nUserId = 1;
    NOTETAKERTYPE notepadType = NOTETAKER_SINGLE;
    unsigned nUserType = NOTE_USER_READER;
    std::string strAutoSavePath;  // empty: none
    void* pParentView = nullptr;  // a QWidget* in a Qt host; null: a headless panel
};

class CPluginParticipant {
public:
    // Joins: NoteNewInstance, the auto-save path, NoteInitialize with a service of meeting, whose
    // lost-meeting handler calls NoteMeetingLost.
    CPluginParticipant(CNotePlugin& plugin, IMeeting& meeting, const SParticipantSetup& setup);
    // Leaves: NoteDeleteInstance.
    ~CPluginParticipant();
    CPluginParticipant(const CPluginParticipant&) = delete;
    CPluginParticipant& operator=(const CPluginParticipant&) = delete;

    void* Instance() const { return m_pInstance; }
    IArmService* Service() const { return m_data.pArmService; }
    // The headless panel; null only if the plug-in announced none.
    INoteHeadlessPanel* Panel() const { return m_pPanel; }
    std::string PanelText() const { return m_pPanel ? m_pPanel->ShownText() : ""; }
    const CHostSinkLog& HostSink() const { return m_hostSink; }

private:
    static void OnPanel(void* context, INoteHeadlessPanel* panel, int created);

    CNotePlugin& m_rPlugin;
    CHostSinkLog m_hostSink;
    _tagNoteData m_data;
    void* m_pInstance = nullptr;
    INoteHeadlessPanel* m_pPanel = nullptr;
};

// Runs the main loop for about seconds.
void PumpMainLoop(double seconds);
// Runs the main loop until done() holds (true) or timeoutSeconds pass (false).
bool PumpMainLoopUntil(const std::function<bool()>& done, double timeoutSeconds);
