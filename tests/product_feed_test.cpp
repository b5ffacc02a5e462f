// tikron-host fed by tikron-feed over 127.0.0.1: the bundled captures turn
// into the expected JSON lines while the host plays the message center, and
// tikron-ctl queries, dumps and publishes while a synthetic stream goes on.
#include <cstddef>
#include <cstring>
#include <map>
#include <set>

#include "tests/product_support.h"
#include "wire/quote_records.h"

using namespace ptest;

namespace {

std::vector<json> Of(const std::vector<json>& lines, int function, int issue) {
    std::vector<json> out;
    for (const auto& j : lines)
        if (j["function"] == function && j["issue_type"] == issue) out.push_back(j);
    return out;
}

std::string KeyOf(const json& line) { return line["key"]["rows"][0][0].get<std::string>(); }

// The raw record of a "futu_hq_raw" publication (issue type 22), and its last price.
std::string Raw(const json& line) { return Unhex(line["body"]["rows"][0][1].get<std::string>()); }
double LastPrice(const json& line) {
    const std::string raw = Raw(line);
    double v = 0;
    if (raw.size() == sizeof(tagHQInfo_EX)) memcpy(&v, raw.data() + offsetof(tagHQInfo_EX, futu_last_price), sizeof v);
    return v;
}

int Feed(int port, const std::vector<std::string>& args, std::string* out = nullptr) {
    std::vector<std::string> argv = {Bin("tikron-feed"), "--port", std::to_string(port)};
    argv.insert(argv.end(), args.begin(), args.end());
    return RunProgram(argv, out);
}

}  // namespace

TEST(ProductFeed, SampleCaptureBecomesJsonLinesAndCtlAnswersWhileFeeding) {
    TempDir dir;
    const int port = PickPort(1);
    HostRun host(dir, Config(dir.path(), port));
    ASSERT_TRUE(host.Ready()) << ReadFile(host.err);
    std::string out, err;
    ASSERT_EQ(0, Feed(port, {"--file", Source("samples/backend_capture.txt"), "--rate", "500"}, &out));
    EXPECT_NE(std::string::npos, out.find("sent 37 datagrams")) << out;
    // Publications per function and issue type, once all have come.
    const std::map<std::string, int> expected = {
        {"620003/16", 18},   {"620003/18", 3},    {"620003/22", 18},   {"620003/24", 5},    {"620003/33100", 18},
        {"620003/33102", 3}, {"620003/33105", 5}, {"620003/33106", 1}, {"620003/33300", 1}, {"620031/17", 2},
        {"620031/23", 2},    {"620031/33101", 2}, {"620031/33117", 1}, {"620031/33301", 1}, {"620031/33400", 1},
        {"620031/33401", 1}, {"620031/33402", 1}, {"620031/33403", 1}, {"620031/33404", 1}};
    auto counts = [&] {
        std::map<std::string, int> n;
        for (const auto& j : JsonLines(host.pubs))
            if (j["function"] == 620003 || j["function"] == 620031) ++n[j["function"].dump() + "/" + j["issue_type"].dump()];
        return n;
    };
    WaitUntil([&] { return counts() == expected; }, 20000);
    EXPECT_EQ(expected, counts());
    const auto lines = JsonLines(host.pubs);
    std::set<std::string> exchanges;
    for (const auto& j : Of(lines, 620003, 33105)) {
        exchanges.insert(KeyOf(j));
        EXPECT_EQ("futu_exch_type", j["key"]["columns"][0]["name"]);
        EXPECT_EQ("QH", j["body"]["columns"][0]["name"]);
    }
    EXPECT_EQ((std::set<std::string>{"F1", "F2", "F3", "F4", "F5"}), exchanges);
    std::map<std::string, json> last22;
    for (const auto& j : Of(lines, 620003, 22)) last22[KeyOf(j)] = j;
    ASSERT_EQ(17u, last22.size());
    EXPECT_EQ(3862.0, LastPrice(last22["IF2412"]));  // the second tick
    EXPECT_EQ(74350.0, LastPrice(last22["cu2501"]));
    ASSERT_EQ(sizeof(tagHQInfo_EX), Raw(last22["sc2502"]).size());
    EXPECT_STREQ("F5", Raw(last22["sc2502"]).c_str() + offsetof(tagHQInfo_EX, futu_exch_type));
    const json& first = last22["IF2412"];
    EXPECT_EQ(R"([{"name":"type","type":"S","width":255,"scale":4},)"
              R"({"name":"futu_hq_raw","type":"R","width":10240,"scale":4}])", first["body"]["columns"].dump());
    EXPECT_EQ(1, first["body"]["rows"][0][0]);  // added as a number
    EXPECT_EQ(0, first["packet_type"]);
    // Text bodies are \x01-separated and UTF-8; report records keep the back
    // end's GBK words, visible in the raw hex.
    const json arb = Of(lines, 620003, 33102)[0];
    EXPECT_EQ("SP m2505&m2509", KeyOf(arb));
    EXPECT_EQ(0u, arb["body"]["rows"][0][0].get<std::string>().find("SP m2505&m2509\x01"));
    bool gbk = false;
    for (const auto& j : Of(lines, 620031, 23)) gbk |= j["body"].dump().find("c2f2c8eb") != std::string::npos;
    EXPECT_TRUE(gbk) << "the raw report should carry the entrust direction";
    EXPECT_FALSE(Of(lines, 2, 0).empty()) << "registration";
    EXPECT_TRUE(WaitUntil([&] { return ReadFile(dir / "host.log").find(u8"订阅: single-leg quotes 成功") != std::string::npos; },
                          10000));
    for (const char* bad : {u8"包格式不对", "get hq from data fail"})
        EXPECT_EQ(std::string::npos, ReadFile(dir / "host.log").find(bad)) << bad;

    // tikron-ctl while a synthetic stream goes on. Field mode: named columns,
    // the single-leg set ends with the exchange.
    Process feed({Bin("tikron-feed"), "--port", std::to_string(port), "--synthetic", "200", "--rate", "500", "--seconds",
                  "60"}, "", dir / "feed.out", dir / "feed.err");
    ASSERT_EQ(0, Ctl(host.sock, {"query", "620200", "IF2412"}, &out)) << out;
    json a = json::parse(out);
    EXPECT_EQ(620200, a["function"]);
    EXPECT_EQ(1, a["packet_type"]);
    ASSERT_EQ(1u, a["body"]["rows"].size());
    EXPECT_EQ("contract_code", a["body"]["columns"][0]["name"]);
    EXPECT_EQ("futu_exch_type", a["body"]["columns"].back()["name"]);
    EXPECT_EQ("F4", a["body"]["rows"][0].back());
    // Raw mode: found keys only.
    ASSERT_EQ(0, Ctl(host.sock, {"query", "620205", "--result-type", "0", "IF2412", "cu2501", "nosuch"}, &out));
    a = json::parse(out);
    EXPECT_EQ("R", a["body"]["columns"][0]["type"]);
    EXPECT_EQ(2u, a["body"]["rows"].size());
    // Management dumps as aligned tables in UTF-8.
    ASSERT_EQ(0, Ctl(host.sock, {"mgr", "0"}, &out));
    EXPECT_NE(std::string::npos, out.find(u8"取所有单脚行情")) << out;
    EXPECT_NE(std::string::npos, out.find("function_id  function_name")) << out;
    ASSERT_EQ(0, Ctl(host.sock, {"mgr", "4", "--json"}, &out));
    EXPECT_EQ(5u, json::parse(out)["rows"].size());
    // An injected publication reaches the plug-in as from the message center.
    const json body = {{"columns", {"QH"}}, {"rows", {{"F9\x01" "2\x01" "1"}}}};
    ASSERT_EQ(0, Ctl(host.sock, {"publish", "--issue-type", "33105", "--body", body.dump()}, &out, &err)) << err;
    EXPECT_TRUE(WaitUntil([&] {
        return Ctl(host.sock, {"query", "620207", "F9"}, &out) == 0 && json::parse(out)["body"]["rows"].size() == 1;
    }, 20000)) << out;
    ASSERT_EQ(0, Ctl(host.sock, {"stats", "--json"}, &out));
    const json s = json::parse(out);
    EXPECT_GT(s["host"]["lines_written"].get<long>(), 0);
    EXPECT_GE(s["host"]["registration_answers"].get<long>(), 1);
    ASSERT_EQ(1u, s["table"]["rows"].size());
    ASSERT_EQ(0, Ctl(host.sock, {"stats"}, &out));
    EXPECT_NE(std::string::npos, out.find(u8"总的接收个数"));
    // Errors: a clear message and a nonzero status.
    const std::pair<std::vector<std::string>, const char*> errors[] = {
        {{"query", "620299", "x"}, ""},
        {{"query", "620200"}, "needs a key"},
        {{"mgr", "99"}, "failed"},
        {{"publish", "--issue-type", "33105", "--body", "{oops"}, ""},
        {{"publish", "--issue-type", "33105", "--body", "{\"rows\":[]}"}, "columns"},
    };
    for (const auto& e : errors) {
        EXPECT_NE(0, Ctl(host.sock, e.first, &out, &err)) << e.first[1];
        EXPECT_NE(std::string::npos, err.find(e.second)) << err;
    }
    EXPECT_NE(0, Ctl(dir / "nobody.sock", {"stats"}, &out, &err));
    EXPECT_NE(std::string::npos, err.find("cannot reach tikron-host")) << err;
    // Raw protocol: garbage lines get an error answer, the server goes on.
    EXPECT_FALSE(Control(host.sock, {{"cmd", "dance"}}).value("ok", true));
    EXPECT_FALSE(Control(host.sock, json::array()).value("ok", true));
    EXPECT_TRUE(Control(host.sock, {{"cmd", "mgr"}, {"function_id", 7}}).value("ok", false));
    EXPECT_TRUE(feed.Running()) << "the stream went on during the requests";
    host.proc.Signal(SIGINT);
    const int st = host.proc.Wait(15000);
    EXPECT_TRUE(st != -1 && WIFEXITED(st) && WEXITSTATUS(st) == 0) << ReadFile(host.err);
}

TEST(ProductFeed, ExchangeFeedCaptureInModeOne) {
    TempDir dir;
    const int port = PickPort(2);
    HostRun host(dir, Config(dir.path(), port, "conf/tikron-mode1.xml"));
    ASSERT_TRUE(host.Ready()) << ReadFile(host.err);
    ASSERT_EQ(0, Feed(port, {"--file", Source("samples/exchange_feed_mode1.txt")}));
    ASSERT_TRUE(WaitUntil([&] { return !Of(JsonLines(host.pubs), 620003, 22).empty(); }, 20000));
    const auto lines = JsonLines(host.pubs);
    const auto text = Of(lines, 620003, 33100);
    ASSERT_EQ(1u, text.size());
    EXPECT_EQ("IF2412", KeyOf(text[0]));
    EXPECT_EQ(0u, text[0]["body"]["rows"][0][0].get<std::string>().find("0\x01" "999\x01" "93005\x01"))
        << "the feed's own text, control bytes kept";
    EXPECT_EQ(3861.4, LastPrice(Of(lines, 620003, 22)[0]));
    EXPECT_TRUE(Of(lines, 620003, 16).empty());
}

// Bad invocations end with a message and a nonzero status, never a hang.
TEST(ProductFeed, BadArgumentsAreRefused) {
    TempDir dir;
    WriteFile(dir / "broken.xml", "<tikron><pub>");
    WriteFile(dir / "bad.txt", "A00007F1,2,1,\n0\\q\n");
    const struct {
        std::vector<std::string> argv;
        int status;
        const char* message;
    } cases[] = {
        {{Bin("tikron-host"), "--config", dir / "missing.xml"}, -2, ""},
        {{Bin("tikron-host"), "--config", dir / "broken.xml"}, 1, "cannot read configuration"},
        {{Bin("tikron-host"), "--config", Source("conf/tikron.xml"), "--plugin", dir / "nope.so"}, 1, "plug-in start failed"},
        {{Bin("tikron-feed"), "--port", "9", "--file", dir / "bad.txt"}, 2, "bad.txt:2:"},
        {{Bin("tikron-feed"), "--port", "9"}, -2, ""},
    };
    for (const auto& c : cases) {
        std::string out, err;
        const int st = RunProgram(c.argv, &out, 20000, &err);
        EXPECT_TRUE(c.status == -2 ? st > 0 : st == c.status) << c.argv[2] << ": " << st;
        EXPECT_NE(std::string::npos, err.find(c.message)) << err;
    }
}
