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

// One expected value of a packed record: kind 'i' int, 'd' double, 's'
// terminated text, 'c' one character; every value given as its text.
struct Cell {
    std::size_t offset;
    char kind;
    std::string want;
};

void ExpectCells(const std::string& raw, std::initializer_list<Cell> cells) {
    for (const Cell& c : cells) {
        ASSERT_LT(c.offset, raw.size());
        std::string got;
        if (c.kind == 'i') got = std::to_string(At<int>(raw, c.offset));
        if (c.kind == 'd') got = std::to_string(At<double>(raw, c.offset));
        if (c.kind == 's') got = TextAt(raw, c.offset);
        if (c.kind == 'c') got = std::string(1, raw[c.offset]);
        EXPECT_EQ(c.want, got) << "at offset " << c.offset;
    }
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
    // The status keeps its first character only; frozen_fare (260) is not
    // filled; padding (105) and unused bytes (303) are zero.
    ExpectCells(r, {{0, 'i', "1001"},      {4, 's', "88001234"},       {25, 's', "F1"},
                    {36, 's', "B00012"},   {57, 's', "CF405"},         {87, 's', "买入"},
                    {96, 's', "开仓"},     {108, 'd', "15030.500000"}, {116, 'd', "2.000000"},
                    {124, 's', "投机"},    {136, 'i', "123"},          {140, 's', "R7788"},
                    {161, 's', "0101"},    {170, 's', "op1"},          {180, 'i', "3"},
                    {192, 'i', "1"},       {196, 'd', "15031.000000"}, {204, 'c', "7"},
                    {208, 'i', "8"},       {212, 'i', "4"},            {216, 'c', "1"},
                    {220, 'i', "5"},       {224, 'c', "2"},            {228, 'i', "20240315"},
                    {232, 'i', "93015"},   {236, 's', "C123"},         {260, 'd', "0.000000"},
                    {268, 's', "occ"},     {105, 'c', std::string(1, '\0')}, {303, 'c', std::string(1, '\0')}});
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
    // The next field after the bounded code is intact.
    ExpectCells(r, {{57, 's', "ABCDEFGHIJKL"}, {70, 's', "买入"},     {88, 'd', "15030.500000"}, {116, 'i', "123"},
                    {184, 'c', "7"},            {208, 'i', "20240315"}, {212, 'i', "93015"},        {216, 's', "C123"}});
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
    ASSERT_EQ(e.size(), 304u);
    // 220-256 are not filled from the report.
    ExpectCells(e, {{36, 's', "CF405"},   {84, 's', "投机"},  {96, 'i', "123"},      {152, 'i', "1"},
                    {156, 'd', "15031.000000"}, {164, 'c', "7"}, {188, 'i', "20240315"}, {192, 'i', "93015"},
                    {196, 's', "C123"},   {220, 'i', "0"},    {224, 's', ""},         {248, 'i', "0"},
                    {252, 'i', "0"},      {256, 'i', "0"},    {268, 's', "occ"}});

    const std::string& l = packer.raws[1];
    ASSERT_EQ(l.size(), 248u);
    ExpectCells(l, {{49, 's', "买入"}, {76, 'i', "123"}, {144, 'c', "7"}, {172, 'i', "93015"}, {176, 's', "C123"}});
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
