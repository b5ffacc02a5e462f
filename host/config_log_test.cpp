// Configuration tree and log service.
#include "host/host_config.h"
#include "host/host_log.h"

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

using namespace hostemu;

namespace {

TEST(Config, NavigatesElementsAttributesAndText) {
    CHostConfig cfg;
    ASSERT_EQ(0, cfg.LoadString(R"(<tikron>
      <pub><!-- identity --><node AppName="A" AppID="1" SvrName="S" SvrID="2"/></pub>
      <plugin>
        <args port="9191"/>
        <convert><convert22to16>1</convert22to16><convert33100to16/></convert>
        <mc>
          <request issuetype="16" note="q"><param name="k1" value="v1"/><param name="k2" value="v2"/></request>
          <request issuetype="22"/>
        </mc>
      </plugin>
    </tikron>)")) << cfg.Error();
    IRCfgObj* pub = cfg.GetConfig("pub");
    ASSERT_NE(nullptr, pub);
    IRCfgObj* node = pub->GetFirstChild();
    ASSERT_NE(nullptr, node) << "comments are skipped";
    EXPECT_STREQ("node", node->GetName());
    EXPECT_STREQ("A", node->GetAttrValue("AppName"));
    EXPECT_EQ(nullptr, node->GetAttrValue("Missing"));
    EXPECT_EQ(nullptr, node->GetNextSibling());
    EXPECT_EQ(nullptr, node->GetFirstChild());

    IRCfgObj* plugin = cfg.GetConfig("plugin");
    ASSERT_NE(nullptr, plugin);
    EXPECT_STREQ("9191", plugin->GetChild("args")->GetAttrValue("port"));
    EXPECT_EQ(nullptr, plugin->GetChild("absent"));
    IRCfgObj* conv = plugin->GetChild("convert");
    EXPECT_STREQ("1", conv->GetChild("convert22to16")->GetText());
    EXPECT_STREQ("", conv->GetChild("convert33100to16")->GetText());
    EXPECT_EQ(plugin->GetChild("convert"), conv) << "one object per element";

    IRCfgObj* req = plugin->GetChild("mc")->GetFirstChild();
    int params = 0;
    for (IRCfgObj* p = req->GetFirstChild(); p != nullptr; p = p->GetNextSibling()) ++params;
    EXPECT_EQ(2, params);
    IRCfgObj* second = req->GetNextSibling();
    ASSERT_NE(nullptr, second);
    EXPECT_STREQ("22", second->GetAttrValue("issuetype"));
    EXPECT_EQ(nullptr, second->GetFirstChild());
    EXPECT_EQ(nullptr, cfg.GetConfig("host"));
    EXPECT_EQ(0, cfg.Settings().heartbeatMs);
}

TEST(Config, BadInputIsAnErrorNotACrash) {
    CHostConfig cfg;
    EXPECT_NE(0, cfg.LoadString("<a><b></a>"));
    EXPECT_FALSE(cfg.Error().empty());
    EXPECT_EQ(nullptr, cfg.GetConfig("pub"));
    EXPECT_NE(0, cfg.LoadString(""));
    EXPECT_NE(0, cfg.LoadFile("/nonexistent/tikron.xml"));
    EXPECT_NE(std::string::npos, cfg.Error().find("/nonexistent/tikron.xml"));
}

TEST(Config, SettingsFromAFile) {
    std::string path = std::string(TIKRON_BINARY_DIR) + "/config_log_test.xml";
    {
        std::ofstream f(path);
        f << "<r><host heartbeat_ms='250' log_file='x.log' log_stderr='1'/></r>";
    }
    CHostConfig cfg;
    ASSERT_EQ(0, cfg.LoadFile(path)) << cfg.Error();
    HostSettings s = cfg.Settings();
    EXPECT_EQ(250, s.heartbeatMs);
    EXPECT_EQ("x.log", s.logFile);
    EXPECT_TRUE(s.logStderr);
    std::remove(path.c_str());
}

TEST(Log, ConvertsGbkCapturesAndWritesTheFile) {
    std::string path = std::string(TIKRON_BINARY_DIR) + "/config_log_test.log";
    std::remove(path.c_str());
    CHostLog log(3);
    ASSERT_EQ(0, log.OpenFile(path));
    log.AddLog("CTIKRONServiceImpl::OnStart", 15006, "加入合约: %s!\n");  // GBK bytes at run time
    log.AddLog("F", 1, "\xff\x30 broken");  // invalid GBK: kept readable
    log.AddLog(nullptr, 2, nullptr);
    std::vector<LogLine> lines = log.Lines();
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ(u8"加入合约: %s!", lines[0].text);
    EXPECT_EQ("加入合约: %s!", lines[0].raw);
    EXPECT_EQ("CTIKRONServiceImpl::OnStart", lines[0].function);
    EXPECT_EQ(15006, lines[0].code);
    EXPECT_NE(std::string::npos, lines[1].text.find("broken"));
    EXPECT_EQ("", lines[2].text);
    EXPECT_EQ(1u, log.CountContaining(u8"合约"));
    EXPECT_EQ(1u, log.CountContaining("OnStart"));

    log.AddLog("G", 0, "fourth");  // capacity 3: the oldest goes
    EXPECT_EQ(3u, log.Count());
    EXPECT_EQ(0u, log.CountContaining(u8"合约"));

    std::ifstream f(path);
    std::stringstream all;
    all << f.rdbuf();
    EXPECT_NE(std::string::npos, all.str().find(u8"[CTIKRONServiceImpl::OnStart] 15006 加入合约: %s!\n"));
    std::remove(path.c_str());
}

}  // namespace
