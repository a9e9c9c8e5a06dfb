// CRunLoopGLib: a run loop on a GLib main context, so timers and posted callbacks run whenever
// that context iterates (also inside a Qt host, whose event loop runs on GLib on Linux). Timers
// are GLib sources with a monotonic ready time; the fire date is turned into a delay from now
// once, so later changes of the wall clock do not move them. Use on the context's thread only.
#pragma once

#include "transport/RunLoop.h"

#include <glib.h>

#include <deque>
#include <unordered_map>

class CRunLoopGLib final : public IRunLoop {
public:
    // Null: the calling thread's default context, else the global default context.
    explicit CRunLoopGLib(GMainContext* context = nullptr);
    // Removes every timer; posted callbacks that have not run are dropped.
    ~CRunLoopGLib() override;
    CRunLoopGLib(const CRunLoopGLib&) = delete;
    CRunLoopGLib& operator=(const CRunLoopGLib&) = delete;

    TimerId AddTimer(double fireDate, double interval, TimerCallback callback) override;
    bool RemoveTimer(TimerId timer) override;
    void Post(PostedCallback callback) override;
    double Now() const override;

    GMainContext* Context() const { return m_pContext; }

private:
    static gboolean DispatchTimer(GSource* source, GSourceFunc, gpointer);
    static gboolean DispatchPosted(GSource* source, GSourceFunc, gpointer);
    static void FinalizeTimer(GSource* source);
    void RunPosted();

    GMainContext* m_pContext;
    GSource* m_pPostSource;
    std::deque<PostedCallback> m_posted;
    std::unordered_map<TimerId, GSource*> m_timers;  // each holds one reference
    TimerId m_nNextId;
};
