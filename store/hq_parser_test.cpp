#include "store/hq_tables.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "testing/store_test_support.h"

namespace {

class ParserTest : public ::testing::Test {
protected:
    ScratchDir dir;
    RecordingLog log;
};

TEST_F(ParserTest, SingleLegRecordsFillBothLayouts) {
    CTIKRONInfo legacy(dir.File("tikron_p.db").c_str());
    CTIKRONInfo_EX ext(dir.File("tikron_ex_p.db").c_str());
    std::string text = SingleLegText("IF2412", "F4") + ",93015,";

    tagHQInfo a;
    std::memset(&a, 0, sizeof a);
    ASSERT_EQ(legacy.GetHQFromData(text.c_str(), static_cast<int>(text.size()), &a), 0);
    EXPECT_STREQ(a.contract_code, "IF2412");
    EXPECT_EQ(double(a.pre_square_price), 3850.2);
    EXPECT_EQ(double(a.futu_last_price), 3861.4);
    EXPECT_EQ(a.buy_high_amount, 12);
    EXPECT_EQ(a.sale_total_amount, 290);
    EXPECT_EQ(double(a.change_direction), 11.2);
    EXPECT_EQ(a.bear_amount, 160234);
    EXPECT_EQ(double(a.business_balance), 92973211400.0);
    EXPECT_EQ(double(a.downlimited_price), 3465.2);
    EXPECT_EQ(double(a.form_buy_price), 0.0);
    EXPECT_EQ(double(a.pre_close_price), 3849.8);
    EXPECT_EQ(double(a.pre_open_interest), 158000.0);
    EXPECT_EQ(double(a.bid_price2), 3861.0);
    EXPECT_EQ(a.bid_volume5, 11);
    EXPECT_EQ(double(a.ask_price5), 3862.4);
    EXPECT_EQ(a.ask_volume5, 10);
    EXPECT_STREQ(a.futu_exch_type, "F4");
    EXPECT_EQ(legacy.GetCount(), 1u);
    EXPECT_EQ(legacy.GetRecvFromUDPNum(), 1u);

    tagHQInfo_EX b;
    std::memset(&b, 0, sizeof b);
    ASSERT_EQ(ext.GetHQFromData(text.c_str(), static_cast<int>(text.size()), &b), 0);
    EXPECT_STREQ(b.contract_code, "IF2412");
    EXPECT_EQ(b.ask_volume5, 10);
    EXPECT_EQ(b.time_stamp, 93015);
    // Same numbers in both layouts.
    EXPECT_EQ(std::memcmp(reinterpret_cast<char*>(&a) + 16, reinterpret_cast<char*>(&b) + 32, 308 - 16), 0);

    // '&' after the exchange code: no time stamp.
    std::string amp = SingleLegText("au2506", "F3") + ",&";
    std::memset(&b, 0, sizeof b);
    ASSERT_EQ(ext.GetHQFromData(amp.c_str(), static_cast<int>(amp.size()), &b), 0);
    EXPECT_EQ(b.time_stamp, 0);
    EXPECT_STREQ(b.futu_exch_type, "F3");
}

TEST_F(ParserTest, ContractCodeWidthsAndFieldLimits) {
    CTIKRONInfo legacy(dir.File("tikron_w.db").c_str());
    CTIKRONInfo_EX ext(dir.File("tikron_ex_w.db").c_str());
    // 13 characters: too long for the legacy record, fine for the extended one.
    std::string text = SingleLegText("IF2412-C-4000", "F4") + ",&";
    tagHQInfo a;
    std::memset(&a, 0, sizeof a);
    EXPECT_EQ(legacy.GetHQFromData(text.c_str(), static_cast<int>(text.size()), &a), -2);
    EXPECT_EQ(legacy.GetCount(), 0u);
    tagHQInfo_EX b;
    std::memset(&b, 0, sizeof b);
    ASSERT_EQ(ext.GetHQFromData(text.c_str(), static_cast<int>(text.size()), &b), 0);
    EXPECT_STREQ(b.contract_code, "IF2412-C-4000");
    // The legacy record fits exactly 12.
    std::string twelve = SingleLegText("IF2412-C-400", "F4");
    std::memset(&a, 0, sizeof a);
    EXPECT_EQ(legacy.GetHQFromData(twelve.c_str(), static_cast<int>(twelve.size()), &a), 0);

    // A 33-character price and a 17-character volume are refused; fields read
    // before the error stay, and nothing is stored.
    std::string longPrice = SingleLegText("rb2501", "F3");
    longPrice.replace(longPrice.find("3850.2"), 6, std::string(33, '1'));
    std::memset(&a, 0, sizeof a);
    EXPECT_EQ(legacy.GetHQFromData(longPrice.c_str(), static_cast<int>(longPrice.size()), &a), -3);
    EXPECT_STREQ(a.contract_code, "rb2501");
    std::string longVol = SingleLegText("rb2501", "F3");
    longVol.replace(longVol.find(",12,"), 4, "," + std::string(17, '7') + ",");
    EXPECT_EQ(legacy.GetHQFromData(longVol.c_str(), static_cast<int>(longVol.size()), &a), -3);
    EXPECT_EQ(legacy.GetCount(), 1u);

    // The extended parser needs a delimiter after the time stamp.
    std::string noDelim = SingleLegText("sc2503", "F5") + ",93015";
    EXPECT_EQ(ext.GetHQFromData(noDelim.c_str(), static_cast<int>(noDelim.size()), &b), -2);
    // Truncated record: a numeric field without its delimiter.
    std::string cut = "m2505,3000.0,3001.0";
    EXPECT_EQ(legacy.GetHQFromData(cut.c_str(), static_cast<int>(cut.size()), &a), -2);
    EXPECT_EQ(legacy.GetHQFromData(nullptr, 5, &a), -1);
    EXPECT_EQ(legacy.GetHQFromData(cut.c_str(), 0, &a), -1);
}

TEST_F(ParserTest, ArbitrageKeepsTheClosingExchangeCode) {
    CTIKRONARGInfo arg(dir.File("tikronarg_p.db").c_str());
    std::string text = "SP SR501&SR505,F2,SR501,SR505,SP,-35,12,120,-33,9,90,-30,-40,200,-200,F1";
    tagArgHQInfo g;
    std::memset(&g, 0, sizeof g);
    ASSERT_EQ(arg.GetHQFromData(text.c_str(), static_cast<int>(text.size()), &g), 0);
    EXPECT_STREQ(g.contract_code, "SP SR501&SR505");
    EXPECT_STREQ(g.futu_exch_type, "F1");
    EXPECT_STREQ(g.first_code, "SR501");
    EXPECT_STREQ(g.second_code, "SR505");
    EXPECT_EQ(g.arbi_type, 'S');
    EXPECT_EQ(double(g.buy_price), -35.0);
    EXPECT_EQ(g.buy_total_amount, 120);
    EXPECT_EQ(g.sale_amount, 9);
    EXPECT_EQ(double(g.downlimited_price), -200.0);
    tagArgHQInfo q;
    std::memset(&q, 0, sizeof q);
    std::strcpy(q.contract_code, "SP SR501&SR505");
    ASSERT_EQ(arg.GetHQInfo(&q), 1);
    EXPECT_STREQ(q.futu_exch_type, "F1");
}

TEST_F(ParserTest, ExchangeStatusAndDatagramFraming) {
    CExchStatusInfo exch(dir.File("futuexchstatus_p.db").c_str());
    exch.SetLogService(&log);
    tagEXCHSTATUS e;
    std::memset(&e, 0, sizeof e);
    std::string text = "F3,2,1,";
    ASSERT_EQ(exch.GetHQFromData(text.c_str(), static_cast<int>(text.size()), &e), 0);
    EXPECT_STREQ(e.futu_exch_type, "F3");
    EXPECT_STREQ(e.futu_status, "2");
    EXPECT_EQ(e.can_trade, 1);
    std::string threeChar = "F33,2,1,";
    EXPECT_EQ(exch.GetHQFromData(threeChar.c_str(), 8, &e), -2);

    // Whole datagrams through AddHQData: type char, 5-digit length, text at 6.
    std::string good = "A" + std::string("00007") + "F5,3,0,";
    std::memset(&e, 0, sizeof e);
    ASSERT_EQ(exch.AddHQData(good.c_str(), static_cast<int>(good.size() + 1), &e, 'A', 0), 0);
    EXPECT_STREQ(e.futu_exch_type, "F5");
    EXPECT_EQ(exch.GetCount(), 2u);

    std::string other = "B00007F5,3,0,";
    EXPECT_EQ(exch.AddHQData(other.c_str(), static_cast<int>(other.size() + 1), &e, 'A', 0), 0);
    EXPECT_EQ(log.Count("不是行情处理的信息, 类型: B!\n"), 1u);

    std::string shortText = "A00099F5,3,0,";
    EXPECT_EQ(exch.AddHQData(shortText.c_str(), static_cast<int>(shortText.size() + 1), &e, 'A', 0), -2);

    std::string broken = "A00006F5,3,0";
    EXPECT_EQ(exch.AddHQData(broken.c_str(), static_cast<int>(broken.size() + 1), &e, 'A', 0), -3);
    EXPECT_EQ(log.Count("get hq from data fail, error code: -2!\n"), 1u);

    // Not NUL-terminated within the given length: parsed from a bounded copy.
    char raw[13];
    std::memcpy(raw, "A00007F4,1,1,", 13);
    EXPECT_EQ(exch.AddHQData(raw, 13, &e, 'A', 0), 0);
    EXPECT_EQ(exch.GetCount(), 3u);
    EXPECT_EQ(exch.AddHQData(raw, 3, &e, 'A', 0), -2);
    EXPECT_EQ(exch.AddHQData(nullptr, 30, &e, 'A', 0), -2);
    EXPECT_EQ(log.Count("get hq from data fail, error code: -2!\n"), 1u);  // framing refusals are the handlers' to log

    // Single-leg datagram: the parser gets the declared length minus 17.
    CTIKRONInfo legacy(dir.File("tikron_d.db").c_str());
    std::string body = SingleLegText("SR501", "F1") + ",0000000000000000";
    char head[8];
    std::snprintf(head, sizeof head, "0%05d", static_cast<int>(body.size()));
    std::string dg = head + body;
    tagHQInfo a;
    std::memset(&a, 0, sizeof a);
    ASSERT_EQ(legacy.AddHQData(dg.c_str(), static_cast<int>(dg.size() + 1), &a, '0', 0), 0);
    EXPECT_STREQ(a.contract_code, "SR501");
    EXPECT_STREQ(a.futu_exch_type, "F1");
}

}  // namespace
