// CRedisTestServer: a real redis-server for tests, run as a child process on a Unix socket in a
// temporary folder (no persistence unless the test asks), stopped and its folder removed at the
// end. It dies with the test process even when that crashes. A missing redis-server fails the
// test that needs it: the setup script installs it, so its absence is an error, not a skip.
#pragma once

#include "conference/RedisConference.h"
#include "conference/RedisScripts.h"

#include <gtest/gtest.h>

#include <glib.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

class CRedisTestServer {
public:
    // extraArgs follow the defaults, so they override them ("--appendonly", "yes").
    explicit CRedisTestServer(std::vector<std::string> extraArgs = {}) : m_aExtra(std::move(extraArgs))
    {
        char pattern[] = "/tmp/noteredisXXXXXX";
        if (mkdtemp(pattern)) m_strDir = pattern;
        m_strSocket = m_strDir + "/redis.sock";
        Start();
    }
    ~CRedisTestServer()
    {
        Stop(SIGTERM);
        if (!m_strDir.empty()) {
            std::error_code ignored;
            std::filesystem::remove_all(m_strDir, ignored);
        }
    }
    CRedisTestServer(const CRedisTestServer&) = delete;
    CRedisTestServer& operator=(const CRedisTestServer&) = delete;

    // One server for a whole test process (the contract and plug-in suites).
    static CRedisTestServer& Shared()
    {
        static CRedisTestServer server;
        return server;
    }

    // Starts the server (again, on the same folder and socket) and waits until it answers.
    bool Start()
    {
        gchar* program = g_find_program_in_path("redis-server");
        std::vector<std::string> args = {program ? program : "", "--port", "0", "--unixsocket", m_strSocket,
                                         "--dir", m_strDir, "--save", "", "--appendonly", "no", "--logfile",
                                         m_strDir + "/redis.log"};
        g_free(program);
        if (args[0].empty() || m_strDir.empty()) {
            ADD_FAILURE() << "redis-server is not installed (scripts/setup.sh installs it)";
            return false;
        }
        args.insert(args.end(), m_aExtra.begin(), m_aExtra.end());
        std::vector<char*> argv;  // made before the fork: the child only calls what is safe there
        for (std::string& arg : args) argv.push_back(&arg[0]);
        argv.push_back(nullptr);
        m_nPid = fork();
        if (m_nPid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            execv(argv[0], argv.data());
            _exit(127);
        }
        for (int attempt = 0; attempt < 1000; ++attempt) {
            std::string error;
            CRedisSyncContext context = ConnectRedisSync(Options(""), error);
            if (context && RedisCommandSync(context.get(), {"PING"}, error)) return true;
            g_usleep(10000);  // starting, or loading its append-only file
        }
        ADD_FAILURE() << "redis-server did not start; see " << m_strDir << "/redis.log";
        return false;
    }
    // Ends the server as a crash would (SIGKILL) or as an operator would (SIGTERM).
    void Stop(int signal = SIGKILL)
    {
        if (m_nPid <= 0) return;
        kill(m_nPid, signal);
        waitpid(m_nPid, nullptr, 0);
        m_nPid = -1;
    }

    CRedisMeetingOptions Options(const std::string& meetingId) const
    {
        CRedisMeetingOptions options;
        options.strUnixSocket = m_strSocket;
        options.strMeetingId = meetingId;
        return options;
    }
    // A synchronous connection as the server's default (administrator) user.
    CRedisSyncContext Admin() const
    {
        std::string error;
        CRedisSyncContext context = ConnectRedisSync(Options(""), error);
        EXPECT_TRUE(context) << error;
        return context;
    }

private:
    std::vector<std::string> m_aExtra;
    std::string m_strDir;
    std::string m_strSocket;
    pid_t m_nPid = -1;
};

// A meeting id no other test of this run uses.
inline std::string UniqueTestMeetingId()
{
    static unsigned counter = 0;
    return "t" + std::to_string(getpid()) + "-" + std::to_string(++counter);
}

// A new meeting on the shared server with the settings of an in-process one.
inline std::unique_ptr<IMeeting> NewTestRedisMeeting(const CMeetingOptions& settings)
{
    CRedisMeetingOptions options = CRedisTestServer::Shared().Options(UniqueTestMeetingId());
    options.bPki = settings.bPki;
    options.nConferenceHandle = settings.nConferenceHandle;
    options.nSessionHandle = settings.nSessionHandle;
    std::string error;
    std::unique_ptr<IMeeting> meeting = NewRedisMeeting(options, error);
    EXPECT_TRUE(meeting) << error;
    return meeting;
}
