// Optional statistics facet of a host that wants the plug-in's own figures
// (datagram queue, tables, snapshot files, latency). The plug-in asks its
// log service for it at start (QueryInterface(SID_TIKRON_STATS_SINK)); a
// host without it answers null and the plug-in keeps nothing extra. With a
// sink the plug-in registers one fill callback; the host calls it when it
// wants the figures (a metrics scrape), never per datagram.
#pragma once

#include <cstdint>

#include "frame/host_interfaces.h"

#define SID_TIKRON_STATS_SINK "tikron.stats.sink.1"

enum { TIKRON_STATS_VERSION = 1 };

// Upper bounds, in microseconds, of the datagram latency buckets; one more
// bucket counts everything above the last bound.
constexpr uint32_t kTikronLatencyBoundsUs[] = {1,    2,    5,    10,    20,    50,    100,   200,
                                               500,  1000, 2000, 5000,  10000, 20000, 50000, 100000};
constexpr int kTikronLatencyBuckets = sizeof(kTikronLatencyBoundsUs) / sizeof(kTikronLatencyBoundsUs[0]) + 1;

// The plug-in's figures. The host zeroes it and sets uSize to the bytes it
// allocated; the plug-in writes at most that many and sets uVersion. Fields
// are only ever appended, so either side may be the newer one.
struct tagTikronStats {
    uint32_t uVersion;
    uint32_t uSize;
    // Datagrams taken by the receiver callback, handled by the consumer,
    // and the most that were waiting between the two at once.
    uint64_t ullDatagramsQueued;
    uint64_t ullDatagramsHandled;
    uint64_t ullQueueHighWater;
    // Handled datagrams by their type character (first byte).
    uint64_t ullByType[256];
    // Table sizes: single-leg, extended single-leg, arbitrage, exchange status.
    uint64_t ullTableRows[4];
    // Summed over the four tables: failed snapshot writes, fallbacks from the
    // mapped file to positioned writes, journal entries replayed at start.
    uint64_t ullSnapshotWriteFailures;
    uint64_t ullSnapshotMapFallbacks;
    uint64_t ullJournalReplays;
    // Subscription state of the heartbeat thread (1 subscribed) and the
    // plug-in's requests still waiting for an answer.
    int32_t iSubscribeStatus;
    int32_t iPendingRequests;
    // Datagram to last publication, from the receiver callback's clock
    // reading to the handler's return, for datagrams that published.
    uint64_t ullLatencyBuckets[kTikronLatencyBuckets];
    uint64_t ullLatencyCount;
    uint64_t ullLatencySumNs;
};

// Fills *out (see tagTikronStats); context is what the plug-in registered.
typedef void (*TIKRON_STATS_FILL)(void* context, tagTikronStats* out);

class ITikronStatsSink : public IKnown {
public:
    // One callback per sink; a second registration replaces the first.
    virtual int RegisterStats(TIKRON_STATS_FILL fill, void* context) = 0;  // 3
    // Returns once no call of the callback is under way and none follows.
    virtual int UnregisterStats(void* context) = 0;                        // 4
};
