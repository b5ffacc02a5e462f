#include "host/product_figures.h"

#include "host/product_host.h"
#include "kos/kavle2.h"

namespace product {

using json = nlohmann::ordered_json;

namespace {

// Cell c of the first row of a management table answer (0 when absent).
uint64_t Cell(const json& mgr, size_t c) {
    const json* rows = mgr.contains("table") ? &mgr["table"]["rows"] : nullptr;
    if (rows == nullptr || rows->empty() || (*rows)[0].size() <= c || !(*rows)[0][c].is_number()) return 0;
    return (*rows)[0][c].get<uint64_t>();
}

uint64_t Num(const json& obj, const char* key) {
    return obj.is_object() && obj.contains(key) && obj[key].is_number() ? obj[key].get<uint64_t>() : 0;
}

json Latency(const tagTikronStats& s) {
    json bounds = json::array(), counts = json::array();
    for (uint32_t us : kTikronLatencyBoundsUs) bounds.push_back(us / 1e6);
    for (uint64_t n : s.ullLatencyBuckets) counts.push_back(n);
    return {{"bounds_seconds", bounds},
            {"counts", counts},
            {"count", s.ullLatencyCount},
            {"sum_seconds", s.ullLatencySumNs / 1e9}};
}

}  // namespace

json CollectFigures(ProductHost& host) {
    hostemu::HostEmulator* emu = host.Emulator();
    if (emu == nullptr) return {{"ok", false}, {"error", "plug-in not running"}};
    const json stats = host.Handle({{"cmd", "stats"}});
    const json hostCounters = stats.value("host", json::object());
    tagTikronStats s;
    const bool plugin = emu->Log().StatsSink().Collect(&s);
    const KAVLE2::UDPRecvTotals kos = KAVLE2::GetUDPRecvTotals();
    const CHostObserver& obs = host.Observer();
    NatsHealth bus;
    json nats;
    if (host.BusHealth(&bus))
        nats = {{"connected", bus.connected ? 1 : 0},
                {"dropped", bus.dropped},
                {"too_large", bus.tooLarge},
                {"slow_consumers", bus.slowConsumers},
                {"slow_consumer_dropped", bus.slowConsumerDropped},
                {"reassembly_errors", bus.reassemblyErrors},
                {"reconnects", bus.reconnects}};

    json byType = json::object();
    for (int t = 0; t < 256; ++t)
        if (s.ullByType[t] != 0) byType[std::string(1, static_cast<char>(t))] = s.ullByType[t];
    json pubs = json::array();
    for (const auto& [key, n] : obs.Publications())
        pubs.push_back({{"function", key.first}, {"issue_type", key.second}, {"count", n}});
    const auto f = emu->Factory().Stats();
    auto& queue = emu->Factory().Queue();

    json out = {{"ok", true}, {"plugin_figures", plugin}};
    out["udp"] = {{"received", kos.received},
                  {"kernel_dropped", kos.dropped},
                  {"queued", s.ullDatagramsQueued},
                  {"handled", s.ullDatagramsHandled},
                  {"queue_depth", s.ullDatagramsQueued - std::min(s.ullDatagramsQueued, s.ullDatagramsHandled)},
                  {"queue_high_water", s.ullQueueHighWater},
                  {"by_type", byType},
                  {"framing_errors", obs.FramingErrors()},
                  {"parse_failures", obs.ParseFailures()},
                  {"unknown_types", obs.UnknownTypes()}};
    out["publications"] = pubs;
    // Plug-in messages the center could not take: the host's center writer queue
    // full, or the bus unable to send them.
    const uint64_t centerRefused = host.CenterOutboxDropped() + Num(nats, "dropped") + Num(nats, "too_large");
    out["messages"] = {{"to_center", Num(hostCounters, "to_center")},
                       {"to_client", Num(hostCounters, "to_client")},
                       {"refused_by_plugin", obs.RefusedByPlugin()},
                       {"refused_by_center", centerRefused},
                       {"created", f.created},
                       {"live", f.live},
                       {"worker_queue_depth", queue.GetMsgCount()},
                       {"worker_queue_high_water", queue.GetMaxMsgCount()}};
    out["tables"] = {{"single_leg", s.ullTableRows[0]},
                     {"extended", s.ullTableRows[1]},
                     {"arbitrage", s.ullTableRows[2]},
                     {"exchange_status", s.ullTableRows[3]}};
    out["snapshot"] = {{"write_failures", s.ullSnapshotWriteFailures},
                       {"map_fallbacks", s.ullSnapshotMapFallbacks},
                       {"journal_replays", s.ullJournalReplays}};
    // Management dump 5: receive counters of the single-leg table and the
    // trade-report counters, in its column order.
    out["received"] = {{"quotes", Cell(stats, 4)},
                       {"quotes_udp", Cell(stats, 5)},
                       {"quotes_center", Cell(stats, 6)},
                       {"quotes_other", Cell(stats, 7)},
                       {"trade_reports_udp", Cell(stats, 8)},
                       {"deals_sent", Cell(stats, 9)},
                       {"entrust_confirmations_sent", Cell(stats, 10)}};
    const double hbAge = obs.SecondsSinceHeartbeat();
    out["center"] = {{"heartbeats_sent", Num(hostCounters, "heartbeats_sent")},
                     {"seconds_since_heartbeat", hbAge >= 0 ? json(hbAge) : json()},
                     {"subscribed", s.iSubscribeStatus == 1 ? 1 : 0},
                     {"pending_requests", s.iPendingRequests},
                     {"peer_requests_pending", Num(hostCounters, "peer_requests_pending")}};
    out["latency"] = Latency(s);
    if (!nats.is_null()) out["nats"] = nats;
    return out;
}

}  // namespace product
