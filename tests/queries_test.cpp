// Quote queries 620200, 620205, 620201 and 620207 through the host
// emulator: named-column and raw answers, key bounds, unknown keys, the
// error answer, refused requests and the "all exchanges" rules.
#include "quote/quote_text.h"
#include "tests/e2e_support.h"

namespace {

using namespace e2e;

PackedBody KeyRows(const char* field, const std::vector<std::string>& keys, int resultType) {
    PackedBody b;
    b.columns = {{"result_type", 'S', 255, 4}, {field, 'S', 255, 4}};
    for (const std::string& k : keys) b.rows.push_back({PackCell(resultType), PackCell(k)});
    return b;
}

// One column per row: the values of `column`, or of the first column.
std::vector<std::string> Column(const MessageSnapshot& m, const char* column = nullptr) {
    PackedBody b = Decode(m.Body());
    std::vector<std::string> out;
    for (size_t r = 0; r < b.rows.size(); ++r) out.push_back(column ? b.Str(r, column) : b.rows[r].at(0).bytes);
    return out;
}

// The named columns of a one-row answer, in the order given.
PackedBody Pick(const PackedBody& b, const std::vector<std::string>& names) {
    PackedBody out;
    out.rows.resize(b.rows.size() == 1 ? 1 : 0);
    for (const auto& n : names) {
        if (b.Find(n) < 0) continue;
        out.columns.push_back(b.columns[b.Find(n)]);
        if (!out.rows.empty()) out.rows[0].push_back(*b.Get(0, n));
    }
    return out;
}

class Queries : public Plugin {
protected:
    void SetUp() override { Start(); }
    MessageSnapshot Answer(int function, const PackedBody& body) {
        MessageSnapshot a;
        EXPECT_TRUE(Ask(function, body, &a)) << function;
        return a;
    }
};

TEST_F(Queries, FieldAnswersHaveTheColumnsInOrderAndTypedValues) {
    Put(HqEx("IF2409", 3850.2, 101530));  // a 6-character code lands in both single-leg tables
    Put(Arg("SPD m2409&m2501", 12.5));
    PackedBody b = Decode(Answer(620205, KeyRows("contract_code", {"IF2409"}, 1)).Body());
    ASSERT_EQ(47u, b.columns.size());
    // The exchange column moved to the end, before the time stamp.
    EXPECT_EQ("form_buy_price ask_volume5 futu_exch_type time_stamp",
              b.columns[19].name + " " + b.columns[44].name + " " + b.columns[45].name + " " + b.columns[46].name);
    EXPECT_EQ("contract_code:S255 futu_last_price:S255 buy_high_amount:S255 ask_price5:S255 futu_exch_type:S255 "
              "time_stamp:S255 = IF2409 D3850.2000 I12 D3852.2000 F1 I101530",
              Show(Pick(b, {"contract_code", "futu_last_price", "buy_high_amount", "ask_price5", "futu_exch_type",
                            "time_stamp"})));
    // The single-leg query has the same columns without the time stamp.
    b = Decode(Answer(620200, KeyRows("contract_code", {"IF2409"}, 1)).Body());
    EXPECT_EQ(46u, b.columns.size());
    EXPECT_EQ("futu_exch_type", b.columns.back().name);
    EXPECT_EQ("arbicontract_id:S255 futu_exch_type:S255 first_code:S255 second_code:S255 arbi_type:S255 "
              "buy_price:S255 buy_amount:S255 buy_total_amount:S255 sale_price:S255 sale_amount:S255 "
              "sale_total_amount:S255 futu_high_price:S255 futu_low_price:S255 uplimited_price:S255 "
              "downlimited_price:S255 = SPD m2409&m2501 F2 m2409 m2501 C1 D12.5000 I3 I0 D0.0000 I0 I0 D0.0000 "
              "D0.0000 D0.0000 D-87.5000",
              Show(Decode(Answer(620201, KeyRows("arbicontract_id", {"SPD m2409&m2501"}, 1)).Body())));
}

TEST_F(Queries, RawAnswersCarryWholeRecordsUnderAOneByteWiderColumn) {
    tagHQInfo_EX ex = HqEx("IF2409", 3850.2);
    Put(ex);
    tagHQInfo single{};
    ASSERT_EQ(0, ConvertHq22To16(&ex, single));
    Put(Arg("SPD m2409&m2501", 12.5));
    Put(Exch("F1", "2", 1));
    struct Case {
        int function;
        const char* key;
        std::string value, record, show;
    } cases[] = {
        {620200, "contract_code", "IF2409", Bytes(single), "futu_hq_raw:R309 = R<308>"},
        {620205, "contract_code", "IF2409", Bytes(ex), "futu_hq_raw:R329 = R<328>"},
        {620201, "arbicontract_id", "SPD m2409&m2501", Bytes(Arg("SPD m2409&m2501", 12.5)), "futu_hq_raw:R129 = R<128>"},
        {620207, "futu_exch_type", "F1", Bytes(Exch("F1", "2", 1)), "futu_exch_status_raw:R13 = R<12>"},
    };
    for (const Case& c : cases) {
        MessageSnapshot a = Answer(c.function, KeyRows(c.key, {c.value}, 0));
        EXPECT_EQ(c.show, Show(Decode(a.Body()))) << c.function;
        EXPECT_EQ(c.record, FirstCell(a)) << c.function;
    }
    // A body without "result_type" also means raw mode.
    EXPECT_EQ("futu_hq_raw:R329 = R<328>",
              Show(Decode(Answer(620205, hostemu::MakeBody(33, {"contract_code"}, {{"IF2409"}})).Body())));
}

TEST_F(Queries, ManyContractsSkipUnknownOnesAndKeyBoundsApply) {
    // 29 significant characters: a 30-character request matches on them.
    const std::string longCode(29, 'x');
    for (const auto& code : {std::string("IF2409"), std::string("IF2412"), longCode}) Put(HqEx(code, 1.0));
    EXPECT_EQ((std::vector<std::string>{"IF2409", "IF2412", longCode}),
              Column(Answer(620205, KeyRows("contract_code", {"IF2409", "NOPE", "IF2412", longCode + "Z"}, 1))));
    // The single-leg query matches on the first 12 characters.
    Put(Hq("ABCDEFGHIJKL", 7.0));
    EXPECT_EQ((std::vector<std::string>{"ABCDEFGHIJKL", "IF2409"}),
              Column(Answer(620200, KeyRows("contract_code", {"ABCDEFGHIJKLMNOP", "IF2409"}, 1))));
    // Only unknown contracts: columns and no rows.
    MessageSnapshot a = Answer(620201, KeyRows("arbicontract_id", {"none1", "none2"}, 1));
    EXPECT_EQ(15u, Decode(a.Body()).columns.size());
    EXPECT_TRUE(Column(a).empty());
}

// A body without the key column: the error answer only.
TEST_F(Queries, RowWithoutTheKeyReplacesTheAnswerWithErrorMinus4) {
    Put(HqEx("IF2409", 1.0));
    Put(Arg("SPD a&b", 1.0));
    for (auto c : {std::make_pair(620200, "contract_code"), std::make_pair(620205, "contract_code"),
                   std::make_pair(620201, "arbicontract_id")}) {
        MessageSnapshot a = Answer(c.first, hostemu::MakeBody(33, {"result_type", "other"}, {{1, "IF2409"}, {1, "SPD a&b"}}));
        EXPECT_EQ(std::to_string(c.first) + "/0 p1 key[] body[error_no:S255 error_info:S255 = I-4 没字段: " + c.second + "]",
                  Show(a));
    }
}

// Answers, a missing body, a body that does not unpack and a body in item 54
// only are not answered; the queries go on serving.
TEST_F(Queries, AnswersAndMissingBodiesAreNotAnswered) {
    Put(HqEx("IF2409", 1.0));
    for (int f : {620200, 620201, 620205, 620207}) {
        MessageSnapshot a;
        EXPECT_FALSE(Ask(f, KeyRows("contract_code", {"IF2409"}, 1), &a, false, /*packetType*/ 1, 150)) << f;
        EXPECT_FALSE(Ask(f, KeyRows("contract_code", {"IF2409"}, 1), &a, /*inKeyItem*/ true, 0, 150)) << f;
        MessageSpec noBody(f, 0), junk(f, 0);
        junk.body = {'n', 'o', 't', ' ', 'p', 'a', 'c', 'k', 'e', 'd'};
        ASSERT_EQ(0, host_->PostFromClient(noBody));
        ASSERT_EQ(0, host_->PostFromClient(junk));
    }
    EXPECT_EQ(std::vector<std::string>{"IF2409"}, Column(Answer(620205, KeyRows("contract_code", {"IF2409"}, 1))));
    EXPECT_TRUE(WaitUntil([&] { return host_->Factory().Stats().live == 0; }));
    EXPECT_EQ(1u, host_->Center().MessagesOf(620205).size() + host_->Center().MessagesOf(620200).size() +
                      host_->Center().MessagesOf(620201).size() + host_->Center().MessagesOf(620207).size());
}

TEST_F(Queries, ExchangeStatusAnswersAllExchangesForNoRowsOrABlankRow) {
    // An empty table: columns, no rows.
    EXPECT_EQ("futu_exch_status_raw:R13", Show(Decode(Answer(620207, hostemu::MakeBody(33, {"result_type"}, {})).Body())));
    for (auto st : {Exch("F3", "1", 0), Exch("F1", "2", 1), Exch("F2", "3", 1)}) Put(st);
    // Columns but no rows: "result_type" reads as 0, so raw records.
    PackedBody empty = KeyRows("futu_exch_type", {}, 0);
    EXPECT_EQ((std::vector<std::string>{Bytes(Exch("F1", "2", 1)), Bytes(Exch("F2", "3", 1)), Bytes(Exch("F3", "1", 0))}),
              Column(Answer(620207, empty)));
    // A blank row after a named one: every exchange, the named one dropped.
    EXPECT_EQ((std::vector<std::string>{"F1", "F2", "F3"}),
              Column(Answer(620207, KeyRows("futu_exch_type", {"F2", " \t "}, 1)), "futu_exch_type"));
    // Named exchanges (trimmed, unknown skipped) in request order.
    EXPECT_EQ("futu_exch_type:S255 futu_status:S255 can_trade:S255 = F3 1 I0 = F1 2 I1",
              Show(Decode(Answer(620207, KeyRows("futu_exch_type", {" F3 ", "F9", "F1"}, 1)).Body())));
}

}  // namespace
