// The loaded service through the emulator: facets, lifecycle, registration
// and the dispatcher's release rules.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "frame/frame_test_support.h"

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
    EXPECT_NE(0, Svc(host)->m_pHeartBeatThread->m_iSubscibeTime.load());

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
