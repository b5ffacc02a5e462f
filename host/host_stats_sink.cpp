#include "host/host_stats_sink.h"

#include <cstring>

namespace hostemu {

int CStatsSink::QueryInterface(const char* id, IKnown** out) {
    if (out == nullptr) return 0;
    const bool ours = id != nullptr && strcmp(id, SID_TIKRON_STATS_SINK) == 0;
    *out = ours ? this : nullptr;
    return ours ? 1 : 0;
}

int CStatsSink::RegisterStats(TIKRON_STATS_FILL fill, void* context) {
    if (fill == nullptr) return -1;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_fill = fill;
    m_context = context;
    return 0;
}

int CStatsSink::UnregisterStats(void* context) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_context != context) return -1;
    m_fill = nullptr;
    m_context = nullptr;
    return 0;
}

bool CStatsSink::Collect(tagTikronStats* out) {
    memset(out, 0, sizeof *out);
    out->uSize = sizeof *out;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_fill == nullptr) return false;
    m_fill(m_context, out);
    return true;
}

}  // namespace hostemu
