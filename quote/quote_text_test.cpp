#include "quote/quote_text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

// Copies a (possibly misaligned) packed field before it is compared.
template <typename T>
T V(T v) {
    return v;
}

// Expected texts are written with '|' for the 0x01 separator.
std::string T(std::string s) {
    for (char& c : s)
        if (c == '|') c = '\x01';
    return s;
}

tagHQInfo_EX SampleEx() {
    tagHQInfo_EX r;
    std::memset(&r, 0, sizeof r);
    std::strcpy(r.contract_code, "CF405");
    std::strcpy(r.futu_exch_type, "F1");
    r.time_stamp = 93015;
    r.pre_square_price = 15000.5;
    r.pre_close_price = 15010;
    r.pre_open_interest = 1234.0;
    r.pre_delta = 0.25;
    r.futu_open_price = 15020;
    r.futu_last_price = 15030.5;
    r.buy_high_price = 15030;
    r.buy_high_amount = 12;
    r.sale_low_price = 15031;
    r.sale_low_amount = 7;
    r.futu_high_price = 15100;
    r.futu_low_price = 14900;
    r.uplimited_price = 16000;
    r.downlimited_price = 14000;
    r.average_price = 15025.25;
    r.change_direction = 30.5;
    r.business_amount = 57;
    r.bear_amount = 890;
    r.business_balance = 9.5;
    r.curr_delta = 0.5;
    r.bid_price2 = 15029; r.bid_volume2 = 11;
    r.bid_price3 = 15028; r.bid_volume3 = 10;
    r.bid_price4 = 15027; r.bid_volume4 = 9;
    r.bid_price5 = 15026; r.bid_volume5 = 8;
    r.ask_price2 = 15032; r.ask_volume2 = 6;
    r.ask_price3 = 15033; r.ask_volume3 = 5;
    r.ask_price4 = 15034; r.ask_volume4 = 4;
    r.ask_price5 = 15035; r.ask_volume5 = 3;
    return r;
}

const std::string kSampleBody = T(
    "93015|0|F1||CF405|15000.500000|15010.000000|1234.000000|0.250000|15020.000000|"
    "15030.500000|15030.000000|12|15031.000000|7|15100.000000|14900.000000|16000.000000|"
    "14000.000000|15025.250000|30.500000|57|890|9.500000|0.000000|0.000000|0|0.500000|"
    "15029.000000|11|15028.000000|10|15027.000000|9|15026.000000|8|"
    "15032.000000|6|15033.000000|5|15034.000000|4|15035.000000|3");

// Header, fields 3..30 of the sample (no depth fields).
const std::string kThirtyFields = T(
    "0|200|93015|0|F1||CF405|15000.500000|15010.000000|1234.000000|0.250000|15020.000000|"
    "15030.500000|15030.000000|12|15031.000000|7|15100.000000|14900.000000|16000.000000|"
    "14000.000000|15025.250000|30.500000|57|890|9.500000|0.000000|0.000000|0|0.500000");

TEST(Quote33100, WritesHeaderEndingAtFifteenAndExactBody) {
    tagHQInfo_EX r = SampleEx();
    char buf[1024];
    std::memset(buf, 'x', sizeof buf);
    const char* text = Convert22To33100(&r, buf, sizeof buf);
    const std::string header = T("0|" + std::to_string(kSampleBody.size()) + "|");
    ASSERT_EQ(text, buf + 15 - header.size());
    EXPECT_EQ(std::string(text), header + kSampleBody);
}

TEST(Quote33100, RoundTripRestoresCarriedFieldsAndKeepsAsymmetries) {
    tagHQInfo_EX src = SampleEx();
    char buf[1024];
    const char* text = Convert22To33100(&src, buf, sizeof buf);

    tagHQInfo_EX back;
    std::memset(&back, 0, sizeof back);
    back.curr_delta = 7.75;       // not taken from the text
    back.buy_total_amount = 41;   // not carried at all
    ASSERT_EQ(Convert33100To22(text, &back), 0);
    tagHQInfo_EX expect = src;
    expect.curr_delta = 7.75;
    expect.buy_total_amount = 41;
    EXPECT_EQ(std::memcmp(&back, &expect, sizeof back), 0);
    EXPECT_EQ(V(back.pre_open_interest), 1234.0);  // "1234.000000" read as an int

    tagHQInfo legacy;
    std::memset(&legacy, 0, sizeof legacy);
    ASSERT_EQ(Convert33100To16(text, &legacy), 0);
    EXPECT_STREQ(legacy.contract_code, "CF405");
    EXPECT_STREQ(legacy.futu_exch_type, "F1");
    EXPECT_EQ(legacy.business_amount, 57);
    EXPECT_EQ(V(legacy.business_balance), 57.0);  // from the traded amount, not 9.5
    EXPECT_EQ(V(legacy.curr_delta), 0.5);
    EXPECT_EQ(V(legacy.ask_price5), 15035.0);
    EXPECT_EQ(legacy.ask_volume5, 3);
    EXPECT_EQ(legacy.bid_volume2, 11);
}

TEST(Quote33100, FractionalOpenInterestIsCutToItsIntegerPart) {
    tagHQInfo_EX src = SampleEx();
    src.pre_open_interest = 1234.75;
    char buf[1024];
    tagHQInfo_EX back;
    std::memset(&back, 0, sizeof back);
    ASSERT_EQ(Convert33100To22(Convert22To33100(&src, buf, sizeof buf), &back), 0);
    EXPECT_EQ(V(back.pre_open_interest), 1234.0);
}

TEST(Quote33100, ThirtyFieldsLeaveDepthZero) {
    tagHQInfo_EX ex;
    std::memset(&ex, 0xAB, sizeof ex);  // depth must be written as zero
    ASSERT_EQ(Convert33100To22(kThirtyFields.c_str(), &ex), 0);
    EXPECT_EQ(V(ex.bid_price2), 0.0);
    EXPECT_EQ(ex.bid_volume5, 0);
    EXPECT_EQ(V(ex.ask_price5), 0.0);
    EXPECT_EQ(ex.ask_volume5, 0);
    EXPECT_EQ(ex.business_amount, 57);
    EXPECT_STREQ(ex.contract_code, "CF405");

    tagHQInfo hq;
    std::memset(&hq, 0, sizeof hq);
    ASSERT_EQ(Convert33100To16(kThirtyFields.c_str(), &hq), 0);
    EXPECT_EQ(hq.ask_volume2, 0);
    EXPECT_EQ(V(hq.curr_delta), 0.5);
}

TEST(Quote33100, FailuresLeaveTheRecordUntouched) {
    const std::string cases[] = {
        kThirtyFields + T("|15029.000000|11|15028.000000"),  // ends inside the depth fields
        kThirtyFields.substr(0, kThirtyFields.rfind('\x01')),  // only 29 fields
        T("|0|1|0|F1||CF405|1|2|3|4|5|6|7|8|9|10|11|12|13|14|15|16|17|18|19|20|21|22|23"),
        T("0|0|1|0|F1||") + std::string(30, 'C') + T("|1"),  // contract code too long
        "",
    };
    for (const std::string& text : cases) {
        tagHQInfo_EX ex = SampleEx();
        const tagHQInfo_EX before = ex;
        EXPECT_LT(Convert33100To22(text.c_str(), &ex), 0) << text;
        EXPECT_EQ(std::memcmp(&ex, &before, sizeof ex), 0) << text;

        tagHQInfo hq;
        std::memset(&hq, 0x5A, sizeof hq);
        const tagHQInfo hqBefore = hq;
        EXPECT_LT(Convert33100To16(text.c_str(), &hq), 0) << text;
        EXPECT_EQ(std::memcmp(&hq, &hqBefore, sizeof hq), 0) << text;
    }
    // The first case fails at the missing amount field.
    tagHQInfo_EX ex = SampleEx();
    EXPECT_EQ(Convert33100To22(cases[0].c_str(), &ex), -2);
}

TEST(Quote33100, LegacyReaderKeepsTwelveCharactersOfTheCode) {
    tagHQInfo_EX src = SampleEx();
    std::strcpy(src.contract_code, "ABCDEFGHIJKLMNOPQRSTUVWXYZ");
    char buf[1024];
    const char* text = Convert22To33100(&src, buf, sizeof buf);
    tagHQInfo hq;
    std::memset(&hq, 0, sizeof hq);
    ASSERT_EQ(Convert33100To16(text, &hq), 0);
    EXPECT_STREQ(hq.contract_code, "ABCDEFGHIJKL");
    tagHQInfo_EX ex;
    std::memset(&ex, 0, sizeof ex);
    ASSERT_EQ(Convert33100To22(text, &ex), 0);
    EXPECT_STREQ(ex.contract_code, "ABCDEFGHIJKLMNOPQRSTUVWXYZ");
}

TEST(Quote33100, WriterRefusesBuffersTooSmallForTheHeader) {
    tagHQInfo_EX r = SampleEx();
    char tiny[16];
    EXPECT_EQ(Convert22To33100(&r, tiny, sizeof tiny), tiny);
    EXPECT_EQ(tiny[0], '\0');
    EXPECT_EQ(Convert22To33100(&r, nullptr, 100), nullptr);
}

TEST(Quote33100, RefusesOverlongAndNullInput) {
    tagHQInfo_EX ex = SampleEx();
    const std::string huge = kSampleBody + std::string(QUOTE_TEXT_MAX_LEN, '1');
    EXPECT_EQ(Convert33100To22(huge.c_str(), &ex), QUOTE_TEXT_TOO_LONG);
    EXPECT_EQ(Convert33100To22(nullptr, &ex), -1);
    EXPECT_EQ(Convert33100To22(kThirtyFields.c_str(), nullptr), -1);
}

tagArgHQInfo SampleArg() {
    tagArgHQInfo r;
    std::memset(&r, 0, sizeof r);
    std::strcpy(r.contract_code, "SP CF405&CF409");
    std::strcpy(r.futu_exch_type, "F1");
    std::strcpy(r.first_code, "CF405");
    std::strcpy(r.second_code, "CF409");
    r.arbi_type = 'S';
    r.buy_price = -15.5;
    r.buy_amount = 3;
    r.buy_total_amount = 30;
    r.sale_price = -14.25;
    r.sale_amount = 4;
    r.sale_total_amount = 40;
    r.futu_high_price = 20;
    r.futu_low_price = -30;
    r.uplimited_price = 100;
    r.downlimited_price = -100;
    return r;
}

TEST(Quote33102, ExactTextAndRoundTrip) {
    tagArgHQInfo r = SampleArg();
    char text[1024];
    ASSERT_EQ(Convert18To33102(&r, text, sizeof text), 0);
    EXPECT_EQ(std::string(text),
              T("SP CF405&CF409|F1|CF405|CF409|S|-15.500000|3|30|-14.250000|4|40|20.000000|"
                "-30.000000|100.000000|-100.000000"));
    tagArgHQInfo back;
    std::memset(&back, 0, sizeof back);
    ASSERT_EQ(Convert33102To18(text, &back), 0);
    EXPECT_EQ(std::memcmp(&back, &r, sizeof r), 0);
}

TEST(Quote33102, FailureKeepsFieldsReadBeforeIt) {
    tagArgHQInfo r;
    std::memset(&r, 0, sizeof r);
    r.sale_amount = 99;
    // "x" reads as 0.0 (atof); the missing field after it fails.
    EXPECT_EQ(Convert33102To18(T("SP1|F2|A1|B1|S|1.5|2|3|x").c_str(), &r), -2);
    EXPECT_STREQ(r.contract_code, "SP1");
    EXPECT_EQ(r.buy_total_amount, 3);
    EXPECT_EQ(r.sale_amount, 99);  // not reached
    EXPECT_EQ(Convert33102To18(T("SP1|F2|A1|B1||1.5").c_str(), &r), -3);  // empty type
}

TEST(Quote33102, WriterIsBoundedBySize) {
    tagArgHQInfo r = SampleArg();
    char text[64];
    std::memset(text, 'k', sizeof text);
    EXPECT_EQ(Convert18To33102(&r, text, 10), QUOTE_TEXT_TRUNCATED);
    EXPECT_EQ(std::strlen(text), 9u);
    for (int i = 10; i < 64; ++i) ASSERT_EQ(text[i], 'k');
    EXPECT_EQ(Convert18To33102(&r, text, 0), -1);
}

TEST(Quote33105, TextBothWays) {
    tagEXCHSTATUS s;
    std::memset(&s, 0, sizeof s);
    std::strcpy(s.futu_exch_type, "F3");
    std::strcpy(s.futu_status, "2");
    s.can_trade = 1;
    char text[64];
    ASSERT_EQ(Convert24To33105(&s, text, sizeof text), 0);
    EXPECT_EQ(std::string(text), T("F3|2|1"));

    tagEXCHSTATUS back;
    std::memset(&back, 0, sizeof back);
    ASSERT_EQ(Convert33105To24(text, &back), 0);
    EXPECT_EQ(std::memcmp(&back, &s, sizeof s), 0);

    // An exchange code of 3 characters does not fit.
    EXPECT_EQ(Convert33105To24(T("F33|2|1").c_str(), &back), -2);
    EXPECT_EQ(Convert33105To24(T("F1|2|12345678901234567").c_str(), &back), -3);
}

TEST(QuoteHq22To16, CopiesByNameAndBoundsTheTexts) {
    tagHQInfo_EX ex = SampleEx();
    std::strcpy(ex.contract_code, "ABCDEFGHIJKLMNOP");
    ex.form_buy_price = 1.5;
    ex.form_sale_amount = 9;
    ex.buy_total_amount = 100;
    tagHQInfo hq;
    std::memset(&hq, 0x33, sizeof hq);
    ASSERT_EQ(ConvertHq22To16(&ex, hq), 0);
    EXPECT_STREQ(hq.contract_code, "ABCDEFGHIJKL");
    EXPECT_STREQ(hq.futu_exch_type, "F1");
    EXPECT_EQ(V(hq.form_buy_price), 1.5);
    EXPECT_EQ(hq.form_sale_amount, 9);
    EXPECT_EQ(hq.buy_total_amount, 100);
    EXPECT_EQ(V(hq.business_balance), 9.5);
    EXPECT_EQ(V(hq.curr_delta), 0.5);
    EXPECT_EQ(V(hq.pre_open_interest), 1234.0);
    EXPECT_EQ(hq.ask_volume5, 3);
    EXPECT_EQ(ConvertHq22To16(nullptr, hq), -1);
}

TEST(QuoteExch, NamesToCodesFirstMatchWins) {
    EXPECT_STREQ(ConvertExch("郑州交易所", true), "F1");
    EXPECT_STREQ(ConvertExch("大连交易所", true), "F2");
    EXPECT_STREQ(ConvertExch("上海交易所", true), "F3");
    EXPECT_STREQ(ConvertExch("金融交易所", true), "F4");
    EXPECT_STREQ(ConvertExch("能源交易所", true), "F5");
    EXPECT_STREQ(ConvertExch("原油", true), "F5");
    EXPECT_STREQ(ConvertExch("上海大宗", true), "F2");  // "大" is tested before "上海"
    const char* other = "F3";
    EXPECT_EQ(ConvertExch(other, true), other);
    EXPECT_STREQ(ConvertExch(nullptr, true), "");
}

TEST(QuoteExch, CodesToNamesBySecondCharacter) {
    EXPECT_STREQ(ConvertExch("F1", false), "郑州交易所");
    EXPECT_STREQ(ConvertExch("F2", false), "大连交易所");
    EXPECT_STREQ(ConvertExch("F3", false), "上海交易所");
    EXPECT_STREQ(ConvertExch("X3", false), "上海交易所");
    EXPECT_STREQ(ConvertExch("F4", false), "金融交易所");
    EXPECT_STREQ(ConvertExch("F5", false), "能源交易所");
    const char* f9 = "F9";
    EXPECT_EQ(ConvertExch(f9, false), f9);
    const char* empty = "";
    EXPECT_EQ(ConvertExch(empty, false), empty);
    for (const char* code : {"F1", "F2", "F3", "F4", "F5"})
        EXPECT_STREQ(ConvertExch(ConvertExch(code, false), true), code);
}

}  // namespace
