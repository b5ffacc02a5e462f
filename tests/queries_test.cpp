// Quote queries 620200, 620205, 620201 and 620207 through the host
// emulator: named-column and raw answers, unknown keys, the error answer,
// refused requests and the "all exchanges" rules.
#include "tests/quote_msg_support.h"

namespace {

using namespace msgtest;

PackedBody KeyRows(const char* field, const std::vector<std::string>& keys, int resultType) {
    PackedBody b;
    b.columns = {{"result_type", 'S', 255, 4}, {field, 'S', 255, 4}};
    for (const std::string& k : keys) b.rows.push_back({PackCell(resultType), PackCell(k)});
    return b;
}

// Raw records of a raw-mode answer, checking the column declaration.
std::vector<std::string> RawRows(const MessageSnapshot& m, const char* column, size_t recordSize) {
    PackedBody b = Decode(m.Body());
    std::vector<std::string> out;
    EXPECT_EQ(1u, b.columns.size());
    if (b.columns.size() != 1) return out;
    EXPECT_EQ(column, b.columns[0].name);
    EXPECT_EQ('R', b.columns[0].type);
    EXPECT_EQ(static_cast<int>(recordSize) + 1, b.columns[0].width);
    EXPECT_EQ(4, b.columns[0].scale);
    for (auto& row : b.rows) {
        EXPECT_EQ('R', row[0].kind);
        EXPECT_EQ(recordSize, row[0].bytes.size());
        out.push_back(row[0].bytes);
    }
    return out;
}

std::vector<std::string> ColumnNames(const PackedBody& b) {
    std::vector<std::string> names;
    for (auto& c : b.columns) {
        EXPECT_EQ('S', c.type) << c.name;
        EXPECT_EQ(255, c.width) << c.name;
        EXPECT_EQ(4, c.scale) << c.name;
        names.push_back(c.name);
    }
    return names;
}

class Queries : public PluginFixture {
protected:
    void SetUp() override { StartPlugin(); }
};

TEST_F(Queries, SingleLegFieldAnswerHasTheColumnsInOrderAndTypedValues) {
    tagHQInfo_EX ex = HqEx("IF2409", 3850.2, 101530);
    PutEx(ex);  // a 6-character code lands in both single-leg tables
    MessageSnapshot a;
    ASSERT_TRUE(Ask(620200, KeyRows("contract_code", {"IF2409"}, 1), &a));
    PackedBody b = Decode(a.Body());
    std::vector<std::string> names = ColumnNames(b);
    ASSERT_EQ(46u, names.size());
    EXPECT_EQ("contract_code", names[0]);
    EXPECT_EQ("form_buy_price", names[19]);  // the exchange column moved to the end
    EXPECT_EQ("ask_volume5", names[44]);
    EXPECT_EQ("futu_exch_type", names[45]);
    ASSERT_EQ(1u, b.rows.size());
    EXPECT_EQ("IF2409", b.Str(0, "contract_code"));
    EXPECT_EQ('D', b.Get(0, "futu_last_price")->kind);
    EXPECT_DOUBLE_EQ(3850.2, b.Get(0, "futu_last_price")->d);
    EXPECT_EQ('I', b.Get(0, "buy_high_amount")->kind);
    EXPECT_EQ(12, b.Get(0, "buy_high_amount")->i);
    EXPECT_DOUBLE_EQ(3852.2, b.Get(0, "ask_price5")->d);
    EXPECT_EQ(11, b.Get(0, "bid_volume5")->i);
    EXPECT_EQ("F1", b.Str(0, "futu_exch_type"));

    // The extended query adds "time_stamp" as the 47th column.
    ASSERT_TRUE(Ask(620205, KeyRows("contract_code", {"IF2409"}, 1), &a));
    b = Decode(a.Body());
    names = ColumnNames(b);
    ASSERT_EQ(47u, names.size());
    EXPECT_EQ("futu_exch_type", names[45]);
    EXPECT_EQ("time_stamp", names[46]);
    ASSERT_EQ(1u, b.rows.size());
    EXPECT_EQ(101530, b.Int(0, "time_stamp"));
    EXPECT_EQ(0, a.ErrorFlag());
}

TEST_F(Queries, RawAnswersCarryWholeRecordsUnderAOneByteWiderColumn) {
    tagHQInfo_EX ex = HqEx("IF2409", 3850.2);
    PutEx(ex);
    tagHQInfo single;
    memset(&single, 0, sizeof single);
    ASSERT_EQ(0, ConvertHq22To16(&ex, single));
    tagArgHQInfo arg = Arg("SPD m2409&m2501", 12.5);
    PutArg(arg);
    PutExch(Exch("F1", "2", 1));

    MessageSnapshot a;
    ASSERT_TRUE(Ask(620200, KeyRows("contract_code", {"IF2409"}, 0), &a));
    EXPECT_EQ(std::vector<std::string>{Bytes(single)}, RawRows(a, "futu_hq_raw", 308));
    ASSERT_TRUE(Ask(620205, KeyRows("contract_code", {"IF2409"}, 0), &a));
    EXPECT_EQ(std::vector<std::string>{Bytes(ex)}, RawRows(a, "futu_hq_raw", 328));
    ASSERT_TRUE(Ask(620201, KeyRows("arbicontract_id", {"SPD m2409&m2501"}, 0), &a));
    EXPECT_EQ(std::vector<std::string>{Bytes(arg)}, RawRows(a, "futu_hq_raw", 128));
    ASSERT_TRUE(Ask(620207, KeyRows("futu_exch_type", {"F1"}, 0), &a));
    EXPECT_EQ(std::vector<std::string>{Bytes(Exch("F1", "2", 1))}, RawRows(a, "futu_exch_status_raw", 12));

    // A body without "result_type" also means raw mode.
    ASSERT_TRUE(Ask(620205, hostemu::MakeBody(33, {"contract_code"}, {{"IF2409"}}), &a));
    EXPECT_EQ(1u, RawRows(a, "futu_hq_raw", 328).size());
}

TEST_F(Queries, ManyContractsSkipUnknownOnesAndKeyBoundsApply) {
    PutEx(HqEx("IF2409", 1.0));
    PutEx(HqEx("IF2412", 2.0));
    // 29 significant characters: a 30-character request matches on them.
    const std::string longCode(29, 'x');
    PutEx(HqEx(longCode, 3.0));
    MessageSnapshot a;
    ASSERT_TRUE(Ask(620205, KeyRows("contract_code", {"IF2409", "NOPE", "IF2412", longCode + "Z"}, 1), &a));
    PackedBody b = Decode(a.Body());
    ASSERT_EQ(3u, b.rows.size());
    EXPECT_EQ("IF2409", b.Str(0, "contract_code"));
    EXPECT_EQ("IF2412", b.Str(1, "contract_code"));
    EXPECT_EQ(longCode, b.Str(2, "contract_code"));
    EXPECT_EQ(-1, b.Find("error_no"));

    // The single-leg query matches on the first 12 characters.
    PutHq(Hq("ABCDEFGHIJKL", 7.0));
    ASSERT_TRUE(Ask(620200, KeyRows("contract_code", {"ABCDEFGHIJKLMNOP", "IF2409"}, 1), &a));
    b = Decode(a.Body());
    ASSERT_EQ(2u, b.rows.size());
    EXPECT_EQ("ABCDEFGHIJKL", b.Str(0, "contract_code"));

    // Only unknown contracts: columns and no rows.
    ASSERT_TRUE(Ask(620201, KeyRows("arbicontract_id", {"none1", "none2"}, 1), &a));
    b = Decode(a.Body());
    EXPECT_EQ(15u, b.columns.size());
    EXPECT_EQ(0u, b.rows.size());
}

TEST_F(Queries, RowWithoutTheKeyReplacesTheAnswerWithErrorMinus4) {
    PutEx(HqEx("IF2409", 1.0));
    PutArg(Arg("SPD a&b", 1.0));
    struct Case {
        int function;
        const char* key;
        const char* other;
        const char* text;
    } cases[] = {
        {620200, "contract_code", "IF2409", "没字段: contract_code"},
        {620205, "contract_code", "IF2409", "没字段: contract_code"},
        {620201, "arbicontract_id", "SPD a&b", "没字段: arbicontract_id"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.function);
        // Answered rows first; a body without the key column: error answer
        // only (the walk on a null key is covered in quote/key_walk_test).
        // A body without the key column at all: the same error answer.
        MessageSnapshot a;
        ASSERT_TRUE(Ask(c.function, hostemu::MakeBody(33, {"result_type", "other"}, {{1, c.other}, {1, c.other}}), &a));
        PackedBody b = Decode(a.Body());
        ASSERT_EQ(2u, b.columns.size());
        EXPECT_EQ("error_no", b.columns[0].name);
        EXPECT_EQ("error_info", b.columns[1].name);
        ASSERT_EQ(1u, b.rows.size());
        EXPECT_EQ(-4, b.Int(0, "error_no"));
        EXPECT_EQ(c.text, b.Str(0, "error_info"));
        EXPECT_EQ(1, a.PacketType());
    }
}

TEST_F(Queries, AnswersAndMissingBodiesAreNotAnswered) {
    PutEx(HqEx("IF2409", 1.0));
    for (int f : {620200, 620201, 620205, 620207}) {
        SCOPED_TRACE(f);
        MessageSnapshot a;
        // Packet type 1, a missing body, and a body that does not unpack.
        EXPECT_FALSE(Ask(f, KeyRows("contract_code", {"IF2409"}, 1), &a, /*packetType*/ 1, false, 150));
        hostemu::MessageSpec noBody(f, 0);
        noBody.packetId = ++nextId_;
        ASSERT_EQ(0, host_->PostFromClient(noBody));
        hostemu::MessageSpec junk(f, 0);
        junk.packetId = ++nextId_;
        junk.body = {'n', 'o', 't', ' ', 'p', 'a', 'c', 'k', 'e', 'd'};
        ASSERT_EQ(0, host_->PostFromClient(junk));
        // A body only in item 54 is not read by the queries either.
        EXPECT_FALSE(Ask(f, KeyRows("contract_code", {"IF2409"}, 1), &a, 0, /*inKeyItem*/ true, 150));
    }
    MessageSnapshot a;
    ASSERT_TRUE(Ask(620205, KeyRows("contract_code", {"IF2409"}, 1), &a));  // still serving
    EXPECT_TRUE(WaitUntil([&] { return host_->Factory().Stats().live == 0; }));
    for (auto& m : host_->Center().Messages()) EXPECT_NE(1000000, m.PacketId());
    EXPECT_EQ(1u, host_->Center().MessagesOf(620205, 1).size());
    EXPECT_EQ(0u, host_->Center().MessagesOf(620200).size());
}

TEST_F(Queries, ExchangeStatusAnswersAllExchangesForNoRowsOrABlankRow) {
    PutExch(Exch("F3", "1", 0));
    PutExch(Exch("F1", "2", 1));
    PutExch(Exch("F2", "3", 1));
    auto codes = [](const MessageSnapshot& m) {
        PackedBody b = Decode(m.Body());
        std::vector<std::string> out;
        for (size_t i = 0; i < b.rows.size(); ++i) out.push_back(b.Str(i, "futu_exch_type"));
        return out;
    };
    const std::vector<std::string> all = {"F1", "F2", "F3"};
    MessageSnapshot a;
    // Columns but no rows: "result_type" reads as 0, so raw records.
    PackedBody empty;
    empty.columns = {{"result_type", 'S', 255, 4}, {"futu_exch_type", 'S', 255, 4}};
    ASSERT_TRUE(Ask(620207, empty, &a));
    std::vector<std::string> rawCodes;
    for (const std::string& raw : RawRows(a, "futu_exch_status_raw", 12)) rawCodes.push_back(raw.substr(0, 2));
    EXPECT_EQ(all, rawCodes);
    // A blank row after a named one: every exchange, the named one dropped.
    ASSERT_TRUE(Ask(620207, KeyRows("futu_exch_type", {"F2", " \t "}, 1), &a));
    EXPECT_EQ(all, codes(a));
    // Named exchanges (trimmed, unknown skipped) in request order.
    ASSERT_TRUE(Ask(620207, KeyRows("futu_exch_type", {" F3 ", "F9", "F1"}, 1), &a));
    EXPECT_EQ((std::vector<std::string>{"F3", "F1"}), codes(a));
    PackedBody b = Decode(a.Body());
    ASSERT_EQ(3u, b.columns.size());
    EXPECT_EQ("1", b.Str(0, "futu_status"));
    EXPECT_EQ(0, b.Int(0, "can_trade"));
    EXPECT_EQ('I', b.Get(1, "can_trade")->kind);
}

TEST_F(Queries, ExchangeStatusWithAnEmptyTableAnswersNoRows) {
    MessageSnapshot a;
    ASSERT_TRUE(Ask(620207, hostemu::MakeBody(33, {"result_type"}, {}), &a));
    PackedBody b = Decode(a.Body());
    EXPECT_EQ(1u, b.columns.size());
    EXPECT_EQ(0u, b.rows.size());
}

}  // namespace
