// Management console: display widths, aligned rendering, and the
// request/answer round trip through a manager facet.
#include <gtest/gtest.h>

#include <sstream>

#include "host/mgmt_console.h"

namespace {

using hostemu::ConsoleTable;

// Answers like a plug-in: function_id 1 gives a two-column table with a GBK
// caption (this file is compiled with a GBK execution charset), 2 fails, 3
// leaves the packer empty, anything else echoes the id.
struct FakeManager : IManager {
    int QueryInterface(const char*, IKnown** out) override { return *out = this, 1; }
    int AddRef() override { return 1; }
    int Release() override { return 1; }
    int ProcMngAnswer(IF2UnPacker*) override { return 1; }
    int ProcSysEvent(unsigned long, unsigned long, unsigned long, void (*)(int)) override { return 1; }
    int ProcMngRequest(IF2UnPacker* req, IF2Packer* answer) override {
        lastId = req->GetInt("function_id");
        if (lastId == 2) return -1;
        if (lastId == 3) return answer->FreeMem(answer->GetPackBuf()), 0;
        answer->BeginPack();
        answer->AddField("名字", 'S', 255, 4);
        answer->AddField("value", 'S', 255, 4);
        if (lastId == 1) {
            answer->AddStr("取函数列表");
            answer->AddDouble(2.5);
            answer->AddStr("line\n");
        } else {
            answer->AddInt(lastId);
            answer->AddInt(-lastId);
        }
        answer->EndPack();
        return 0;
    }
    int lastId = -100;
};

TEST(MgmtConsole, DisplayWidthCountsWideAndZeroWidthCharacters) {
    const std::pair<const char*, size_t> cases[] = {
        {"", 0},  {"abc12", 5}, {u8"取函数列表", 10}, {u8"2.5版ab", 7}, {u8"ＡＢ", 4},  // full-width forms
        {u8"e\u0301", 1},  // combining accent
        {"\n\t", 0},       {"\xff\xe4", 2},  // broken bytes: one each
        {"\xe4\xb8", 2},   // cut sequence
    };
    for (const auto& c : cases) EXPECT_EQ(c.second, hostemu::DisplayWidth(c.first)) << c.first;
    EXPECT_EQ("\\0\\x01\\x7f\\r", hostemu::ConsoleCell(std::string("\0\x01\x7f\r", 4)));
}

TEST(MgmtConsole, RenderAlignsMixedWidthColumns) {
    ConsoleTable t;
    t.columns = {u8"名字", "n", "last"};
    t.rows = {{u8"是", "12345", "x"}, {"ab", "1"}, {"a\tb\n", "", u8"取"}};
    EXPECT_EQ(std::string(u8"名字   | n     | last\n") + "-------+-------+-----\n" + u8"是     | 12345 | x\n" +
                  "ab     | 1     | \n" +            // short row: empty cell
                  u8"a\\tb\\n |       | 取\n",  // control characters escaped
              hostemu::RenderTable(t));
}

TEST(MgmtConsole, RoundTripThroughTheManagerFacet) {
    hostemu::CHostPackSvr packs;
    FakeManager mgr;
    ConsoleTable t;
    for (int version : {33, 1}) {
        ASSERT_EQ(0, hostemu::RunManagementAction(&mgr, packs, 1, &t, version));
        EXPECT_EQ(1, mgr.lastId);
        EXPECT_EQ((std::vector<std::string>{u8"名字", "value"}), t.columns);  // GBK caption shown as UTF-8
        EXPECT_EQ((std::vector<std::vector<std::string>>{{u8"取函数列表", "2.5000"}, {"line\n", ""}}), t.rows);
        EXPECT_EQ('D', t.body.rows[0][1].kind);
        EXPECT_EQ(version, t.body.version);
    }
    EXPECT_EQ(-1, hostemu::RunManagementAction(&mgr, packs, 2, &t));
    EXPECT_EQ(-1, t.result);
    EXPECT_TRUE(t.columns.empty());
    EXPECT_EQ(hostemu::CONSOLE_BAD_ANSWER, hostemu::RunManagementAction(&mgr, packs, 3, &t));
    EXPECT_EQ(hostemu::CONSOLE_NO_MANAGER, hostemu::RunManagementAction(nullptr, packs, 0, &t));
    ASSERT_EQ(0, hostemu::RunManagementAction(&mgr, packs, 77, &t));
    EXPECT_EQ((std::vector<std::string>{"77", "-77"}), t.rows[0]);
    EXPECT_EQ(0u, packs.LivePackers());  // every packer and unpacker given back
    EXPECT_EQ(0u, packs.LiveUnPackers());
    EXPECT_EQ(nullptr, hostemu::ManagerOf(nullptr));
}

}  // namespace
