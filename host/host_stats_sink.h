// The emulator's statistics sink (frame/stats_sink.h): the host log service
// answers QueryInterface(SID_TIKRON_STATS_SINK) with it, the plug-in
// registers its fill callback there, and Collect asks for the figures.
#pragma once

#include <mutex>

#include "frame/stats_sink.h"

namespace hostemu {

class CStatsSink final : public ITikronStatsSink {
public:
    int QueryInterface(const char* id, IKnown** out) override;
    int AddRef() override { return 1; }
    int Release() override { return 1; }
    int RegisterStats(TIKRON_STATS_FILL fill, void* context) override;
    int UnregisterStats(void* context) override;

    // The plug-in's figures in *out (zeroed first); false when no plug-in
    // is registered.
    bool Collect(tagTikronStats* out);

private:
    std::mutex m_mutex;  // held while the callback runs
    TIKRON_STATS_FILL m_fill = nullptr;
    void* m_context = nullptr;
};

}  // namespace hostemu
