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
#include <cstddef>
#include <cstring>
#include <memory>
#include <random>
#include <thread>

#include "store/snapshot_journal.h"
#include "testing/store_test_support.h"

namespace {

using SlotEx = tagSaveHQInfo<tagHQInfo_EX>;
constexpr size_t kR = sizeof(SlotEx);
constexpr size_t kCodeBytes = sizeof(tagHQInfo_EX::contract_code);

std::string CodeOf(int k) { return "KC" + std::to_string(1000 + k); }

// Every byte after the contract code is derived from v, so a record mixing
// two updates is detectable.
tagHQInfo_EX Stamped(int k, uint64_t v) {
    tagHQInfo_EX r;
    std::memset(&r, 0, sizeof r);
    std::snprintf(r.contract_code, sizeof r.contract_code, "%s", CodeOf(k).c_str());
    // Word-wise fill keeps the updater's loop short, so kills land in the
    // table's copy more often.
    char* p = reinterpret_cast<char*>(&r);
    size_t off = kCodeBytes;
    for (; off + 8 <= sizeof r; off += 8) std::memcpy(p + off, &v, 8);
    std::memcpy(p + off, &v, sizeof r - off);
    return r;
}

// The value a record was stamped with, or false when its bytes are mixed.
bool StampOf(const tagHQInfo_EX& r, uint64_t& v) {
    const char* p = reinterpret_cast<const char*>(&r);
    std::memcpy(&v, p + kCodeBytes, sizeof v);
    tagHQInfo_EX expect = Stamped(0, v);
    return std::memcmp(p + kCodeBytes, reinterpret_cast<const char*>(&expect) + kCodeBytes, sizeof r - kCodeBytes) == 0;
}

SlotEx FileSlot(const std::string& bytes, int k) {
    SlotEx s;
    std::memset(&s, 0, sizeof s);
    size_t off = 16 + static_cast<size_t>(k - 1) * kR;
    if (bytes.size() >= off + kR) std::memcpy(&s, bytes.data() + off, kR);
    return s;
}

// Child: K keys exist before "ready"; then update key c % K with stamp c in
// a tight loop, publishing the last completed stamp per key in shared memory.
// With addKeys, every 64th step adds a new key instead.
[[noreturn]] void UpdateUntilKilled(const std::string& path, int K, bool addKeys, std::atomic<uint64_t>* done,
                                    int readyFd) {
    CTIKRONInfo_EX t(path.c_str());
    for (int k = 0; k < K; ++k) {
        tagHQInfo_EX r = Stamped(k, static_cast<uint64_t>(k));
        t.AddHQInfo(&r, 0);
        done[k].store(static_cast<uint64_t>(k));
    }
    char c = 'r';
    if (write(readyFd, &c, 1) != 1) _exit(2);
    int keys = K;
    for (uint64_t v = static_cast<uint64_t>(K);; ++v) {
        if (addKeys && v % 64 == 0 && keys < 2000) {
            tagHQInfo_EX r = Stamped(keys, v);
            t.AddHQInfo(&r, 0);
            done[keys].store(v);
            ++keys;
            continue;
        }
        int k = static_cast<int>(v % static_cast<uint64_t>(K));
        tagHQInfo_EX r = Stamped(k, v);
        t.AddHQInfo(&r, 0);
        done[k].store(v);
    }
}

struct KillOutcome {
    int loaded = 0;
    int created = 0;
};

// One run: fork the updater, kill it after a random delay, reload the table
// and check each key holds its last completed update or the one in flight.
void KillAndCheck(const std::string& path, int K, bool addKeys, unsigned delayUs, KillOutcome& out) {
    const int kMaxKeys = 2100;
    void* shm = mmap(nullptr, sizeof(std::atomic<uint64_t>) * kMaxKeys, PROT_READ | PROT_WRITE,
                     MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(shm, MAP_FAILED);
    auto* done = static_cast<std::atomic<uint64_t>*>(shm);
    for (int i = 0; i < kMaxKeys; ++i) new (&done[i]) std::atomic<uint64_t>(UINT64_MAX);
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        close(fds[0]);
        UpdateUntilKilled(path, K, addKeys, done, fds[1]);
    }
    close(fds[1]);
    char c = 0;
    ssize_t n = read(fds[0], &c, 1);
    close(fds[0]);
    if (n == 1) usleep(delayUs);
    kill(pid, SIGKILL);
    int status = 0;
    waitpid(pid, &status, 0);
    ASSERT_EQ(n, 1) << "updater failed before it was ready";

    int created = 0;
    while (created < kMaxKeys && done[created].load() != UINT64_MAX) ++created;
    out.created = created;
    {
        RecordingLog log;
        CTIKRONInfo_EX t(path.c_str());
        t.SetLogService(&log);
        out.loaded = static_cast<int>(t.GetCount());
        // The key being added when the kill came may or may not be there.
        EXPECT_TRUE(out.loaded == created || (addKeys && out.loaded == created + 1)) << out.loaded << " vs " << created;
        EXPECT_EQ(FileSize(path), static_cast<long>(16 + out.loaded * kR));
        t.LockMap();
        for (auto& kv : t.GetHQMap()) {
            int k = std::atoi(kv.first.GetKey() + 2) - 1000;
            ASSERT_TRUE(k >= 0 && k < kMaxKeys) << kv.first.GetKey();
            uint64_t v = 0;
            ASSERT_TRUE(StampOf(kv.second->szHQInfo, v)) << "torn record of " << kv.first.GetKey();
            uint64_t last = done[k].load();
            if (k >= created) continue;  // the key in flight: any whole record
            // Latest completed update, or the next update of that key (in flight).
            uint64_t step = addKeys ? 0 : static_cast<uint64_t>(K);
            bool ok = v == last || (step != 0 ? v == last + step : v > last && v <= last + 2 * K);
            EXPECT_TRUE(ok) << kv.first.GetKey() << ": file " << v << ", last completed " << last;
        }
        t.UnlockMap();
        // The reloaded table writes on in place.
        tagHQInfo_EX r = Stamped(0, 7);
        EXPECT_EQ(t.AddHQInfo(&r, 0), 0);
        EXPECT_EQ(FileSize(path), static_cast<long>(16 + out.loaded * kR));
    }
    munmap(shm, sizeof(std::atomic<uint64_t>) * kMaxKeys);
}

TEST(SnapshotKill, RandomKillsLeaveWholeRecordsOnly) {
    ScratchDir dir;
    std::mt19937 rng(20240611);
    // 40 slots of 336 bytes: many straddle a page boundary.
    // Many short runs: a kill lands inside a slot copy only now and then.
    for (int run = 0; run < 100; ++run) {
        std::string path = dir.File("tikron_ex_kill.db");
        KillOutcome o;
        KillAndCheck(path, 40, false, 200 + rng() % 5000, o);
        if (HasFatalFailure()) return;
        EXPECT_EQ(o.loaded, 40);
    }
}

TEST(SnapshotKill, KillsWhileKeysAreAddedKeepTheLengthExact) {
    ScratchDir dir;
    std::mt19937 rng(77);
    int grew = 0;
    for (int run = 0; run < 12; ++run) {
        std::string path = dir.File("tikron_ex_grow.db");
        KillOutcome o;
        KillAndCheck(path, 8, true, 1000 + rng() % 20000, o);
        if (HasFatalFailure()) return;
        grew += o.loaded > 8 ? 1 : 0;
    }
    EXPECT_GT(grew, 0);
}

TEST(SnapshotMirror, UpdateIsReadableFromTheFileWhenAddReturns) {
    ScratchDir dir;
    std::string path = dir.File("tikron_ex_live.db");
    CTIKRONInfo_EX t(path.c_str());
    int fd = open(path.c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    // Enough keys that the mapping has to grow past its first size.
    const int K = 400;
    for (int k = 0; k < K; ++k) {
        tagHQInfo_EX r = Stamped(k, 1);
        ASSERT_EQ(t.AddHQInfo(&r, 0), 0);
    }
    for (int round = 2; round < 5; ++round) {
        for (int k = 0; k < K; k += 37) {
            tagHQInfo_EX r = Stamped(k, static_cast<uint64_t>(round * 1000 + k));
            ASSERT_EQ(t.AddHQInfo(&r, 0), 0);
            SlotEx s;
            ASSERT_EQ(pread(fd, &s, kR, static_cast<off_t>(16 + k * kR)), static_cast<ssize_t>(kR));
            EXPECT_EQ(s.iRecordNo, k + 1);
            EXPECT_EQ(s.iCrc, k + 1);
            EXPECT_EQ(std::memcmp(&s.szHQInfo, &r, sizeof r), 0) << "slot " << k + 1;
        }
    }
    close(fd);
    EXPECT_EQ(FileSize(path), static_cast<long>(16 + K * kR));
    tagHQFileHead h{};
    std::string bytes = ReadAll(path);
    std::memcpy(&h, bytes.data(), sizeof h);
    EXPECT_EQ(h.dwCount, static_cast<uint64_t>(K));
    EXPECT_EQ(h.ulTime, static_cast<uint64_t>(GetDate()));
}

TEST(SnapshotMirror, DeleteAllAndDestructionResetTheJournal) {
    ScratchDir dir;
    std::string path = dir.File("tikron_ex_reset.db");
    std::string jnl = tikron_store::JournalPathOf(path.c_str());
    {
        CTIKRONInfo_EX t(path.c_str());
        tagHQInfo_EX r = Stamped(1, 5);
        ASSERT_EQ(t.AddHQInfo(&r, 0), 0);
        ASSERT_EQ(t.AddHQInfo(&r, 0), 0);
        EXPECT_EQ(FileSize(jnl), static_cast<long>(tikron_store::kJournalFileSize));
        t.DeleteAll();
        EXPECT_EQ(FileSize(path), 0);
        r = Stamped(2, 6);
        ASSERT_EQ(t.AddHQInfo(&r, 0), 0);
        ASSERT_EQ(t.AddHQInfo(&r, 0), 0);
        EXPECT_EQ(FileSize(path), static_cast<long>(16 + kR));
    }
    EXPECT_EQ(FileSize(path), 0);
    EXPECT_EQ(FileSize(jnl), -1);
}

TEST(SnapshotMirror, ConcurrentWritersLeaveFileEqualToTable) {
    ScratchDir dir;
    std::string path = dir.File("tikron_ex_threads.db");
    CTIKRONInfo_EX t(path.c_str());
    auto writer = [&t](uint64_t base) {
        for (uint64_t i = 0; i < 3000; ++i) {
            tagHQInfo_EX r = Stamped(static_cast<int>(i % 250), base + i);  // new keys and updates mixed
            t.AddHQInfo(&r, 0);
        }
    };
    std::thread a(writer, 1000000), b(writer, 2000000);
    for (int i = 0; i < 2000; ++i) {
        tagHQInfo_EX q = Stamped(i % 250, 0);
        if (t.GetHQInfo(&q) == 1) {
            uint64_t v = 0;
            ASSERT_TRUE(StampOf(q, v));
        }
    }
    a.join();
    b.join();
    std::string bytes = ReadAll(path);
    ASSERT_EQ(bytes.size(), 16 + 250 * kR);
    t.LockMap();
    for (auto& kv : t.GetHQMap()) EXPECT_EQ(std::memcmp(bytes.data() + 16 + (kv.second->iRecordNo - 1) * kR, kv.second, kR), 0);
    t.UnlockMap();
}

// --- journal replay on load ---------------------------------------------------

std::string JournalWith(uint64_t slotNo, const SlotEx& slot, uint64_t commit, uint64_t applied) {
    std::string page(tikron_store::kJournalFileSize, '\0');
    tikron_store::SlotJournalHead h;
    std::memset(&h, 0, sizeof h);
    std::memcpy(h.szMagic, tikron_store::kJournalMagic, sizeof h.szMagic);
    h.uSlotSize = kR;
    h.uHeadSize = 16;
    h.uCommitSeq = commit;
    h.uAppliedSeq = applied;
    h.uSlotNo = slotNo;
    std::memcpy(&page[0], &h, sizeof h);
    std::memcpy(&page[tikron_store::kJournalDataOffset], &slot, sizeof slot);
    return page;
}

std::string SnapshotOf(int K, uint64_t v) {
    tagHQFileHead h{static_cast<uint64_t>(GetDate()), static_cast<uint64_t>(K)};
    std::string b(reinterpret_cast<const char*>(&h), sizeof h);
    for (int k = 0; k < K; ++k) {
        SlotEx s;
        s.iRecordNo = s.iCrc = k + 1;
        s.szHQInfo = Stamped(k, v);
        b.append(reinterpret_cast<const char*>(&s), sizeof s);
    }
    return b;
}

uint64_t LoadedStamp(CTIKRONInfo_EX& t, int k) {
    tagHQInfo_EX q = Stamped(k, 0);
    uint64_t v = UINT64_MAX;
    if (t.GetHQInfo(&q) == 1 && !StampOf(q, v)) v = UINT64_MAX - 1;  // torn
    return v;
}

TEST(SnapshotJournal, CommittedEntryRepairsATornSlotAndOnlyThen) {
    ScratchDir dir;
    std::string path = dir.File("tikron_ex_jnl.db");
    std::string jnl = tikron_store::JournalPathOf(path.c_str());
    SlotEx next;
    next.iRecordNo = next.iCrc = 2;
    next.szHQInfo = Stamped(1, 99);

    // Torn slot 2 (half old, half new) with a committed, unapplied entry.
    std::string file = SnapshotOf(3, 10);
    std::memcpy(&file[16 + kR], &next, kR / 2);
    WriteAll(path, file);
    WriteAll(jnl, JournalWith(2, next, 8, 7));
    {
        CTIKRONInfo_EX t(path.c_str());
        EXPECT_EQ(LoadedStamp(t, 0), 10u);
        EXPECT_EQ(LoadedStamp(t, 1), 99u);
        EXPECT_EQ(LoadedStamp(t, 2), 10u);
        EXPECT_EQ(FileSize(path), static_cast<long>(16 + 3 * kR));
        EXPECT_EQ(t.GetJournalReplays(), 1u);
    }

    // Entries that must not be replayed: already applied, other slot size,
    // slot outside the file, slot not naming itself, damaged page.
    struct Case {
        const char* what;
        std::string page;
    };
    SlotEx wrongNo = next;
    wrongNo.iRecordNo = 3;
    std::string otherSize = JournalWith(2, next, 8, 7);
    otherSize[8] = 20;
    std::vector<Case> cases = {
        {"applied", JournalWith(2, next, 8, 8)},
        {"other slot size", otherSize},
        {"outside the file", JournalWith(9, next, 8, 7)},
        {"slot zero", JournalWith(0, next, 8, 7)},
        {"self number differs", JournalWith(2, wrongNo, 8, 7)},
        {"garbage", std::string(tikron_store::kJournalFileSize, '\x7f')},
        {"short", std::string("TKRJNL1")},
    };
    for (auto& c : cases) {
        WriteAll(path, SnapshotOf(3, 10));
        WriteAll(jnl, c.page);
        CTIKRONInfo_EX t(path.c_str());
        EXPECT_EQ(LoadedStamp(t, 1), 10u) << c.what;
        EXPECT_EQ(t.GetCount(), 3u) << c.what;
        EXPECT_EQ(t.GetJournalReplays(), 0u) << c.what;
    }

    // A replayed entry is marked applied: a later kill-free load leaves the
    // slot's newer value alone.
    WriteAll(path, SnapshotOf(3, 10));
    WriteAll(jnl, JournalWith(2, next, 8, 7));
    ASSERT_EQ(tikron_store::SnapshotMirror::ReplayJournal(path.c_str(), 16, kR), 1);
    EXPECT_EQ(tikron_store::SnapshotMirror::ReplayJournal(path.c_str(), 16, kR), 0);
    SlotEx now = FileSlot(ReadAll(path), 2);
    EXPECT_EQ(std::memcmp(&now, &next, kR), 0);
}

// --- write failures -------------------------------------------------------------

// Lowers the file-size limit of this process for one scope (writes beyond it
// fail with EFBIG instead of raising SIGXFSZ).
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        getrlimit(RLIMIT_FSIZE, &m_old);
        m_oldHandler = signal(SIGXFSZ, SIG_IGN);
        struct rlimit lim = m_old;
        lim.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &lim);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &m_old);
        signal(SIGXFSZ, m_oldHandler);
    }

private:
    struct rlimit m_old {};
    sighandler_t m_oldHandler;
};

TEST(SnapshotFailure, FileThatCannotGrowKeepsTableAndCatchesUpLater) {
    ScratchDir dir;
    std::string path = dir.File("tikron_ex_full.db");
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
        // Slots that made it into the file are still kept current.
        uint64_t v = 0;
        EXPECT_TRUE(StampOf(FileSlot(ReadAll(path), 3).szHQInfo, v));
        EXPECT_EQ(v, 202u);
    }
    size_t writeLines = 0, mapLines = 0;
    for (auto& l : log.lines) {
        if (l.function != "CBaseHQInfo::WriteToFile") continue;
        (l.text.rfind("映射文件", 0) == 0 ? mapLines : writeLines) += 1;
    }
    EXPECT_EQ(writeLines, 1u) << "rate-limited";
    EXPECT_EQ(mapLines, 1u) << "rate-limited";
    // Counted all the same: keys 4..12 fail to append in each of 3 rounds.
    EXPECT_EQ(t->GetWriteFailures(), 27u);
    EXPECT_GE(t->GetMapFallbacks(), 1u);

    // Room again: the next new key fills the gap in slot order.
    tagHQInfo_EX r = Stamped(K, 5000);
    ASSERT_EQ(t->AddHQInfo(&r, 0), 0);
    for (int k = 0; k <= K; k += 3) {
        tagHQInfo_EX u = Stamped(k, static_cast<uint64_t>(9000 + k));
        ASSERT_EQ(t->AddHQInfo(&u, 0), 0);
    }
    std::string bytes = ReadAll(path);
    ASSERT_EQ(bytes.size(), 16 + (K + 1) * kR);
    t->LockMap();
    for (auto& kv : t->GetHQMap()) {
        SlotEx s = FileSlot(bytes, kv.second->iRecordNo);
        EXPECT_EQ(std::memcmp(&s, kv.second, kR), 0) << kv.first.GetKey();
    }
    t->UnlockMap();
}

TEST(SnapshotFailure, MissingDirectoryAndDeviceFilesNeverCrash) {
    CTIKRONInfo_EX gone("/nonexistent-dir/tikron_ex.db");
    tagHQInfo_EX r = Stamped(3, 3);
    EXPECT_EQ(gone.AddHQInfo(&r, 0), 0);
    EXPECT_EQ(gone.AddHQInfo(&r, 0), 0);
    SlotEx s;
    std::memset(&s, 0, sizeof s);
    s.iRecordNo = 1;
    EXPECT_EQ(gone.WriteToFile(&s, 0), -1);

    // A device is written with pwrite, never mapped: /dev/null takes it all.
    CTIKRONInfo_EX sink("/dev/null");
    for (int i = 0; i < 5; ++i) EXPECT_EQ(sink.AddHQInfo(&r, 0), 0);
    EXPECT_EQ(FileSize("/dev/null.jnl"), -1);
    RecordingLog log;
    CTIKRONInfo_EX full("/dev/full");
    full.SetLogService(&log);
    EXPECT_EQ(full.AddHQInfo(&r, 0), 0);
    EXPECT_EQ(full.WriteToFile(&s, 0), -2);
    EXPECT_EQ(FileSize("/dev/full.jnl"), -1);
}

}  // namespace
