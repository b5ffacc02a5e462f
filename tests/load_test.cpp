// Load with everything at once, meant for a ThreadSanitizer build: quotes,
// arbitrage, status and trade datagrams at a high rate over 127.0.0.1;
// queries and quote publications posted into the four workers; management
// dumps 1-8 on the control path; the daily reset now and then. The run is
// bounded by time (TIKRON_LOAD_SECONDS, default 5; CI runs it longer under
// TSan). Afterwards every message is released exactly once (TearDown) and
// the service still answers.
#include <atomic>
#include <chrono>
#include <thread>

#include "host/mgmt_console.h"
#include "testing/store_test_support.h"
#include "tests/e2e_support.h"

namespace {

using namespace e2e;
using Clock = std::chrono::steady_clock;

std::string Code(int i) { return "IF" + std::to_string(2400 + i % 200); }

int Seconds() {
    const char* s = getenv("TIKRON_LOAD_SECONDS");
    int v = s != nullptr ? atoi(s) : 5;
    return v < 1 ? 1 : (v > 120 ? 120 : v);
}

MessageSpec Query(int function, const char* field, const std::string& key, int packetId) {
    MessageSpec m(function, 0);
    m.packetId = packetId;
    m.body = hostemu::EncodePacked(hostemu::MakeBody(33, {"result_type", field}, {{packetId % 2, key.c_str()}}));
    return m;
}

MessageSpec Publication(const std::string& code, int tick) {
    MessageSpec m(620003, 0);
    m.issueType = 22;
    m.body = hostemu::EncodePacked(RawBody(1, Bytes(HqEx(code, 3800.0 + tick % 50, 93000 + tick % 1000))));
    return m;
}

using Load = Plugin;

TEST_F(Load, EverythingAtOnceStaysConsistentAndReleasesEveryMessage) {
    StartUdp("", "<convert><convert22to16>1</convert22to16><convert22to33100>1</convert22to33100></convert>");
    host_->Center().SetMode(hostemu::CHostNeighbour::CountOnly);
    host_->Client().SetMode(hostemu::CHostNeighbour::CountOnly);
    IManager* mgr = hostemu::ManagerOf(host_->Service());
    ASSERT_NE(nullptr, mgr);
    const auto deadline = Clock::now() + std::chrono::seconds(Seconds());
    std::atomic<uint64_t> datagrams{0}, posted{0}, dumps{0}, resets{0};

    std::thread udp([&] {
        for (int tick = 0; Clock::now() < deadline; std::this_thread::sleep_for(std::chrono::microseconds(500))) {
            for (int burst = 0; burst < 64; ++burst, ++tick) {
                std::string d = Datagram('0', SingleLegText(Code(tick), "F4," + std::to_string(93000 + tick % 1000) + ",",
                                                            3800.0 + tick % 100));
                if (tick % 16 == 5)
                    d = Datagram('9', "SP a2501&a2505,F2,a2501,a2505,SP,12.5,3,30,13.0,4,40,14.0,11.0,80.0,-80.0,F2,");
                if (tick % 16 == 9) d = Datagram('A', "F" + std::to_string(1 + tick % 5) + ",2,1,");
                if (tick % 16 == 13)
                    d = Datagram('3', "31,FA09,F1,B7," + Code(tick) +
                                          ",sell,open,4100.5,2,arb,00077,R1,S1,op,1,2,2,0,4101.25,B,5,12,13,1,10,0,CF1,"
                                          "20240307,101112");
                if (udp_.Send(port_, d)) ++datagrams;
            }
        }
    });
    // Queries and publications into the workers, a bounded number in flight.
    auto poster = [&](bool queries) {
        for (int n = 1; Clock::now() < deadline;) {
            if (host_->Factory().Queue().GetMsgCount() > 256) {
                std::this_thread::sleep_for(std::chrono::microseconds(200));
                continue;
            }
            ++n;
            MessageSpec m = !queries    ? Publication(Code(n * 7), n)
                               : n % 4 == 0 ? Query(620201, "arbicontract_id", "SP a2501&a2505", n)
                               : n % 4 == 1 ? Query(620207, "futu_exch_type", "F1", n)
                               : n % 4 == 2 ? Query(620200, "contract_code", Code(n), n)
                                            : Query(620205, "contract_code", Code(n), n);
            if (host_->PostFromCenter(m) == 0) ++posted;
        }
    };
    std::thread queries(poster, true), intake(poster, false);
    std::thread console([&] {
        for (int n = 0; Clock::now() < deadline; ++n, std::this_thread::sleep_for(std::chrono::milliseconds(5))) {
            hostemu::ConsoleTable t;
            if (hostemu::RunManagementAction(mgr, host_->PackSvr(), 1 + n % 8, &t) == 0) ++dumps;
        }
    });
    std::thread reset([&] {
        while (Clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(700));
            EXPECT_EQ(0, svc_->SysInit());
            ++resets;
        }
    });
    for (std::thread* t : {&udp, &queries, &intake, &console, &reset}) t->join();

    // Let the queues drain (bounded), then the service still answers.
    WaitUntil([&] { return host_->Factory().Queue().GetMsgCount() == 0 && svc_->m_qUDPData.Size() == 0; }, 5000);
    printf("load: %d s, %llu datagrams sent, %llu messages posted, %zu messages out, %llu dumps, %llu resets\n",
           Seconds(), static_cast<unsigned long long>(datagrams.load()), static_cast<unsigned long long>(posted.load()),
           host_->Center().Count(), static_cast<unsigned long long>(dumps.load()),
           static_cast<unsigned long long>(resets.load()));
    EXPECT_GT(datagrams.load(), 0u);
    EXPECT_GT(host_->Center().Count(), 0u);
    EXPECT_GT(dumps.load(), 0u);
    host_->Center().SetMode(hostemu::CHostNeighbour::Record);
    MessageSnapshot a;
    EXPECT_TRUE(Ask(620201, hostemu::MakeBody(33, {"result_type", "arbicontract_id"}, {{1, "SP a2501&a2505"}}), &a));
}

}  // namespace
