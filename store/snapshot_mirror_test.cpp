// Snapshot mirror: kills at random moments never leave a torn slot, updates
// are in the file when AddHQInfo returns, write failures stay codes and log
// lines, and the journal repairs exactly what it should.
#include "store/hq_tables.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <random>

#include "store/snapshot_journal.h"
#include "testing/store_test_support.h"

namespace {

using SlotEx = tagSaveHQInfo<tagHQInfo_EX>;
constexpr size_t kR = sizeof(SlotEx);
constexpr size_t kCode = sizeof(tagHQInfo_EX::contract_code);

// Every byte after the contract code comes from v, so a record mixing two
// updates is seen (word-wise: a short copy loop in the updater, so kills
// land in the table's copy more often).
tagHQInfo_EX Stamped(int k, uint64_t v) {
    tagHQInfo_EX r;
    std::memset(&r, 0, sizeof r);
    std::snprintf(r.contract_code, sizeof r.contract_code, "KC%d", 1000 + k);
    char* p = reinterpret_cast<char*>(&r);
    size_t off = kCode;
    for (; off + 8 <= sizeof r; off += 8) std::memcpy(p + off, &v, 8);
    std::memcpy(p + off, &v, sizeof r - off);
    return r;
}

// The stamp of a record, or false when its bytes are mixed.
bool StampOf(const tagHQInfo_EX& r, uint64_t& v) {
    std::memcpy(&v, reinterpret_cast<const char*>(&r) + kCode, sizeof v);
    const tagHQInfo_EX want = Stamped(0, v);
    return std::memcmp(reinterpret_cast<const char*>(&r) + kCode, reinterpret_cast<const char*>(&want) + kCode,
                       sizeof r - kCode) == 0;
}

// The stamp the table holds for key k: UINT64_MAX when missing, -1 when torn.
uint64_t LoadedStamp(CTIKRONInfo_EX& t, int k) {
    tagHQInfo_EX q = Stamped(k, 0);
    uint64_t v = UINT64_MAX;
    if (t.GetHQInfo(&q) == 1 && !StampOf(q, v)) v = UINT64_MAX - 1;
    return v;
}

// Every slot of the file equals the table's entry for it.
void ExpectFileEqualsTable(CTIKRONInfo_EX& t, const std::string& path) {
    const std::string bytes = ReadFile(path);
    t.LockMap();
    EXPECT_EQ(bytes.size(), 16 + t.GetHQMap().size() * kR);
    for (auto& kv : t.GetHQMap())
        EXPECT_EQ(std::memcmp(&bytes[0] + 16 + (kv.second->iRecordNo - 1) * kR, kv.second, kR), 0) << kv.first.GetKey();
    t.UnlockMap();
}

// A child makes K keys, says ready, then updates key v % K with stamp v in a
// tight loop (with addKeys every 64th step adds a key instead), publishing
// the last completed stamp per key in shared memory, until it is killed
// after delayUs. The reloaded table holds for each key its last completed
// update or the one in flight, whole, and writes on in place.
void KillAndCheck(const std::string& path, int K, bool addKeys, unsigned delayUs) {
    const int kMax = 2100;
    const size_t bytes = sizeof(std::atomic<uint64_t>) * kMax;
    void* shm = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(shm, MAP_FAILED);
    auto* done = static_cast<std::atomic<uint64_t>*>(shm);
    for (int i = 0; i < kMax; ++i) new (&done[i]) std::atomic<uint64_t>(UINT64_MAX);
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        CTIKRONInfo_EX t(path.c_str());
        for (int k = 0; k < K; ++k) {
            tagHQInfo_EX r = Stamped(k, static_cast<uint64_t>(k));
            t.AddHQInfo(&r, 0);
            done[k].store(static_cast<uint64_t>(k));
        }
        if (write(fds[1], "r", 1) != 1) _exit(2);
        for (uint64_t v = static_cast<uint64_t>(K), keys = v;; ++v) {
            const bool add = addKeys && v % 64 == 0 && keys < 2000;
            const int k = static_cast<int>(add ? keys++ : v % static_cast<uint64_t>(K));
            tagHQInfo_EX r = Stamped(k, v);
            t.AddHQInfo(&r, 0);
            done[k].store(v);
        }
    }
    close(fds[1]);
    char c = 0;
    const ssize_t n = read(fds[0], &c, 1);
    close(fds[0]);
    if (n == 1) usleep(delayUs);
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    ASSERT_EQ(n, 1) << "updater failed before it was ready";
    int created = 0;
    while (created < kMax && done[created].load() != UINT64_MAX) ++created;
    {
        CTIKRONInfo_EX t(path.c_str());
        const int loaded = static_cast<int>(t.GetCount());
        // The key being added when the kill came may or may not be there.
        EXPECT_TRUE(loaded == created || (addKeys && loaded == created + 1)) << loaded << " vs " << created;
        EXPECT_EQ(FileSize(path), static_cast<long>(16 + loaded * kR));
        for (int k = 0; k <= created; ++k) {
            const uint64_t v = LoadedStamp(t, k), last = done[k].load();
            ASSERT_NE(v, UINT64_MAX - 1) << "torn record of key " << k;
            if (k == created) break;  // the key in flight: any whole record
            const bool ok = v == last || (addKeys ? v > last && v <= last + 2 * K : v == last + K);
            EXPECT_TRUE(ok) << "key " << k << ": file " << v << ", last completed " << last;
        }
        tagHQInfo_EX r = Stamped(0, 7);
        EXPECT_EQ(t.AddHQInfo(&r, 0), 0);
        ExpectFileEqualsTable(t, path);
    }
    munmap(shm, bytes);
}

TEST(SnapshotKill, RandomKillsLeaveWholeRecordsOnly) {
    ScratchDir dir;
    std::mt19937 rng(20240611);
    // 40 slots of 336 bytes: many straddle a page boundary. Many short runs:
    // a kill lands inside a slot copy only now and then.
    for (int run = 0; run < 100 && !HasFatalFailure(); ++run)
        KillAndCheck(dir.File("tikron_ex_kill.db"), 40, false, 200 + rng() % 5000);
    for (int run = 0; run < 12 && !HasFatalFailure(); ++run)
        KillAndCheck(dir.File("tikron_ex_grow.db"), 8, true, 1000 + rng() % 20000);
}

TEST(SnapshotMirror, DeleteAllAndDestructionResetTheJournal) {
    ScratchDir dir;
    const std::string path = dir.File("tikron_ex.db"), jnl = tikron_store::JournalPathOf(path.c_str());
    {
        CTIKRONInfo_EX t(path.c_str());
        auto addTwice = [&t](int k) {
            tagHQInfo_EX r = Stamped(k, 5);
            return t.AddHQInfo(&r, 0) + t.AddHQInfo(&r, 0);
        };
        ASSERT_EQ(addTwice(1), 0);
        EXPECT_EQ(FileSize(jnl), static_cast<long>(tikron_store::kJournalFileSize));
        t.DeleteAll();
        EXPECT_EQ(FileSize(path), 0);
        ASSERT_EQ(addTwice(2), 0);
        EXPECT_EQ(FileSize(path), static_cast<long>(16 + kR));
    }
    EXPECT_EQ(FileSize(path), 0);
    EXPECT_EQ(FileSize(jnl), -1);
}

// --- journal replay on load ------------------------------------------------------

std::string JournalWith(uint64_t slotNo, const SlotEx& slot, uint64_t commit, uint64_t applied) {
    tikron_store::SlotJournalHead h{{}, kR, 16, commit, applied, slotNo, {}};
    std::memcpy(h.szMagic, tikron_store::kJournalMagic, sizeof h.szMagic);
    std::string page(tikron_store::kJournalFileSize, '\0');
    std::memcpy(&page[0], &h, sizeof h);
    std::memcpy(&page[tikron_store::kJournalDataOffset], &slot, sizeof slot);
    return page;
}

std::string SnapshotOf(int K, uint64_t v) {
    std::vector<SlotEx> slots;
    for (int k = 0; k < K; ++k) slots.push_back({k + 1, Stamped(k, v), k + 1});
    return SnapshotImage(static_cast<uint64_t>(GetDate()), slots);
}

TEST(SnapshotJournal, CommittedEntryRepairsATornSlotAndOnlyThen) {
    ScratchDir dir;
    const std::string path = dir.File("tikron_ex.db"), jnl = tikron_store::JournalPathOf(path.c_str());
    const SlotEx next{2, Stamped(1, 99), 2};
    // Torn slot 2 (half old, half new) with a committed, unapplied entry.
    std::string file = SnapshotOf(3, 10);
    std::memcpy(&file[16 + kR], &next, kR / 2);
    WriteFile(path, file);
    WriteFile(jnl, JournalWith(2, next, 8, 7));
    {
        CTIKRONInfo_EX t(path.c_str());
        EXPECT_EQ((std::vector<uint64_t>{10, 99, 10}),
                  (std::vector<uint64_t>{LoadedStamp(t, 0), LoadedStamp(t, 1), LoadedStamp(t, 2)}));
        EXPECT_EQ(FileSize(path), static_cast<long>(16 + 3 * kR));
        EXPECT_EQ(t.GetJournalReplays(), 1u);
    }
    // Entries that must not be replayed.
    SlotEx wrongNo = next;
    wrongNo.iRecordNo = 3;
    std::string otherSize = JournalWith(2, next, 8, 7), otherHead = otherSize;
    otherSize[8] = 20;
    otherHead[12] = 20;
    const std::pair<const char*, std::string> cases[] = {
        {"applied", JournalWith(2, next, 8, 8)},
        {"other slot size", otherSize},
        {"other header size", otherHead},
        {"outside the file", JournalWith(4, next, 8, 7)},
        {"slot zero", JournalWith(0, next, 8, 7)},
        {"self number differs", JournalWith(2, wrongNo, 8, 7)},
        {"garbage", std::string(tikron_store::kJournalFileSize, '\x7f')},
        {"short", std::string("TKRJNL1")},
    };
    for (const auto& c : cases) {
        WriteFile(path, SnapshotOf(3, 10));
        WriteFile(jnl, c.second);
        CTIKRONInfo_EX t(path.c_str());
        EXPECT_EQ(LoadedStamp(t, 1), 10u) << c.first;
        EXPECT_EQ(t.GetCount(), 3u) << c.first;
        EXPECT_EQ(t.GetJournalReplays(), 0u) << c.first;
    }
    // A replayed entry is marked applied: a second load leaves the slot alone.
    WriteFile(path, SnapshotOf(3, 10));
    WriteFile(jnl, JournalWith(3, SlotEx{3, Stamped(2, 98), 3}, 8, 7));
    ASSERT_EQ(tikron_store::SnapshotMirror::ReplayJournal(path.c_str(), 16, kR), 1);
    EXPECT_EQ(tikron_store::SnapshotMirror::ReplayJournal(path.c_str(), 16, kR), 0);
    EXPECT_EQ(tikron_store::SnapshotMirror::ReplayJournal(nullptr, 16, kR), 0);
    uint64_t v = 0;
    EXPECT_TRUE(StampOf(SlotInFile<tagHQInfo_EX>(path, 3).szHQInfo, v));
    EXPECT_EQ(v, 98u);
}

// --- write failures ------------------------------------------------------------

// Lowers the file-size limit of the process for one scope (writes beyond it
// fail with EFBIG instead of raising SIGXFSZ).
struct FileSizeLimit {
    explicit FileSizeLimit(rlim_t bytes) : handler(signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &old);
        struct rlimit lim = old;
        lim.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &lim);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &old);
        signal(SIGXFSZ, handler);
    }
    struct rlimit old {};
    sighandler_t handler;
};

TEST(SnapshotFailure, FileThatCannotGrowKeepsTableAndCatchesUpLater) {
    ScratchDir dir;
    const std::string path = dir.File("tikron_ex.db");
    RecordingLog log;
    const int K = 12;
    std::unique_ptr<CTIKRONInfo_EX> t;
    {
        // Room for the header and 3 slots; too small for the journal page,
        // so the file cannot be mapped either.
        FileSizeLimit limit(16 + 3 * kR + 100);
        t.reset(new CTIKRONInfo_EX(path.c_str()));
        t->SetLogService(&log);
        for (int round = 0; round < 3; ++round) {
            for (int k = 0; k < K; ++k) {
                tagHQInfo_EX r = Stamped(k, static_cast<uint64_t>(round * 100 + k));
                ASSERT_EQ(t->AddHQInfo(&r, 0), 0);
            }
        }
        EXPECT_EQ(FileSize(path), static_cast<long>(16 + 3 * kR));
        EXPECT_EQ(t->GetCount(), static_cast<size_t>(K));
        EXPECT_EQ(LoadedStamp(*t, 11), 211u);
        uint64_t v = 0;  // slots that made it into the file are kept current
        EXPECT_TRUE(StampOf(SlotInFile<tagHQInfo_EX>(path, 3).szHQInfo, v));
        EXPECT_EQ(v, 202u);
    }
    size_t writeLines = 0, mapLines = 0;
    for (auto& l : log.lines) {
        if (l.function != "CBaseHQInfo::WriteToFile") continue;
        (l.text.rfind("映射文件", 0) == 0 ? mapLines : writeLines) += 1;
        EXPECT_EQ(l.code, 15006);
    }
    EXPECT_EQ(writeLines, 1u) << "rate-limited";
    EXPECT_EQ(mapLines, 1u) << "rate-limited";
    // Counted all the same: keys 4..12 fail to append in each of 3 rounds.
    EXPECT_EQ(t->GetWriteFailures(), 27u);
    EXPECT_GE(t->GetMapFallbacks(), 1u);

    // Room again: the next new key fills the gap in slot order.
    for (int k : {K, 0, 3, 6, 9, K}) {
        tagHQInfo_EX u = Stamped(k, static_cast<uint64_t>(9000 + k));
        ASSERT_EQ(t->AddHQInfo(&u, 0), 0);
    }
    EXPECT_EQ(FileSize(path), static_cast<long>(16 + (K + 1) * kR));
    ExpectFileEqualsTable(*t, path);
}

// Without a file a write is -1, a failing write -2; devices are written,
// never mapped, so no journal is made next to them.
TEST(SnapshotFailure, MissingDirectoryAndDeviceFiles) {
    SlotEx s{1, Stamped(1, 1), 1};
    CTIKRONInfo_EX gone("/nonexistent-dir/tikron_ex.db"), sink("/dev/null"), full("/dev/full");
    EXPECT_EQ(gone.WriteToFile(&s, 1), -1);
    EXPECT_EQ(sink.WriteToFile(&s, 1), 0);
    EXPECT_EQ(full.WriteToFile(&s, 1), -2);
    for (CTIKRONInfo_EX* t : {&gone, &sink, &full}) EXPECT_EQ(t->AddHQInfo(&s.szHQInfo, 0), 0);
    EXPECT_EQ(LoadedStamp(full, 1), 1u);
    EXPECT_EQ(FileSize("/dev/null.jnl"), -1);
    EXPECT_EQ(FileSize("/dev/full.jnl"), -1);
}

}  // namespace
