// notectl as people run it: separate processes against a real redis-server. A wrong command
// line or an unusable server is one line on stderr and a non-zero status; a captioner and three
// readers keep every line through two server crashes (append-only file on), and a reader
// started anew gets the whole history once.
#include "RedisTestServer.h"

#include <fcntl.h>
#include <cstdio>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace {

// One notectl process: standard input a pipe (or nothing), standard output and error files.
class CNotectl {
public:
    CNotectl(std::vector<std::string> args, const std::string& out, bool withInput = false) : m_strOut(out)
    {
        args.insert(args.begin(), NOTECTL_PATH);
        std::vector<char*> argv;
        for (std::string& arg : args) argv.push_back(&arg[0]);
        argv.push_back(nullptr);
        int input[2] = {-1, -1};
        if (withInput && pipe2(input, O_CLOEXEC) != 0) ADD_FAILURE() << "no pipe";
        const std::string err = out + ".err";
        signal(SIGPIPE, SIG_IGN);  // a process that ended early fails Type, not the test
        m_nPid = fork();
        if (m_nPid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            signal(SIGPIPE, SIG_DFL);
            const int in = withInput ? input[0] : open("/dev/null", O_RDONLY);
            dup2(in, 0);
            dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), 1);
            dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), 2);
            if (withInput) close(input[1]);
            execv(argv[0], argv.data());
            _exit(127);
        }
        if (withInput) {
            close(input[0]);
            m_nInput = input[1];
        }
    }
    ~CNotectl()
    {
        CloseInput();
        if (m_nPid > 0) {
            kill(m_nPid, SIGKILL);
            waitpid(m_nPid, nullptr, 0);
        }
    }
    void Type(const std::string& line) { ASSERT_EQ(write(m_nInput, (line + "\n").data(), line.size() + 1), ssize_t(line.size() + 1)); }
    void CloseInput()
    {
        if (m_nInput >= 0) close(m_nInput);
        m_nInput = -1;
    }
    // The exit status once it ended (within seconds), else -1 (then it is killed).
    int Wait(double seconds, int signal = 0)
    {
        if (signal) kill(m_nPid, signal);
        int status = 0;
        for (int i = 0; i < seconds * 100; ++i, usleep(10000)) {
            if (waitpid(m_nPid, &status, WNOHANG) != m_nPid) continue;
            m_nPid = -1;
            return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        return -1;
    }
    std::string Out() const { return Read(m_strOut); }
    std::string Err() const { return Read(m_strOut + ".err"); }

private:
    static std::string Read(const std::string& path)
    {
        std::ifstream file(path);
        std::stringstream text;
        text << file.rdbuf();
        return text.str();
    }

    std::string m_strOut;
    pid_t m_nPid = -1;
    int m_nInput = -1;
};

// The lines with text, each ended, in one string (a failure shows the lines that differ).
// Blank lines stand where a panel had a service notice of its own lost connection. notices:
// whether the captioner's notices, which the plug-in may share with the captions, are kept.
std::string TextLines(const std::string& output, bool notices = true)
{
    std::string lines;
    std::istringstream in(output);
    for (std::string line; std::getline(in, line);) {
        const std::string what = line.size() > 8 ? line.substr(8) : "";  // after "hh:mmam "
        const bool notice = line.size() > 8 && line[2] == ':' && line.compare(6, 2, "m ") == 0 &&
                            (what == "Service restored." || what.rfind("Closed Captions is currently", 0) == 0);
        if (!line.empty() && (notices || !notice)) lines += line + "\n";
    }
    return lines;
}

bool WaitFor(const std::function<bool()>& done, double seconds)
{
    for (int i = 0; i < seconds * 100; ++i, usleep(10000))
        if (done()) return true;
    return done();
}

class Notectl : public ::testing::Test {
protected:
    CRedisTestServer m_server{{"--appendonly", "yes", "--appendfsync", "always"}};
    const std::string m_strUrl = "unix://" + m_server.Options("").strUnixSocket;
    const std::string m_strSocket = m_server.Options("").strUnixSocket;
    // A file beside the server's, removed with it.
    std::string Path(const std::string& name) const { return m_strSocket.substr(0, m_strSocket.rfind('/') + 1) + name; }
};

TEST_F(Notectl, EveryFailureIsOneLineOnStderr)
{
    const struct {
        std::vector<std::string> args;
        int status;
        std::string message;
        std::string input = {};  // standard input, typed and closed
    } cases[] = {
        {{"follow", "--meeting", "m", "--redis", "redis://127.0.0.1:1"}, 1,
         "notectl: cannot reach the Redis server at 127.0.0.1:1: Connection refused\n"},
        {{"caption", "--meeting", "m", "--redis", m_strUrl, "--name", "nobody", "--password", "x"}, 1,
         "notectl: the Redis server at " + m_strSocket +
             " refused the credentials: WRONGPASS invalid username-password pair or user is disabled.\n"},
        {{"follow", "--meeting", "none-here", "--redis", m_strUrl}, 1,
         "notectl: no such meeting: none-here on " + m_strSocket +
             " (nobody has joined it; start its captioner or note taker first, or pass --wait)\n"},
        {{"follow", "--meeting", "m", "--redis", m_strUrl, "--plugin", "/nowhere/libnote.so"}, 1,
         "notectl: cannot load the plug-in: /nowhere/libnote.so: cannot open shared object file: No such file or "
         "directory\n"},
        {{"caption", "--meeting", "m", "--redis", m_strUrl}, 1,
         "notectl: line 1 refused: the captions would pass their limit of 409600 characters\n", std::string(409600, 'x')},
        {{"follow", "--meeting", "m", "--colour"}, 2,
         "notectl: The following argument was not expected: --colour (see notectl --help)\n"},
        {{"export", "--meeting", "m", "--format", "ass", "x"}, 2,
         "notectl: --format: ass not in {text,txt,srt,vtt,jsonl} (see notectl --help)\n"},
    };
    for (const auto& c : cases) {
        CNotectl run(c.args, Path("failing.out"), !c.input.empty());
        if (!c.input.empty()) run.Type(c.input);
        run.CloseInput();
        EXPECT_EQ(run.Wait(20), c.status) << c.args[0];
        EXPECT_EQ(run.Err(), c.message);
        EXPECT_EQ(run.Out(), "");
    }
}

// The value of NAME=value in the lines of text.
std::string Value(const std::string& text, const std::string& name)
{
    const std::size_t at = text.find(name + "=");
    return at == std::string::npos ? "" : text.substr(at + name.size() + 1, text.find('\n', at) - at - name.size() - 1);
}

// A meeting made with "meeting create", captioned through a pipe in two bursts a second apart,
// followed and exported; the reader's credentials cannot caption it, and "meeting delete"
// leaves them useless.
TEST_F(Notectl, AMeetingIsCreatedCaptionedFollowedExportedAndDeleted)
{
    CNotectl create({"meeting", "create", "board", "--redis", m_strUrl}, Path("create.out"));
    ASSERT_EQ(create.Wait(10), 0) << create.Err();
    const auto as = [&](const char* role, std::vector<std::string> command) {
        const std::string prefix = std::string("NOTE_") + role;
        command.insert(command.end(), {"--meeting", "board", "--redis", m_strUrl, "--name", Value(create.Out(), prefix + "_USER"),
                                       "--password", Value(create.Out(), prefix + "_PASSWORD")});
        return command;
    };
    CNotectl follow(as("READER", {"follow"}), Path("follow.out"));
    ASSERT_TRUE(WaitFor([&] { return follow.Err().find("notectl: following") == 0; }, 10)) << follow.Err();
    const auto caption = [&](const char* role, const std::vector<std::string>& lines) {
        CNotectl captioner(as(role, {"caption"}), Path("caption.out"), true);
        for (const std::string& line : lines) captioner.Type(line);
        captioner.CloseInput();
        const int status = captioner.Wait(20);
        return status == 0 ? std::string() : captioner.Err();
    };
    EXPECT_EQ(caption("WRITER", {"Good morning.", "Item <1> & more"}), "");
    usleep(1000000);
    EXPECT_EQ(caption("WRITER", {"Bye."}), "");
    EXPECT_NE(caption("READER", {"forged"}).find("refused a caption line: NOPERM"), std::string::npos);

    const std::string lines = "Good morning.\nItem <1> & more\nBye.\n";
    EXPECT_TRUE(WaitFor([&] { return follow.Out() == lines; }, 10)) << follow.Out() << follow.Err();
    CNotectl exporter(as("READER", {"export", "--format", "vtt", Path("board.vtt")}), Path("export.out"));
    ASSERT_EQ(exporter.Wait(20), 0) << exporter.Err();
    std::ifstream file(Path("board.vtt"));
    const std::string vtt((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    // Cue times from the arrival times: the third line came a second after the first two.
    std::vector<double> times;
    std::string texts;
    std::istringstream cues(vtt);
    for (std::string line; std::getline(cues, line);) {
        unsigned h[2], m[2], sec[2], ms[2];
        if (std::sscanf(line.c_str(), "%u:%u:%u.%u --> %u:%u:%u.%u", &h[0], &m[0], &sec[0], &ms[0], &h[1], &m[1], &sec[1],
                        &ms[1]) == 8)
            for (int i : {0, 1}) times.push_back(h[i] * 3600 + m[i] * 60 + sec[i] + ms[i] / 1000.0);
        else
            texts += line + "|";
    }
    EXPECT_EQ(texts, "WEBVTT||Good morning.||Item &lt;1&gt; &amp; more||Bye.||");
    ASSERT_EQ(times.size(), 6u) << vtt;
    EXPECT_EQ(times[0], 0);
    EXPECT_LT(times[1], 0.1);                          // the first two lines came together
    EXPECT_LT(times[2], 0.1);
    EXPECT_TRUE(times[3] >= 1 && times[3] < 5) << vtt;  // a second later (and a process start)
    EXPECT_EQ(times[4], times[3]);
    EXPECT_DOUBLE_EQ(times[5], times[4] + 4);          // the last cue shows four seconds

    CNotectl remove({"meeting", "delete", "board", "--redis", m_strUrl}, Path("delete.out"));
    ASSERT_EQ(remove.Wait(10), 0) << remove.Err();
    EXPECT_EQ(follow.Wait(10), 1);  // shut out, not retrying for ever
    EXPECT_NE(follow.Err().find("no longer lets us in (WRONGPASS"), std::string::npos) << follow.Err();
    CNotectl late(as("READER", {"follow"}), Path("late.out"));
    EXPECT_EQ(late.Wait(10), 1);
    EXPECT_NE(late.Err().find("refused the credentials: WRONGPASS"), std::string::npos) << late.Err();
}

TEST_F(Notectl, ReadersKeepEveryLineThroughTwoServerCrashes)
{
    const std::vector<std::string> meeting = {"--meeting", "crash", "--redis", m_strUrl};
    const auto args = [&meeting](std::vector<std::string> command) {
        command.insert(command.end(), meeting.begin(), meeting.end());
        return command;
    };
    CNotectl captioner(args({"caption"}), Path("caption.out"), true);
    std::vector<std::unique_ptr<CNotectl>> readers;
    for (int i = 0; i < 3; ++i)
        readers.push_back(std::make_unique<CNotectl>(args({"follow", "--wait", "--user", std::to_string(10 + i)}),
                                                     Path("reader" + std::to_string(i) + ".out")));
    // Lines are typed once every reader has joined: a line put between a reader's first
    // subscription and its history would reach its plug-in before that history (shown first).
    for (const auto& reader : readers)
        ASSERT_TRUE(WaitFor([&] { return reader->Err().find("notectl: following") == 0; }, 10)) << reader->Err();
    std::string typed;
    int count = 0;
    const auto type = [&](int lines) {
        for (int i = 0; i < lines; ++i, usleep(20000)) {
            const std::string line = "line " + std::to_string(++count) + ": \"caption\" <" + std::to_string(i) + ">";
            captioner.Type(line);
            typed += line + "\n";
        }
    };
    type(10);
    for (int crash = 0; crash < 2; ++crash) {
        m_server.Stop(SIGKILL);
        type(8);  // into a dead connection, then queued while it reconnects
        ASSERT_TRUE(m_server.Start());
        type(8);
    }
    // A reader that was killed and joins again (a new instance) reads the whole history once.
    readers[2].reset();
    // It joins while nobody types (see above).
    readers[2] = std::make_unique<CNotectl>(args({"follow"}), Path("reader2-again.out"));
    ASSERT_TRUE(WaitFor([&] { return TextLines(readers[2]->Out(), false) == typed; }, 10)) << readers[2]->Err();
    type(5);
    captioner.CloseInput();
    EXPECT_EQ(captioner.Wait(20), 0) << captioner.Err();

    // Every reader shows the same text: each typed line once and in order, and whatever of the
    // captioner's service notices the plug-in shared.
    for (const auto& reader : readers)
        EXPECT_TRUE(WaitFor([&] { return TextLines(reader->Out(), false) == typed; }, 10));
    for (const auto& reader : readers) {
        EXPECT_EQ(reader->Wait(10, SIGTERM), 0) << reader->Err();
        EXPECT_EQ(TextLines(reader->Out(), false), typed) << reader->Err();
        EXPECT_EQ(TextLines(reader->Out()), TextLines(readers[0]->Out()));
    }
}

}  // namespace
