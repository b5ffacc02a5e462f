// The loaded service through the emulator: lifecycle, registration, the
// heartbeat thread's daily reset, the UDP receiver, and the dispatcher's
// answers and release rules.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <thread>

#include "frame/service_threads.h"
#include "testing/frame_test_support.h"

using frametest::WaitUntil;

namespace {

struct Service : testing::Test {
    // Loads, initialises and starts the plug-in with <args> etc.; its stdout kept in out.
    bool Start(const std::string& plugin = "") {
        host = std::make_unique<hostemu::HostEmulator>(frametest::Options(frametest::Config(plugin)));
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
        EXPECT_EQ(0u, host->Factory().Stats().doubleReleases);
        EXPECT_EQ(0u, host->Factory().Stats().usesAfterRelease);
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
    for (const auto& m : host->Center().MessagesOf(2)) {
        EXPECT_EQ(2, m.PacketType());
        EXPECT_EQ("tikron", m.PathStamp(2));
        EXPECT_EQ("S#2", m.PathStamp(1));
    }
    ASSERT_EQ(0, host->PostFromCenter(hostemu::MessageSpec(2, 1)));
    ASSERT_TRUE(WaitUntil([&] { return s->m_lpRegeditThread->m_iStop.load() != 0; }));
    s->m_lpRegeditThread->m_szStopEvent.Set();
    EXPECT_TRUE(Logged("RegeditThread stop!"));
}

// The heartbeat thread resets tables and counters once for a new date after
// the configured time; the test wakes its loop instead of waiting a second.
TEST_F(Service, DailyResetRunsOnceForANewDate) {
    ASSERT_TRUE(Start("<args inittime=\"-1\"/>")) << host->Error();
    CHeartBeatThread* hb = s->m_pHeartBeatThread;
    const int today = s->m_iInitDate.load();
    ASSERT_TRUE(WaitUntil([&] { return hb->m_ulPasses.load() >= 1; }));
    EXPECT_EQ(0u, host->Log().CountContaining("初始化成功")) << "OnStart marks today as done";
    s->m_uiRecvUDPHB = 5;
    s->m_uiRecvCJNum = 6;
    s->m_iInitDate = 20000101;  // as if the last reset was long ago
    hb->m_szStopEvent.Set();
    char expected[128];
    snprintf(expected, sizeof(expected), "原日期: %d, 初始化时间: -1, 初始化成功, 日期: %d!", today, today);
    ASSERT_TRUE(Logged(expected));
    EXPECT_EQ(today, s->m_iInitDate.load());
    EXPECT_EQ(0u, s->m_uiRecvUDPHB.load());
    EXPECT_EQ(0u, s->m_uiRecvCJNum.load());
    for (int pass = 0; pass < 2; ++pass) {
        const unsigned long n = hb->m_ulPasses.load();
        hb->m_szStopEvent.Set();
        ASSERT_TRUE(WaitUntil([&] { return hb->m_ulPasses.load() > n; }));
    }
    EXPECT_EQ(1u, host->Log().CountContaining("初始化成功"));
}

// Sync requests are answered and released by their handler, never by the
// dispatcher; every other message is released by the dispatcher.
TEST_F(Service, DispatcherReleaseRulesPerFunction) {
    ASSERT_TRUE(Start("<args enableudphb=\"1\"/>")) << host->Error();
    host->PostFromCenter(hostemu::MessageSpec(2, 0));  // registration traffic is not of interest here
    for (int f : {620202, 620203, 620204, 620206})
        for (int type : {0, 1, 2}) ASSERT_EQ(0, host->PostFromClient(hostemu::MessageSpec(f, type)));
    // Error flag, unknown function, trade report ignored with UDP reports on,
    // fund notice, subscription answer and publication without body.
    for (int f : {620200, 999999, 620299, 620301, 620001, 620003}) {
        hostemu::MessageSpec m(f, 0);
        m.errorFlag = f == 620200 ? 1 : 0;
        ASSERT_EQ(0, host->PostFromCenter(m));
    }
    ExpectAllReleased();
    EXPECT_TRUE(host->Center().MessagesOf(620031).empty());
    EXPECT_TRUE(host->Client().MessagesOf(620031).empty());
}

TEST_F(Service, HeartbeatRequestIsAnsweredToTheCenter) {
    ASSERT_TRUE(Start()) << host->Error();
    hostemu::MessageSpec hb(620000, 0);
    hb.packetId = 77;
    ASSERT_EQ(0, host->PostFromCenter(hb));
    hostemu::MessageSnapshot answer;
    ASSERT_TRUE(host->Center().WaitFor([](const hostemu::MessageSnapshot& m) { return m.FunctionNo() == 620000; }, 3000,
                                       &answer));
    EXPECT_EQ(1, answer.PacketType());
    EXPECT_EQ(77, answer.PacketId());
    EXPECT_TRUE(WaitUntil([&] { return s->m_pHeartBeatThread->m_iSubscibeTime.load() != 0; }))
        << "the center's sign of life is noted after the answer";
    // A refused answer, and an answer from the client, are released by the dispatcher.
    host->Center().SetMode(hostemu::CHostNeighbour::Refuse);
    ASSERT_EQ(0, host->PostFromClient(hb));
    ASSERT_EQ(0, host->PostFromClient(hostemu::MessageSpec(620000, 1)));
    ExpectAllReleased();
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
            EXPECT_EQ(0, p.PacketType());
            EXPECT_EQ(33200 + k, p.IssueType());
            EXPECT_EQ(m.body, p.Body());
            EXPECT_EQ(key, p.Key());
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

TEST_F(Service, UdpReceiverStartsCountsAndIsFreedOnStop) {
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
}

TEST_F(Service, UdpInitFailureStartsNoWorker) {
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
