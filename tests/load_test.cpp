// Load with everything at once, meant for a ThreadSanitizer build: quotes,
// arbitrage, status and trade datagrams at a high rate over 127.0.0.1;
// queries and quote publications posted into the four workers; management
// dumps 1-8 on the control path; the daily reset now and then. The run is
// bounded by time (TIKRON_LOAD_SECONDS, default 5; CI runs it longer under
// TSan). Afterwards every message is released exactly once and the service
// still answers.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "testing/frame_test_support.h"
#include "wire/quote_records.h"

namespace {

using Clock = std::chrono::steady_clock;

using frametest::Datagram;

std::string Code(int i) {
    char buf[16];
    snprintf(buf, sizeof buf, "IF%04d", 2400 + i % 200);
    return buf;
}

std::string SingleLeg(const std::string& code, int tick) {
    char buf[640];
    snprintf(buf, sizeof buf,
             "%s,3850.2,3855.0,%.1f,3861.2,12,340,3861.6,8,290,3870.0,3845.2,3858.37,11.2,%d,160234,"
             "92973211400.0,4235.2,3465.2,X,0,0,0,0,3849.8,158000,0,0,0,0,3861.0,5,3860.8,7,3860.6,9,"
             "3860.4,11,3861.8,4,3862.0,6,3862.2,8,3862.4,10,F4,%d,",
             code.c_str(), 3800.0 + tick % 100, tick, 93000 + tick % 1000);
    return buf;
}

int Seconds() {
    const char* s = getenv("TIKRON_LOAD_SECONDS");
    int v = s != nullptr ? atoi(s) : 5;
    return v < 1 ? 1 : (v > 120 ? 120 : v);
}

hostemu::MessageSpec Query(int function, const char* field, const std::string& key, int packetId) {
    hostemu::MessageSpec msgDef(function, 0);
    msgDef.packetId = packetId;
    msgDef.body = hostemu::EncodePacked(hostemu::MakeBody(33, {"result_type", field}, {{packetId % 2, key.c_str()}}));
    return msgDef;
}

hostemu::MessageSpec Publication(const std::string& code, int tick) {
    tagHQInfo_EX rec;
    memset(&rec, 0, sizeof rec);
    snprintf(rec.contract_code, sizeof rec.contract_code, "%s", code.c_str());
    snprintf(rec.futu_exch_type, sizeof rec.futu_exch_type, "F4");
    rec.futu_last_price = 3800.0 + tick % 50;
    rec.time_stamp = 93000 + tick % 1000;
    hostemu::PackedBody b;
    b.columns = {{"type", 'S', 255, 4}, {"futu_hq_raw", 'R', static_cast<int>(sizeof rec) + 1, 4}};
    b.rows = {{hostemu::PackCell(1), hostemu::PackCell::Raw(&rec, sizeof rec)}};
    hostemu::MessageSpec msgDef(620003, 0);
    msgDef.issueType = 22;
    msgDef.body = hostemu::EncodePacked(b);
    return msgDef;
}

TEST(Load, EverythingAtOnceStaysConsistentAndReleasesEveryMessage) {
    frametest::TempWorkDir dir;
    ASSERT_TRUE(dir.Enter());

    auto host = std::make_unique<hostemu::HostEmulator>(frametest::Options(frametest::Config(
        "<args enableudprecv=\"1\" port=\"0\" udprecvbuflen=\"8\" enableudphq=\"1\" enableudphb=\"1\"/>"
        "<convert><convert22to16>1</convert22to16><convert22to33100>1</convert22to33100></convert>")));
    ASSERT_EQ(0, host->Start()) << host->Error();
    host->Center().SetMode(hostemu::CHostNeighbour::CountOnly);
    host->Client().SetMode(hostemu::CHostNeighbour::CountOnly);
    CTIKRONServiceImpl* svc = frametest::Svc(*host);
    ASSERT_NE(nullptr, svc->m_pUDPRecv);
    const unsigned port = svc->m_pUDPRecv->GetPort();
    IKnown* mgrKnown = nullptr;
    ASSERT_EQ(1, host->Service()->QueryInterface(SID_MANAGER, &mgrKnown));
    IManager* mgr = static_cast<IManager*>(mgrKnown);

    const auto deadline = Clock::now() + std::chrono::seconds(Seconds());
    std::atomic<uint64_t> datagrams{0}, posted{0}, dumps{0}, resets{0};

    std::thread udp([&] {
        int fd = socket(AF_INET, SOCK_DGRAM, 0);
        if (fd < 0) return;
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(static_cast<uint16_t>(port));
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        int tick = 0;
        while (Clock::now() < deadline) {
            for (int burst = 0; burst < 64; ++burst, ++tick) {
                std::string d;
                switch (tick % 16) {
                    case 5: d = Datagram('9', "SP a2501&a2505,F2,a2501,a2505,SP,12.5,3,30,13.0,4,40,14.0,11.0,80.0,-80.0,F2,"); break;
                    case 9: d = Datagram('A', "F" + std::to_string(1 + tick % 5) + ",2,1,"); break;
                    case 13:
                        d = Datagram('3', "31,FA09,F1,B7," + Code(tick) + ",sell,open,4100.5,2,arb,00077,R1,S1,op,1,2,"
                                          "2,0,4101.25,B,5,12,13,1,10,0,CF1,20240307,101112");
                        break;
                    default: d = Datagram('0', SingleLeg(Code(tick), tick)); break;
                }
                if (sendto(fd, d.data(), d.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to) > 0) ++datagrams;
            }
            std::this_thread::sleep_for(std::chrono::microseconds(500));
        }
        close(fd);
    });

    // Queries and publications into the workers, a bounded number in flight.
    auto poster = [&](bool queries) {
        int n = 0;
        while (Clock::now() < deadline) {
            if (host->Factory().Queue().GetMsgCount() > 256) {
                std::this_thread::sleep_for(std::chrono::microseconds(200));
                continue;
            }
            ++n;
            hostemu::MessageSpec msgDef = queries ? (n % 4 == 0   ? Query(620201, "arbicontract_id", "SP a2501&a2505", n)
                                                   : n % 4 == 1 ? Query(620207, "futu_exch_type", "F1", n)
                                                   : n % 4 == 2 ? Query(620200, "contract_code", Code(n), n)
                                                                : Query(620205, "contract_code", Code(n), n))
                                                : Publication(Code(n * 7), n);
            if (host->PostFromCenter(msgDef) == 0) ++posted;
        }
    };
    std::thread queries(poster, true);
    std::thread intake(poster, false);

    std::thread console([&] {
        int n = 0;
        while (Clock::now() < deadline) {
            const int fid = 1 + n++ % 8;
            IF2UnPacker* req = host->PackSvr().GetUnPacker(33);
            std::vector<char> body = hostemu::EncodePacked(hostemu::MakeBody(33, {"function_id"}, {{fid}}));
            IF2Packer* answer = host->PackSvr().GetPacker(33);
            if (req->Open(body.data(), static_cast<int>(body.size())) == 0) {
                answer->BeginPack();
                mgr->ProcMngRequest(req, answer);
                answer->EndPack();
                ++dumps;
            }
            answer->FreeMem(answer->GetPackBuf());
            answer->Release();
            req->Release();
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    });

    std::thread reset([&] {
        while (Clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(700));
            EXPECT_EQ(0, svc->SysInit());
            ++resets;
        }
    });

    udp.join();
    queries.join();
    intake.join();
    console.join();
    reset.join();

    // Let the queues drain (bounded), then the service still answers.
    for (int i = 0; i < 500 && (host->Factory().Queue().GetMsgCount() > 0 || svc->m_qUDPData.Size() > 0); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const size_t published = host->Center().Count();
    printf("load: %d s, %llu datagrams sent, %llu messages posted, %zu messages out, %llu dumps, %llu resets\n",
           Seconds(), static_cast<unsigned long long>(datagrams.load()), static_cast<unsigned long long>(posted.load()),
           published, static_cast<unsigned long long>(dumps.load()), static_cast<unsigned long long>(resets.load()));
    EXPECT_GT(datagrams.load(), 0u);
    EXPECT_GT(published, 0u);
    EXPECT_GT(dumps.load(), 0u);

    host->Shutdown();
    const hostemu::MessageStats s = host->Factory().Stats();
    EXPECT_EQ(0u, s.live) << host->Factory().LeakReport();
    EXPECT_EQ(0u, s.doubleReleases);
    EXPECT_EQ(0u, s.usesAfterRelease);
    host.reset();
}

}  // namespace
