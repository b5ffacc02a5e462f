// Configuration tree and log service.
#include "host/host_config.h"
#include "host/host_log.h"

#include <tuple>

#include <gtest/gtest.h>

#include "testing/temp_dir.h"

using namespace hostemu;

// (Elements, attributes and texts are read by the plug-in's configuration tests.)
TEST(Config, SkipsCommentsReadsHostSettingsAndRefusesBadInput) {
    testing_support::TempDir dir;
    testing_support::WriteFile(dir / "h.xml", "<r><pub><!-- identity --><n a='1'/></pub><plugin><c/></plugin>"
                                              "<host heartbeat_ms='250' log_file='x.log' log_stderr='1'/></r>");
    CHostConfig cfg;
    EXPECT_EQ(0, cfg.Settings().heartbeatMs);
    ASSERT_EQ(0, cfg.LoadFile(dir / "h.xml")) << cfg.Error();
    EXPECT_STREQ("n", cfg.GetConfig("pub")->GetFirstChild()->GetName()) << "comments are skipped";
    EXPECT_EQ(cfg.GetConfig("plugin")->GetChild("c"), cfg.GetConfig("plugin")->GetFirstChild()) << "one object per element";
    EXPECT_EQ(std::make_tuple(250, std::string("x.log"), true),
              std::make_tuple(cfg.Settings().heartbeatMs, cfg.Settings().logFile, cfg.Settings().logStderr));
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
