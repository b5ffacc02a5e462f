// Table synchronisation between two lifecycles of the plug-in: the answers
// of one node refill the tables of the next with identical records; a short
// row stops the answer; an empty table answers with columns only.
#include <map>

#include "tests/e2e_support.h"

namespace {

using namespace e2e;

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

PackedBody RawRows(int width, const std::vector<std::string>& rows) {
    PackedBody b;
    b.columns = {{"futu_hq_raw", 'R', width, 4}};
    for (const auto& r : rows) b.rows.push_back({PackCell::Raw(r)});
    return b;
}

std::string Mismatch(int raw, int size) {
    return "取出的数据与数据结果不一样, raw 大小: " + std::to_string(raw) + ", 结构大小: " + std::to_string(size) + "!";
}

class Sync : public Plugin {
protected:
    // Posts a peer's answer as packet `id`.
    void Feed(const std::vector<char>& body, int function, int id) {
        MessageSpec answer(function, 1);
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
    size_t Counts() {
        return svc_->GetTIKRONInfo()->GetCount() * 1000 + svc_->GetTIKRONInfo_EX()->GetCount() * 100 +
               svc_->GetTIKRONARGInfo()->GetCount() * 10 + svc_->GetExchStatusInfo()->GetCount();
    }
};

TEST_F(Sync, AnswersOfOneNodeRefillTheNextWithIdenticalRecords) {
    Start();
    Put(HqEx("IF2409", 3850.2));
    Put(HqEx("ABCDEFGHIJ12", 10.0));          // also in the single-leg table
    Put(HqEx("ABCDEFGHIJKLMNOPQRST", 11.0));  // extended table only
    Put(Hq("rb2410", 3600.0));
    for (auto a : {Arg("SPD a&b", 1.5), Arg("IPS c&d", -2.5)}) Put(a);
    for (auto e : {Exch("F1", "2", 1), Exch("F3", "1", 0)}) Put(e);
    std::map<int, MessageSnapshot> raw, named;
    for (int f : kSyncFunctions) {
        ASSERT_TRUE(Ask(f, ResultType(0), &raw[f], /*inKeyItem*/ true)) << f;
        ASSERT_TRUE(Ask(f, ResultType(1), &named[f], true)) << f;
    }
    EXPECT_EQ("futu_hq_raw:R309 = R<308> = R<308> = R<308>", ShowItem(raw[620202].Body()));
    EXPECT_EQ("futu_hq_raw:R129 = R<128> = R<128>", ShowItem(raw[620203].Body()));
    EXPECT_EQ("futu_hq_raw:R329 = R<328> = R<328> = R<328>", ShowItem(raw[620204].Body()));
    EXPECT_EQ("futu_exch_status_raw:R13 = R<12> = R<12>", ShowItem(raw[620206].Body()));
    // Field mode: the query's columns, one row per record in key order.
    PackedBody fields = Decode(named[620204].Body());
    EXPECT_EQ(47u, fields.columns.size());
    ASSERT_EQ(3u, fields.rows.size());
    EXPECT_EQ("ABCDEFGHIJ12", fields.Str(0, "contract_code"));

    Start("subscibetomc=\"0\"", kSyncRequests);
    ASSERT_EQ(4u, Pending());
    // Named columns carry no raw record: refused at the first row, nothing
    // stored, every serial still pending.
    int id = 1;
    for (int f : kSyncFunctions) Feed(named[f].Body(), f, id++);
    for (int size : {308, 128, 328, 12}) EXPECT_TRUE(WaitLog(Mismatch(0, size))) << size;
    EXPECT_EQ(4u, Pending());
    EXPECT_EQ(0u, Counts());
    id = 1;
    for (int f : kSyncFunctions) Feed(raw[f].Body(), f, id++);
    for (const char* receipt : {"收到单腿行情的同步应答, 包序号: 1!", "收到组合行情的同步应答, 包序号: 2!",
                                "收到单腿行情(扩展)的同步应答, 包序号: 3!", "收到交易所状态的同步应答, 包序号: 4!"})
        EXPECT_TRUE(WaitLog(receipt)) << receipt;
    EXPECT_EQ(0u, Pending());
    // Stored as records from another node (flag 3), not as publications:
    // 3 single-leg rows and the 2 short codes of the extended ones.
    EXPECT_EQ(3u, svc_->GetTIKRONInfo_EX()->GetRecvFromOtherNum());
    EXPECT_EQ(5u, svc_->GetTIKRONInfo()->GetRecvFromOtherNum());
    EXPECT_EQ(0u, svc_->GetTIKRONInfo()->GetRecvFromMCNum());
    for (int f : kSyncFunctions) {
        MessageSnapshot again;
        ASSERT_TRUE(Ask(f, ResultType(0), &again, true)) << f;
        EXPECT_EQ(raw[f].Body(), again.Body()) << f;
    }
}

TEST_F(Sync, ShortRowStopsTheAnswerAndKeepsTheSerialPending) {
    Start("subscibetomc=\"0\"", kSyncRequests);
    Feed(hostemu::EncodePacked(RawRows(329, {Bytes(HqEx("IF2409", 1.0)), Bytes(HqEx("ABCDEFGHIJKLMNOPQRST", 2.0)),
                                             std::string(300, 'z'), Bytes(HqEx("IF2412", 4.0))})),
         620204, 3);
    ASSERT_TRUE(WaitLog(Mismatch(300, 328)));
    EXPECT_EQ(1200u, Counts());  // the short code of the first row also in the single-leg table
    EXPECT_EQ(0u, LogCount("包序号: 3!"));
    // The arbitrage answer checks its size too; the single-leg answer copies
    // a longer row only up to the record size.
    Feed(hostemu::EncodePacked(RawRows(129, {std::string(129, 'q')})), 620203, 2);
    ASSERT_TRUE(WaitLog(Mismatch(129, 128)));
    const tagHQInfo hq = Hq("cu2409", 70000.0);
    Feed(hostemu::EncodePacked(RawRows(309, {Bytes(hq) + std::string(4000, 'x')})), 620202, 1);
    ASSERT_TRUE(WaitLog("收到单腿行情的同步应答, 包序号: 1!"));
    tagHQInfo probe = hq;
    ASSERT_EQ(1, svc_->GetTIKRONInfo()->GetHQInfo(&probe));
    EXPECT_EQ(Bytes(hq), Bytes(probe));
    EXPECT_EQ(3u, Pending());
}

TEST_F(Sync, EmptyTableAnswersColumnsOnlyAndRefusedRequestsGetNoAnswer) {
    Start("subscibetomc=\"0\"", kSyncRequests);
    MessageSnapshot a;
    ASSERT_TRUE(Ask(620203, ResultType(0), &a, true));
    EXPECT_EQ("futu_hq_raw:R129", ShowItem(a.Body()));
    ASSERT_TRUE(Ask(620206, ResultType(1), &a, true));
    EXPECT_EQ("futu_exch_type:S255 futu_status:S255 can_trade:S255", ShowItem(a.Body()));
    // Fed back: nothing stored, serial removed, receipt logged.
    Feed(a.Body(), 620206, 4);
    ASSERT_TRUE(WaitLog("收到交易所状态的同步应答, 包序号: 4!"));
    EXPECT_EQ(3u, Pending());
    EXPECT_EQ(0u, Counts());
    // A request whose body is in item 8 only, or that does not unpack.
    for (int f : kSyncFunctions) {
        EXPECT_FALSE(Ask(f, ResultType(0), &a, /*inKeyItem*/ false, 0, 150)) << f;
        MessageSpec junk(f, 0);
        junk.key = {'x', 'y'};
        ASSERT_EQ(0, host_->PostFromClient(junk));
    }
    // An answer without a body or that does not unpack keeps its serial.
    Feed({}, 620202, 1);
    Feed({'b', 'a', 'd'}, 620204, 3);
    ASSERT_TRUE(WaitLog("解包失败, 返回: "));
    EXPECT_EQ(3u, Pending());
    EXPECT_TRUE(WaitUntil([&] { return host_->Factory().Stats().live == 0; }));
}

}  // namespace
