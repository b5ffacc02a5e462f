#include "host/nats_subject.h"

#include <charconv>
#include <cstring>

#include "host/host_pack.h"

namespace natsbus {

namespace {

constexpr const char* kPubPrefix = "tikron.pub.";
constexpr const char* kJsonPrefix = "tikron.json.";

bool Plain(unsigned char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
}

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;  // Token() writes upper case only
}

void AppendToken(std::string& out, const std::string& raw) {
    static const char kHex[] = "0123456789ABCDEF";
    if (raw.empty()) {
        out.push_back('%');
        return;
    }
    for (unsigned char c : raw) {
        if (Plain(c)) {
            out.push_back(static_cast<char>(c));
        } else {
            out.push_back('%');
            out.push_back(kHex[c >> 4]);
            out.push_back(kHex[c & 15]);
        }
    }
}

// "<prefix><node>.<function>.<issue_type>.<key>", built in one string.
std::string NodeSubject(const char* prefix, const std::string& node, int function, int issueType,
                        const std::string& key) {
    std::string out;
    out.reserve(48 + node.size() + 3 * key.size());
    out += prefix;
    AppendToken(out, node);
    for (int number : {function, issueType}) {
        char digits[16];  // an int takes at most 11
        const auto r = std::to_chars(digits, digits + sizeof digits, number);
        out.push_back('.');
        out.append(digits, static_cast<size_t>(r.ptr - digits));
    }
    out.push_back('.');
    AppendToken(out, key);
    return out;
}

}  // namespace

std::string Token(const std::string& raw) {
    std::string out;
    out.reserve(raw.size() + 1);
    AppendToken(out, raw);
    return out;
}

bool UnToken(const std::string& token, std::string* raw) {
    raw->clear();
    if (token == "%") return true;
    for (size_t i = 0; i < token.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(token[i]);
        if (Plain(c)) {
            raw->push_back(static_cast<char>(c));
            continue;
        }
        if (c != '%' || i + 2 >= token.size()) return false;
        const int hi = HexValue(token[i + 1]), lo = HexValue(token[i + 2]);
        const int v = hi * 16 + lo;
        if (hi < 0 || lo < 0 || Plain(static_cast<unsigned char>(v))) return false;
        raw->push_back(static_cast<char>(v));
        i += 2;
    }
    return !token.empty();
}

std::string PublicationSubject(const std::string& node, int function, int issueType, const std::string& key) {
    return NodeSubject(kPubPrefix, node, function, issueType, key);
}

std::string JsonSubject(const std::string& node, int function, int issueType, const std::string& key) {
    return NodeSubject(kJsonPrefix, node, function, issueType, key);
}

std::string SubscriptionSubject(int issueType) {
    return issueType == 0 ? "tikron.pub.>" : "tikron.pub.*.*." + std::to_string(issueType) + ".*";
}

std::string RequestSubject(const std::string& node) { return "tikron.req." + Token(node); }
std::string GroupRequestSubject(const std::string& group) { return "tikron.req.group." + Token(group); }
std::string ControlSubject(const std::string& node) { return "tikron.ctl." + Token(node); }
std::string GroupControlSubject(const std::string& group) { return "tikron.ctl.group." + Token(group); }
std::string IdentitySubject(const std::string& node) { return "tikron.id." + Token(node); }

std::string SubjectNode(const std::string& subject) {
    size_t start = 0;
    for (const char* prefix : {kPubPrefix, kJsonPrefix})
        if (subject.rfind(prefix, 0) == 0) start = strlen(prefix);
    if (start == 0) return "";
    const size_t dot = subject.find('.', start);
    std::string node;
    if (!UnToken(subject.substr(start, dot == std::string::npos ? std::string::npos : dot - start), &node)) return "";
    return node;
}

std::string KeyText(const void* packed, int len) {
    hostemu::PackedBody key;
    if (packed == nullptr || len <= 0 || hostemu::DecodePacked(packed, len, &key) != 0 || key.rows.empty()) return "";
    std::string out;
    for (size_t i = 0; i < key.rows[0].size(); ++i) {
        if (i > 0) out.push_back(',');
        const int scale = i < key.columns.size() ? key.columns[i].scale : 4;
        out += key.rows[0][i].kind == 0 ? std::string() : key.rows[0][i].Text(scale);
    }
    return out;
}

}  // namespace natsbus
