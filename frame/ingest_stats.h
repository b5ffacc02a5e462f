// Figures of the UDP ingest that only the plug-in sees: datagrams queued and
// handled, the queue's high-water mark, handled datagrams by type and the
// datagram-to-publication latency. The receiver thread and the consumer
// thread each write their own fields (relaxed atomics, no lock); a stats
// sink reads them at any time. Timestamps are taken only while Timed().
#pragma once

#include <time.h>

#include <atomic>
#include <cstdint>

#include "frame/stats_sink.h"

class CIngestStats {
public:
    void SetTimed(bool on) { m_bTimed.store(on, std::memory_order_relaxed); }
    bool Timed() const { return m_bTimed.load(std::memory_order_relaxed); }

    // Monotonic clock in nanoseconds (never 0).
    static uint64_t NowNs() {
        timespec ts;
        clock_gettime(CLOCK_MONOTONIC, &ts);
        return static_cast<uint64_t>(ts.tv_sec) * 1000000000ull + static_cast<uint64_t>(ts.tv_nsec) + 1;
    }

    // Receiver thread: one datagram queued.
    void OnQueued() {
        const uint64_t queued = m_ullQueued.fetch_add(1, std::memory_order_relaxed) + 1;
        const uint64_t handled = m_ullHandled.load(std::memory_order_relaxed);
        const uint64_t depth = queued > handled ? queued - handled : 0;
        if (depth > m_ullHighWater.load(std::memory_order_relaxed))
            m_ullHighWater.store(depth, std::memory_order_relaxed);
    }

    // Consumer thread (the only writer of what follows): one datagram of
    // type `type` handled; stampNs is the receipt time (0: not timed), and
    // published says whether its handler sent anything.
    void OnHandled(unsigned char type, uint64_t stampNs, bool published) {
        Bump(m_ullByType[type]);
        Bump(m_ullHandled);
        if (stampNs == 0 || !published) return;
        const uint64_t now = NowNs();
        const uint64_t ns = now > stampNs ? now - stampNs : 0;
        int b = 0;
        while (b < kTikronLatencyBuckets - 1 && ns > uint64_t{kTikronLatencyBoundsUs[b]} * 1000) ++b;
        Bump(m_ullLatency[b]);
        Bump(m_ullLatencyCount);
        m_ullLatencySumNs.store(m_ullLatencySumNs.load(std::memory_order_relaxed) + ns, std::memory_order_relaxed);
    }

    void Fill(tagTikronStats& out) const {
        out.ullDatagramsQueued = m_ullQueued.load(std::memory_order_relaxed);
        out.ullDatagramsHandled = m_ullHandled.load(std::memory_order_relaxed);
        out.ullQueueHighWater = m_ullHighWater.load(std::memory_order_relaxed);
        for (int i = 0; i < 256; ++i) out.ullByType[i] = m_ullByType[i].load(std::memory_order_relaxed);
        for (int i = 0; i < kTikronLatencyBuckets; ++i)
            out.ullLatencyBuckets[i] = m_ullLatency[i].load(std::memory_order_relaxed);
        out.ullLatencyCount = m_ullLatencyCount.load(std::memory_order_relaxed);
        out.ullLatencySumNs = m_ullLatencySumNs.load(std::memory_order_relaxed);
    }

private:
    static void Bump(std::atomic<uint64_t>& c) {
        c.store(c.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }

    std::atomic<bool> m_bTimed{false};
    std::atomic<uint64_t> m_ullQueued{0};
    std::atomic<uint64_t> m_ullHandled{0};
    std::atomic<uint64_t> m_ullHighWater{0};
    std::atomic<uint64_t> m_ullByType[256] = {};
    std::atomic<uint64_t> m_ullLatency[kTikronLatencyBuckets] = {};
    std::atomic<uint64_t> m_ullLatencyCount{0};
    std::atomic<uint64_t> m_ullLatencySumNs{0};
};
