// tikron-host fed by tikron-feed over 127.0.0.1: the bundled captures turn
// into the expected JSON lines, and the host plays the message center
// (registration, subscriptions, heartbeats).
#include <cstddef>
#include <cstring>
#include <map>
#include <set>

#include "wire/quote_records.h"
#include "tests/product_support.h"

using namespace ptest;

namespace {

std::vector<std::string> ReadLinesOf(const std::string& path) {
    std::vector<std::string> out;
    std::ifstream in(path);
    std::string l;
    while (std::getline(in, l)) out.push_back(l);
    return out;
}

std::vector<json> Of(const std::vector<json>& lines, int function, int issue) {
    std::vector<json> out;
    for (const auto& j : lines)
        if (j["function"] == function && j["issue_type"] == issue) out.push_back(j);
    return out;
}

std::string KeyOf(const json& line) {
    const json& k = line["key"];
    if (!k.is_object() || k["rows"].empty() || k["rows"][0].empty() || !k["rows"][0][0].is_string()) return "";
    return k["rows"][0][0].get<std::string>();
}

// Raw record bytes of a "futu_hq_raw" publication.
std::string RawRecord(const json& line) {
    const json& b = line["body"];
    for (size_t c = 0; c < b["columns"].size(); ++c)
        if (b["columns"][c]["type"] == "R") return Unhex(b["rows"][0][c].get<std::string>());
    return "";
}

double DoubleAt(const std::string& raw, size_t off) {
    double v = 0;
    if (raw.size() >= off + sizeof v) memcpy(&v, raw.data() + off, sizeof v);
    return v;
}

}  // namespace

TEST(ProductFeed, SampleCaptureBecomesJsonLines) {
    TempDir dir;
    const int port = PickPort(1);
    HostRun host(dir, Config(dir.path(), port));
    ASSERT_TRUE(host.Ready()) << ReadFile(host.err);

    std::string out;
    ASSERT_EQ(0, RunProgram({Bin("tikron-feed"), "--port", std::to_string(port), "--file",
                      Source("samples/backend_capture.txt"), "--rate", "500"}, &out));
    size_t datagrams = 0;
    for (const auto& l : ReadLinesOf(Source("samples/backend_capture.txt")))
        datagrams += !l.empty() && l[0] != '#';
    EXPECT_NE(std::string::npos, out.find("sent " + std::to_string(datagrams) + " datagrams")) << out;

    // The margin-order report (33106) comes after every quote and report.
    ASSERT_TRUE(WaitUntil([&] { return !Of(JsonLines(host.pubs), 620003, 33106).empty(); }, 20000));
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    auto lines = JsonLines(host.pubs);

    // Every record type published what it should.
    EXPECT_EQ(5u, Of(lines, 620003, 24).size());
    EXPECT_EQ(5u, Of(lines, 620003, 33105).size());
    EXPECT_EQ(18u, Of(lines, 620003, 33100).size());
    EXPECT_EQ(18u, Of(lines, 620003, 22).size());
    EXPECT_EQ(18u, Of(lines, 620003, 16).size());
    EXPECT_EQ(3u, Of(lines, 620003, 18).size());
    EXPECT_EQ(3u, Of(lines, 620003, 33102).size());
    EXPECT_EQ(1u, Of(lines, 620003, 33300).size());
    EXPECT_GE(Of(lines, 620031, 33301).size(), 1u);
    EXPECT_GE(Of(lines, 620031, 23).size(), 2u);
    EXPECT_GE(Of(lines, 620031, 33101).size(), 2u);
    EXPECT_EQ(1u, Of(lines, 620031, 33117).size());
    EXPECT_EQ(1u, Of(lines, 620003, 33106).size());
    EXPECT_GE(Of(lines, 620031, 17).size(), 2u);

    // Keys and decoded bodies.
    std::set<std::string> exchanges;
    for (const auto& j : Of(lines, 620003, 33105)) {
        exchanges.insert(KeyOf(j));
        EXPECT_EQ("futu_exch_type", j["key"]["columns"][0]["name"]);
        EXPECT_EQ("QH", j["body"]["columns"][0]["name"]);
    }
    EXPECT_EQ((std::set<std::string>{"F1", "F2", "F3", "F4", "F5"}), exchanges);
    std::map<std::string, std::string> last22;
    for (const auto& j : Of(lines, 620003, 22)) last22[KeyOf(j)] = RawRecord(j);
    ASSERT_EQ(17u, last22.size());
    ASSERT_EQ(sizeof(tagHQInfo_EX), last22["IF2412"].size());
    EXPECT_EQ(3862.0, DoubleAt(last22["IF2412"], offsetof(tagHQInfo_EX, futu_last_price)));  // second tick
    EXPECT_EQ(74350.0, DoubleAt(last22["cu2501"], offsetof(tagHQInfo_EX, futu_last_price)));
    EXPECT_STREQ("F5", last22["sc2502"].c_str() + offsetof(tagHQInfo_EX, futu_exch_type));
    const json first = Of(lines, 620003, 22)[0];
    EXPECT_EQ("type", first["body"]["columns"][0]["name"]);
    EXPECT_EQ(1, first["body"]["rows"][0][0]);  // added as a number
    EXPECT_EQ("futu_hq_raw", first["body"]["columns"][1]["name"]);
    EXPECT_EQ(0, first["packet_type"]);

    // Text bodies are \x01-separated and UTF-8 after conversion.
    const json arb = Of(lines, 620003, 33102)[0];
    EXPECT_EQ("SP m2505&m2509", KeyOf(arb));
    EXPECT_EQ(0u, arb["body"]["rows"][0][0].get<std::string>().find("SP m2505&m2509\x01"));
    // Report records keep the back end's GBK words, visible in the raw hex.
    bool gbk = false;
    for (const auto& j : Of(lines, 620031, 23)) gbk |= j["body"].dump().find("c2f2c8eb") != std::string::npos;
    EXPECT_TRUE(gbk) << "the raw report should carry the entrust direction";

    // The host answered the plug-in's registration and subscriptions.
    EXPECT_FALSE(Of(lines, 2, 0).empty());
    bool subscribed = WaitUntil([&] { return ReadFile(dir / "host.log").find(u8"订阅: single-leg quotes 成功") != std::string::npos; }, 10000);
    EXPECT_TRUE(subscribed) << ReadFile(dir / "host.log");
    const std::string log = ReadFile(dir / "host.log");
    EXPECT_EQ(std::string::npos, log.find(u8"包格式不对")) << log;
    EXPECT_EQ(std::string::npos, log.find("get hq from data fail")) << log;

    host.proc.Signal(SIGTERM);
    int st = host.proc.Wait(15000);
    ASSERT_NE(-1, st);
    EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0) << ReadFile(host.err);
}

TEST(ProductFeed, ExchangeFeedCaptureInModeOne) {
    TempDir dir;
    const int port = PickPort(2);
    HostRun host(dir, Config(dir.path(), port, "conf/tikron-mode1.xml"));
    ASSERT_TRUE(host.Ready()) << ReadFile(host.err);
    ASSERT_EQ(0, RunProgram({Bin("tikron-feed"), "--port", std::to_string(port), "--file",
                      Source("samples/exchange_feed_mode1.txt")}, nullptr));
    ASSERT_TRUE(WaitUntil([&] { return !Of(JsonLines(host.pubs), 620003, 22).empty(); }, 20000));
    auto lines = JsonLines(host.pubs);
    auto text = Of(lines, 620003, 33100);
    ASSERT_EQ(1u, text.size());
    EXPECT_EQ("IF2412", KeyOf(text[0]));
    const std::string qh = text[0]["body"]["rows"][0][0].get<std::string>();
    EXPECT_EQ(0u, qh.find("0\x01" "999\x01" "93005\x01"));  // the feed's own text, control bytes kept
    std::string raw = RawRecord(Of(lines, 620003, 22)[0]);
    EXPECT_EQ(3861.4, DoubleAt(raw, offsetof(tagHQInfo_EX, futu_last_price)));
    EXPECT_TRUE(Of(lines, 620003, 16).empty());
}

// Bad invocations end with a message and a nonzero status, never a hang.
TEST(ProductFeed, BadArgumentsAreRefused) {
    TempDir dir;
    std::string out, err;
    EXPECT_NE(0, RunProgram({Bin("tikron-host"), "--config", dir / "missing.xml"}, &out, 20000, &err));
    WriteFile(dir / "broken.xml", "<tikron><pub>");
    EXPECT_EQ(1, RunProgram({Bin("tikron-host"), "--config", dir / "broken.xml"}, &out, 20000, &err));
    EXPECT_NE(std::string::npos, err.find("cannot read configuration")) << err;
    EXPECT_EQ(1, RunProgram({Bin("tikron-host"), "--config", Source("conf/tikron.xml"), "--plugin", dir / "nope.so"}, &out,
                     20000, &err));
    EXPECT_NE(std::string::npos, err.find("plug-in start failed")) << err;
    WriteFile(dir / "bad.txt", "A00007F1,2,1,\n0\\q\n");
    EXPECT_EQ(2, RunProgram({Bin("tikron-feed"), "--port", "9", "--file", dir / "bad.txt"}, &out, 20000, &err));
    EXPECT_NE(std::string::npos, err.find("bad.txt:2:")) << err;
    EXPECT_NE(0, RunProgram({Bin("tikron-feed"), "--port", "9"}, &out, 20000, &err));
}
