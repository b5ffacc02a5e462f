#include "report/report_pack.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

namespace {

// Packer that keeps the raw values it is given and answers PackRaw with a
// chosen result.
class RawPacker : public IF2Packer {
public:
    int QueryInterface(const char*, IKnown**) override { return -1; }
    int AddRef() override { return 1; }
    int Release() override { return 1; }
    int BeginPack() override { return 0; }
    int AddField(const char*, char, int, int) override { return 0; }
    int AddStr(const char*) override { return 0; }
    int AddInt(int) override { return 0; }
    int AddDouble(double) override { return 0; }
    int AddChar(char) override { return 0; }
    int PackRaw(const void* data, int len) override {
        const char* p = static_cast<const char*>(data);
        raws.emplace_back(p, p + len);
        return result;
    }
    int EndPack() override { return 0; }
    void* GetPackBuf() override { return nullptr; }
    int GetPackLen() override { return 0; }
    void FreeMem(void*) override {}

    int result = 0;
    std::vector<std::string> raws;
};

class LineLog : public ILogService {
public:
    int QueryInterface(const char*, IKnown**) override { return -1; }
    int AddRef() override { return 1; }
    int Release() override { return 1; }
    int AddLog(const char* function, int code, const char* text) override {
        lines.push_back(std::string(function) + "|" + std::to_string(code) + "|" + text);
        return 0;
    }
    std::vector<std::string> lines;
};

template <typename T>
T At(const std::string& raw, std::size_t offset) {
    T v;
    std::memcpy(&v, raw.data() + offset, sizeof v);
    return v;
}

std::string TextAt(const std::string& raw, std::size_t offset) {
    return std::string(raw.c_str() + offset);
}

tagHB Report() {
    tagHB h;
    std::memset(&h, 0, sizeof h);
    h.entrust_no = 1001;
    std::strcpy(h.futures_account, "88001234");
    std::strcpy(h.futu_exch_type, "F1");
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
    h.cacel_amount = 1;
    h.entrust_price = 15031;
    std::strcpy(h.business_type, "B");
    std::strcpy(h.entrust_status, "7x");
    h.branch_no = 8;
    h.batch_no = 4;
    std::strcpy(h.futu_entrust_type, "1");
    h.amount_per_hand = 5;
    std::strcpy(h.forceclose_reason, "2");
    std::strcpy(h.confirm_no, "C123");
    h.curr_date = 20240315;
    h.curr_time = 93015;
    std::strcpy(h.entrust_occasion, "occ");
    h.weave_type = '3';
    std::strcpy(h.arbit_code, "SP1");
    h.time_condition = '1';
    h.volume_condition = '2';
    std::strcpy(h.futu_entrust_prop, "5");
    return h;
}

TEST(ReportLayout, WorkingReportReadsWireBytesAtTheirOffsets) {
    unsigned char raw[888] = {0};
    const int entrust_no = 4711;
    const double price = 12.25;
    const int fex = 9;
    std::memcpy(raw + 0, &entrust_no, 4);
    std::memcpy(raw + 57, "CF405", 6);
    std::memcpy(raw + 133, "00123", 6);
    std::memcpy(raw + 208, &price, 8);
    raw[216] = 'B';
    raw[608] = '7';
    std::memcpy(raw + 688, "pos", 4);
    raw[873] = '4';
    std::memcpy(raw + 884, &fex, 4);
    tagHB h;
    std::memcpy(&h, raw, sizeof h);
    EXPECT_EQ(h.entrust_no, 4711);
    EXPECT_STREQ(h.contract_code, "CF405");
    EXPECT_STREQ(h.fund_account, "00123");
    EXPECT_EQ(double{h.entrust_price}, 12.25);
    EXPECT_EQ(h.business_type[0], 'B');
    EXPECT_EQ(h.weave_type, '7');
    EXPECT_STREQ(h.szPositionStr, "pos");
    EXPECT_EQ(h.volume_condition, '4');
    EXPECT_EQ(h.fex_min_volume, 9);
}

TEST(ReportPack, ExtendedDealBytes) {
    RawPacker packer;
    LineLog log;
    tagHB h = Report();
    tagCJ_EX cj;
    std::memset(&cj, 0x7F, sizeof cj);  // the target is cleared first
    EXPECT_EQ(HBToCJ(&log, &packer, &h, &cj, 304), 0);
    ASSERT_EQ(packer.raws.size(), 1u);
    const std::string& r = packer.raws[0];
    ASSERT_EQ(r.size(), 304u);
    EXPECT_EQ(At<int>(r, 0), 1001);
    EXPECT_EQ(TextAt(r, 4), "88001234");
    EXPECT_EQ(TextAt(r, 25), "F1");
    EXPECT_EQ(TextAt(r, 36), "B00012");
    EXPECT_EQ(TextAt(r, 57), "CF405");
    EXPECT_EQ(TextAt(r, 87), "买入");
    EXPECT_EQ(TextAt(r, 96), "开仓");
    EXPECT_EQ(At<double>(r, 108), 15030.5);
    EXPECT_EQ(At<double>(r, 116), 2.0);
    EXPECT_EQ(TextAt(r, 124), "投机");
    EXPECT_EQ(At<int>(r, 136), 123);
    EXPECT_EQ(TextAt(r, 140), "R7788");
    EXPECT_EQ(TextAt(r, 161), "0101");
    EXPECT_EQ(TextAt(r, 170), "op1");
    EXPECT_EQ(At<int>(r, 180), 3);
    EXPECT_EQ(At<int>(r, 192), 1);
    EXPECT_EQ(At<double>(r, 196), 15031.0);
    EXPECT_EQ(r[204], '7');  // first character only
    EXPECT_EQ(At<int>(r, 208), 8);
    EXPECT_EQ(At<int>(r, 212), 4);
    EXPECT_EQ(r[216], '1');
    EXPECT_EQ(At<int>(r, 220), 5);
    EXPECT_EQ(r[224], '2');
    EXPECT_EQ(At<int>(r, 228), 20240315);
    EXPECT_EQ(At<int>(r, 232), 93015);
    EXPECT_EQ(TextAt(r, 236), "C123");
    EXPECT_EQ(At<double>(r, 260), 0.0);  // frozen_fare is not filled
    EXPECT_EQ(TextAt(r, 268), "occ");
    // Padding and unused bytes are zero.
    EXPECT_EQ(r[105], 0);
    EXPECT_EQ(r[303], 0);
    EXPECT_TRUE(log.lines.empty());
}

TEST(ReportPack, LegacyDealBoundsTheContractCode) {
    RawPacker packer;
    tagHB h = Report();
    std::strcpy(h.contract_code, "ABCDEFGHIJKLMNOPQR");
    tagCJ cj;
    EXPECT_EQ(HBToCJ(nullptr, &packer, &h, &cj, 248), 0);
    ASSERT_EQ(packer.raws.size(), 1u);
    const std::string& r = packer.raws[0];
    ASSERT_EQ(r.size(), 248u);
    EXPECT_EQ(TextAt(r, 57), "ABCDEFGHIJKL");
    EXPECT_EQ(TextAt(r, 70), "买入");  // the next field is intact
    EXPECT_EQ(At<double>(r, 88), 15030.5);
    EXPECT_EQ(At<int>(r, 116), 123);
    EXPECT_EQ(r[184], '7');
    EXPECT_EQ(At<int>(r, 208), 20240315);
    EXPECT_EQ(At<int>(r, 212), 93015);
    EXPECT_EQ(TextAt(r, 216), "C123");
}

TEST(ReportPack, EntrustConfirmationsInBothLayouts) {
    RawPacker packer;
    tagHB h = Report();
    std::strcpy(h.business_type, "0");
    tagWTQR_EX ex;
    tagWTQR legacy;
    EXPECT_EQ(HBToWTQR(nullptr, &packer, &h, &ex, 304), 0);
    EXPECT_EQ(HBToWTQR(nullptr, &packer, &h, &legacy, 248), 0);
    ASSERT_EQ(packer.raws.size(), 2u);
    const std::string& e = packer.raws[0];
    EXPECT_EQ(TextAt(e, 36), "CF405");
    EXPECT_EQ(TextAt(e, 84), "投机");
    EXPECT_EQ(At<int>(e, 96), 123);
    EXPECT_EQ(At<int>(e, 152), 1);
    EXPECT_EQ(At<double>(e, 156), 15031.0);
    EXPECT_EQ(e[164], '7');
    EXPECT_EQ(At<int>(e, 188), 20240315);
    EXPECT_EQ(At<int>(e, 192), 93015);
    EXPECT_EQ(TextAt(e, 196), "C123");
    // Not filled from the report.
    EXPECT_EQ(At<int>(e, 220), 0);
    EXPECT_EQ(TextAt(e, 224), "");
    EXPECT_EQ(At<int>(e, 248), 0);
    EXPECT_EQ(At<int>(e, 252), 0);
    EXPECT_EQ(At<int>(e, 256), 0);
    EXPECT_EQ(TextAt(e, 268), "occ");

    const std::string& l = packer.raws[1];
    ASSERT_EQ(l.size(), 248u);
    EXPECT_EQ(TextAt(l, 49), "买入");
    EXPECT_EQ(At<int>(l, 76), 123);
    EXPECT_EQ(l[144], '7');
    EXPECT_EQ(At<int>(l, 172), 93015);
    EXPECT_EQ(TextAt(l, 176), "C123");
}

TEST(ReportPack, FailedPackIsLoggedUnderTheDealNames) {
    RawPacker packer;
    packer.result = -7;
    LineLog log;
    tagHB h = Report();
    tagCJ_EX cjEx;
    tagCJ cj;
    tagWTQR_EX wtEx;
    tagWTQR wt;
    EXPECT_EQ(HBToCJ(&log, &packer, &h, &cjEx, 304), 0);
    EXPECT_EQ(HBToCJ(&log, &packer, &h, &cj, 248), 0);
    EXPECT_EQ(HBToWTQR(&log, &packer, &h, &wtEx, 304), 0);
    EXPECT_EQ(HBToWTQR(&log, &packer, &h, &wt, 248), 0);
    EXPECT_EQ(HBToWTQR(nullptr, &packer, &h, &wt, 248), 0);  // no log: no line
    const std::vector<std::string> expected = {
        "CTIKRONServiceImpl::HBToCJ_EX|15006|add raw fail, result: -7, size: 304!",
        "CTIKRONServiceImpl::HBToCJ|15006|add raw fail, result: -7, size: 248!",
        "CTIKRONServiceImpl::HBToCJ_EX|15006|add raw fail, result: -7, size: 304!",
        "CTIKRONServiceImpl::HBToCJ|15006|add raw fail, result: -7, size: 248!",
    };
    EXPECT_EQ(log.lines, expected);
}

TEST(ReportPack, SizeIsClampedAndNullArgumentsAreRefused) {
    RawPacker packer;
    tagHB h = Report();
    tagCJ cj;
    EXPECT_EQ(HBToCJ(nullptr, &packer, &h, &cj, 4096), 0);
    EXPECT_EQ(HBToCJ(nullptr, &packer, &h, &cj, -5), 0);
    ASSERT_EQ(packer.raws.size(), 2u);
    EXPECT_EQ(packer.raws[0].size(), 248u);
    EXPECT_EQ(packer.raws[1].size(), 0u);

    EXPECT_EQ(HBToCJ(nullptr, &packer, nullptr, &cj, 248), -1);
    EXPECT_EQ(HBToWTQR(nullptr, &packer, &h, static_cast<tagWTQR*>(nullptr), 248), -1);
    EXPECT_EQ(packer.raws.size(), 2u);
    // Without a packer the record is still filled.
    EXPECT_EQ(HBToCJ(nullptr, nullptr, &h, &cj, 248), 0);
    EXPECT_EQ(cj.fund_account, 123);
}

TEST(ReportPack, FundAccountTextToInteger) {
    struct Case {
        const char* text;
        int value;
    } cases[] = {{"00123", 123}, {"abc", 0}, {"", 0}, {"12ab3", 12}, {" 12", 0},
                 {"2147483647", INT_MAX}, {"999999999999999999", INT_MAX}};
    for (const Case& c : cases) {
        char field[19] = {0};
        std::strncpy(field, c.text, sizeof field - 1);
        EXPECT_EQ(FundAccountToInt(field), c.value) << c.text;
    }
    char full[19];
    std::memset(full, '1', sizeof full);  // no terminator: at most 19 digits
    EXPECT_EQ(FundAccountToInt(full), INT_MAX);
}

}  // namespace
