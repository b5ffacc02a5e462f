// Operations of tikron-host: the receive-buffer warning without
// CAP_NET_ADMIN, and the Prometheus endpoint scraped during a feed.
#include <map>

#include "tests/product_support.h"

using namespace ptest;

namespace {

// CAP_NET_ADMIN (bit 12) in this process's effective set.
bool HasNetAdmin() {
    const std::string status = ReadFile("/proc/self/status");
    const size_t p = status.find("CapEff:");
    return p != std::string::npos && (std::strtoull(status.c_str() + p + 7, nullptr, 16) >> 12 & 1) != 0;
}

// "name{labels}" -> value of every sample of a Prometheus text page.
std::map<std::string, double> Samples(const std::string& page) {
    std::map<std::string, double> out;
    std::istringstream in(page);
    std::string line;
    while (std::getline(in, line)) {
        const size_t sp = line.rfind(' ');
        if (line.empty() || line[0] == '#' || sp == std::string::npos) continue;
        out[line.substr(0, sp)] = std::strtod(line.c_str() + sp + 1, nullptr);
    }
    return out;
}

}  // namespace

// Asked for more than net.core.rmem_max allows, a receiver without the
// privilege gets less and says so with both fixes; with it, it is quiet.
TEST(ProductOps, ReceiveBufferWarningWithoutNetAdmin) {
    long rmemMax = std::atol(ReadFile("/proc/sys/net/core/rmem_max").c_str());
    ASSERT_GT(rmemMax, 0);
    // Linux reports twice what it grants: stay above even that.
    const long mb = rmemMax * 2 / (1 << 20) + 2;
    const std::string warning = "warning: udp recv-buffer smaller than requested, requested: " +
                                std::to_string(mb << 20) + " bytes";
    struct Run {
        const char* name;
        bool dropCapability;
        bool warns;
    };
    std::vector<Run> runs = {{"capability dropped", true, true}};
    if (HasNetAdmin()) runs.push_back({"with CAP_NET_ADMIN", false, false});
    for (const Run& r : runs) {
        TempDir dir;
        const int port = PickPort(10);
        const std::string config = Config(dir.path(), port, "conf/tikron.xml",
                                          {{"udprecvbuflen=\"32\"", "udprecvbuflen=\"" + std::to_string(mb) + "\""}});
        std::vector<std::string> argv = {Bin("tikron-host"), "--config", config, "--publications", ""};
        if (r.dropCapability)
            argv.insert(argv.begin(), {"/usr/bin/setpriv", "--inh-caps=-net_admin", "--ambient-caps=-net_admin",
                                       "--bounding-set=-net_admin", "--"});
        Process host(argv, dir.path(), dir / "host.out", dir / "host.err");
        ASSERT_TRUE(WaitUntil([&] { return ReadFile(dir / "host.log").find("udp recv start") != std::string::npos; },
                              30000))
            << r.name << ": " << ReadFile(dir / "host.err");
        const std::string log = ReadFile(dir / "host.log");
        EXPECT_EQ(r.warns, log.find(warning) != std::string::npos) << r.name << ":\n" << log;
        if (r.warns) {
            EXPECT_NE(std::string::npos, log.find("AmbientCapabilities=CAP_NET_ADMIN")) << log;
            EXPECT_NE(std::string::npos, log.find("net.core.rmem_max to at least " + std::to_string(mb << 20)))
                << log;
        }
        host.Signal(SIGTERM);
        EXPECT_NE(-1, host.Wait(15000)) << r.name;
    }
}

// The counters of a scrape taken after a feed agree with the feed, the
// publication lines and tikron-ctl stats; a scrape during the feed works.
TEST(ProductOps, MetricsAgreeWithFeedAndStats) {
    TempDir dir;
    const int port = PickPort(11);
    HostRun host(dir, Config(dir.path(), port), {"--metrics", "127.0.0.1:0"});
    ASSERT_TRUE(host.Ready()) << ReadFile(host.err);
    const int web = MetricsPort(host);
    ASSERT_GT(web, 0) << ReadFile(host.err);

    // The capture three times, slowly enough to scrape in between, then
    // an unknown record type and a framing error.
    std::map<char, int> sent;
    std::istringstream capture(ReadFile(Source("samples/backend_capture.txt")));
    for (std::string l; std::getline(capture, l);)
        if (!l.empty() && l[0] != '#') sent[l[0]] += 3;
    WriteFile(dir / "bad.txt", "Q00004abcd\n000099short\n");
    ++sent['Q'];
    ++sent['0'];
    Process feed({Bin("tikron-feed"), "--port", std::to_string(port), "--file", Source("samples/backend_capture.txt"),
                  "--count", std::to_string(3 * 37), "--rate", "100"},
                 "", dir / "feed.out", dir / "feed.err");
    std::string page;
    ASSERT_TRUE(WaitUntil([&] { return HttpGet(web, "/metrics", &page) == 200 && Samples(page)["tikron_udp_datagrams_received_total"] > 0; }, 20000));
    ASSERT_NE(-1, feed.Wait(30000));
    ASSERT_EQ(0, RunProgram({Bin("tikron-feed"), "--port", std::to_string(port), "--file", dir / "bad.txt"}, nullptr));
    const int total = 3 * 37 + 2;
    std::map<std::string, double> m;
    ASSERT_TRUE(WaitUntil([&] {
        m = HttpGet(web, "/metrics", &page) == 200 ? Samples(page) : std::map<std::string, double>();
        return m["tikron_udp_datagrams_received_total"] == total && m["tikron_udp_queue_depth"] == 0 &&
               m["tikron_udp_datagrams_handled_total{type=\"0\"}"] == sent['0'];
    }, 20000)) << page;

    EXPECT_EQ(1, m["tikron_plugin_figures"]);
    for (const auto& [type, n] : sent)
        EXPECT_EQ(n, (m["tikron_udp_datagrams_handled_total{type=\"" + std::string(1, type) + "\"}"])) << type;
    EXPECT_EQ(1, m["tikron_udp_unknown_types_total"]);
    EXPECT_EQ(1, m["tikron_udp_framing_errors_total"]);
    EXPECT_EQ(0, m["tikron_udp_parse_failures_total"]);
    EXPECT_EQ(0, m["tikron_udp_datagrams_dropped_total"]);
    EXPECT_GE(m["tikron_udp_queue_high_water"], 1);

    // Publications: as many as the lines of each issue type.
    std::map<std::pair<int, int>, int> lines;
    for (const auto& j : JsonLines(host.pubs))
        if (j["packet_type"] == 0 && (j["function"] == 620003 || j["function"] == 620031))
            ++lines[{j["function"].get<int>(), j["issue_type"].get<int>()}];
    ASSERT_FALSE(lines.empty());
    for (const auto& [key, n] : lines)
        EXPECT_EQ(n, (m["tikron_publications_total{function=\"" + std::to_string(key.first) + "\",issue_type=\"" +
                        std::to_string(key.second) + "\"}"]))
            << key.first << "/" << key.second;

    // Every datagram that published was timed; buckets are cumulative.
    const double timed = m["tikron_udp_latency_seconds_count"];
    EXPECT_GE(timed, 3 * 37);
    EXPECT_LE(timed, total);
    double below = 0;
    for (const char* le : {"1e-06", "1e-05", "0.0001", "0.001", "0.01", "0.1", "+Inf"}) {
        const double n = m[std::string("tikron_udp_latency_seconds_bucket{le=\"") + le + "\"}"];
        EXPECT_GE(n, below) << le;
        below = n;
    }
    EXPECT_EQ(timed, below);
    EXPECT_GT(m["tikron_udp_latency_seconds_sum"], timed * 1e-6);

    // The same figures as tikron-ctl stats and the management dumps.
    json stats = Control(host.sock, {{"cmd", "stats"}});
    ASSERT_TRUE(stats.value("ok", false)) << stats.dump();
    const json& row = stats["table"]["rows"][0];
    EXPECT_EQ(row[5].get<double>(), m["tikron_quotes_received_total{source=\"udp\"}"]);
    EXPECT_EQ(row[8].get<double>(), m["tikron_trade_reports_received_total"]);
    EXPECT_EQ(row[9].get<double>(), m["tikron_deals_sent_total"]);
    EXPECT_EQ(row[10].get<double>(), m["tikron_entrust_confirmations_sent_total"]);
    EXPECT_EQ(stats["host"]["to_center"].get<double>(), m["tikron_messages_sent_total{to=\"center\"}"]);
    EXPECT_EQ(stats["host"]["messages_live"].get<double>(), m["tikron_messages_live"]);
    const char* tables[] = {"single_leg", "extended", "arbitrage", "exchange_status"};
    for (int n = 1; n <= 4; ++n) {
        json dump = Control(host.sock, {{"cmd", "mgr"}, {"function_id", n}});
        EXPECT_EQ(dump["table"]["rows"].size(), (m[std::string("tikron_table_rows{table=\"") + tables[n - 1] + "\"}"]))
            << tables[n - 1];
    }
    EXPECT_EQ(1, m["tikron_subscribed"]);
    EXPECT_EQ(404, HttpGet(web, "/api/nothing", &page));

    host.proc.Signal(SIGTERM);
    EXPECT_NE(-1, host.proc.Wait(15000));
}
