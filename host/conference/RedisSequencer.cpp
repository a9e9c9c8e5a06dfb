// CLogSequencer: the merge of log entries and ordered answers.
#include "conference/RedisSequencer.h"

#include <utility>

void CLogSequencer::Answered(const CStreamId& position, std::function<void()> act)
{
    if (m_nOutstanding > 0) --m_nOutstanding;
    if (m_newestAnswer < position) m_newestAnswer = position;
    m_answers.push_back(CAnswer{position, std::move(act)});
}

bool CLogSequencer::Read(const CStreamId& id, const CLogEvent* event)
{
    if (!(m_fetched < id)) return false;
    m_fetched = id;
    if (event) m_events.push_back(*event);
    return true;
}

void CLogSequencer::Pump(const std::function<void(const CLogEvent&)>& deliver)
{
    for (;;) {
        if (!m_answers.empty()) {
            const CStreamId& position = m_answers.front().position;
            if (position <= m_fetched && (m_events.empty() || position < m_events.front().id)) {
                const std::function<void()> act = std::move(m_answers.front().act);
                m_answers.pop_front();
                if (act) act();
                continue;
            }
        }
        if (m_events.empty()) return;
        // A command still out may answer at a position before this entry.
        if (m_nOutstanding > 0 && m_newestAnswer < m_events.front().id) return;
        const CLogEvent event = std::move(m_events.front());
        m_events.pop_front();
        deliver(event);
    }
}
