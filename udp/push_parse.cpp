#include "udp/push_parse.h"

#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "wire/field_reader.h"

namespace tikron_udp {

namespace {

constexpr char kDelim = ',';
constexpr std::size_t kMaxIntChars = 16;     // the int reader's limit
constexpr std::size_t kMaxDoubleChars = 32;  // the double reader's limit

// The field reader converts like atoi/atof and would turn "12a" into 12 or
// wrap an 11-digit value; a push record refuses such a field instead.
bool PlainInt(const char* p, std::size_t n) {
    if (n == 0) return true;  // empty reads 0
    if (n > kMaxIntChars) return true;  // left to the reader (-3)
    char buf[kMaxIntChars + 1];
    std::memcpy(buf, p, n);
    buf[n] = '\0';
    std::size_t i = (buf[0] == '-' || buf[0] == '+') ? 1 : 0;
    if (i == n) return false;
    for (std::size_t k = i; k < n; ++k)
        if (buf[k] < '0' || buf[k] > '9') return false;
    const long long v = std::strtoll(buf, nullptr, 10);  // at most 16 digits: no overflow
    return v >= INT_MIN && v <= INT_MAX;
}

bool PlainDouble(const char* p, std::size_t n) {
    if (n == 0) return true;
    if (n > kMaxDoubleChars) return true;
    char buf[kMaxDoubleChars + 1];
    std::memcpy(buf, p, n);
    buf[n] = '\0';
    if (buf[0] == ' ' || buf[0] == '\t') return false;  // strtod would skip blanks
    char* end = nullptr;
    const double v = std::strtod(buf, &end);
    return end == buf + n && std::isfinite(v);
}

int ReadField(const PushField& f, const char** cur, char* base) {
    const char* comma = std::strchr(*cur, kDelim);
    if (comma == nullptr) return -2;  // field missing
    const std::size_t n = static_cast<std::size_t>(comma - *cur);
    char* dst = base + f.offset;
    switch (f.type) {
        case PF_TEXT:
            return GetNextValue(cur, static_cast<int>(f.size), dst, kDelim);
        case PF_CHAR:
            return GetNextValue(cur, 1, *dst, kDelim);
        case PF_INT: {
            if (!PlainInt(*cur, n)) return -3;
            int v = 0;
            const int rc = GetNextValue(cur, static_cast<int>(sizeof v), v, kDelim);
            if (rc == 0) std::memcpy(dst, &v, sizeof v);
            return rc;
        }
        case PF_DOUBLE: {
            if (!PlainDouble(*cur, n)) return -3;
            double v = 0.0;
            const int rc = GetNextValue(cur, static_cast<int>(sizeof v), v, kDelim);
            if (rc == 0) std::memcpy(dst, &v, sizeof v);
            return rc;
        }
    }
    return -1;
}

bool FieldFits(const PushField& f, std::size_t recSize) {
    if (f.offset > recSize || f.size > recSize - f.offset || f.size == 0) return false;
    switch (f.type) {
        case PF_INT: return f.size == sizeof(int);
        case PF_DOUBLE: return f.size == sizeof(double);
        case PF_CHAR: return f.size == 1;
        case PF_TEXT: return f.size <= INT_MAX;
    }
    return false;
}

}  // namespace

int ReadPushRecord(const PushSpec& desc, const char* text, void* rec, std::size_t recSize, int* failedField) {
    if (failedField != nullptr) *failedField = -1;
    if (text == nullptr || rec == nullptr || recSize != desc.recordSize || desc.fields == nullptr) return -1;
    char* base = static_cast<char*>(rec);
    const char* cur = text;
    for (int i = 0; i < desc.fieldCount; ++i) {
        const PushField& f = desc.fields[i];
        const int rc = FieldFits(f, recSize) ? ReadField(f, &cur, base) : -1;
        if (rc != 0) {
            if (failedField != nullptr) *failedField = i;
            return rc;
        }
    }
    return 0;
}

}  // namespace tikron_udp
