// Quote publications (620003) from the message center: every accepted issue
// type lands in its tables; every refusal gives its code and log line and
// changes no table.
#include "frame/service_threads.h"
#include "quote/quote_text.h"
#include "tests/quote_msg_support.h"

namespace {

using namespace msgtest;

class Intake : public PluginFixture {
protected:
    void SetUp() override { StartPlugin(); }

    size_t Counts() {
        return svc_->GetTIKRONInfo()->GetCount() * 1000000 + svc_->GetTIKRONInfo_EX()->GetCount() * 10000 +
               svc_->GetTIKRONARGInfo()->GetCount() * 100 + svc_->GetExchStatusInfo()->GetCount();
    }
};

TEST_F(Intake, BinaryAndTextIssueTypesFillTheirTables) {
    // 22 with a 12-character code: extended and single-leg tables.
    tagHQInfo_EX twelve = HqEx("ABCDEFGHIJ12", 10.5);
    PutEx(twelve);
    tagHQInfo single;
    memset(&single, 0, sizeof single);
    ConvertHq22To16(&twelve, single);
    ASSERT_TRUE(WaitUntil([&] {
        tagHQInfo probe = single;
        return svc_->GetTIKRONInfo()->GetHQInfo(&probe) == 1 && memcmp(&probe, &single, sizeof single) == 0;
    }));
    // 22 with a 20-character code: the extended table only.
    PutEx(HqEx("ABCDEFGHIJKLMNOPQRST", 11.0));
    PutHq(Hq("rb2410", 3600.0));
    PutArg(Arg("SPD rb2410&rb2501", -5.0));
    PutExch(Exch("F4", "2", 1));
    EXPECT_EQ(2u, svc_->GetTIKRONInfo()->GetCount());
    EXPECT_EQ(2u, svc_->GetTIKRONInfo_EX()->GetCount());

    // Text publications go through the converters.
    tagHQInfo_EX text = HqEx("IF2409", 3850.2, 101500);
    char buf[4096];
    const char* t100 = Convert22To33100(&text, buf, sizeof buf);
    tagHQInfo_EX expected;
    memset(&expected, 0, sizeof expected);
    ASSERT_EQ(0, Convert33100To22(t100, &expected));
    PublishAndWait(&CTIKRONServiceImpl::GetTIKRONInfo_EX, 33100, TextBody(t100), expected);
    tagHQInfo expected16;
    memset(&expected16, 0, sizeof expected16);
    ConvertHq22To16(&expected, expected16);
    ASSERT_TRUE(WaitUntil([&] {
        tagHQInfo probe = expected16;
        return svc_->GetTIKRONInfo()->GetHQInfo(&probe) == 1 && memcmp(&probe, &expected16, sizeof probe) == 0;
    }));

    tagArgHQInfo arg = Arg("SPD IF2409&IF2412", 3.5);
    char t102[1024];
    ASSERT_EQ(0, Convert18To33102(&arg, t102, sizeof t102));
    tagArgHQInfo arg2;
    memset(&arg2, 0, sizeof arg2);
    ASSERT_EQ(0, Convert33102To18(t102, &arg2));
    PublishAndWait(&CTIKRONServiceImpl::GetTIKRONARGInfo, 33102, TextBody(t102), arg2);

    tagEXCHSTATUS ex = Exch("F5", "3", 0);
    char t105[256];
    ASSERT_EQ(0, Convert24To33105(&ex, t105, sizeof t105));
    tagEXCHSTATUS ex2;
    memset(&ex2, 0, sizeof ex2);
    ASSERT_EQ(0, Convert33105To24(t105, &ex2));
    PublishAndWait(&CTIKRONServiceImpl::GetExchStatusInfo, 33105, TextBody(t105), ex2);

    // A body present only in item 54 is read too.
    tagHQInfo keyOnly = Hq("cu2409", 70000.0);
    ASSERT_EQ(0, center_->Publish(16, RawBody(1, Bytes(keyOnly)), /*inKeyItem*/ true));
    ASSERT_TRUE(WaitUntil([&] {
        tagHQInfo probe = keyOnly;
        return svc_->GetTIKRONInfo()->GetHQInfo(&probe) == 1;
    }));
}

TEST_F(Intake, RefusalsReturnTheirCodeLogTheirLineAndChangeNothing) {
    PutExch(Exch("F1", "2", 1));
    const size_t before = Counts();
    CMessageServiceThread worker;
    worker.SetOwnerService(svc_);

    struct Case {
        const char* name;
        hostemu::MessageSpec msgDef;
        int code;
        const char* line;  // null: no line
    };
    auto msgDef = [](int packetType, int issueType, const PackedBody* body, bool inKey = false) {
        hostemu::MessageSpec s(620003, packetType);
        s.issueType = issueType;
        if (body != nullptr) (inKey ? s.key : s.body) = hostemu::EncodePacked(*body);
        return s;
    };
    tagHQInfo hq = Hq("al2409", 1.0);
    std::string raw309 = Bytes(hq) + "x";
    PackedBody good16 = RawBody(1, Bytes(hq));
    PackedBody long16 = RawBody(1, raw309);
    PackedBody type9 = RawBody(9, Bytes(hq));
    PackedBody arg1 = RawBody(1, Bytes(Arg("SPD x&y", 1.0)));
    PackedBody exchShort = RawBody(0, std::string(11, 'F'), "futu_exch_status_raw");
    PackedBody exchInHqColumn = RawBody(0, Bytes(Exch("F3", "1", 1)));
    PackedBody noRaw = hostemu::MakeBody(33, {"type"}, {{1}});
    hostemu::MessageSpec junk = msgDef(0, 16, nullptr);
    junk.body = {'j', 'u', 'n', 'k'};
    Case cases[] = {
        {"answer packet", msgDef(1, 16, &good16), -1, "不能处理的包类型: 1!\n"},
        {"unknown type", msgDef(0, 17, &good16), -5, "未知的发布类型: 17!\n"},
        {"33300", msgDef(0, 33300, &good16), -5, "未知的发布类型: 33300!\n"},
        {"no body", msgDef(0, 16, nullptr), -2, "get TAG_MESSAGE_BODY fail!"},
        {"unpackable", junk, -3, nullptr},
        {"309 bytes", msgDef(0, 16, &long16), -4, "字段futu_hq_raw结构不附合要求, 大小: 309, 类型: 16!\n"},
        {"no raw field", msgDef(0, 22, &noRaw), -4, "字段futu_hq_raw结构不附合要求, 大小: 0, 类型: 22!\n"},
        {"16 with type 9", msgDef(0, 16, &type9), -6, nullptr},
        {"18 with type 1", msgDef(0, 18, &arg1), -6, nullptr},
        {"24 of 11 bytes", msgDef(0, 24, &exchShort), -4,
         "字段futu_exch_status_raw结构不附合要求, 大小: 11, 类型: 24!\n"},
        {"24 in the wrong column", msgDef(0, 24, &exchInHqColumn), -4,
         "字段futu_exch_status_raw结构不附合要求, 大小: 0, 类型: 24!\n"},
    };
    for (Case& c : cases) {
        SCOPED_TRACE(c.name);
        const size_t logBefore = host_->Log().Lines().size();
        hostemu::CHostMessage* msg = hostemu::BuildMessage(host_->Factory(), c.msgDef);
        EXPECT_EQ(c.code, svc_->DealTIKRONIssue(msg, nullptr, &worker));
        msg->Release();
        auto lines = host_->Log().Lines();
        std::vector<std::string> mine;
        for (size_t i = logBefore; i < lines.size(); ++i)
            if (lines[i].function == "CTIKRONServiceImpl::DealTIKRONIssue") mine.push_back(lines[i].raw);
        if (c.line == nullptr) {
            if (c.code == -3) {
                ASSERT_EQ(1u, mine.size());
                EXPECT_EQ(0u, mine[0].find("解包错误, 错误代码: "));
            } else {
                EXPECT_TRUE(mine.empty());
            }
        } else {
            std::string expected(c.line);
            while (!expected.empty() && expected.back() == '\n') expected.pop_back();
            ASSERT_EQ(1u, mine.size());
            EXPECT_EQ(expected, mine[0]);
        }
    }
    // Through the dispatcher as well (after the direct calls, whose log lines
    // the workers would otherwise interleave with): nothing stored.
    for (Case& c : cases) ASSERT_EQ(0, host_->PostFromCenter(c.msgDef));
    // A marker publication shows the refused ones were all processed.
    PutExch(Exch("F9", "1", 1));
    EXPECT_EQ(before + 1, Counts());
}

}  // namespace
