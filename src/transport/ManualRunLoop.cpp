// CManualRunLoop: timers and posted callbacks driven by a virtual clock.
#include "transport/ManualRunLoop.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

CManualRunLoop::CManualRunLoop(double now) : m_dNow(now), m_nNextId(1) {}

IRunLoop::TimerId CManualRunLoop::AddTimer(double fireDate, double interval, TimerCallback callback)
{
    if (!callback) return 0;
    const TimerId id = m_nNextId++;
    // A date that is not a number fires at once, as a past date does.
    const double next = std::isnan(fireDate) ? m_dNow : fireDate;
    m_timers.emplace(id, Timer{next, interval, std::make_shared<TimerCallback>(std::move(callback))});
    return id;
}

bool CManualRunLoop::RemoveTimer(TimerId timer)
{
    return m_timers.erase(timer) != 0;
}

void CManualRunLoop::Post(PostedCallback callback)
{
    if (callback) m_posted.push_back(std::move(callback));
}

int CManualRunLoop::RunPosted()
{
    std::deque<PostedCallback> batch;
    batch.swap(m_posted);
    for (PostedCallback& callback : batch) callback();
    return static_cast<int>(batch.size());
}

IRunLoop::TimerId CManualRunLoop::EarliestDue(double until) const
{
    TimerId best = 0;
    double bestDate = 0;
    for (const auto& entry : m_timers) {
        if (entry.second.dNext > until) continue;
        if (best == 0 || entry.second.dNext < bestDate) {
            best = entry.first;
            bestDate = entry.second.dNext;
        }
    }
    return best;
}

void CManualRunLoop::Fire(TimerId id)
{
    const auto found = m_timers.find(id);
    if (found == m_timers.end()) return;
    Timer& timer = found->second;
    // Held here so that a callback may remove its own timer.
    std::shared_ptr<TimerCallback> callback = timer.callback;
    if (timer.dInterval > 0) {
        // Missed firings are not caught up: a late timer fires once, then at the next point of
        // its grid (the first fire date plus whole intervals) after now.
        double next = timer.dNext + timer.dInterval;
        if (!(next > m_dNow)) {
            next = timer.dNext + (std::floor((m_dNow - timer.dNext) / timer.dInterval) + 1) * timer.dInterval;
        }
        if (!(next > m_dNow)) next = std::nextafter(m_dNow, INFINITY);
        timer.dNext = next;
    } else {
        m_timers.erase(found);
    }
    (*callback)(id);
}

int CManualRunLoop::RunPending()
{
    int ran = RunPosted();
    // Due timers are taken before any fires: each fires at most once per iteration, and one
    // added or made due by a callback waits for the next iteration.
    std::vector<std::pair<double, TimerId>> due;
    for (const auto& entry : m_timers)
        if (entry.second.dNext <= m_dNow) due.emplace_back(entry.second.dNext, entry.first);
    std::sort(due.begin(), due.end());
    for (const auto& entry : due) {
        if (m_timers.count(entry.second) == 0) continue;  // removed by an earlier callback
        Fire(entry.second);
        ++ran;
    }
    return ran;
}

int CManualRunLoop::Advance(double seconds)
{
    const double target = m_dNow + (seconds > 0 ? seconds : 0);
    int ran = RunPosted();
    for (TimerId id = EarliestDue(target); id != 0; id = EarliestDue(target)) {
        const double date = m_timers[id].dNext;
        if (date > m_dNow) m_dNow = date;
        Fire(id);
        ran += 1 + RunPosted();
    }
    if (target > m_dNow) m_dNow = target;
    return ran;
}
