// tikron-host nodes on a real nats-server: relay, subscriptions, outside
// subscribers, queries, bad payloads, identity, late synchronisation with
// answers above the server's message limit, and a server restart mid-feed.
#include <mutex>

#include "host/host_message.h"
#include "host/nats_bus.h"
#include "host/product_json.h"
#include "tests/nats_support.h"

namespace {

using ptest::json;
using ptest::TempDir;

std::vector<json> Publications(const std::string& file, int node) {
    std::vector<json> out;
    for (auto& j : ptest::JsonLines(file))
        if (j["packet_type"] == 0 && (j["function"] == 620003 || j["function"] == 620031) &&
            (node != 2 || j["function"] == 620003))
            out.push_back(j);
    return out;
}

std::vector<std::string> Bodies(const std::vector<json>& pubs, int issueType) {
    std::vector<std::string> out;
    for (const auto& p : pubs)
        if (p["issue_type"] == issueType) out.push_back(p["body"]["rows"][0][1].get<std::string>());
    return out;
}

int Exec(const std::vector<std::string>& argv, std::string* out, std::string* err = nullptr) {
    return ptest::RunProgram(argv, out, 20000, err);
}

// Everything an outside libnats client hears on tikron.pub.> and tikron.json.>.
struct Listener {
    explicit Listener(const std::string& url) {
        natsbus::BusOptions o;
        o.url = url;
        o.node = "outside#1";
        std::string error;
        EXPECT_EQ(0, bus.Connect(o, &error)) << error;
        for (const char* s : {"tikron.pub.>", "tikron.json.>"})
            bus.Subscribe(s, "", [this](natsbus::BusMessage& m) {
                std::lock_guard<std::mutex> lock(mutex);
                (m.subject.rfind("tikron.pub.", 0) == 0 ? exact : lines).push_back(m);
            });
    }
    size_t Count(bool json) {
        std::lock_guard<std::mutex> lock(mutex);
        return (json ? lines : exact).size();
    }
    natsbus::CNatsBus bus;
    std::mutex mutex;
    std::vector<natsbus::BusMessage> exact, lines;
};

TEST(ProductNats, RelayQueriesIdentityAndBadPayloads) {
    ntest::NatsServer server;
    const std::string url = server.Url();
    Listener outside(url);
    TempDir da, db, dd;
    const int udp = ptest::PickPort(31);
    std::string subs;
    for (int it : {22, 18, 24, 33101}) subs += ntest::McRequest(620001, it, "issue_type", std::to_string(it));
    ptest::HostRun a(da, ntest::NodeConfig(da, 1, udp, ""), {"--nats", url});
    ASSERT_TRUE(a.Ready()) << ptest::ReadFile(a.err);
    ptest::HostRun b(db, ntest::NodeConfig(db, 2, 0, subs, "nats_url=\"" + url + "\""));
    ASSERT_TRUE(b.Ready()) << ptest::ReadFile(b.err);
    ASSERT_TRUE(ptest::WaitUntil([&] { return ntest::NodeStats(b.sock)["nats"]["subscriptions"] == 4; }, 10000));

    std::string out;
    ASSERT_EQ(0, Exec({ptest::Bin("tikron-feed"), "--port", std::to_string(udp), "--file",
                      ptest::Source("samples/backend_capture.txt")}, &out)) << out;
    ASSERT_EQ("", ntest::SameTables(da, db, 2, 15000));

    // B's report path republished A's 33101 reports as 23 records equal to
    // A's own 23 records, but for the exchange field (the text carries the
    // exchange by name).
    std::vector<json> pubsA;
    ASSERT_TRUE(ptest::WaitUntil([&] {
        pubsA = Publications(a.pubs, 1);
        return Bodies(pubsA, 23).size() == Bodies(Publications(b.pubs, 2), 23).size();
    }, 5000));
    auto a23 = Bodies(pubsA, 23), b23 = Bodies(Publications(b.pubs, 2), 23);
    ASSERT_FALSE(a23.empty());
    for (size_t i = 0; i < a23.size(); ++i) {
        for (auto* s : {&a23[i], &b23[i]}) s->replace(50, 22, 22, '-');  // futu_exch_type, bytes 25..35
        EXPECT_EQ(a23[i], b23[i]) << "report " << i;
    }

    // The outside subscriber heard every publication of A once, in A's
    // order, in both forms.
    auto fromA = [](const natsbus::BusMessage& m) { return m.node == "n#1"; };
    ASSERT_TRUE(ptest::WaitUntil([&] {
        std::lock_guard<std::mutex> lock(outside.mutex);
        return std::count_if(outside.exact.begin(), outside.exact.end(), fromA) >= (long)pubsA.size() &&
               std::count_if(outside.lines.begin(), outside.lines.end(), fromA) >= (long)pubsA.size();
    }, 5000));
    {
        std::lock_guard<std::mutex> lock(outside.mutex);
        std::vector<std::string> exact, lines, file;
        for (const auto& m : outside.exact) {
            hostemu::MessageSnapshot snap;
            if (!fromA(m)) continue;
            EXPECT_EQ(0, hostemu::DecodeMessage(m.data.data(), static_cast<int>(m.data.size()), &snap)) << m.subject;
            exact.push_back(product::DumpLine(product::MessageToJson(snap)));
        }
        for (const auto& m : outside.lines)
            if (fromA(m)) lines.push_back(m.data);
        for (const auto& p : pubsA) file.push_back(product::DumpLine(p));
        EXPECT_EQ(file, exact);
        EXPECT_EQ(file, lines);
    }

    // The same query over the bus and over the control socket; an absent node.
    const std::string code = json::parse(*ntest::Table(da, "tikron_", 1).begin())["contract_code"];
    std::string viaSocket, viaBus, err;
    ASSERT_EQ(0, Exec({ptest::Bin("tikron-ctl"), "--control", a.sock, "query", "620200", "--compact", code}, &viaSocket));
    ASSERT_EQ(0, Exec({ptest::Bin("tikron-ctl"), "--nats", url, "--node", "n#1", "query", "620200", "--compact", code},
                     &viaBus));
    json socketAnswer = json::parse(viaSocket, nullptr, false), busAnswer = json::parse(viaBus, nullptr, false);
    EXPECT_EQ(socketAnswer["body"], busAnswer["body"]);
    EXPECT_NE(std::string::npos, viaBus.find(code));
    EXPECT_NE(0, Exec({ptest::Bin("tikron-ctl"), "--nats", url, "--node", "n#9", "stats"}, &out, &err));
    EXPECT_NE(std::string::npos, err.find("no tikron node n#9")) << err;

    // Bad payloads on B's subjects are refused with a log line; B goes on.
    const uint64_t intake = ntest::NodeStats(b.sock)["nats"]["intake"];
    ASSERT_EQ(0, outside.bus.Send("tikron.pub.n%231.620003.22.X", "", "not a message"));
    hostemu::MessageSnapshot wrong;  // a whole message, but not of the subject's issue type
    for (int tag : {3, 5, 53}) wrong.items[tag].values.push_back({hostemu::ItemValue::Int, tag == 5 ? 620003 : 22, ""});
    const auto bytes = hostemu::EncodeMessage(wrong);
    ASSERT_EQ(0, outside.bus.Send("tikron.pub.n%231.620003.24.X", "", std::string(bytes.begin(), bytes.end())));
    EXPECT_TRUE(ptest::WaitUntil([&] { return ntest::NodeStats(b.sock)["nats"]["refused"] == 2; }, 5000));
    EXPECT_NE(std::string::npos, ptest::ReadFile(db / "host.log").find("refused publication on tikron.pub.n%231"));
    ASSERT_EQ(0, Exec({ptest::Bin("tikron-feed"), "--port", std::to_string(udp), "--synthetic", "5"}, &out));
    EXPECT_TRUE(ptest::WaitUntil([&] { return ntest::NodeStats(b.sock)["nats"]["intake"] > intake; }, 5000));

    // A second node with A's identity is refused at start.
    ptest::HostRun twin(dd, ntest::NodeConfig(dd, 1, 0, ""), {"--nats", url});
    const int st = twin.proc.Wait(15000);
    EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 1);
    EXPECT_NE(std::string::npos, ptest::ReadFile(twin.err).find("already on the bus")) << ptest::ReadFile(twin.err);
}

TEST(ProductNats, LateNodeFillsLargeTablesFromPeer) {
    ntest::NatsServer server;
    const std::string url = server.Url();
    TempDir da, dc;
    const int udp = ptest::PickPort(32);
    ptest::HostRun a(da, ntest::NodeConfig(da, 1, udp, ""), {"--nats", url});
    ASSERT_TRUE(a.Ready()) << ptest::ReadFile(a.err);
    // 3,500 extended records of 328 bytes: answers above the 1 MB limit.
    std::string out;
    ASSERT_EQ(0, Exec({ptest::Bin("tikron-feed"), "--port", std::to_string(udp), "--synthetic", "3500", "--rate",
                      "20000"}, &out)) << out;
    ASSERT_TRUE(ptest::WaitUntil([&] { return ntest::Table(da, "tikron_ex_", 1).size() == 3500; }, 10000));

    // C asks the queue group it belongs to itself: only A may answer.
    ptest::HostRun c(dc, ntest::NodeConfig(dc, 3, 0, ntest::SyncRequests(), "nats_url=\"" + url + "\""));
    ASSERT_TRUE(c.Ready()) << ptest::ReadFile(c.err);
    EXPECT_EQ("", ntest::SameTables(da, dc, 3, 20000));
    const std::string log = ptest::ReadFile(dc / "host.log");
    for (int serial = 2; serial <= 5; ++serial)
        EXPECT_NE(std::string::npos, log.find(u8"的同步应答, 包序号: " + std::to_string(serial) + "!")) << serial;
    EXPECT_GT(ntest::NodeStats(a.sock)["nats"]["bus_chunks_sent"].get<int>(), 0);
    EXPECT_EQ(0, ntest::NodeStats(c.sock)["nats"]["requests"].get<int>()) << "C answered its own request";
}

TEST(ProductNats, ServerRestartMidFeed) {
    ntest::NatsServer server;
    const std::string url = server.Url();
    TempDir da, db;
    const int udp = ptest::PickPort(33);
    std::string mc = ntest::SyncRequests();
    for (int it : {22, 18}) mc += ntest::McRequest(620001, it, "issue_type", std::to_string(it));
    ptest::HostRun a(da, ntest::NodeConfig(da, 1, udp, ""), {"--nats", url});
    ASSERT_TRUE(a.Ready()) << ptest::ReadFile(a.err);
    ptest::HostRun b(db, ntest::NodeConfig(db, 2, 0, mc, "nats_sync_peer=\"n#1\""),
                     {"--nats", url});
    ASSERT_TRUE(b.Ready()) << ptest::ReadFile(b.err);

    // The server goes away once B has taken some of A's quotes and comes
    // back after the feed: A receives the rest while it is away; B catches
    // up once both are back (A's buffered publications, B asking A again).
    ptest::Process feed({ptest::Bin("tikron-feed"), "--port", std::to_string(udp), "--synthetic", "300", "--rate",
                         "1500", "--seconds", "2"},
                        "", da / "feed.out", da / "feed.err");
    ASSERT_TRUE(ptest::WaitUntil([&] { return ntest::NodeStats(b.sock)["nats"].value("intake", 0) > 0; }, 10000));
    server.Stop();
    ASSERT_NE(-1, feed.Wait(15000));
    ASSERT_TRUE(server.Start());

    EXPECT_EQ(300u, ntest::Table(da, "tikron_ex_", 1).size()) << "A lost records";
    EXPECT_EQ("", ntest::SameTables(da, db, 2, 15000)) << "after the reconnection";
    // The four tables were asked for again after the reconnection.
    json stats;
    EXPECT_TRUE(ptest::WaitUntil([&] {
        stats = ntest::NodeStats(b.sock)["nats"];
        return stats["bus_reconnects"] >= 1 && stats["sync_answered"] >= 8;
    }, 10000)) << stats.dump();
    EXPECT_TRUE(ptest::WaitUntil([&] { return ntest::NodeStats(a.sock)["host"]["messages_live"] == 0; }, 5000));
}

}  // namespace
