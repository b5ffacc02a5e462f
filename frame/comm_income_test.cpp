// Fund notices 620301-620303 republished as 33200-33202.
#include <gtest/gtest.h>

#include "testing/frame_test_support.h"

using frametest::Config;
using frametest::Options;

namespace {

struct CommIncome : testing::Test {
    hostemu::HostEmulator host{Options(Config(""))};
    void SetUp() override {
        testing::internal::CaptureStdout();
        ASSERT_EQ(0, host.Start()) << host.Error();
        testing::internal::GetCapturedStdout();
    }
    void TearDown() override { host.Shutdown(); }
    static bool IsIssue(const hostemu::MessageSnapshot& m) { return m.FunctionNo() == 620003; }
};

}  // namespace

TEST_F(CommIncome, EachNoticeBecomesAPublicationWithFundAccount) {
    const int functions[] = {620301, 620302, 620303};
    const int issues[] = {33200, 33201, 33202};
    for (int version : {33, 1}) {
        for (int k = 0; k < 3; ++k) {
            host.Center().Clear();
            hostemu::MessageSpec m;
            m.functionNo = functions[k];
            m.body = hostemu::EncodePacked(
                hostemu::MakeBody(version, {"fund_account", "other"}, {{"880012", "x"}}));
            ASSERT_EQ(0, host.PostFromClient(m));
            hostemu::MessageSnapshot out;
            ASSERT_TRUE(host.Center().WaitFor(IsIssue, 3000, &out)) << functions[k];
            EXPECT_EQ(0, out.PacketType());
            EXPECT_EQ(issues[k], out.IssueType());
            EXPECT_EQ(m.body, out.Body());
            hostemu::PackedBody key;
            std::vector<char> raw = out.Key();
            ASSERT_EQ(0, hostemu::DecodePacked(raw.data(), static_cast<int>(raw.size()), &key));
            EXPECT_EQ(33, key.version);
            ASSERT_EQ(1u, key.columns.size());
            EXPECT_EQ("fund_account", key.columns[0].name);
            EXPECT_EQ('S', key.columns[0].type);
            EXPECT_EQ(255, key.columns[0].width);
            ASSERT_EQ(1u, key.rows.size());
            EXPECT_EQ('I', key.rows[0][0].kind);
            EXPECT_EQ(880012, key.rows[0][0].i);
        }
    }
}

TEST_F(CommIncome, MissingOrBrokenBodyIsLoggedAndNothingIsSent) {
    hostemu::MessageSpec none;
    none.functionNo = 620301;
    ASSERT_EQ(0, host.PostFromClient(none));
    EXPECT_TRUE(host.Log().WaitFor("get TAG_MESSAGE_BODY fail!", 3000));

    hostemu::MessageSpec broken;
    broken.functionNo = 620302;
    broken.body = {'n', 'o', 't', ' ', 'p', 'a', 'c', 'k', 'e', 'd'};
    ASSERT_EQ(0, host.PostFromClient(broken));
    EXPECT_TRUE(host.Log().WaitFor("解包错误, 错误代码:", 3000));
    EXPECT_TRUE(host.Center().MessagesOf(620003).empty());
    for (int i = 0; i < 100 && host.Factory().Stats().live > 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(0u, host.Factory().Stats().live);
}
