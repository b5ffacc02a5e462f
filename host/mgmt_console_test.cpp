// Management console: display widths, alignment, and the request/answer
// round trip through a manager facet.
#include <gtest/gtest.h>

#include <sstream>

#include "host/mgmt_console.h"

namespace {

using hostemu::ConsoleTable;

// Answers like a plug-in: function_id 1 gives a two-column table with a GBK
// caption (this file is compiled with a GBK execution charset), 2 fails, 3
// leaves the packer empty, anything else echoes the id.
class FakeManager : public IManager {
public:
    int QueryInterface(const char*, IKnown** out) override {
        if (out) *out = this;
        return 1;
    }
    int AddRef() override { return 1; }
    int Release() override { return 1; }
    int ProcMngRequest(IF2UnPacker* req, IF2Packer* answer) override {
        lastId = req->GetInt("function_id");
        if (lastId == 2) return -1;
        if (lastId == 3) {
            answer->FreeMem(answer->GetPackBuf());
            return 0;
        }
        answer->BeginPack();
        answer->AddField("名字", 'S', 255, 4);
        answer->AddField("value", 'S', 255, 4);
        if (lastId == 1) {
            answer->AddStr("取函数列表");
            answer->AddDouble(2.5);
            answer->AddStr("line\n");
            answer->AddChar('\0');
        } else {
            answer->AddInt(lastId);
            answer->AddInt(-lastId);
        }
        answer->EndPack();
        return 0;
    }
    int ProcMngAnswer(IF2UnPacker*) override { return 1; }
    int ProcSysEvent(unsigned long, unsigned long, unsigned long, void (*)(int)) override { return 1; }
    int lastId = -100;
};

TEST(MgmtConsole, DisplayWidthCountsWideAndZeroWidthCharacters) {
    EXPECT_EQ(0u, hostemu::DisplayWidth(""));
    EXPECT_EQ(5u, hostemu::DisplayWidth("abc12"));
    EXPECT_EQ(10u, hostemu::DisplayWidth(u8"取函数列表"));
    EXPECT_EQ(7u, hostemu::DisplayWidth(u8"2.5版ab"));     // 2.5 + 版 + ab
    EXPECT_EQ(4u, hostemu::DisplayWidth(u8"ＡＢ"));         // full-width forms
    EXPECT_EQ(1u, hostemu::DisplayWidth(u8"e\u0301"));      // combining accent
    EXPECT_EQ(0u, hostemu::DisplayWidth("\n\t"));
    EXPECT_EQ(2u, hostemu::DisplayWidth("\xff\xe4"));       // broken bytes: one each
    EXPECT_EQ(2u, hostemu::DisplayWidth("\xe4\xb8"));       // cut sequence
}

TEST(MgmtConsole, RenderAlignsMixedWidthColumns) {
    ConsoleTable t;
    t.columns = {u8"名字", "n", "last"};
    t.rows = {{u8"是", "12345", "x"}, {"ab", "1"}, {"a\tb\n", "", u8"取"}};
    const std::string text = hostemu::RenderTable(t);
    std::istringstream in(text);
    std::string line;
    std::vector<std::string> lines;
    while (std::getline(in, line)) lines.push_back(line);
    ASSERT_EQ(5u, lines.size());
    EXPECT_EQ(u8"名字   | n     | last", lines[0]);
    EXPECT_EQ("-------+-------+-----", lines[1]);
    EXPECT_EQ(u8"是     | 12345 | x", lines[2]);
    EXPECT_EQ("ab     | 1     | ", lines[3]);  // short row: empty cell
    EXPECT_EQ(u8"a\\tb\\n |       | 取", lines[4]);  // control characters escaped
    EXPECT_EQ(std::string("\\0\\x01\\x7f\\r"), hostemu::ConsoleCell(std::string("\0\x01\x7f\r", 4)));
}

TEST(MgmtConsole, RoundTripThroughTheManagerFacet) {
    hostemu::CHostPackSvr packs;
    FakeManager mgr;
    ConsoleTable t;
    for (int version : {33, 1}) {
        ASSERT_EQ(0, hostemu::RunManagementAction(&mgr, packs, 1, &t, version));
        EXPECT_EQ(1, mgr.lastId);
        ASSERT_EQ(2u, t.columns.size());
        EXPECT_EQ(u8"名字", t.columns[0]);  // GBK caption shown as UTF-8
        ASSERT_EQ(2u, t.rows.size());
        EXPECT_EQ(u8"取函数列表", t.rows[0][0]);
        EXPECT_EQ("2.5000", t.rows[0][1]);  // scale 4
        EXPECT_EQ("line\n", t.rows[1][0]);
        EXPECT_EQ('D', t.body.rows[0][1].kind);
        EXPECT_EQ(version, t.body.version);
    }
    EXPECT_EQ(-1, hostemu::RunManagementAction(&mgr, packs, 2, &t));
    EXPECT_EQ(-1, t.result);
    EXPECT_TRUE(t.columns.empty());
    EXPECT_EQ(hostemu::CONSOLE_BAD_ANSWER, hostemu::RunManagementAction(&mgr, packs, 3, &t));
    EXPECT_EQ(hostemu::CONSOLE_NO_MANAGER, hostemu::RunManagementAction(nullptr, packs, 0, &t));
    ASSERT_EQ(0, hostemu::RunManagementAction(&mgr, packs, 77, &t));
    EXPECT_EQ("77", t.rows[0][0]);
    EXPECT_EQ("-77", t.rows[0][1]);
    // Every packer and unpacker the console took was given back.
    EXPECT_EQ(0u, packs.LivePackers());
    EXPECT_EQ(0u, packs.LiveUnPackers());
    EXPECT_EQ(nullptr, hostemu::ManagerOf(nullptr));
}

}  // namespace
