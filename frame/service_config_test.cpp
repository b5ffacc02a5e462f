// Configuration read by OnInit, checked on the loaded library.
#include <gtest/gtest.h>

#include <unistd.h>

#include <ctime>
#include <string>

#include "frame/request_node.h"
#include "testing/frame_test_support.h"

using frametest::Config;
using frametest::Options;
using frametest::Svc;

namespace {

// The plug-in loaded and initialised with the given <plugin> content.
struct Inited {
    explicit Inited(const std::string& plugin) : host(Options(Config(plugin))) {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        rc = host.Init();
        out = testing::internal::GetCapturedStdout();
        err = testing::internal::GetCapturedStderr();
    }
    hostemu::HostEmulator host;
    int rc;
    std::string out, err;
    CTIKRONServiceImpl* s() { return Svc(host); }
};

// enableudprecv, enableudphq, enableudphb, port, heartbeattimeout,
// subscibetomc, inittime, sysversion, udphqversion, savehblog,
// udprecvbuflen, udppollus, then the worker count and the send switch.
std::vector<int> Args(const CTIKRONServiceImpl* s) {
    return {s->m_iEnableRecvUDP, s->m_iDealUdpHq,   s->m_iDealUdpHb,    s->m_iUDPPort,
            s->m_iHeartBeatTimeout, s->m_iEnableSubscibeToMC, s->m_iInitTime, s->m_iSysVersion,
            s->m_iUdpHqVersion, s->m_iSaveHBLog,   s->m_iUDPRecvBufLen, s->m_iUDPPollUs, s->m_iThreads, s->m_iSendToMC};
}

TEST(ServiceConfig, ArgsDefaultsAndReadRules) {
    const struct {
        const char* args;
        std::vector<int> expected;
        const char* printed;
    } cases[] = {
        {"", {0, 1, 1, 9090, 30, 0, 0, 0, 0, 0, 32, 0, 4, 1}, "enableudprecv = 0!\nenableudphq = 1!\nenableudphb = 1!\n"},
        {"<args enableudprecv=\"0\" enableudphq=\"0\" enableudphb=\"2\" port=\"7001\" heartbeattimeout=\"5\" "
         "subscibetomc=\"1\" inittime=\"83000\" sysversion=\"1\" udphqversion=\"1\" udprecvbuflen=\"64\" udppollus=\"100\" bogus=\"9\"/>",
         {0, 0, 2, 7001, 5, 1, 83000, 1, 1, 0, 64, 100, 4, 1}, "enableudphq = 0!\nenableudphb = 2!\n"},
        // Zero, negative and non-numeric buffer lengths keep 32; text reads as
        // atoi; the poll window is kept within 0..1000.
        {"<args udprecvbuflen=\"0\" port=\"12x\" udppollus=\"5000\"/>", {0, 1, 1, 12, 30, 0, 0, 0, 0, 0, 32, 1000, 4, 1}, ""},
        {"<args udprecvbuflen=\"-4\" udppollus=\"-5\"/>", {0, 1, 1, 9090, 30, 0, 0, 0, 0, 0, 32, 0, 4, 1}, ""},
        {"<args udprecvbuflen=\"abc\"/>", {0, 1, 1, 9090, 30, 0, 0, 0, 0, 0, 32, 0, 4, 1}, ""},
    };
    for (const auto& c : cases) {
        Inited i(c.args);
        ASSERT_EQ(0, i.rc) << i.host.Error();
        EXPECT_EQ(c.expected, Args(i.s())) << c.args;
        EXPECT_NE(std::string::npos, i.out.find(c.printed)) << i.out;
    }
    Inited i("");
    const CTIKRONServiceImpl* s = i.s();
    EXPECT_EQ("A A#1 S#2 tikron", std::string(s->m_szGroupName) + " " + s->m_szNodeName + " " + s->m_szServerName + " " +
                                      s->m_szServiceID);
    EXPECT_TRUE(s->m_szSendRequestMap.empty());
}

// Switches by element name; an absent element, an empty or non-numeric
// text reads 0.
TEST(ServiceConfig, ConvertSwitches) {
    auto switches = [](const CTIKRONServiceImpl* s) {
        return std::vector<int>{s->m_convert22to16,    s->m_convert22to33100,  s->m_convert18to33102,
                                s->m_convert23to17,    s->m_convert23to33101,  s->m_convert24to33105,
                                s->m_convert33101to23, s->m_convert33101to17,  s->m_convert33100to22,
                                s->m_convert33100to16, s->m_convert33102to18,  s->m_convert33105to24};
    };
    Inited i("<convert><convert22to16>1</convert22to16><convert22to33100></convert22to33100>"
             "<convert33105to24>7</convert33105to24><convert23to17>x</convert23to17>"
             "<convert33101to23>1</convert33101to23><convert33100to22>3</convert33100to22></convert>");
    ASSERT_EQ(0, i.rc) << i.host.Error();
    EXPECT_EQ((std::vector<int>{1, 0, 0, 0, 0, 0, 1, 0, 3, 0, 0, 7}), switches(i.s()));
    EXPECT_EQ(std::vector<int>(12, 0), switches(Inited("").s()));
}

// Packet ids, issue types and parameters of the list reach the center (the
// subscription tests); here the fields that stay inside.
TEST(ServiceConfig, SubscriptionListFields) {
    Inited i("<mc><request branchno=\"8\" ospfname=\"ospf1\" svrname=\"svr1\" pluginid=\"mc\" note=\"quotes\">"
             "<param name=\"k\" value=\"v\"/></request><request note=\"" + std::string(400, 'n') + "\">"
             "<param name=\"k\" value=\"v\"/></request></mc>");
    ASSERT_EQ(0, i.rc) << i.host.Error();
    const tagRequestNode* first = i.s()->m_szSendRequestMap.at(1);
    const tagRouteInfo& r = first->szRouteInfo;
    EXPECT_EQ("ospf1,,svr1,mc", std::string(r.m_cOSPFName) + "," + r.m_cNBRName + "," + r.m_cSVRName + "," + r.m_cPluginID);
    EXPECT_STREQ("quotes", first->cName);
    EXPECT_EQ(8, first->iBranchNo);
    EXPECT_EQ(std::string(255, 'n'), i.s()->m_szSendRequestMap.at(2)->cName) << "an over-long note is cut to the field";
}

// A bad request fails the initialisation; the requests before it stay
// listed and nothing after the list is created.
TEST(ServiceConfig, BadRequestFailsInit) {
    const struct {
        const char* bad;
        int rc;
        const char* message;
    } cases[] = {
        {"<request issuetype=\"17\" functionno=\"620001\" note=\"b\"/>", -5,
         "[CMCServiceInterface::ReadSubscibeRequest]GetFirstChild NULL, return -5!"},
        {"<request issuetype=\"17\" functionno=\"620001\"><param name=\"n\"/></request>", -6,
         "[CMCServiceInterface::ReadSubscibeRequest]KeyInfo without name or value,return -6\n"},
    };
    for (const auto& c : cases) {
        Inited i(std::string("<mc><request issuetype=\"16\" functionno=\"620001\" note=\"a\"><param name=\"n\" value=\"v\"/>"
                             "</request>") + c.bad + "</mc>");
        EXPECT_EQ(c.rc, i.rc);
        EXPECT_EQ("Init returned " + std::to_string(c.rc), i.host.Error());
        EXPECT_NE(std::string::npos, i.err.find(c.message)) << i.err;
        EXPECT_EQ(1u, i.s()->m_szSendRequestMap.size());
        EXPECT_EQ(nullptr, i.s()->m_lpThread);
        EXPECT_EQ(nullptr, i.s()->m_lpRegeditThread);
    }
}

TEST(ServiceConfigDeathTest, MissingIdentityAbortsInEveryBuild) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            hostemu::HostEmulator host(Options("<t><pub><node AppName=\"A\" SvrName=\"S\" SvrID=\"2\"/></pub><plugin/></t>"));
            host.Init();
        },
        "lpID");
}

TEST(ServiceConfig, TradeReportLogStartsOnlyWithSavehblog) {
    frametest::TempWorkDir dir;
    ASSERT_TRUE(dir.Enter());
    const time_t now = time(nullptr);
    struct tm t;
    localtime_r(&now, &t);
    char path[64];
    snprintf(path, sizeof(path), "log/%04d-%02d-%02d-tikrno_A#-1.log", t.tm_year + 1900, t.tm_mon + 1, t.tm_mday);
    for (const auto& c : {std::make_pair("", false), std::make_pair("<args savehblog=\"0\"/>", false),
                          std::make_pair("<args savehblog=\"1\"/>", true)}) {
        {
            hostemu::HostEmulator host(Options(Config(c.first)));
            testing::internal::CaptureStdout();
            ASSERT_EQ(0, host.Start()) << host.Error();
            testing::internal::GetCapturedStdout();
        }
        EXPECT_EQ(c.second, access(path, F_OK) == 0) << c.first;
    }
}

}  // namespace
