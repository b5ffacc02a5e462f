// Packer service: packers, unpackers and the plain-struct decoder.
#include "host/host_pack.h"

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "host/wire.h"

namespace hostemu {

namespace {

constexpr size_t kHeader = 12;
constexpr uint32_t kMaxColumns = 4096;
constexpr size_t kPad = 8;  // zero bytes kept after buffers handed out

int ClampToInt(long long v) {
    if (v > INT_MAX) return INT_MAX;
    if (v < INT_MIN) return INT_MIN;
    return static_cast<int>(v);
}

int TextToInt(const char* s) { return ClampToInt(strtoll(s, nullptr, 10)); }

int DoubleToInt(double d) {
    if (std::isnan(d)) return 0;
    if (d >= 2147483647.0) return INT_MAX;
    if (d <= -2147483648.0) return INT_MIN;
    return static_cast<int>(d);
}

int ClampScale(int scale) { return scale < 0 ? 0 : (scale > 15 ? 15 : scale); }

std::string DoubleText(double d, int scale) {
    char buf[512];
    snprintf(buf, sizeof(buf), "%.*f", ClampScale(scale), d);
    return buf;
}

bool IsVersion(unsigned char v) { return v == 1 || v == 33; }

}  // namespace

// --- PackCell / PackedBody -----------------------------------------------------

PackCell PackCell::Raw(const void* data, size_t len) {
    PackCell c;
    c.kind = 'R';
    if (data != nullptr && len > 0) c.bytes.assign(static_cast<const char*>(data), len);
    return c;
}

std::string PackCell::Text(int scale) const {
    switch (kind) {
        case 'I': return std::to_string(i);
        case 'D': return DoubleText(d, scale);
        case 'C': return std::string(1, c);
        case 'S':
        case 'R': return std::string(bytes.c_str());  // up to the first NUL
        default: return std::string();
    }
}

bool PackCell::operator==(const PackCell& o) const {
    if (kind != o.kind) return false;
    switch (kind) {
        case 'I': return i == o.i;
        case 'D': return d == o.d || (std::isnan(d) && std::isnan(o.d));
        case 'C': return c == o.c;
        case 'S':
        case 'R': return bytes == o.bytes;
        default: return true;
    }
}

int PackedBody::Find(const std::string& name) const {
    for (size_t k = 0; k < columns.size(); ++k)
        if (columns[k].name == name) return static_cast<int>(k);
    return -1;
}

const PackCell* PackedBody::Get(size_t row, const std::string& name) const {
    int col = Find(name);
    if (col < 0 || row >= rows.size() || static_cast<size_t>(col) >= rows[row].size()) return nullptr;
    return &rows[row][static_cast<size_t>(col)];
}

std::string PackedBody::Str(size_t row, const std::string& name) const {
    const PackCell* c = Get(row, name);
    if (c == nullptr) return std::string();
    int col = Find(name);
    return c->Text(columns[static_cast<size_t>(col)].scale);
}

int PackedBody::Int(size_t row, const std::string& name) const {
    const PackCell* c = Get(row, name);
    if (c == nullptr) return 0;
    if (c->kind == 'I') return c->i;
    if (c->kind == 'D') return DoubleToInt(c->d);
    return TextToInt(c->Text().c_str());
}

int DecodePacked(const void* buf, int len, PackedBody* out) {
    if (buf == nullptr || len < 0 || out == nullptr) return -1;
    wire::Reader r(buf, static_cast<size_t>(len));
    unsigned char magic[4];
    if (!r.Raw(4, magic) || magic[0] != 'K' || magic[1] != 'P') return -2;
    if (!IsVersion(magic[2])) return -3;
    uint32_t ncols, nrows;
    if (!r.U32(&ncols) || !r.U32(&nrows)) return -2;
    if (ncols > kMaxColumns) return -4;
    PackedBody body;
    body.version = magic[2];
    body.columns.resize(ncols);
    for (PackColumn& col : body.columns) {
        unsigned char type, nlen;
        int32_t width, scale;
        if (!r.U8(&type) || !r.U8(&nlen) || nlen == 0 || !r.Bytes(nlen, &col.name) || !r.I32(&width) ||
            !r.I32(&scale))
            return -4;
        col.type = static_cast<char>(type);
        col.width = width;
        col.scale = scale;
    }
    if (ncols == 0 ? nrows != 0 : nrows > r.Left() / ncols) return -8;
    body.rows.resize(nrows);
    for (auto& row : body.rows) {
        row.resize(ncols);
        for (PackCell& cell : row) {
            unsigned char kind;
            if (!r.U8(&kind)) return -5;
            cell.kind = static_cast<char>(kind);
            switch (kind) {
                case 'I':
                    if (!r.I32(&cell.i)) return -5;
                    break;
                case 'D':
                    if (!r.Raw(8, &cell.d)) return -5;
                    break;
                case 'C': {
                    unsigned char ch;
                    if (!r.U8(&ch)) return -5;
                    cell.c = static_cast<char>(ch);
                    break;
                }
                case 'S':
                case 'R': {
                    uint32_t n;
                    if (!r.U32(&n) || !r.Bytes(n, &cell.bytes)) return -5;
                    break;
                }
                case 0:
                    break;
                default:
                    return -6;
            }
        }
    }
    if (r.Left() != 0) return -7;
    *out = std::move(body);
    return 0;
}

std::vector<char> EncodePacked(const PackedBody& body) {
    CHostPacker p(nullptr, body.version);
    p.BeginPack();
    for (const PackColumn& c : body.columns) p.AddField(c.name.c_str(), c.type, c.width, c.scale);
    for (const auto& row : body.rows) {
        for (const PackCell& cell : row) {
            switch (cell.kind) {
                case 'I': p.AddInt(cell.i); break;
                case 'D': p.AddDouble(cell.d); break;
                case 'C': p.AddChar(cell.c); break;
                case 'S': p.AddStr(cell.bytes.c_str()); break;
                case 'R': p.PackRaw(cell.bytes.data(), static_cast<int>(cell.bytes.size())); break;
                default: p.AddStr(""); break;
            }
        }
    }
    p.EndPack();
    const char* b = static_cast<const char*>(p.GetPackBuf());
    return std::vector<char>(b, b + p.GetPackLen());
}

PackedBody MakeBody(int version, const std::vector<std::string>& names,
                    const std::vector<std::vector<PackCell>>& rows) {
    PackedBody b;
    b.version = version;
    for (const std::string& n : names) b.columns.push_back(PackColumn{n, 'S', 255, 4});
    b.rows = rows;
    return b;
}

// --- packer ----------------------------------------------------------------

CHostPacker::CHostPacker(CHostPackSvr* svr, int version) : m_svr(svr), m_version(version == 1 ? 1 : 33) {
    // Room for a typical answer, so packing does not allocate per value.
    m_buf.resize(kInitialRoom);
}

int CHostPacker::QueryInterface(const char*, IKnown** out) {
    if (out != nullptr) *out = nullptr;
    return 0;
}

int CHostPacker::AddRef() { return ++m_refs; }

int CHostPacker::Release() {
    int left = --m_refs;
    if (left > 0) return left;
    if (m_svr != nullptr) m_svr->Forget(this);
    delete this;
    return 0;
}

int CHostPacker::BeginPack() {
    if (m_buf.size() < kInitialRoom) m_buf.resize(kInitialRoom);
    const unsigned char head[kHeader] = {'K', 'P', static_cast<unsigned char>(m_version), 0};
    memcpy(m_buf.data(), head, kHeader);
    m_len = kHeader;
    m_cols = m_rows = m_cellInRow = 0;
    m_valuesStarted = false;
    return 0;
}

unsigned char* CHostPacker::Grow(size_t n) {
    // m_buf is storage only (its size is the room); m_len bytes are packed.
    // Growing doubles the room, so bytes are not cleared on every append.
    const size_t at = m_len;
    if (m_buf.size() - at < n) m_buf.resize(at + n > 2 * m_buf.size() ? at + n : 2 * m_buf.size());
    m_len = at + n;
    return m_buf.data() + at;
}

namespace {
inline unsigned char* PutU32At(unsigned char* p, uint32_t v) {
    wire::SetU32At(p, v);
    return p + 4;
}
}  // namespace

int CHostPacker::AddField(const char* name, char type, int width, int scale) {
    if (m_len < kHeader) BeginPack();
    if (m_valuesStarted || name == nullptr) return -1;
    size_t n = strnlen(name, 256);
    if (n == 0 || n > 255 || m_cols >= kMaxColumns) return -1;
    unsigned char* p = Grow(2 + n + 8);
    p[0] = static_cast<unsigned char>(type);
    p[1] = static_cast<unsigned char>(n);
    memcpy(p + 2, name, n);
    p = PutU32At(p + 2 + n, static_cast<uint32_t>(width));
    PutU32At(p, static_cast<uint32_t>(scale));
    ++m_cols;
    return 0;
}

bool CHostPacker::BeginValue(char kind) {
    if (m_len < kHeader || m_cols == 0) return false;
    m_valuesStarted = true;
    if (m_cellInRow == 0) ++m_rows;
    *Grow(1) = static_cast<unsigned char>(kind);
    if (++m_cellInRow == m_cols) m_cellInRow = 0;
    return true;
}

int CHostPacker::AddStr(const char* value) {
    if (!BeginValue('S')) return -1;
    size_t n = value != nullptr ? strlen(value) : 0;
    unsigned char* p = PutU32At(Grow(4 + n), static_cast<uint32_t>(n));
    if (n != 0) memcpy(p, value, n);
    return 0;
}

int CHostPacker::AddInt(int value) {
    if (!BeginValue('I')) return -1;
    PutU32At(Grow(4), static_cast<uint32_t>(value));
    return 0;
}

int CHostPacker::AddDouble(double value) {
    if (!BeginValue('D')) return -1;
    memcpy(Grow(sizeof value), &value, sizeof value);
    return 0;
}

int CHostPacker::AddChar(char value) {
    if (!BeginValue('C')) return -1;
    *Grow(1) = static_cast<unsigned char>(value);
    return 0;
}

int CHostPacker::PackRaw(const void* data, int len) {
    if (m_svr != nullptr && m_svr->PackRawFails()) return -1;
    if (len < 0 || (data == nullptr && len > 0)) return -1;
    if (!BeginValue('R')) return -1;
    unsigned char* p = PutU32At(Grow(4 + static_cast<size_t>(len)), static_cast<uint32_t>(len));
    if (len > 0) memcpy(p, data, static_cast<size_t>(len));
    return 0;
}

void CHostPacker::PatchCounts() {
    if (m_len < kHeader) return;
    wire::SetU32At(m_buf.data() + 4, m_cols);
    wire::SetU32At(m_buf.data() + 8, m_rows);
}

int CHostPacker::EndPack() {
    if (m_len < kHeader) BeginPack();
    // Complete a short last row with empty cells.
    while (m_cellInRow != 0) {
        *Grow(1) = 0;
        if (++m_cellInRow == m_cols) m_cellInRow = 0;
    }
    PatchCounts();
    return 0;
}

void* CHostPacker::GetPackBuf() {
    if (m_len < kHeader) return nullptr;
    PatchCounts();
    return m_buf.data();
}

int CHostPacker::GetPackLen() { return m_len < kHeader ? 0 : static_cast<int>(m_len); }

void CHostPacker::FreeMem(void* buf) {
    if (buf == nullptr || m_len == 0 || buf != static_cast<void*>(m_buf.data())) return;
    std::vector<unsigned char>().swap(m_buf);
    m_len = 0;
    m_cols = m_rows = m_cellInRow = 0;
    m_valuesStarted = false;
}

// --- unpacker ----------------------------------------------------------------

CHostUnPacker::CHostUnPacker(CHostPackSvr* svr, int version) : m_svr(svr), m_version(version == 1 ? 1 : 33) {}

int CHostUnPacker::QueryInterface(const char*, IKnown** out) {
    if (out != nullptr) *out = nullptr;
    return 0;
}

int CHostUnPacker::AddRef() { return ++m_refs; }

int CHostUnPacker::Release() {
    int left = --m_refs;
    if (left > 0) return left;
    if (m_svr != nullptr) m_svr->Forget(this);
    delete this;
    return 0;
}

int CHostUnPacker::Open(const void* buf, int len) {
    m_body = PackedBody();
    m_bytes.clear();
    m_row = 0;
    m_text.clear();
    PackedBody body;
    int rc = DecodePacked(buf, len, &body);
    if (rc != 0) return rc;
    m_body = std::move(body);
    const char* p = static_cast<const char*>(buf);
    m_bytes.assign(static_cast<size_t>(len) + kPad, 0);
    if (len > 0) memcpy(m_bytes.data(), p, static_cast<size_t>(len));
    m_bytes.resize(static_cast<size_t>(len) + kPad);
    m_bytesLen = static_cast<size_t>(len);
    m_text.assign(m_body.columns.size(), std::string());
    return 0;
}

int CHostUnPacker::Col(const char* name) const {
    if (name == nullptr) return -1;
    // Names are at most 255 bytes: a longer text matches no column. The
    // length test first makes a miss on most columns one comparison; the
    // first column of that name wins, as before.
    const size_t n = strnlen(name, 256);
    for (size_t k = 0; k < m_body.columns.size(); ++k) {
        const std::string& c = m_body.columns[k].name;
        if (c.size() == n && memcmp(c.data(), name, n) == 0) return static_cast<int>(k);
    }
    return -1;
}

const PackCell* CHostUnPacker::Cell(int col) const {
    if (col < 0 || static_cast<size_t>(col) >= m_body.columns.size() || m_row >= m_body.rows.size()) return nullptr;
    const auto& row = m_body.rows[m_row];
    if (static_cast<size_t>(col) >= row.size()) return nullptr;
    return &row[static_cast<size_t>(col)];
}

int CHostUnPacker::FindColumn(const char* name) { return Col(name); }

const char* CHostUnPacker::GetStrByIndex(int col) {
    if (col < 0 || static_cast<size_t>(col) >= m_body.columns.size()) return nullptr;
    const PackCell* c = Cell(col);
    if (c == nullptr || c->kind == 0) return "";
    if (c->kind == 'S' || c->kind == 'R') return c->bytes.c_str();
    std::string& t = m_text[static_cast<size_t>(col)];
    t = c->Text(m_body.columns[static_cast<size_t>(col)].scale);
    return t.c_str();
}

const char* CHostUnPacker::GetStr(const char* name) { return GetStrByIndex(Col(name)); }

char CHostUnPacker::GetChar(const char* name) {
    int col = Col(name);
    const PackCell* c = Cell(col);
    if (c == nullptr) return 0;
    if (c->kind == 'C') return c->c;
    const char* s = GetStrByIndex(col);
    return s != nullptr ? s[0] : 0;
}

double CHostUnPacker::GetDouble(const char* name) {
    int col = Col(name);
    const PackCell* c = Cell(col);
    if (c == nullptr) return 0;
    if (c->kind == 'I') return c->i;
    if (c->kind == 'D') return c->d;
    const char* s = GetStrByIndex(col);
    return s != nullptr ? strtod(s, nullptr) : 0;
}

int CHostUnPacker::GetInt(const char* name) {
    int col = Col(name);
    const PackCell* c = Cell(col);
    if (c == nullptr) return 0;
    if (c->kind == 'I') return c->i;
    if (c->kind == 'D') return DoubleToInt(c->d);
    const char* s = GetStrByIndex(col);
    return s != nullptr ? TextToInt(s) : 0;
}

const void* CHostUnPacker::GetRawByIndex(int col, int* len) {
    if (len != nullptr) *len = 0;
    const PackCell* c = Cell(col);
    if (c == nullptr || c->kind == 0) return nullptr;
    if (c->kind == 'S' || c->kind == 'R') {
        if (len != nullptr) *len = static_cast<int>(c->bytes.size());
        return c->bytes.data();
    }
    const char* s = GetStrByIndex(col);
    if (len != nullptr) *len = static_cast<int>(strlen(s));
    return s;
}

const void* CHostUnPacker::GetRaw(const char* name, int* len) { return GetRawByIndex(Col(name), len); }

int CHostUnPacker::Next() {
    if (m_row >= m_body.rows.size()) return -1;
    ++m_row;
    return 0;
}

int CHostUnPacker::IsEOF() { return m_row >= m_body.rows.size() ? 1 : 0; }

int CHostUnPacker::First() {
    m_row = 0;
    return 0;
}

const void* CHostUnPacker::GetPackBuf() { return m_bytesLen == 0 ? nullptr : m_bytes.data(); }
int CHostUnPacker::GetPackLen() { return static_cast<int>(m_bytesLen); }
int CHostUnPacker::GetRowCount() { return static_cast<int>(m_body.rows.size()); }
int CHostUnPacker::GetColCount() { return static_cast<int>(m_body.columns.size()); }

const char* CHostUnPacker::GetColName(int col) {
    if (col < 0 || static_cast<size_t>(col) >= m_body.columns.size()) return nullptr;
    return m_body.columns[static_cast<size_t>(col)].name.c_str();
}

char CHostUnPacker::GetColType(int col) {
    if (col < 0 || static_cast<size_t>(col) >= m_body.columns.size()) return 0;
    return m_body.columns[static_cast<size_t>(col)].type;
}

int CHostUnPacker::GetColWidth(int col) {
    if (col < 0 || static_cast<size_t>(col) >= m_body.columns.size()) return 0;
    return m_body.columns[static_cast<size_t>(col)].width;
}

int CHostUnPacker::GetColScale(int col) {
    if (col < 0 || static_cast<size_t>(col) >= m_body.columns.size()) return 0;
    return m_body.columns[static_cast<size_t>(col)].scale;
}

char CHostUnPacker::GetValueKind(int col) {
    const PackCell* c = Cell(col);
    return c == nullptr ? 0 : c->kind;
}

// --- service -----------------------------------------------------------------

CHostPackSvr::~CHostPackSvr() {
    std::set<CHostPacker*> packers;
    std::set<CHostUnPacker*> unpackers;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        packers.swap(m_packers);
        unpackers.swap(m_unpackers);
    }
    for (CHostPacker* p : packers) delete p;
    for (CHostUnPacker* u : unpackers) delete u;
}

int CHostPackSvr::QueryInterface(const char* id, IKnown** out) {
    if (out == nullptr) return 0;
    if (id != nullptr && strcmp(id, SID_F2PACKSVR) == 0) {
        *out = this;
        return 1;
    }
    *out = nullptr;
    return 0;
}

int CHostPackSvr::GetPackVersion(const void* buf) {
    // Byte by byte, so a short foreign buffer is read no further than needed.
    const unsigned char* p = static_cast<const unsigned char*>(buf);
    if (p == nullptr || p[0] != 'K' || p[1] != 'P') return 33;
    return p[2] == 1 ? 1 : 33;
}

IF2Packer* CHostPackSvr::GetPacker(int version) {
    auto* p = new CHostPacker(this, version);
    std::lock_guard<std::mutex> lock(m_mutex);
    m_packers.insert(p);
    return p;
}

IF2UnPacker* CHostPackSvr::GetUnPacker(int version) {
    auto* u = new CHostUnPacker(this, version);
    std::lock_guard<std::mutex> lock(m_mutex);
    m_unpackers.insert(u);
    return u;
}

size_t CHostPackSvr::LivePackers() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_packers.size();
}

size_t CHostPackSvr::LiveUnPackers() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_unpackers.size();
}

void CHostPackSvr::Forget(CHostPacker* p) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_packers.erase(p);
}

void CHostPackSvr::Forget(CHostUnPacker* u) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_unpackers.erase(u);
}

}  // namespace hostemu
