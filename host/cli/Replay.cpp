// Replaying recorded items through a reader instance of the plug-in.
#include "Replay.h"

#include "CaptionFormat.h"
#include "conference/IgnoringArmSinks.h"
#include "conference/LocalConference.h"
#include "loader/PluginParticipant.h"
#include "transport/RunLoop.h"

#include <glib.h>

#include <cstring>
#include <memory>

namespace {

// Runs every callback the in-process meeting posted, and what those posted in turn.
void RunPosted()
{
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
}

// The participant that puts the recorded items: it joins as the client does, up to a cache
// handle, and takes no notice of anything else.
class CReplayPutter final : public CIgnoringArmSinks {
public:
    explicit CReplayPutter(IMeeting& meeting) : m_meeting(meeting), m_pService(meeting.NewService(GetCurrentRunLoop()))
    {
    }
    ~CReplayPutter() { m_pService->ArmService_Release(); }
    CReplayPutter(const CReplayPutter&) = delete;
    CReplayPutter& operator=(const CReplayPutter&) = delete;

    // The handshake, each step once the one before was answered; the cache is the one the
    // plug-in's instances name for the meeting's session.
    bool Join()
    {
        if (m_pService->ArmService_Connect(this, "", 0, 0, 0) != 0) return false;
        RunPosted();
        m_pService->ArmService_JoinConference(0, m_meeting.ConferenceHandle(), this, 3);
        RunPosted();
        const unsigned short conference = static_cast<unsigned short>(m_meeting.ConferenceHandle());
        if (m_pService->ArmService_AttachUser(this, 0, conference, &m_nAttachId) != 0) return false;
        RunPosted();
        ARMCapability capability = {1, 0, CAPABILITY_SESSION_ID, 1};
        const char value[] = "U0\x01";
        m_pService->ArmService_Enroll(m_nAttachId, 16, m_meeting.SessionHandle(), 0, 1, &capability, value,
                                      sizeof value - 1, 3);
        RunPosted();
        NameHandles name;
        std::memset(&name, 0, sizeof name);
        std::snprintf(name.szName, sizeof name.szName, "note_changeinfo_cache_%u", m_nResourceId);
        m_pService->ArmService_AllocNameHandles(m_nAttachId, 1, &name, this);
        RunPosted();
        return m_nCacheHandle != 0;
    }
    // Appends bytes to the cache, as a captioner's put.
    bool Put(const std::string& bytes)
    {
        unsigned handle = 0;
        const unsigned size = static_cast<unsigned>(bytes.size());
        if (m_pService->ArmService_AllocMemHandle(size, &handle) != 0) return false;
        const bool put = m_pService->ArmService_WriteMemHandle(handle, 0, bytes.data(), size) == 0 &&
                         m_pService->ArmService_PutCacheItem(m_nAttachId, m_nCacheHandle, 0, 0, CACHE_MODE_APPEND,
                                                             CACHE_FLAG_BASE, handle, 0, 2) == 0;
        m_pService->ArmService_FreeMemHandle(handle);
        return put;
    }

    int ApeEnrollConfirm(unsigned, short result, short count, ARMSessionResource* resources) override
    {
        if (result == 0 && count > 0 && resources) m_nResourceId = resources[0].nResourceId;
        return 0;
    }
    int AllocNameHandleConfirm(unsigned, unsigned count, NameHandles* names, unsigned) override
    {
        if (count == 1 && names) m_nCacheHandle = names[0].nHandle;
        return 1;
    }

private:
    IMeeting& m_meeting;
    IArmService* m_pService;
    unsigned m_nAttachId = 0;
    unsigned m_nResourceId = 0;
    unsigned m_nCacheHandle = 0;
};

}  // namespace

bool ReplayCaptions(CNotePlugin& plugin, const std::vector<CRecordedItem>& items, std::vector<CTimedLine>& lines,
                    std::string& error)
{
    lines.clear();
    std::unique_ptr<IMeeting> meeting = NewLocalMeeting(CMeetingOptions());
    SParticipantSetup setup;
    setup.nUserId = 2;
    setup.notepadType = NOTETAKER_CLOSED_CAPTIONS;
    setup.nUserType = NOTE_USER_READER;
    CPluginParticipant reader(plugin, *meeting, setup);
    RunPosted();
    CReplayPutter putter(*meeting);
    if (!putter.Join() || !reader.Panel()) {
        error = "the plug-in could not join an in-process meeting to replay the captions";
        return false;
    }
    CLineTracker tracker;
    double lastChange = 0;
    for (const CRecordedItem& item : items) {
        if (!putter.Put(item.strBytes)) continue;
        RunPosted();
        const std::string text = reader.PanelText();
        for (std::string& line : tracker.Update(text)) lines.push_back({std::move(line), item.dArrivalTime});
        if (!tracker.Rest(text).empty()) lastChange = item.dArrivalTime;
    }
    const std::string rest = tracker.Rest(reader.PanelText());
    if (!rest.empty()) lines.push_back({rest, lastChange});
    return true;
}
