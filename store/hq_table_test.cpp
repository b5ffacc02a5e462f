#include "store/hq_tables.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstring>
#include <ctime>
#include <memory>

#include "testing/store_test_support.h"

namespace {

tagHQInfo Quote(const char* code, double last, int volume) {
    tagHQInfo r;
    std::memset(&r, 0, sizeof r);
    std::snprintf(r.contract_code, sizeof r.contract_code, "%s", code);
    r.futu_last_price = last;
    r.business_amount = volume;
    std::strcpy(r.futu_exch_type, "F4");
    return r;
}

tagHQFileHead HeadOf(const std::string& path) {
    tagHQFileHead h{};
    std::string b = ReadFile(path);
    if (b.size() >= 16) std::memcpy(&h, b.data(), 16);
    return h;
}

template <typename T>
tagSaveHQInfo<T> SlotOf(const std::string& path, int k) {
    tagSaveHQInfo<T> s;
    std::memset(&s, 0, sizeof s);
    std::string b = ReadFile(path);
    size_t off = 16 + (k - 1) * sizeof s;
    if (b.size() >= off + sizeof s) std::memcpy(&s, b.data() + off, sizeof s);
    return s;
}

int YesterdayDate() {
    time_t t = time(nullptr) - 86400;
    struct tm tm {};
    localtime_r(&t, &tm);
    return (tm.tm_year + 1900) * 10000 + (tm.tm_mon + 1) * 100 + tm.tm_mday;
}

TEST(QuoteTable, InsertOverwriteAndLookup) {
    ScratchDir dir;
    std::string path = dir.File("tikron_test.db");
    RecordingLog log;
    CTIKRONInfo table(path.c_str());
    table.SetLogService(&log);
    const size_t R = sizeof(tagSaveHQInfo<tagHQInfo>);

    tagHQInfo a = Quote("IF2412", 3861.4, 80321);
    ASSERT_EQ(table.AddHQInfo(&a, 0), 0);
    tagHQInfo b = Quote("rb2501", 3320.0, 5000);
    ASSERT_EQ(table.AddHQInfo(&b, 0), 0);
    EXPECT_EQ(FileSize(path), static_cast<long>(16 + 2 * R));
    EXPECT_EQ(HeadOf(path).dwCount, 2u);
    EXPECT_EQ(HeadOf(path).ulTime, static_cast<uint64_t>(GetDate()));

    // Overwrite in place: every byte of the second update, same slot, same length.
    tagHQInfo a2 = Quote("IF2412", 3870.0, 90000);
    a2.bid_volume5 = 77;
    ASSERT_EQ(table.AddHQInfo(&a2, 0), 0);
    EXPECT_EQ(table.GetCount(), 2u);
    EXPECT_EQ(FileSize(path), static_cast<long>(16 + 2 * R));
    auto slot1 = SlotOf<tagHQInfo>(path, 1);
    EXPECT_EQ(slot1.iRecordNo, 1);
    EXPECT_EQ(slot1.iCrc, 1);
    EXPECT_EQ(std::memcmp(&slot1.szHQInfo, &a2, sizeof a2), 0);
    EXPECT_EQ(SlotOf<tagHQInfo>(path, 2).iRecordNo, 2);

    // New-key line exactly once per key, never for updates.
    EXPECT_EQ(log.Count("加入合约: IF2412!\n"), 1u);
    EXPECT_EQ(log.Count("加入合约: rb2501!\n"), 1u);
    for (auto& l : log.lines) {
        EXPECT_EQ(l.code, 15006);
        EXPECT_EQ(l.function, "CBaseHQInfo::AddHQInfo");
    }

    tagHQInfo q = Quote("IF2412", 0, 0);
    ASSERT_EQ(table.GetHQInfo(&q), 1);
    EXPECT_EQ(std::memcmp(&q, &a2, sizeof q), 0);
    tagHQInfo miss = Quote("if2412", 1.5, 9);  // keys are case-sensitive
    tagHQInfo before = miss;
    EXPECT_EQ(table.GetHQInfo(&miss), 0);
    EXPECT_EQ(std::memcmp(&miss, &before, sizeof miss), 0);
    EXPECT_EQ(table.GetHQInfo(nullptr), -1);
}

TEST(QuoteTable, CountersBySourceAndDeleteAll) {
    ScratchDir dir;
    std::string path = dir.File("tikronarg_test.db");
    CTIKRONARGInfo table(path.c_str());
    tagArgHQInfo g;
    std::memset(&g, 0, sizeof g);
    std::strcpy(g.contract_code, "SP m2505&m2509");
    EXPECT_EQ(table.AddHQInfo(&g, 0), 0);
    EXPECT_EQ(table.AddHQInfo(&g, 1), 0);
    EXPECT_EQ(table.AddHQInfo(&g, 1), 0);
    EXPECT_EQ(table.AddHQInfo(&g, 7), 0);
    EXPECT_EQ(table.AddHQInfo(nullptr, 0), -1);
    EXPECT_EQ(table.GetRecvNum(), 5u);
    EXPECT_EQ(table.GetRecvFromUDPNum(), 1u);
    EXPECT_EQ(table.GetRecvFromMCNum(), 2u);
    EXPECT_EQ(table.GetRecvFromOtherNum(), 1u);

    table.DeleteAll();
    EXPECT_EQ(table.GetCount(), 0u);
    EXPECT_EQ(table.GetRecvNum() + table.GetRecvFromUDPNum() + table.GetRecvFromMCNum() +
                  table.GetRecvFromOtherNum(),
              0u);
    EXPECT_EQ(FileSize(path), 0);

    // After emptying, the next key starts at slot 1 with a fresh header.
    std::strcpy(g.contract_code, "SP SR501&SR505");
    EXPECT_EQ(table.AddHQInfo(&g, 0), 0);
    EXPECT_EQ(FileSize(path), static_cast<long>(16 + sizeof(tagSaveHQInfo<tagArgHQInfo>)));
    EXPECT_EQ(HeadOf(path).dwCount, 1u);
    EXPECT_EQ(HeadOf(path).ulTime, static_cast<uint64_t>(GetDate()));
}

TEST(QuoteTable, ExchangeKeysInByteOrder) {
    ScratchDir dir;
    CExchStatusInfo table(dir.File("futuexchstatus_test.db").c_str());
    for (const char* ex : {"F5", "F1", "F3", "F1"}) {
        tagEXCHSTATUS e;
        std::memset(&e, 0, sizeof e);
        std::strcpy(e.futu_exch_type, ex);
        ASSERT_EQ(table.AddHQInfo(&e, 0), 0);
    }
    std::vector<std::string> out{"stale"};
    table.GetAllExch(out);
    EXPECT_EQ(out, (std::vector<std::string>{"F1", "F3", "F5"}));
}

TEST(QuoteTable, UnwritableFileKeepsTableAuthoritativeAndLogsOnce) {
    RecordingLog log;
    // /dev/full accepts the open and fails every write with ENOSPC.
    CTIKRONInfo table("/dev/full");
    table.SetLogService(&log);
    for (int i = 0; i < 50; ++i) {
        tagHQInfo q = Quote(i % 2 ? "au2506" : "sc2503", 500.0 + i, i);
        ASSERT_EQ(table.AddHQInfo(&q, 0), 0);
    }
    tagHQInfo q = Quote("au2506", 0, 0);
    ASSERT_EQ(table.GetHQInfo(&q), 1);
    EXPECT_EQ(double(q.futu_last_price), 549.0);
    size_t failures = 0;
    for (auto& l : log.lines) failures += l.function == "CBaseHQInfo::WriteToFile" ? 1 : 0;
    EXPECT_EQ(failures, 1u);
}

// --- restore from the snapshot ---------------------------------------------

std::string FileWith(uint64_t date, const std::vector<tagSaveHQInfo<tagHQInfo>>& slots, size_t tail) {
    tagHQFileHead h{date, slots.size()};
    std::string b(reinterpret_cast<const char*>(&h), 16);
    for (auto& s : slots) b.append(reinterpret_cast<const char*>(&s), sizeof s);
    b.append(tail, '\x5a');
    return b;
}

tagSaveHQInfo<tagHQInfo> Slot(int no, const char* code, double last) {
    tagSaveHQInfo<tagHQInfo> s;
    std::memset(&s, 0, sizeof s);
    s.iRecordNo = no;
    s.iCrc = no;
    s.szHQInfo = Quote(code, last, no);
    return s;
}

TEST(QuoteSnapshot, YesterdaysFileIsIgnoredAndRecreatedEmpty) {
    ScratchDir dir;
    std::string path = dir.File("tikron_old.db");
    WriteFile(path, FileWith(YesterdayDate(), {Slot(1, "IF2412", 1), Slot(2, "rb2501", 2)}, 0));
    CTIKRONInfo t(path.c_str());
    EXPECT_EQ(t.GetCount(), 0u);
    EXPECT_EQ(FileSize(path), 0);
}

TEST(QuoteSnapshot, PartialTailDuplicatesAndDamagedFiles) {
    ScratchDir dir;
    const size_t R = sizeof(tagSaveHQInfo<tagHQInfo>);
    uint64_t today = static_cast<uint64_t>(GetDate());

    // Trailing partial slot: the full slots load.
    std::string p1 = dir.File("tikron_tail.db");
    WriteFile(p1, FileWith(today, {Slot(1, "IF2412", 1), Slot(2, "rb2501", 2)}, R / 2));
    {
        CTIKRONInfo t(p1.c_str());
        EXPECT_EQ(t.GetCount(), 2u);
    }

    // A key seen twice keeps the later slot; a new key never reuses a slot.
    std::string p2 = dir.File("tikron_dup.db");
    WriteFile(p2, FileWith(today, {Slot(1, "au2506", 1), Slot(2, "sc2503", 2), Slot(3, "au2506", 3)}, 0));
    {
        CTIKRONInfo t(p2.c_str());
        ASSERT_EQ(t.GetCount(), 2u);
        tagHQInfo q = Quote("au2506", 0, 0);
        ASSERT_EQ(t.GetHQInfo(&q), 1);
        EXPECT_EQ(double(q.futu_last_price), 3.0);
        tagHQInfo n = Quote("SR501", 5.0, 5);
        ASSERT_EQ(t.AddHQInfo(&n, 0), 0);
        EXPECT_EQ(FileSize(p2), static_cast<long>(16 + 4 * R));
        EXPECT_EQ(std::string(SlotOf<tagHQInfo>(p2, 3).szHQInfo.contract_code), "au2506");
        EXPECT_EQ(std::string(SlotOf<tagHQInfo>(p2, 4).szHQInfo.contract_code), "SR501");
    }

    // Damaged slot numbers, unterminated keys and a short header never crash.
    std::string p3 = dir.File("tikron_bad.db");
    auto bad = Slot(-5, "m2505", 1);
    std::memset(bad.szHQInfo.contract_code, 'Z', sizeof bad.szHQInfo.contract_code);
    WriteFile(p3, FileWith(today, {bad, Slot(99999999, "IF2412", 2)}, 0));
    {
        CTIKRONInfo t(p3.c_str());
        EXPECT_EQ(t.GetCount(), 2u);
        tagHQInfo q = Quote("IF2412", 7.0, 7);
        ASSERT_EQ(t.AddHQInfo(&q, 0), 0);
        EXPECT_EQ(FileSize(p3), static_cast<long>(16 + 2 * R));
        EXPECT_EQ(double(SlotOf<tagHQInfo>(p3, 2).szHQInfo.futu_last_price), 7.0);
    }
    std::string p4 = dir.File("tikron_short.db");
    WriteFile(p4, std::string("\x01\x02\x03", 3));
    {
        CTIKRONInfo t(p4.c_str());
        EXPECT_EQ(t.GetCount(), 0u);
        EXPECT_EQ(FileSize(p4), 0);
    }
}

TEST(QuoteSnapshot, DestructionEmptiesTheFile) {
    ScratchDir dir;
    std::string path = dir.File("tikron_ex_stop.db");
    {
        CTIKRONInfo_EX t(path.c_str());
        tagHQInfo_EX r;
        std::memset(&r, 0, sizeof r);
        std::strcpy(r.contract_code, "IF2412");
        ASSERT_EQ(t.AddHQInfo(&r, 1), 0);
        EXPECT_EQ(FileSize(path), static_cast<long>(16 + 336));
    }
    EXPECT_EQ(FileSize(path), 0);
}

}  // namespace
