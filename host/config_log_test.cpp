// Configuration tree and log service.
#include "host/host_config.h"
#include "host/host_log.h"

#include <gtest/gtest.h>

#include "testing/temp_dir.h"

using namespace hostemu;

TEST(Config, NavigatesElementsAndRefusesBadInput) {
    CHostConfig cfg;
    ASSERT_EQ(0, cfg.LoadString(R"(<t><pub><!-- identity --><node AppName="A"/></pub><plugin>
        <convert><convert22to16>1</convert22to16><convert33100to16/></convert><mc><request/><request n="2"/></mc>
        </plugin></t>)")) << cfg.Error();
    IRCfgObj* node = cfg.GetConfig("pub")->GetFirstChild();
    ASSERT_NE(nullptr, node) << "comments are skipped";
    EXPECT_STREQ("node", node->GetName());
    EXPECT_STREQ("A", node->GetAttrValue("AppName"));
    EXPECT_EQ(nullptr, node->GetAttrValue("Missing"));
    EXPECT_EQ(nullptr, node->GetNextSibling());
    IRCfgObj* conv = cfg.GetConfig("plugin")->GetChild("convert");
    EXPECT_EQ(cfg.GetConfig("plugin")->GetChild("convert"), conv) << "one object per element";
    EXPECT_STREQ("1", conv->GetChild("convert22to16")->GetText());
    EXPECT_STREQ("", conv->GetChild("convert33100to16")->GetText());
    EXPECT_EQ(nullptr, conv->GetChild("absent"));
    EXPECT_STREQ("2", cfg.GetConfig("plugin")->GetChild("mc")->GetFirstChild()->GetNextSibling()->GetAttrValue("n"));
    EXPECT_EQ(0, cfg.Settings().heartbeatMs);
    testing_support::TempDir dir;
    testing_support::WriteFile(dir / "h.xml", "<r><host heartbeat_ms='250' log_file='x.log' log_stderr='1'/></r>");
    ASSERT_EQ(0, cfg.LoadFile(dir / "h.xml")) << cfg.Error();
    EXPECT_EQ(250, cfg.Settings().heartbeatMs);
    EXPECT_EQ("x.log", cfg.Settings().logFile);
    EXPECT_TRUE(cfg.Settings().logStderr);
    for (const char* bad : {"<a><b></a>", ""}) {
        CHostConfig fresh;
        EXPECT_NE(0, fresh.LoadString(bad));
        EXPECT_FALSE(fresh.Error().empty());
        EXPECT_EQ(nullptr, fresh.GetConfig("a"));
    }
    EXPECT_NE(0, cfg.LoadFile("/nonexistent/tikron.xml"));
    EXPECT_NE(std::string::npos, cfg.Error().find("/nonexistent/tikron.xml"));
}

TEST(Log, ConvertsGbkCapturesAndWritesTheFile) {
    testing_support::TempDir dir;
    CHostLog log(3);
    ASSERT_EQ(0, log.OpenFile(dir / "log"));
    log.AddLog("CTIKRONServiceImpl::OnStart", 15006, "加入合约: %s!\n");  // GBK bytes at run time
    log.AddLog("F", 1, "\xff\x30 broken");                            // invalid GBK: kept readable
    log.AddLog(nullptr, 2, nullptr);
    const std::vector<LogLine> lines = log.Lines();
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ(u8"加入合约: %s!", lines[0].text);
    EXPECT_EQ("加入合约: %s!", lines[0].raw);
    EXPECT_EQ("CTIKRONServiceImpl::OnStart", lines[0].function);
    EXPECT_EQ(15006, lines[0].code);
    EXPECT_NE(std::string::npos, lines[1].text.find("broken"));
    EXPECT_EQ("", lines[2].text);
    EXPECT_EQ(1u, log.CountContaining(u8"合约"));
    log.AddLog("G", 0, "fourth");  // capacity 3: the oldest goes
    EXPECT_EQ(3u, log.Count());
    EXPECT_EQ(0u, log.CountContaining(u8"合约"));
    EXPECT_NE(std::string::npos,
              testing_support::ReadFile(dir / "log").find(u8"[CTIKRONServiceImpl::OnStart] 15006 加入合约: %s!\n"));
}
