// SIGTERM while about 100,000 datagrams per second arrive: tikron-host
// stops the plug-in and exits within two seconds, without errors.
#include "tests/product_support.h"

using namespace ptest;

TEST(ProductShutdown, SigtermUnderLoadExitsWithinTwoSeconds) {
    TempDir dir;
    const int port = PickPort(5);
    HostRun host(dir, Config(dir.path(), port));
    ASSERT_TRUE(host.Ready()) << ReadFile(host.err);
    Process feed({Bin("tikron-feed"), "--port", std::to_string(port), "--synthetic", "5000", "--rate", "100000",
                  "--seconds", "8"}, "", dir / "feed.out", dir / "feed.err");
    ASSERT_TRUE(WaitUntil([&] { return Control(host.sock, {{"cmd", "stats"}})["host"].value("lines_written", 0) > 1000; },
                          20000));
    std::this_thread::sleep_for(std::chrono::seconds(1));
    ASSERT_TRUE(feed.Running()) << "the feed ended before the stop";

    const auto t0 = Clock::now();
    host.proc.Signal(SIGTERM);
    int st = host.proc.Wait(10000);
    const double took = std::chrono::duration<double>(Clock::now() - t0).count();
    ASSERT_NE(-1, st) << "tikron-host did not exit";
    EXPECT_LT(took, 2.0);
    EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0) << ReadFile(host.err);
    const std::string err = ReadFile(host.err);
    EXPECT_NE(std::string::npos, err.find("stopped")) << err;
    EXPECT_EQ(std::string::npos, err.find("leak")) << err;
    EXPECT_NE(-1, feed.Wait(20000));
    // Every line written is complete JSON.
    std::ifstream in(host.pubs);
    std::string line, lastLine;
    while (std::getline(in, line)) lastLine = line;
    EXPECT_FALSE(json::parse(lastLine, nullptr, false).is_discarded()) << lastLine;
}
