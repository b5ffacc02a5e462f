// Packing and unpacking a typical 46-column quote row with the emulator's
// packer service. Baseline: memcpy of the same packed bytes.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "host/host_pack.h"

namespace {

constexpr int kColumns = 46;

std::vector<std::string> ColumnNames() {
    std::vector<std::string> names;
    for (int i = 0; i < kColumns; ++i) names.push_back("field_" + std::to_string(i));
    return names;
}

// A quote row: contract texts, a few integers, prices as doubles, a flag.
void PackRow(IF2Packer* p, const std::vector<std::string>& names, int seq) {
    p->BeginPack();
    for (const std::string& n : names) p->AddField(n.c_str(), 'S', 255, 4);
    p->AddStr("IF2406");
    p->AddStr("CFFEX");
    p->AddChar('0');
    for (int i = 3; i < 10; ++i) p->AddInt(seq + i);
    for (int i = 10; i < kColumns - 1; ++i) p->AddDouble(3500.2 + i * 0.2);
    p->AddStr("20240614");
    p->EndPack();
}

void BM_PackQuoteRow(benchmark::State& state) {
    hostemu::CHostPackSvr svr;
    IF2Packer* p = svr.GetPacker(33);
    std::vector<std::string> names = ColumnNames();
    int seq = 0;
    for (auto _ : state) {
        PackRow(p, names, ++seq);
        benchmark::DoNotOptimize(p->GetPackBuf());
    }
    state.SetItemsProcessed(state.iterations());
    p->Release();
}
BENCHMARK(BM_PackQuoteRow);

void BM_UnpackQuoteRow(benchmark::State& state) {
    hostemu::CHostPackSvr svr;
    IF2Packer* p = svr.GetPacker(33);
    std::vector<std::string> names = ColumnNames();
    PackRow(p, names, 1);
    IF2UnPacker* u = svr.GetUnPacker(33);
    double sum = 0;
    for (auto _ : state) {
        if (u->Open(p->GetPackBuf(), p->GetPackLen()) != 0) state.SkipWithError("open failed");
        sum += u->GetDouble("field_20") + u->GetInt("field_5");
        benchmark::DoNotOptimize(u->GetStr("field_0"));
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations());
    u->Release();
    p->Release();
}
BENCHMARK(BM_UnpackQuoteRow);

// Baseline for the ratios: copying the packed row once.
void BM_CopyPackedRow(benchmark::State& state) {
    hostemu::CHostPackSvr svr;
    IF2Packer* p = svr.GetPacker(33);
    PackRow(p, ColumnNames(), 1);
    std::vector<char> dst(static_cast<size_t>(p->GetPackLen()));
    for (auto _ : state) {
        memcpy(dst.data(), p->GetPackBuf(), dst.size());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
    p->Release();
}
BENCHMARK(BM_CopyPackedRow);

}  // namespace

BENCHMARK_MAIN();
