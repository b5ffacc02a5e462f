// Consumer-side cost of one single-leg quote datagram, without network noise:
// the whole dispatch (DoUDPHelper: framing, both parsers, both tables with
// their snapshot files, the 33100 text, three publications into a neighbour
// that counts and releases) and its parts. Baseline in the same run: a
// memcpy of the datagram (BM_Baseline_CopyDatagram), so figures can be read
// as ratios on any machine.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "frame/tikron_service.h"
#include "host/host_emulator.h"
#include "quote/quote_text.h"
#include "bench/bench_quotes.h"
#include "store/hq_tables.h"
#include "store/single_leg_fields.h"
#include "testing/service_test_support.h"
#include "quote/quote_publish.h"

namespace {

using benchquotes::kContracts;

using benchquotes::MakeDatagrams;

// The service, counting what it publishes, and the datagrams it is fed.
class Fixture {
public:
    Fixture() : m_service(0), m_grams(MakeDatagrams()) {
        m_service.Center().SetMode(hostemu::CHostNeighbour::CountOnly);
    }
    CTIKRONServiceImpl& Svc() { return m_service.Svc(); }
    const std::string& Gram(long i) const { return m_grams[static_cast<size_t>(i % kContracts)]; }
    size_t Published() { return m_service.Center().Count(); }

private:
    tikron_udp::ScratchService m_service;
    std::vector<std::string> m_grams;
};

void BM_Baseline_CopyDatagram(benchmark::State& state) {
    std::vector<std::string> grams = MakeDatagrams();
    char buf[1024];
    long i = 0;
    for (auto _ : state) {
        const std::string& g = grams[static_cast<size_t>(i++ % kContracts)];
        memcpy(buf, g.data(), g.size());
        benchmark::DoNotOptimize(buf);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Baseline_CopyDatagram);

// The consumer thread's whole work for one '0' datagram.
void BM_DoUDPHelper(benchmark::State& state) {
    Fixture fx;
    long i = 0;
    for (auto _ : state) {
        const std::string& g = fx.Gram(i++);
        benchmark::DoNotOptimize(
            fx.Svc().DoUDPHelper(const_cast<char*>(g.c_str()), static_cast<int>(g.size())));
    }
    if (fx.Published() != static_cast<size_t>(state.iterations()) * 3)
        state.SkipWithError("not every datagram published three messages");
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_DoUDPHelper);
// Fixed count for instruction profiles, e.g.
//   valgrind --tool=callgrind --toggle-collect='CTIKRONServiceImpl::DoUDPHelper*'
//            udp_path_bench --benchmark_filter=DoUDPHelper_Fixed
// then divide the collected instructions by 20000.
void BM_DoUDPHelper_Fixed(benchmark::State& state) { BM_DoUDPHelper(state); }
BENCHMARK(BM_DoUDPHelper_Fixed)->Iterations(20000);

// Text fields only: the comma reader into an extended record.
void BM_ParseSingleLeg(benchmark::State& state) {
    std::vector<std::string> grams = MakeDatagrams();
    long i = 0;
    for (auto _ : state) {
        tagHQInfo_EX ex;
        memset(&ex, 0, sizeof ex);
        const char* cur = grams[static_cast<size_t>(i++ % kContracts)].c_str() + 6;
        benchmark::DoNotOptimize(tikron_store::ReadSingleLegFields(&cur, ex));
        benchmark::DoNotOptimize(ex);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ParseSingleLeg);

// Parse plus store (table update and snapshot slot write).
void BM_GetHQFromData(benchmark::State& state) {
    Fixture fx;
    long i = 0;
    for (auto _ : state) {
        tagHQInfo_EX ex;
        memset(&ex, 0, sizeof ex);
        const std::string& g = fx.Gram(i++);
        benchmark::DoNotOptimize(fx.Svc().m_pTIKRONInfo_EX->GetHQFromData(
            g.c_str() + 6, static_cast<int>(g.size()) - 6 - 17, &ex));
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_GetHQFromData);

tagHQInfo_EX ParsedRecord() {
    std::vector<std::string> grams = MakeDatagrams();
    tagHQInfo_EX ex;
    memset(&ex, 0, sizeof ex);
    const char* cur = grams[7].c_str() + 6;
    tikron_store::ReadSingleLegFields(&cur, ex);
    return ex;
}

void BM_Convert22To33100(benchmark::State& state) {
    tagHQInfo_EX ex = ParsedRecord();
    char buf[16384];
    for (auto _ : state) {
        ex.time_stamp++;
        benchmark::DoNotOptimize(Convert22To33100(&ex, buf, sizeof buf));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Convert22To33100);

// One publication of the raw 328-byte record (issue type 22).
void BM_PublishRaw(benchmark::State& state) {
    Fixture fx;
    tagHQInfo_EX ex = ParsedRecord();
    for (auto _ : state) {
        benchmark::DoNotOptimize(tikron_udp::Publish(
            fx.Svc(), tikron_udp::kFuncQuotePublish, 22, tikron_udp::TextKey("contract_code", "IF0007"),
            tikron_udp::RawQuoteBody(tikron_udp::kTypeSingleLeg, &ex, static_cast<int>(sizeof ex))));
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_PublishRaw);

// One publication of the 33100 text.
void BM_PublishText(benchmark::State& state) {
    Fixture fx;
    tagHQInfo_EX ex = ParsedRecord();
    char buf[16384];
    const char* text = Convert22To33100(&ex, buf, sizeof buf);
    const int width = static_cast<int>(strlen(text)) + 1;
    for (auto _ : state) {
        benchmark::DoNotOptimize(tikron_udp::Publish(fx.Svc(), tikron_udp::kFuncQuotePublish, 33100,
                                                     tikron_udp::TextKey("contract_code", "IF0007"),
                                                     tikron_udp::TextBody(text, width)));
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_PublishText);

}  // namespace

BENCHMARK_MAIN();
