// The printf-free number formatting and the typed appends of the text writer
// built on it: exactly the bytes printf gives, for every value and every
// output size.
#include "quote/number_format.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "quote/text_builder.h"

namespace {

std::string Printf(double v) {
    char buf[400];
    return std::string(buf, static_cast<size_t>(std::snprintf(buf, sizeof buf, "%f", v)));
}

std::string Fast(double v) {
    char buf[tikron::kFixed6MaxLen + 1];
    return std::string(buf, tikron::FormatFixed6(buf, v));
}

// Values where a shortcut would go wrong: signs of zero, non-finite values,
// the ends of the range, denormals, exact ties at the sixth decimal (k/128,
// odd multiples of 2^-21), their neighbours, the edges of the 64-bit path.
TEST(NumberFormat, FixedMatchesPrintfOnOddValues) {
    using L = std::numeric_limits<double>;
    std::vector<double> v = {0.0, -0.0, 1e300, -1e300, L::max(), -L::max(), L::denorm_min(), -L::denorm_min(),
                             L::min(), 0.0000005, -0.0000005, 0.0000015, 0.0000025, 1e-7, -1e-7, 9.9999995,
                             0.9999995, 999999.9999995, 9223372036854775807.0, 18446744073709551616.0, 1e13,
                             1.8446744e13, 1.9e13, 4503599627370496.5, L::infinity(), -L::infinity(), std::nan(""),
                             -std::nan(""), 3850.2, 92973211400.0, -3465.2};
    for (int k = -300; k <= 300; ++k) {
        for (double d : {k / 128.0, std::ldexp(2 * k + 1, -21)}) {
            v.insert(v.end(), {d, std::nextafter(d, 1e9), std::nextafter(d, -1e9)});
        }
    }
    for (int e = -1080; e <= 1030; ++e) v.insert(v.end(), {std::ldexp(1.0, e), -std::ldexp(3.0, e)});
    for (double d : v) ASSERT_EQ(Fast(d), Printf(d)) << std::hexfloat << d;
}

TEST(NumberFormat, FixedMatchesPrintfOnRandomBitsAndPrices) {
    std::mt19937_64 gen(20240614);
    std::uniform_real_distribution<double> price(-1e7, 1e7);
    for (int i = 0; i < 200000; ++i) {
        const uint64_t bits = gen();
        double d;
        std::memcpy(&d, &bits, sizeof d);
        const double p = price(gen);
        // Prices as the feed has them: few decimals, and halfway cases.
        for (double x : {d, p, std::round(p * 100) / 100, (std::floor(p * 1e6) + 0.5) / 1e6})
            ASSERT_EQ(Fast(x), Printf(x)) << std::hexfloat << x;
    }
}

TEST(NumberFormat, IntMatchesPrintf) {
    std::vector<int> v = {0, 1, -1, 9, 10, 99, 100, -100, 123456789, 999999999, 1000000000, INT_MAX, INT_MIN,
                          INT_MIN + 1};
    for (long long p = 1; p <= 1000000000; p *= 10)
        v.insert(v.end(), {static_cast<int>(p - 1), static_cast<int>(p), static_cast<int>(-p), static_cast<int>(1 - p)});
    std::mt19937 gen(7);
    for (int i = 0; i < 100000; ++i) v.push_back(static_cast<int>(gen()));
    for (int x : v) {
        char want[16], got[tikron::kIntMaxLen];
        const int n = std::snprintf(want, sizeof want, "%d", x);
        ASSERT_EQ(std::string(got, tikron::FormatInt(got, x)), std::string(want, static_cast<size_t>(n)));
    }
}

// The typed appends against Add with the printf formats, cut at every size.
TEST(NumberFormat, TypedAppendsTruncateLikePrintf) {
    const double big = -1.5e300;
    char field[4] = {'A', 'B', 'C', 'D'};  // no terminator: bounded by its width
    for (size_t size = 1; size < 340; ++size) {
        std::vector<char> a(size + 8, '#'), b(size + 8, '#');
        tikron::TextWriter ref(a.data(), size), fast(b.data(), size);
        ref.Add("%d" TIKRON_SEP "%.*s%c%f" TIKRON_SEP "%f", -42, 4, field, 0, 2.5, big);
        fast.Int(-42);
        fast.Sep();
        fast.Field(field);
        fast.Chr(0);
        fast.Dbl(2.5);
        fast.Sep();
        fast.Dbl(big);
        ASSERT_EQ(fast.Length(), ref.Length()) << size;
        ASSERT_EQ(fast.Truncated(), ref.Truncated()) << size;
        ASSERT_EQ(0, std::memcmp(a.data(), b.data(), a.size())) << size;
    }
}

}  // namespace
