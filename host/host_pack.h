// Packer service of the emulator: version-1 and version-33 packers and
// unpackers over the compact binary format described in host/PACKING.md,
// plus a decoder to plain structs and a builder for tests and tools.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "frame/host_interfaces.h"

namespace hostemu {

class CHostPackSvr;

// One cell of a decoded or to-be-packed body. `kind` tells how the value was
// added: 'I' AddInt, 'D' AddDouble, 'C' AddChar, 'S' AddStr, 'R' PackRaw,
// 0 no value (short last row).
struct PackCell {
    char kind = 0;
    int i = 0;
    double d = 0;
    char c = 0;
    std::string bytes;  // 'S' and 'R'

    PackCell() = default;
    PackCell(int v) : kind('I'), i(v) {}
    PackCell(double v) : kind('D'), d(v) {}
    PackCell(char v) : kind('C'), c(v) {}
    PackCell(const char* v) : kind('S'), bytes(v ? v : "") {}
    PackCell(const std::string& v) : kind('S'), bytes(v) {}
    static PackCell Raw(const void* data, size_t len);
    static PackCell Raw(const std::string& data) { return Raw(data.data(), data.size()); }

    // The value as text, as an unpacker's GetStr gives it (doubles with
    // `scale` decimals).
    std::string Text(int scale = 4) const;
    bool operator==(const PackCell& o) const;
};

struct PackColumn {
    std::string name;
    char type = 'S';
    int width = 255;
    int scale = 4;
};

struct PackedBody {
    int version = 33;  // 1 or 33
    std::vector<PackColumn> columns;
    std::vector<std::vector<PackCell>> rows;

    int Find(const std::string& name) const;  // -1 when absent
    // Cell of a row by column name; null when absent.
    const PackCell* Get(size_t row, const std::string& name) const;
    std::string Str(size_t row, const std::string& name) const;  // "" when absent
    int Int(size_t row, const std::string& name) const;          // 0 when absent
};

// Decodes a packed buffer; 0 on success, negative when malformed.
int DecodePacked(const void* buf, int len, PackedBody* out);
// Packs a body with the emulator's packer (columns, then rows in order).
std::vector<char> EncodePacked(const PackedBody& body);
// Columns of type S width 255 scale 4 with the given names, then the rows.
PackedBody MakeBody(int version, const std::vector<std::string>& names,
                    const std::vector<std::vector<PackCell>>& rows);

class CHostPacker final : public IF2Packer {
public:
    // svr may be null (standalone packer: Release deletes it).
    CHostPacker(CHostPackSvr* svr, int version);
    int QueryInterface(const char* id, IKnown** out) override;
    int AddRef() override;
    int Release() override;
    int BeginPack() override;                                   // 0
    int AddField(const char* name, char type, int width, int scale) override;  // -1 after values
    int AddStr(const char* value) override;                     // -1 without columns
    int AddInt(int value) override;
    int AddDouble(double value) override;
    int AddChar(char value) override;
    int PackRaw(const void* data, int len) override;            // < 0 on failure
    int EndPack() override;                                     // 0
    void* GetPackBuf() override;   // null after FreeMem
    int GetPackLen() override;
    // FreeMem(GetPackBuf()) releases the packer's buffer and resets it; any
    // other pointer is ignored.
    void FreeMem(void* buf) override;

    int Version() const { return m_version; }

private:
    bool BeginValue(char kind);
    void PatchCounts();
    // Extends the buffer by n bytes and returns where they start.
    unsigned char* Grow(size_t n);

    CHostPackSvr* m_svr;
    int m_version;
    std::atomic<int> m_refs{1};
    static constexpr size_t kInitialRoom = 16384;
    std::vector<unsigned char> m_buf;  // storage; the packed bytes are the first m_len
    size_t m_len = 0;
    uint32_t m_cols = 0;
    uint32_t m_rows = 0;      // rows started
    uint32_t m_cellInRow = 0; // cells of the current row
    bool m_valuesStarted = false;
};

class CHostUnPacker final : public IF2UnPacker {
public:
    CHostUnPacker(CHostPackSvr* svr, int version);
    int QueryInterface(const char* id, IKnown** out) override;
    int AddRef() override;
    int Release() override;
    int FindColumn(const char* name) override;
    const char* GetStr(const char* name) override;   // null when absent
    char GetChar(const char* name) override;
    double GetDouble(const char* name) override;
    int GetInt(const char* name) override;
    const void* GetRaw(const char* name, int* len) override;
    int Next() override;   // 0; -1 at end
    int IsEOF() override;
    // Validates the whole buffer; 0 on success, negative when malformed (the
    // unpacker is then empty). Either version's buffer is accepted.
    int Open(const void* buf, int len) override;
    const void* GetPackBuf() override;
    int GetPackLen() override;
    int GetRowCount() override;
    int GetColCount() override;
    const char* GetColName(int col) override;
    char GetColType(int col) override;
    int GetColWidth(int col) override;
    int GetColScale(int col) override;
    char GetValueKind(int col) override;
    const char* GetStrByIndex(int col) override;
    const void* GetRawByIndex(int col, int* len) override;
    int First() override;

    const PackedBody& Body() const { return m_body; }

private:
    const PackCell* Cell(int col) const;
    int Col(const char* name) const;

    CHostPackSvr* m_svr;
    int m_version;
    std::atomic<int> m_refs{1};
    std::vector<char> m_bytes;  // the opened buffer plus zero padding
    size_t m_bytesLen = 0;
    PackedBody m_body;
    size_t m_row = 0;
    std::vector<std::string> m_text;  // per-column text of the current row
};

class CHostPackSvr final : public IF2PackSvr {
public:
    CHostPackSvr() = default;
    ~CHostPackSvr();  // frees packers and unpackers never released
    int QueryInterface(const char* id, IKnown** out) override;
    int AddRef() override { return 1; }
    int Release() override { return 1; }
    int GetPackVersion(const void* buf) override;  // 1 for version 1, else 33
    IF2Packer* GetPacker(int version) override;     // version 1 or 33 (else 33)
    IF2UnPacker* GetUnPacker(int version) override;

    // Fault injection: every PackRaw of this service's packers fails.
    void SetPackRawFails(bool on) { m_packRawFails = on; }
    bool PackRawFails() const { return m_packRawFails; }
    // Objects created and not yet released.
    size_t LivePackers() const;
    size_t LiveUnPackers() const;

private:
    friend class CHostPacker;
    friend class CHostUnPacker;
    void Forget(CHostPacker* p);
    void Forget(CHostUnPacker* u);

    mutable std::mutex m_mutex;
    std::set<CHostPacker*> m_packers;
    std::set<CHostUnPacker*> m_unpackers;
    std::atomic<bool> m_packRawFails{false};
};

}  // namespace hostemu
