// Table synchronisation between two lifecycles of the plug-in: the answers
// of one node refill the tables of the next with identical records; a short
// row stops the extended answer; an empty table answers with columns only.
#include <map>

#include "tests/quote_msg_support.h"

namespace {

using namespace msgtest;

const int kSyncFunctions[] = {620202, 620203, 620204, 620206};

// The pending requests of the second node: one per table, never sent
// (subscibetomc 0), packet ids 1..4 in this order.
const char* const kSyncRequests =
    "<mc>"
    "<request functionno=\"620202\" note=\"hq\"><param name=\"result_type\" value=\"0\"/></request>"
    "<request functionno=\"620203\" note=\"arg\"><param name=\"result_type\" value=\"0\"/></request>"
    "<request functionno=\"620204\" note=\"hq_ex\"><param name=\"result_type\" value=\"0\"/></request>"
    "<request functionno=\"620206\" note=\"exch\"><param name=\"result_type\" value=\"0\"/></request>"
    "</mc>";

PackedBody ResultType(int t) { return hostemu::MakeBody(33, {"result_type"}, {{t}}); }

std::vector<std::string> RawRows(const MessageSnapshot& m) {
    PackedBody b = Decode(m.Body());
    std::vector<std::string> out;
    for (auto& row : b.rows) out.push_back(row.empty() ? std::string() : row[0].bytes);
    return out;
}

class Sync : public PluginFixture {
protected:
    // Posts a peer's answer as packet `id` and waits for the receipt line.
    void Feed(const std::vector<char>& body, int function, int id) {
        hostemu::MessageSpec answer(function, 1);
        answer.packetId = id;
        answer.body = body;
        ASSERT_EQ(0, host_->PostFromCenter(answer));
    }
    size_t Pending() {
        svc_->m_szSendRequestLock.Acquire();
        size_t n = svc_->m_szSendRequestMap.size();
        svc_->m_szSendRequestLock.Release();
        return n;
    }
};

TEST_F(Sync, AnswersOfOneNodeRefillTheNextWithIdenticalRecords) {
    StartPlugin();
    PutEx(HqEx("IF2409", 3850.2));
    PutEx(HqEx("ABCDEFGHIJ12", 10.0));          // also in the single-leg table
    PutEx(HqEx("ABCDEFGHIJKLMNOPQRST", 11.0));  // extended table only
    PutHq(Hq("rb2410", 3600.0));
    PutArg(Arg("SPD a&b", 1.5));
    PutArg(Arg("IPS c&d", -2.5));
    PutExch(Exch("F1", "2", 1));
    PutExch(Exch("F3", "1", 0));

    std::map<int, MessageSnapshot> answers, named;
    for (int f : kSyncFunctions) {
        ASSERT_TRUE(Ask(f, ResultType(0), &answers[f], 0, /*inKeyItem*/ true)) << f;
        ASSERT_TRUE(Ask(f, ResultType(1), &named[f], 0, true)) << f;
    }
    EXPECT_EQ(3u, RawRows(answers[620202]).size());
    EXPECT_EQ(2u, RawRows(answers[620203]).size());
    EXPECT_EQ(3u, RawRows(answers[620204]).size());
    EXPECT_EQ(2u, RawRows(answers[620206]).size());
    // Field mode: the query's columns, one row per record.
    MessageSnapshot fields;
    ASSERT_TRUE(Ask(620204, ResultType(1), &fields, 0, true));
    PackedBody fb = Decode(fields.Body());
    EXPECT_EQ(47u, fb.columns.size());
    ASSERT_EQ(3u, fb.rows.size());
    EXPECT_EQ("ABCDEFGHIJ12", fb.Str(0, "contract_code"));

    Restart("subscibetomc=\"0\"", kSyncRequests);
    ASSERT_EQ(4u, Pending());
    // Named columns carry no raw record: refused at the first row, nothing
    // stored, every serial still pending.
    int id = 1;
    for (int f : kSyncFunctions) Feed(named[f].Body(), f, id++);
    for (int size : {308, 128, 328, 12}) {
        const std::string line = "取出的数据与数据结果不一样, raw 大小: 0, 结构大小: " + std::to_string(size) + "!";
        EXPECT_TRUE(WaitUntil([&] { return host_->Log().CountContaining(line) == 1u; })) << size;
    }
    EXPECT_EQ(4u, Pending());
    EXPECT_EQ(0u, svc_->GetTIKRONInfo()->GetCount() + svc_->GetTIKRONInfo_EX()->GetCount() +
                      svc_->GetTIKRONARGInfo()->GetCount() + svc_->GetExchStatusInfo()->GetCount());
    id = 1;
    for (int f : kSyncFunctions) Feed(answers[f].Body(), f, id++);
    for (const char* receipt : {"收到单腿行情的同步应答, 包序号: 1!", "收到组合行情的同步应答, 包序号: 2!",
                                "收到单腿行情(扩展)的同步应答, 包序号: 3!", "收到交易所状态的同步应答, 包序号: 4!"})
        EXPECT_TRUE(WaitUntil([&] { return host_->Log().CountContaining(receipt) == 1u; })) << receipt;
    EXPECT_EQ(0u, Pending());
    // Stored as records from another node (flag 3), not as publications.
    EXPECT_EQ(3u, svc_->GetTIKRONInfo_EX()->GetRecvFromOtherNum());
    EXPECT_EQ(5u, svc_->GetTIKRONInfo()->GetRecvFromOtherNum());  // 3 rows + 2 short extended codes
    EXPECT_EQ(0u, svc_->GetTIKRONInfo()->GetRecvFromMCNum());
    for (int f : kSyncFunctions) {
        MessageSnapshot again;
        ASSERT_TRUE(Ask(f, ResultType(0), &again, 0, true)) << f;
        EXPECT_EQ(RawRows(answers[f]), RawRows(again)) << f;
    }
}

TEST_F(Sync, ShortExtendedRowStopsTheAnswerAndKeepsTheSerialPending) {
    StartPlugin("subscibetomc=\"0\"", kSyncRequests);
    PackedBody body;
    body.columns = {{"futu_hq_raw", 'R', 329, 4}};
    tagHQInfo_EX a = HqEx("IF2409", 1.0), b = HqEx("ABCDEFGHIJKLMNOPQRST", 2.0), d = HqEx("IF2412", 4.0);
    body.rows = {{PackCell::Raw(Bytes(a))}, {PackCell::Raw(Bytes(b))}, {PackCell::Raw(std::string(300, 'z'))},
                 {PackCell::Raw(Bytes(d))}};
    Feed(hostemu::EncodePacked(body), 620204, 3);
    ASSERT_TRUE(WaitUntil([&] {
        return host_->Log().CountContaining("取出的数据与数据结果不一样, raw 大小: 300, 结构大小: 328!") == 1u;
    }));
    EXPECT_EQ(2u, svc_->GetTIKRONInfo_EX()->GetCount());
    EXPECT_EQ(1u, svc_->GetTIKRONInfo()->GetCount());  // the short code of the first row
    EXPECT_EQ(4u, Pending());
    EXPECT_EQ(0u, host_->Log().CountContaining("包序号: 3!"));

    // The arbitrage answer checks its size too; the single-leg answer copies
    // a longer row only up to the record size.
    body.columns = {{"futu_hq_raw", 'R', 129, 4}};
    body.rows = {{PackCell::Raw(std::string(129, 'q'))}};
    Feed(hostemu::EncodePacked(body), 620203, 2);
    ASSERT_TRUE(WaitUntil([&] {
        return host_->Log().CountContaining("取出的数据与数据结果不一样, raw 大小: 129, 结构大小: 128!") == 1u;
    }));
    tagHQInfo hq = Hq("cu2409", 70000.0);
    body.columns = {{"futu_hq_raw", 'R', 309, 4}};
    body.rows = {{PackCell::Raw(Bytes(hq) + std::string(4000, 'x'))}};
    Feed(hostemu::EncodePacked(body), 620202, 1);
    ASSERT_TRUE(WaitUntil([&] { return host_->Log().CountContaining("收到单腿行情的同步应答, 包序号: 1!") == 1u; }));
    tagHQInfo probe = hq;
    ASSERT_EQ(1, svc_->GetTIKRONInfo()->GetHQInfo(&probe));
    EXPECT_EQ(Bytes(hq), Bytes(probe));
    EXPECT_EQ(3u, Pending());
}

TEST_F(Sync, EmptyTableAnswersColumnsOnlyAndRefusedRequestsGetNoAnswer) {
    StartPlugin("subscibetomc=\"0\"", kSyncRequests);
    MessageSnapshot a;
    ASSERT_TRUE(Ask(620203, ResultType(0), &a, 0, true));
    PackedBody b = Decode(a.Body());
    ASSERT_EQ(1u, b.columns.size());
    EXPECT_EQ("futu_hq_raw", b.columns[0].name);
    EXPECT_EQ(129, b.columns[0].width);
    EXPECT_EQ(0u, b.rows.size());
    ASSERT_TRUE(Ask(620206, ResultType(1), &a, 0, true));
    EXPECT_EQ(3u, Decode(a.Body()).columns.size());
    // Fed back: nothing stored, serial removed, receipt logged.
    Feed(a.Body(), 620206, 4);
    ASSERT_TRUE(WaitUntil([&] { return host_->Log().CountContaining("收到交易所状态的同步应答, 包序号: 4!") == 1u; }));
    EXPECT_EQ(3u, Pending());
    EXPECT_EQ(0u, svc_->GetExchStatusInfo()->GetCount());

    // A request whose body is in item 8 only, or that does not unpack.
    for (int f : kSyncFunctions) {
        EXPECT_FALSE(Ask(f, ResultType(0), &a, 0, /*inKeyItem*/ false, 150)) << f;
        hostemu::MessageSpec junk(f, 0);
        junk.packetId = ++nextId_;
        junk.key = {'x', 'y'};
        ASSERT_EQ(0, host_->PostFromClient(junk));
    }
    // An answer without a body or that does not unpack keeps its serial.
    Feed({}, 620202, 1);
    Feed({'b', 'a', 'd'}, 620204, 3);
    ASSERT_TRUE(WaitUntil([&] { return host_->Log().CountContaining("解包失败, 返回: ") == 1u; }));
    EXPECT_EQ(3u, Pending());
    EXPECT_TRUE(WaitUntil([&] { return host_->Factory().Stats().live == 0; }));
}

}  // namespace
