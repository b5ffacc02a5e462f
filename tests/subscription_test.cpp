// Subscription to the message center: requests resent every second until
// answered, answer results, resend after the center went silent, and the
// daily reset of the tables, driven through the heartbeat's clock.
#include "frame/service_threads.h"
#include "tests/e2e_support.h"

namespace {

using namespace e2e;

const char* const kRequests =
    "<mc>"
    "<request issuetype=\"22\" functionno=\"620100\" branchno=\"8\" note=\"quotes\" ospfname=\"mc1\" svrname=\"mcsvr\""
    " pluginid=\"mcplug\"><param name=\"issue_type\" value=\"22\"/><param name=\"market\" value=\"F1\"/></request>"
    "<request issuetype=\"33101\" functionno=\"620100\" note=\"reports\"><param name=\"issue_type\" value=\"33101\"/></request>"
    "<request issuetype=\"24\" functionno=\"620101\" note=\"status\"><param name=\"issue_type\" value=\"24\"/></request>"
    "</mc>";

class Subscription : public Plugin {
protected:
    CHeartBeatThread* Hb() { return svc_->m_pHeartBeatThread; }
    // Waits until n more passes of the heartbeat loop have completed.
    void WaitPasses(unsigned long n) {
        const unsigned long target = Hb()->m_ulPasses.load() + n;
        ASSERT_TRUE(WaitUntil([&] { return Hb()->m_ulPasses.load() >= target; }, 1500 * static_cast<int>(n) + 500));
    }
    // Requests sent during the next `passes` whole passes, by packet id
    // 1..3 (counted from the end of a pass, so none is cut in two).
    std::vector<size_t> SentDuring(unsigned long passes) {
        WaitPasses(1);
        auto sent = [&] {
            std::vector<size_t> n(3);
            for (auto& m : host_->Center().Messages())
                if (m.PacketType() == 0 && m.PacketId() >= 1 && m.PacketId() <= 3 &&
                    (m.FunctionNo() == 620100 || m.FunctionNo() == 620101))
                    ++n[m.PacketId() - 1];
            return n;
        };
        std::vector<size_t> before = sent();
        WaitPasses(passes);
        std::vector<size_t> after = sent();
        return {after[0] - before[0], after[1] - before[1], after[2] - before[2]};
    }
};

TEST_F(Subscription, UnansweredRequestsGoOutOncePerPassWithTheirItems) {
    Start("subscibetomc=\"1\" heartbeattimeout=\"30\"", kRequests);
    EXPECT_EQ((std::vector<size_t>{2, 2, 2}), SentDuring(2));
    MessageSnapshot m;
    ASSERT_TRUE(host_->Center().WaitFor([](const MessageSnapshot& s) { return s.PacketId() == 1; }, 100, &m));
    EXPECT_EQ("620100/22 key[issue_type:S255 market:S255 = 22 F1] body[]", Show(m));
    EXPECT_EQ("mc1", m.Route(0));
    EXPECT_EQ(0, Hb()->m_iStatus.load());
}

TEST_F(Subscription, ResultsZeroAndOneAnswerTwoKeepsPendingAndSilenceResendsAll) {
    Start("subscibetomc=\"1\" heartbeattimeout=\"30\"", kRequests);
    center_->AnswerSubscriptions({620100, 620101}, 0);
    center_->SetResultFor(2, 1);
    center_->SetResultFor(3, 2);
    ASSERT_TRUE(WaitLog("订阅: reports 成功!"));
    ASSERT_TRUE(WaitLog("订阅: quotes 成功!"));
    EXPECT_EQ(1, Hb()->m_iStatus.load());
    WaitPasses(1);
    // Only the refused request is still sent, once per pass.
    EXPECT_EQ((std::vector<size_t>{0, 0, 2}), SentDuring(2));
    EXPECT_LE(2u, LogCount("subscibe_result: 2, 订阅失败!"));

    // The center goes silent for T + 1 seconds: every request goes out again
    // in one pass, and the answered ones are answered again.
    center_->StopAnswering();
    WaitPasses(1);
    Hb()->m_lClockOffset = 31;
    WaitPasses(1);
    EXPECT_EQ((std::vector<size_t>{1, 1, 1}), SentDuring(1));
    EXPECT_EQ(0, Hb()->m_iStatus.load());

    // Heartbeats keep the status: with traffic inside T nothing is resent.
    center_->SetResultFor(3, 0);
    center_->AnswerSubscriptions({620100, 620101}, 0);
    ASSERT_TRUE(WaitLog("订阅: status 成功!"));
    ASSERT_TRUE(WaitLog("订阅: quotes 成功!", 2));
    WaitPasses(1);
    Hb()->m_lClockOffset = 31 + 25;
    ASSERT_EQ(0, center_->Heartbeat());
    ASSERT_TRUE(WaitUntil([&] { return host_->Center().MessagesOf(620000, 1).size() == 1; }));
    Hb()->m_lClockOffset = 31 + 50;  // 25 s after the heartbeat: within T
    EXPECT_EQ((std::vector<size_t>{0, 0, 0}), SentDuring(2));
    EXPECT_EQ(1, Hb()->m_iStatus.load());
}

TEST_F(Subscription, UnknownPacketIdStillCountsAsAnswerAndSwitchOffSendsNothing) {
    Start("subscibetomc=\"0\"", kRequests);
    WaitPasses(2);
    EXPECT_EQ(0u, host_->Center().MessagesOf(620100).size() + host_->Center().MessagesOf(620101).size());
    MessageSpec answer(620001, 1);
    answer.packetId = 77;
    answer.key = hostemu::EncodePacked(hostemu::MakeBody(33, {"subscibe_result"}, {{1}}));
    ASSERT_EQ(0, host_->PostFromCenter(answer));
    ASSERT_TRUE(WaitUntil([&] { return Hb()->m_iStatus.load() == 1; }));
    EXPECT_NE(0, Hb()->m_iSubscibeTime.load());
    EXPECT_EQ(0u, LogCount("成功!"));
}

// Seconds to add to the wall clock so that it reads HH:MM:SS on the day
// `days` ahead (local time); *date is that day as YYYYMMDD.
long OffsetTo(int days, int hh, int mm, int ss, int* date = nullptr) {
    time_t now = time(nullptr);
    struct tm t;
    localtime_r(&now, &t);
    t.tm_mday += days;
    t.tm_hour = hh;
    t.tm_min = mm;
    t.tm_sec = ss;
    t.tm_isdst = -1;
    const time_t then = mktime(&t);
    if (date != nullptr) *date = (t.tm_year + 1900) * 10000 + (t.tm_mon + 1) * 100 + t.tm_mday;
    return static_cast<long>(then - now);
}

TEST_F(Subscription, DailyResetEmptiesTheTablesOncePerDayAfterTheInitTime) {
    Start("subscibetomc=\"0\" inittime=\"80000\"");
    const std::string resetLine = "初始化成功";
    Put(Exch("F1", "2", 1));
    Hb()->m_lClockOffset = OffsetTo(1, 7, 59, 0);
    WaitPasses(2);
    EXPECT_EQ(1u, svc_->GetExchStatusInfo()->GetCount());
    EXPECT_EQ(0u, LogCount(resetLine));

    int d = 0;
    Hb()->m_lClockOffset = OffsetTo(1, 8, 0, 30, &d);
    ASSERT_TRUE(WaitLog(resetLine));
    EXPECT_EQ(0u, svc_->GetExchStatusInfo()->GetCount());
    EXPECT_EQ(d, svc_->m_iInitDate.load());
    char line[128];
    snprintf(line, sizeof line, "原日期: %d, 初始化时间: %d, 初始化成功, 日期: %d!", d, 80000, d);
    EXPECT_EQ(1u, LogCount(line));

    // Later the same day: no second reset; the next day after the init time:
    // reset again.
    Put(Exch("F2", "2", 1));
    WaitPasses(2);
    EXPECT_EQ(1u, svc_->GetExchStatusInfo()->GetCount());
    Hb()->m_lClockOffset = OffsetTo(2, 8, 0, 30);
    ASSERT_TRUE(WaitLog(resetLine, 2));
    EXPECT_EQ(0u, svc_->GetExchStatusInfo()->GetCount());
}

}  // namespace
