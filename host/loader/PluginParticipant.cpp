// A participant through the plug-in, and the main loop it runs on.
#include "loader/PluginParticipant.h"

#include "tessarinnote/notehostui.h"
#include "transport/RunLoop.h"

#include <glib.h>

#include <cstring>

CPluginParticipant::CPluginParticipant(CNotePlugin& plugin, IMeeting& meeting,
                                       const SParticipantSetup& setup)
    : m_rPlugin(plugin)
{
    std::memset(&m_data, 0, sizeof m_data);
    m_data.pHostSink = &m_hostSink;
    m_data.pParentView = setup.pParentView;
    m_data.pArmService = meeting.NewService(GetCurrentRunLoop());
    m_data.conferenceHandle = meeting.ConferenceHandle();
    m_data.sessionHandle = meeting.SessionHandle();
    m_data.nUserId = setup.nUserId;
    m_data.nNotepadType = setup.notepadType;
    m_data.nUserType = setup.nUserType;

    m_pInstance = plugin.NoteNewInstance();
    // The meeting's connection lost (1) and back (0) reach the instance as the host's notice.
    meeting.SetMeetingLostHandler(m_data.pArmService,
                                  [this](int kind) { m_rPlugin.NoteMeetingLost(m_pInstance, kind); });
    if (!setup.strAutoSavePath.empty())
        plugin.NoteSetAutoSavePath(m_pInstance, setup.strAutoSavePath.c_str());
    // The panel is announced while the instance initialises: this participant's own.
    NoteHostUI_SetHeadlessPanelCallback(&OnPanel, this);
    plugin.NoteInitialize(m_pInstance, &m_data);
    NoteHostUI_SetHeadlessPanelCallback(nullptr, nullptr);
}

CPluginParticipant::~CPluginParticipant()
{
    m_pPanel = nullptr;
    m_rPlugin.NoteDeleteInstance(m_pInstance);
}

void CPluginParticipant::OnPanel(void* context, INoteHeadlessPanel* panel, int created)
{
    auto* self = static_cast<CPluginParticipant*>(context);
    if (created) self->m_pPanel = panel;
}

void PumpMainLoop(double seconds)
{
    PumpMainLoopUntil([] { return false; }, seconds);
}

bool PumpMainLoopUntil(const std::function<bool()>& done, double timeoutSeconds)
{
    const gint64 deadline = g_get_monotonic_time() + static_cast<gint64>(timeoutSeconds * 1e6);
    GMainContext* context = g_main_context_default();
    for (;;) {
        while (g_main_context_iteration(context, FALSE)) {
        }
        if (done()) return true;
        if (g_get_monotonic_time() >= deadline) return false;
        // Nothing due: sleep a little rather than spin (the instances tick every 50 ms).
        g_usleep(2000);
    }
}
