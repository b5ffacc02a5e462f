// The four quote tables: record parsers and datagram framing, insert and
// overwrite with their snapshot slots, counters, emptying, and the load of a
// snapshot file of today (or not).
#include "store/hq_tables.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "testing/store_test_support.h"

namespace {

template <typename T>
T Zero() {
    T r;
    std::memset(&r, 0, sizeof r);
    return r;
}

tagHQInfo Quote(const char* code, double last, int volume) {
    tagHQInfo r = Zero<tagHQInfo>();
    std::snprintf(r.contract_code, sizeof r.contract_code, "%s", code);
    r.futu_last_price = last;
    r.business_amount = volume;
    std::strcpy(r.futu_exch_type, "F4");
    return r;
}

tagHQFileHead HeadOf(const std::string& path) {
    tagHQFileHead h{};
    const std::string b = ReadFile(path);
    if (b.size() >= 16) std::memcpy(&h, b.data(), 16);
    return h;
}

template <typename Table, typename Rec>
int Parse(Table& t, const std::string& text, Rec& r) {
    return t.GetHQFromData(text.c_str(), static_cast<int>(text.size()), &r);
}

class Tables : public testing::Test {
protected:
    ScratchDir dir;
    RecordingLog log;
};

// Numbers in every form the feed sends take the fast or the full reader;
// both layouts get the same numbers, the extended one the time stamp too.
TEST_F(Tables, SingleLegRecordsFillBothLayouts) {
    CTIKRONInfo legacy(dir.File("tikron.db").c_str());
    CTIKRONInfo_EX ext(dir.File("tikron_ex.db").c_str());
    std::string text = SingleLegText("IF2412", "F4", -3861.4) + ",93015,";
    text.replace(text.find(",0,0,0,0,"), 9, ",1e3,0x10,.5,-7,");
    tagHQInfo a = Zero<tagHQInfo>();
    ASSERT_EQ(Parse(legacy, text, a), 0);
    EXPECT_EQ(double(a.futu_last_price), -3861.4);
    EXPECT_EQ(double(a.form_buy_price), 1e3);
    EXPECT_EQ(double(a.form_sale_price), 16.0);
    EXPECT_EQ(a.form_buy_amount, 0);  // ".5" read as an int
    EXPECT_EQ(a.form_sale_amount, -7);
    EXPECT_STREQ(a.futu_exch_type, "F4");
    EXPECT_EQ(legacy.GetRecvFromUDPNum(), 1u);
    tagHQInfo_EX b = Zero<tagHQInfo_EX>();
    ASSERT_EQ(Parse(ext, text, b), 0);
    EXPECT_STREQ(b.contract_code, "IF2412");  // same numbers in both layouts
    EXPECT_EQ(b.time_stamp, 93015);
    EXPECT_EQ(ext.GetRecvFromUDPNum(), 1u);
    EXPECT_EQ(std::memcmp(reinterpret_cast<char*>(&a) + 16, reinterpret_cast<char*>(&b) + 32, 308 - 16), 0);
    b = Zero<tagHQInfo_EX>();
    ASSERT_EQ(Parse(ext, SingleLegText("au2506", "F3") + ",&", b), 0);  // '&': no time stamp
    EXPECT_EQ(b.time_stamp, 0);
    EXPECT_STREQ(b.futu_exch_type, "F3");
}

TEST_F(Tables, SingleLegRefusals) {
    CTIKRONInfo legacy(dir.File("tikron.db").c_str());
    CTIKRONInfo_EX ext(dir.File("tikron_ex.db").c_str());
    std::string longPrice = SingleLegText("rb2501", "F3");
    longPrice.replace(longPrice.find("3850.2"), 6, std::string(33, '1'));
    std::string longVol = SingleLegText("rb2501", "F3");
    longVol.replace(longVol.find(",12,"), 4, "," + std::string(17, '7') + ",");
    const std::string cut = "m2505,3000.0,3001.0";
    tagHQInfo a = Zero<tagHQInfo>();
    tagHQInfo_EX b = Zero<tagHQInfo_EX>();
    struct Row {
        const char* name;
        int rc, want;
    } rows[] = {
        {"13-character code, legacy", Parse(legacy, SingleLegText("IF2412-C-4000", "F4") + ",&", a), -2},
        {"time stamp without delimiter", Parse(ext, SingleLegText("sc2503", "F5") + ",93015", b), -2},
        {"13-character code, extended", Parse(ext, SingleLegText("IF2412-C-4000", "F4") + ",&", b), 0},
        {"12-character code, legacy", Parse(legacy, SingleLegText("IF2412-C-400", "F4"), a), 0},
        {"cut short", Parse(legacy, cut, a), -2},
        {"33-character price", Parse(legacy, longPrice, a), -3},
        {"17-character volume", Parse(legacy, longVol, a), -3},
        {"null text", legacy.GetHQFromData(nullptr, 5, &a), -1},
        {"zero length", legacy.GetHQFromData(cut.c_str(), 0, &a), -1},
        {"null record", legacy.GetHQFromData(cut.c_str(), 5, nullptr), -1},
    };
    for (const Row& r : rows) EXPECT_EQ(r.want, r.rc) << r.name;
    EXPECT_STREQ(a.contract_code, "rb2501");  // fields read before the error stay
    EXPECT_STREQ(b.contract_code, "IF2412-C-4000");
    EXPECT_EQ(legacy.GetCount(), 1u);
    EXPECT_EQ(ext.GetCount(), 1u);
}

TEST_F(Tables, ArbitrageKeepsTheClosingExchangeCode) {
    CTIKRONARGInfo arg(dir.File("tikronarg.db").c_str());
    tagArgHQInfo g = Zero<tagArgHQInfo>();
    ASSERT_EQ(Parse(arg, "SP SR501&SR505,F2,SR501,SR505,SP,-35,12,120,-33,9,90,-30,-40,200,-200,F1", g), 0);
    EXPECT_STREQ(g.futu_exch_type, "F1");
    EXPECT_EQ(g.arbi_type, 'S');
    EXPECT_EQ(double(g.downlimited_price), -200.0);
    tagArgHQInfo q = Zero<tagArgHQInfo>();
    std::strcpy(q.contract_code, "SP SR501&SR505");
    ASSERT_EQ(arg.GetHQInfo(&q), 1);
    EXPECT_EQ(std::memcmp(&q, &g, sizeof q), 0);
    EXPECT_EQ(arg.GetRecvFromUDPNum(), 1u);
    EXPECT_EQ(Parse(arg, "SP SR501&SR505,F2,SR501,SR505,SP,-35", g), -2);
    EXPECT_EQ(arg.GetHQFromData(nullptr, 5, &g), -1);
}

// AddHQData: type character, 5-digit length, text from byte 6; the parser
// gets the declared length (minus 17 for single-leg records).
TEST_F(Tables, ExchangeStatusAndDatagramFraming) {
    CExchStatusInfo exch(dir.File("futuexchstatus.db").c_str());
    exch.SetLogService(&log);
    tagEXCHSTATUS e = Zero<tagEXCHSTATUS>();
    ASSERT_EQ(Parse(exch, "F3,2,1,", e), 0);
    EXPECT_STREQ(e.futu_exch_type, "F3");
    EXPECT_STREQ(e.futu_status, "2");
    EXPECT_EQ(e.can_trade, 1);
    EXPECT_EQ(Parse(exch, "F33,2,1,", e), -2);
    auto add = [&](const std::string& d, int extra = 1) {
        return exch.AddHQData(d.c_str(), static_cast<int>(d.size()) + extra, &e, 'A', 0);
    };
    ASSERT_EQ(add("A00007F5,3,0,"), 0);
    EXPECT_STREQ(e.futu_exch_type, "F5");
    EXPECT_EQ(add("B00007F5,3,0,"), 0);  // another type: logged, nothing stored
    EXPECT_EQ(add("A00099F5,3,0,"), -2);
    EXPECT_EQ(add("A00006F5,3,0"), -3);
    EXPECT_EQ(add("A00007F4,1,1,", 0), 0);  // not NUL-terminated within the length
    EXPECT_EQ(add("A00007F4,1,1,", -10), -2);
    EXPECT_EQ(exch.AddHQData(nullptr, 30, &e, 'A', 0), -2);
    EXPECT_EQ(exch.GetCount(), 3u);
    EXPECT_EQ(exch.GetRecvFromUDPNum(), 3u);
    EXPECT_EQ(log.Count("不是行情处理的信息, 类型: B!\n"), 1u);
    EXPECT_EQ(log.Count("get hq from data fail, error code: -2!\n"), 1u);  // framing refusals are the handlers' to log

    CTIKRONInfo legacy(dir.File("tikron.db").c_str());
    const std::string body = SingleLegText("SR501", "F1") + ",0000000000000000";
    char head[8];
    std::snprintf(head, sizeof head, "0%05d", static_cast<int>(body.size()));
    const std::string dg = head + body;
    tagHQInfo a = Zero<tagHQInfo>();
    ASSERT_EQ(legacy.AddHQData(dg.c_str(), static_cast<int>(dg.size() + 1), &a, '0', 0), 0);
    EXPECT_STREQ(a.contract_code, "SR501");
    EXPECT_STREQ(a.futu_exch_type, "F1");
}

TEST_F(Tables, InsertOverwriteAndLookup) {
    const std::string path = dir.File("tikron.db");
    CTIKRONInfo table(path.c_str());
    table.SetLogService(&log);
    const long R = sizeof(tagSaveHQInfo<tagHQInfo>);
    tagHQInfo a = Quote("IF2412", 3861.4, 80321), b = Quote("rb2501", 3320.0, 5000);
    ASSERT_EQ(table.AddHQInfo(&a, 0), 0);
    ASSERT_EQ(table.AddHQInfo(&b, 0), 0);
    EXPECT_EQ(FileSize(path), 16 + 2 * R);
    // Overwrite in place: every byte of the update, same slot, same length.
    tagHQInfo a2 = Quote("IF2412", 3870.0, 90000);
    a2.bid_volume5 = 77;
    ASSERT_EQ(table.AddHQInfo(&a2, 0), 0);
    EXPECT_EQ(table.GetCount(), 2u);
    EXPECT_EQ(FileSize(path), 16 + 2 * R);
    EXPECT_EQ(HeadOf(path).dwCount, 2u);
    EXPECT_EQ(HeadOf(path).ulTime, static_cast<uint64_t>(GetDate()));
    const auto slot1 = SlotInFile<tagHQInfo>(path, 1);
    EXPECT_EQ(slot1.iRecordNo, 1);
    EXPECT_EQ(slot1.iCrc, 1);
    EXPECT_EQ(std::memcmp(&slot1.szHQInfo, &a2, sizeof a2), 0);
    EXPECT_EQ(SlotInFile<tagHQInfo>(path, 2).iRecordNo, 2);
    // The new-key line once per key, never for updates.
    ASSERT_EQ(log.lines.size(), 2u);
    for (int k = 0; k < 2; ++k) {
        EXPECT_EQ(log.lines[k].code, 15006);
        EXPECT_EQ(log.lines[k].function, "CBaseHQInfo::AddHQInfo");
        EXPECT_EQ(log.lines[k].text, std::string("加入合约: ") + (k ? "rb2501" : "IF2412") + "!\n");
    }
    tagHQInfo q = Quote("IF2412", 0, 0);
    ASSERT_EQ(table.GetHQInfo(&q), 1);
    EXPECT_EQ(std::memcmp(&q, &a2, sizeof q), 0);
    tagHQInfo miss = Quote("if2412", 1.5, 9), before = miss;  // keys are case-sensitive
    EXPECT_EQ(table.GetHQInfo(&miss), 0);
    EXPECT_EQ(std::memcmp(&miss, &before, sizeof miss), 0);
    EXPECT_EQ(table.GetHQInfo(nullptr), -1);
}

TEST_F(Tables, CountersBySourceAndDeleteAll) {
    const std::string path = dir.File("tikronarg.db");
    CTIKRONARGInfo table(path.c_str());
    tagArgHQInfo g = Zero<tagArgHQInfo>();
    std::strcpy(g.contract_code, "SP m2505&m2509");
    for (int source : {0, 1, 1, 7}) EXPECT_EQ(table.AddHQInfo(&g, source), 0);
    EXPECT_EQ(table.AddHQInfo(nullptr, 0), -1);
    EXPECT_EQ((std::vector<uint64_t>{5, 1, 2, 1}),
              (std::vector<uint64_t>{table.GetRecvNum(), table.GetRecvFromUDPNum(), table.GetRecvFromMCNum(),
                                     table.GetRecvFromOtherNum()}));
    table.DeleteAll();
    EXPECT_EQ(table.GetCount(), 0u);
    EXPECT_EQ(table.GetRecvNum() + table.GetRecvFromUDPNum() + table.GetRecvFromMCNum() + table.GetRecvFromOtherNum(),
              0u);
    EXPECT_EQ(FileSize(path), 0);
    // After emptying, the next key starts at slot 1 with a fresh header.
    std::strcpy(g.contract_code, "SP SR501&SR505");
    EXPECT_EQ(table.AddHQInfo(&g, 0), 0);
    EXPECT_EQ(FileSize(path), static_cast<long>(16 + sizeof(tagSaveHQInfo<tagArgHQInfo>)));
    EXPECT_EQ(HeadOf(path).dwCount, 1u);
    EXPECT_EQ(HeadOf(path).ulTime, static_cast<uint64_t>(GetDate()));
}

// --- loading the snapshot of the day ------------------------------------------

tagSaveHQInfo<tagHQInfo> Slot(int no, const char* code, double last) {
    return {no, Quote(code, last, no), no};
}

// A snapshot of another day is emptied; of today, whole slots load (a
// partial last one is dropped), a key seen twice keeps its later slot,
// damaged slot numbers and unterminated keys load by position.
TEST_F(Tables, SnapshotLoad) {
    const long R = sizeof(tagSaveHQInfo<tagHQInfo>);
    const uint64_t today = static_cast<uint64_t>(GetDate());
    const std::string path = dir.File("tikron.db");
    const time_t t = time(nullptr) - 86400;
    struct tm tm {};
    localtime_r(&t, &tm);
    WriteFile(path, SnapshotImage<tagHQInfo>((tm.tm_year + 1900) * 10000 + (tm.tm_mon + 1) * 100 + tm.tm_mday, {Slot(1, "IF2412", 1)}, 0));
    EXPECT_EQ(CTIKRONInfo(path.c_str()).GetCount(), 0u);
    EXPECT_EQ(FileSize(path), 0);
    WriteFile(path, SnapshotImage<tagHQInfo>(today, {Slot(1, "IF2412", 1), Slot(2, "rb2501", 2)}, R / 2));
    EXPECT_EQ(CTIKRONInfo(path.c_str()).GetCount(), 2u);

    WriteFile(path, SnapshotImage<tagHQInfo>(today, {Slot(1, "au2506", 1), Slot(2, "sc2503", 2), Slot(3, "au2506", 3)}, 0));
    {
        CTIKRONInfo t(path.c_str());
        ASSERT_EQ(t.GetCount(), 2u);
        tagHQInfo q = Quote("au2506", 0, 0);
        ASSERT_EQ(t.GetHQInfo(&q), 1);
        EXPECT_EQ(double(q.futu_last_price), 3.0);
        tagHQInfo n = Quote("SR501", 5.0, 5);
        ASSERT_EQ(t.AddHQInfo(&n, 0), 0);
        EXPECT_EQ(FileSize(path), 16 + 4 * R);
        EXPECT_STREQ(SlotInFile<tagHQInfo>(path, 3).szHQInfo.contract_code, "au2506");
        EXPECT_STREQ(SlotInFile<tagHQInfo>(path, 4).szHQInfo.contract_code, "SR501");
    }
    auto bad = Slot(-5, "m2505", 1);
    std::memset(bad.szHQInfo.contract_code, 'Z', sizeof bad.szHQInfo.contract_code);
    WriteFile(path, SnapshotImage<tagHQInfo>(today, {bad, Slot(99999999, "IF2412", 2)}, 0));
    {
        CTIKRONInfo t(path.c_str());
        EXPECT_EQ(t.GetCount(), 2u);
        tagHQInfo q = Quote("IF2412", 7.0, 7);
        ASSERT_EQ(t.AddHQInfo(&q, 0), 0);
        EXPECT_EQ(FileSize(path), 16 + 2 * R);
        EXPECT_EQ(double(SlotInFile<tagHQInfo>(path, 2).szHQInfo.futu_last_price), 7.0);
    }
    WriteFile(path, std::string("\x01\x02\x03", 3));  // a short header
    EXPECT_EQ(CTIKRONInfo(path.c_str()).GetCount(), 0u);
    EXPECT_EQ(FileSize(path), 0);
}

}  // namespace
