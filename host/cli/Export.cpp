// notectl export: a Redis meeting's captions as a file, cue times from the server's arrival
// times. The items are read from the server (ReadRedisMeetingHistory) and turned into lines by
// the plug-in itself (Replay.h); cues count from the first caption.
#include "Commands.h"
#include "Replay.h"

#include "transport/RunLoop.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace {

// The items of the cache that holds the most (a meeting has one cache per notepad session).
std::vector<CRecordedItem> CaptionItems(std::vector<CRecordedItem> items)
{
    std::map<unsigned, std::size_t> counts;
    for (const CRecordedItem& item : items) ++counts[item.nCacheHandle];
    unsigned cache = 0;
    std::size_t most = 0;
    for (const auto& count : counts)
        if (count.second > most) {
            cache = count.first;
            most = count.second;
        }
    std::vector<CRecordedItem> chosen;
    for (CRecordedItem& item : items)
        if (item.nCacheHandle == cache) chosen.push_back(std::move(item));
    return chosen;
}

bool WriteLines(const std::vector<CTimedLine>& lines, ECaptionFormat format, std::FILE* out)
{
    CCaptionWriter writer(format, out);
    if (!writer.WriteHeader()) return false;
    const double first = lines.empty() ? 0 : lines.front().dArrival;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        CCaptionLine line;
        line.strText = lines[i].strText;
        line.dStart = lines[i].dArrival - first;
        line.dEnd = CueEnd(line.dStart, i + 1 < lines.size() ? lines[i + 1].dArrival - first : -1);
        line.dArrivalUnix = lines[i].dArrival + kReferenceDateUnixSeconds;
        if (!writer.Write(line)) return false;
    }
    return true;
}

}  // namespace

int RunExport(const SPluginOptions& plugin, const SMeetingOptions& meeting, ECaptionFormat format,
              const std::string& file)
{
    CCliSession session;
    std::string error;
    if (!session.Prepare(plugin, meeting, error)) return Fail(error);
    if (!session.CheckMeetingExists(error)) return Fail(error);
    std::vector<CRecordedItem> items;
    if (!ReadRedisMeetingHistory(session.RedisOptions(), items, error)) return Fail(error);
    std::vector<CTimedLine> lines;
    if (!ReplayCaptions(session.Plugin(), CaptionItems(std::move(items)), lines, error)) return Fail(error);

    if (file == "-") return WriteLines(lines, format, stdout) ? 0 : Fail("cannot write to standard output");
    // Written beside the file and renamed over it: a failed export leaves no half file.
    const std::string temporary = file + ".part";
    std::FILE* out = std::fopen(temporary.c_str(), "w");
    if (!out) return Fail("cannot write " + file + ": " + std::strerror(errno));
    const bool written = WriteLines(lines, format, out);
    const bool closed = std::fclose(out) == 0;
    if (!written || !closed || std::rename(temporary.c_str(), file.c_str()) != 0) {
        const std::string reason = std::strerror(errno);
        std::remove(temporary.c_str());
        return Fail("cannot write " + file + ": " + reason);
    }
    return 0;
}
