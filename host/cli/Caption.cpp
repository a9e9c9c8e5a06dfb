// notectl caption: the captioner of a Redis meeting. Joins through the plug-in as the writer of
// the closed-captions notepad, waits until the participant is live, then types every line read
// from standard input into its headless panel and commits it with Return, as a person at the
// panel would. At the end of input it waits until the server confirmed every line, then leaves.
#include "Commands.h"

#include <glib-unix.h>
#include <glib.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <deque>
#include <string>

namespace {

// The closed-captions notepad's limit, in the panel's units (UTF-16), line ends included.
constexpr unsigned kCaptionMaxUnits = 409600;

// Lines of standard input as they come, read on the main loop.
class CInputLines {
public:
    CInputLines() : m_nSource(g_unix_fd_add(STDIN_FILENO, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR),
                                            &CInputLines::OnReadable, this))
    {
    }
    ~CInputLines() { Stop(); }
    CInputLines(const CInputLines&) = delete;
    CInputLines& operator=(const CInputLines&) = delete;

    bool Next(std::string& line)
    {
        if (m_aLines.empty()) return false;
        line = std::move(m_aLines.front());
        m_aLines.pop_front();
        return true;
    }
    bool AtEnd() const { return m_nSource == 0 && m_aLines.empty(); }
    const std::string& Error() const { return m_strError; }
    void Stop()
    {
        if (m_nSource) g_source_remove(m_nSource);
        m_nSource = 0;
    }

private:
    static gboolean OnReadable(gint fd, GIOCondition, gpointer data)
    {
        auto* self = static_cast<CInputLines*>(data);
        char buffer[65536];
        const ssize_t got = read(fd, buffer, sizeof buffer);
        if (got < 0 && (errno == EINTR || errno == EAGAIN)) return G_SOURCE_CONTINUE;
        if (got <= 0) {
            if (got < 0) self->m_strError = std::string("cannot read standard input: ") + std::strerror(errno);
            if (!self->m_strPartial.empty()) self->m_aLines.push_back(std::move(self->m_strPartial));
            self->m_nSource = 0;
            return G_SOURCE_REMOVE;
        }
        self->m_strPartial.append(buffer, static_cast<std::size_t>(got));
        std::size_t start = 0;
        for (std::size_t end = self->m_strPartial.find('\n'); end != std::string::npos;
             end = self->m_strPartial.find('\n', start)) {
            self->m_aLines.push_back(self->m_strPartial.substr(start, end - start));
            start = end + 1;
        }
        self->m_strPartial.erase(0, start);
        return G_SOURCE_CONTINUE;
    }

    unsigned m_nSource;
    std::string m_strPartial;
    std::deque<std::string> m_aLines;
    std::string m_strError;
};

// A line as the panel takes it: valid UTF-8, no line end, no control character but the tab
// (the notepad's text travels as XML, which has no room for them).
std::string CleanLine(const std::string& raw)
{
    gchar* valid = g_utf8_make_valid(raw.data(), static_cast<gssize>(raw.size()));
    std::string line;
    for (const char* p = valid; *p; ++p) {
        const unsigned char c = static_cast<unsigned char>(*p);
        if (c >= 0x20 && c != 0x7f)
            line += *p;
        else if (c == '\t')
            line += ' ';
    }
    g_free(valid);
    return line;
}

enum class ETyped { kCommitted, kFull, kRefused };

// Types line at the end of the captions and presses Return. Nothing of a refused line stays.
ETyped TypeLine(INoteHeadlessPanel& panel, const std::string& line)
{
    const unsigned before = panel.Length();
    const unsigned units = Utf16Units(line);
    if (before + units + 1 > kCaptionMaxUnits) return ETyped::kFull;
    const int beeps = panel.BeepCount();
    panel.Select(before, 0);
    const bool typed = line.empty() || panel.Type(line.c_str());
    if (!typed || panel.BeepCount() != beeps || panel.Length() != before + units) {
        if (panel.Length() > before) {
            panel.Select(before, panel.Length() - before);
            panel.DeleteBackward();
        }
        return ETyped::kRefused;
    }
    panel.PressReturn();
    return panel.BeepCount() == beeps && panel.Length() == before + units + 1 ? ETyped::kCommitted : ETyped::kRefused;
}

std::string RefusalMessage(const CCliSession& session, const std::string& reason)
{
    std::string message = session.Where() + " refused a caption line: " + reason;
    if (reason.compare(0, 6, "NOPERM") == 0) message += " (a reader's credentials cannot caption)";
    return message;
}

}  // namespace

int RunCaption(const SPluginOptions& plugin, const SMeetingOptions& meeting)
{
    CCliSession session;
    std::string error;
    if (!session.Open(plugin, meeting, error)) return Fail(error);
    std::unique_ptr<CPluginParticipant> captioner =
        session.Join(meeting.nUserId, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_WRITER);
    if (!session.WaitLive(*captioner, error)) return Fail(error);
    INoteHeadlessPanel* panel = captioner->Panel();
    if (!panel) return Fail("the plug-in gave the captioner no panel");
    panel->Focus(true);

    CInputLines input;
    unsigned number = 0;
    unsigned refused = 0;
    const int stops = session.StopRequests();
    while (!input.AtEnd()) {
        session.RunOnce();
        if (session.StopRequests() != stops) input.Stop();  // Ctrl-C ends the input
        std::string line;
        while (input.Next(line)) {
            ++number;
            const ETyped result = TypeLine(*panel, CleanLine(line));
            if (result == ETyped::kFull)
                Fail("line " + std::to_string(number) + " refused: the captions would pass their limit of " +
                     std::to_string(kCaptionMaxUnits) + " characters");
            else if (result == ETyped::kRefused)
                Fail("line " + std::to_string(number) + " refused: the captions panel beeped at it");
            refused += result != ETyped::kCommitted;
        }
        if (session.TakeRefusal(error)) return Fail(RefusalMessage(session, error));
        if (session.ShutOut(error)) return Fail(error);
    }
    if (!input.Error().empty()) Fail(input.Error());
    if (!session.WaitSettled(error)) return Fail(error);
    if (session.TakeRefusal(error)) return Fail(RefusalMessage(session, error));
    return refused || !input.Error().empty() ? 1 : 0;
}
