#include "tools/ctl/table_print.h"

#include <vector>

#include "host/mgmt_console.h"

namespace ctl {

using json = nlohmann::ordered_json;
using hostemu::DisplayWidth;

std::string CellText(const json& v) {
    if (v.is_null()) return "";
    if (v.is_string()) return hostemu::ConsoleCell(v.get<std::string>());
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
