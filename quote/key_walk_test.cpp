// The keyed row walk on an unpacker whose third row lacks the key: earlier
// answer rows are dropped for the -4 error, and the key copy is bounded.
#include "quote/key_walk.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "host/host_pack.h"

namespace {

// Rows of key texts; a null entry is a row without the key field.
class RowsUnPacker final : public IF2UnPacker {
public:
    explicit RowsUnPacker(std::vector<const char*> rows) : m_rows(std::move(rows)) {}
    int QueryInterface(const char*, IKnown**) override { return 0; }
    int AddRef() override { return 1; }
    int Release() override { return 1; }
    int FindColumn(const char*) override { return 0; }
    const char* GetStr(const char*) override { return m_row < m_rows.size() ? m_rows[m_row] : nullptr; }
    char GetChar(const char*) override { return 0; }
    double GetDouble(const char*) override { return 0; }
    int GetInt(const char*) override { return 1; }
    const void* GetRaw(const char*, int* len) override {
        if (len) *len = 0;
        return nullptr;
    }
    int Next() override { return m_row < m_rows.size() ? (++m_row, 0) : -1; }
    int IsEOF() override { return m_row >= m_rows.size() ? 1 : 0; }
    int Open(const void*, int) override { return 0; }
    const void* GetPackBuf() override { return nullptr; }
    int GetPackLen() override { return 0; }
    int GetRowCount() override { return static_cast<int>(m_rows.size()); }
    int GetColCount() override { return 1; }
    const char* GetColName(int) override { return "contract_code"; }
    char GetColType(int) override { return 'S'; }
    int GetColWidth(int) override { return 255; }
    int GetColScale(int) override { return 4; }
    char GetValueKind(int) override { return 'S'; }
    const char* GetStrByIndex(int) override { return nullptr; }
    const void* GetRawByIndex(int, int*) override { return nullptr; }
    int First() override { return m_row = 0; }

private:
    std::vector<const char*> m_rows;
    size_t m_row = 0;
};

// Looks up by key and records every key text it was asked for.
template <typename T>
struct FakeTable {
    std::set<std::string> keys;
    std::vector<std::string> asked;
    int GetHQInfo(T* rec) {
        std::string k(rec->contract_code, strnlen(rec->contract_code, sizeof rec->contract_code));
        asked.push_back(k);
        return keys.count(k) ? 1 : 0;
    }
};

hostemu::PackedBody Finish(hostemu::CHostPacker& p) {
    p.EndPack();
    hostemu::PackedBody b;
    EXPECT_EQ(0, hostemu::DecodePacked(p.GetPackBuf(), p.GetPackLen(), &b));
    return b;
}

TEST(KeyWalk, MissingKeyAfterAnsweredRowsGivesMinus4AndTheText) {
    RowsUnPacker up({"IF2409", "IF2412", nullptr, "IF2501"});
    hostemu::CHostPacker packer(nullptr, 33);
    FakeTable<tagHQInfo> table;
    table.keys = {"IF2409", "IF2412", "IF2501"};
    tikron_quote::QueryCall call;
    call.unpacker = &up;
    call.packer = &packer;
    call.fieldMode = true;
    packer.BeginPack();
    tikron_quote::DeclareAnswer<tagHQInfo>(&packer, true);
    tikron_quote::WalkKeys<tagHQInfo>(&table, "contract_code", 12, call);
    EXPECT_EQ(-4, call.result);
    EXPECT_STREQ("没字段: contract_code", call.errorText);
    EXPECT_EQ((std::vector<std::string>{"IF2409", "IF2412"}), table.asked);
}

TEST(KeyWalk, KeysAreCutAtTheBoundAndShorterKeysClearTheRest) {
    RowsUnPacker up({"ABCDEFGHIJKLMNOP", "XY"});
    hostemu::CHostPacker packer(nullptr, 1);
    FakeTable<tagArgHQInfo> table;
    table.keys = {"XY"};
    tikron_quote::QueryCall call;
    call.unpacker = &up;
    call.packer = &packer;
    packer.BeginPack();
    tikron_quote::DeclareAnswer<tagArgHQInfo>(&packer, false);
    tikron_quote::WalkKeys<tagArgHQInfo>(&table, "arbicontract_id", 5, call);
    EXPECT_EQ(0, call.result);
    EXPECT_EQ((std::vector<std::string>{"ABCDE", "XY"}), table.asked);
    hostemu::PackedBody b = Finish(packer);
    ASSERT_EQ(1u, b.rows.size());
    EXPECT_EQ(128u, b.rows[0][0].bytes.size());
}

TEST(KeyWalk, FinishWithoutPackerSendsNothingAndKeepsTheResult) {
    tikron_quote::QueryCall call;
    call.SetError(-2, "取TAG_MESSAGE_BODY失败!\n");
    EXPECT_EQ(-2, tikron_quote::FinishQuery(nullptr, nullptr, call));
}

}  // namespace
