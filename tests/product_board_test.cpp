// The quote board in a real browser: tikron-host fed with the sample
// capture, the page rendered by headless Chromium; the DOM must hold the fed
// contracts and a nonzero ingest rate. The screenshot stays in the build
// directory (quote_board.png) for people to look at.
#include "tests/product_support.h"

using namespace ptest;

namespace {

std::string Chromium() {
    for (const char* p : {"/usr/bin/chromium", "/usr/bin/chromium-browser"})
        if (access(p, X_OK) == 0) return p;
    return "";
}

}  // namespace

TEST(ProductBoard, BrowserShowsFedContractsAndRate) {
    const std::string chromium = Chromium();
    if (chromium.empty()) GTEST_SKIP() << "chromium is not installed (scripts/setup.sh installs it)";
    TempDir dir;
    const int port = PickPort(12);
    HostRun host(dir, Config(dir.path(), port), {"--metrics", "127.0.0.1:0"});
    ASSERT_TRUE(host.Ready()) << ReadFile(host.err);
    const int web = MetricsPort(host);
    ASSERT_GT(web, 0) << ReadFile(host.err);
    ASSERT_EQ(0, RunProgram({Bin("tikron-feed"), "--port", std::to_string(port), "--file",
                             Source("samples/backend_capture.txt")}, nullptr));
    // The rate is sampled once a second.
    std::string rate;
    ASSERT_TRUE(WaitUntil([&] { return HttpGet(web, "/api/rate", &rate) == 200 && json::parse(rate)["peak"] > 0; },
                          10000)) << rate;
    json contracts = Control(host.sock, {{"cmd", "mgr"}, {"function_id", 1}});
    ASSERT_TRUE(contracts.value("ok", false)) << contracts.dump();
    ASSERT_FALSE(contracts["table"]["rows"].empty());

    // One browser run renders the page, keeps a screenshot and prints the DOM.
    const std::string url = "http://127.0.0.1:" + std::to_string(web) + "/";
    const std::string shot = std::string(TIKRON_BINARY_DIR) + "/quote_board.png";
    unlink(shot.c_str());
    const std::vector<std::string> browser = {
        chromium, "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
        "--disable-background-networking", "--disable-component-update", "--disable-sync",
        "--user-data-dir=" + dir / "profile", "--virtual-time-budget=1500", "--window-size=1400,1000",
        "--screenshot=" + shot, "--dump-dom", url};
    std::string dom, err;
    ASSERT_EQ(0, RunProgram(browser, &dom, 90000, &err)) << err;
    EXPECT_FALSE(ReadFile(shot).empty()) << shot;
    for (const auto& row : contracts["table"]["rows"]) {
        const std::string code = row[0].get<std::string>();
        EXPECT_NE(std::string::npos, dom.find("<td>" + code + "</td>")) << code << " not on the page";
    }
    const size_t peak = dom.find("id=\"rate-peak\">");
    ASSERT_NE(std::string::npos, peak) << dom;
    EXPECT_GT(std::atoi(dom.c_str() + peak + 15), 0) << dom.substr(peak, 40);
    EXPECT_NE(std::string::npos, dom.find("udp.received")) << "counters missing";


    host.proc.Signal(SIGTERM);
    EXPECT_NE(-1, host.proc.Wait(15000));
}
