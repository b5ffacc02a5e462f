#include "wire/field_reader.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <random>
#include <string>
#include <vector>

namespace {

// atoi as glibc defines it; atoi itself is not called on out-of-range text.
int RefAtoi(const std::string& s) { return static_cast<int>(std::strtol(s.c_str(), nullptr, 10)); }

bool SameDouble(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

int ReadInt(const std::string& field, int& out) {
    std::string text = field + ",";
    const char* cur = text.c_str();
    return GetNextValue(&cur, 1, out, ',');
}

int ReadDouble(const std::string& field, double& out) {
    std::string text = field + ",";
    const char* cur = text.c_str();
    return GetNextValue(&cur, 1, out, ',');
}

std::vector<std::string> OddForms() {
    return {"",       "0",        "-0",        "+0",         "007",        " 42",       "\t-17",     "42abc",
            "-",      "+",        "--1",       "+-1",        "12 34",      "2147483647", "2147483648", "-2147483648",
            "-2147483649", "4294967296", "9999999999999999", "-999999999999999", "0x1A", "1e3", "abc", "  ",
            "3.5",    "-3.5",     ".5",        "5.",         "-.5",        "1e308",     "1e309",     "-1e309",
            "1e-320", "4.9e-324", "2.5e-324",  "0x1.8p1",    "0X1P-3",     "inf",       "-INF",      "infinity",
            "nan",    "-nan",     "NAN(123)",  "1.7976931348623157e308", "0.1", "0.30000000000000004",
            "123456789012345678901234567890", "9007199254740993", "+1.5", " 1.5", "1.5 ", "1,5", "1..5",
            "1.2.3",  "00000000000000000000000000000001", "-00.000", "3850.2", "92973211400.0"};
}

std::string RandomField(std::mt19937& rng, size_t maxLen) {
    static const char kAlphabet[] = "0123456789012345678901234567890123456789+-.. eExXpPabcfinINFNAty\t";
    std::uniform_int_distribution<size_t> lenDist(0, maxLen);
    std::uniform_int_distribution<size_t> chDist(0, sizeof kAlphabet - 2);
    std::uniform_int_distribution<int> shape(0, 3);
    size_t n = lenDist(rng);
    std::string s;
    int kind = shape(rng);
    if (kind == 0) {
        // plain decimal, the common feed form
        std::uniform_int_distribution<int> dig(0, 9);
        if (rng() & 1) s += '-';
        size_t intDigits = 1 + n / 2;
        for (size_t i = 0; i < intDigits && s.size() < maxLen; ++i) s += static_cast<char>('0' + dig(rng));
        if (s.size() + 1 < maxLen && (rng() & 1)) {
            s += '.';
            while (s.size() < maxLen && s.size() < n) s += static_cast<char>('0' + dig(rng));
        }
    } else {
        for (size_t i = 0; i < n; ++i) s += kAlphabet[chDist(rng)];
    }
    if (s.size() > maxLen) s.resize(maxLen);
    return s;
}

TEST(FieldReaderConversion, IntegersMatchAtoiOnGeneratedAndOddForms) {
    std::mt19937 rng(20241203);
    std::vector<std::string> fields = OddForms();
    for (int i = 0; i < 200000; ++i) fields.push_back(RandomField(rng, 16));
    for (const std::string& f : fields) {
        if (f.size() > 16 || f.find(',') != std::string::npos) continue;
        int got = -12345;
        ASSERT_EQ(ReadInt(f, got), 0) << "[" << f << "]";
        ASSERT_EQ(got, RefAtoi(f)) << "[" << f << "]";
        long wide = std::strtol(f.c_str(), nullptr, 10);
        if (wide >= INT32_MIN && wide <= INT32_MAX) {
            ASSERT_EQ(got, std::atoi(f.c_str())) << "[" << f << "]";
        }
    }
}

TEST(FieldReaderConversion, DoublesMatchAtofBitForBit) {
    std::mt19937 rng(777);
    std::vector<std::string> fields = OddForms();
    for (int i = 0; i < 200000; ++i) fields.push_back(RandomField(rng, 32));
    std::uniform_real_distribution<double> price(-1e6, 1e6);
    char buf[64];
    for (int i = 0; i < 50000; ++i) {
        std::snprintf(buf, sizeof buf, "%.*f", i % 7, price(rng));
        fields.push_back(buf);
        std::snprintf(buf, sizeof buf, "%.17g", price(rng));
        fields.push_back(buf);
    }
    for (const std::string& f : fields) {
        if (f.size() > 32 || f.find(',') != std::string::npos) continue;
        double got = -1.0;
        ASSERT_EQ(ReadDouble(f, got), 0) << "[" << f << "]";
        ASSERT_TRUE(SameDouble(got, std::atof(f.c_str()))) << "[" << f << "] got " << got;
    }
}

TEST(FieldReaderNumbers, LengthLimitsAndMissingDelimiter) {
    int i = 0;
    double d = 0.0;
    EXPECT_EQ(ReadInt(std::string(16, '9'), i), 0);
    EXPECT_EQ(ReadInt(std::string(17, '1'), i), -3);
    EXPECT_EQ(ReadDouble(std::string(32, '1'), d), 0);
    EXPECT_EQ(ReadDouble(std::string(33, '1'), d), -3);

    const char* text = "3861.4";
    const char* cur = text;
    EXPECT_EQ(GetNextValue(&cur, 1, d, ','), -2);
    EXPECT_EQ(GetNextValue(&cur, 1, i, ','), -2);
    EXPECT_EQ(cur, text);

    // Bad arguments.
    EXPECT_EQ(GetNextValue(nullptr, 1, i, ','), -1);
    EXPECT_EQ(GetNextValue(&cur, 0, i, ','), -1);
    EXPECT_EQ(GetNextValue(&cur, -4, d, ','), -1);
    const char* nul = nullptr;
    EXPECT_EQ(GetNextValue(&nul, 1, d, ','), -1);

    // A NUL delimiter never matches, so no reader walks past the terminator.
    cur = text;
    EXPECT_EQ(GetNextValue(&cur, 1, d, '\0'), -2);
}

TEST(FieldReaderNumbers, SequenceAdvancesAndEmptyFieldsReadZero) {
    const char* text = "12,,3.25,,-7,";
    const char* cur = text;
    int i = -1;
    double d = -1.0;
    ASSERT_EQ(GetNextValue(&cur, 1, i, ','), 0);
    EXPECT_EQ(i, 12);
    ASSERT_EQ(GetNextValue(&cur, 1, i, ','), 0);
    EXPECT_EQ(i, 0);
    ASSERT_EQ(GetNextValue(&cur, 1, d, ','), 0);
    EXPECT_EQ(d, 3.25);
    ASSERT_EQ(GetNextValue(&cur, 1, d, ','), 0);
    EXPECT_EQ(d, 0.0);
    ASSERT_EQ(GetNextValue(&cur, 1, i, ','), 0);
    EXPECT_EQ(i, -7);
    EXPECT_EQ(*cur, '\0');
    EXPECT_EQ(GetNextValue(&cur, 1, i, ','), -2);
}

TEST(FieldReaderChar, FirstCharacterAndErrors) {
    const char* text = "B,,0,xyz";
    const char* cur = text;
    char c = 0;
    ASSERT_EQ(GetNextValue(&cur, 1, c, ','), 0);
    EXPECT_EQ(c, 'B');
    c = 'q';
    EXPECT_EQ(GetNextValue(&cur, 1, c, ','), -3);  // empty field is refused
    EXPECT_EQ(c, 'q');
    EXPECT_EQ(cur, text + 2);
    cur = text + 3;
    ASSERT_EQ(GetNextValue(&cur, 1, c, ','), 0);
    EXPECT_EQ(c, '0');
    EXPECT_EQ(GetNextValue(&cur, 1, c, ','), -2);  // "xyz" has no delimiter
    EXPECT_EQ(GetNextValue(&cur, 2, c, ','), -1);
    EXPECT_EQ(GetNextValue(&cur, 0, c, ','), -1);
    EXPECT_EQ(GetNextValue(nullptr, 1, c, ','), -1);
}

TEST(FieldReaderText, CapacityAndLastFieldWithoutDelimiter) {
    const char* text = "rb2501,F3";
    const char* cur = text;
    char code[13];
    char exch[3];
    ASSERT_EQ(GetNextValue(&cur, sizeof code, code, ','), 0);
    EXPECT_STREQ(code, "rb2501");
    EXPECT_EQ(cur, text + 7);
    ASSERT_EQ(GetNextValue(&cur, sizeof exch, exch, ','), 0);
    EXPECT_STREQ(exch, "F3");
    // No delimiter: the cursor stays, so a further read sees the same text.
    EXPECT_EQ(cur, text + 7);
    std::memset(exch, 'x', sizeof exch);
    ASSERT_EQ(GetNextValue(&cur, sizeof exch, exch, ','), 0);
    EXPECT_STREQ(exch, "F3");

    // Exactly capacity-1 fits; one more is refused before anything is copied.
    char small[7];
    std::memset(small, 'z', sizeof small);
    const char* t2 = "IF2412,IF24120,";
    cur = t2;
    ASSERT_EQ(GetNextValue(&cur, sizeof small, small, ','), 0);
    EXPECT_STREQ(small, "IF2412");
    std::memset(small, 'z', sizeof small);
    EXPECT_EQ(GetNextValue(&cur, sizeof small, small, ','), -2);
    EXPECT_EQ(small[0], 'z');
    EXPECT_EQ(cur, t2 + 7);

    // Unterminated last field longer than capacity is refused too.
    const char* t3 = "sc2503sc2503";
    cur = t3;
    EXPECT_EQ(GetNextValue(&cur, sizeof small, small, ','), -2);

    // Empty field and capacity 1.
    const char* t4 = ",x";
    char one[1] = {'q'};
    cur = t4;
    ASSERT_EQ(GetNextValue(&cur, 1, one, ','), 0);
    EXPECT_EQ(one[0], '\0');
    EXPECT_EQ(GetNextValue(&cur, 0, one, ','), -1);
    EXPECT_EQ(GetNextValue(&cur, 4, static_cast<char*>(nullptr), ','), -1);
}

TEST(FieldReaderHelpers, StatusMapping) {
    const char in[] = "1234567ABCEFG";
    const char out[] = "335601C278D9G";
    for (size_t k = 0; k < sizeof in - 1; ++k) EXPECT_EQ(StatusSwtich(in[k]), out[k]) << in[k];
    for (char c : {'0', '8', '9', 'D', 'H', 'a', '\0'}) EXPECT_EQ(StatusSwtich(c), static_cast<char>(0xFF)) << c;
}

TEST(FieldReaderHelpers, DateAndTimeAreLocalNumbers) {
    for (int attempt = 0; attempt < 3; ++attempt) {
        time_t now = time(nullptr);
        struct tm t {};
        localtime_r(&now, &t);
        int date = GetDate();
        int tm = GetTime();
        if (time(nullptr) != now) continue;  // crossed a second; retry
        EXPECT_EQ(date, (t.tm_year + 1900) * 10000 + (t.tm_mon + 1) * 100 + t.tm_mday);
        EXPECT_EQ(tm, t.tm_hour * 10000 + t.tm_min * 100 + t.tm_sec);
        return;
    }
}

}  // namespace
