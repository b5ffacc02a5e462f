// Faults around the loaded plug-in: no message from the factory, a neighbour
// that refuses, a packer whose raw adds fail, snapshot files that cannot be
// written or opened. Each gives its logged or counted outcome, the tables
// stay authoritative (queries answer) and no message leaks (TearDown).
#include <sys/stat.h>
#include <unistd.h>

#include "testing/store_test_support.h"
#include "tests/e2e_support.h"

namespace {

using namespace e2e;

std::string Deal(const std::string& contract) {
    return Datagram('3', "31,FA09,F1,B7," + contract + ",卖出,开仓,4100.5,2,套利,00077,R1,S1,op,1,2,2,0,4101.25,B,5,"
                         "12,13,1,10,0,CF1,20240307,101112,IGNORED,1,3,occ,ref,SPD,7.5,-1.5,pos,9,1,2,3,4,5,6");
}
std::string Quote(const std::string& code) { return Datagram('0', SingleLegText(code, "F4,93015,")); }

class Faults : public Plugin {
protected:
    // The contract code 620205 answers for one contract ("" without a row).
    std::string AskEx(const std::string& code) {
        MessageSnapshot a;
        if (!Ask(620205, hostemu::MakeBody(33, {"result_type", "contract_code"}, {{1, code.c_str()}}), &a))
            return "<no answer>";
        return Decode(a.Body()).Str(0, "contract_code");
    }
};

// Publications are skipped, the tables still updated, queries (answered in
// place) still work. Each publication asks four times: three failed gets
// are absorbed, a fourth costs exactly that one publication.
TEST_F(Faults, NoMessageFromTheFactorySkipsPublicationsOnly) {
    StartUdp();
    host_->Factory().SetGetMsgAlwaysFails(true);
    Send(Quote("IF2412"));
    Send(Deal("cu2405"));
    Send(Datagram('A', "F7,1,1,"));
    ASSERT_TRUE(WaitUntil([&] { return svc_->GetExchStatusInfo()->GetCount() == 1; }));
    host_->Factory().SetGetMsgAlwaysFails(false);
    EXPECT_TRUE(Flush().empty());
    EXPECT_EQ("IF2412", AskEx("IF2412"));
    for (int fails : {0, 3, 4}) {
        host_->Center().Clear();
        host_->Factory().FailNextGetMsg(fails);
        Send(Quote("IF250" + std::to_string(fails)));
        EXPECT_EQ(fails == 4 ? 2u : 3u, Flush().size()) << fails;
    }
}

TEST_F(Faults, RefusedPublicationsAndAnswersAreReleased) {
    StartUdp();
    host_->Center().SetMode(hostemu::CHostNeighbour::Refuse);
    for (int i = 10; i < 30; ++i) Send(Quote("IF24" + std::to_string(i))), Send(Deal("cu24" + std::to_string(i)));
    ASSERT_TRUE(WaitUntil([&] { return host_->Center().Refused() >= 20 * 6; })) << host_->Center().Refused();
    // A refused query answer is released too.
    MessageSpec q(620205, 0);
    q.body = hostemu::EncodePacked(hostemu::MakeBody(33, {"result_type", "contract_code"}, {{1, "IF2410"}}));
    const size_t before = host_->Center().Refused();
    ASSERT_EQ(0, host_->PostFromCenter(q));
    EXPECT_TRUE(WaitUntil([&] { return host_->Center().Refused() > before; }));
    EXPECT_TRUE(WaitUntil([&] { return host_->Factory().Stats().live == 0; }));
    host_->Center().SetMode(hostemu::CHostNeighbour::Record);
    EXPECT_EQ("IF2410", AskEx("IF2410"));
}

// Raw adds failing: the deal's binary records log "add raw fail..." and the
// text form (no raw add) is still published.
TEST_F(Faults, FailingRawAddsAreLoggedAndTheReportStillGoesOut) {
    StartUdp();
    host_->PackSvr().SetPackRawFails(true);
    Send(Deal("cu2405"));
    Send(Quote("IF2412"));
    auto msgs = Flush();
    std::string issues;
    for (const auto& m : msgs) issues += std::to_string(m.IssueType()) + " ";
    EXPECT_EQ("23 33101 17 33100 ", issues);  // the records without their raw cell
    EXPECT_EQ("B -", Show(Decode(msgs.at(0).Body())).substr(Show(Decode(msgs[0].Body())).size() - 3));
    EXPECT_EQ(1u, LogCount("add raw fail, result: -1, size: 304!"));
    EXPECT_EQ(1u, LogCount("add raw fail, result: -1, size: 248!"));
    EXPECT_EQ("IF2412", AskEx("IF2412"));
}

// Snapshot files on a full disk: the failure is logged with its error code
// (28, ENOSPC), the table keeps every quote and answers queries.
TEST_F(Faults, FullDiskForSnapshotsIsLoggedAndTheTableStaysAuthoritative) {
    Start("enableudprecv=\"1\"", "", [] {
        for (const char* f : {"tikron_A#1.db", "tikron_ex_A#1.db", "tikronarg_A#1.db", "futuexchstatus_A#1.db"})
            ASSERT_EQ(0, symlink("/dev/full", f));
    });
    for (int i = 10; i < 15; ++i) Send(Quote("IF25" + std::to_string(i)));
    Flush();
    EXPECT_TRUE(WaitLog(", 错误代码: 28"));
    for (int i = 10; i < 15; ++i) EXPECT_EQ("IF25" + std::to_string(i), AskEx("IF25" + std::to_string(i)));
    EXPECT_EQ(5u, svc_->m_pTIKRONInfo_EX->GetCount());
}

// A directory where a snapshot file goes: the table works from memory, and
// the daily reset passes.
TEST_F(Faults, UnopenableSnapshotLeavesTheTableWorkingFromMemory) {
    Start("enableudprecv=\"1\"", "", [] { ASSERT_EQ(0, mkdir("tikron_ex_A#1.db", 0755)); });
    Send(Quote("IF2412"));
    Flush();
    EXPECT_EQ("IF2412", AskEx("IF2412"));
    EXPECT_EQ(0, svc_->SysInit());
    EXPECT_EQ("", AskEx("IF2412"));
}

}  // namespace
