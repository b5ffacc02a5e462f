// Fault injection through the host emulator with the real plug-in: no
// message from the factory, a neighbour that refuses, a packer whose raw
// adds fail, and snapshot files that cannot be written. Each fault gives its
// logged or counted outcome, the tables stay authoritative (queries answer)
// and no message leaks or is released twice.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "testing/frame_test_support.h"
#include "testing/store_test_support.h"
#include "store/hq_tables.h"

namespace {

using hostemu::MessageSnapshot;
using hostemu::PackedBody;

using frametest::Datagram;
using frametest::WaitUntil;

std::string SingleLeg(const std::string& code, const std::string& tail) { return SingleLegText(code, tail); }

std::string Deal(const std::string& contract) {
    return "31,FA09,F1,B7," + contract + ",卖出,开仓,4100.5,2,套利,00077,R1,S1,op,1,2,2,0,4101.25,B,5,12,13,1,10,0,"
           "CF1,20240307,101112,IGNORED,1,3,occ,ref,SPD,7.5,-1.5,pos,9,1,2,3,4,5,6";
}

class Faults : public frametest::UdpPlugin {
protected:
    void Start(const std::function<void()>& prepare = nullptr) {
        StartUdp("enableudphq=\"1\" enableudphb=\"1\"", prepare);
    }
    size_t Published() { return UdpPlugin::Published().size(); }
    // Asks 620205 for one contract with named columns; the answer's
    // contract code ("" when the answer has no row).
    std::string AskEx(const std::string& code) {
        PackedBody req = hostemu::MakeBody(33, {"result_type", "contract_code"}, {{1, code.c_str()}});
        hostemu::MessageSpec msgDef(620205, 0);
        msgDef.body = hostemu::EncodePacked(req);
        host_->Center().Clear();
        if (host_->PostFromCenter(msgDef) != 0) return "<not posted>";
        MessageSnapshot a;
        if (!host_->Center().WaitFor([](const MessageSnapshot& m) { return m.FunctionNo() == 620205; }, 3000, &a))
            return "<no answer>";
        PackedBody b = frametest::Decode(a.Body());
        return b.rows.empty() ? "" : b.Str(0, "contract_code");
    }
    // Sends an exchange status marker and waits until the table holds it:
    // everything sent before it has been handled.
    void Drain(const std::string& exch) {
        Send(Datagram('A', exch + ",1,1,"));
        CExchStatusInfo* t = frametest::Svc(*host_)->m_pFUTUExchStatusInfo;
        ASSERT_TRUE(WaitUntil([&] {
            tagEXCHSTATUS probe{};
            snprintf(probe.futu_exch_type, sizeof probe.futu_exch_type, "%s", exch.c_str());
            return t->GetHQInfo(&probe) == 1;
        }));
    }
};

// No message from the factory: publications are skipped, the tables are
// still updated, queries (answered in place) still work, nothing leaks.
TEST_F(Faults, NoMessageFromTheFactorySkipsPublicationsOnly) {
    Start();
    host_->Factory().SetGetMsgAlwaysFails(true);
    Send(Datagram('0', SingleLeg("IF2412", "F4,93015,")));
    Send(Datagram('3', Deal("cu2405")));
    Drain("Z1");
    EXPECT_EQ(0u, Published());
    EXPECT_GT(host_->Factory().Stats().failedGets, 0u);
    EXPECT_EQ("IF2412", AskEx("IF2412"));

    // Each publication asks four times: three failed gets are absorbed, a
    // fourth costs exactly that one publication.
    host_->Factory().SetGetMsgAlwaysFails(false);
    host_->Center().Clear();
    Send(Datagram('0', SingleLeg("IF2501", "F4,93016,")));
    Drain("Z2");
    const size_t normal = Published();
    ASSERT_GT(normal, 2u);
    host_->Center().Clear();
    host_->Factory().FailNextGetMsg(3);
    Send(Datagram('0', SingleLeg("IF2502", "F4,93016,")));
    Drain("Z3");
    EXPECT_EQ(normal, Published());
    host_->Center().Clear();
    host_->Factory().FailNextGetMsg(4);
    Send(Datagram('0', SingleLeg("IF2503", "F4,93016,")));
    Drain("Z4");
    EXPECT_EQ(normal - 1, Published());
}

// A neighbour that refuses: each refused message is released by the
// plug-in (live stays 0 once handled) and nothing is released twice.
TEST_F(Faults, RefusedPublicationsAndAnswersAreReleased) {
    Start();
    host_->Center().SetMode(hostemu::CHostNeighbour::Refuse);
    for (int i = 0; i < 20; ++i) {
        Send(Datagram('0', SingleLeg("IF24" + std::to_string(10 + i), "F4,93015,")));
        Send(Datagram('3', Deal("cu24" + std::to_string(10 + i))));
    }
    Drain("Z3");
    EXPECT_GT(host_->Center().Refused(), 20u);
    EXPECT_TRUE(WaitUntil([&] { return host_->Factory().Stats().live == 0; }));
    // A refused query answer is released too.
    PackedBody req = hostemu::MakeBody(33, {"result_type", "contract_code"}, {{1, "IF2410"}});
    hostemu::MessageSpec msgDef(620205, 0);
    msgDef.body = hostemu::EncodePacked(req);
    const size_t before = host_->Center().Refused();
    ASSERT_EQ(0, host_->PostFromCenter(msgDef));
    EXPECT_TRUE(WaitUntil([&] { return host_->Center().Refused() > before; }));
    EXPECT_TRUE(WaitUntil([&] { return host_->Factory().Stats().live == 0; }));
    host_->Center().SetMode(hostemu::CHostNeighbour::Record);
    EXPECT_EQ("IF2410", AskEx("IF2410"));
}

// Raw adds failing: the deal's binary records log "add raw fail..." and the
// report is still published (the text form needs no raw add).
TEST_F(Faults, FailingRawAddsAreLoggedAndTheReportStillGoesOut) {
    Start();
    host_->PackSvr().SetPackRawFails(true);
    Send(Datagram('3', Deal("cu2405")));
    ASSERT_TRUE(host_->Log().WaitFor("add raw fail, result: -1, size: 304!", 3000));
    EXPECT_TRUE(host_->Log().WaitFor("add raw fail, result: -1, size: 248!", 3000));
    EXPECT_TRUE(WaitUntil([&] { return Published() >= 1; }));
    bool text = false;
    for (auto& m : host_->Center().Messages()) text = text || m.IssueType() == 33101;
    EXPECT_TRUE(text);
    // Quotes still land in the tables and answer queries.
    Send(Datagram('0', SingleLeg("IF2412", "F4,93015,")));
    Drain("Z4");
    EXPECT_EQ("IF2412", AskEx("IF2412"));
}

// Snapshot files on a full disk (/dev/full): the write failure is logged
// with its error code, the table keeps every quote and answers queries, and
// the stop still empties what it can.
TEST_F(Faults, FullDiskForSnapshotsIsLoggedAndTheTableStaysAuthoritative) {
    Start([] {
        for (const char* f : {"tikron_A#1.db", "tikron_ex_A#1.db", "tikronarg_A#1.db", "futuexchstatus_A#1.db"})
            ASSERT_EQ(0, symlink("/dev/full", f));
    });
    for (int i = 0; i < 5; ++i) Send(Datagram('0', SingleLeg("IF25" + std::to_string(10 + i), "F4,93015,")));
    Drain("Z5");
    // Code 28: ENOSPC.
    EXPECT_TRUE(host_->Log().WaitFor(", 错误代码: 28", 3000));
    for (int i = 0; i < 5; ++i) EXPECT_EQ("IF25" + std::to_string(10 + i), AskEx("IF25" + std::to_string(10 + i)));
    EXPECT_EQ(5u + 0u, frametest::Svc(*host_)->m_pTIKRONInfo_EX->GetCount());
}

// A snapshot path that cannot be opened at all (a directory in its place):
// the table works from memory and the stop and the daily reset pass.
TEST_F(Faults, UnopenableSnapshotLeavesTheTableWorkingFromMemory) {
    Start([] { ASSERT_EQ(0, mkdir("tikron_ex_A#1.db", 0755)); });
    Send(Datagram('0', SingleLeg("IF2412", "F4,93015,")));
    Drain("Z6");
    EXPECT_EQ("IF2412", AskEx("IF2412"));
    EXPECT_EQ(0, frametest::Svc(*host_)->SysInit());
    EXPECT_EQ("", AskEx("IF2412"));
}

}  // namespace
