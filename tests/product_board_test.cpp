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

std::vector<std::string> BrowserArgs(const std::string& chromium, const std::string& profile) {
    return {chromium, "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
            "--disable-background-networking", "--disable-component-update", "--disable-sync",
            "--user-data-dir=" + profile, "--virtual-time-budget=4000", "--window-size=1400,1000"};
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

    const std::string url = "http://127.0.0.1:" + std::to_string(web) + "/";
    std::vector<std::string> dump = BrowserArgs(chromium, dir / "profile");
    dump.insert(dump.end(), {"--dump-dom", url});
    std::string dom, err;
    ASSERT_EQ(0, RunProgram(dump, &dom, 90000, &err)) << err;
    for (const auto& row : contracts["table"]["rows"]) {
        const std::string code = row[0].get<std::string>();
        EXPECT_NE(std::string::npos, dom.find("<td>" + code + "</td>")) << code << " not on the page";
    }
    const size_t peak = dom.find("id=\"rate-peak\">");
    ASSERT_NE(std::string::npos, peak) << dom;
    EXPECT_GT(std::atoi(dom.c_str() + peak + 15), 0) << dom.substr(peak, 40);
    EXPECT_NE(std::string::npos, dom.find("udp.received")) << "counters missing";

    const std::string shot = std::string(TIKRON_BINARY_DIR) + "/quote_board.png";
    std::vector<std::string> screenshot = BrowserArgs(chromium, dir / "profile");
    screenshot.insert(screenshot.end(), {"--screenshot=" + shot, url});
    EXPECT_EQ(0, RunProgram(screenshot, nullptr, 90000, &err)) << err;
    EXPECT_FALSE(ReadFile(shot).empty()) << shot;

    host.proc.Signal(SIGTERM);
    EXPECT_NE(-1, host.proc.Wait(15000));
}
