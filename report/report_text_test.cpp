// Trade-report conversions: code words, the 33101 texts both ways, the legacy
// copies, the other report texts, and the packed deal and entrust records.
#include "report/report_text.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "host/host_pack.h"
#include "report/report_codes.h"
#include "report/report_pack.h"
#include "testing/store_test_support.h"
#include "testing/text_test_support.h"

namespace {

using testing_support::ExpectCutsClean;
using testing_support::T;

template <typename T>
T V(T v) {  // copy of a possibly misaligned packed field
    return v;
}

// A report with a distinct value in every field, in declaration order; as a
// deal (business type 'B') and as an entrust.
tagHB DealHB() {
    return {1001, "88001234", "郑州交易所", "B00012", "CF405", "买入", "开仓", 15030.5, 2, "投机", "00123", "R7788",
            "0101", "op1", 3, 5, 2, 1, 15031, "B", "7", 8, 4, "1", 6, "2", "C123", 20240315, 93015, "occ", 7.25,
            "9", "ok", 11, "ref1", '1', "SP1", "SR405", 12.5, 13.5, "pos1", "wd1", -1.5, -100, 0.25, 1.5, 100, 0.75,
            '3', '4', 0.5, 17};
}

const std::string kDeal43 = T(
    "1001|88001234|F1|B00012|CF405|1|1|15030.500000|2.000000|0|00123|R7788|0101|op1|3|5|2|1|15031.000000|7|8|4|1|"
    "6|2|20240315|93015|C123|occ|7.250000|9|SP1|ref1|pos1|11|-1.500000|1.500000|-100.000000|100.000000|0.250000|"
    "0.750000|12.500000|13.500000");
const std::string kEntrust43 = T(
    "1001|88001234|F1|CF405|1|1|0|00123|R7788|0101|op1|3|5|2|1|15031.000000|7|8|4|1|6|2|20240315|93015|C123|occ|"
    "7.250000|9|SP1|ref1|ok|pos1|11|SR405|1|-1.500000|-100.000000|0.250000|wd1|3|4|0.500000|17");
const std::string kCj30 = T(
    "1001|88001234|F2|B00012|m2409|2|2|3120.000000|4.000000|2|123|R7788|0101|op1|3|5|4|1|3119.500000|8|8|6|0|10|"
    "0|20240315|101010|C9|o1|0.000000");
const std::string kWt27 = T(
    "77|acc|F4|IF2406|1|4|1|42|r|f|o|1|2|0|3|3500.200000|a|9|7|1|300|0|20240102|91500|cn|oc|0.000000");

// Code words: unknown codes give the blank word; words are matched whole
// (at most the field's width), anything else gives the blank code.
TEST(ReportCodes, UnknownCodesAndWords) {
    EXPECT_EQ(std::string(ConvertKP('3')) + ConvertBS('\0') + ConvertHedge('3') + ConvertKP('4'), "   平今仓");
    const char unterminated[9] = {'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x'};
    EXPECT_EQ(std::string({ConvertBS("买卖"), ConvertKP("开平仓"), ConvertHedge("投机套保"), ConvertBS("买入 "),
                           ConvertBS("买"), ConvertBS(static_cast<const char*>(nullptr)), ConvertKP(unterminated),
                           ConvertHedge("套利")}),
              "       2");
}

// The 43-field texts from a report, cut at every size. Any business type
// but 'B' (an empty one too) is an entrust. One-character string fields
// print empty; "%c" fields print a zero byte, the rest follows it.
TEST(Report33101, FortyThreeFieldDealAndEntrustFromReport) {
    tagHB h = DealHB();
    auto write = [&h](char* b, int n) { return ConvertHbTo33101(&h, b, n); };
    ExpectCutsClean(write, kDeal43);
    h.business_type[0] = '\0';
    ExpectCutsClean(write, kEntrust43);
    h.entrust_status[0] = '\0';
    h.weave_type = '\0';
    std::strcpy(h.entrust_name, "买卖");
    std::string zeroCodes = kEntrust43;
    zeroCodes.replace(zeroCodes.find(T("|1|1|0|")), 7, T("| |1|0|"));
    zeroCodes.replace(zeroCodes.find(T("|7|8|4|")), 7, T("||8|4|"));
    zeroCodes.replace(zeroCodes.find(T("SR405|1|")), 8, T("SR405|") + '\0' + T("|"));
    ExpectCutsClean(write, zeroCodes);
    // Unterminated fields print at most their width.
    std::memset(h.error_message, 'e', sizeof h.error_message);
    char text[1024];
    ASSERT_EQ(write(text, sizeof text), 0);
    const std::string t = text;
    EXPECT_EQ(t.substr(t.find(T("|ref1|"))), T("|ref1|" + std::string(256, 'e') + "|pos1|11|SR405|"));
    EXPECT_EQ(ConvertHbTo33101(static_cast<tagHB*>(nullptr), text, 64), -1);
}

// Deal and entrust record texts: parsed into records (names for codes) and
// written back the same; a zero "%c" ends the written text.
TEST(Report33101, DealAndEntrustRecordTextsBothWays) {
    tagCJ_EX c;
    std::memset(&c, 0, sizeof c);
    ASSERT_EQ(Convert33101ToCj(kCj30.c_str(), &c, 0), 0);
    EXPECT_STREQ(c.futu_exch_type, "大连交易所");
    EXPECT_STREQ(c.hedge_name, "套利");
    ExpectCutsClean([&c](char* b, int n) { return ConvertCjTo33101(&c, b, n); }, kCj30);
    c.entrust_status = '\0';
    char text[1024];
    ASSERT_EQ(ConvertCjTo33101(&c, text, sizeof text), 0);
    EXPECT_EQ(text, kCj30.substr(0, kCj30.find(T("|8|8|6|")) + 1));

    tagWTQR_EX w;
    std::memset(&w, 0, sizeof w);
    ASSERT_EQ(Convert33101ToWT(kWt27.c_str(), &w, 0), 0);
    EXPECT_STREQ(w.direction_name, "平今仓");
    ExpectCutsClean([&w](char* b, int n) { return ConvertHbTo33101(&w, b, n); }, kWt27);
    EXPECT_EQ(ConvertCjTo33101(nullptr, text, 64), -1);
    EXPECT_EQ(ConvertHbTo33101(static_cast<tagWTQR_EX*>(nullptr), text, 64), -1);

    // The 43-field texts of reports parse too; their later fields are ignored.
    ASSERT_EQ(Convert33101ToCj(kDeal43.c_str(), &c, 0), 0);
    EXPECT_STREQ(c.entrust_occasion, "occ");
    ASSERT_EQ(Convert33101ToWT(kEntrust43.c_str(), &w, 0), 0);
    EXPECT_STREQ(w.entrust_occasion, "occ");
}

TEST(Report33101, ParseFailuresAndUnknownCodes) {
    tagCJ_EX c;
    std::memset(&c, 0, sizeof c);
    // Ends early: texts read empty at the end, the first number fails.
    EXPECT_EQ(Convert33101ToCj(T("1001|acc").c_str(), &c, 0), -2);
    EXPECT_EQ(c.entrust_no, 1001);
    EXPECT_STREQ(c.futures_account, "acc");
    // Unknown codes become the blank word; an unknown exchange stays as is.
    std::string t = kCj30;
    t.replace(t.find(T("|F2|")), 4, T("|Q9|"));
    t.replace(t.find(T("|2|2|")), 5, T("|9|3|"));
    ASSERT_EQ(Convert33101ToCj(t.c_str(), &c, 0), 0);
    EXPECT_STREQ(c.futu_exch_type, "Q9");
    EXPECT_STREQ(c.entrust_name, " ");
    EXPECT_STREQ(c.direction_name, " ");
    // An empty status field is refused by the character reader.
    t = kCj30;
    t.replace(t.find(T("|8|8|6|")), 7, T("||8|6|"));
    std::memset(&c, 0, sizeof c);
    EXPECT_EQ(Convert33101ToCj(t.c_str(), &c, 0), -3);
    EXPECT_EQ(V(c.entrust_price), 3119.5);
    EXPECT_EQ(c.branch_no, 0);
    // Texts longer than the working buffer are refused, not cut.
    tagWTQR_EX w;
    const std::string longest(1022, '1'), tooLong(1023, '1');
    EXPECT_EQ(Convert33101ToCj(longest.c_str(), &c, 0), -3);
    EXPECT_EQ(Convert33101ToCj(tooLong.c_str(), &c, 0), QUOTE_TEXT_TOO_LONG);
    EXPECT_EQ(Convert33101ToWT(longest.c_str(), &w, 0), -3);
    EXPECT_EQ(Convert33101ToWT(tooLong.c_str(), &w, 0), QUOTE_TEXT_TOO_LONG);
    EXPECT_EQ(Convert33101ToWT(nullptr, &w, 0), -1);
    EXPECT_EQ(Convert33101ToWT(kWt27.c_str(), nullptr, 0), -1);
    EXPECT_EQ(Convert33101ToCj(nullptr, &c, 0), -1);
    EXPECT_EQ(Convert33101ToCj(kCj30.c_str(), nullptr, 0), -1);
}

// Legacy copies: every text bounded to its field, the target's last byte of
// each text left as it was.
TEST(ReportLegacyCopy, DealAndEntrustBoundEveryText) {
    tagCJ_EX c;
    tagWTQR_EX w;
    ASSERT_EQ(Convert33101ToCj(kCj30.c_str(), &c, 0), 0);
    ASSERT_EQ(Convert33101ToWT(kWt27.c_str(), &w, 0), 0);
    std::strcpy(c.contract_code, "ABCDEFGHIJKLMNOPQRS");
    std::strcpy(w.contract_code, "ABCDEFGHIJKLMNOPQRS");
    std::strcpy(w.arbitrage_code, "SP IF2406-C&IF2409-C");
    tagCJ cj;
    tagWTQR wt;
    std::memset(&cj, '#', sizeof cj);
    std::memset(&wt, '#', sizeof wt);
    ASSERT_EQ(ConvertCj23To17(&c, cj), 0);
    ASSERT_EQ(ConvertHb23To17(&w, wt), 0);
    EXPECT_EQ(std::string(cj.contract_code, 13), "ABCDEFGHIJKL#");
    EXPECT_EQ(std::string(cj.firm_no, 9), std::string("0101\0\0\0\0#", 9));
    EXPECT_EQ(std::string(wt.contract_code, 13), "ABCDEFGHIJKL#");
    EXPECT_EQ(std::string(wt.arbitrage_code, 21), "SP IF2406-C&IF2409-C#");
    EXPECT_EQ(ConvertCj23To17(nullptr, cj), -1);
    EXPECT_EQ(ConvertHb23To17(nullptr, wt), -1);
}

// The other report texts, cut at every size; a zero "%c" ends the text.
TEST(ReportOtherTexts, InquiryQuoteReportOffsetAndMargin) {
    tagXJ x{"Q000123", "m2409-C-3000", 20240315, 93001};
    ExpectCutsClean([&x](char* b, int n) { return ConvertXJHqTo33300(&x, b, n); },
                    T("Q000123|m2409-C-3000|20240315|93001"));
    tagBJHB q{"F1", "CF405", "1", "0", 15030.5, 2, "2", "1", 15031, 3, 77, "00123", "R7788", "0101", "op1",
              "8", 8, 20240315, 93015, "C1", "C2", "C3", "qo", "qr", 6, "br", "sr", 11, 12};
    ExpectCutsClean([&q](char* b, int n) { return ConvertBJHbTo33301(&q, b, n); },
                    T("F1|CF405|1|0|15030.500000|2.000000|2|1|15031.000000|3.000000|77|00123|R7788|0101|op1|8|8|"
                      "20240315|93015|C1|C2|C3|qo|qr|6|br|sr|11|12"));
    tagOFFSET o{"00123", "88001234", 17, "F3", "cu2406", 3, '1', '2', '0', "done", "p9"};
    auto offset = [&o](char* b, int n) { return ConvertOffsetTo33117(&o, b, n); };
    ExpectCutsClean(offset, T("00123|88001234|17|F3|cu2406|3|1|2|0|done|p9"));
    o.offset_type = '\0';
    ExpectCutsClean(offset, T("00123|88001234|17|F3|cu2406|3|") + '\0' + T("|2|0|done|p9"));
    tagZJZHBZJHB z{21,    "88001234", "F2", "SP m2409&m2501", "m2409", "m2501", '1', '0', '1', "00123", "rid",
                   "f1",  "op", 4, 2, '3', 8, 1, '0', 20240315, 100000, "p1", '2', "oc", "er", "em", "ps", 6,
                   1.25, 2.5, 3.75, '1', 10};  // amount_per_hand (10) is not part of the text
    auto margin = [&z](char* b, int n) { return ConvertZJZH_BZJHBTo33106(&z, b, n); };
    const std::string head = T("21|88001234|F2|SP m2409&m2501|m2409|m2501|1|0|1|00123|rid|f1|op|4|2|3|8|1|0|20240315|100000|p1|");
    ExpectCutsClean(margin, head + T("2|oc|er|em|ps|6|1.250000|2.500000|3.750000|1"));
    z.weave_type = '\0';
    ExpectCutsClean(margin, head + '\0' + T("|oc|er|em|ps|6|1.250000|2.500000|3.750000|1"));
    char buf[64];
    EXPECT_EQ(ConvertXJHqTo33300(nullptr, buf, 64), -1);
    EXPECT_EQ(ConvertBJHbTo33301(nullptr, buf, 64), -1);
    EXPECT_EQ(ConvertOffsetTo33117(nullptr, buf, 64), -1);
    EXPECT_EQ(ConvertZJZH_BZJHBTo33106(nullptr, buf, 64), -1);
}

// --- packed deal and entrust records -------------------------------------------

// The raw records HBToCJ/HBToWTQR hand to the emulator's packer (one raw
// column, a row per record); with failing raw adds when asked.
class RawRecords {
public:
    explicit RawRecords(bool fail = false) {
        m_svr.SetPackRawFails(fail);
        m_packer->BeginPack();
        m_packer->AddField("raw", 'R', 1024, 0);
    }
    IF2Packer* Packer() { return m_packer; }
    std::vector<std::string> Take() {
        m_packer->EndPack();
        hostemu::PackedBody body;
        EXPECT_EQ(0, hostemu::DecodePacked(m_packer->GetPackBuf(), m_packer->GetPackLen(), &body));
        std::vector<std::string> raws;
        for (const auto& row : body.rows) raws.push_back(row.at(0).bytes);
        return raws;
    }

private:
    hostemu::CHostPackSvr m_svr;
    IF2Packer* m_packer = m_svr.GetPacker(33);
};

// The bytes of an int; the record cells below are (offset, bytes) pairs.
std::string I(int v) { return std::string(reinterpret_cast<const char*>(&v), sizeof v); }

void ExpectCells(const std::string& raw, std::initializer_list<std::pair<size_t, std::string>> cells) {
    for (const auto& [offset, want] : cells) EXPECT_EQ(raw.substr(offset, want.size()), want) << "at offset " << offset;
}

TEST(ReportPack, DealAndEntrustRecordsInBothLayouts) {
    RawRecords packed;
    IF2Packer* packer = packed.Packer();
    RecordingLog log;
    tagHB h = DealHB();
    h.entrust_status[1] = 'x';  // the status keeps its first character only
    tagCJ_EX cjEx;
    tagCJ cj;
    tagWTQR_EX wtEx;
    tagWTQR wt;
    std::memset(&cjEx, 0x7F, sizeof cjEx);  // the target is cleared first
    EXPECT_EQ(HBToCJ(&log, packer, &h, &cjEx, 304), 0);
    EXPECT_EQ(HBToWTQR(&log, packer, &h, &wtEx, 304), 0);
    EXPECT_EQ(HBToWTQR(&log, packer, &h, &wt, 248), 0);
    std::strcpy(h.contract_code, "ABCDEFGHIJKLMNOPQR");
    EXPECT_EQ(HBToCJ(&log, packer, &h, &cj, 248), 0);
    const std::vector<std::string> raws = packed.Take();
    ASSERT_EQ(raws.size(), 4u);
    EXPECT_TRUE(log.lines.empty());
    // Characters from the first byte of their text fields, dates and times
    // from the report's, the fund account as a number; what the report does
    // not fill (frozen_fare, 220-256 of the entrust) and padding stay zero;
    // the legacy deal bounds the contract code, the next field intact.
    ASSERT_EQ(raws[0].size(), 304u);
    ExpectCells(raws[0], {{105, std::string(3, '\0')}, {136, I(123)}, {204, "7"}, {216, "1"}, {224, "2"},
                          {228, I(20240315) + I(93015)}, {260, std::string(8, '\0')}, {268, "occ\0"}});
    ASSERT_EQ(raws[1].size(), 304u);
    ExpectCells(raws[1], {{164, "7"}, {192, I(93015)}, {220, std::string(40, '\0')}, {268, "occ\0"}});
    ASSERT_EQ(raws[2].size(), 248u);
    ExpectCells(raws[2], {{144, "7"}, {172, I(93015) + "C123\0"}});
    ASSERT_EQ(raws[3].size(), 248u);
    ExpectCells(raws[3], {{57, std::string("ABCDEFGHIJKL\0", 13) + "买入\0"}, {184, "7"}, {212, I(93015)}});
}

// Sizes are clamped to the record; null records are refused; without a
// packer the record is still filled; a failed raw add is logged (when there
// is a log) under the deal names.
TEST(ReportPack, SizesRefusalsAndFailedPacks) {
    tagHB h = DealHB();
    tagCJ cj;
    tagWTQR_EX wtEx;
    tagWTQR wt;
    RawRecords packed;
    EXPECT_EQ(HBToCJ(nullptr, packed.Packer(), &h, &cj, 4096), 0);
    EXPECT_EQ(HBToCJ(nullptr, packed.Packer(), &h, &cj, -5), 0);
    EXPECT_EQ(HBToWTQR(nullptr, packed.Packer(), &h, &wtEx, 305), 0);
    EXPECT_EQ(HBToCJ(nullptr, packed.Packer(), nullptr, &cj, 248), -1);
    EXPECT_EQ(HBToCJ(nullptr, packed.Packer(), &h, static_cast<tagCJ_EX*>(nullptr), 248), -1);
    EXPECT_EQ(HBToWTQR(nullptr, packed.Packer(), nullptr, &wtEx, 248), -1);
    EXPECT_EQ(HBToWTQR(nullptr, packed.Packer(), &h, static_cast<tagWTQR*>(nullptr), 248), -1);
    std::vector<size_t> sizes;
    for (const std::string& raw : packed.Take()) sizes.push_back(raw.size());
    EXPECT_EQ(sizes, (std::vector<size_t>{248, 0, 304}));
    EXPECT_EQ(HBToCJ(nullptr, nullptr, &h, &cj, 248), 0);
    EXPECT_EQ(cj.fund_account, 123);

    RawRecords failing(true);
    RecordingLog log;
    EXPECT_EQ(HBToWTQR(&log, failing.Packer(), &h, &wtEx, 304), 0);
    EXPECT_EQ(HBToCJ(&log, failing.Packer(), &h, &cj, 248), 0);
    EXPECT_EQ(HBToWTQR(nullptr, failing.Packer(), &h, &wt, 248), 0);
    std::vector<std::string> lines;
    for (const auto& l : log.lines) lines.push_back(l.function + "|" + std::to_string(l.code) + "|" + l.text);
    EXPECT_EQ(lines, (std::vector<std::string>{
                         "CTIKRONServiceImpl::HBToCJ_EX|15006|add raw fail, result: -1, size: 304!",
                         "CTIKRONServiceImpl::HBToCJ|15006|add raw fail, result: -1, size: 248!"}));
}

// The fund account text as a number: leading digits, at most the field's
// 19, capped at INT_MAX.
TEST(ReportPack, FundAccountTextToInteger) {
    const std::pair<std::string, int> rows[] = {{"00123", 123}, {"abc", 0}, {"", 0}, {"12ab3", 12}, {" 12", 0},
                                                {"2147483647", INT_MAX}, {"2147483648", INT_MAX},
                                                {std::string(19, '1'), INT_MAX}};
    for (const auto& [text, value] : rows) {
        char field[19] = {0};
        std::memcpy(field, text.data(), text.size());  // 19 digits: no terminator
        EXPECT_EQ(FundAccountToInt(field), value) << text;
    }
}

}  // namespace
