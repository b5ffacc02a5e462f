#include "host/product_json.h"

#include <cerrno>
#include <charconv>
#include <string_view>
#include <iconv.h>

#include "host/host_log.h"

namespace product {

using json = nlohmann::ordered_json;

// Hex written in place (raw records are the longest cells of a line).
static void AppendHex(std::string& out, const void* data, size_t len) {
    static const char digits[] = "0123456789abcdef";
    const auto* p = static_cast<const unsigned char*>(data);
    const size_t at = out.size();
    out.resize(at + 2 * len);
    for (size_t i = 0; i < len; ++i) {
        out[at + 2 * i] = digits[p[i] >> 4];
        out[at + 2 * i + 1] = digits[p[i] & 15];
    }
}

std::string ToHex(const void* data, size_t len) {
    std::string out;
    AppendHex(out, data, len);
    return out;
}

static int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool FromHex(const std::string& hex, std::string* out) {
    if (hex.size() % 2 != 0) return false;
    std::string bytes;
    bytes.reserve(hex.size() / 2);
    for (size_t i = 0; i < hex.size(); i += 2) {
        int hi = HexDigit(hex[i]), lo = HexDigit(hex[i + 1]);
        if (hi < 0 || lo < 0) return false;
        bytes.push_back(static_cast<char>(hi * 16 + lo));
    }
    *out = std::move(bytes);
    return true;
}

static json CellToJson(const hostemu::PackCell& c) {
    switch (c.kind) {
        case 'I': return c.i;
        case 'D': return c.d;
        case 'C': return hostemu::GbkToUtf8(std::string(1, c.c));
        case 'S': return hostemu::GbkToUtf8(c.bytes);
        case 'R': return ToHex(c.bytes.data(), c.bytes.size());
        default: return nullptr;
    }
}

json PackedToJson(const hostemu::PackedBody& body) {
    json cols = json::array();
    for (const auto& c : body.columns)
        cols.push_back({{"name", hostemu::GbkToUtf8(c.name)},
                        {"type", std::string(1, c.type)},
                        {"width", c.width},
                        {"scale", c.scale}});
    json rows = json::array();
    for (const auto& r : body.rows) {
        json row = json::array();
        for (const auto& cell : r) row.push_back(CellToJson(cell));
        rows.push_back(std::move(row));
    }
    return {{"columns", std::move(cols)}, {"rows", std::move(rows)}};
}

namespace {

// True when the text is well-formed UTF-8 (no overlong forms, no
// surrogates), as the library's own check takes it.
bool ValidUtf8(std::string_view s) {
    const size_t size = s.size();
    for (size_t i = 0; i < size;) {
        const unsigned char c = static_cast<unsigned char>(s[i]);
        if (c < 0x80) {
            ++i;
            continue;
        }
        size_t n;
        unsigned char lo = 0x80, hi = 0xBF;  // range of the second byte
        if (c >= 0xC2 && c <= 0xDF) {
            n = 1;
        } else if (c >= 0xE0 && c <= 0xEF) {
            n = 2;
            if (c == 0xE0) lo = 0xA0;
            if (c == 0xED) hi = 0x9F;
        } else if (c >= 0xF0 && c <= 0xF4) {
            n = 3;
            if (c == 0xF0) lo = 0x90;
            if (c == 0xF4) hi = 0x8F;
        } else {
            return false;
        }
        if (size - i <= n) return false;
        const unsigned char second = static_cast<unsigned char>(s[i + 1]);
        if (second < lo || second > hi) return false;
        for (size_t k = 2; k <= n; ++k)
            if ((static_cast<unsigned char>(s[i + k]) & 0xC0) != 0x80) return false;
        i += n + 1;
    }
    return true;
}

// A JSON string as the library writes it (escapes of '"', '\\' and control
// bytes); text that is not UTF-8 is left to the library's replacement.
void PutString(std::string& out, std::string_view utf8) {
    // One pass for the room the escapes take (and whether any byte is not
    // ASCII), then the text written in place: the \x01-separated quote
    // texts have an escape every few bytes.
    size_t extra = 0;
    bool ascii = true;
    for (unsigned char c : utf8) {
        if (c < 0x20)
            extra += c == '\b' || c == '\f' || c == '\n' || c == '\r' || c == '\t' ? 1 : 5;
        else if (c == '"' || c == '\\')
            extra += 1;
        else if (c >= 0x80)
            ascii = false;
    }
    if (!ascii && !ValidUtf8(utf8)) {
        out += json(std::string(utf8)).dump(-1, ' ', false, json::error_handler_t::replace);
        return;
    }
    static const char kHex[] = "0123456789abcdef";
    const size_t at = out.size();
    out.resize(at + utf8.size() + extra + 2);
    char* p = &out[at];
    *p++ = '"';
    for (unsigned char c : utf8) {
        if (c >= 0x20 && c != '"' && c != '\\') {
            *p++ = static_cast<char>(c);
            continue;
        }
        *p++ = '\\';
        switch (c) {
            case '"': *p++ = '"'; break;
            case '\\': *p++ = '\\'; break;
            case '\b': *p++ = 'b'; break;
            case '\f': *p++ = 'f'; break;
            case '\n': *p++ = 'n'; break;
            case '\r': *p++ = 'r'; break;
            case '\t': *p++ = 't'; break;
            default:
                *p++ = 'u';
                *p++ = '0';
                *p++ = '0';
                *p++ = kHex[c >> 4];
                *p++ = kHex[c & 15];
        }
    }
    *p = '"';
}

// A GBK text as a JSON string; ASCII needs no conversion.
void PutGbk(std::string& out, const std::string& gbk) {
    for (unsigned char c : gbk)
        if (c >= 0x80) return PutString(out, hostemu::GbkToUtf8(gbk));
    PutString(out, gbk);
}

void PutInt(std::string& out, long long v) {
    char digits[24];
    const auto r = std::to_chars(digits, digits + sizeof digits, v);
    out.append(digits, static_cast<size_t>(r.ptr - digits));
}

void PutCell(std::string& out, const hostemu::PackCell& c) {
    switch (c.kind) {
        case 'I': PutInt(out, c.i); break;
        case 'D': out += json(c.d).dump(); break;
        case 'C': PutString(out, hostemu::GbkToUtf8(std::string(1, c.c))); break;
        case 'S': PutGbk(out, c.bytes); break;
        case 'R':
            out.push_back('"');
            AppendHex(out, c.bytes.data(), c.bytes.size());
            out.push_back('"');
            break;
        default: out += "null";
    }
}

void PutRawItem(std::string& out, const std::vector<char>* item) {
    if (item == nullptr || item->empty()) {
        out += "null";
        return;
    }
    const std::vector<char>& raw = *item;
    hostemu::PackedBody body;
    if (hostemu::DecodePacked(raw.data(), static_cast<int>(raw.size()), &body) != 0) {
        out += "{\"undecodable\":\"";
        AppendHex(out, raw.data(), raw.size());
        out += "\"}";
        return;
    }
    out += "{\"columns\":[";
    for (size_t i = 0; i < body.columns.size(); ++i) {
        const auto& c = body.columns[i];
        out += i == 0 ? "{\"name\":" : ",{\"name\":";
        PutGbk(out, c.name);
        out += ",\"type\":";
        PutString(out, std::string_view(&c.type, 1));
        out += ",\"width\":";
        PutInt(out, c.width);
        out += ",\"scale\":";
        PutInt(out, c.scale);
        out.push_back('}');
    }
    out += "],\"rows\":[";
    for (size_t r = 0; r < body.rows.size(); ++r) {
        out += r == 0 ? "[" : ",[";
        for (size_t i = 0; i < body.rows[r].size(); ++i) {
            if (i > 0) out.push_back(',');
            PutCell(out, body.rows[r][i]);
        }
        out.push_back(']');
    }
    out += "]}";
}

}  // namespace

std::string MessageLine(const hostemu::MessageSnapshot& msg) {
    // Key and body read in place (the accessors copy).
    auto rawOf = [&msg](int tag) -> const std::vector<char>* {
        auto it = msg.items.find(tag);
        return it == msg.items.end() ? nullptr : &it->second.raw;
    };
    const std::vector<char>* key = rawOf(54);
    const std::vector<char>* body = rawOf(8);
    std::string out;
    out.reserve(256 + 2 * ((body ? body->size() : 0) + (key ? key->size() : 0)));
    out += "{\"function\":";
    PutInt(out, msg.FunctionNo());
    out += ",\"packet_type\":";
    PutInt(out, msg.PacketType());
    out += ",\"issue_type\":";
    PutInt(out, msg.IssueType());
    out += ",\"packet_id\":";
    PutInt(out, msg.PacketId());
    out += ",\"key\":";
    PutRawItem(out, key);
    out += ",\"body\":";
    PutRawItem(out, body);
    if (msg.ErrorFlag() != 0 || msg.ErrorNo() != 0) {
        out += ",\"error_no\":";
        PutInt(out, msg.ErrorNo());
        out += ",\"error_info\":";
        PutGbk(out, msg.ErrorInfo());
    }
    if (msg.Has(9)) {
        out += ",\"route\":[";
        for (int i = 0; i < 4; ++i) {
            if (i > 0) out.push_back(',');
            PutGbk(out, msg.Route(i));
        }
        out.push_back(']');
    }
    out.push_back('}');
    return out;
}

json MessageToJson(const hostemu::MessageSnapshot& msg) { return json::parse(MessageLine(msg)); }

std::string DumpLine(const json& j) {
    // Every text was converted already; replace guards against a stray byte.
    return j.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string Utf8ToGbk(const std::string& text) {
    bool ascii = true;
    for (unsigned char ch : text)
        if (ch >= 0x80) { ascii = false; break; }
    if (ascii) return text;
    iconv_t cd = iconv_open("GBK", "UTF-8");
    if (cd == reinterpret_cast<iconv_t>(-1)) return text;
    std::string in(text), out;
    char* inp = in.data();
    size_t inLeft = in.size();
    char buf[1024];
    while (inLeft > 0) {
        char* outp = buf;
        size_t outLeft = sizeof buf;
        size_t rc = iconv(cd, &inp, &inLeft, &outp, &outLeft);
        out.append(buf, static_cast<size_t>(outp - buf));
        if (rc == static_cast<size_t>(-1) && errno != E2BIG) {
            // Skip the whole UTF-8 sequence that cannot be converted.
            out.push_back('?');
            do {
                ++inp;
                --inLeft;
            } while (inLeft > 0 && (static_cast<unsigned char>(*inp) & 0xC0) == 0x80);
        }
    }
    iconv_close(cd);
    return out;
}

static bool ColumnFromJson(const json& c, hostemu::PackColumn* col, std::string* error) {
    if (c.is_string()) {
        col->name = Utf8ToGbk(c.get<std::string>());
        return true;
    }
    if (!c.is_object() || !c.contains("name") || !c["name"].is_string()) {
        *error = "a column is a name or an object with \"name\"";
        return false;
    }
    col->name = Utf8ToGbk(c["name"].get<std::string>());
    if (c.contains("type")) {
        if (!c["type"].is_string() || c["type"].get<std::string>().size() != 1) {
            *error = "column type is one letter";
            return false;
        }
        col->type = c["type"].get<std::string>()[0];
    }
    if (c.contains("width")) {
        if (!c["width"].is_number_integer()) { *error = "column width is an integer"; return false; }
        col->width = c["width"].get<int>();
    }
    if (c.contains("scale")) {
        if (!c["scale"].is_number_integer()) { *error = "column scale is an integer"; return false; }
        col->scale = c["scale"].get<int>();
    }
    return true;
}

static bool CellFromJson(const json& v, char columnType, hostemu::PackCell* cell, std::string* error) {
    if (v.is_string() && columnType == 'R') {
        std::string bytes;
        if (!FromHex(v.get<std::string>(), &bytes)) { *error = "a raw column takes hex strings"; return false; }
        *cell = hostemu::PackCell::Raw(bytes);
    } else if (v.is_number_integer()) {
        long long n = v.get<long long>();
        if (n < INT32_MIN || n > INT32_MAX) { *error = "integer out of 32-bit range"; return false; }
        *cell = hostemu::PackCell(static_cast<int>(n));
    } else if (v.is_number()) {
        *cell = hostemu::PackCell(v.get<double>());
    } else if (v.is_string()) {
        *cell = hostemu::PackCell(Utf8ToGbk(v.get<std::string>()));
    } else if (v.is_object() && v.contains("hex") && v["hex"].is_string()) {
        std::string bytes;
        if (!FromHex(v["hex"].get<std::string>(), &bytes)) { *error = "bad hex value"; return false; }
        *cell = hostemu::PackCell::Raw(bytes);
    } else {
        *error = "a value is a number, a string or {\"hex\":...}";
        return false;
    }
    return true;
}

bool JsonToPacked(const json& j, int version, hostemu::PackedBody* out, std::string* error) {
    if (!j.is_object() || !j.contains("columns") || !j["columns"].is_array() || j["columns"].empty()) {
        *error = "body needs a non-empty \"columns\" array";
        return false;
    }
    hostemu::PackedBody body;
    body.version = version;
    for (const auto& c : j["columns"]) {
        hostemu::PackColumn col;
        if (!ColumnFromJson(c, &col, error)) return false;
        body.columns.push_back(std::move(col));
    }
    if (j.contains("rows")) {
        if (!j["rows"].is_array()) { *error = "\"rows\" is an array of arrays"; return false; }
        for (const auto& r : j["rows"]) {
            if (!r.is_array() || r.size() > body.columns.size()) {
                *error = "each row is an array with at most one value per column";
                return false;
            }
            std::vector<hostemu::PackCell> row;
            for (const auto& v : r) {
                if (v.is_null()) break;
                hostemu::PackCell cell;
                if (!CellFromJson(v, body.columns[row.size()].type, &cell, error)) return false;
                row.push_back(std::move(cell));
            }
            body.rows.push_back(std::move(row));
        }
    }
    *out = std::move(body);
    return true;
}

namespace {

// An optional integer field; false with a reason when present but not one.
bool IntField(const json& req, const char* name, int* out, std::string* error) {
    if (!req.contains(name) || req[name].is_null()) return true;
    if (!req[name].is_number_integer()) {
        *error = std::string("\"") + name + "\" is an integer";
        return false;
    }
    *out = req[name].get<int>();
    return true;
}

bool PackedField(const json& req, const char* name, int version, std::vector<char>* out, std::string* error) {
    if (!req.contains(name) || req[name].is_null()) return true;
    hostemu::PackedBody body;
    if (!JsonToPacked(req[name], version, &body, error)) {
        *error = std::string(name) + ": " + *error;
        return false;
    }
    auto bytes = hostemu::EncodePacked(body);
    out->assign(bytes.begin(), bytes.end());
    return true;
}

}  // namespace

bool JsonToMessage(const json& req, hostemu::MessageSpec* out, std::string* error) {
    int version = 33;
    if (!IntField(req, "function", &out->functionNo, error) || !IntField(req, "packet_type", &out->packetType, error) ||
        !IntField(req, "packet_id", &out->packetId, error) || !IntField(req, "issue_type", &out->issueType, error) ||
        !IntField(req, "error_flag", &out->errorFlag, error) || !IntField(req, "error_no", &out->errorNo, error) ||
        !IntField(req, "version", &version, error))
        return false;
    if (version != 1 && version != 33) {
        *error = "\"version\" is 1 or 33";
        return false;
    }
    if (!PackedField(req, "body", version, &out->body, error) || !PackedField(req, "key", version, &out->key, error))
        return false;
    if (req.contains("error_info") && !req["error_info"].is_null()) {
        if (!req["error_info"].is_string()) {
            *error = "\"error_info\" is a string";
            return false;
        }
        out->errorInfo = Utf8ToGbk(req["error_info"].get<std::string>());
    }
    if (req.contains("route") && !req["route"].is_null()) {
        const json& r = req["route"];
        bool ok = r.is_array() && r.size() <= 4;
        for (const auto& part : r) ok = ok && part.is_string();
        if (!ok) {
            *error = "\"route\" is an array of up to four strings (OSPF name, neighbour, server, plug-in)";
            return false;
        }
        out->route.clear();
        for (const auto& part : r) out->route.push_back(Utf8ToGbk(part.get<std::string>()));
    }
    return true;
}

}  // namespace product
