// The asynchronous trade-report log: line format, daily file, order per
// writer, and the final flush on stop.
#include "runtime/futu_log.h"

#include <gtest/gtest.h>

#include <ctime>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "testing/temp_dir.h"

namespace {

const std::string kStamp = R"(\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\.\d{3})";

// One process-wide instance: every check of the writer side runs in this test.
TEST(FutuLog, LinesReachTheDailyFileInOrderAfterStop) {
    testing_support::TempWorkDir cwd;
    ASSERT_TRUE(cwd.Enter());
    FutuWriteLog(ME2CLIENT_DEAL, "before create", 0);  // no instance: dropped
    ASSERT_TRUE(FutuLog::Create("unit", 30));
    EXPECT_FALSE(FutuLog::Create("other", 1));
    ASSERT_NE(nullptr, FutuLog::GetInstancePtr());
    ASSERT_TRUE(FutuLog::GetInstancePtr()->StartLogger());
    ASSERT_TRUE(FutuLog::GetInstancePtr()->StartLogger());  // already running

    FutuWriteLog(NONE, "abc", 0);
    for (int dir = MSGCENTER2ME_DEAL; dir <= ERROR_2; ++dir)
        FutuWriteLog(static_cast<LOG_DIRECTION>(dir), "deal\x01text", 4);  // only the first 4 bytes
    const int kThreads = 4, kLines = 200;
    std::vector<std::thread> writers;
    for (int w = 0; w < kThreads; ++w) {
        writers.emplace_back([w] {
            for (int i = 0; i < kLines; ++i)
                FutuWriteLog(ERROR_3, ("w" + std::to_string(w) + "-" + std::to_string(i)).c_str(), 0);
        });
    }
    for (auto& t : writers) t.join();
    // Interval 30 s: nothing is written before the stop's final batch.
    ASSERT_TRUE(FutuLog::GetInstancePtr()->StopLogger());
    FutuWriteLog(NONE, "after stop", 0);  // refused once stopped
    EXPECT_TRUE(FutuLog::Destroy());
    EXPECT_EQ(nullptr, FutuLog::GetInstancePtr());

    const time_t now = time(nullptr);
    struct tm t;
    localtime_r(&now, &t);
    char path[64];
    strftime(path, sizeof path, "log/%Y-%m-%d-unit.log", &t);
    std::istringstream in(testing_support::ReadFile(path));
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    ASSERT_EQ(6u + kThreads * kLines, lines.size()) << path;
    EXPECT_TRUE(std::regex_match(lines[0], std::regex(kStamp + R"(\[3\]abc)"))) << lines[0];
    const char* const names[] = {"[19]1_msgcenter2me_deal", "[22]2_msgcenter2me_entrust", "[16]3_me2client_deal",
                                 "[19]4_me2client_entrust", "[14]5_ERROR_2_deal"};
    for (int k = 0; k < 5; ++k) EXPECT_EQ(lines[k + 1].substr(23), std::string(names[k]) + "[4]deal");
    std::vector<int> next(kThreads, 0);
    const std::regex re(kStamp + R"(\[17\]6_ERROR_3_entrust\[\d+\]w(\d)-(\d+))");
    for (size_t i = 6; i < lines.size(); ++i) {
        std::smatch m;
        ASSERT_TRUE(std::regex_match(lines[i], m, re)) << lines[i];
        const int w = std::stoi(m[1]);
        EXPECT_EQ(next[w], std::stoi(m[2])) << "writer " << w << " out of order";
        next[w] = std::stoi(m[2]) + 1;
    }
    for (int w = 0; w < kThreads; ++w) EXPECT_EQ(kLines, next[w]);
}

TEST(Time2Str, FixedTimeAndNowWithMilliseconds) {
    EXPECT_STREQ("1970-01-02 01:01:01", time2str(86400 + 3661, time2str::UTC).c_str());
    time2str now(0, time2str::LOCAL);
    EXPECT_TRUE(std::regex_match(std::string(now), std::regex(kStamp))) << now.c_str();
}

}  // namespace
