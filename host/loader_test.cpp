// The whole host lifecycle driven through the loader against the test
// plug-in, proving the interface contract across the library boundary.
#include "host/host_emulator.h"

#include <string>

#include <gtest/gtest.h>

#include "frame/esb_message.h"

using namespace hostemu;

namespace {

const char kConfig[] = R"(<root>
  <pub><node AppName="futu" AppID="3" SvrName="svr" SvrID="1"/></pub>
  <plugin>
    <args initresult="0"/>
    <convert><convert22to16>1</convert22to16><convert23to17></convert23to17></convert>
  </plugin>
</root>)";

HostOptions TestOptions(const std::string& xml = kConfig) {
    HostOptions o;
    o.pluginPath = TESTPLUGIN_PATH;
    o.id = "TEST";
    o.serviceName = "test";
    o.configXml = xml;
    return o;
}

TEST(Loader, FullLifecycleThroughEveryFacet) {
    HostEmulator host(TestOptions());
    ASSERT_EQ(0, host.Load()) << host.Error();
    EXPECT_EQ(std::string("test"), host.Loader().Info().ServiceID);
    EXPECT_NE(std::string::npos, host.Loader().Caption().find(" V1.0.0.0"));
    ASSERT_EQ(4u, host.Loader().Depends().size());
    EXPECT_EQ(SID_LOG, host.Loader().Depends()[3]);
    EXPECT_STREQ("test", host.Service()->GetServiceID());

    ASSERT_EQ(0, host.Init()) << host.Error();
    EXPECT_TRUE(host.Log().WaitFor("init app=futu svr=svr", 0));
    EXPECT_TRUE(host.Log().WaitFor("convert convert22to16=1", 0));
    EXPECT_TRUE(host.Log().WaitFor("convert convert23to17=", 0)) << "empty text reads as \"\"";
    EXPECT_EQ(2, host.Service()->GetServiceStatus());

    ASSERT_EQ(0, host.Start()) << host.Error();
    EXPECT_TRUE(host.Log().WaitFor(u8"测试插件启动", 2000)) << "GBK text converted to UTF-8";
    EXPECT_TRUE(host.Log().WaitFor("测试插件启动", 0)) << "and matched as GBK bytes";
    for (const LogLine& l : host.Log().Lines()) {
        EXPECT_EQ("CTestService::Log", l.function);
        EXPECT_EQ(15006, l.code);
    }

    // Echo: a packed request body comes back answered, every value kind typed.
    MessageSpec fields(1, PACKET_REQUEST);
    fields.packetId = 41;
    fields.body = EncodePacked(MakeBody(1, {"text", "n"}, {{"alpha", 10}, {"beta", "20"}}));
    ASSERT_EQ(0, host.PostFromCenter(fields));
    ASSERT_TRUE(host.Center().WaitForCount(1, 3000));
    MessageSnapshot ans = host.Center().Messages()[0];
    EXPECT_EQ(PACKET_ANSWER, ans.PacketType());
    EXPECT_EQ(1, ans.FunctionNo());
    EXPECT_EQ(41, ans.PacketId());
    EXPECT_EQ("test", ans.PathStamp(2));
    EXPECT_EQ("testsvr", ans.PathStamp(1));
    PackedBody body;
    std::vector<char> raw = ans.Body();
    ASSERT_EQ(0, DecodePacked(raw.data(), static_cast<int>(raw.size()), &body));
    EXPECT_EQ(1, body.version) << "answered in the request's version";
    ASSERT_EQ(2u, body.rows.size());
    EXPECT_EQ("alpha", body.Str(0, "text"));
    EXPECT_EQ('I', body.Get(0, "n")->kind);
    EXPECT_EQ(11, body.Int(0, "n"));
    EXPECT_EQ(21, body.Int(1, "n")) << "GetInt of a string cell";
    EXPECT_EQ('D', body.Get(1, "half")->kind);
    EXPECT_DOUBLE_EQ(10.0, body.Get(1, "half")->d);
    EXPECT_EQ('b', body.Get(1, "first")->c);

    host.Shutdown();
    EXPECT_TRUE(host.Log().WaitFor("stopped", 0));
    EXPECT_TRUE(host.Log().WaitFor("exited", 0));
    MessageStats s = host.Factory().Stats();
    EXPECT_EQ(0u, s.live);
    EXPECT_EQ(0u, s.doubleReleases);
    EXPECT_EQ(0u, s.usesAfterRelease);
    EXPECT_EQ(0u, host.PackSvr().LivePackers());
}

TEST(Loader, RefusingNeighbourLeavesTheMessageToTheSender) {
    HostEmulator host(TestOptions());
    ASSERT_EQ(0, host.Start()) << host.Error();
    host.Center().SetMode(CHostNeighbour::Refuse);
    MessageSpec fields(1, PACKET_REQUEST);
    fields.body = EncodePacked(MakeBody(33, {"text", "n"}, {{"x", 1}}));
    ASSERT_EQ(0, host.PostFromCenter(fields));
    for (int i = 0; i < 300 && host.Center().Refused() == 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(1u, host.Center().Refused());
    host.Shutdown();
    EXPECT_EQ(0u, host.Factory().Stats().live) << "the plug-in released what was refused";
}

TEST(Loader, MessageCenterHeartbeatFromHostSettings) {
    std::string xml = kConfig;
    xml.insert(xml.find("</root>"), "<host heartbeat_ms=\"20\"/>");
    HostEmulator host(TestOptions(xml));
    EXPECT_EQ(20, [&] { host.Load(); return host.Config().Settings().heartbeatMs; }());
    ASSERT_EQ(0, host.Start()) << host.Error();
    for (int i = 0; i < 300 && host.Factory().Queue().GetDealedCount() < 3; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_GE(host.Factory().Queue().GetDealedCount(), 3);
    host.Shutdown();
}

TEST(Loader, FailuresAreReportedClearly) {
    {
        HostOptions o = TestOptions();
        o.pluginPath = "/nonexistent/libnothing.so";
        HostEmulator host(o);
        EXPECT_NE(0, host.Start());
        EXPECT_NE(std::string::npos, host.Error().find("dlopen")) << host.Error();
    }
    {
        HostOptions o = TestOptions();
        o.id = "NOPE";
        HostEmulator host(o);
        EXPECT_NE(0, host.Load());
        EXPECT_NE(std::string::npos, host.Error().find("missing symbol GetNOPEInfo")) << host.Error();
    }
    {
        HostEmulator host(TestOptions("<root><pub><n AppName='a'/></pub><plugin><args initresult='-5'/></plugin></root>"));
        EXPECT_EQ(-5, host.Start());
        EXPECT_NE(std::string::npos, host.Error().find("Init returned -5")) << host.Error();
    }
    {
        HostEmulator host(TestOptions("<root><unclosed></root>"));
        EXPECT_NE(0, host.Load());
        EXPECT_NE(std::string::npos, host.Error().find("configuration")) << host.Error();
    }
    {
        // A host without a log service: the dependency is named.
        CHostMessageFactory f;
        CHostPackSvr p;
        CHostConfig c;
        CPluginLoader loader;
        loader.Offer(SID_ESBMESSAGEFACTORY, &f);
        loader.Offer(SID_F2PACKSVR, &p);
        loader.Offer(SID_CFGSVR, &c);
        ASSERT_EQ(0, loader.Open(TESTPLUGIN_PATH, "TEST")) << loader.Error();
        EXPECT_NE(0, loader.Create(nullptr, nullptr, ""));
        EXPECT_EQ("missing dependency id " SID_LOG, loader.Error());
        loader.Unload();
    }
}

}  // namespace
