// The quote texts (33100, 33102, 33105) both ways, exact to the byte and cut
// at every size; the legacy single-leg copy and the exchange names.
#include "quote/quote_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "testing/text_test_support.h"

namespace {

using testing_support::ExpectCutsClean;
using testing_support::T;

template <typename T>
T V(T v) {  // copy of a possibly misaligned packed field
    return v;
}

// A 33100 body with a distinct value in every field, and the whole text.
const std::string kBody = T(
    "93015|0|F1||CF405|15000.500000|15010.000000|1234.000000|0.250000|15020.000000|15030.500000|15030.000000|12|"
    "15031.000000|7|15100.000000|14900.000000|16000.000000|14000.000000|15025.250000|-30.500000|57|2147483647|"
    "9.500000|15011.000000|15012.000000|0|0.500000|15029.000000|11|15028.000000|10|15027.000000|9|15026.000000|"
    "-2147483648|15032.000000|6|15033.000000|5|15034.000000|4|15035.000000|3");
const std::string kText = T("0|" + std::to_string(kBody.size()) + "|") + kBody;
// Header and the fields up to the current delta: no depth fields.
const std::string kThirty = kText.substr(0, kText.find(T("|15029.000000")));

tagHQInfo_EX Parsed22(const std::string& text) {
    tagHQInfo_EX r;
    std::memset(&r, 0, sizeof r);
    EXPECT_EQ(Convert33100To22(text.c_str(), &r), 0);
    return r;
}

// 22 from the text keeps what the text does not carry (the current delta,
// the total amounts); 16 takes the delta, and its turnover from the amount.
TEST(Quote33100, TextToBothLayoutsAndBack) {
    tagHQInfo_EX ex;
    std::memset(&ex, 0, sizeof ex);
    ex.curr_delta = 7.75;
    ex.buy_total_amount = 41;
    ASSERT_EQ(Convert33100To22(kText.c_str(), &ex), 0);
    EXPECT_EQ(V(ex.curr_delta), 7.75);
    EXPECT_EQ(ex.buy_total_amount, 41);
    EXPECT_EQ(V(ex.business_balance), 9.5);
    ex.curr_delta = 0.5;  // then the same text again
    std::vector<char> buf(16384);  // room for any body: written in one pass
    const char* text = Convert22To33100(&ex, buf.data(), static_cast<int>(buf.size()));
    EXPECT_EQ(text + kText.size() - kBody.size(), buf.data() + 15);  // the header ends at byte 15
    EXPECT_EQ(text, kText);

    tagHQInfo hq;
    std::memset(&hq, 0, sizeof hq);
    ASSERT_EQ(Convert33100To16(kText.c_str(), &hq), 0);
    EXPECT_STREQ(hq.futu_exch_type, "F1");
    EXPECT_EQ(V(hq.business_balance), 57.0);
    EXPECT_EQ(V(hq.curr_delta), 0.5);
    EXPECT_EQ(hq.bear_amount, 2147483647);
    EXPECT_EQ(hq.ask_volume5, 3);
}

// Cut at every size the body is a prefix of the whole body with its length
// in the header, ending where the size ends; below 17 bytes the text is empty.
TEST(Quote33100, WriterAtEverySize) {
    tagHQInfo_EX r = Parsed22(kText);
    r.curr_delta = 0.5;
    for (int size = 1; size < static_cast<int>(kText.size()) + 20; ++size) {
        std::vector<char> buf(static_cast<size_t>(size) + 8, '#');
        const char* text = Convert22To33100(&r, buf.data(), size);
        ASSERT_EQ(buf[static_cast<size_t>(size)], '#') << "written past size " << size;
        if (size <= 16) {
            ASSERT_EQ(text, buf.data());
            ASSERT_EQ(buf[0], '\0');
            continue;
        }
        const std::string body(buf.data() + 15);
        ASSERT_EQ(body.size(), std::min<size_t>(kBody.size(), static_cast<size_t>(size) - 16)) << size;
        ASSERT_EQ(kBody.compare(0, body.size(), body), 0) << size;
        ASSERT_EQ(std::string(text), T("0|" + std::to_string(body.size()) + "|") + body) << size;
    }
    EXPECT_EQ(Convert22To33100(&r, nullptr, 100), nullptr);
    char buf[32];
    EXPECT_EQ(Convert22To33100(nullptr, buf, sizeof buf), buf);
    EXPECT_EQ(buf[0], '\0');
}

TEST(Quote33100, ShortTextsCodesAndFailures) {
    // Thirty fields leave the depth zero; the open interest is read as an int.
    tagHQInfo_EX ex;
    std::memset(&ex, 0xAB, sizeof ex);
    ASSERT_EQ(Convert33100To22(kThirty.c_str(), &ex), 0);
    EXPECT_EQ(V(ex.bid_price2), 0.0);
    EXPECT_EQ(ex.ask_volume5, 0);
    EXPECT_EQ(ex.business_amount, 57);
    std::string fractional = kThirty;
    fractional.replace(fractional.find("1234.000000"), 11, "1234.750000");
    tagHQInfo hq;
    std::memset(&hq, 0x5A, sizeof hq);
    ASSERT_EQ(Convert33100To16(fractional.c_str(), &hq), 0);
    EXPECT_EQ(hq.ask_volume2, 0);
    EXPECT_EQ(V(hq.pre_open_interest), 1234.0);
    // The legacy reader keeps twelve characters of the code.
    std::string longCode = kText;
    longCode.replace(longCode.find("CF405"), 5, "ABCDEFGHIJKLMNOPQRSTUVWXYZ");
    ASSERT_EQ(Convert33100To16(longCode.c_str(), &hq), 0);
    EXPECT_STREQ(hq.contract_code, "ABCDEFGHIJKL");
    EXPECT_STREQ(Parsed22(longCode).contract_code, "ABCDEFGHIJKLMNOPQRSTUVWXYZ");

    // Failures leave the record untouched.
    const std::pair<std::string, int> cases[] = {
        {kThirty + T("|15029.000000|11|15028.000000"), -2},  // ends inside the depth fields
        {kThirty.substr(0, kThirty.rfind('\x01')), -2},        // only 29 fields
        {T("0|0|1|0|F1||") + std::string(30, 'C') + T("|1"), -2},  // code too long
        {"", -3},
        {kBody + std::string(QUOTE_TEXT_MAX_LEN, '1'), QUOTE_TEXT_TOO_LONG},
    };
    for (const auto& [text, rc] : cases) {
        ex = Parsed22(kText);
        const tagHQInfo_EX before = ex;
        EXPECT_EQ(Convert33100To22(text.c_str(), &ex), rc) << text;
        EXPECT_EQ(std::memcmp(&ex, &before, sizeof ex), 0) << text;
        std::memset(&hq, 0x5A, sizeof hq);
        const tagHQInfo hqBefore = hq;
        EXPECT_EQ(Convert33100To16(text.c_str(), &hq), rc) << text;
        EXPECT_EQ(std::memcmp(&hq, &hqBefore, sizeof hq), 0) << text;
    }
    EXPECT_EQ(Convert33100To22(T("|0|1|0|F1||CF405|1").c_str(), &ex), -3);  // empty quote type
    EXPECT_EQ(Convert33100To22(nullptr, &ex), -1);
    EXPECT_EQ(Convert33100To22(kThirty.c_str(), nullptr), -1);
    EXPECT_EQ(Convert33100To16(nullptr, &hq), -1);
    EXPECT_EQ(Convert33100To16(kThirty.c_str(), nullptr), -1);
}

TEST(Quote33102And33105, TextsBothWays) {
    const std::string arg = T("SP CF405&CF409|F1|CF405|CF409|S|-15.500000|3|30|-14.250000|4|40|20.000000|"
                              "-30.000000|100.000000|-100.000000");
    tagArgHQInfo a;
    std::memset(&a, 0, sizeof a);
    ASSERT_EQ(Convert33102To18(arg.c_str(), &a), 0);  // written back the same
    ExpectCutsClean([&a](char* b, int n) { return Convert18To33102(&a, b, n); }, arg);
    a.arbi_type = '\0';  // "%c" of 0 writes a zero byte
    ExpectCutsClean([&a](char* b, int n) { return Convert18To33102(&a, b, n); },
                    arg.substr(0, arg.find(T("|S|"))) + T("|") + '\0' + arg.substr(arg.find(T("|S|")) + 2));
    // A failure keeps the fields read before it ("x" reads as 0).
    tagArgHQInfo r;
    std::memset(&r, 0, sizeof r);
    r.sale_amount = 99;
    EXPECT_EQ(Convert33102To18(T("SP1|F2|A1|B1|S|1.5|2|3|x").c_str(), &r), -2);
    EXPECT_STREQ(r.contract_code, "SP1");
    EXPECT_EQ(r.buy_total_amount, 3);
    EXPECT_EQ(r.sale_amount, 99);
    EXPECT_EQ(Convert33102To18(T("SP1|F2|A1|B1||1.5").c_str(), &r), -3);  // empty type

    tagEXCHSTATUS s;
    std::memset(&s, 0, sizeof s);
    ASSERT_EQ(Convert33105To24(T("F3|2|-1").c_str(), &s), 0);
    ExpectCutsClean([&s](char* b, int n) { return Convert24To33105(&s, b, n); }, T("F3|2|-1"));
    EXPECT_EQ(Convert33105To24(T("F33|2|1").c_str(), &s), -2);  // three characters do not fit
    EXPECT_EQ(Convert33105To24(T("F1|2|12345678901234567").c_str(), &s), -3);
    const std::string longest(QUOTE_TEXT_MAX_LEN, '1'), tooLong = longest + '1';
    EXPECT_EQ(Convert33105To24(longest.c_str(), &s), -2);
    EXPECT_EQ(Convert33105To24(tooLong.c_str(), &s), QUOTE_TEXT_TOO_LONG);
    EXPECT_EQ(Convert33102To18(tooLong.c_str(), &a), QUOTE_TEXT_TOO_LONG);
    char buf[64];
    EXPECT_EQ(Convert33105To24(T("F3|2|1").c_str(), nullptr), -1);
    EXPECT_EQ(Convert33102To18(arg.c_str(), nullptr), -1);
    EXPECT_EQ(Convert24To33105(nullptr, buf, 64), -1);
    EXPECT_EQ(Convert18To33102(nullptr, buf, 64), -1);
}

// The copy from the extended record is checked datagram by datagram in
// udp/udp_dispatch_test (LegacyRecordEqualsTheLegacyParse).
TEST(QuoteHq22To16, BoundsTheCodeAndRefusesNoRecord) {
    tagHQInfo_EX ex = Parsed22(kText);
    std::strcpy(ex.contract_code, "ABCDEFGHIJKLMNOP");
    tagHQInfo hq;
    std::memset(&hq, 0x33, sizeof hq);
    ASSERT_EQ(ConvertHq22To16(&ex, hq), 0);
    EXPECT_EQ(std::string(hq.contract_code, 13), std::string("ABCDEFGHIJKL\0", 13));
    EXPECT_EQ(V(hq.business_balance), 9.5);
    EXPECT_EQ(ConvertHq22To16(nullptr, hq), -1);
}

TEST(QuoteExch, NamesToCodesAndBack) {
    // Names to codes: the first match wins ("大" is tested before "上海").
    const std::pair<const char*, const char*> toCode[] = {
        {"郑州交易所", "F1"}, {"大连交易所", "F2"}, {"上海交易所", "F3"}, {"金融交易所", "F4"},
        {"能源交易所", "F5"}, {"原油", "F5"},       {"上海大宗", "F2"},   {nullptr, ""}};
    for (const auto& [name, code] : toCode) EXPECT_STREQ(ConvertExch(name, true), code) << code;
    // Codes to names by the second character.
    const std::pair<const char*, const char*> toName[] = {{"F1", "郑州交易所"}, {"F2", "大连交易所"},
                                                          {"F3", "上海交易所"}, {"X3", "上海交易所"},
                                                          {"F4", "金融交易所"}, {"F5", "能源交易所"}};
    for (const auto& [code, name] : toName) EXPECT_STREQ(ConvertExch(code, false), name) << code;
    // Anything else is handed back as it is.
    const char* const others[] = {"F3", "F9", ""};
    EXPECT_EQ(ConvertExch(others[0], true), others[0]);
    EXPECT_EQ(ConvertExch(others[1], false), others[1]);
    EXPECT_EQ(ConvertExch(others[2], false), others[2]);
}

}  // namespace
