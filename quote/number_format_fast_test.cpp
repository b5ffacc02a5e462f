// The short-decimal path of FormatFixed6 against printf("%f"), around the
// rounding boundaries where it must hand over to the exact path.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <string>

#include "quote/number_format.h"

namespace {

std::string Printf(double v) {
    char buf[512];
    std::snprintf(buf, sizeof buf, "%f", v);
    return buf;
}

std::string Fast(double v) {
    char buf[tikron::kFixed6MaxLen + 1];
    return std::string(buf, tikron::FormatFixed6(buf, v));
}

TEST(NumberFormatShortDecimals, MatchPrintfNearEveryRoundingBoundary) {
    std::mt19937_64 rng(11);
    std::uniform_int_distribution<long> whole(0, 9999999), micro(0, 999999);
    for (int i = 0; i < 100000; ++i) {
        const double base = static_cast<double>(whole(rng)) + static_cast<double>(micro(rng)) / 1e6;
        // Halfway between two printed values, and its neighbours.
        const double half = base + 0.5e-6;
        for (double v : {base, half, std::nextafter(half, 0.0), std::nextafter(half, 1e300),
                         base + 0.25e-6, base + 0.75e-6, -base, -half}) {
            ASSERT_EQ(Fast(v), Printf(v)) << std::hexfloat << v;
        }
    }
}

TEST(NumberFormatShortDecimals, MatchPrintfAtTheEdgeOfTheShortRange) {
    const double edge = std::ldexp(1.0, 43) / 1e6;  // 2^43 millionths
    double v = edge;
    for (int i = 0; i < 2000; ++i) v = std::nextafter(v, 0.0);
    for (int i = 0; i < 4000; ++i, v = std::nextafter(v, 1e300)) {
        ASSERT_EQ(Fast(v), Printf(v)) << std::hexfloat << v;
        ASSERT_EQ(Fast(-v), Printf(-v)) << std::hexfloat << v;
    }
    for (double tiny : {1e-7, 4e-7, 5e-7, 6e-7, 2.5e-7, 7.5e-7, 1e-300}) {
        ASSERT_EQ(Fast(tiny), Printf(tiny));
        ASSERT_EQ(Fast(-tiny), Printf(-tiny));
    }
}

}  // namespace
