// notectl follow: a reader of a Redis meeting's captions. Joins through the plug-in as a reader
// of the closed-captions notepad and prints every caption line its panel shows, the meeting's
// earlier lines first, each as soon as it is complete and flushed at once, until SIGINT or
// SIGTERM, until nobody reads the output any more, or until the server shuts us out (the meeting
// was deleted: one line on stderr, exit 1). Once it has joined, one line on stderr says so.
#include "Commands.h"

#include <glib.h>

#include <cstdio>
#include <string>

int RunFollow(const SPluginOptions& plugin, const SMeetingOptions& meeting, const SFollowOptions& follow)
{
    CCliSession session;
    std::string error;
    if (!session.Open(plugin, meeting, error)) return Fail(error);
    if (!follow.bWait && !session.CheckMeetingExists(error)) return Fail(error);
    std::unique_ptr<CPluginParticipant> reader =
        session.Join(meeting.nUserId, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_READER);
    if (!session.WaitLive(*reader, error)) return Fail(error);
    std::fprintf(stderr, "notectl: following %s\n", session.Where().c_str());

    CCaptionWriter writer(follow.eFormat, stdout);
    if (!writer.WriteHeader()) return 0;
    CLineTracker tracker;
    // Cue times count from the first line this reader showed.
    double first = -1;
    unsigned shownLength = 0;
    bool closed = false;
    // Prints the lines the panel completed since the last call; false when the output is closed.
    const auto printNewLines = [&] {
        const INoteHeadlessPanel* panel = reader->Panel();
        if (closed || !panel || panel->Length() == shownLength) return !closed;
        shownLength = panel->Length();
        const double now = static_cast<double>(g_get_real_time()) / G_USEC_PER_SEC;
        for (std::string& text : tracker.Update(panel->ShownText())) {
            if (first < 0) first = now;
            CCaptionLine line;
            line.strText = std::move(text);
            line.dStart = now - first;
            line.dEnd = CueEnd(line.dStart, -1);
            line.dArrivalUnix = now;
            if (!writer.Write(line)) closed = true;
        }
        return !closed;
    };
    // This reader's own notice of a lost or restored connection is told on stderr already; its
    // lines are passed over (the next caption replaces them in the panel anyway).
    session.SetNoticeHook([&](bool done) {
        if (!done) {
            printNewLines();
        } else if (const INoteHeadlessPanel* panel = reader->Panel()) {
            tracker.Update(panel->ShownText());
            shownLength = panel->Length();
        }
    });
    while (session.StopRequests() == 0 && printNewLines()) {
        if (session.ShutOut(error)) return Fail(error);
        session.RunOnce();
    }
    return 0;  // stopped, or the output was closed: nobody is reading
}
