// The loaded service through the emulator: lifecycle, registration,
// heartbeat answers, the daily reset, fund notices and the UDP receiver.
// (Who releases which message is the release-rule test's; the subscription
// test drives the heartbeat's clock.)
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <thread>
#include <tuple>

#include "frame/service_threads.h"
#include "testing/frame_test_support.h"

using frametest::WaitUntil;

namespace {

struct Service : testing::Test {
    // Loads, initialises and starts the plug-in; its stdout kept in out.
    bool Start(const std::string& plugin = "", const std::string& hostSettings = "") {
        host = std::make_unique<hostemu::HostEmulator>(frametest::Options(frametest::Config(plugin, hostSettings)));
        testing::internal::CaptureStdout();
        const int rc = host->Start();
        out = testing::internal::GetCapturedStdout();
        s = frametest::Svc(*host);
        return rc == 0 && s != nullptr;
    }
    bool Logged(const std::string& text) { return host->Log().WaitFor(text, 3000); }
    // Every message handed to the plug-in was given back, none twice.
    void ExpectAllReleased() {
        EXPECT_TRUE(WaitUntil([&] { return host->Factory().Stats().live == 0; })) << host->Factory().LeakReport();
        EXPECT_EQ(0u, host->Factory().Stats().doubleReleases + host->Factory().Stats().usesAfterRelease);
    }
    std::unique_ptr<hostemu::HostEmulator> host;
    CTIKRONServiceImpl* s = nullptr;
    std::string out;
};

TEST_F(Service, RepeatedFullLifecycleStopsPromptly) {
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(Start("<args subscibetomc=\"0\"/>")) << host->Error();
        EXPECT_TRUE(s->m_pTIKRONInfo && s->m_pTIKRONInfo_EX && s->m_pTIKRONARGInfo && s->m_pFUTUExchStatusInfo);
        EXPECT_NE(0, s->m_iInitDate.load());
        for (int i = 0; i < 4; ++i) EXPECT_NE(pthread_t(), s->m_lpThreadID[i]);
        EXPECT_TRUE(Logged("没有启动UDP接收功能!"));
        const auto t0 = std::chrono::steady_clock::now();
        ASSERT_EQ(0, host->Stop()) << host->Error();
        EXPECT_EQ(1, s->m_iStop.load());
        EXPECT_TRUE(!s->m_pTIKRONInfo && !s->m_pTIKRONInfo_EX && !s->m_lpRegeditThread && !s->m_pHeartBeatThread);
        ASSERT_EQ(0, host->Exit()) << host->Error();
        EXPECT_TRUE(!s->m_pIF2Packer && !s->m_pIF2UnPacker);
        host->Shutdown();
        EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(5));  // a hang guard
        ExpectAllReleased();
        EXPECT_EQ(0u, host->PackSvr().LivePackers());
    }
}

// One registration request per pass of the registration thread until the
// function-2 answer; the test wakes the thread instead of waiting a second.
TEST_F(Service, RegistrationRepeatsUntilTheFunction2Answer) {
    ASSERT_TRUE(Start()) << host->Error();
    auto requests = [&] { return host->Center().MessagesOf(2).size(); };
    ASSERT_TRUE(WaitUntil([&] { return requests() >= 1; }));
    EXPECT_TRUE(Logged("RegeditThread start..."));
    s->m_lpRegeditThread->m_szStopEvent.Set();
    ASSERT_TRUE(WaitUntil([&] { return requests() >= 2; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_LE(requests(), 3u) << "one request per pass";
    for (const auto& m : host->Center().MessagesOf(2))
        EXPECT_EQ(std::make_tuple(2, std::string("tikron"), std::string("S#2")),
                  std::make_tuple(m.PacketType(), m.PathStamp(2), m.PathStamp(1)));
    ASSERT_EQ(0, host->PostFromCenter(hostemu::MessageSpec(2, 1)));
    ASSERT_TRUE(WaitUntil([&] { return s->m_lpRegeditThread->m_iStop.load() != 0; }));
    s->m_lpRegeditThread->m_szStopEvent.Set();
    EXPECT_TRUE(Logged("RegeditThread stop!"));
}

// Heartbeat requests of the center (the emulator's, every 20 ms, and one
// with a packet id) are answered to it; the answer notes the center's life.
TEST_F(Service, HeartbeatRequestsAreAnsweredToTheCenter) {
    ASSERT_TRUE(Start("", "<host heartbeat_ms=\"20\"/>")) << host->Error();
    EXPECT_TRUE(WaitUntil([&] { return host->Center().MessagesOf(620000, 1).size() >= 3; }));
    hostemu::MessageSpec hb(620000, 0);
    hb.packetId = 77;
    ASSERT_EQ(0, host->PostFromCenter(hb));
    hostemu::MessageSnapshot answer;
    ASSERT_TRUE(host->Center().WaitFor([](const hostemu::MessageSnapshot& m) { return m.PacketId() == 77; }, 3000, &answer));
    EXPECT_EQ(std::make_tuple(620000, 1), std::make_tuple(answer.FunctionNo(), answer.PacketType()));
    EXPECT_TRUE(WaitUntil([&] { return s->m_pHeartBeatThread->m_iSubscibeTime.load() != 0; }));
}

// With the init time passed and the last reset on another date, the
// heartbeat thread resets tables and counters; it is woken, not waited for.
TEST_F(Service, DailyResetClearsTheCounters) {
    ASSERT_TRUE(Start("<args inittime=\"-1\"/>")) << host->Error();
    const int today = s->m_iInitDate.load();
    s->m_uiRecvUDPHB = 5;
    s->m_uiRecvCJNum = 6;
    s->m_uiRecvWTQRNum = 7;
    s->m_iInitDate = 20000101;
    s->m_pHeartBeatThread->m_szStopEvent.Set();
    char expected[128];
    snprintf(expected, sizeof(expected), "原日期: %d, 初始化时间: -1, 初始化成功, 日期: %d!", today, today);
    ASSERT_TRUE(Logged(expected));
    EXPECT_EQ(today, s->m_iInitDate.load());
    EXPECT_EQ(0u, s->m_uiRecvUDPHB.load() + s->m_uiRecvCJNum.load() + s->m_uiRecvWTQRNum.load());
}

// Fund notices 620301-620303 become publications 33200-33202 of the same
// body, keyed by the fund account; a missing or broken body is logged.
TEST_F(Service, FundNoticesBecomePublications) {
    ASSERT_TRUE(Start()) << host->Error();
    const std::vector<char> key = hostemu::EncodePacked(hostemu::MakeBody(33, {"fund_account"}, {{880012}}));
    for (int version : {33, 1}) {
        for (int k = 0; k < 3; ++k) {
            host->Center().Clear();
            hostemu::MessageSpec m(620301 + k, 0);
            m.body = hostemu::EncodePacked(hostemu::MakeBody(version, {"fund_account", "other"}, {{"880012", "x"}}));
            ASSERT_EQ(0, host->PostFromClient(m));
            hostemu::MessageSnapshot p;
            ASSERT_TRUE(host->Center().WaitFor([](const hostemu::MessageSnapshot& x) { return x.FunctionNo() == 620003; },
                                               3000, &p)) << m.functionNo;
            EXPECT_EQ(std::make_tuple(0, 33200 + k, m.body, key), std::make_tuple(p.PacketType(), p.IssueType(), p.Body(), p.Key()));
        }
    }
    host->Center().Clear();
    ASSERT_EQ(0, host->PostFromClient(hostemu::MessageSpec(620301, 0)));
    EXPECT_TRUE(Logged("get TAG_MESSAGE_BODY fail!"));
    hostemu::MessageSpec broken(620302, 0);
    broken.body = {'n', 'o', 't', ' ', 'p', 'a', 'c', 'k', 'e', 'd'};
    ASSERT_EQ(0, host->PostFromClient(broken));
    EXPECT_TRUE(Logged("解包错误, 错误代码: -2!"));
    EXPECT_TRUE(host->Center().MessagesOf(620003).empty());
    ExpectAllReleased();
}

// The receiver counts datagrams and is freed on stop; a port it cannot bind
// is logged with the error and no worker starts.
TEST_F(Service, UdpReceiverStartsOrFailsToBind) {
    ASSERT_TRUE(Start("<args enableudprecv=\"1\" port=\"0\" udprecvbuflen=\"1\"/>")) << host->Error();
    EXPECT_NE(std::string::npos, out.find("\nset the udp recv-buffer size")) << out;
    EXPECT_TRUE(Logged("set the udp recv-buffer size"));
    EXPECT_TRUE(Logged("udp recv start on port: 0!"));
    EXPECT_EQ(0u, host->Log().CountContaining("没有启动UDP接收功能!"));
    ASSERT_NE(nullptr, s->m_pUDPRecv);
    frametest::UdpSender udp;
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(udp.Send(static_cast<int>(s->m_pUDPRecv->GetPort()), "Q00003abc"));
    EXPECT_TRUE(WaitUntil([&] { return s->m_pUDPRecv->GetRecvCount() == 3; }));
    ASSERT_EQ(0, host->Stop()) << host->Error();
    EXPECT_EQ(nullptr, s->m_pUDPRecv);

    const int fd = socket(AF_INET, SOCK_DGRAM, 0);  // holds a port, without SO_REUSEADDR
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    socklen_t len = sizeof(addr);
    ASSERT_EQ(0, bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)));
    ASSERT_EQ(0, getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len));
    ASSERT_TRUE(Start("<args enableudprecv=\"1\" port=\"" + std::to_string(ntohs(addr.sin_port)) + "\"/>"));
    EXPECT_TRUE(Logged("init udp recv fail, error code: " + std::to_string(EADDRINUSE) + "!"));
    for (int i = 0; i < 4; ++i) EXPECT_EQ(pthread_t(), s->m_lpThreadID[i]);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_TRUE(host->Center().MessagesOf(2).empty()) << "no registration thread runs";
    close(fd);
}

}  // namespace
