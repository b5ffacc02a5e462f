// Service queue: push/pop of host messages, single thread and across threads.
// Baseline: obtaining and releasing a message from the factory.
#include <benchmark/benchmark.h>

#include <atomic>
#include <thread>

#include "host/host_queue.h"

namespace {

void BM_GetReleaseMessage(benchmark::State& state) {
    hostemu::CHostMessageFactory f;
    for (auto _ : state) {
        IESBMessage* m = f.GetESBMsg();
        benchmark::DoNotOptimize(m);
        m->Release();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_GetReleaseMessage);

void BM_PushPopSameThread(benchmark::State& state) {
    hostemu::CHostMessageFactory f;
    IESBQ* q = f.GetESBQ();
    IESBMessage* m = f.GetESBMsg();
    IMessageService* from = nullptr;
    for (auto _ : state) {
        q->PushMsg(m, nullptr, 0);
        benchmark::DoNotOptimize(q->PopMsg(0, &from, 0));
    }
    state.SetItemsProcessed(state.iterations());
    m->Release();
}
BENCHMARK(BM_PushPopSameThread);

// One producer (the benchmark thread) and one worker popping with the
// plug-in's 40 ms wait, as the message workers do.
void BM_PushPopToWorker(benchmark::State& state) {
    hostemu::CHostMessageFactory f;
    IESBQ* q = f.GetESBQ();
    IESBMessage* m = f.GetESBMsg();
    std::atomic<bool> stop{false};
    std::atomic<long> popped{0};
    std::thread worker([&] {
        IMessageService* from = nullptr;
        while (!stop.load(std::memory_order_relaxed))
            if (q->PopMsg(40, &from, 0) != nullptr) popped.fetch_add(1, std::memory_order_relaxed);
    });
    long pushed = 0;
    for (auto _ : state) {
        q->PushMsg(m, nullptr, 0);
        ++pushed;
    }
    while (popped.load() < pushed) std::this_thread::yield();
    stop = true;
    q->PushMsg(nullptr, nullptr, 0);
    worker.join();
    state.SetItemsProcessed(state.iterations());
    m->Release();
}
BENCHMARK(BM_PushPopToWorker)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
