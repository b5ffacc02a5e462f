// Option and STP pushes end to end: the real plug-in, loaded by the host
// emulator, receives push datagrams on 127.0.0.1 and publishes each record
// under 620031 as named columns; bad records publish nothing and are logged.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "testing/frame_test_support.h"

namespace {

using hostemu::MessageSnapshot;
using hostemu::PackCell;
using hostemu::PackedBody;

using frametest::Datagram;

std::string Join(const std::vector<std::string>& fields) {
    std::string s;
    for (size_t i = 0; i < fields.size(); ++i) s += (i ? "," : "") + fields[i];
    return s;
}

// One expected column: name, declared width, value (with its cell kind).
struct Col {
    std::string name;
    PackCell value;
    int width = 255;
};

// ---- realistic records: datagram fields and the body they must give ------

const char kStpInfo[] = "CN:撤销最新委托|CO:撤销最早委托";

std::vector<std::string> StpFields() { return {"80012345", "8", "CN|CO", kStpInfo}; }
std::vector<Col> StpBody() {
    return {{"fund_account", "80012345"},
            {"branch_no", 8},
            {"stp_strategy_str", "CN|CO"},
            {"stp_strategy_info", kStpInfo, 1023}};
}

std::vector<std::string> ExerciseFields() {
    return {"80012345", "8", "20241220", "F4", "IO2412-C-3900", "0001234567", "30017", "1", "5", "8",
            "150102", "0", ""};
}
std::vector<Col> ExerciseBody() {
    return {{"fund_account", "80012345"}, {"branch_no", 8},           {"init_date", 20241220},
            {"exchange_type", "F4"},      {"option_code", "IO2412-C-3900"},
            {"stock_account", "0001234567"}, {"entrust_no", 30017},   {"exercise_type", '1'},
            {"exercise_amount", 5},       {"exercise_status", '8'},   {"report_time", 150102},
            {"error_no", 0},              {"error_info", ""}};
}

// A refused option entrust: no deal part yet, the back end's error at the end.
const char kEntrustError[] = "可用资金不足";
std::vector<std::string> EntrustFields() {
    return {"80012345", "8",   "F2",    "m2505-C-3000", "20250102", "80012345", "0", "0", "0165",
            "E2301",    "01234567", "01234567", "0", "C", "17", "1", "1", "O", "0", "9", "30018",
            "",         "",    "0",     "0",            "",         "93102",    "5", "30018", "126.5",
            "0",        "260", kEntrustError};
}
std::vector<Col> ReportHead(const char* exch, const char* code) {
    return {{"fund_account", "80012345"}, {"branch_no", 8}, {"exchange_type", exch}, {"option_code", code}};
}
std::vector<Col> EntrustBody() {
    std::vector<Col> c = ReportHead("F2", "m2505-C-3000");
    std::vector<Col> rest = {
        {"init_date", 20250102},     {"client_id", "80012345"},   {"real_type", '0'},
        {"real_status", '0'},        {"report_seat", "0165"},     {"report_no", "E2301"},
        {"report_account", "01234567"}, {"stock_account", "01234567"}, {"opthold_type", '0'},
        {"option_type", 'C'},        {"record_no", 17},           {"report_bs", '1'},
        {"entrust_bs", '1'},         {"entrust_oc", 'O'},         {"covered_flag", '0'},
        {"entrust_status", '9'},     {"entrust_no", 30018},       {"business_id", ""},
        {"business_amount", 0.0},    {"opt_business_price", 0.0}, {"business_time", 0},
        {"extern_code", ""},         {"report_time", 93102},      {"entrust_amount", 5},
        {"batch_no", 30018},         {"opt_entrust_price", 126.5}, {"entrust_type", '0'},
        {"error_no", 260},           {"error_info", kEntrustError}};
    c.insert(c.end(), rest.begin(), rest.end());
    return c;
}

std::vector<std::string> DealFields() {
    return {"80012345", "8",        "F1",       "SR505C6000", "20250102", "80012345", "0", "0", "0271",
            "Z88120",   "09876543", "09876543", "1",          "C",        "3",        "2", "2", "C",
            "0",        "8",        "30021",    "D000123",    "2",        "87.5",     "101512",
            "EX771",    "101511",   "2",        "30021",      "87.5",     "0"};
}
std::vector<Col> DealBody() {
    std::vector<Col> c = ReportHead("F1", "SR505C6000");
    std::vector<Col> rest = {
        {"init_date", 20250102},     {"client_id", "80012345"},   {"real_type", '0'},
        {"real_status", '0'},        {"report_seat", "0271"},     {"report_no", "Z88120"},
        {"report_account", "09876543"}, {"stock_account", "09876543"}, {"opthold_type", '1'},
        {"option_type", 'C'},        {"record_no", 3},            {"report_bs", '2'},
        {"entrust_bs", '2'},         {"entrust_oc", 'C'},         {"covered_flag", '0'},
        {"entrust_status", '8'},     {"entrust_no", 30021},       {"business_id", "D000123"},
        {"business_amount", 2.0},    {"opt_business_price", 87.5}, {"business_time", 101512},
        {"extern_code", "EX771"},    {"report_time", 101511},     {"entrust_amount", 2},
        {"batch_no", 30021},         {"opt_entrust_price", 87.5}, {"entrust_type", '0'}};
    c.insert(c.end(), rest.begin(), rest.end());
    return c;
}

std::vector<std::string> QuoteFields() {
    return {"F3",    "au2506C600", "au2506", "C",     "600",      "18.52",   "18.6",  "19.34",
            "19.9",  "18.1",       "19.3",   "12",    "19.4",     "8",       "3520",  "68123400.0",
            "10422", "45.3",       "0.02",   "0",     "20250425", "101530"};
}
std::vector<Col> QuoteBody() {
    return {{"exchange_type", "F3"},       {"option_code", "au2506C600"}, {"underlying_code", "au2506"},
            {"option_type", 'C'},          {"exercise_price", 600.0},     {"pre_square_price", 18.52},
            {"open_price", 18.6},          {"last_price", 19.34},         {"high_price", 19.9},
            {"low_price", 18.1},           {"bid_price", 19.3},           {"bid_amount", 12},
            {"ask_price", 19.4},           {"ask_amount", 8},             {"business_amount", 3520},
            {"business_balance", 68123400.0}, {"open_interest", 10422},   {"uplimited_price", 45.3},
            {"downlimited_price", 0.02},   {"square_price", 0.0},         {"exercise_date", 20250425},
            {"quote_time", 101530}};
}

struct PushCase {
    char type;
    const char* function;
    int issueType;
    std::vector<std::string> (*fields)();
    std::vector<Col> (*body)();
};

const PushCase kCases[] = {
    {'S', "CTIKRONServiceImpl::DealPUSH_STP", 33400, StpFields, StpBody},
    {'D', "CTIKRONServiceImpl::DealPUSH_EXERCISESTATUS", 33401, ExerciseFields, ExerciseBody},
    {'X', "CTIKRONServiceImpl::DealPUSH_OPT_ENTRUST", 33402, EntrustFields, EntrustBody},
    {'Y', "CTIKRONServiceImpl::DealPUSH_OPT_CJHB", 33403, DealFields, DealBody},
    {'Z', "CTIKRONServiceImpl::DealPUSH_OPT_HQ", 33404, QuoteFields, QuoteBody},
};

using frametest::Decode;

void ExpectKey(const MessageSnapshot& m, const std::vector<std::string>& cols, const std::vector<PackCell>& vals) {
    PackedBody k = Decode(m.Key());
    ASSERT_EQ(cols.size(), k.columns.size());
    ASSERT_EQ(1u, k.rows.size());
    for (size_t i = 0; i < cols.size(); ++i) {
        EXPECT_EQ(cols[i], k.columns[i].name);
        EXPECT_EQ('S', k.columns[i].type);
        EXPECT_EQ(255, k.columns[i].width);
        EXPECT_TRUE(k.rows[0][i] == vals[i]) << cols[i] << ": " << k.rows[0][i].Text();
    }
}

void ExpectBody(const MessageSnapshot& m, const std::vector<Col>& want) {
    PackedBody b = Decode(m.Body());
    ASSERT_EQ(want.size(), b.columns.size());
    ASSERT_EQ(1u, b.rows.size());
    ASSERT_EQ(want.size(), b.rows[0].size());
    for (size_t i = 0; i < want.size(); ++i) {
        SCOPED_TRACE(want[i].name);
        EXPECT_EQ(want[i].name, b.columns[i].name);
        EXPECT_EQ('S', b.columns[i].type);
        EXPECT_EQ(want[i].width, b.columns[i].width);
        EXPECT_EQ(4, b.columns[i].scale);
        const PackCell& got = b.rows[0][i];
        EXPECT_EQ(want[i].value.kind, got.kind);
        EXPECT_TRUE(got == want[i].value) << "got " << got.Text() << ", want " << want[i].value.Text();
    }
}

class PushRecords : public frametest::UdpPlugin {
protected:
    void SetUp() override { StartUdp(); }
    // Pushes published so far (the exchange-status marker and the
    // service's own traffic left out).
    std::vector<MessageSnapshot> Pushes() {
        std::vector<MessageSnapshot> out;
        for (auto& m : host_->Center().Messages())
            if (m.FunctionNo() == 620031) out.push_back(m);
        return out;
    }
    // Sends a marker (an exchange status: two messages under 620003) and
    // waits, bounded, until it was published: everything before it is done.
    void Flush() {
        ++markers_;
        Send(Datagram('A', "ZZ,1,1,"));
        EXPECT_TRUE(frametest::WaitUntil([&] { return Published().size() - Pushes().size() >= 2 * markers_; }))
            << "marker not published";
    }
    size_t markers_ = 0;
};

TEST_F(PushRecords, EveryTypeIsPublishedWithEveryField) {
    for (const PushCase& c : kCases) Send(Datagram(c.type, Join(c.fields())));
    // The record ends at the last '&': what follows is not part of it.
    Send(Datagram('Z', Join(QuoteFields()) + "&trailer,1,2"));
    Flush();
    auto msgs = Pushes();
    ASSERT_EQ(6u, msgs.size());
    for (size_t i = 0; i < 6; ++i) {
        const PushCase& c = kCases[i < 5 ? i : 4];
        SCOPED_TRACE(c.function);
        EXPECT_EQ(0, msgs[i].PacketType());
        EXPECT_EQ(620031, msgs[i].FunctionNo());
        EXPECT_EQ(c.issueType, msgs[i].IssueType());
        if (c.type == 'Z') {
            ExpectKey(msgs[i], {"fund_account"}, {"OPTHQ"});
        } else {
            ExpectKey(msgs[i], {"branch_no", "fund_account"}, {8, "80012345"});
        }
        ExpectBody(msgs[i], c.body());
    }
    for (const PushCase& c : kCases) EXPECT_EQ(0u, host_->Log().CountContaining(c.function)) << c.function;
}

TEST_F(PushRecords, FieldsAtTheirLimitsAndTrailingFieldsAreAccepted) {
    // Texts of capacity-1 characters, int extremes, a signed price, and a
    // field the back end may add later (ignored).
    std::vector<std::string> f = QuoteFields();
    f[0] = std::string(10, 'E');
    f[1] = std::string(30, 'c');
    f[5] = "-1.5e2";
    f[11] = "2147483647";
    f[13] = "-2147483648";
    f.push_back("future-field");
    Send(Datagram('Z', Join(f)));
    std::vector<std::string> s = StpFields();
    s[3] = std::string(1023, 'i');
    Send(Datagram('S', Join(s)));
    Flush();
    auto msgs = Pushes();
    ASSERT_EQ(2u, msgs.size());
    PackedBody q = Decode(msgs[0].Body());
    ASSERT_EQ(22u, q.columns.size());
    EXPECT_EQ(std::string(10, 'E'), q.Str(0, "exchange_type"));
    EXPECT_EQ(std::string(30, 'c'), q.Str(0, "option_code"));
    EXPECT_TRUE(*q.Get(0, "pre_square_price") == PackCell(-150.0));
    EXPECT_EQ(2147483647, q.Int(0, "bid_amount"));
    EXPECT_EQ(-2147483648LL, q.Int(0, "ask_amount"));
    PackedBody b = Decode(msgs[1].Body());
    EXPECT_EQ(std::string(1023, 'i'), b.Str(0, "stp_strategy_info"));
}

TEST_F(PushRecords, BadRecordsPublishNothingAndAreLogged) {
    struct Bad {
        size_t caseIndex;
        std::string text;
        std::string line;
    };
    auto with = [](std::vector<std::string> f, size_t i, const std::string& v) {
        f[i] = v;
        return Join(f);
    };
    auto without = [](std::vector<std::string> f, size_t n) {
        f.resize(f.size() - n);
        return Join(f);
    };
    const std::vector<Bad> bad = {
        // Truncated: the last field (a text may be empty, but must be there).
        {0, without(StpFields(), 1), "解析记录失败, 错误代码: -2, 字段: 4(stp_strategy_info)!"},
        {1, without(ExerciseFields(), 2), "解析记录失败, 错误代码: -2, 字段: 12(error_no)!"},
        {2, without(EntrustFields(), 1), "解析记录失败, 错误代码: -2, 字段: 33(error_info)!"},
        {3, without(DealFields(), 10), "解析记录失败, 错误代码: -2, 字段: 22(business_id)!"},
        {4, "F3", "解析记录失败, 错误代码: -2, 字段: 2(option_code)!"},
        // A deal record is not an entrust record: its last two fields are missing.
        {2, Join(DealFields()), "解析记录失败, 错误代码: -2, 字段: 32(error_no)!"},
        // Over-long texts.
        {0, with(StpFields(), 0, std::string(19, '8')), "解析记录失败, 错误代码: -2, 字段: 1(fund_account)!"},
        {4, with(QuoteFields(), 1, std::string(31, 'c')), "解析记录失败, 错误代码: -2, 字段: 2(option_code)!"},
        {0, with(StpFields(), 3, std::string(1024, 'i')), "解析记录失败, 错误代码: -2, 字段: 4(stp_strategy_info)!"},
        // Over-long, out-of-range and malformed numbers.
        {3, with(DealFields(), 20, std::string(17, '3')), "解析记录失败, 错误代码: -3, 字段: 21(entrust_no)!"},
        {1, with(ExerciseFields(), 8, "2147483648"), "解析记录失败, 错误代码: -3, 字段: 9(exercise_amount)!"},
        {4, with(QuoteFields(), 7, std::string(33, '1')), "解析记录失败, 错误代码: -3, 字段: 8(last_price)!"},
        {4, with(QuoteFields(), 7, "19.3x"), "解析记录失败, 错误代码: -3, 字段: 8(last_price)!"},
        {2, with(EntrustFields(), 1, "8a"), "解析记录失败, 错误代码: -3, 字段: 2(branch_no)!"},
        // An empty character field.
        {4, with(QuoteFields(), 3, ""), "解析记录失败, 错误代码: -3, 字段: 4(option_type)!"},
    };
    for (const Bad& b : bad) Send(Datagram(kCases[b.caseIndex].type, b.text));
    // Framing: declared length beyond the text, and no header at all.
    Send(std::string("Y00099") + Join(DealFields()).substr(0, 50));
    Send("D");
    Flush();
    EXPECT_EQ(0u, Pushes().size());
    for (const Bad& b : bad) {
        size_t same = 0;  // some refusals are alike on purpose
        for (const Bad& o : bad) same += o.caseIndex == b.caseIndex && o.line == b.line;
        EXPECT_EQ(same, LogLines(kCases[b.caseIndex].function, b.line)) << b.line;
    }
    EXPECT_EQ(1u, LogLines("CTIKRONServiceImpl::DealPUSH_OPT_CJHB", "包格式不对, 错误代码: -2!"));
    EXPECT_EQ(1u, LogLines("CTIKRONServiceImpl::DealPUSH_EXERCISESTATUS", "包格式不对, 错误代码: -2!"));

    // The handlers go on working after refusals.
    Send(Datagram('Y', Join(DealFields())));
    Flush();
    ASSERT_EQ(1u, Pushes().size());
    ExpectBody(Pushes()[0], DealBody());
}

}  // namespace
