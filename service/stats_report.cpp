// The plug-in's figures for a host that offers a statistics sink
// (frame/stats_sink.h). Without one nothing here runs and the datagram path
// takes no timestamps.
#include <algorithm>
#include <cstring>

#include "frame/service_threads.h"
#include "frame/tikron_service.h"
#include "store/hq_tables.h"

void CTIKRONServiceImpl::AttachStatsSink() {
    if (m_lpStatsSink != nullptr || m_lpLogService == nullptr) return;
    IKnown* facet = nullptr;
    m_lpLogService->QueryInterface(SID_TIKRON_STATS_SINK, &facet);
    if (facet == nullptr) return;
    auto* sink = static_cast<ITikronStatsSink*>(facet);
    if (sink->RegisterStats(&CTIKRONServiceImpl::FillStats, this) != 0) return;
    m_lpStatsSink = sink;
    m_szIngestStats.SetTimed(true);
}

void CTIKRONServiceImpl::DetachStatsSink() {
    if (m_lpStatsSink == nullptr) return;
    m_szIngestStats.SetTimed(false);
    m_lpStatsSink->UnregisterStats(this);
    m_lpStatsSink = nullptr;
}

namespace {

template <typename Table>
void AddTable(Table* table, uint64_t& rows, tagTikronStats& out) {
    if (table == nullptr) return;
    rows = table->GetCount();
    out.ullSnapshotWriteFailures += table->GetWriteFailures();
    out.ullSnapshotMapFallbacks += table->GetMapFallbacks();
    out.ullJournalReplays += table->GetJournalReplays();
}

}  // namespace

// Runs on the host's thread between AttachStatsSink and DetachStatsSink,
// while the tables exist.
void CTIKRONServiceImpl::FillStats(void* service, tagTikronStats* out) {
    if (service == nullptr || out == nullptr || out->uSize < 2 * sizeof(uint32_t)) return;
    auto* svc = static_cast<CTIKRONServiceImpl*>(service);
    tagTikronStats s;
    memset(&s, 0, sizeof s);
    s.uVersion = TIKRON_STATS_VERSION;
    svc->m_szIngestStats.Fill(s);
    AddTable(svc->m_pTIKRONInfo, s.ullTableRows[0], s);
    AddTable(svc->m_pTIKRONInfo_EX, s.ullTableRows[1], s);
    AddTable(svc->m_pTIKRONARGInfo, s.ullTableRows[2], s);
    AddTable(svc->m_pFUTUExchStatusInfo, s.ullTableRows[3], s);
    if (svc->m_pHeartBeatThread != nullptr) s.iSubscribeStatus = svc->m_pHeartBeatThread->m_iStatus.load();
    svc->m_szSendRequestLock.Acquire();
    s.iPendingRequests = static_cast<int32_t>(svc->m_szSendRequestMap.size());
    svc->m_szSendRequestLock.Release();
    // The host's struct may be older (shorter) or newer (longer) than ours.
    const uint32_t size = out->uSize;
    s.uSize = size;
    memcpy(out, &s, std::min<size_t>(size, sizeof s));
}
