#include "quote/number_format.h"

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace tikron {

namespace {

constexpr uint64_t kScale = 1000000;  // six decimals

const char kPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

constexpr uint64_t kPow10u[20] = {1ULL,
                                  10ULL,
                                  100ULL,
                                  1000ULL,
                                  10000ULL,
                                  100000ULL,
                                  1000000ULL,
                                  10000000ULL,
                                  100000000ULL,
                                  1000000000ULL,
                                  10000000000ULL,
                                  100000000000ULL,
                                  1000000000000ULL,
                                  10000000000000ULL,
                                  100000000000000ULL,
                                  1000000000000000ULL,
                                  10000000000000000ULL,
                                  100000000000000000ULL,
                                  1000000000000000000ULL,
                                  10000000000000000000ULL};

// Decimal digits of a 32-bit v (no leading zeros, "0" for 0): the count by
// comparisons (quote numbers are short), then pairs from the back.
inline char* PutU32(char* out, uint32_t v) {
    const int n = v < 10 ? 1
                  : v < 100 ? 2
                  : v < 1000 ? 3
                  : v < 10000 ? 4
                  : v < 100000 ? 5
                  : v < 1000000 ? 6
                  : v < 10000000 ? 7
                  : v < 100000000 ? 8
                  : v < 1000000000 ? 9
                  : 10;
    char* p = out + n;
    while (v >= 100) {
        const uint32_t r = v % 100;
        v /= 100;
        p -= 2;
        std::memcpy(p, kPairs + 2 * r, 2);
    }
    if (v >= 10) {
        std::memcpy(p - 2, kPairs + 2 * v, 2);
    } else {
        p[-1] = static_cast<char>('0' + v);
    }
    return out + n;
}

// Decimal digits of v (no leading zeros, "0" for 0), written in place from
// the back once their count is known: exactly that many bytes are touched.
char* PutUnsigned(char* out, uint64_t v) {
    if (v <= UINT32_MAX) return PutU32(out, static_cast<uint32_t>(v));
    int n = 10;
    while (n < 20 && v >= kPow10u[n]) ++n;
    char* p = out + n;
    while (v >= 100) {
        const unsigned r = static_cast<unsigned>(v % 100);
        v /= 100;
        p -= 2;
        p[0] = kPairs[2 * r];
        p[1] = kPairs[2 * r + 1];
    }
    if (v >= 10) {
        p[-2] = kPairs[2 * v];
        p[-1] = kPairs[2 * v + 1];
    } else {
        p[-1] = static_cast<char>('0' + v);
    }
    return out + n;
}

// "<int>.<six digits>" of q millionths.
inline char* PutMillionths(char* out, uint64_t q) {
    const uint64_t whole = q / kScale;
    out = whole <= UINT32_MAX ? PutU32(out, static_cast<uint32_t>(whole)) : PutUnsigned(out, whole);
    uint32_t frac = static_cast<uint32_t>(q % kScale);
    *out = '.';
    std::memcpy(out + 5, kPairs + 2 * (frac % 100), 2);
    frac /= 100;
    std::memcpy(out + 3, kPairs + 2 * (frac % 100), 2);
    frac /= 100;
    std::memcpy(out + 1, kPairs + 2 * frac, 2);
    return out + 7;
}

// Finite values whose scaled value is too large (or tiny with a long binary
// fraction) for the exact integer path below: the library's exact printer.
char* SlowFixed6(char* out, double value) {
    const auto r = std::to_chars(out, out + kFixed6MaxLen, value, std::chars_format::fixed, 6);
    if (r.ec == std::errc()) return r.ptr;
    // Cannot happen for a finite double within kFixed6MaxLen; stay printf's.
    char tmp[kFixed6MaxLen + 8];
    const int n = std::snprintf(tmp, sizeof tmp, "%f", value);
    const std::size_t len = n < 0 ? 0 : (static_cast<std::size_t>(n) < kFixed6MaxLen ? static_cast<std::size_t>(n) : kFixed6MaxLen);
    std::memcpy(out, tmp, len);
    return out + len;
}

}  // namespace

char* FormatFixed6(char* out, double value) {
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    const bool negative = (bits >> 63) != 0;
    const int biased = static_cast<int>((bits >> 52) & 0x7ff);
    uint64_t mant = bits & ((uint64_t{1} << 52) - 1);
    if ((bits << 1) == 0) {
        // +-0, the most common quote value (fields the feed leaves empty).
        char* p = out;
        if (negative) *p++ = '-';
        std::memcpy(p, "0.000000", 8);
        return p + 8;
    }
    {
        // Quotes are small decimals: below 2^43 millionths the product
        // t = |value| * 10^6 is within 2^-10 of the exact one, so when t is
        // within 1/4 of an integer that integer is the correctly rounded
        // value (no tie is possible) and printf prints exactly it. Zeros and
        // denormals land here too (t <= 0.25: "0.000000" with the sign);
        // inf and nan fail the comparison.
        const uint64_t absBits = bits & ~(uint64_t{1} << 63);
        double a;
        std::memcpy(&a, &absBits, sizeof a);
        const double t = a * 1e6;
        if (t < 0x1p43) {
            const uint64_t whole = static_cast<uint64_t>(t);  // t >= 0: truncation
            const double frac = t - static_cast<double>(whole);  // exact
            char* q = out;
            if (negative) *q++ = '-';
            if (frac <= 0.25) return PutMillionths(q, whole);
            if (frac >= 0.75) return PutMillionths(q, whole + 1);
        }
    }
    if (biased == 0x7ff) {
        // inf/nan: exactly what the C library prints ("inf", "-nan", ...).
        char tmp[16];
        const int n = std::snprintf(tmp, sizeof tmp, "%f", value);
        const std::size_t len = n < 0 ? 0 : (static_cast<std::size_t>(n) < sizeof tmp ? static_cast<std::size_t>(n) : sizeof tmp - 1);
        std::memcpy(out, tmp, len);
        return out + len;
    }
    char* p = out;
    if (negative) *p++ = '-';
    if (biased == 0 && mant == 0) {
        std::memcpy(p, "0.000000", 8);
        return p + 8;
    }
    if (biased == 0) return SlowFixed6(out, value);  // denormal: far below 0.0000005
    mant |= uint64_t{1} << 52;
    const int exp2 = biased - 1075;  // |value| = mant * 2^exp2
    if (exp2 >= 0) {
        // An integer; exact in 64 bits while mant << exp2 < 2^63.
        if (exp2 > 10) return SlowFixed6(out, value);
        p = PutUnsigned(p, mant << exp2);
        std::memcpy(p, ".000000", 7);
        return p + 7;
    }
    const int shift = -exp2;
    if (shift > 120) {
        // Below 2^-67: rounds to zero at six decimals.
        std::memcpy(p, "0.000000", 8);
        return p + 8;
    }
    // |value| * 10^6 exactly as a 128-bit fraction mant * 10^6 / 2^shift
    // (mant * 10^6 < 2^73), rounded to nearest with ties to even as printf
    // does in the default rounding mode.
    const unsigned __int128 scaled = static_cast<unsigned __int128>(mant) * kScale;
    unsigned __int128 q = scaled >> shift;
    const unsigned __int128 rem = scaled - (q << shift);
    const unsigned __int128 half = static_cast<unsigned __int128>(1) << (shift - 1);
    if (rem > half || (rem == half && (q & 1) != 0)) ++q;
    if ((q >> 64) != 0) return SlowFixed6(out, value);
    return PutMillionths(p, static_cast<uint64_t>(q));
}

char* FormatInt(char* out, int value) {
    if (value < 0) {
        *out++ = '-';
        // Negate in unsigned arithmetic: INT_MIN has no positive int.
        return PutU32(out, 0u - static_cast<uint32_t>(value));
    }
    return PutU32(out, static_cast<uint32_t>(value));
}

}  // namespace tikron
