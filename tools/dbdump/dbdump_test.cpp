// Runs tikron-dbdump on hand-built snapshot files.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "testing/temp_dir.h"
#include "wire/quote_records.h"

namespace {

// Exit status and output (stdout and stderr) of tikron-dbdump with args.
std::pair<int, std::string> Dump(const std::string& args) {
    std::string out;
    FILE* p = popen((std::string(TIKRON_DBDUMP_PATH) + " " + args + " 2>&1").c_str(), "r");
    if (p == nullptr) return {-1, out};
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
    const int st = pclose(p);
    return {WIFEXITED(st) ? WEXITSTATUS(st) : -1, out};
}

template <typename Rec>
std::string Snapshot(unsigned count, const Rec* recs, size_t n, size_t tail = 0) {
    tagHQFileHead h{20241203u, count};
    std::string b(reinterpret_cast<const char*>(&h), 16);
    for (size_t k = 0; k < n; ++k) {
        tagSaveHQInfo<Rec> s;
        std::memset(&s, 0, sizeof s);
        s.iRecordNo = s.iCrc = static_cast<int>(k + 1);
        s.szHQInfo = recs[k];
        b.append(reinterpret_cast<const char*>(&s), sizeof s);
    }
    return b + std::string(tail, '\0');
}

std::string ExchFile(size_t tail = 0) {
    tagEXCHSTATUS e[2];
    std::memset(e, 0, sizeof e);
    for (int k = 0; k < 2; ++k) {
        std::snprintf(e[k].futu_exch_type, 3, "F%d", k + 1);
        std::snprintf(e[k].futu_status, 3, "%d", k + 2);
        e[k].can_trade = (k + 1) % 2;
    }
    return Snapshot(2, e, 2, tail);
}

TEST(DbDump, ListsSlotsAsTextAndJsonAndRefusesMalformedFiles) {
    testing_support::TempDir dir;
    testing_support::WriteFile(dir / "futuexchstatus_a#1_20241203.db", ExchFile());
    auto t = Dump("'" + dir / "futuexchstatus_a#1_20241203.db'");
    EXPECT_EQ(0, t.first) << t.second;
    for (const char* line : {"date: 20241203  count: 2  slots: 2  kind: exch", "[slot 2] iRecordNo=2 iCrc=2",
                             "futu_status     3"})
        EXPECT_NE(std::string::npos, t.second.find(line)) << line << "\n" << t.second;

    tagArgHQInfo arg;
    std::memset(&arg, 0, sizeof arg);
    std::strcpy(arg.contract_code, "SP \xB6\xB9\xC6\xC9");  // "SP 豆粕" in GBK
    arg.buy_price = -35.5;
    arg.arbi_type = 'S';
    testing_support::WriteFile(dir / "combo.bin", Snapshot(1, &arg, 1));
    auto j = Dump("--json --kind arg '" + dir / "combo.bin'");
    EXPECT_EQ(0, j.first) << j.second;
    for (const char* field : {u8"\"contract_code\":\"SP 豆粕\"", "\"buy_price\":-35.5", "\"arbi_type\":\"S\""})
        EXPECT_NE(std::string::npos, j.second.find(field)) << field << "\n" << j.second;  // UTF-8 output
    // Malformed files and bad invocations fail with a message and a status.
    const struct {
        const char* name;
        std::string bytes;
        const char* args;
        int status;
        const char* message;
    } cases[] = {
        {"tikron_x.db", std::string(7, '\1'), "", 3, "short header"},
        {"futuexchstatus_x.db", ExchFile(9), "", 3, "partial trailing slot of 9 bytes"},
        {"any.db", ExchFile(), "--kind hq", 3, ""},  // wrong kind for the size: reported, not misread
        {"quotes.bin", ExchFile(), "", 2, "--kind"},
    };
    for (const auto& c : cases) {
        testing_support::WriteFile(dir / c.name, c.bytes);
        auto r = Dump(std::string(c.args) + " '" + dir / c.name + "'");
        EXPECT_EQ(c.status, r.first) << c.name << ": " << r.second;
        EXPECT_NE(std::string::npos, r.second.find(c.message)) << c.name << ": " << r.second;
    }
    EXPECT_EQ(2, Dump("'" + dir / "missing_tikron_1.db' --kind hq").first);
    EXPECT_EQ(1, Dump("--kind bogus x.db").first);
}

}  // namespace
