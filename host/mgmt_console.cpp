// Management console: request, call through IManager, decode, render.
#include "host/mgmt_console.h"

#include <algorithm>
#include <cstdint>

#include "frame/host_interfaces.h"
#include "host/host_log.h"

namespace hostemu {

namespace {

// Decodes one UTF-8 code point at s[i]; advances i. Returns -1 for a broken
// sequence (i then moves by one byte).
long NextCodePoint(const std::string& s, size_t& i) {
    const unsigned char c = static_cast<unsigned char>(s[i]);
    size_t len = 0;
    long cp = 0;
    if (c < 0x80) {
        ++i;
        return c;
    } else if ((c & 0xE0) == 0xC0) {
        len = 2;
        cp = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
        len = 3;
        cp = c & 0x0F;
    } else if ((c & 0xF8) == 0xF0) {
        len = 4;
        cp = c & 0x07;
    } else {
        ++i;
        return -1;
    }
    if (i + len > s.size()) {
        ++i;
        return -1;
    }
    for (size_t k = 1; k < len; ++k) {
        const unsigned char cc = static_cast<unsigned char>(s[i + k]);
        if ((cc & 0xC0) != 0x80) {
            ++i;
            return -1;
        }
        cp = (cp << 6) | (cc & 0x3F);
    }
    i += len;
    return cp;
}

int CodePointWidth(long cp) {
    if (cp < 0) return 1;
    if (cp < 0x20 || (cp >= 0x7F && cp < 0xA0)) return 0;
    if ((cp >= 0x0300 && cp <= 0x036F) || (cp >= 0x200B && cp <= 0x200F) || (cp >= 0xFE00 && cp <= 0xFE0F))
        return 0;
    static const long kWide[][2] = {
        {0x1100, 0x115F},   {0x2329, 0x232A},   {0x2E80, 0x303E},   {0x3041, 0x33FF},
        {0x3400, 0x4DBF},   {0x4E00, 0x9FFF},   {0xA000, 0xA4CF},   {0xAC00, 0xD7A3},
        {0xF900, 0xFAFF},   {0xFE30, 0xFE4F},   {0xFF00, 0xFF60},   {0xFFE0, 0xFFE6},
        {0x1F300, 0x1F64F}, {0x1F900, 0x1F9FF}, {0x20000, 0x2FFFD}, {0x30000, 0x3FFFD}};
    for (const auto& r : kWide)
        if (cp >= r[0] && cp <= r[1]) return 2;
    return 1;
}

void Pad(std::string& out, const std::string& cell, size_t width) {
    out += cell;
    const size_t w = DisplayWidth(cell);
    if (w < width) out.append(width - w, ' ');
}

}  // namespace

std::vector<char> BuildManagementRequest(int functionId, int version) {
    return EncodePacked(MakeBody(version, {"function_id"}, {{functionId}}));
}

IManager* ManagerOf(IMessageService* service) {
    if (service == nullptr) return nullptr;
    IKnown* mgr = nullptr;
    if (service->QueryInterface(SID_MANAGER, &mgr) != 1 || mgr == nullptr) return nullptr;
    return static_cast<IManager*>(mgr);
}

int RunManagementAction(IManager* manager, CHostPackSvr& packSvr, int functionId, ConsoleTable* out,
                        int version) {
    if (out != nullptr) *out = ConsoleTable();
    if (manager == nullptr) return CONSOLE_NO_MANAGER;
    IF2UnPacker* request = packSvr.GetUnPacker(version);
    IF2Packer* answer = packSvr.GetPacker(version);
    if (request == nullptr || answer == nullptr) {
        if (request != nullptr) request->Release();
        if (answer != nullptr) answer->Release();
        return CONSOLE_NO_MANAGER;
    }
    int rc = 0;
    const std::vector<char> body = BuildManagementRequest(functionId, version);
    if (request->Open(body.data(), static_cast<int>(body.size())) != 0) {
        rc = CONSOLE_BAD_REQUEST;
    } else {
        answer->BeginPack();
        rc = manager->ProcMngRequest(request, answer);
        if (out != nullptr) out->result = rc;
        if (rc == 0 && out != nullptr) {
            PackedBody decoded;
            const void* buf = answer->GetPackBuf();
            const int len = answer->GetPackLen();
            if (buf == nullptr || len <= 0 || DecodePacked(buf, len, &decoded) != 0) {
                rc = CONSOLE_BAD_ANSWER;
            } else {
                for (const PackColumn& col : decoded.columns) out->columns.push_back(GbkToUtf8(col.name));
                for (const auto& row : decoded.rows) {
                    std::vector<std::string> cells;
                    cells.reserve(row.size());
                    for (size_t c = 0; c < row.size(); ++c) {
                        const int scale = c < decoded.columns.size() ? decoded.columns[c].scale : 4;
                        cells.push_back(GbkToUtf8(row[c].Text(scale)));
                    }
                    out->rows.push_back(std::move(cells));
                }
                out->body = std::move(decoded);
            }
        }
    }
    request->Release();
    void* packed = answer->GetPackBuf();
    if (packed != nullptr) answer->FreeMem(packed);
    answer->Release();
    return rc;
}

size_t DisplayWidth(const std::string& utf8) {
    size_t width = 0;
    for (size_t i = 0; i < utf8.size();) width += static_cast<size_t>(CodePointWidth(NextCodePoint(utf8, i)));
    return width;
}

std::string ConsoleCell(const std::string& utf8) {
    static const char kHex[] = "0123456789abcdef";
    std::string s;
    s.reserve(utf8.size());
    for (char c : utf8) {
        const unsigned char u = static_cast<unsigned char>(c);
        if (u >= 0x20 && u != 0x7F) {
            s += c;
            continue;
        }
        s += '\\';
        switch (u) {
            case '\n': s += 'n'; break;
            case '\r': s += 'r'; break;
            case '\t': s += 't'; break;
            case 0: s += '0'; break;
            default:
                s += 'x';
                s += kHex[u >> 4];
                s += kHex[u & 15];
        }
    }
    return s;
}

std::string RenderTable(const ConsoleTable& table) {
    size_t ncols = table.columns.size();
    for (const auto& row : table.rows) ncols = std::max(ncols, row.size());
    auto cellAt = [](const std::vector<std::string>& v, size_t i) {
        return i < v.size() ? ConsoleCell(v[i]) : std::string();
    };
    std::vector<size_t> widths(ncols, 0);
    for (size_t c = 0; c < ncols; ++c) {
        widths[c] = DisplayWidth(cellAt(table.columns, c));
        for (const auto& row : table.rows) widths[c] = std::max(widths[c], DisplayWidth(cellAt(row, c)));
    }
    auto line = [&](const std::vector<std::string>& v) {
        std::string out;
        for (size_t c = 0; c < ncols; ++c) {
            if (c > 0) out += " | ";
            // The last column is not padded: no trailing blanks.
            if (c + 1 == ncols)
                out += cellAt(v, c);
            else
                Pad(out, cellAt(v, c), widths[c]);
        }
        out += '\n';
        return out;
    };
    std::string out = line(table.columns);
    for (size_t c = 0; c < ncols; ++c) {
        if (c > 0) out += "-+-";
        out.append(widths[c], '-');
    }
    out += '\n';
    for (const auto& row : table.rows) out += line(row);
    return out;
}

}  // namespace hostemu
