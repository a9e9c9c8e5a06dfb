// CLogSequencer: puts one process's view of a Redis-backed meeting into one order. Entries of
// the meeting log arrive on the reader connection; answers to this process's own commands (a
// put's confirm, a refusal, a subscription's first answer or its history) arrive on the command
// connection, each carrying the log position its script saw. The two connections race, so the
// sequencer merges them by position: an answer is acted on once every entry up to its position
// has been delivered and before any later one, and an entry waits while a command that may
// still answer at an earlier position is outstanding. Single-threaded.
#pragma once

#include "conference/RedisWire.h"

#include <cstddef>
#include <deque>
#include <functional>

class CLogSequencer {
public:
    // start: the log position this process reads from.
    explicit CLogSequencer(const CStreamId& start) : m_fetched(start), m_nOutstanding(0) {}

    // A command whose answer is ordered with the log went out.
    void Sent() { ++m_nOutstanding; }
    // Its answer (in the order the commands were sent): act runs at position; 0-0 runs it as
    // soon as the answers before it have run.
    void Answered(const CStreamId& position, std::function<void()> act);
    // An entry read from the log (null: read but refused); ids at or below the last read are
    // ignored. Returns false for those.
    bool Read(const CStreamId& id, const CLogEvent* event);
    // Delivers the entries and runs the answers whose turn has come.
    void Pump(const std::function<void(const CLogEvent&)>& deliver);

    const CStreamId& Fetched() const { return m_fetched; }
    // Nothing outstanding, nothing waiting.
    bool IsIdle() const { return m_nOutstanding == 0 && m_answers.empty() && m_events.empty(); }

private:
    struct CAnswer {
        CStreamId position;
        std::function<void()> act;
    };

    CStreamId m_fetched;             // the last log entry read
    std::deque<CLogEvent> m_events;  // read, not yet delivered
    std::deque<CAnswer> m_answers;   // answered, not yet acted on
    std::size_t m_nOutstanding;
    CStreamId m_newestAnswer;  // the highest position of an answer received
};
