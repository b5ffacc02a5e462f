#include "host/product_metrics.h"

#include <limits>
#include <string>

namespace product {

using json = nlohmann::ordered_json;
using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

namespace {

double Value(const json& obj, const char* key) {
    return obj.is_object() && obj.contains(key) && obj[key].is_number() ? obj[key].get<double>() : 0.0;
}

class Families {
public:
    // One family of one sample (no labels) taken from obj[key].
    void One(const std::string& name, MetricType type, const std::string& help, const json& obj, const char* key) {
        Add(name, type, help, {}, Value(obj, key));
    }
    // A sample of a family, created at its first sample.
    void Add(const std::string& name, MetricType type, const std::string& help,
             std::vector<ClientMetric::Label> labels, double value) {
        MetricFamily& f = Family(name, type, help);
        ClientMetric m;
        m.label = std::move(labels);
        if (type == MetricType::Counter)
            m.counter.value = value;
        else
            m.gauge.value = value;
        f.metric.push_back(std::move(m));
    }
    MetricFamily& Family(const std::string& name, MetricType type, const std::string& help) {
        for (auto& f : m_out)
            if (f.name == name) return f;
        m_out.push_back(MetricFamily{name, help, type, {}});
        return m_out.back();
    }
    std::vector<MetricFamily> Take() { return std::move(m_out); }

private:
    std::vector<MetricFamily> m_out;
};

constexpr MetricType kCounter = MetricType::Counter;
constexpr MetricType kGauge = MetricType::Gauge;

void Udp(Families& f, const json& udp) {
    f.One("tikron_udp_datagrams_received_total", kCounter, "Datagrams the UDP receiver delivered to the plug-in.",
          udp, "received");
    f.One("tikron_udp_datagrams_dropped_total", kCounter,
          "Datagrams the kernel dropped because the socket's receive buffer was full.", udp, "kernel_dropped");
    for (const auto& [type, n] : udp["by_type"].items())
        f.Add("tikron_udp_datagrams_handled_total", kCounter, "Datagrams the plug-in handled, by record type.",
              {{"type", type}}, n.get<double>());
    f.One("tikron_udp_framing_errors_total", kCounter, "Datagrams refused for their framing (logged ones).", udp,
          "framing_errors");
    f.One("tikron_udp_parse_failures_total", kCounter, "Records refused by the parsers (logged ones).", udp,
          "parse_failures");
    f.One("tikron_udp_unknown_types_total", kCounter, "Datagrams of an unknown record type.", udp, "unknown_types");
    f.One("tikron_udp_queue_depth", kGauge, "Datagrams received and not yet handled.", udp, "queue_depth");
    f.One("tikron_udp_queue_high_water", kGauge, "Most datagrams waiting at once since start.", udp,
          "queue_high_water");
}

void Messages(Families& f, const json& figures) {
    for (const auto& p : figures["publications"])
        f.Add("tikron_publications_total", kCounter, "Publications sent to the message center.",
              {{"function", std::to_string(p["function"].get<int>())},
               {"issue_type", std::to_string(p["issue_type"].get<int>())}},
              p["count"].get<double>());
    const json& m = figures["messages"];
    f.Add("tikron_messages_sent_total", kCounter, "Messages the plug-in handed to a neighbour.",
          {{"to", "center"}}, Value(m, "to_center"));
    f.Add("tikron_messages_sent_total", kCounter, "Messages the plug-in handed to a neighbour.",
          {{"to", "client"}}, Value(m, "to_client"));
    f.Add("tikron_messages_refused_total", kCounter,
          "Messages refused: by the plug-in (posted into it) or by the center (plug-in messages it dropped).",
          {{"by", "plugin"}}, Value(m, "refused_by_plugin"));
    f.Add("tikron_messages_refused_total", kCounter,
          "Messages refused: by the plug-in (posted into it) or by the center (plug-in messages it dropped).",
          {{"by", "center"}}, Value(m, "refused_by_center"));
    f.One("tikron_messages_live", kGauge, "Host messages currently allocated and not released.", m, "live");
    f.One("tikron_worker_queue_depth", kGauge, "Messages waiting for the plug-in's worker threads.", m,
          "worker_queue_depth");
    f.One("tikron_worker_queue_high_water", kGauge, "Most messages waiting for the workers at once.", m,
          "worker_queue_high_water");
}

void Store(Families& f, const json& figures) {
    for (const auto& [table, n] : figures["tables"].items())
        f.Add("tikron_table_rows", kGauge, "Contracts held per quote table.", {{"table", table}}, n.get<double>());
    const json& s = figures["snapshot"];
    f.One("tikron_snapshot_write_failures_total", kCounter, "Failed writes to the snapshot files.", s,
          "write_failures");
    f.One("tikron_snapshot_map_fallbacks_total", kCounter,
          "Times a snapshot file could not be mapped and updates fell back to positioned writes.", s,
          "map_fallbacks");
    f.One("tikron_snapshot_journal_replays_total", kCounter, "Journal entries replayed into snapshot files at start.",
          s, "journal_replays");
    const json& r = figures["received"];
    const char* help = "Single-leg quotes stored, by source (management dump 5).";
    f.Add("tikron_quotes_received_total", kCounter, help, {{"source", "udp"}}, Value(r, "quotes_udp"));
    f.Add("tikron_quotes_received_total", kCounter, help, {{"source", "center"}}, Value(r, "quotes_center"));
    f.Add("tikron_quotes_received_total", kCounter, help, {{"source", "other"}}, Value(r, "quotes_other"));
    f.One("tikron_trade_reports_received_total", kCounter, "Trade reports received over UDP.", r, "trade_reports_udp");
    f.One("tikron_deals_sent_total", kCounter, "Deal reports published.", r, "deals_sent");
    f.One("tikron_entrust_confirmations_sent_total", kCounter, "Entrust confirmations published.", r,
          "entrust_confirmations_sent");
}

void Center(Families& f, const json& c) {
    f.One("tikron_center_heartbeats_sent_total", kCounter, "Message-center heartbeats sent into the plug-in.", c,
          "heartbeats_sent");
    if (c["seconds_since_heartbeat"].is_number())
        f.One("tikron_center_heartbeat_age_seconds", kGauge, "Seconds since the plug-in took the last heartbeat.", c,
              "seconds_since_heartbeat");
    f.One("tikron_subscribed", kGauge, "1 while the plug-in counts as subscribed to the message center.", c,
          "subscribed");
    f.One("tikron_subscription_requests_pending", kGauge, "The plug-in's requests waiting for an answer.", c,
          "pending_requests");
    f.One("tikron_peer_requests_pending", kGauge, "Requests held for a peer node's answer.", c,
          "peer_requests_pending");
}

void Latency(Families& f, const json& l) {
    MetricFamily& fam = f.Family("tikron_udp_latency_seconds", MetricType::Histogram,
                                 "Datagram receipt to its last publication, for datagrams that published.");
    ClientMetric m;
    uint64_t cumulative = 0;
    const json& bounds = l["bounds_seconds"];
    const json& counts = l["counts"];
    for (size_t i = 0; i < counts.size(); ++i) {
        cumulative += counts[i].get<uint64_t>();
        const double bound =
            i < bounds.size() ? bounds[i].get<double>() : std::numeric_limits<double>::infinity();
        m.histogram.bucket.push_back({cumulative, bound});
    }
    m.histogram.sample_count = l["count"].get<uint64_t>();
    m.histogram.sample_sum = l["sum_seconds"].get<double>();
    fam.metric.push_back(std::move(m));
}

void Nats(Families& f, const json& nats) {
    f.One("tikron_nats_connected", kGauge, "1 while the NATS connection is up.", nats, "connected");
    f.One("tikron_nats_dropped_total", kCounter, "Publications the bus could not send.", nats, "dropped");
    f.One("tikron_nats_too_large_total", kCounter, "Messages larger than the bus carries.", nats, "too_large");
    f.One("tikron_nats_slow_consumers_total", kCounter, "Episodes of a subscription falling behind.", nats,
          "slow_consumers");
    f.One("tikron_nats_slow_consumer_dropped_total", kCounter, "Messages the subscriptions dropped meanwhile.",
          nats, "slow_consumer_dropped");
    f.One("tikron_nats_reassembly_errors_total", kCounter, "Chunks refused and partial messages expired.", nats,
          "reassembly_errors");
    f.One("tikron_nats_reconnects_total", kCounter, "Reconnections to the NATS server.", nats, "reconnects");
}

}  // namespace

std::vector<MetricFamily> FiguresToFamilies(const json& figures) {
    Families f;
    if (!figures.value("ok", false)) return f.Take();
    f.Add("tikron_plugin_figures", kGauge, "1 when the plug-in reports its own figures through the statistics sink.",
          {}, figures.value("plugin_figures", false) ? 1.0 : 0.0);
    Udp(f, figures["udp"]);
    Messages(f, figures);
    Store(f, figures);
    Center(f, figures["center"]);
    Latency(f, figures["latency"]);
    if (figures.contains("nats")) Nats(f, figures["nats"]);
    return f.Take();
}

}  // namespace product
