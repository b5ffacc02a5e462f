// Quote store costs: updating an existing key with the mapped snapshot mirror,
// with the pwrite mirror (one system call per update) and without a file, next
// to a plain map update as the baseline; and parsing each record kind from
// datagram text, next to a plain atof/atoi split of the same text.
// System calls per update: the "rw_syscalls/update" counter counts read and
// write calls (/proc/self/io syscr + syscw); for every kind of call run one
// benchmark under `strace -c -f --benchmark_filter=<name>`.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <fstream>

#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "store/hq_tables.h"
#include "testing/temp_dir.h"

namespace {

const char* const kCodes[] = {"IF2412", "rb2501", "SR501", "m2505", "au2506", "sc2503", "IC2412", "cu2502"};
constexpr int kCodeCount = 8;

std::string SingleLegText(const char* code, const char* exch) {
    char buf[1024];
    std::snprintf(buf, sizeof buf,
                  "%s,3850.2,3855.0,3861.4,3861.2,12,340,3861.6,8,290,3870.0,3845.2,3858.37,11.2,80321,160234,"
                  "92973211400.0,4235.2,3465.2,X,0,0,0,0,3849.8,158000,0,0,0,0,3861.0,5,3860.8,7,3860.6,9,"
                  "3860.4,11,3861.8,4,3862.0,6,3862.2,8,3862.4,10,%s",
                  code, exch);
    return buf;
}

std::string TempPath(const char* name) {
    static testing_support::TempDir dir;  // removed at exit
    return dir / name;
}

const char* kNoFile = "/nonexistent-dir/tikron_ex_bench.db";  // open fails: no mirror

tagHQInfo_EX Record(int k, int i) {
    tagHQInfo_EX r;
    std::memset(&r, 0, sizeof r);
    std::strcpy(r.contract_code, kCodes[k]);
    r.futu_last_price = 3000.0 + i;
    r.business_amount = i;
    return r;
}

// Read and write system calls of this process so far (/proc/self/io).
uint64_t ReadWriteSyscalls() {
    std::ifstream in("/proc/self/io");
    std::string name;
    uint64_t value = 0, total = 0;
    while (in >> name >> value) {
        if (name == "syscr:" || name == "syscw:") total += value;
    }
    return total;
}

void UpdateExisting(benchmark::State& state, CTIKRONInfo_EX& table) {
    for (int k = 0; k < kCodeCount; ++k) {
        tagHQInfo_EX r = Record(k, 0);
        table.AddHQInfo(&r, 0);
    }
    int i = 0;
    uint64_t before = ReadWriteSyscalls();
    for (auto _ : state) {
        tagHQInfo_EX r = Record(i % kCodeCount, i);
        benchmark::DoNotOptimize(table.AddHQInfo(&r, 0));
        ++i;
    }
    uint64_t after = ReadWriteSyscalls();
    // The two /proc reads themselves count a few; negligible over the run.
    state.counters["rw_syscalls/update"] =
        benchmark::Counter(static_cast<double>(after - before) / static_cast<double>(i > 0 ? i : 1));
}

void BM_AddHQInfo_ExistingKey_WithSnapshot(benchmark::State& state) {
    CTIKRONInfo_EX table(TempPath("tikron_ex_bench.db").c_str());
    UpdateExisting(state, table);
}
BENCHMARK(BM_AddHQInfo_ExistingKey_WithSnapshot);

// The previous mirror: one pwrite of the slot per update.
void BM_AddHQInfo_ExistingKey_PwriteMirror(benchmark::State& state) {
    tikron_store::SnapshotMirror::SetMappingEnabled(false);
    CTIKRONInfo_EX table(TempPath("tikron_ex_bench_pwrite.db").c_str());
    tikron_store::SnapshotMirror::SetMappingEnabled(true);
    UpdateExisting(state, table);
}
BENCHMARK(BM_AddHQInfo_ExistingKey_PwriteMirror);

void BM_AddHQInfo_ExistingKey_NoFile(benchmark::State& state) {
    CTIKRONInfo_EX table(kNoFile);
    UpdateExisting(state, table);
}
BENCHMARK(BM_AddHQInfo_ExistingKey_NoFile);

void BM_PlainMapUpdate_Baseline(benchmark::State& state) {
    std::map<CMapKey, tagHQInfo_EX> m;
    for (int k = 0; k < kCodeCount; ++k) m[CMapKey(kCodes[k])] = Record(k, 0);
    int i = 0;
    for (auto _ : state) {
        tagHQInfo_EX r = Record(i % kCodeCount, i);
        std::memcpy(&m[CMapKey(r.contract_code)], &r, sizeof r);
        benchmark::ClobberMemory();
        ++i;
    }
}
BENCHMARK(BM_PlainMapUpdate_Baseline);

// Floor of the mirror on this machine: one bare pwrite of a slot.
void BM_BarePwriteOfOneSlot_Floor(benchmark::State& state) {
    int fd = ::open(TempPath("pwrite_floor.db").c_str(), O_RDWR | O_CREAT, 0644);
    char slot[sizeof(tagSaveHQInfo<tagHQInfo_EX>)] = {0};
    for (auto _ : state) benchmark::DoNotOptimize(::pwrite(fd, slot, sizeof slot, 16));
    ::close(fd);
}
BENCHMARK(BM_BarePwriteOfOneSlot_Floor);

// --- parsers (tables without a file, so the figure is parse + map update) ----

void BM_Parse_SingleLeg_Legacy(benchmark::State& state) {
    CTIKRONInfo table("/nonexistent-dir/tikron_bench.db");
    std::string text = SingleLegText("IF2412", "F4");
    for (auto _ : state) {
        tagHQInfo r;
        std::memset(&r, 0, sizeof r);
        benchmark::DoNotOptimize(table.GetHQFromData(text.c_str(), static_cast<int>(text.size()), &r));
    }
}
BENCHMARK(BM_Parse_SingleLeg_Legacy);

// The same parse with the table's mapped snapshot mirror behind it.
void BM_Parse_SingleLeg_Extended_WithSnapshot(benchmark::State& state) {
    CTIKRONInfo_EX table(TempPath("tikron_ex_parse_bench.db").c_str());
    std::string text = SingleLegText("IF2412", "F4") + ",93015,";
    for (auto _ : state) {
        tagHQInfo_EX r;
        std::memset(&r, 0, sizeof r);
        benchmark::DoNotOptimize(table.GetHQFromData(text.c_str(), static_cast<int>(text.size()), &r));
    }
}
BENCHMARK(BM_Parse_SingleLeg_Extended_WithSnapshot);

void BM_Parse_SingleLeg_Extended(benchmark::State& state) {
    CTIKRONInfo_EX table(kNoFile);
    std::string text = SingleLegText("IF2412", "F4") + ",93015,";
    for (auto _ : state) {
        tagHQInfo_EX r;
        std::memset(&r, 0, sizeof r);
        benchmark::DoNotOptimize(table.GetHQFromData(text.c_str(), static_cast<int>(text.size()), &r));
    }
}
BENCHMARK(BM_Parse_SingleLeg_Extended);

void BM_Parse_Arbitrage(benchmark::State& state) {
    CTIKRONARGInfo table("/nonexistent-dir/tikronarg_bench.db");
    std::string text = "SP SR501&SR505,F1,SR501,SR505,SP,-35,12,120,-33,9,90,-30,-40,200,-200,F1";
    for (auto _ : state) {
        tagArgHQInfo r;
        std::memset(&r, 0, sizeof r);
        benchmark::DoNotOptimize(table.GetHQFromData(text.c_str(), static_cast<int>(text.size()), &r));
    }
}
BENCHMARK(BM_Parse_Arbitrage);

void BM_Parse_ExchStatus(benchmark::State& state) {
    CExchStatusInfo table("/nonexistent-dir/futuexchstatus_bench.db");
    std::string text = "F3,2,1,";
    for (auto _ : state) {
        tagEXCHSTATUS r;
        std::memset(&r, 0, sizeof r);
        benchmark::DoNotOptimize(table.GetHQFromData(text.c_str(), static_cast<int>(text.size()), &r));
    }
}
BENCHMARK(BM_Parse_ExchStatus);

// Baseline: split the single-leg text with strchr and convert every numeric
// field with atof/atoi through a terminated copy, the straightforward way.
void BM_Parse_SingleLeg_AtofBaseline(benchmark::State& state) {
    std::string text = SingleLegText("IF2412", "F4") + ",";
    static const bool kIsInt[47] = {0, 0, 0, 0, 0, 1, 1, 0, 1, 1, 0, 0, 0, 0, 1, 1, 0, 0, 0, 0, 0, 0, 1, 1,
                                    0, 0, 0, 0, 0, 0, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0};
    for (auto _ : state) {
        double d[47];
        int iv[47];
        const char* p = text.c_str();
        for (int f = 0; f < 47; ++f) {
            const char* e = std::strchr(p, ',');
            char buf[40] = {0};
            size_t n = static_cast<size_t>(e - p);
            std::memcpy(buf, p, n < 39 ? n : 39);
            if (kIsInt[f])
                iv[f] = std::atoi(buf);
            else
                d[f] = std::atof(buf);
            p = e + 1;
        }
        benchmark::DoNotOptimize(d);
        benchmark::DoNotOptimize(iv);
    }
}
BENCHMARK(BM_Parse_SingleLeg_AtofBaseline);

}  // namespace

BENCHMARK_MAIN();
