// tikron-ctl against a running tikron-host while tikron-feed streams:
// queries, management dumps, injected publications, statistics, errors.
#include "tests/product_support.h"

using namespace ptest;

TEST(ProductCtl, QueriesAndDumpsWhileFeeding) {
    TempDir dir;
    const int port = PickPort(4);
    HostRun host(dir, Config(dir.path(), port));
    ASSERT_TRUE(host.Ready()) << ReadFile(host.err);
    ASSERT_EQ(0, RunProgram({Bin("tikron-feed"), "--port", std::to_string(port), "--file",
                      Source("samples/backend_capture.txt")}, nullptr));
    // A synthetic stream keeps running during the requests below.
    Process feed({Bin("tikron-feed"), "--port", std::to_string(port), "--synthetic", "200", "--rate", "2000",
                  "--seconds", "20"}, "", dir / "feed.out", dir / "feed.err");
    std::string out, err;
    ASSERT_TRUE(WaitUntil([&] {
        return Ctl(host.sock, {"query", "620200", "IF2412"}, &out) == 0 && out.find("IF2412") != std::string::npos;
    }, 20000)) << out;

    // Field mode: named columns, the single-leg set ends with the exchange.
    json a = json::parse(out);
    EXPECT_EQ(620200, a["function"]);
    EXPECT_EQ(1, a["packet_type"]);
    ASSERT_EQ(1u, a["body"]["rows"].size());
    EXPECT_EQ("contract_code", a["body"]["columns"][0]["name"]);
    EXPECT_EQ("futu_exch_type", a["body"]["columns"].back()["name"]);
    EXPECT_EQ("F4", a["body"]["rows"][0].back());

    // Raw mode and the other three queries.
    ASSERT_EQ(0, Ctl(host.sock, {"query", "620205", "--result-type", "0", "IF2412", "cu2501", "nosuch"}, &out));
    a = json::parse(out);
    EXPECT_EQ("R", a["body"]["columns"][0]["type"]);
    EXPECT_EQ(2u, a["body"]["rows"].size());
    ASSERT_EQ(0, Ctl(host.sock, {"query", "620201", "SP m2505&m2509"}, &out));
    EXPECT_EQ(1u, json::parse(out)["body"]["rows"].size()) << out;
    ASSERT_EQ(0, Ctl(host.sock, {"query", "620207"}, &out));
    EXPECT_EQ(5u, json::parse(out)["body"]["rows"].size()) << out;

    // Management dumps as aligned tables in UTF-8.
    ASSERT_EQ(0, Ctl(host.sock, {"mgr", "0"}, &out));
    EXPECT_NE(std::string::npos, out.find(u8"取所有单脚行情")) << out;
    EXPECT_NE(std::string::npos, out.find("function_id  function_name")) << out;
    ASSERT_EQ(0, Ctl(host.sock, {"mgr", "4", "--json"}, &out));
    EXPECT_EQ(5u, json::parse(out)["rows"].size());
    ASSERT_EQ(0, Ctl(host.sock, {"mgr", "1"}, &out));
    EXPECT_NE(std::string::npos, out.find("rb2505"));
    EXPECT_NE(std::string::npos, out.find(u8"0合约代码"));

    // An injected publication reaches the plug-in as from the message center.
    const std::string text = std::string("F9\x01" "2\x01" "1");
    json body = {{"columns", {"QH"}}, {"rows", {{text}}}};
    ASSERT_EQ(0, Ctl(host.sock, {"publish", "--issue-type", "33105", "--body", body.dump()}, &out, &err)) << err;
    EXPECT_TRUE(WaitUntil([&] {
        return Ctl(host.sock, {"query", "620207", "F9"}, &out) == 0 && json::parse(out)["body"]["rows"].size() == 1;
    }, 10000)) << out;

    ASSERT_EQ(0, Ctl(host.sock, {"stats", "--json"}, &out));
    json s = json::parse(out);
    EXPECT_GT(s["host"]["lines_written"].get<long>(), 0);
    EXPECT_GE(s["host"]["registration_answers"].get<long>(), 1);
    ASSERT_EQ(1u, s["table"]["rows"].size());
    ASSERT_EQ(0, Ctl(host.sock, {"stats"}, &out));
    EXPECT_NE(std::string::npos, out.find(u8"总的接收个数"));

    // Errors: clear message, nonzero status.
    EXPECT_NE(0, Ctl(host.sock, {"query", "620299", "x"}, &out, &err));
    EXPECT_NE(0, Ctl(host.sock, {"query", "620200"}, &out, &err));
    EXPECT_NE(std::string::npos, err.find("needs a key")) << err;
    EXPECT_NE(0, Ctl(host.sock, {"mgr", "99"}, &out, &err));
    EXPECT_NE(std::string::npos, err.find("failed")) << err;
    EXPECT_NE(0, Ctl(host.sock, {"publish", "--issue-type", "33105", "--body", "{oops"}, &out, &err));
    EXPECT_NE(0, Ctl(host.sock, {"publish", "--issue-type", "33105", "--body", "{\"rows\":[]}"}, &out, &err));
    EXPECT_NE(std::string::npos, err.find("columns")) << err;
    EXPECT_NE(0, Ctl(dir / "nobody.sock", {"stats"}, &out, &err));
    EXPECT_NE(std::string::npos, err.find("cannot reach tikron-host")) << err;

    // Raw protocol: garbage lines get an error answer, the server goes on.
    EXPECT_FALSE(Control(host.sock, {{"cmd", "dance"}}).value("ok", true));
    EXPECT_FALSE(Control(host.sock, json::array()).value("ok", true));
    EXPECT_TRUE(Control(host.sock, {{"cmd", "mgr"}, {"function_id", 7}}).value("ok", false));

    EXPECT_NE(-1, feed.Wait(40000));
    host.proc.Signal(SIGINT);
    int st = host.proc.Wait(15000);
    EXPECT_TRUE(st != -1 && WIFEXITED(st) && WEXITSTATUS(st) == 0) << ReadFile(host.err);
}
