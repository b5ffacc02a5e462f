// The text field readers: numbers exactly as atoi/atof read them (every entry
// point, fast forms and their boundaries), length limits, cursor rules.
#include "wire/field_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "wire/field_reader_fast.h"

namespace {

// Reads field + "," with the given reader; a successful read must consume
// the field and its delimiter.
template <typename V, typename... Radix>
int Read(const std::string& field, V& out, Radix... radixIsDot) {
    const std::string text = field + ",";
    const char* cur = text.c_str();
    const int r = GetNextValue(&cur, 1, out, ',', radixIsDot...);
    if (r == 0) {
        EXPECT_EQ(cur, text.c_str() + text.size()) << field;
    }
    return r;
}

std::vector<std::string> OddForms() {
    return {"", "0", "-0", "+0", "007", " 42", "\t-17", "42abc", "-", "+", "--1", "+-1", "12 34", "2147483647",
            "2147483648", "-2147483648", "-2147483649", "4294967296", "9999999999999999", "-999999999999999",
            "0x1A", "1e3", "abc", "  ", "3.5", "-3.5", ".5", "5.", "-5.", "-.5", "-.", ".", "1.-", "1e308", "1e309",
            "-1e309", "1e-320", "4.9e-324", "2.5e-324", "0x1.8p1", "0X1P-3", "inf", "-INF", "infinity", "nan",
            "-nan", "NAN(123)", "1.7976931348623157e308", "0.1", "0.7", "0.30000000000000004",
            "123456789012345678901234567890", "9007199254740992", "9007199254740993", "900719925474099.3",
            "9999999999999999999", "99999999999999999999", "1234567890.123456789", "0.0000000000000000000001",
            "0.00000000000000000000001", "1.0000000000000000000000", "-0.0", "+1.5", " 1.5", "1.5 ", "1..5",
            "1.2.3", "00000000000000000000000000000001", "-00.000", "3850.2", "3858.37", "92973211400.0"};
}

std::string RandomField(std::mt19937& rng, size_t maxLen) {
    static const char kAlphabet[] = "0123456789012345678901234567890123456789+-.. eExXpPabcfinINFNAty\t";
    const size_t n = rng() % (maxLen + 1);
    std::string s;
    if (rng() % 4 == 0) {
        for (size_t i = 0; i < n; ++i) s += kAlphabet[rng() % (sizeof kAlphabet - 1)];
    } else {  // plain decimal, the common feed form
        if (rng() & 1) s += '-';
        for (size_t i = 0; i <= n / 2; ++i) s += static_cast<char>('0' + rng() % 10);
        if (rng() & 1) s += '.';
        while (s.size() < n) s += static_cast<char>('0' + rng() % 10);
    }
    s.resize(std::min(s.size(), maxLen));
    return s;
}

// Ints as atoi (as glibc defines it: atoi itself is undefined out of
// range), doubles bit for bit as atof from the plain reader and from the
// record-level one (radix checked once by the caller, whatever it says).
TEST(FieldReaderConversion, NumbersMatchAtoiAndAtof) {
    std::mt19937 rng(777);
    std::vector<std::string> fields = OddForms();
    for (int i = 0; i < 100000; ++i) fields.push_back(RandomField(rng, i % 2 ? 16 : 32));
    char buf[64];
    for (int i = 0; i < 30000; ++i) {
        std::snprintf(buf, sizeof buf, i % 2 ? "%.*f" : "%.*g", i % 2 ? i % 7 : 17,
                      std::uniform_real_distribution<double>(-1e6, 1e6)(rng));
        fields.push_back(buf);
    }
    ASSERT_TRUE(RadixIsDot());
    for (const std::string& f : fields) {
        int i = -12345;
        if (f.size() <= 16) {
            ASSERT_EQ(Read(f, i), 0) << "[" << f << "]";
            ASSERT_EQ(i, static_cast<int>(std::strtol(f.c_str(), nullptr, 10))) << "[" << f << "]";
        }
        if (f.size() > 32) continue;
        const double want = std::atof(f.c_str());
        double got[3] = {-1.0, -1.0, -1.0};
        ASSERT_EQ(Read(f, got[0]), 0) << "[" << f << "]";
        ASSERT_EQ(Read(f, got[1], true), 0) << "[" << f << "]";
        ASSERT_EQ(Read(f, got[2], false), 0) << "[" << f << "]";
        for (double g : got) ASSERT_EQ(0, std::memcmp(&g, &want, sizeof g)) << "[" << f << "] got " << g;
    }
    // A '.' field is left to the full reader when the caller says the radix
    // is not '.'.
    const char* cur = "1.5,";
    double d = 0;
    EXPECT_FALSE(tikron_fields::TryFastDouble(&cur, d, ',', false));
    EXPECT_TRUE(tikron_fields::TryFastDouble(&cur, d, ',', true));
    EXPECT_EQ(d, 1.5);
}

// Results of every reader at its limits and with bad arguments; none of
// them moves the cursor.
TEST(FieldReaderNumbers, LimitsMissingDelimitersAndBadArguments) {
    const char* const noDelim = "3861.4";
    int i = 0;
    double d = 0.0;
    char c = 0, buf[4];
    const char* cur = noDelim;
    const char* nul = nullptr;
    struct Row {
        const char* name;
        int rc;
        int want;
    } rows[] = {
        {"16-digit int", Read(std::string(16, '9'), i), 0},
        {"17-digit int", Read(std::string(17, '1'), i), -3},
        {"signed 15 digits", Read("-" + std::string(15, '1'), i), 0},
        {"signed 16 digits", Read("-" + std::string(16, '1'), i), -3},
        {"32-char double", Read(std::string(32, '1'), d), 0},
        {"33-char double", Read(std::string(33, '1'), d), -3},
        {"33-char double, radix given", Read(std::string(33, '1'), d, true), -3},
        {"double without delimiter", GetNextValue(&cur, 1, d, ','), -2},
        {"double without delimiter, radix given", GetNextValue(&cur, 1, d, ',', true), -2},
        {"int without delimiter", GetNextValue(&cur, 1, i, ','), -2},
        {"NUL delimiter, double", GetNextValue(&cur, 1, d, '\0'), -2},
        {"NUL delimiter, int", GetNextValue(&cur, 1, i, '\0'), -2},
        {"no cursor", GetNextValue(nullptr, 1, i, ','), -1},
        {"int width 0", GetNextValue(&cur, 0, i, ','), -1},
        {"double width -4", GetNextValue(&cur, -4, d, ','), -1},
        {"double width 0, radix given", GetNextValue(&cur, 0, d, ',', true), -1},
        {"null text", GetNextValue(&nul, 1, d, ','), -1},
        {"null text, radix given", GetNextValue(&nul, 1, d, ',', true), -1},
        {"char width 2", GetNextValue(&cur, 2, c, ','), -1},
        {"char width 0", GetNextValue(&cur, 0, c, ','), -1},
        {"char, no cursor", GetNextValue(nullptr, 1, c, ','), -1},
        {"char, null text", GetNextValue(&nul, 1, c, ','), -1},
        {"text capacity 0", GetNextValue(&cur, 0, buf, ','), -1},
        {"text, no buffer", GetNextValue(&cur, 4, static_cast<char*>(nullptr), ','), -1},
        {"text, no cursor", GetNextValue(nullptr, 4, buf, ','), -1},
        {"text, null text", GetNextValue(&nul, 4, buf, ','), -1},
    };
    for (const Row& r : rows) EXPECT_EQ(r.want, r.rc) << r.name;
    EXPECT_EQ(cur, noDelim);
}

// Successive reads of one text: value, rc and where the cursor stands.
// Empty number fields read 0, an empty character field is refused (-3); a
// text that does not fit (capacity-1) is refused before anything is copied;
// a last text field without delimiter is read and leaves the cursor.
TEST(FieldReaderSequence, ValuesCursorAndRefusals) {
    const char* text = "12,,3.25,,-7,B,,0,rb2501,IF24120,F3";
    const char* cur = text;
    int i = -1;
    double d = -1.0;
    char c = 'q', code[7], exch[3], one[1];
    std::memset(code, 'z', sizeof code);
    const struct {
        int rc;
        std::string value;
        long at;
    } got[] = {
        {GetNextValue(&cur, 1, i, ','), std::to_string(i), cur - text},
        {GetNextValue(&cur, 1, i, ','), std::to_string(i), cur - text},
        {GetNextValue(&cur, 1, d, ','), std::to_string(d), cur - text},
        {GetNextValue(&cur, 1, d, ','), std::to_string(d), cur - text},
        {GetNextValue(&cur, 1, i, ','), std::to_string(i), cur - text},
        {GetNextValue(&cur, 1, c, ','), std::string(1, c), cur - text},
        {GetNextValue(&cur, 1, c, ','), std::string(1, c), cur - text},
        {GetNextValue(&cur, 1, one, ','), std::string(one, 1), cur - text},
        {GetNextValue(&cur, 1, c, ','), std::string(1, c), cur - text},
        {GetNextValue(&cur, sizeof code, code, ','), code, cur - text},
        {GetNextValue(&cur, sizeof code, code, ','), std::string(code, 1), cur - text},
        {GetNextValue(&(cur = text + 33), sizeof exch, exch, ','), exch, cur - text},
        {GetNextValue(&cur, sizeof exch, exch, ','), exch, cur - text},
        {GetNextValue(&cur, 1, c, ','), std::string(1, c), cur - text},
        {GetNextValue(&cur, 2, code, ','), std::string(code, 1), cur - text},
    };
    const std::vector<std::tuple<int, std::string, long>> want = {
        {0, "12", 3},    {0, "0", 4},     {0, "3.250000", 9}, {0, "0.000000", 10}, {0, "-7", 13},
        {0, "B", 15},    {-3, "B", 15},   {0, std::string(1, '\0'), 16},     {0, "0", 18}, {0, "rb2501", 25},
        {-2, "r", 25},   {0, "F3", 33},   {0, "F3", 33},      {-2, "0", 33},       {-2, "r", 33}};
    for (size_t k = 0; k < want.size(); ++k)
        EXPECT_EQ(want[k], std::make_tuple(got[k].rc, got[k].value, got[k].at)) << "read " << k;
}

TEST(FieldReaderHelpers, DateAndTimeAreLocalNumbers) {
    for (int attempt = 0; attempt < 3; ++attempt) {
        const time_t now = time(nullptr);
        struct tm t {};
        localtime_r(&now, &t);
        const int date = GetDate(), tm = GetTime();
        if (time(nullptr) != now) continue;  // crossed a second; retry
        EXPECT_EQ(date, (t.tm_year + 1900) * 10000 + (t.tm_mon + 1) * 100 + t.tm_mday);
        EXPECT_EQ(tm, t.tm_hour * 10000 + t.tm_min * 100 + t.tm_sec);
        return;
    }
}

}  // namespace
