// notectl notes: the single note taker's notepad of a Redis meeting. "publish" joins as the note
// taker, types a file's text over the panel's and clicks Publish, then checks with a reader of
// its own that the meeting holds it; "print" joins as a reader and prints the published text.
#include "Commands.h"

#include <glib.h>

#include <cstdio>
#include <string>

namespace {

// The notes' limit, in the panel's units (UTF-16).
constexpr unsigned kNotesMaxUnits = 81920;
// How long the Publish button may take to follow a typed text (the client's tick is 50 ms).
constexpr double kPublishEnableSeconds = 2.0;

// The file's text with the panel's line ends; false, with a one-line reason, when it cannot be.
bool ReadNotesFile(const std::string& path, std::string& text, std::string& error)
{
    gchar* contents = nullptr;
    gsize length = 0;
    GError* failure = nullptr;
    if (!g_file_get_contents(path.c_str(), &contents, &length, &failure)) {
        error = "cannot read " + path + ": " + failure->message;
        g_error_free(failure);
        return false;
    }
    const bool valid = g_utf8_validate(contents, static_cast<gssize>(length), nullptr);
    std::string raw(contents, length);
    g_free(contents);
    if (!valid) {
        error = path + " is not UTF-8 text";
        return false;
    }
    text.clear();
    for (std::size_t i = 0; i < raw.size(); ++i) {
        if (raw[i] == '\r') {
            text += '\n';
            if (i + 1 < raw.size() && raw[i + 1] == '\n') ++i;
        } else {
            text += raw[i];
        }
    }
    if (text.empty()) {
        error = path + " is empty: nothing to publish";
        return false;
    }
    const unsigned units = Utf16Units(text);
    if (units > kNotesMaxUnits) {
        error = path + " has " + std::to_string(units) + " characters; published notes hold at most " +
                std::to_string(kNotesMaxUnits);
        return false;
    }
    return true;
}

}  // namespace

int RunNotesPublish(const SPluginOptions& plugin, const SMeetingOptions& meeting, const std::string& file)
{
    std::string text;
    std::string error;
    if (!ReadNotesFile(file, text, error)) return Fail(error);
    CCliSession session;
    if (!session.Open(plugin, meeting, error)) return Fail(error);
    std::unique_ptr<CPluginParticipant> writer = session.Join(meeting.nUserId, NOTETAKER_SINGLE, NOTE_USER_WRITER);
    if (!session.WaitLive(*writer, error)) return Fail(error);
    INoteHeadlessPanel* panel = writer->Panel();
    if (!panel) return Fail("the plug-in gave the note taker no panel");

    panel->Focus(true);
    panel->Select(0, panel->Length());
    const int beeps = panel->BeepCount();
    if (!panel->Type(text.c_str()) || panel->BeepCount() != beeps || writer->PanelText() != text)
        return Fail("the notes panel refused the text of " + file);
    if (!PumpMainLoopUntil([panel] { return panel->IsPublishEnabled(); }, kPublishEnableSeconds))
        return Fail("the notes panel's Publish button stayed disabled");
    panel->ClickPublish();
    if (!session.WaitSettled(error)) return Fail(error);
    if (session.TakeRefusal(error)) {
        std::string message = session.Where() + " refused the notes: " + error;
        if (error.compare(0, 6, "NOPERM") == 0) message += " (a reader's credentials cannot publish)";
        return Fail(message);
    }

    // What a participant joining now reads.
    std::unique_ptr<CPluginParticipant> check = session.Join(meeting.nUserId + 1, NOTETAKER_SINGLE, NOTE_USER_READER);
    if (!session.WaitLive(*check, error)) return Fail(error);
    if (check->PanelText() != text)
        return Fail(session.Where() + " does not hold the published notes (did another note taker publish at once?)");
    return 0;
}

int RunNotesPrint(const SPluginOptions& plugin, const SMeetingOptions& meeting)
{
    CCliSession session;
    std::string error;
    if (!session.Open(plugin, meeting, error)) return Fail(error);
    if (!session.CheckMeetingExists(error)) return Fail(error);
    std::unique_ptr<CPluginParticipant> reader = session.Join(meeting.nUserId, NOTETAKER_SINGLE, NOTE_USER_READER);
    if (!session.WaitLive(*reader, error)) return Fail(error);
    const std::string text = reader->PanelText();
    std::fputs(text.c_str(), stdout);
    if (!text.empty() && text.back() != '\n') std::fputc('\n', stdout);
    return std::fflush(stdout) == 0 ? 0 : Fail("cannot write the notes to standard output");
}
