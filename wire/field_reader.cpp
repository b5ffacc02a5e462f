#include "wire/field_reader.h"

#include "wire/field_reader_fast.h"

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <langinfo.h>

namespace {

constexpr int kMaxIntField = 16;     // longer int fields are refused
constexpr int kMaxDoubleField = 32;  // longer double fields are refused

// Next delimiter at or after p in the NUL-terminated text, or null. A NUL
// delimiter never matches, so no reader can step past the terminator.
inline const char* FindDelim(const char* p, char delim) {
    if (delim == '\0') return nullptr;
    return std::strchr(p, delim);
}

inline bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Powers of ten that are exact in binary64.
constexpr double kPow10[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                             1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// atoi is (int)strtol(s, NULL, 10); strtol clamps to long and the narrowing
// keeps the low 32 bits. Done on unsigned values so it is defined everywhere.
inline int NarrowLikeAtoi(long v) {
    uint32_t low = static_cast<uint32_t>(static_cast<unsigned long>(v));
    int32_t out;
    std::memcpy(&out, &low, sizeof out);
    return out;
}

int ConvertInt(const char* p, int n) {
    // Fast path: optional sign and 1..16 digits; fits a long without clamping.
    int i = 0;
    bool neg = false;
    if (n > 0 && (p[0] == '-' || p[0] == '+')) {
        neg = p[0] == '-';
        i = 1;
    }
    if (i < n) {
        long v = 0;
        int j = i;
        while (j < n && IsDigit(p[j])) v = v * 10 + (p[j++] - '0');
        if (j == n) return NarrowLikeAtoi(neg ? -v : v);
    } else if (n == 0) {
        return 0;
    }
    // Anything else (blanks, trailing text, lone sign): the library routine
    // on a bounded, terminated copy.
    char buf[kMaxIntField + 1] = {0};
    std::memcpy(buf, p, static_cast<size_t>(n));
    return NarrowLikeAtoi(std::strtol(buf, nullptr, 10));
}

double ConvertDouble(const char* p, int n) {
    if (n == 0) return 0.0;
    // Fast path: [-]digits[.digits*] converts identically (both correctly
    // rounded) with from_chars, provided the locale's radix is '.'.
    int i = (p[0] == '-') ? 1 : 0;
    int digits = 0;
    while (i < n && IsDigit(p[i])) { ++i; ++digits; }
    bool plain = digits > 0;
    bool dot = false;
    if (plain && i < n && p[i] == '.') {
        dot = true;
        ++i;
        while (i < n && IsDigit(p[i])) ++i;
    }
    if (plain && i == n) {
        const char* radix = dot ? nl_langinfo(RADIXCHAR) : ".";
        if (radix != nullptr && radix[0] == '.' && radix[1] == '\0') {
            // Few digits: mantissa below 2^53 and an exact power of ten make
            // one IEEE division correctly rounded, i.e. equal to strtod.
            int k = (p[0] == '-') ? 1 : 0;
            uint64_t m = 0;
            int fracDigits = 0;
            int sig = 0;
            bool inFrac = false;
            for (; k < n; ++k) {
                if (p[k] == '.') {
                    inFrac = true;
                    continue;
                }
                m = m * 10 + static_cast<uint64_t>(p[k] - '0');
                if (m != 0) ++sig;
                if (inFrac) ++fracDigits;
                if (sig > 15) break;
            }
            if (k == n && fracDigits <= 22) {
                double v = static_cast<double>(m) / kPow10[fracDigits];
                return p[0] == '-' ? -v : v;
            }
            double d = 0.0;
            auto res = std::from_chars(p, p + n, d);
            if (res.ec == std::errc() && res.ptr == p + n) return d;
        }
    }
    char buf[kMaxDoubleField + 1] = {0};
    std::memcpy(buf, p, static_cast<size_t>(n));
    return std::strtod(buf, nullptr);
}

}  // namespace

int GetNextValue(const char** ppCur, int len, char& cOut, char delim) {
    if (ppCur == nullptr || *ppCur == nullptr || len != 1) return -1;
    const char* p = *ppCur;
    const char* d = FindDelim(p, delim);
    if (d == nullptr) return -2;
    if (d == p) return -3;
    cOut = p[0];
    *ppCur = d + 1;
    return 0;
}

int GetNextValue(const char** ppCur, int len, int& iOut, char delim) {
    if (ppCur == nullptr || *ppCur == nullptr || len <= 0) return -1;
    const char* p = *ppCur;
    if (tikron_fields::TryFastInt(ppCur, iOut, delim)) return 0;
    const char* d = FindDelim(p, delim);
    if (d == nullptr) return -2;
    long n = d - p;
    if (n > kMaxIntField) return -3;
    iOut = ConvertInt(p, static_cast<int>(n));
    *ppCur = d + 1;
    return 0;
}

int GetNextValue(const char** ppCur, int len, char* pszOut, char delim) {
    if (ppCur == nullptr || *ppCur == nullptr || len < 1 || pszOut == nullptr) return -1;
    const char* p = *ppCur;
    const char* d = FindDelim(p, delim);
    size_t n;
    if (d != nullptr) {
        n = static_cast<size_t>(d - p);
    } else {
        // Bounded measure: a field longer than the capacity is refused anyway.
        n = strnlen(p, static_cast<size_t>(len));
    }
    if (n > static_cast<size_t>(len - 1)) return -2;
    std::memcpy(pszOut, p, n);
    pszOut[n] = '\0';
    if (d != nullptr) *ppCur = d + 1;
    return 0;
}

bool RadixIsDot() {
    const char* radix = nl_langinfo(RADIXCHAR);
    return radix != nullptr && radix[0] == '.' && radix[1] == '\0';
}

namespace {

int ReadDoubleField(const char** ppCur, double& dOut, char delim) {
    const char* p = *ppCur;
    const char* d = FindDelim(p, delim);
    if (d == nullptr) return -2;
    long n = d - p;
    if (n > kMaxDoubleField) return -3;
    dOut = ConvertDouble(p, static_cast<int>(n));
    *ppCur = d + 1;
    return 0;
}

}  // namespace

int GetNextValue(const char** ppCur, int len, double& dOut, char delim, bool radixIsDot) {
    if (ppCur == nullptr || *ppCur == nullptr || len <= 0) return -1;
    if (tikron_fields::TryFastDouble(ppCur, dOut, delim, radixIsDot)) return 0;
    return ReadDoubleField(ppCur, dOut, delim);
}

int GetNextValue(const char** ppCur, int len, double& dOut, char delim) {
    if (ppCur == nullptr || *ppCur == nullptr || len <= 0) return -1;
    // Fields without a '.' need no radix; the locale is asked only for the
    // others (record parsers ask once per record instead, see above).
    if (tikron_fields::TryFastDouble(ppCur, dOut, delim, false)) return 0;
    if (tikron_fields::TryFastDouble(ppCur, dOut, delim, RadixIsDot())) return 0;
    return ReadDoubleField(ppCur, dOut, delim);
}

char StatusSwtich(char c) {
    switch (c) {
        case '1': return '3';
        case '2': return '3';
        case '3': return '5';
        case '4': return '6';
        case '5': return '0';
        case '6': return '1';
        case '7': return 'C';
        case 'A': return '2';
        case 'B': return '7';
        case 'C': return '8';
        case 'E': return 'D';
        case 'F': return '9';
        case 'G': return 'G';
        default: return static_cast<char>(0xFF);
    }
}

namespace {
bool LocalNow(struct tm& out) {
    time_t now = time(nullptr);
    return localtime_r(&now, &out) != nullptr;
}
}  // namespace

int GetTime() {
    struct tm t {};
    if (!LocalNow(t)) return 0;
    return t.tm_hour * 10000 + t.tm_min * 100 + t.tm_sec;
}

int GetDate() {
    struct tm t {};
    if (!LocalNow(t)) return 0;
    return (t.tm_year + 1900) * 10000 + (t.tm_mon + 1) * 100 + t.tm_mday;
}
