// Option and STP pushes: datagrams over 127.0.0.1 into the loaded plug-in,
// each record published under 620031 as named columns (all S255 but the
// STP strategy text); bad records publish nothing and are logged.
#include "tests/e2e_support.h"

namespace {

using namespace e2e;

std::vector<std::string> Split(const std::string& s) {
    std::vector<std::string> out(1);
    for (char c : s) {
        if (c == ',') {
            out.emplace_back();
        } else {
            out.back().push_back(c);
        }
    }
    return out;
}
std::string Join(const std::vector<std::string>& fields) {
    std::string s;
    for (size_t i = 0; i < fields.size(); ++i) s += (i ? "," : "") + fields[i];
    return s;
}
// A message shown without the ":S255" of its columns.
std::string Brief(const MessageSnapshot& m) {
    std::string s = Show(m);
    for (size_t p; (p = s.find(":S255")) != std::string::npos;) s.erase(p, 5);
    return s;
}

const char kHead[] = "620031/334";
const char kKey[] = " key[branch_no fund_account = I8 80012345] body[";
const char kOption[] = "fund_account branch_no exchange_type option_code init_date client_id real_type real_status "
                       "report_seat report_no report_account stock_account opthold_type option_type record_no report_bs "
                       "entrust_bs entrust_oc covered_flag entrust_status entrust_no business_id business_amount "
                       "opt_business_price business_time extern_code report_time entrust_amount batch_no "
                       "opt_entrust_price entrust_type";

// Realistic records: datagram fields and the message they must give.
struct PushCase {
    char type;
    const char* function;
    std::string fields, message;
} const kCases[] = {
    {'S', "DealPUSH_STP", "80012345,8,CN|CO,CN:撤销最新委托|CO:撤销最早委托",
     kHead + std::string("00") + kKey + "fund_account branch_no stp_strategy_str stp_strategy_info:S1023 = 80012345 I8 "
                                          "CN|CO CN:撤销最新委托|CO:撤销最早委托]"},
    {'D', "DealPUSH_EXERCISESTATUS", "80012345,8,20241220,F4,IO2412-C-3900,0001234567,30017,1,5,8,150102,0,",
     kHead + std::string("01") + kKey + "fund_account branch_no init_date exchange_type option_code stock_account "
                                          "entrust_no exercise_type exercise_amount exercise_status report_time error_no "
                                          "error_info = 80012345 I8 I20241220 F4 IO2412-C-3900 0001234567 I30017 C1 I5 "
                                          "C8 I150102 I0 ]"},
    // A refused option entrust: no deal part yet, the back end's error at the end.
    {'X', "DealPUSH_OPT_ENTRUST",
     "80012345,8,F2,m2505-C-3000,20250102,80012345,0,0,0165,E2301,01234567,01234567,0,C,17,1,1,O,0,9,30018,,,0,0,,"
     "93102,5,30018,126.5,0,260,可用资金不足",
     kHead + std::string("02") + kKey + kOption + " error_no error_info = 80012345 I8 F2 m2505-C-3000 I20250102 80012345 "
                                                  "C0 C0 0165 E2301 01234567 01234567 C0 CC I17 C1 C1 CO C0 C9 I30018  "
                                                  "D0.0000 D0.0000 I0  I93102 I5 I30018 D126.5000 C0 I260 可用资金不足]"},
    {'Y', "DealPUSH_OPT_CJHB",
     "80012345,8,F1,SR505C6000,20250102,80012345,0,0,0271,Z88120,09876543,09876543,1,C,3,2,2,C,0,8,30021,D000123,2,"
     "87.5,101512,EX771,101511,2,30021,87.5,0",
     kHead + std::string("03") + kKey + kOption + " = 80012345 I8 F1 SR505C6000 I20250102 80012345 C0 C0 0271 Z88120 "
                                                  "09876543 09876543 C1 CC I3 C2 C2 CC C0 C8 I30021 D000123 D2.0000 "
                                                  "D87.5000 I101512 EX771 I101511 I2 I30021 D87.5000 C0]"},
    {'Z', "DealPUSH_OPT_HQ",
     "F3,au2506C600,au2506,C,600,18.52,18.6,19.34,19.9,18.1,19.3,12,19.4,8,3520,68123400.0,10422,45.3,0.02,0,20250425,"
     "101530",
     kHead + std::string("04 key[fund_account = OPTHQ] body[exchange_type option_code underlying_code option_type "
                         "exercise_price pre_square_price open_price last_price high_price low_price bid_price bid_amount "
                         "ask_price ask_amount business_amount business_balance open_interest uplimited_price "
                         "downlimited_price square_price exercise_date quote_time = F3 au2506C600 au2506 CC D600.0000 "
                         "D18.5200 D18.6000 D19.3400 D19.9000 D18.1000 D19.3000 I12 D19.4000 I8 I3520 D68123400.0000 "
                         "I10422 D45.3000 D0.0200 D0.0000 I20250425 I101530]")},
};

class PushRecords : public Plugin {
protected:
    void SetUp() override { StartUdp(); }
    void Send(char type, const std::string& text) { Plugin::Send(Datagram(type, text)); }
    size_t Lines(const char* function, const std::string& line) {
        size_t n = 0;
        for (const auto& l : host_->Log().Lines())
            n += l.function == std::string("CTIKRONServiceImpl::") + function && l.raw == line && l.code == 15006;
        return n;
    }
};

TEST_F(PushRecords, EveryTypeIsPublishedWithEveryField) {
    for (const PushCase& c : kCases) Send(c.type, c.fields);
    // The record ends at the last '&': what follows is not part of it.
    Send('Z', kCases[4].fields + "&trailer,1,2");
    std::vector<std::string> want;
    for (const PushCase& c : kCases) want.push_back(c.message);
    want.push_back(kCases[4].message);
    std::vector<std::string> got;
    for (const auto& m : Flush()) got.push_back(Brief(m));
    EXPECT_EQ(want, got);
    for (const PushCase& c : kCases) EXPECT_EQ(0u, LogCount(c.function)) << c.function;
}

// Texts of capacity-1 characters, int extremes, a signed price, and a field
// the back end may add later (ignored).
TEST_F(PushRecords, FieldsAtTheirLimitsAndTrailingFieldsAreAccepted) {
    std::vector<std::string> f = Split(kCases[4].fields);
    f[0] = std::string(10, 'E');
    f[1] = std::string(30, 'c');
    f[5] = "-1.5e2";
    f[11] = "2147483647";
    f[13] = "-2147483648";
    f.push_back("future-field");
    Send('Z', Join(f));
    Send('S', "80012345,8,CN|CO," + std::string(1023, 'i'));
    auto msgs = Flush();
    ASSERT_EQ(2u, msgs.size());
    const std::string q = Brief(msgs[0]);
    EXPECT_EQ(" = " + std::string(10, 'E') + " " + std::string(30, 'c') + " au2506 CC D600.0000 D-150.0000 D18.6000 "
              "D19.3400 D19.9000 D18.1000 D19.3000 I2147483647 D19.4000 I-2147483648 ",
              q.substr(q.rfind(" = "), q.find("I3520") - q.rfind(" = ")));
    EXPECT_EQ(std::string(1023, 'i') + "]", Brief(msgs[1]).substr(Brief(msgs[1]).size() - 1024));
}

TEST_F(PushRecords, BadRecordsPublishNothingAndAreLogged) {
    auto with = [](size_t c, size_t i, const std::string& v) {
        std::vector<std::string> f = Split(kCases[c].fields);
        f[i] = v;
        return Join(f);
    };
    auto without = [](size_t c, size_t n) {
        std::vector<std::string> f = Split(kCases[c].fields);
        f.resize(f.size() - n);
        return Join(f);
    };
    const std::string failed = "解析记录失败, 错误代码: -";
    const struct Bad {
        size_t c;
        std::string text, line;
    } bad[] = {
        // Truncated: the last field (a text may be empty, but must be there).
        {0, without(0, 1), "2, 字段: 4(stp_strategy_info)!"},
        {1, without(1, 2), "2, 字段: 12(error_no)!"},
        {2, without(2, 1), "2, 字段: 33(error_info)!"},
        {3, without(3, 10), "2, 字段: 22(business_id)!"},
        {4, "F3", "2, 字段: 2(option_code)!"},
        // A deal record is not an entrust record: its last two fields are missing.
        {2, kCases[3].fields, "2, 字段: 32(error_no)!"},
        // Over-long texts.
        {0, with(0, 0, std::string(19, '8')), "2, 字段: 1(fund_account)!"},
        {4, with(4, 1, std::string(31, 'c')), "2, 字段: 2(option_code)!"},
        {0, with(0, 3, std::string(1024, 'i')), "2, 字段: 4(stp_strategy_info)!"},
        // Over-long, out-of-range and malformed numbers.
        {3, with(3, 20, std::string(17, '3')), "3, 字段: 21(entrust_no)!"},
        {1, with(1, 8, "2147483648"), "3, 字段: 9(exercise_amount)!"},
        {4, with(4, 7, std::string(33, '1')), "3, 字段: 8(last_price)!"},
        {4, with(4, 7, "19.3x"), "3, 字段: 8(last_price)!"},
        {2, with(2, 1, "8a"), "3, 字段: 2(branch_no)!"},
        // An empty character field.
        {4, with(4, 3, ""), "3, 字段: 4(option_type)!"},
    };
    for (const Bad& b : bad) Send(kCases[b.c].type, b.text);
    // Framing: declared length beyond the text, and no header at all.
    Plugin::Send("Y00099" + kCases[3].fields.substr(0, 50));
    Plugin::Send("D");
    EXPECT_TRUE(Flush().empty());
    for (const Bad& b : bad) {
        size_t same = 0;  // some refusals are alike on purpose
        for (const Bad& o : bad) same += o.c == b.c && o.line == b.line;
        EXPECT_EQ(same, Lines(kCases[b.c].function, failed + b.line)) << b.line;
    }
    EXPECT_EQ(1u, Lines("DealPUSH_OPT_CJHB", "包格式不对, 错误代码: -2!"));
    EXPECT_EQ(1u, Lines("DealPUSH_EXERCISESTATUS", "包格式不对, 错误代码: -2!"));
    // The handlers go on working after refusals.
    Send('Y', kCases[3].fields);
    auto msgs = Flush();
    ASSERT_EQ(1u, msgs.size());
    EXPECT_EQ(kCases[3].message, Brief(msgs[0]));
}

}  // namespace
