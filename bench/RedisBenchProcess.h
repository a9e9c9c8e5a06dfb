// What the Redis benchmarks run besides themselves: a redis-server on loopback (a free TCP port,
// its folder in /tmp, no persistence), child processes of the benchmark binary itself that talk
// back one line at a time, and the few clocks and /proc figures they measure with. The server
// and the children die with the benchmark even when it crashes (PR_SET_PDEATHSIG).
#pragma once

#include "conference/RedisConference.h"

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// CLOCK_MONOTONIC in nanoseconds: one clock for every process on the machine.
std::int64_t MonotonicNs();
// VmRSS, VmHWM, ... of this process in kB; -1 when missing.
long ProcStatusKb(const char* key);
// Resets VmHWM to the current RSS; false when the kernel does not allow it.
bool ResetPeakRss();
// The p-th percentile (0..100, nearest rank) of v; 0 for none.
double Percentile(std::vector<double> v, double p);
double Median(std::vector<double> v);

class CBenchRedisServer {
public:
    CBenchRedisServer() = default;
    ~CBenchRedisServer();
    CBenchRedisServer(const CBenchRedisServer&) = delete;
    CBenchRedisServer& operator=(const CBenchRedisServer&) = delete;

    // Starts redis-server on 127.0.0.1 and waits until it answers; false with a reason.
    bool Start(std::string& error);
    bool IsRunning() const { return m_nPid > 0; }
    int Port() const { return m_nPort; }
    CRedisMeetingOptions Options(const std::string& meetingId) const;
    // A field of INFO (such as "used_memory"); -1 when it cannot be read.
    long long Info(const std::string& section, const std::string& field) const;

private:
    std::string m_strDir;
    int m_nPort = 0;
    pid_t m_nPid = -1;
};

// One child process: this binary run again with arguments; its standard input and output are
// pipes to us, its standard error is ours.
class CBenchChild {
public:
    CBenchChild() = default;
    ~CBenchChild();
    CBenchChild(const CBenchChild&) = delete;
    CBenchChild& operator=(const CBenchChild&) = delete;

    bool Spawn(const std::vector<std::string>& args, std::string& error);
    // Takes every whole line the child has written so far (does not wait).
    void Poll(std::vector<std::string>& lines);
    bool HasEnded() const { return m_bEof; }
    // Writes text to its standard input.
    void Send(const char* text);
    // Closes its standard input: the child's signal to finish.
    void CloseInput();
    // Waits for the exit; its status as waitpid reports it.
    int Wait();

private:
    pid_t m_nPid = -1;
    int m_nIn = -1;
    int m_nOut = -1;
    bool m_bEof = false;
    std::string m_strPending;
};

// Turns the GLib default main context until done() holds or timeoutSeconds pass; blocks in the
// context between checks, at most 10 ms at a time.
bool RunMainLoopUntil(const std::function<bool()>& done, double timeoutSeconds);
