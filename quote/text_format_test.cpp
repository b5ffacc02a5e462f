// The printf-free number formatting and the quote text writers built on it
// must give exactly the bytes printf gives, for every value and every
// output size (truncated texts included).
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "quote/number_format.h"
#include "quote/quote_text.h"
#include "quote/text_builder.h"

namespace {

using tikron::TextWriter;

std::string Printf(double v) {
    char buf[400];
    int n = std::snprintf(buf, sizeof buf, "%f", v);
    return std::string(buf, static_cast<size_t>(n));
}

std::string Fast(double v) {
    char buf[tikron::kFixed6MaxLen];
    return std::string(buf, tikron::FormatFixed6(buf, v));
}

// Values where a shortcut would go wrong: signs of zero, non-finite values,
// the ends of the range, denormals, exact ties at the sixth decimal (k/128,
// k/2^20), values next to a tie, and the edges of the 64-bit integer path.
std::vector<double> OddValues() {
    std::vector<double> v = {0.0, -0.0, 1e300, -1e300, std::numeric_limits<double>::max(),
                             -std::numeric_limits<double>::max(), std::numeric_limits<double>::denorm_min(),
                             -std::numeric_limits<double>::denorm_min(), std::numeric_limits<double>::min(),
                             0.0000005, -0.0000005, 0.0000015, 0.0000025, 1e-7, -1e-7, 9.9999995, 0.9999995,
                             999999.9999995, 9223372036854775807.0, 18446744073709551616.0, 1e13, 1.8446744e13,
                             1.9e13, 4503599627370496.5, std::numeric_limits<double>::infinity(),
                             -std::numeric_limits<double>::infinity(), std::nan(""), -std::nan(""),
                             3850.2, 92973211400.0, -3465.2};
    for (int k = -300; k <= 300; ++k) {
        v.push_back(k / 128.0);
        v.push_back(std::nextafter(k / 128.0, 1e9));
        v.push_back(std::nextafter(k / 128.0, -1e9));
        v.push_back(std::ldexp(2 * k + 1, -21));
    }
    for (int e = -1080; e <= 1030; ++e) {
        v.push_back(std::ldexp(1.0, e));
        v.push_back(-std::ldexp(3.0, e));
    }
    return v;
}

TEST(NumberFormat, FixedMatchesPrintfOnOddValues) {
    for (double d : OddValues()) ASSERT_EQ(Fast(d), Printf(d)) << std::hexfloat << d;
}

TEST(NumberFormat, FixedMatchesPrintfOnRandomBitsAndPrices) {
    std::mt19937_64 gen(20240614);
    std::uniform_real_distribution<double> price(-1e7, 1e7);
    for (int i = 0; i < 200000; ++i) {
        uint64_t bits = gen();
        double d;
        std::memcpy(&d, &bits, sizeof d);
        ASSERT_EQ(Fast(d), Printf(d)) << std::hexfloat << d;
        double p = price(gen);
        ASSERT_EQ(Fast(p), Printf(p)) << std::hexfloat << p;
        // Prices as the feed has them: few decimals, and halfway cases.
        double cents = std::round(p * 100) / 100;
        ASSERT_EQ(Fast(cents), Printf(cents)) << std::hexfloat << cents;
        double half = (std::floor(p * 1e6) + 0.5) / 1e6;
        ASSERT_EQ(Fast(half), Printf(half)) << std::hexfloat << half;
    }
}

TEST(NumberFormat, IntMatchesPrintf) {
    std::vector<int> v = {0, 1, -1, 9, 10, 99, 100, -100, 123456789, INT_MAX, INT_MIN, INT_MIN + 1};
    std::mt19937 gen(7);
    for (int i = 0; i < 100000; ++i) v.push_back(static_cast<int>(gen()));
    for (int x : v) {
        char want[16], got[tikron::kIntMaxLen];
        int n = std::snprintf(want, sizeof want, "%d", x);
        ASSERT_EQ(std::string(got, tikron::FormatInt(got, x)), std::string(want, static_cast<size_t>(n)));
    }
}

// The typed appends against Add with the printf formats, cut at every size.
TEST(NumberFormat, TypedAppendsTruncateLikePrintf) {
    const double big = -1.5e300;
    char field[4] = {'A', 'B', 'C', 'D'};  // no terminator: bounded by its width
    for (size_t size = 1; size < 340; ++size) {
        std::vector<char> a(size + 8, '#'), b(size + 8, '#');
        TextWriter ref(a.data(), size), fast(b.data(), size);
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

// --- the quote writers against their printf formats ------------------------

double PickDouble(std::mt19937_64& gen, const std::vector<double>& odd) {
    switch (gen() % 4) {
        case 0: return odd[gen() % odd.size()];
        case 1: return std::round(std::uniform_real_distribution<double>(-1e5, 1e5)(gen) * 10) / 10;
        case 2: {
            uint64_t bits = gen();
            double d;
            std::memcpy(&d, &bits, sizeof d);
            return d;
        }
        default: return std::uniform_real_distribution<double>(0, 1e9)(gen);
    }
}

int PickInt(std::mt19937_64& gen) {
    switch (gen() % 3) {
        case 0: return static_cast<int>(gen());
        case 1: return INT_MIN + static_cast<int>(gen() % 3);
        default: return static_cast<int>(gen() % 1000);
    }
}

template <size_t N>
void PickText(std::mt19937_64& gen, char (&f)[N]) {
    // Any bytes, often without a terminator inside the field.
    for (size_t i = 0; i < N; ++i) f[i] = static_cast<char>(gen() % 4 == 0 ? 0 : 'A' + gen() % 26);
}

// Convert22To33100 as a chain of printf formats.
std::string Reference33100(const tagHQInfo_EX& r) {
    std::vector<char> body(20000);
    TextWriter w(body.data(), body.size());
    auto f = [](const char (&x)[sizeof r.contract_code]) { return tikron::FieldLen(x); };
    w.Add("%d" TIKRON_SEP "%d" TIKRON_SEP, r.time_stamp, 0);
    w.Add("%.*s" TIKRON_SEP TIKRON_SEP, tikron::FieldLen(r.futu_exch_type), r.futu_exch_type);
    w.Add("%.*s" TIKRON_SEP, f(r.contract_code), r.contract_code);
    const double d1[] = {r.pre_square_price, r.pre_close_price, r.pre_open_interest, r.pre_delta,
                         r.futu_open_price,  r.futu_last_price, r.buy_high_price};
    for (double d : d1) w.Add("%f" TIKRON_SEP, d);
    w.Add("%d" TIKRON_SEP "%f" TIKRON_SEP "%d" TIKRON_SEP, r.buy_high_amount, r.sale_low_price,
          r.sale_low_amount);
    const double d2[] = {r.futu_high_price, r.futu_low_price, r.uplimited_price, r.downlimited_price,
                         r.average_price, r.change_direction};
    for (double d : d2) w.Add("%f" TIKRON_SEP, d);
    w.Add("%d" TIKRON_SEP "%d" TIKRON_SEP "%f" TIKRON_SEP "%f" TIKRON_SEP "%f" TIKRON_SEP "%d" TIKRON_SEP
          "%f" TIKRON_SEP,
          r.business_amount, r.bear_amount, r.business_balance, r.futu_close_price, r.square_price, 0,
          r.curr_delta);
    w.Add("%f" TIKRON_SEP "%d" TIKRON_SEP "%f" TIKRON_SEP "%d" TIKRON_SEP "%f" TIKRON_SEP "%d" TIKRON_SEP
          "%f" TIKRON_SEP "%d" TIKRON_SEP,
          r.bid_price2, r.bid_volume2, r.bid_price3, r.bid_volume3, r.bid_price4, r.bid_volume4, r.bid_price5,
          r.bid_volume5);
    w.Add("%f" TIKRON_SEP "%d" TIKRON_SEP "%f" TIKRON_SEP "%d" TIKRON_SEP "%f" TIKRON_SEP "%d" TIKRON_SEP
          "%f" TIKRON_SEP "%d",
          r.ask_price2, r.ask_volume2, r.ask_price3, r.ask_volume3, r.ask_price4, r.ask_volume4, r.ask_price5,
          r.ask_volume5);
    char head[32];
    std::snprintf(head, sizeof head, "0" TIKRON_SEP "%d" TIKRON_SEP, static_cast<int>(w.Length()));
    return head + std::string(body.data(), w.Length());
}

tagHQInfo_EX RandomQuote(std::mt19937_64& gen, const std::vector<double>& odd) {
    tagHQInfo_EX r;
    std::memset(&r, 0, sizeof r);
    PickText(gen, r.contract_code);
    PickText(gen, r.futu_exch_type);
    r.time_stamp = PickInt(gen);
    r.pre_square_price = PickDouble(gen, odd);
    r.pre_close_price = PickDouble(gen, odd);
    r.pre_open_interest = PickDouble(gen, odd);
    r.pre_delta = PickDouble(gen, odd);
    r.futu_open_price = PickDouble(gen, odd);
    r.futu_last_price = PickDouble(gen, odd);
    r.buy_high_price = PickDouble(gen, odd);
    r.buy_high_amount = PickInt(gen);
    r.sale_low_price = PickDouble(gen, odd);
    r.sale_low_amount = PickInt(gen);
    r.futu_high_price = PickDouble(gen, odd);
    r.futu_low_price = PickDouble(gen, odd);
    r.uplimited_price = PickDouble(gen, odd);
    r.downlimited_price = PickDouble(gen, odd);
    r.average_price = PickDouble(gen, odd);
    r.change_direction = PickDouble(gen, odd);
    r.business_amount = PickInt(gen);
    r.bear_amount = PickInt(gen);
    r.business_balance = PickDouble(gen, odd);
    r.futu_close_price = PickDouble(gen, odd);
    r.square_price = PickDouble(gen, odd);
    r.curr_delta = PickDouble(gen, odd);
    r.bid_price2 = PickDouble(gen, odd);
    r.bid_volume2 = PickInt(gen);
    r.bid_price3 = PickDouble(gen, odd);
    r.bid_volume3 = PickInt(gen);
    r.bid_price4 = PickDouble(gen, odd);
    r.bid_volume4 = PickInt(gen);
    r.bid_price5 = PickDouble(gen, odd);
    r.bid_volume5 = PickInt(gen);
    r.ask_price2 = PickDouble(gen, odd);
    r.ask_volume2 = PickInt(gen);
    r.ask_price3 = PickDouble(gen, odd);
    r.ask_volume3 = PickInt(gen);
    r.ask_price4 = PickDouble(gen, odd);
    r.ask_volume4 = PickInt(gen);
    r.ask_price5 = PickDouble(gen, odd);
    r.ask_volume5 = PickInt(gen);
    return r;
}

TEST(QuoteTextFormat, Text33100MatchesPrintfOnGeneratedRecords) {
    std::mt19937_64 gen(33100);
    const std::vector<double> odd = OddValues();
    std::vector<char> buf(16384);
    for (int i = 0; i < 3000; ++i) {
        tagHQInfo_EX r = RandomQuote(gen, odd);
        const char* text = Convert22To33100(&r, buf.data(), static_cast<int>(buf.size()));
        ASSERT_EQ(std::string(text), Reference33100(r)) << "record " << i;
    }
}

TEST(QuoteTextFormat, Text33100CutAtEverySizeStaysConsistent) {
    std::mt19937_64 gen(5);
    const std::vector<double> odd = OddValues();
    tagHQInfo_EX r = RandomQuote(gen, odd);
    const std::string full = Reference33100(r);
    for (int size = 17; size < static_cast<int>(full.size()) + 40; ++size) {
        std::vector<char> buf(static_cast<size_t>(size) + 16, '#');
        const char* text = Convert22To33100(&r, buf.data(), size);
        ASSERT_EQ(buf[static_cast<size_t>(size)], '#') << "written past the size " << size;
        // The body is the full body's prefix and the header carries its length.
        std::string t(text);
        size_t sep = t.find('\x01', 2);
        ASSERT_NE(sep, std::string::npos);
        const std::string body = t.substr(sep + 1);
        ASSERT_EQ(std::to_string(body.size()), t.substr(2, sep - 2));
        const size_t fullSep = full.find('\x01', 2);
        ASSERT_EQ(full.compare(fullSep + 1, body.size(), body), 0) << size;
    }
}

TEST(QuoteTextFormat, Text33102And33105MatchPrintf) {
    std::mt19937_64 gen(33102);
    const std::vector<double> odd = OddValues();
    for (int i = 0; i < 3000; ++i) {
        tagArgHQInfo a;
        std::memset(&a, 0, sizeof a);
        PickText(gen, a.contract_code);
        PickText(gen, a.futu_exch_type);
        PickText(gen, a.first_code);
        PickText(gen, a.second_code);
        a.arbi_type = static_cast<char>(gen() % 3 == 0 ? 0 : '0' + gen() % 10);  // "%c" of 0 writes a 0 byte
        a.buy_price = PickDouble(gen, odd);
        a.buy_amount = PickInt(gen);
        a.buy_total_amount = PickInt(gen);
        a.sale_price = PickDouble(gen, odd);
        a.sale_amount = PickInt(gen);
        a.sale_total_amount = PickInt(gen);
        a.futu_high_price = PickDouble(gen, odd);
        a.futu_low_price = PickDouble(gen, odd);
        a.uplimited_price = PickDouble(gen, odd);
        a.downlimited_price = PickDouble(gen, odd);
        const int size = i % 4 == 0 ? static_cast<int>(1 + gen() % 200) : 4096;
        std::vector<char> want(4200, '#'), got(4200, '#');
        TextWriter w(want.data(), static_cast<size_t>(size));
        w.Add("%.*s" TIKRON_SEP "%.*s" TIKRON_SEP "%.*s" TIKRON_SEP "%.*s" TIKRON_SEP "%c" TIKRON_SEP
              "%f" TIKRON_SEP "%d" TIKRON_SEP "%d" TIKRON_SEP "%f" TIKRON_SEP "%d" TIKRON_SEP
              "%d" TIKRON_SEP "%f" TIKRON_SEP "%f" TIKRON_SEP "%f" TIKRON_SEP "%f",
              tikron::FieldLen(a.contract_code), a.contract_code, tikron::FieldLen(a.futu_exch_type),
              a.futu_exch_type, tikron::FieldLen(a.first_code), a.first_code, tikron::FieldLen(a.second_code),
              a.second_code, a.arbi_type, a.buy_price, a.buy_amount, a.buy_total_amount, a.sale_price,
              a.sale_amount, a.sale_total_amount, a.futu_high_price, a.futu_low_price, a.uplimited_price,
              a.downlimited_price);
        const int rc = Convert18To33102(&a, got.data(), size);
        ASSERT_EQ(rc, w.Truncated() ? QUOTE_TEXT_TRUNCATED : 0) << i;
        ASSERT_EQ(0, std::memcmp(want.data(), got.data(), want.size())) << "record " << i << " size " << size;

        tagEXCHSTATUS s;
        std::memset(&s, 0, sizeof s);
        PickText(gen, s.futu_exch_type);
        PickText(gen, s.futu_status);
        s.can_trade = PickInt(gen);
        const int ssize = i % 4 == 0 ? static_cast<int>(1 + gen() % 20) : 56;
        std::vector<char> swant(64, '#'), sgot(64, '#');
        TextWriter sw(swant.data(), static_cast<size_t>(ssize));
        sw.Add("%.*s" TIKRON_SEP "%.*s" TIKRON_SEP "%d", tikron::FieldLen(s.futu_exch_type), s.futu_exch_type,
               tikron::FieldLen(s.futu_status), s.futu_status, s.can_trade);
        ASSERT_EQ(Convert24To33105(&s, sgot.data(), ssize), sw.Truncated() ? QUOTE_TEXT_TRUNCATED : 0);
        ASSERT_EQ(0, std::memcmp(swant.data(), sgot.data(), swant.size())) << "status " << i;
    }
}

}  // namespace
