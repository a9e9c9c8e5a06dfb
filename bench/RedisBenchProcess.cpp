// The loopback redis-server, the child processes and the measuring helpers of bench_redis.
#include "RedisBenchProcess.h"

#include "conference/RedisScripts.h"

#include <glib.h>

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>

extern char** environ;

std::int64_t MonotonicNs()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<std::int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

long ProcStatusKb(const char* key)
{
    std::ifstream in("/proc/self/status");
    std::string line;
    const size_t keyLen = std::strlen(key);
    while (std::getline(in, line))
        if (line.compare(0, keyLen, key) == 0 && line.size() > keyLen && line[keyLen] == ':')
            return std::atol(line.c_str() + keyLen + 1);
    return -1;
}

bool ResetPeakRss()
{
    std::ofstream out("/proc/self/clear_refs");
    out << "5";
    out.flush();
    return static_cast<bool>(out);
}

double Percentile(std::vector<double> v, double p)
{
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    const double rank = std::ceil(p / 100.0 * static_cast<double>(v.size()));
    const size_t at = rank < 1 ? 0 : static_cast<size_t>(rank) - 1;
    return v[std::min(at, v.size() - 1)];
}

double Median(std::vector<double> v)
{
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

// ---------------------------------------------------------------- the server

namespace {

// A port nobody listens on now (the kernel's choice for port 0).
int FreeLoopbackPort()
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return 0;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    int port = 0;
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0)
        port = ntohs(address.sin_port);
    close(fd);
    return port;
}

std::vector<char*> Argv(std::vector<std::string>& args)
{
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(&arg[0]);
    argv.push_back(nullptr);
    return argv;
}

}  // namespace

CBenchRedisServer::~CBenchRedisServer()
{
    if (m_nPid > 0) {
        kill(m_nPid, SIGTERM);
        waitpid(m_nPid, nullptr, 0);
    }
    if (!m_strDir.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(m_strDir, ignored);
    }
}

bool CBenchRedisServer::Start(std::string& error)
{
    gchar* program = g_find_program_in_path("redis-server");
    char pattern[] = "/tmp/noteredisbenchXXXXXX";
    if (!program || !mkdtemp(pattern)) {
        g_free(program);
        error = "redis-server is not installed (scripts/setup.sh installs it)";
        return false;
    }
    m_strDir = pattern;
    m_nPort = FreeLoopbackPort();
    std::vector<std::string> args = {program,  "--port",       std::to_string(m_nPort), "--bind", "127.0.0.1",
                                     "--dir",  m_strDir,       "--save",                "",       "--appendonly",
                                     "no",     "--logfile",    m_strDir + "/redis.log", "--maxclients", "2000"};
    g_free(program);
    std::vector<char*> argv = Argv(args);
    m_nPid = fork();
    if (m_nPid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        execv(argv[0], argv.data());
        _exit(127);
    }
    for (int attempt = 0; attempt < 500; ++attempt) {
        std::string reason;
        CRedisSyncContext context = ConnectRedisSync(Options(""), reason);
        if (context && RedisCommandSync(context.get(), {"PING"}, reason)) return true;
        g_usleep(10000);
    }
    error = "redis-server did not start; see " + m_strDir + "/redis.log";
    return false;
}

CRedisMeetingOptions CBenchRedisServer::Options(const std::string& meetingId) const
{
    CRedisMeetingOptions options;
    options.strHost = "127.0.0.1";
    options.nPort = m_nPort;
    options.strMeetingId = meetingId;
    return options;
}

long long CBenchRedisServer::Info(const std::string& section, const std::string& field) const
{
    std::string error;
    CRedisSyncContext context = ConnectRedisSync(Options(""), error);
    CRedisSyncReply reply = context ? RedisCommandSync(context.get(), {"INFO", section}, error) : nullptr;
    if (!reply || reply->type != REDIS_REPLY_STRING) return -1;
    const std::string text(reply->str, reply->len);
    const std::string key = "\n" + field + ":";
    const size_t at = text.find(key);
    return at == std::string::npos ? -1 : std::atoll(text.c_str() + at + key.size());
}

// ---------------------------------------------------------------- children

CBenchChild::~CBenchChild()
{
    CloseInput();
    if (m_nOut >= 0) close(m_nOut);
    if (m_nPid > 0) {
        kill(m_nPid, SIGKILL);
        waitpid(m_nPid, nullptr, 0);
    }
}

bool CBenchChild::Spawn(const std::vector<std::string>& args, std::string& error)
{
    int in[2], out[2];
    if (pipe2(in, O_CLOEXEC) != 0) {
        error = "pipe failed";
        return false;
    }
    if (pipe2(out, O_CLOEXEC) != 0) {
        close(in[0]);
        close(in[1]);
        error = "pipe failed";
        return false;
    }
    std::vector<std::string> all{"/proc/self/exe"};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv = Argv(all);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    const int failed = posix_spawn(&m_nPid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(in[0]);
    close(out[1]);
    m_nIn = in[1];
    m_nOut = out[0];
    if (failed) {
        m_nPid = -1;
        error = std::string("cannot start a child: ") + std::strerror(failed);
        return false;
    }
    fcntl(m_nOut, F_SETFL, fcntl(m_nOut, F_GETFL) | O_NONBLOCK);
    return true;
}

void CBenchChild::Poll(std::vector<std::string>& lines)
{
    char buf[65536];
    for (;;) {
        const ssize_t n = m_nOut >= 0 ? read(m_nOut, buf, sizeof buf) : 0;
        if (n == 0) m_bEof = true;
        if (n <= 0) break;
        m_strPending.append(buf, static_cast<size_t>(n));
    }
    size_t start = 0;
    for (size_t end; (end = m_strPending.find('\n', start)) != std::string::npos; start = end + 1)
        lines.push_back(m_strPending.substr(start, end - start));
    m_strPending.erase(0, start);
}

void CBenchChild::Send(const char* text)
{
    if (m_nIn >= 0 && write(m_nIn, text, std::strlen(text)) < 0) CloseInput();
}

void CBenchChild::CloseInput()
{
    if (m_nIn >= 0) close(m_nIn);
    m_nIn = -1;
}

int CBenchChild::Wait()
{
    int status = -1;
    if (m_nPid > 0) waitpid(m_nPid, &status, 0);
    m_nPid = -1;
    return status;
}

bool RunMainLoopUntil(const std::function<bool()>& done, double timeoutSeconds)
{
    const std::int64_t deadline = MonotonicNs() + static_cast<std::int64_t>(timeoutSeconds * 1e9);
    // Wakes the loop now and then: done() may wait on something that is no source of it.
    const guint waker = g_timeout_add(10, [](gpointer) { return gboolean(G_SOURCE_CONTINUE); }, nullptr);
    bool held = true;
    while (!(held = done()) && MonotonicNs() < deadline) g_main_context_iteration(nullptr, TRUE);
    g_source_remove(waker);
    return held;
}
