// notectl: the headless participant. The command table: each command's options, parsed with
// CLI11, and the function that runs it (Commands.h). A wrong command line is one line on
// standard error and exit status 2; a failed command, one line and status 1.
#include "Commands.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <string>

namespace {

// Participant user ids when --user is not given: the writer 1, a reader 2.
constexpr unsigned kWriterUserId = 1;
constexpr unsigned kReaderUserId = 2;

struct SCommandLine {
    SPluginOptions plugin;
    SMeetingOptions meeting;
    unsigned nUserId = 0;  // 0: the command's default
    std::string strFormat = "text";
    std::string strFile;
    SFollowOptions follow;
};

void AddPluginOptions(CLI::App* command, SCommandLine& line)
{
    command->add_option("--plugin", line.plugin.strPath,
                        "the plug-in file (default: $NOTE_PLUGIN, else the one built with notectl)");
    command->add_flag("--trace", line.plugin.bTrace, "show the plug-in's trace lines on standard error");
}

void AddServerOptions(CLI::App* command, SCommandLine& line)
{
    command->add_option("--redis", line.meeting.strUrl,
                        "the server: redis://[user[:password]@]host[:port] or unix:///path/to/socket")
        ->capture_default_str();
    command->add_option("--name", line.meeting.strName, "the Redis user (a meeting's, from notectl meeting create)");
    command->add_option("--password", line.meeting.strPassword, "the Redis user's password")
        ->envname("NOTE_REDIS_PASSWORD");
}

void AddMeetingOptions(CLI::App* command, SCommandLine& line, const char* userHelp)
{
    command->add_option("--meeting", line.meeting.strMeetingId, "the meeting id")->required();
    AddServerOptions(command, line);
    command->add_option("--user", line.nUserId, userHelp);
    AddPluginOptions(command, line);
}

int Run(const CLI::App& app, SCommandLine& line)
{
    const CLI::App* command = app.get_subcommands().front();
    const std::string name = command->get_name();
    const CLI::App* inner = command->get_subcommands().empty() ? nullptr : command->get_subcommands().front();
    const bool writes = name == "caption" || (inner && inner->get_name() == "publish");
    line.meeting.nUserId = line.nUserId ? line.nUserId : writes ? kWriterUserId : kReaderUserId;
    ECaptionFormat format = ECaptionFormat::kText;
    ParseCaptionFormat(line.strFormat, format);
    line.follow.eFormat = format;

    RouteHostOutput(line.plugin.bTrace);
    if (name == "demo") {
        const char* fromEnvironment = std::getenv("NOTE_PLUGIN");
        const std::string path = !line.plugin.strPath.empty() ? line.plugin.strPath
                                 : fromEnvironment            ? fromEnvironment
                                                              : CNotePlugin::BuiltPath();
        return RunDemo(path);
    }
    if (name == "caption") return RunCaption(line.plugin, line.meeting);
    if (name == "follow") return RunFollow(line.plugin, line.meeting, line.follow);
    if (name == "export") return RunExport(line.plugin, line.meeting, format, line.strFile);
    if (name == "notes" && inner->get_name() == "publish") return RunNotesPublish(line.plugin, line.meeting, line.strFile);
    if (name == "notes") return RunNotesPrint(line.plugin, line.meeting);
    if (inner->get_name() == "create") return RunMeetingCreate(line.meeting);
    return RunMeetingDelete(line.meeting);
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app("notectl: a participant of note and caption meetings, through the note plug-in, without a window.",
                 "notectl");
    app.require_subcommand(1);
    SCommandLine line;
    const auto formats = CLI::IsMember({"text", "txt", "srt", "vtt", "jsonl"});

    CLI::App* demo = app.add_subcommand("demo", "a scripted closed-captions meeting on the in-process conference");
    AddPluginOptions(demo, line);

    CLI::App* caption = app.add_subcommand(
        "caption", "caption a meeting: every line of standard input is typed and committed with Return");
    AddMeetingOptions(caption, line, "the captioner's user id (default 1)");

    CLI::App* follow = app.add_subcommand("follow", "print a meeting's caption lines as they arrive");
    AddMeetingOptions(follow, line, "the reader's user id (default 2)");
    follow->add_option("--format", line.strFormat, "text, srt, vtt or jsonl (srt and vtt: times since the first line)")
        ->check(formats)
        ->capture_default_str();
    follow->add_flag("--wait", line.follow.bWait, "join a meeting nobody has joined yet, and wait for its captions");

    CLI::App* notes = app.add_subcommand("notes", "the single note taker's notes of a meeting");
    notes->require_subcommand(1);
    CLI::App* publish = notes->add_subcommand("publish", "publish the text of FILE as the meeting's notes");
    AddMeetingOptions(publish, line, "the note taker's user id (default 1)");
    publish->add_option("FILE", line.strFile, "a UTF-8 text file")->required();
    CLI::App* print = notes->add_subcommand("print", "print the meeting's published notes");
    AddMeetingOptions(print, line, "the reader's user id (default 2)");

    CLI::App* exporter = app.add_subcommand("export", "write a meeting's captions with their times to FILE");
    AddMeetingOptions(exporter, line, "the reader's user id (default 2)");
    exporter->add_option("--format", line.strFormat, "srt, vtt, txt or jsonl (cue times since the first caption)")
        ->check(formats)
        ->required();
    exporter->add_option("FILE", line.strFile, "the file to write (- for standard output)")->required();

    CLI::App* meeting = app.add_subcommand("meeting", "make or remove a meeting's Redis users");
    meeting->require_subcommand(1);
    CLI::App* create = meeting->add_subcommand(
        "create", "create the meeting's writer and reader users; prints their URLs and credentials");
    CLI::App* remove = meeting->add_subcommand("delete", "remove the meeting's users and every key of it");
    for (CLI::App* admin : {create, remove}) {
        admin->add_option("ID", line.meeting.strMeetingId, "the meeting id")->required();
        admin->add_option("--redis", line.meeting.strUrl, "the server: redis://[user[:password]@]host[:port]")
            ->capture_default_str();
        admin->add_option("--admin-user", line.meeting.strName, "a Redis user that may create users");
        admin->add_option("--admin-password", line.meeting.strPassword, "its password")
            ->envname("NOTE_REDIS_PASSWORD");
    }

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) return app.exit(e);
        std::string what = e.what();
        while (!what.empty() && what.back() == '\n') what.pop_back();
        std::fprintf(stderr, "notectl: %s (see notectl --help)\n", what.c_str());
        return 2;
    }
    return Run(app, line);
}
