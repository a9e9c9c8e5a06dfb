// CRunLoopGLib: timers and posted callbacks as GLib sources.
#include "transport/RunLoopGLib.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

// A timer source: ready at its monotonic ready time, then rescheduled by the interval.
struct TimerSource {
    GSource base;
    CRunLoopGLib* owner;
    IRunLoop::TimerId id;
    gint64 nDueUs;       // monotonic time the current firing was due
    gint64 nIntervalUs;  // 0: fires once
    IRunLoop::TimerCallback* callback;
};

// The one source that runs posted callbacks; ready while any are queued.
struct PostSource {
    GSource base;
    CRunLoopGLib* owner;
};

// Clamps so that absurd dates and intervals never overflow; not a number reads as 0.
gint64 SecondsToUs(double seconds)
{
    const double kMaxUs = 4.0e18;
    if (!(seconds == seconds)) return 0;
    const double us = seconds * 1e6;
    if (us >= kMaxUs) return static_cast<gint64>(kMaxUs);
    if (us <= -kMaxUs) return -static_cast<gint64>(kMaxUs);
    return static_cast<gint64>(std::llround(us));
}

}  // namespace

CRunLoopGLib::CRunLoopGLib(GMainContext* context) : m_pContext(context), m_pPostSource(nullptr), m_nNextId(1)
{
    if (!m_pContext) m_pContext = g_main_context_get_thread_default();
    if (!m_pContext) m_pContext = g_main_context_default();
    g_main_context_ref(m_pContext);

    static GSourceFuncs s_postFuncs = {nullptr, nullptr, &CRunLoopGLib::DispatchPosted, nullptr, nullptr, nullptr};
    m_pPostSource = g_source_new(&s_postFuncs, sizeof(PostSource));
    reinterpret_cast<PostSource*>(m_pPostSource)->owner = this;
    g_source_set_ready_time(m_pPostSource, -1);
    g_source_attach(m_pPostSource, m_pContext);
}

CRunLoopGLib::~CRunLoopGLib()
{
    for (const auto& entry : m_timers) {
        g_source_destroy(entry.second);
        g_source_unref(entry.second);
    }
    g_source_destroy(m_pPostSource);
    g_source_unref(m_pPostSource);
    g_main_context_unref(m_pContext);
}

IRunLoop::TimerId CRunLoopGLib::AddTimer(double fireDate, double interval, TimerCallback callback)
{
    if (!callback) return 0;
    static GSourceFuncs s_timerFuncs = {nullptr, nullptr, &CRunLoopGLib::DispatchTimer, &CRunLoopGLib::FinalizeTimer,
                                        nullptr, nullptr};
    GSource* source = g_source_new(&s_timerFuncs, sizeof(TimerSource));
    TimerSource* timer = reinterpret_cast<TimerSource*>(source);
    timer->owner = this;
    timer->id = m_nNextId++;
    timer->nIntervalUs = interval > 0 ? std::max<gint64>(SecondsToUs(interval), 1) : 0;
    timer->callback = new TimerCallback(std::move(callback));

    // The due time may lie far in the past: it anchors the grid of later firings.
    const gint64 delayUs = SecondsToUs(fireDate - Now());
    timer->nDueUs = g_get_monotonic_time() + delayUs;
    // A ready time of 0 means at once: the next iteration, whatever the clock says.
    g_source_set_ready_time(source, delayUs > 0 ? timer->nDueUs : 0);
    g_source_attach(source, m_pContext);
    m_timers.emplace(timer->id, source);
    return timer->id;
}

bool CRunLoopGLib::RemoveTimer(TimerId id)
{
    const auto found = m_timers.find(id);
    if (found == m_timers.end()) return false;
    GSource* source = found->second;
    m_timers.erase(found);
    // During its own dispatch GLib keeps the source (and so the callback) alive until it returns.
    g_source_destroy(source);
    g_source_unref(source);
    return true;
}

void CRunLoopGLib::Post(PostedCallback callback)
{
    if (!callback) return;
    m_posted.push_back(std::move(callback));
    g_source_set_ready_time(m_pPostSource, 0);
}

double CRunLoopGLib::Now() const
{
    return static_cast<double>(g_get_real_time()) / 1e6 - kReferenceDateUnixSeconds;
}

gboolean CRunLoopGLib::DispatchTimer(GSource* source, GSourceFunc, gpointer)
{
    TimerSource* timer = reinterpret_cast<TimerSource*>(source);
    (*timer->callback)(timer->id);
    if (g_source_is_destroyed(source)) return G_SOURCE_REMOVE;
    if (timer->nIntervalUs == 0) {
        timer->owner->RemoveTimer(timer->id);
        return G_SOURCE_REMOVE;
    }
    // Missed firings are not caught up: a late timer fires once, then at the next point of
    // its grid (the first fire date plus whole intervals) after now.
    const gint64 now = g_source_get_time(source);
    gint64 next = timer->nDueUs + timer->nIntervalUs;
    if (next <= now) {
        next = timer->nDueUs + ((now - timer->nDueUs) / timer->nIntervalUs + 1) * timer->nIntervalUs;
    }
    timer->nDueUs = next;
    g_source_set_ready_time(source, next);
    return G_SOURCE_CONTINUE;
}

void CRunLoopGLib::FinalizeTimer(GSource* source)
{
    TimerSource* timer = reinterpret_cast<TimerSource*>(source);
    delete timer->callback;
    timer->callback = nullptr;
}

gboolean CRunLoopGLib::DispatchPosted(GSource* source, GSourceFunc, gpointer)
{
    reinterpret_cast<PostSource*>(source)->owner->RunPosted();
    return G_SOURCE_CONTINUE;
}

void CRunLoopGLib::RunPosted()
{
    // Callbacks posted while these run wait for the next iteration.
    std::deque<PostedCallback> batch;
    batch.swap(m_posted);
    g_source_set_ready_time(m_pPostSource, -1);
    for (PostedCallback& callback : batch) callback();
}
