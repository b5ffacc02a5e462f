// Quote query round trips through the service queue and the four workers
// (one contract, and 100 contracts per request), next to the heartbeat
// round trip (answered without table or packing) as the baseline of the
// same run; and the time and size of a whole-table sync answer for 10,000
// contracts. Latency counters are microseconds (p50, p99).
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "testing/frame_test_support.h"
#include "host/host_center.h"
#include "store/hq_tables.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Plugin {
    testing_support::TempWorkDir dir;
    std::unique_ptr<hostemu::HostEmulator> host;
    std::unique_ptr<hostemu::CMessageCenter> center;

    explicit Plugin(int contracts) {
        if (!dir.Enter()) abort();
        host.reset(new hostemu::HostEmulator(
            frametest::Options(frametest::Config("<args enableudprecv=\"0\"/>"))));
        host->Factory().SetReportLeaks(false);
        if (host->Start() != 0) abort();
        center.reset(new hostemu::CMessageCenter(*host));
        // The registration answer stops the registration requests, so every
        // message the center counts below is an answer being timed.
        host->PostFromCenter(hostemu::MessageSpec(2, 1));
        for (int i = 0; i < contracts; ++i) {
            tagHQInfo_EX r;
            memset(&r, 0, sizeof r);
            snprintf(r.contract_code, sizeof r.contract_code, "C%05d", i);
            r.futu_last_price = 100 + i;
            hostemu::PackedBody b;
            b.columns = {{"type", 'S', 255, 4}, {"futu_hq_raw", 'R', 329, 4}};
            b.rows = {{hostemu::PackCell(1), hostemu::PackCell::Raw(&r, sizeof r)}};
            center->Publish(22, b);
        }
        auto* svc = frametest::Svc(*host);
        for (int i = 0; i < 20000 && svc->m_pTIKRONInfo_EX->GetCount() < static_cast<size_t>(contracts); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        host->Center().SetMode(hostemu::CHostNeighbour::CountOnly);
    }
    ~Plugin() {
        center.reset();
        host.reset();
    }
    // Posts and waits for the answer; returns microseconds.
    double RoundTrip(const hostemu::MessageSpec& req) {
        const size_t before = host->Center().Count();
        auto t0 = Clock::now();
        host->PostFromClient(req);
        while (host->Center().Count() == before) {
        }
        return std::chrono::duration<double, std::micro>(Clock::now() - t0).count();
    }
};

void Report(benchmark::State& state, std::vector<double>& us) {
    if (us.empty()) return;
    std::sort(us.begin(), us.end());
    state.counters["p50_us"] = us[us.size() / 2];
    state.counters["p99_us"] = us[std::min(us.size() - 1, us.size() * 99 / 100)];
}

hostemu::MessageSpec Query(int contracts) {
    std::vector<std::vector<hostemu::PackCell>> rows;
    for (int i = 0; i < contracts; ++i) {
        char code[16];
        snprintf(code, sizeof code, "C%05d", i);
        rows.push_back({hostemu::PackCell(1), hostemu::PackCell(code)});
    }
    hostemu::MessageSpec s(620205, 0);
    s.body = hostemu::EncodePacked(hostemu::MakeBody(33, {"result_type", "contract_code"}, rows));
    return s;
}

void BM_HeartbeatRoundTrip(benchmark::State& state) {
    Plugin p(0);
    std::vector<double> us;
    for (auto _ : state) us.push_back(p.RoundTrip(hostemu::MessageSpec(620000, 0)));
    Report(state, us);
}
BENCHMARK(BM_HeartbeatRoundTrip)->UseRealTime()->Iterations(2000);

void BM_QueryRoundTrip(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    Plugin p(100);
    const hostemu::MessageSpec q = Query(n);
    std::vector<double> us;
    for (auto _ : state) us.push_back(p.RoundTrip(q));
    Report(state, us);
    state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_QueryRoundTrip)->Arg(1)->Arg(100)->UseRealTime()->Iterations(2000);

void BM_SyncAnswer10k(benchmark::State& state) {
    Plugin p(10000);
    hostemu::MessageSpec s(620204, 0);
    s.key = hostemu::EncodePacked(hostemu::MakeBody(33, {"result_type"}, {{static_cast<int>(state.range(0))}}));
    std::vector<double> us;
    for (auto _ : state) us.push_back(p.RoundTrip(s));
    Report(state, us);
    // One more answer, recorded, for its size.
    p.host->Center().SetMode(hostemu::CHostNeighbour::Record);
    p.host->PostFromClient(s);
    hostemu::MessageSnapshot answer;
    p.host->Center().WaitFor([](const hostemu::MessageSnapshot& m) { return m.FunctionNo() == 620204; }, 10000,
                             &answer);
    const size_t bytes = answer.Body().size();
    state.counters["answer_bytes"] = static_cast<double>(bytes);
}
BENCHMARK(BM_SyncAnswer10k)->Arg(0)->Arg(1)->UseRealTime()->Iterations(20);

}  // namespace

BENCHMARK_MAIN();
