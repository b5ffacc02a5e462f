// The loaded service through the emulator: facets, lifecycle, registration
// and the dispatcher's release rules.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "testing/frame_test_support.h"

using frametest::Config;
using frametest::Options;
using frametest::Svc;

namespace {

using Clock = std::chrono::steady_clock;

long long MsSince(Clock::time_point t) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - t).count();
}

// Waits until every message handed to the plug-in was given back.
bool WaitNoLiveMessages(hostemu::HostEmulator& host, int timeoutMs) {
    auto until = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (Clock::now() < until) {
        if (host.Factory().Stats().live == 0) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return host.Factory().Stats().live == 0;
}

}  // namespace

TEST(ServiceFacets, QueryInterfaceRules) {
    hostemu::HostEmulator host(Options(Config("")));
    ASSERT_EQ(0, host.Load()) << host.Error();
    IMessageService* svc = host.Service();
    IKnown* out = nullptr;
    EXPECT_EQ(1, svc->QueryInterface(SID_MESSAGESERVICE, &out));
    EXPECT_EQ(svc, out);
    EXPECT_EQ(1, svc->QueryInterface("tikron", &out));
    EXPECT_EQ(svc, out);
    IKnown* ioc = nullptr;
    IKnown* mgr = nullptr;
    EXPECT_EQ(1, svc->QueryInterface(SID_IOC, &ioc));
    EXPECT_EQ(1, svc->QueryInterface(SID_MANAGER, &mgr));
    ASSERT_NE(nullptr, ioc);
    ASSERT_NE(nullptr, mgr);
    EXPECT_EQ(0, svc->QueryInterface("com.velmora.kavle.messageservicex", &out));
    EXPECT_EQ(nullptr, out);

    // The facets answer the plug-in's own id and themselves, not the
    // message-service id and not each other.
    EXPECT_EQ(1, ioc->QueryInterface("tikron", &out));
    EXPECT_EQ(svc, out);
    EXPECT_EQ(1, ioc->QueryInterface(SID_IOC, &out));
    EXPECT_EQ(ioc, out);
    EXPECT_EQ(0, ioc->QueryInterface(SID_MESSAGESERVICE, &out));
    EXPECT_EQ(nullptr, out);
    EXPECT_EQ(0, ioc->QueryInterface(SID_MANAGER, &out));
    EXPECT_EQ(1, mgr->QueryInterface("tikron", &out));
    EXPECT_EQ(svc, out);
    EXPECT_EQ(1, mgr->QueryInterface(SID_MANAGER, &out));
    EXPECT_EQ(mgr, out);
    EXPECT_EQ(0, mgr->QueryInterface(SID_MESSAGESERVICE, &out));
    EXPECT_EQ(0, mgr->QueryInterface(SID_IOC, &out));

    EXPECT_EQ(1, svc->AddRef());
    EXPECT_EQ(1, ioc->AddRef());
    EXPECT_EQ(1, ioc->Release());
    EXPECT_EQ(1, mgr->Release());
    // Unknown system events and unknown management actions.
    EXPECT_EQ(1, static_cast<IManager*>(mgr)->ProcSysEvent(5, 0, 0, nullptr));
    EXPECT_EQ(1, static_cast<IManager*>(mgr)->ProcMngAnswer(nullptr));
    EXPECT_EQ(-1, static_cast<IManager*>(mgr)->ProcMngRequest(nullptr, nullptr));
    host.Shutdown();
}

TEST(ServiceLifecycle, RepeatedFullLifecycleStopsPromptly) {
    for (int round = 0; round < 3; ++round) {
        hostemu::HostEmulator host(Options(Config("<args subscibetomc=\"0\"/>")));
        testing::internal::CaptureStdout();
        ASSERT_EQ(0, host.Start()) << host.Error();
        testing::internal::GetCapturedStdout();
        CTIKRONServiceImpl* s = Svc(host);
        EXPECT_NE(nullptr, s->m_pTIKRONInfo);
        EXPECT_NE(nullptr, s->m_pTIKRONInfo_EX);
        EXPECT_NE(nullptr, s->m_pTIKRONARGInfo);
        EXPECT_NE(nullptr, s->m_pFUTUExchStatusInfo);
        EXPECT_NE(0, s->m_iInitDate.load());
        for (int i = 0; i < 4; ++i) EXPECT_NE(pthread_t(), s->m_lpThreadID[i]);
        EXPECT_TRUE(host.Log().WaitFor("没有启动UDP接收功能!", 2000));

        auto t0 = Clock::now();
        ASSERT_EQ(0, host.Stop()) << host.Error();
        EXPECT_LT(MsSince(t0), 5000);  // a hang guard, not a timing figure
        EXPECT_EQ(1, s->m_iStop.load());
        EXPECT_EQ(nullptr, s->m_pTIKRONInfo);
        EXPECT_EQ(nullptr, s->m_lpRegeditThread);
        EXPECT_EQ(nullptr, s->m_pHeartBeatThread);
        ASSERT_EQ(0, host.Exit()) << host.Error();
        EXPECT_EQ(nullptr, s->m_pIF2Packer);
        EXPECT_EQ(nullptr, s->m_pIF2UnPacker);
        t0 = Clock::now();
        host.Shutdown();
        EXPECT_LT(MsSince(t0), 5000);
        EXPECT_EQ(0u, host.Factory().Stats().doubleReleases);
        EXPECT_EQ(0u, host.Factory().Stats().usesAfterRelease);
    }
}

TEST(ServiceRegistration, OneRequestPerSecondUntilFunction2Answer) {
    hostemu::HostEmulator host(Options(Config("")));
    testing::internal::CaptureStdout();
    ASSERT_EQ(0, host.Start()) << host.Error();
    testing::internal::GetCapturedStdout();
    ASSERT_TRUE(host.Center().WaitFor(
        [](const hostemu::MessageSnapshot& m) { return m.FunctionNo() == 2; }, 3000));
    std::this_thread::sleep_for(std::chrono::milliseconds(2200));
    size_t sent = host.Center().MessagesOf(2).size();
    EXPECT_GE(sent, 2u);
    EXPECT_LE(sent, 4u);
    for (const auto& m : host.Center().MessagesOf(2)) {
        EXPECT_EQ(2, m.PacketType());
        EXPECT_EQ("tikron", m.PathStamp(2));
        EXPECT_EQ("S#2", m.PathStamp(1));
    }
    EXPECT_TRUE(host.Log().WaitFor("RegeditThread start...", 1000));

    hostemu::MessageSpec answer;
    answer.functionNo = 2;
    answer.packetType = 1;
    ASSERT_EQ(0, host.PostFromCenter(answer));
    ASSERT_TRUE(host.Log().WaitFor("RegeditThread stop!", 3000));
    size_t after = host.Center().MessagesOf(2).size();
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    EXPECT_EQ(after, host.Center().MessagesOf(2).size());
    host.Shutdown();
}

TEST(ServiceDispatch, ReleaseRulesPerFunction) {
    hostemu::HostEmulator host(Options(Config("<args enableudphb=\"1\"/>")));
    testing::internal::CaptureStdout();
    ASSERT_EQ(0, host.Start()) << host.Error();
    testing::internal::GetCapturedStdout();
    // Registration traffic is not of interest here.
    hostemu::MessageSpec reg;
    reg.functionNo = 2;
    host.PostFromCenter(reg);

    // Sync requests are answered and released by their handler, never by the
    // dispatcher; other packet types are released by the dispatcher.
    for (int f : {620202, 620203, 620204, 620206}) {
        for (int type : {0, 1, 2}) {
            hostemu::MessageSpec m;
            m.functionNo = f;
            m.packetType = type;
            ASSERT_EQ(0, host.PostFromClient(m));
        }
    }
    // Error flag, unknown function, trade report ignored with UDP reports on,
    // fund notice without body, subscription answer without body.
    for (int f : {620200, 999999, 620299, 620301, 620001, 620003}) {
        hostemu::MessageSpec m;
        m.functionNo = f;
        m.errorFlag = f == 620200 ? 1 : 0;
        ASSERT_EQ(0, host.PostFromCenter(m));
    }
    EXPECT_TRUE(WaitNoLiveMessages(host, 3000)) << host.Factory().Stats().live;
    EXPECT_EQ(0u, host.Factory().Stats().doubleReleases);
    EXPECT_EQ(0u, host.Factory().Stats().usesAfterRelease);
    EXPECT_TRUE(host.Center().MessagesOf(620031).empty());
    EXPECT_TRUE(host.Client().MessagesOf(620031).empty());
    host.Shutdown();
}

TEST(ServiceDispatch, HeartbeatRequestIsAnsweredToTheCenter) {
    hostemu::HostEmulator host(Options(Config("")));
    testing::internal::CaptureStdout();
    ASSERT_EQ(0, host.Start()) << host.Error();
    testing::internal::GetCapturedStdout();
    hostemu::MessageSpec hb;
    hb.functionNo = 620000;
    hb.packetType = 0;
    hb.packetId = 77;
    ASSERT_EQ(0, host.PostFromCenter(hb));
    hostemu::MessageSnapshot answer;
    ASSERT_TRUE(host.Center().WaitFor(
        [](const hostemu::MessageSnapshot& m) { return m.FunctionNo() == 620000; }, 3000, &answer));
    EXPECT_EQ(1, answer.PacketType());
    EXPECT_EQ(77, answer.PacketId());
    // The time is refreshed right after the answer was passed on.
    auto& seen = Svc(host)->m_pHeartBeatThread->m_iSubscibeTime;
    for (int i = 0; i < 300 && seen.load() == 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_NE(0, seen.load());

    // A refused answer is released by the dispatcher.
    host.Center().SetMode(hostemu::CHostNeighbour::Refuse);
    ASSERT_EQ(0, host.PostFromClient(hb));
    hostemu::MessageSpec hbAnswer;
    hbAnswer.functionNo = 620000;
    hbAnswer.packetType = 1;
    ASSERT_EQ(0, host.PostFromClient(hbAnswer));
    EXPECT_TRUE(WaitNoLiveMessages(host, 3000));
    EXPECT_EQ(0u, host.Factory().Stats().doubleReleases);
    host.Shutdown();
}

TEST(ServiceLifecycle, UdpReceiverStartsAndIsFreedOnStop) {
    hostemu::HostEmulator host(Options(Config("<args enableudprecv=\"1\" port=\"0\" udprecvbuflen=\"1\"/>")));
    testing::internal::CaptureStdout();
    ASSERT_EQ(0, host.Start()) << host.Error();
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(std::string::npos, out.find("\nset the udp recv-buffer size")) << out;
    EXPECT_TRUE(host.Log().WaitFor("set the udp recv-buffer size", 1000));
    EXPECT_TRUE(host.Log().WaitFor("udp recv start on port: 0!", 1000));
    EXPECT_EQ(0u, host.Log().CountContaining("没有启动UDP接收功能!"));
    CTIKRONServiceImpl* s = Svc(host);
    ASSERT_NE(nullptr, s->m_pUDPRecv);
    unsigned port = s->m_pUDPRecv->GetPort();
    ASSERT_NE(0u, port);

    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    ASSERT_GE(fd, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(port));
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const char datagram[] = "Q00003abc";
    for (int i = 0; i < 3; ++i)
        sendto(fd, datagram, sizeof(datagram) - 1, 0, reinterpret_cast<sockaddr*>(&to), sizeof(to));
    close(fd);
    for (int i = 0; i < 200 && s->m_pUDPRecv->GetRecvCount() < 3; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(3u, s->m_pUDPRecv->GetRecvCount());

    ASSERT_EQ(0, host.Stop()) << host.Error();
    EXPECT_EQ(nullptr, s->m_pUDPRecv);
    host.Shutdown();
}

TEST(ServiceLifecycle, UdpInitFailureStartsNoWorker) {
    // Hold a port without SO_REUSEADDR so the receiver cannot bind it.
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    ASSERT_GE(fd, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_ANY);
    ASSERT_EQ(0, bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)));
    socklen_t len = sizeof(addr);
    getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
    std::string port = std::to_string(ntohs(addr.sin_port));

    hostemu::HostEmulator host(Options(Config("<args enableudprecv=\"1\" port=\"" + port + "\"/>")));
    testing::internal::CaptureStdout();
    ASSERT_EQ(0, host.Start()) << host.Error();
    testing::internal::GetCapturedStdout();
    EXPECT_TRUE(host.Log().WaitFor("init udp recv fail, error code:", 1000));
    CTIKRONServiceImpl* s = Svc(host);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(pthread_t(), s->m_lpThreadID[i]);
    // No registration thread runs: nothing reaches the center.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_TRUE(host.Center().MessagesOf(2).empty());
    host.Shutdown();
    close(fd);
}

TEST(ServiceHeartbeat, DailyResetRunsOnceForANewDate) {
    hostemu::HostEmulator host(Options(Config("<args inittime=\"-1\"/>")));
    testing::internal::CaptureStdout();
    ASSERT_EQ(0, host.Start()) << host.Error();
    testing::internal::GetCapturedStdout();
    CTIKRONServiceImpl* s = Svc(host);
    const int today = s->m_iInitDate.load();
    // OnStart marks today as done: no reset on the first passes.
    std::this_thread::sleep_for(std::chrono::milliseconds(1200));
    EXPECT_EQ(0u, host.Log().CountContaining("初始化成功"));

    s->m_uiRecvUDPHB = 5;
    s->m_uiRecvCJNum = 6;
    s->m_iInitDate = 20000101;  // as if the last reset was long ago
    char expected[128];
    snprintf(expected, sizeof(expected), "原日期: %d, 初始化时间: -1, 初始化成功, 日期: %d!", today, today);
    ASSERT_TRUE(host.Log().WaitFor(expected, 3000));
    EXPECT_EQ(today, s->m_iInitDate.load());
    EXPECT_EQ(0u, s->m_uiRecvUDPHB.load());
    EXPECT_EQ(0u, s->m_uiRecvCJNum.load());
    std::this_thread::sleep_for(std::chrono::milliseconds(1200));
    EXPECT_EQ(1u, host.Log().CountContaining("初始化成功"));
    host.Shutdown();
}
