// The commands of notectl, each a function from its parsed options to the exit status: 0 done,
// 1 failed (one line on standard error says why). main.cpp parses the command line.
#pragma once

#include "CaptionFormat.h"
#include "Session.h"

#include <string>

// The scripted in-process meeting (no server).
int RunDemo(const std::string& pluginPath);

// Types each line of standard input into the captions and commits it with Return.
int RunCaption(const SPluginOptions& plugin, const SMeetingOptions& meeting);

// Prints each caption line as it arrives, the meeting's earlier lines first.
struct SFollowOptions {
    ECaptionFormat eFormat = ECaptionFormat::kText;
    bool bWait = false;  // join a meeting that does not exist yet
};
int RunFollow(const SPluginOptions& plugin, const SMeetingOptions& meeting, const SFollowOptions& follow);

// The single note taker's notes: publish a file's text, print the published text.
int RunNotesPublish(const SPluginOptions& plugin, const SMeetingOptions& meeting, const std::string& file);
int RunNotesPrint(const SPluginOptions& plugin, const SMeetingOptions& meeting);

// Writes the meeting's captions to file ("-": standard output) with cue times from the server's
// arrival times.
int RunExport(const SPluginOptions& plugin, const SMeetingOptions& meeting, ECaptionFormat format,
              const std::string& file);

// The meeting's writer and reader users (printed as shell assignments of their URLs), and its
// removal. meeting.strName and strPassword are the administrator's.
int RunMeetingCreate(const SMeetingOptions& admin);
int RunMeetingDelete(const SMeetingOptions& admin);
