// Inline fast paths of the numeric field readers for the common feed forms,
// so record parsers avoid a call per field. Each returns false, changing
// nothing, when the field is not of its form; the caller then uses the full
// reader (GetNextValue), which gives the same results for every input.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace tikron_fields {

// Powers of ten that are exact in binary64.
inline constexpr double kExactPow10[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                         1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                         1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// atoi keeps the low 32 bits of strtol's long; done on unsigned values so
// the narrowing is defined everywhere.
inline int NarrowToInt(long v) {
    uint32_t low = static_cast<uint32_t>(static_cast<unsigned long>(v));
    int32_t out;
    std::memcpy(&out, &low, sizeof out);
    return out;
}

// [-]digits ended by delim, a field of at most 16 characters (the int
// reader's limit; the value fits a long, as atoi reads it).
inline bool TryFastInt(const char** ppCur, int& out, char delim) {
    const char* p = *ppCur;
    const char* q = p + (*p == '-');
    const char* digits = q;
    long v = 0;
    unsigned c;
    // Stops at the first non-digit; the terminator ends every text.
    while ((c = static_cast<unsigned>(static_cast<unsigned char>(*q)) - '0') < 10) {
        v = v * 10 + static_cast<long>(c);
        ++q;
        if (q - p > 16) return false;
    }
    if (q == digits || *q != delim || delim == '\0') return false;
    out = NarrowToInt(*p == '-' ? -v : v);
    *ppCur = q + 1;
    return true;
}

// [-]digits[.digits] ended by delim with at most 19 digits in all, a
// mantissa of at most 2^53 and at most 22 fraction digits: mantissa and
// power of ten are exact doubles, so one IEEE division is correctly rounded,
// i.e. equal to strtod/atof. radixIsDot: the locale's radix is '.'; when it
// is not, a field with a '.' is left to the full reader.
inline bool TryFastDouble(const char** ppCur, double& out, char delim, bool radixIsDot) {
    const char* p = *ppCur;
    const char* q = p + (*p == '-');
    const char* start = q;
    uint64_t m = 0;
    unsigned c;
    // The digit run ends at the latest at the terminator. Unsigned
    // arithmetic wraps harmlessly on a long run, which is refused below
    // (more than 19 digits) before m is used.
    while ((c = static_cast<unsigned>(static_cast<unsigned char>(*q)) - '0') < 10) {
        m = m * 10 + c;
        ++q;
    }
    long digits = q - start;
    if (digits == 0) return false;
    long frac = 0;
    if (*q == '.') {
        if (!radixIsDot) return false;
        const char* fracStart = ++q;
        while ((c = static_cast<unsigned>(static_cast<unsigned char>(*q)) - '0') < 10) {
            m = m * 10 + c;
            ++q;
        }
        frac = q - fracStart;
        digits += frac;
    }
    if (*q != delim || delim == '\0' || digits > 19 || frac > 22 || m > (uint64_t{1} << 53)) return false;
    double v = static_cast<double>(m) / kExactPow10[frac];
    out = *p == '-' ? -v : v;
    *ppCur = q + 1;
    return true;
}

// atoi of the terminated 5-character length field of a datagram header: the
// common five-digit form directly, anything else through atoi itself.
inline int LengthFieldValue(const char (&field)[6]) {
    int v = 0;
    for (int k = 0; k < 5; ++k) {
        const unsigned c = static_cast<unsigned>(static_cast<unsigned char>(field[k])) - '0';
        if (c >= 10) return std::atoi(field);
        v = v * 10 + static_cast<int>(c);
    }
    return v;
}

}  // namespace tikron_fields
