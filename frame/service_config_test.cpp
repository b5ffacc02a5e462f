// Configuration read by OnInit, checked on the loaded library.
#include <gtest/gtest.h>

#include <unistd.h>

#include <ctime>
#include <string>

#include "testing/frame_test_support.h"
#include "frame/request_node.h"

using frametest::Config;
using frametest::Options;
using frametest::Svc;

TEST(ServiceConfig, DefaultsWithoutArgsAndIdentityNames) {
    hostemu::HostEmulator host(Options(Config("")));
    ASSERT_EQ(0, host.Load()) << host.Error();
    testing::internal::CaptureStdout();
    ASSERT_EQ(0, host.Init()) << host.Error();
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(std::string::npos,
              out.find("enableudprecv = 0!\nenableudphq = 1!\nenableudphb = 1!\n"))
        << out;

    CTIKRONServiceImpl* s = Svc(host);
    EXPECT_EQ(0, s->m_iEnableRecvUDP);
    EXPECT_EQ(1, s->m_iDealUdpHq);
    EXPECT_EQ(1, s->m_iDealUdpHb);
    EXPECT_EQ(9090, s->m_iUDPPort);
    EXPECT_EQ(30, s->m_iHeartBeatTimeout);
    EXPECT_EQ(0, s->m_iEnableSubscibeToMC);
    EXPECT_EQ(0, s->m_iInitTime);
    EXPECT_EQ(0, s->m_iSysVersion);
    EXPECT_EQ(0, s->m_iUdpHqVersion);
    EXPECT_EQ(0, s->m_iSaveHBLog);
    EXPECT_EQ(32, s->m_iUDPRecvBufLen);
    EXPECT_EQ(4, s->m_iThreads);
    EXPECT_EQ(1, s->m_iSendToMC);
    EXPECT_EQ(0, s->m_convert22to16 + s->m_convert33105to24 + s->m_convert18to33102);
    EXPECT_TRUE(s->m_szSendRequestMap.empty());
    EXPECT_STREQ("A", s->m_szGroupName);
    EXPECT_STREQ("A#1", s->m_szNodeName);
    EXPECT_STREQ("S#2", s->m_szServerName);
    EXPECT_STREQ("tikron", s->m_szServiceID);
    EXPECT_NE(nullptr, s->m_lpRegeditThread);
    EXPECT_NE(nullptr, s->m_pHeartBeatThread);
    EXPECT_NE(nullptr, s->m_lpThread);
    EXPECT_NE(nullptr, s->m_pPacker);
    EXPECT_NE(nullptr, s->m_pIF2Packer);
    EXPECT_NE(nullptr, s->m_pIF2UnPacker);
    EXPECT_EQ(9u, s->m_ProcReqActionList.size());
    EXPECT_EQ(ServiceUnInite, host.Service()->GetServiceStatus());
    host.Shutdown();
}

TEST(ServiceConfig, FullArgsElementAndBufferLengthRule) {
    hostemu::HostEmulator host(Options(Config(
        "<args enableudprecv=\"0\" enableudphq=\"0\" enableudphb=\"2\" port=\"7001\" "
        "heartbeattimeout=\"5\" subscibetomc=\"1\" inittime=\"83000\" sysversion=\"1\" "
        "udphqversion=\"1\" udprecvbuflen=\"64\" bogus=\"9\"/>")));
    ASSERT_EQ(0, host.Load()) << host.Error();
    testing::internal::CaptureStdout();
    ASSERT_EQ(0, host.Init()) << host.Error();
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(std::string::npos, out.find("enableudphq = 0!\nenableudphb = 2!\n")) << out;
    CTIKRONServiceImpl* s = Svc(host);
    EXPECT_EQ(0, s->m_iDealUdpHq);
    EXPECT_EQ(2, s->m_iDealUdpHb);
    EXPECT_EQ(7001, s->m_iUDPPort);
    EXPECT_EQ(5, s->m_iHeartBeatTimeout);
    EXPECT_EQ(1, s->m_iEnableSubscibeToMC);
    EXPECT_EQ(83000, s->m_iInitTime);
    EXPECT_EQ(1, s->m_iSysVersion);
    EXPECT_EQ(1, s->m_iUdpHqVersion);
    EXPECT_EQ(64, s->m_iUDPRecvBufLen);
    host.Shutdown();

    // Zero, negative and non-numeric buffer lengths keep 32; text reads as atoi.
    for (const char* v : {"0", "-4", "abc"}) {
        hostemu::HostEmulator h(Options(Config(std::string("<args udprecvbuflen=\"") + v +
                                               "\" port=\"12x\"/>")));
        testing::internal::CaptureStdout();
        ASSERT_EQ(0, h.Load()) << h.Error();
        ASSERT_EQ(0, h.Init()) << h.Error();
        testing::internal::GetCapturedStdout();
        EXPECT_EQ(32, Svc(h)->m_iUDPRecvBufLen) << v;
        EXPECT_EQ(12, Svc(h)->m_iUDPPort);
        h.Shutdown();
    }
}

TEST(ServiceConfig, ConvertSwitchesByNameAndEmptyText) {
    hostemu::HostEmulator host(Options(Config(
        "<convert><convert22to16>1</convert22to16><convert22to33100></convert22to33100>"
        "<convert33105to24>7</convert33105to24><convert23to17>x</convert23to17>"
        "<convert33101to23>1</convert33101to23></convert>")));
    testing::internal::CaptureStdout();
    ASSERT_EQ(0, host.Load()) << host.Error();
    ASSERT_EQ(0, host.Init()) << host.Error();
    testing::internal::GetCapturedStdout();
    CTIKRONServiceImpl* s = Svc(host);
    EXPECT_EQ(1, s->m_convert22to16);
    EXPECT_EQ(0, s->m_convert22to33100);
    EXPECT_EQ(7, s->m_convert33105to24);
    EXPECT_EQ(0, s->m_convert23to17);
    EXPECT_EQ(1, s->m_convert33101to23);
    EXPECT_EQ(0, s->m_convert33101to17);
    EXPECT_EQ(0, s->m_convert18to33102);
    host.Shutdown();
}

TEST(ServiceConfig, SubscriptionListGetsPacketIdsInDocumentOrder) {
    std::string longNote(400, 'n');
    hostemu::HostEmulator host(Options(Config(
        "<mc><request issuetype=\"16\" branchno=\"8\" functionno=\"620001\" ospfname=\"ospf1\" "
        "svrname=\"svr1\" pluginid=\"mc\" note=\"quotes\">"
        "<param name=\"issue_type\" value=\"16\"/><param name=\"key\" value=\"ALL\"/></request>"
        "<request issuetype=\"22\" functionno=\"620002\" note=\"" + longNote + "\">"
        "<param name=\"issue_type\" value=\"22\"/></request></mc>")));
    testing::internal::CaptureStdout();
    ASSERT_EQ(0, host.Load()) << host.Error();
    ASSERT_EQ(0, host.Init()) << host.Error();
    testing::internal::GetCapturedStdout();
    CTIKRONServiceImpl* s = Svc(host);
    ASSERT_EQ(2u, s->m_szSendRequestMap.size());
    const tagRequestNode* first = s->m_szSendRequestMap.at(1);
    const tagRequestNode* second = s->m_szSendRequestMap.at(2);
    EXPECT_EQ(1u, first->ulPacketID);
    EXPECT_EQ(16, first->iIssueType);
    EXPECT_EQ(8, first->iBranchNo);
    EXPECT_EQ(620001u, first->ulFunctionNo);
    EXPECT_STREQ("ospf1", first->szRouteInfo.m_cOSPFName);
    EXPECT_STREQ("svr1", first->szRouteInfo.m_cSVRName);
    EXPECT_STREQ("mc", first->szRouteInfo.m_cPluginID);
    EXPECT_STREQ("", first->szRouteInfo.m_cNBRName);
    EXPECT_STREQ("quotes", first->cName);
    ASSERT_NE(nullptr, first->pParamList);
    EXPECT_STREQ("issue_type", first->pParamList->cKeyName);
    EXPECT_STREQ("16", first->pParamList->cKeyValue);
    ASSERT_NE(nullptr, first->pParamList->m_pNext);
    EXPECT_STREQ("key", first->pParamList->m_pNext->cKeyName);
    EXPECT_STREQ("ALL", first->pParamList->m_pNext->cKeyValue);
    EXPECT_EQ(nullptr, first->pParamList->m_pNext->m_pNext);

    EXPECT_EQ(2u, second->ulPacketID);
    EXPECT_EQ(22, second->iIssueType);
    // An over-long note is cut to the field.
    EXPECT_EQ(std::string(255, 'n'), std::string(second->cName));
    host.Shutdown();
}

TEST(ServiceConfig, RequestWithoutParametersFailsInitWithMinus5) {
    hostemu::CHostConfig config;
    ASSERT_EQ(0, config.LoadString(Config(
        "<mc><request issuetype=\"16\" functionno=\"620001\" note=\"a\">"
        "<param name=\"n\" value=\"v\"/></request>"
        "<request issuetype=\"17\" functionno=\"620001\" note=\"b\"/></mc>")));
    hostemu::CHostMessageFactory factory;
    hostemu::CHostPackSvr packSvr;
    hostemu::CHostLog log;
    hostemu::CHostSecurity security;
    hostemu::CPluginLoader loader;
    loader.Offer(SID_ESBMESSAGEFACTORY, &factory);
    loader.Offer(SID_F2PACKSVR, &packSvr);
    loader.Offer(SID_CFGSVR, &config);
    loader.Offer(SID_LOG, &log);
    loader.Offer(SID_SECURITY, &security);
    ASSERT_EQ(0, loader.Open(TIKRON_PLUGIN_PATH, "TIKRON")) << loader.Error();
    ASSERT_EQ(0, loader.Create(config.GetConfig("plugin"), config.GetConfig("pub"), "tikron"))
        << loader.Error();
    testing::internal::CaptureStderr();
    int r = loader.Init();
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(-5, r);
    EXPECT_NE(std::string::npos,
              err.find("[CMCServiceInterface::ReadSubscibeRequest]GetFirstChild NULL, return -5!"))
        << err;
    // The first request stays listed; nothing after the list is created.
    auto* s = static_cast<CTIKRONServiceImpl*>(loader.Service());
    EXPECT_EQ(1u, s->m_szSendRequestMap.size());
    EXPECT_EQ(nullptr, s->m_lpThread);
    EXPECT_EQ(nullptr, s->m_lpRegeditThread);
    loader.Unload();
}

TEST(ServiceConfigDeathTest, MissingIdentityAbortsInEveryBuild) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            hostemu::HostOptions o = Options(
                "<tikron><pub><node AppName=\"A\" SvrName=\"S\" SvrID=\"2\"/></pub><plugin/></tikron>");
            hostemu::HostEmulator host(o);
            host.Load();
            host.Init();
        },
        "lpID");
}

TEST(ServiceConfig, TradeReportLogStartsOnlyWithSavehblog) {
    time_t now = time(nullptr);
    struct tm t;
    localtime_r(&now, &t);
    char path[300];
    snprintf(path, sizeof(path), "./log/%04d-%02d-%02d-tikrno_A#-1.log", t.tm_year + 1900,
             t.tm_mon + 1, t.tm_mday);
    unlink(path);
    for (const char* args : {"", "<args savehblog=\"0\"/>"}) {
        hostemu::HostEmulator host(Options(Config(args)));
        testing::internal::CaptureStdout();
        ASSERT_EQ(0, host.Start()) << host.Error();
        testing::internal::GetCapturedStdout();
        host.Shutdown();
        EXPECT_NE(0, access(path, F_OK)) << args;
    }
    hostemu::HostEmulator host(Options(Config("<args savehblog=\"1\"/>")));
    testing::internal::CaptureStdout();
    ASSERT_EQ(0, host.Start()) << host.Error();
    testing::internal::GetCapturedStdout();
    host.Shutdown();
    EXPECT_EQ(0, access(path, F_OK)) << path;
    unlink(path);
}
