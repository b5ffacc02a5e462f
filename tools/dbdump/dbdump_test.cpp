// Runs tikron-dbdump on hand-built snapshot files.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "testing/temp_dir.h"
#include "wire/quote_records.h"

namespace {

struct Result {
    int exitCode;
    std::string out;
};

Result RunTool(const std::string& args) {
    std::string cmd = std::string(TIKRON_DBDUMP_PATH) + " " + args + " 2>&1";
    Result r{-1, {}};
    FILE* p = popen(cmd.c_str(), "r");
    if (!p) return r;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) r.out.append(buf, n);
    int st = pclose(p);
    r.exitCode = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    return r;
}

class DbDump : public ::testing::Test {
protected:
    std::string Write(const std::string& name, const std::string& bytes) {
        std::string p = dir / name;
        std::ofstream(p, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        return p;
    }
    testing_support::TempDir dir;
};

std::string ExchFile(size_t tail) {
    tagHQFileHead h{20241203u, 2u};
    std::string b(reinterpret_cast<const char*>(&h), 16);
    for (int k = 1; k <= 2; ++k) {
        tagSaveHQInfo<tagEXCHSTATUS> s;
        std::memset(&s, 0, sizeof s);
        s.iRecordNo = s.iCrc = k;
        std::snprintf(s.szHQInfo.futu_exch_type, 3, "F%d", k);
        std::snprintf(s.szHQInfo.futu_status, 3, "%d", k + 1);
        s.szHQInfo.can_trade = k % 2;
        b.append(reinterpret_cast<const char*>(&s), sizeof s);
    }
    b.append(tail, '\0');
    return b;
}

TEST_F(DbDump, ListsSlotsAsTextAndJsonWithGbkConverted) {
    std::string p = Write("futuexchstatus_a#1_20241203.db", ExchFile(0));
    Result t = RunTool("'" + p + "'");
    EXPECT_EQ(t.exitCode, 0) << t.out;
    EXPECT_NE(t.out.find("date: 20241203  count: 2  slots: 2  kind: exch"), std::string::npos) << t.out;
    EXPECT_NE(t.out.find("[slot 2] iRecordNo=2 iCrc=2"), std::string::npos);
    EXPECT_NE(t.out.find("futu_status     3"), std::string::npos) << t.out;

    tagHQFileHead h{20241203u, 1u};
    std::string b(reinterpret_cast<const char*>(&h), 16);
    tagSaveHQInfo<tagArgHQInfo> s;
    std::memset(&s, 0, sizeof s);
    s.iRecordNo = s.iCrc = 1;
    std::strcpy(s.szHQInfo.contract_code, "SP \xB6\xB9\xC6\xC9");  // "SP 豆粕" in GBK
    s.szHQInfo.buy_price = -35.5;
    s.szHQInfo.arbi_type = 'S';
    b.append(reinterpret_cast<const char*>(&s), sizeof s);
    std::string pa = Write("combo.bin", b);
    Result j = RunTool("--json --kind arg '" + pa + "'");
    EXPECT_EQ(j.exitCode, 0) << j.out;
    EXPECT_NE(j.out.find(u8"\"contract_code\":\"SP 豆粕\""), std::string::npos) << j.out;  // output is UTF-8
    EXPECT_NE(j.out.find("\"buy_price\":-35.5"), std::string::npos) << j.out;
    EXPECT_NE(j.out.find("\"arbi_type\":\"S\""), std::string::npos) << j.out;
}

TEST_F(DbDump, MalformedFilesFailCleanly) {
    Result shortHead = RunTool("'" + Write("tikron_x.db", std::string(7, '\1')) + "'");
    EXPECT_EQ(shortHead.exitCode, 3);
    EXPECT_NE(shortHead.out.find("short header"), std::string::npos) << shortHead.out;

    Result partial = RunTool("'" + Write("futuexchstatus_x.db", ExchFile(9)) + "'");
    EXPECT_EQ(partial.exitCode, 3);
    EXPECT_NE(partial.out.find("partial trailing slot of 9 bytes"), std::string::npos) << partial.out;

    // Wrong kind for the size: reported, not misread silently.
    Result wrongKind = RunTool("--kind hq '" + Write("any.db", ExchFile(0)) + "'");
    EXPECT_EQ(wrongKind.exitCode, 3);

    Result unknown = RunTool("'" + Write("quotes.bin", ExchFile(0)) + "'");
    EXPECT_EQ(unknown.exitCode, 2);
    EXPECT_NE(unknown.out.find("--kind"), std::string::npos);

    EXPECT_EQ(RunTool("'" + dir / "missing_tikron_1.db' --kind hq").exitCode, 2);
    EXPECT_EQ(RunTool("--kind bogus x.db").exitCode, 1);
}

}  // namespace
