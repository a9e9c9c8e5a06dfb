// Fan-out of the in-process conference: one putter and 100 subscribers on one manual loop. Each
// iteration puts a 1 KB caption (append mode) and runs the loop until every subscriber's
// SharedDataReceivedEx has read the bytes through ArmService_ReadMemHandle, as the client does.
// "per_callback" is the time per delivered callback, to hold beside a 1 KB memcpy.
// Goal: per delivered callback within 20 times the 1 KB memcpy.
#include "conference/IgnoringArmSinks.h"
#include "conference/LocalConference.h"
#include "transport/ManualRunLoop.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr unsigned kItemSize = 1024;
constexpr int kSubscribers = 100;
// Items are cleared out of the cache this often (untimed), so memory stays flat however long
// the benchmark runs.
constexpr int kClearEvery = 2048;

// A participant as the benchmark needs it: answers nothing, reads every delivered item.
class CReadingSink final : public CIgnoringArmSinks {
public:
    explicit CReadingSink(IArmService* service) : m_pService(service), m_aBuf(64 * 1024) {}


    int SharedDataReceivedEx(unsigned, unsigned, unsigned, unsigned memHandle, short, tagCacheAction, unsigned,
                             unsigned, short) override
    {
        if (memHandle == 0) return 0;
        unsigned size = 0;
        if (m_pService->ArmService_GetMemHandleSize(memHandle, &size) != 0 || size > m_aBuf.size()) return 0;
        unsigned read = static_cast<unsigned>(m_aBuf.size());
        if (m_pService->ArmService_ReadMemHandle(memHandle, 0, m_aBuf.data(), &read) == 0) {
            ++m_nItems;
            m_nBytes += read;
        }
        return 0;
    }

    int AllocNameHandleConfirm(unsigned, unsigned, NameHandles* names, unsigned) override
    {
        m_nCacheHandle = names[0].nHandle;
        return 1;
    }

    // The client's handshake, up to a subscription of the cache that is delivered to.
    void Join(IMeeting& meeting, CManualRunLoop& loop, bool subscribe)
    {
        m_pService->ArmService_Connect(this, "", 0, 0, 0);
        m_pService->ArmService_JoinConference(0, meeting.ConferenceHandle(), this, 3);
        m_pService->ArmService_AttachUser(this, 0, static_cast<unsigned short>(meeting.ConferenceHandle()), &m_nAttachId);
        NameHandles name;
        std::memset(&name, 0, sizeof name);
        std::strcpy(name.szName, "note_changeinfo_cache_301");
        m_pService->ArmService_AllocNameHandles(m_nAttachId, 1, &name, this);
        loop.RunPending();
        if (!subscribe) return;
        // Registered by the first subscribe, delivered to from the second on, as the client.
        for (int call = 0; call < 2; ++call) {
            m_pService->ArmService_SubscribeCache(m_nAttachId, m_nCacheHandle, 0, 3, 255, this);
            loop.RunPending();
        }
    }

    IArmService* m_pService;
    unsigned m_nAttachId = 0;
    unsigned m_nCacheHandle = 0;
    long m_nItems = 0;
    long m_nBytes = 0;

private:
    std::vector<unsigned char> m_aBuf;
};

void BM_Memcpy1K(benchmark::State& state)
{
    const std::string in(kItemSize, 'c');
    std::unique_ptr<char[]> out(new char[kItemSize]);
    for (auto _ : state) {
        std::memcpy(out.get(), in.data(), kItemSize);
        benchmark::DoNotOptimize(out.get());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * kItemSize);
}
BENCHMARK(BM_Memcpy1K);

void BM_PutFanOut(benchmark::State& state)
{
    CManualRunLoop loop;
    std::unique_ptr<IMeeting> meeting = NewLocalMeeting(CMeetingOptions());
    CReadingSink putter(meeting->NewService(loop));
    putter.Join(*meeting, loop, false);
    std::vector<std::unique_ptr<CReadingSink>> subscribers;
    for (int i = 0; i < kSubscribers; ++i) {
        subscribers.push_back(std::make_unique<CReadingSink>(meeting->NewService(loop)));
        subscribers.back()->Join(*meeting, loop, true);
    }
    IArmService* service = putter.m_pService;
    const std::string caption(kItemSize, 'w');
    int sinceClear = 0;

    for (auto _ : state) {
        unsigned handle = 0;
        service->ArmService_AllocMemHandle(kItemSize, &handle);
        service->ArmService_WriteMemHandle(handle, 0, caption.data(), kItemSize);
        service->ArmService_PutCacheItem(putter.m_nAttachId, putter.m_nCacheHandle, 0, 0, CACHE_MODE_APPEND,
                                         CACHE_FLAG_BASE, handle, 0, 2);
        service->ArmService_FreeMemHandle(handle);
        loop.RunPending();
        if (++sinceClear == kClearEvery) {
            state.PauseTiming();
            service->ArmService_PutCacheItem(putter.m_nAttachId, putter.m_nCacheHandle, 0, 0, 0, CACHE_FLAG_CLEAR,
                                             0, 0, 1);
            loop.RunPending();
            sinceClear = 0;
            state.ResumeTiming();
        }
    }

    long delivered = 0;
    for (const auto& subscriber : subscribers) delivered += subscriber->m_nItems;
    if (delivered != int64_t(state.iterations()) * kSubscribers) state.SkipWithError("a delivery went missing");
    state.counters["per_callback"] =
        benchmark::Counter(kSubscribers, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    state.SetBytesProcessed(int64_t(state.iterations()) * kSubscribers * kItemSize);
    for (const auto& subscriber : subscribers) subscriber->m_pService->ArmService_Release();
    service->ArmService_Release();
}
BENCHMARK(BM_PutFanOut);

}  // namespace
