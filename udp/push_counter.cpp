#include "udp/push_counter.h"

#include <atomic>

namespace tikron_udp {

namespace {

struct Counters {
    std::atomic<unsigned long> received{0};
    std::atomic<unsigned long> published{0};
    std::atomic<unsigned long> refused{0};
};
Counters g_counters[PUSH_KINDS];

bool Valid(PushKind kind) { return kind >= 0 && kind < PUSH_KINDS; }

}  // namespace

void CountPushReceived(PushKind kind) {
    if (Valid(kind)) g_counters[kind].received.fetch_add(1, std::memory_order_relaxed);
}
void CountPushPublished(PushKind kind) {
    if (Valid(kind)) g_counters[kind].published.fetch_add(1, std::memory_order_relaxed);
}
void CountPushRefused(PushKind kind) {
    if (Valid(kind)) g_counters[kind].refused.fetch_add(1, std::memory_order_relaxed);
}
unsigned long PushReceived(PushKind kind) {
    return Valid(kind) ? g_counters[kind].received.load(std::memory_order_relaxed) : 0;
}
unsigned long PushPublished(PushKind kind) {
    return Valid(kind) ? g_counters[kind].published.load(std::memory_order_relaxed) : 0;
}
unsigned long PushRefused(PushKind kind) {
    return Valid(kind) ? g_counters[kind].refused.load(std::memory_order_relaxed) : 0;
}

}  // namespace tikron_udp
