#include "tools/ctl/table_print.h"

#include <vector>

namespace ctl {

using json = nlohmann::ordered_json;

namespace {

bool IsWide(uint32_t cp) {
    return (cp >= 0x1100 && cp <= 0x115F) || (cp >= 0x2E80 && cp <= 0x303E) ||
           (cp >= 0x3041 && cp <= 0x33FF) || (cp >= 0x3400 && cp <= 0x4DBF) ||
           (cp >= 0x4E00 && cp <= 0x9FFF) || (cp >= 0xA000 && cp <= 0xA4CF) ||
           (cp >= 0xAC00 && cp <= 0xD7A3) || (cp >= 0xF900 && cp <= 0xFAFF) ||
           (cp >= 0xFE30 && cp <= 0xFE4F) || (cp >= 0xFF00 && cp <= 0xFF60) ||
           (cp >= 0xFFE0 && cp <= 0xFFE6) || (cp >= 0x20000 && cp <= 0x3FFFD);
}

bool IsCombining(uint32_t cp) {
    return (cp >= 0x0300 && cp <= 0x036F) || (cp >= 0x200B && cp <= 0x200F) || (cp >= 0xFE00 && cp <= 0xFE0F);
}

}  // namespace

size_t DisplayWidth(const std::string& s) {
    size_t width = 0;
    for (size_t i = 0; i < s.size();) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        size_t len = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
        if (len == 0 || i + len > s.size()) {  // stray byte
            ++width;
            ++i;
            continue;
        }
        uint32_t cp = len == 1 ? c : (c & (0x7F >> len));
        bool ok = true;
        for (size_t k = 1; k < len; ++k) {
            unsigned char cc = static_cast<unsigned char>(s[i + k]);
            if ((cc & 0xC0) != 0x80) ok = false;
            cp = (cp << 6) | (cc & 0x3F);
        }
        if (!ok) {
            ++width;
            ++i;
            continue;
        }
        width += IsCombining(cp) ? 0 : IsWide(cp) ? 2 : 1;
        i += len;
    }
    return width;
}

std::string CellText(const json& v) {
    if (v.is_null()) return "";
    if (v.is_string()) return v.get<std::string>();
    if (v.is_number_float()) {
        char buf[64];
        snprintf(buf, sizeof buf, "%.6f", v.get<double>());
        std::string t(buf);
        t.erase(t.find_last_not_of('0') + 1);
        if (!t.empty() && t.back() == '.') t.pop_back();
        return t;
    }
    return v.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string FormatTable(const json& table) {
    std::vector<std::string> header;
    if (table.contains("columns") && table["columns"].is_array())
        for (const auto& c : table["columns"])
            header.push_back(c.is_object() ? CellText(c.value("name", json(""))) : CellText(c));
    std::vector<std::vector<std::string>> rows;
    if (table.contains("rows") && table["rows"].is_array())
        for (const auto& r : table["rows"]) {
            std::vector<std::string> row;
            if (r.is_array())
                for (const auto& v : r) row.push_back(CellText(v));
            rows.push_back(std::move(row));
        }
    size_t ncol = header.size();
    for (const auto& r : rows) ncol = std::max(ncol, r.size());
    std::vector<size_t> widths(ncol, 0);
    auto measure = [&](const std::vector<std::string>& cells) {
        for (size_t i = 0; i < cells.size(); ++i) widths[i] = std::max(widths[i], DisplayWidth(cells[i]));
    };
    measure(header);
    for (const auto& r : rows) measure(r);
    auto line = [&](const std::vector<std::string>& cells) {
        std::string out;
        for (size_t i = 0; i < ncol; ++i) {
            const std::string cell = i < cells.size() ? cells[i] : "";
            out += cell;
            if (i + 1 < ncol) out += std::string(widths[i] - DisplayWidth(cell) + 2, ' ');
        }
        out.erase(out.find_last_not_of(' ') + 1);
        return out + "\n";
    };
    std::string out = line(header);
    std::vector<std::string> rule;
    for (size_t w : widths) rule.push_back(std::string(w, '-'));
    out += line(rule);
    for (const auto& r : rows) out += line(r);
    if (rows.empty()) out += "(no rows)\n";
    return out;
}

}  // namespace ctl
