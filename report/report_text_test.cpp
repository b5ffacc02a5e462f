#include "report/report_text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "report/report_codes.h"

namespace {

template <typename T>
T V(T v) {  // copy of a possibly misaligned packed field
    return v;
}

// Expected texts are written with '|' for the 0x01 separator.
std::string T(std::string s) {
    for (char& c : s)
        if (c == '|') c = '\x01';
    return s;
}

tagHB DealHB() {
    tagHB h;
    std::memset(&h, 0, sizeof h);
    h.entrust_no = 1001;
    std::strcpy(h.futures_account, "88001234");
    std::strcpy(h.futu_exch_type, "郑州交易所");
    std::strcpy(h.business_no, "B00012");
    std::strcpy(h.contract_code, "CF405");
    std::strcpy(h.entrust_name, "买入");
    std::strcpy(h.direction_name, "开仓");
    h.business_price = 15030.5;
    h.business_amount = 2;
    std::strcpy(h.hedge_name, "投机");
    std::strcpy(h.fund_account, "00123");
    std::strcpy(h.futu_report_no, "R7788");
    std::strcpy(h.firm_no, "0101");
    std::strcpy(h.operator_no, "op1");
    h.client_group = 3;
    h.entrust_amount = 5;
    h.business_total_amount = 2;
    h.entrust_price = 15031;
    std::strcpy(h.business_type, "B");
    std::strcpy(h.entrust_status, "7");
    h.branch_no = 8;
    std::strcpy(h.futu_entrust_type, "0");
    h.amount_per_hand = 5;
    std::strcpy(h.forceclose_reason, "0");
    std::strcpy(h.confirm_no, "C123");
    h.curr_date = 20240315;
    h.curr_time = 93015;
    std::strcpy(h.entrust_occasion, "occ");
    std::strcpy(h.futu_entrust_prop, "0");
    h.session_no = 2;
    std::strcpy(h.entrust_reference, "ref1");
    h.drop_profit = 12.5;
    h.drop_profit_float = 13.5;
    std::strcpy(h.szPositionStr, "pos1");
    h.delta_entrust_fare = -1.5;
    h.delta_entrust_margin = -100;
    h.delta_business_fare = 1.5;
    h.delta_hold_margin = 100;
    return h;
}

tagHB EntrustHB() {
    tagHB h = DealHB();
    h.entrust_no = 1002;
    std::strcpy(h.futu_exch_type, "上海交易所");
    std::strcpy(h.entrust_name, "卖出");
    std::strcpy(h.direction_name, "平今仓");
    std::strcpy(h.hedge_name, "套保");
    h.business_total_amount = 0;
    std::strcpy(h.business_type, "0");
    std::strcpy(h.entrust_status, "3");
    std::strcpy(h.arbit_code, "SP1");
    std::strcpy(h.error_message, "ok");
    std::strcpy(h.second_code, "SR405");
    h.weave_type = '1';
    std::strcpy(h.withdraw_reference, "wd1");
    h.time_condition = '3';
    h.volume_condition = '1';
    h.delta_report_fare = 0.5;
    h.fex_min_volume = 1;
    return h;
}

const char* const kDeal43 =
    "1001|88001234|F1|B00012|CF405|1|1|15030.500000|2.000000|0|00123|R7788|0101|op1|3|5|2|0|"
    "15031.000000|7|8|0|0|5|0|20240315|93015|C123|occ|0.000000|0||ref1|pos1|2|-1.500000|"
    "1.500000|-100.000000|100.000000|0.000000|0.000000|12.500000|13.500000";

const char* const kEntrust43 =
    "1002|88001234|F3|CF405|2|4|1|00123|R7788|0101|op1|3|5|0|0|15031.000000|3|8|0|0|5|0|"
    "20240315|93015|C123|occ|0.000000|0|SP1|ref1|ok|pos1|2|SR405|1|-1.500000|-100.000000|"
    "0.000000|wd1|3|1|0.500000|1";

TEST(ReportCodes, BothDirectionsAndUnknowns) {
    EXPECT_STREQ(ConvertBS('1'), "买入");
    EXPECT_STREQ(ConvertBS('2'), "卖出");
    EXPECT_STREQ(ConvertKP('1'), "开仓");
    EXPECT_STREQ(ConvertKP('2'), "平仓");
    EXPECT_STREQ(ConvertKP('4'), "平今仓");
    EXPECT_STREQ(ConvertHedge('0'), "投机");
    EXPECT_STREQ(ConvertHedge('1'), "套保");
    EXPECT_STREQ(ConvertHedge('2'), "套利");
    EXPECT_STREQ(ConvertKP('3'), " ");  // no code 3 for open/close
    EXPECT_STREQ(ConvertBS('\0'), " ");
    EXPECT_STREQ(ConvertHedge('3'), " ");

    for (char c : {'1', '2'}) EXPECT_EQ(ConvertBS(ConvertBS(c)), c);
    for (char c : {'1', '2', '4'}) EXPECT_EQ(ConvertKP(ConvertKP(c)), c);
    for (char c : {'0', '1', '2'}) EXPECT_EQ(ConvertHedge(ConvertHedge(c)), c);

    EXPECT_EQ(ConvertBS("买卖"), ' ');
    EXPECT_EQ(ConvertKP("开平仓"), ' ');
    EXPECT_EQ(ConvertHedge("投机套保"), ' ');
    EXPECT_EQ(ConvertBS("买入 "), ' ');  // whole word only
    EXPECT_EQ(ConvertBS("买"), ' ');
    EXPECT_EQ(ConvertBS(static_cast<const char*>(nullptr)), ' ');
    const char unterminated[9] = {'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x'};
    EXPECT_EQ(ConvertKP(unterminated), ' ');
}

TEST(Report33101, FortyThreeFieldDealAndEntrustFromReport) {
    char text[1024] = {0};
    tagHB deal = DealHB();
    ASSERT_EQ(ConvertHbTo33101(&deal, text, sizeof text), 0);
    EXPECT_EQ(std::string(text), T(kDeal43));

    std::memset(text, 0, sizeof text);
    tagHB entrust = EntrustHB();
    ASSERT_EQ(ConvertHbTo33101(&entrust, text, sizeof text), 0);
    EXPECT_EQ(std::string(text), T(kEntrust43));

    // Any business_type other than 'B' (an empty one too) is an entrust.
    entrust.business_type[0] = '\0';
    std::memset(text, 0, sizeof text);
    ASSERT_EQ(ConvertHbTo33101(&entrust, text, sizeof text), 0);
    EXPECT_EQ(std::string(text), T(kEntrust43));
}

TEST(Report33101, ZeroCodesFromReport) {
    // One-character string fields print empty; "%c" fields print a zero
    // byte, which ends the text as a C string.
    tagHB h = EntrustHB();
    h.entrust_status[0] = '\0';
    h.weave_type = '\0';
    std::strcpy(h.entrust_name, "买卖");
    char text[1024] = {0};
    ASSERT_EQ(ConvertHbTo33101(&h, text, sizeof text), 0);
    EXPECT_EQ(std::string(text),
              T("1002|88001234|F3|CF405| |4|1|00123|R7788|0101|op1|3|5|0|0|15031.000000||8|0|0|"
                "5|0|20240315|93015|C123|occ|0.000000|0|SP1|ref1|ok|pos1|2|SR405|"));
    // The rest of the fields is still written behind the zero byte.
    const std::size_t n = std::strlen(text);
    EXPECT_EQ(std::string(text + n + 1), T("|-1.500000|-100.000000|0.000000|wd1|3|1|0.500000|1"));
}

tagCJ_EX SampleCj() {
    tagCJ_EX c;
    std::memset(&c, 0, sizeof c);
    c.entrust_no = 1001;
    std::strcpy(c.futures_account, "88001234");
    std::strcpy(c.futu_exch_type, "大连交易所");
    std::strcpy(c.business_no, "B00012");
    std::strcpy(c.contract_code, "m2409");
    std::strcpy(c.entrust_name, "卖出");
    std::strcpy(c.direction_name, "平仓");
    c.business_price = 3120;
    c.business_amount = 4;
    std::strcpy(c.hedge_name, "套利");
    c.fund_account = 123;
    std::strcpy(c.futu_report_no, "R7788");
    std::strcpy(c.firm_no, "0101");
    std::strcpy(c.operator_no, "op1");
    c.client_group = 3;
    c.entrust_amount = 5;
    c.business_total_amount = 4;
    c.cacel_amount = 1;
    c.entrust_price = 3119.5;
    c.entrust_status = '8';
    c.branch_no = 8;
    c.batch_no = 6;
    c.futu_entrust_type = '0';
    c.amount_per_hand = 10;
    c.forceclose_reason = '0';
    c.init_date = 20240315;
    c.business_time = 101010;
    std::strcpy(c.confirm_no, "C9");
    std::strcpy(c.entrust_occasion, "o1");
    c.frozen_fare = 3.5;
    return c;
}

const char* const kCj30 =
    "1001|88001234|F2|B00012|m2409|2|2|3120.000000|4.000000|2|123|R7788|0101|op1|3|5|4|1|"
    "3119.500000|8|8|6|0|10|0|20240315|101010|C9|o1|0.000000";

TEST(Report33101, DealRecordTextAndParseBack) {
    tagCJ_EX c = SampleCj();
    char text[1024] = {0};
    ASSERT_EQ(ConvertCjTo33101(&c, text, sizeof text), 0);
    EXPECT_EQ(std::string(text), T(kCj30));

    tagCJ_EX back;
    std::memset(&back, 0, sizeof back);
    ASSERT_EQ(Convert33101ToCj(text, &back, 0), 0);
    EXPECT_STREQ(back.futu_exch_type, "大连交易所");
    EXPECT_STREQ(back.entrust_name, "卖出");
    EXPECT_STREQ(back.direction_name, "平仓");
    EXPECT_STREQ(back.hedge_name, "套利");
    EXPECT_EQ(back.fund_account, 123);
    EXPECT_EQ(back.init_date, 20240315);
    EXPECT_EQ(back.business_time, 101010);
    EXPECT_EQ(V(back.entrust_price), 3119.5);
    EXPECT_STREQ(back.entrust_occasion, "o1");

    char again[1024] = {0};
    ASSERT_EQ(ConvertCjTo33101(&back, again, sizeof again), 0);
    EXPECT_EQ(std::string(again), std::string(text));

    // A report's 43-field deal text parses too (the later fields are ignored).
    std::memset(&back, 0, sizeof back);
    ASSERT_EQ(Convert33101ToCj(T(kDeal43).c_str(), &back, 0), 0);
    EXPECT_STREQ(back.contract_code, "CF405");
    EXPECT_EQ(back.fund_account, 123);
    EXPECT_STREQ(back.entrust_occasion, "occ");
}

TEST(Report33101, EntrustRecordTextAndParseBack) {
    tagWTQR_EX w;
    std::memset(&w, 0, sizeof w);
    w.entrust_no = 77;
    std::strcpy(w.futures_account, "acc");
    std::strcpy(w.futu_exch_type, "金融交易所");
    std::strcpy(w.contract_code, "IF2406");
    std::strcpy(w.entrust_name, "买入");
    std::strcpy(w.direction_name, "平今仓");
    std::strcpy(w.hedge_name, "套保");
    w.fund_account = 42;
    std::strcpy(w.futu_report_no, "r");
    std::strcpy(w.firm_no, "f");
    std::strcpy(w.operator_no, "o");
    w.client_group = 1;
    w.entrust_amount = 2;
    w.entrust_price = 3500.2;
    w.entrust_status = 'a';
    w.branch_no = 9;
    w.futu_entrust_type = '1';
    w.amount_per_hand = 300;
    w.forceclose_reason = '0';
    w.init_date = 20240102;
    w.curr_time = 91500;
    std::strcpy(w.confirm_no, "cn");
    std::strcpy(w.entrust_occasion, "oc");
    w.weave_type = 5;  // not part of the text
    char text[1024] = {0};
    ASSERT_EQ(ConvertHbTo33101(&w, text, sizeof text), 0);
    EXPECT_EQ(std::string(text), T("77|acc|F4|IF2406|1|4|1|42|r|f|o|1|2|0|0|3500.200000|a|9|0|1|"
                                   "300|0|20240102|91500|cn|oc|0.000000"));

    tagWTQR_EX back;
    std::memset(&back, 0, sizeof back);
    ASSERT_EQ(Convert33101ToWT(text, &back, 0), 0);
    w.weave_type = 0;
    EXPECT_EQ(std::memcmp(&back, &w, sizeof w), 0);

    std::memset(&back, 0, sizeof back);
    ASSERT_EQ(Convert33101ToWT(T(kEntrust43).c_str(), &back, 0), 0);
    EXPECT_STREQ(back.futu_exch_type, "上海交易所");
    EXPECT_STREQ(back.direction_name, "平今仓");
    EXPECT_EQ(back.entrust_status, '3');
    EXPECT_EQ(back.curr_time, 93015);
    EXPECT_STREQ(back.entrust_occasion, "occ");
}

TEST(Report33101, ZeroCharacterFieldEndsRecordText) {
    tagCJ_EX c = SampleCj();
    c.entrust_status = '\0';
    char text[1024] = {0};
    ASSERT_EQ(ConvertCjTo33101(&c, text, sizeof text), 0);
    EXPECT_EQ(std::string(text), T("1001|88001234|F2|B00012|m2409|2|2|3120.000000|4.000000|2|123|"
                                   "R7788|0101|op1|3|5|4|1|3119.500000|"));
}

TEST(Report33101, ParseFailuresAndUnknownCodes) {
    tagCJ_EX c;
    std::memset(&c, 0, sizeof c);
    // Ends early: texts read empty at the end, the first number fails.
    EXPECT_EQ(Convert33101ToCj(T("1001|acc").c_str(), &c, 0), -2);
    EXPECT_EQ(c.entrust_no, 1001);
    EXPECT_STREQ(c.futures_account, "acc");
    EXPECT_EQ(V(c.business_price), 0.0);

    // Unknown codes become the blank word; an unknown exchange stays as is.
    std::string t = kCj30;
    t.replace(t.find("|F2|"), 4, "|Q9|");
    t.replace(t.find("|2|2|"), 5, "|9|3|");
    std::memset(&c, 0, sizeof c);
    ASSERT_EQ(Convert33101ToCj(T(t).c_str(), &c, 0), 0);
    EXPECT_STREQ(c.futu_exch_type, "Q9");
    EXPECT_STREQ(c.entrust_name, " ");
    EXPECT_STREQ(c.direction_name, " ");

    // An empty status field is refused by the character reader.
    t = kCj30;
    t.replace(t.find("|8|8|6|"), 7, "||8|6|");
    std::memset(&c, 0, sizeof c);
    EXPECT_EQ(Convert33101ToCj(T(t).c_str(), &c, 0), -3);
    EXPECT_EQ(V(c.entrust_price), 3119.5);
    EXPECT_EQ(c.branch_no, 0);

    // Texts longer than the working buffer are refused, not cut.
    EXPECT_EQ(Convert33101ToCj(std::string(1023, '1').c_str(), &c, 0), QUOTE_TEXT_TOO_LONG);
    tagWTQR_EX w;
    EXPECT_EQ(Convert33101ToWT(std::string(1023, '1').c_str(), &w, 0), QUOTE_TEXT_TOO_LONG);
    EXPECT_EQ(Convert33101ToWT(nullptr, &w, 0), -1);
    EXPECT_EQ(Convert33101ToCj(T(kCj30).c_str(), nullptr, 0), -1);
}

TEST(Report33101, WritersStayInsideTheirSize) {
    char buf[256];
    std::memset(buf, 'k', sizeof buf);
    tagHB h = EntrustHB();
    std::memset(h.error_message, 'e', sizeof h.error_message);  // no terminator
    EXPECT_EQ(ConvertHbTo33101(&h, buf, 64), QUOTE_TEXT_TRUNCATED);
    EXPECT_EQ(std::strlen(buf), 63u);
    for (int i = 64; i < 256; ++i) ASSERT_EQ(buf[i], 'k') << i;

    char big[2048] = {0};
    ASSERT_EQ(ConvertHbTo33101(&h, big, sizeof big), 0);
    // The unterminated field prints at most its width.
    EXPECT_NE(std::string(big).find(std::string(256, 'e') + "\x01" "pos1"), std::string::npos);
    EXPECT_EQ(ConvertHbTo33101(&h, big, 0), -1);
    EXPECT_EQ(ConvertHbTo33101(static_cast<tagHB*>(nullptr), big, 10), -1);
}

TEST(ReportLegacyCopy, DealBoundsEveryTextToItsField) {
    tagCJ_EX c = SampleCj();
    std::strcpy(c.contract_code, "ABCDEFGHIJKLMNOPQRS");
    tagCJ legacy;
    std::memset(&legacy, 0, sizeof legacy);
    ASSERT_EQ(ConvertCj23To17(&c, legacy), 0);
    EXPECT_STREQ(legacy.contract_code, "ABCDEFGHIJKL");
    EXPECT_STREQ(legacy.entrust_name, "卖出");
    EXPECT_EQ(legacy.fund_account, 123);
    EXPECT_EQ(V(legacy.business_price), 3120.0);
    EXPECT_EQ(legacy.business_time, 101010);
    EXPECT_STREQ(legacy.confirm_no, "C9");
    EXPECT_EQ(V(legacy.frozen_fare), 3.5);

    // The target's last byte of each text is left as it was.
    std::memset(&legacy, '#', sizeof legacy);
    ASSERT_EQ(ConvertCj23To17(&c, legacy), 0);
    EXPECT_EQ(std::string(legacy.contract_code, 12), "ABCDEFGHIJKL");
    EXPECT_EQ(legacy.contract_code[12], '#');
    EXPECT_EQ(std::string(legacy.firm_no, 8), std::string("0101\0\0\0\0", 8));
    EXPECT_EQ(legacy.firm_no[8], '#');
}

TEST(ReportOtherTexts, InquiryTextIsBoundedBySize) {
    tagXJ x;
    std::memset(&x, 0, sizeof x);
    std::strcpy(x.forquote_no, "Q000123");
    std::strcpy(x.contract_code, "m2409-C-3000");
    x.init_date = 20240315;
    x.update_time = 93001;
    char text[1024] = {0};
    ASSERT_EQ(ConvertXJHqTo33300(&x, text, sizeof text), 0);
    EXPECT_EQ(std::string(text), T("Q000123|m2409-C-3000|20240315|93001"));
    EXPECT_EQ(ConvertXJHqTo33300(&x, text, 12), QUOTE_TEXT_TRUNCATED);
    EXPECT_EQ(std::string(text), T("Q000123|m24"));
}

TEST(ReportOtherTexts, OffsetSetting) {
    tagOFFSET o;
    std::memset(&o, 0, sizeof o);
    std::strcpy(o.fund_account, "00123");
    std::strcpy(o.futures_account, "88001234");
    o.entrust_no = 17;
    std::strcpy(o.futu_exch_type, "F3");
    std::strcpy(o.futu_code, "cu2406");
    o.entrust_amount = 3;
    o.offset_type = '1';
    o.entrust_status = '2';
    o.offset_action_type = '0';
    std::strcpy(o.error_message, "done");
    std::strcpy(o.position_str, "p9");
    char text[1024] = {0};
    ASSERT_EQ(ConvertOffsetTo33117(&o, text), 0);
    EXPECT_EQ(std::string(text), T("00123|88001234|17|F3|cu2406|3|1|2|0|done|p9"));

    o.offset_type = '\0';  // "%c" of 0 ends the text after field 6
    std::memset(text, 0, sizeof text);
    ASSERT_EQ(ConvertOffsetTo33117(&o, text), 0);
    EXPECT_EQ(std::string(text), T("00123|88001234|17|F3|cu2406|3|"));
}

TEST(ReportOtherTexts, MarginOrder) {
    tagZJZHBZJHB z;
    std::memset(&z, 0, sizeof z);
    z.entrust_no = 21;
    std::strcpy(z.futures_account, "88001234");
    std::strcpy(z.futu_exch_type, "F2");
    std::strcpy(z.arbit_code, "SP m2409&m2501");
    z.entrust_bs = '1';
    z.hedge_type = '0';
    z.combdirection = '1';
    std::strcpy(z.fund_account, "00123");
    std::strcpy(z.report_id, "rid");
    std::strcpy(z.firm_id, "f1");
    std::strcpy(z.operator_no, "op");
    z.client_group = 4;
    z.entrust_amount = 2;
    z.entrust_status = '3';
    z.branch_no = 8;
    z.batch_no = 1;
    z.entrust_type = '0';
    z.init_date = 20240315;
    z.entrust_time = 100000;
    z.weave_type = '2';
    std::strcpy(z.entrust_occasion, "oc");
    std::strcpy(z.entrust_reference, "er");
    z.session_no = 6;
    z.second_hedge_type = '0';
    z.amount_per_hand = 10;  // not part of the text
    char text[1024] = {0};
    ASSERT_EQ(ConvertZJZH_BZJHBTo33106(&z, text), 0);
    EXPECT_EQ(std::string(text), T("21|88001234|F2|SP m2409&m2501|||1|0|1|00123|rid|f1|op|4|2|3|8|1|"
                                   "0|20240315|100000||2|oc|er|||6|0.000000|0.000000|0.000000|0"));

    z.weave_type = '\0';  // ends the text after field 22
    std::memset(text, 0, sizeof text);
    ASSERT_EQ(ConvertZJZH_BZJHBTo33106(&z, text), 0);
    EXPECT_EQ(std::string(text), T("21|88001234|F2|SP m2409&m2501|||1|0|1|00123|rid|f1|op|4|2|3|8|1|"
                                   "0|20240315|100000||"));
}

}  // namespace
