// The asynchronous trade-report log: line format, daily file, order per
// writer, and the final flush on stop.
#include <gtest/gtest.h>
#include <unistd.h>

#include <ctime>
#include <fstream>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "runtime/futu_log.h"

namespace {

std::string TodayFile(const std::string& name) {
    time_t now = time(nullptr);
    struct tm t;
    localtime_r(&now, &t);
    char path[300];
    snprintf(path, sizeof(path), "./log/%04d-%02d-%02d-%s.log", t.tm_year + 1900, t.tm_mon + 1,
             t.tm_mday, name.c_str());
    return path;
}

std::vector<std::string> ReadLines(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

}  // namespace

// One process-wide instance: every check of the writer side runs in this test.
TEST(FutuLog, LinesReachTheDailyFileInOrderAfterStop) {
    const std::string name = "unit_" + std::to_string(getpid());
    const std::string path = TodayFile(name);
    unlink(path.c_str());

    FutuWriteLog(ME2CLIENT_DEAL, "before create", 0);  // no instance: dropped
    ASSERT_TRUE(FutuLog::Create(name, 30));
    EXPECT_FALSE(FutuLog::Create("other", 1));
    ASSERT_NE(nullptr, FutuLog::GetInstancePtr());
    ASSERT_TRUE(FutuLog::GetInstancePtr()->StartLogger());

    FutuWriteLog(NONE, "abc", 0);
    FutuWriteLog(MSGCENTER2ME_DEAL, "deal\x01text", 4);  // only the first 4 bytes
    const int kThreads = 4, kLines = 200;
    std::vector<std::thread> writers;
    for (int w = 0; w < kThreads; ++w) {
        writers.emplace_back([w] {
            for (int i = 0; i < kLines; ++i) {
                std::string text = "w" + std::to_string(w) + "-" + std::to_string(i);
                FutuWriteLog(ERROR_3, text.c_str(), 0);
            }
        });
    }
    for (auto& t : writers) t.join();

    // Interval 30 s: nothing is written before the stop's final batch.
    ASSERT_TRUE(FutuLog::GetInstancePtr()->StopLogger());
    FutuWriteLog(NONE, "after stop", 0);  // refused once stopped

    std::vector<std::string> lines = ReadLines(path);
    ASSERT_EQ(2u + kThreads * kLines, lines.size()) << path;
    const std::string stamp = R"(\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\.\d{3})";
    EXPECT_TRUE(std::regex_match(lines[0], std::regex(stamp + R"(\[3\]abc)"))) << lines[0];
    EXPECT_TRUE(std::regex_match(lines[1], std::regex(stamp + R"(\[19\]1_msgcenter2me_deal\[4\]deal)")))
        << lines[1];
    std::vector<int> next(kThreads, 0);
    std::regex re(stamp + R"(\[17\]6_ERROR_3_entrust\[\d+\]w(\d)-(\d+))");
    for (size_t i = 2; i < lines.size(); ++i) {
        std::smatch m;
        ASSERT_TRUE(std::regex_match(lines[i], m, re)) << lines[i];
        int w = std::stoi(m[1]);
        EXPECT_EQ(next[w], std::stoi(m[2])) << "writer " << w << " out of order";
        next[w] = std::stoi(m[2]) + 1;
    }
    for (int w = 0; w < kThreads; ++w) EXPECT_EQ(kLines, next[w]);
    EXPECT_TRUE(FutuLog::Destroy());
    EXPECT_EQ(nullptr, FutuLog::GetInstancePtr());
    unlink(path.c_str());
}

TEST(Time2Str, FixedTimeAndNowWithMilliseconds) {
    time2str utc(86400 + 3661, time2str::UTC);
    EXPECT_STREQ("1970-01-02 01:01:01", utc.c_str());
    time2str now(0, time2str::LOCAL);
    EXPECT_TRUE(std::regex_match(std::string(now), std::regex(R"(\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\.\d{3})")))
        << now.c_str();
}
