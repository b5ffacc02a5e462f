// Quote publications (620003) from the message center: every accepted issue
// type lands in its tables; every refusal gives its code and log line and
// changes no table.
#include "frame/service_threads.h"
#include "quote/quote_text.h"
#include "tests/e2e_support.h"

namespace {

using namespace e2e;

class Intake : public Plugin {
protected:
    void SetUp() override { Start(); }
    size_t Counts() {
        return svc_->GetTIKRONInfo()->GetCount() * 1000000 + svc_->GetTIKRONInfo_EX()->GetCount() * 10000 +
               svc_->GetTIKRONARGInfo()->GetCount() * 100 + svc_->GetExchStatusInfo()->GetCount();
    }
    template <typename T, typename Table>
    bool Holds(Table* table, const T& rec) {
        return WaitUntil([&] {
            T probe = rec;
            return table->GetHQInfo(&probe) == 1 && Bytes(probe) == Bytes(rec);
        });
    }
};

TEST_F(Intake, BinaryAndTextIssueTypesFillTheirTables) {
    // 22 with a 12-character code: extended and single-leg tables; with 13
    // characters the extended table only.
    tagHQInfo_EX twelve = HqEx("ABCDEFGHIJ12", 10.5);
    Put(twelve);
    tagHQInfo single{};
    ConvertHq22To16(&twelve, single);
    EXPECT_TRUE(Holds(svc_->GetTIKRONInfo(), single));
    Put(HqEx("ABCDEFGHIJ123", 11.0));
    Put(Hq("rb2410", 3600.0));
    Put(Arg("SPD rb2410&rb2501", -5.0));
    Put(Exch("F4", "2", 1));
    EXPECT_EQ(2020101u, Counts());

    // Texts go through the converters; the 33100 one also into the
    // single-leg table.
    tagHQInfo_EX ex = HqEx("IF2409", 3850.2, 101500), ex2{};
    char t100[4096], t102[1024], t105[256];
    ASSERT_EQ(0, Convert33100To22(Convert22To33100(&ex, t100, sizeof t100), &ex2));
    tagArgHQInfo arg = Arg("SPD IF2409&IF2412", 3.5), arg2{};
    ASSERT_EQ(0, Convert18To33102(&arg, t102, sizeof t102));
    ASSERT_EQ(0, Convert33102To18(t102, &arg2));
    tagEXCHSTATUS st = Exch("F5", "3", 0), st2{};
    ASSERT_EQ(0, Convert24To33105(&st, t105, sizeof t105));
    ASSERT_EQ(0, Convert33105To24(t105, &st2));
    ASSERT_EQ(0, center_->Publish(33100, TextBody(Convert22To33100(&ex, t100, sizeof t100))));
    ASSERT_EQ(0, center_->Publish(33102, TextBody(t102)));
    ASSERT_EQ(0, center_->Publish(33105, TextBody(t105)));
    EXPECT_TRUE(Holds(svc_->GetTIKRONInfo_EX(), ex2));
    tagHQInfo single2{};
    ConvertHq22To16(&ex2, single2);
    EXPECT_TRUE(Holds(svc_->GetTIKRONInfo(), single2));
    EXPECT_TRUE(Holds(svc_->GetTIKRONARGInfo(), arg2));
    EXPECT_TRUE(Holds(svc_->GetExchStatusInfo(), st2));

    // A body present only in item 54 is read too.
    ASSERT_EQ(0, center_->Publish(16, RawBody(1, Bytes(Hq("cu2409", 70000.0))), /*inKeyItem*/ true));
    EXPECT_TRUE(Holds(svc_->GetTIKRONInfo(), Hq("cu2409", 70000.0)));
}

TEST_F(Intake, RefusalsReturnTheirCodeLogTheirLineAndChangeNothing) {
    Put(Exch("F1", "2", 1));
    const size_t before = Counts();
    CMessageServiceThread worker;
    worker.SetOwnerService(svc_);
    auto publication = [](int packetType, int issueType, const PackedBody* body) {
        MessageSpec s(620003, packetType);
        s.issueType = issueType;
        if (body != nullptr) s.body = hostemu::EncodePacked(*body);
        return s;
    };
    const tagHQInfo hq = Hq("al2409", 1.0);
    const PackedBody good16 = RawBody(1, Bytes(hq)), long16 = RawBody(1, Bytes(hq) + "x"),
                     type9 = RawBody(9, Bytes(hq)), arg1 = RawBody(1, Bytes(Arg("SPD x&y", 1.0))),
                     exchShort = RawBody(0, std::string(11, 'F'), "futu_exch_status_raw"),
                     exchInHqColumn = RawBody(0, Bytes(Exch("F3", "1", 1))), noRaw = hostemu::MakeBody(33, {"type"}, {{1}});
    MessageSpec junk = publication(0, 16, nullptr);
    junk.body = {'j', 'u', 'n', 'k'};
    const std::string size = "结构不附合要求, 大小: ";
    struct Case {
        MessageSpec message;
        int code;
        std::string line;  // empty: no line
    } cases[] = {
        {publication(1, 16, &good16), -1, "不能处理的包类型: 1!"},
        {publication(0, 17, &good16), -5, "未知的发布类型: 17!"},
        {publication(0, 33300, &good16), -5, "未知的发布类型: 33300!"},
        {publication(0, 16, nullptr), -2, "get TAG_MESSAGE_BODY fail!"},
        {junk, -3, "解包错误, 错误代码: -"},
        {publication(0, 16, &long16), -4, "字段futu_hq_raw" + size + "309, 类型: 16!"},
        {publication(0, 22, &noRaw), -4, "字段futu_hq_raw" + size + "0, 类型: 22!"},
        {publication(0, 16, &type9), -6, ""},
        {publication(0, 18, &arg1), -6, ""},
        {publication(0, 24, &exchShort), -4, "字段futu_exch_status_raw" + size + "11, 类型: 24!"},
        {publication(0, 24, &exchInHqColumn), -4, "字段futu_exch_status_raw" + size + "0, 类型: 24!"},
    };
    for (Case& c : cases) {
        SCOPED_TRACE(c.line + " " + std::to_string(c.code));
        const size_t logBefore = host_->Log().Lines().size();
        hostemu::CHostMessage* msg = hostemu::BuildMessage(host_->Factory(), c.message);
        EXPECT_EQ(c.code, svc_->DealTIKRONIssue(msg, nullptr, &worker));
        msg->Release();
        auto lines = host_->Log().Lines();
        std::string mine;
        for (size_t i = logBefore; i < lines.size(); ++i)
            if (lines[i].function == "CTIKRONServiceImpl::DealTIKRONIssue") mine += lines[i].raw + "\n";
        EXPECT_EQ(c.line.empty() ? "" : c.line + "\n", c.code == -3 ? mine.substr(0, c.line.size()) + "\n" : mine);
    }
    // Through the dispatcher as well: nothing stored. A marker publication
    // shows the refused ones were all processed.
    for (Case& c : cases) ASSERT_EQ(0, host_->PostFromCenter(c.message));
    Put(Exch("F9", "1", 1));
    EXPECT_EQ(before + 1, Counts());
    hostemu::CHostMessage* ok = hostemu::BuildMessage(host_->Factory(), publication(0, 16, &good16));
    EXPECT_EQ(0, svc_->DealTIKRONIssue(ok, nullptr, &worker));
    ok->Release();
}

}  // namespace
