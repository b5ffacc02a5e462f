// Aligned text tables for tikron-ctl, measured by display width so that
// Chinese captions and values line up in a terminal.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

namespace ctl {

// Text of one cell: strings with control characters escaped (one line per
// row, as the management console shows them), numbers as JSON prints them
// (doubles without trailing zeros), null as empty.
std::string CellText(const nlohmann::ordered_json& v);

// {"columns":[{"name":..}...],"rows":[[...]]} as a header line, a rule and
// one line per row; columns separated by two spaces, padded to the widest
// cell. Output ends with a newline; an empty table prints "(no rows)".
std::string FormatTable(const nlohmann::ordered_json& table);

}  // namespace ctl
