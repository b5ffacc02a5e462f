#include "udp/push_drop_counter.h"

#include <atomic>

#include "frame/service_log.h"

namespace tikron_udp {

namespace {
std::atomic<unsigned long> g_dropped[PUSH_KINDS];
}

int DropPush(CTIKRONServiceImpl& svc, PushKind kind, const char* function, const void* data, int len) {
    if (kind < 0 || kind >= PUSH_KINDS) return -1;
    unsigned long n = g_dropped[kind].fetch_add(1, std::memory_order_relaxed) + 1;
    char type = (data != nullptr && len > 0) ? static_cast<const char*>(data)[0] : '?';
    TikronLog(svc.m_lpLogService, function, "推送记录暂不处理, 类型: %c, 长度: %d, 已丢弃: %lu!", type, len, n);
    return 0;
}

unsigned long PushDropped(PushKind kind) {
    if (kind < 0 || kind >= PUSH_KINDS) return 0;
    return g_dropped[kind].load(std::memory_order_relaxed);
}

}  // namespace tikron_udp
