// The record-level double reader (radix checked once by the caller) and the
// inline fast paths against atof/atoi, with the boundaries of the fast forms.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "wire/quote_records.h"
#include "store/single_leg_fields.h"
#include "wire/field_reader.h"
#include "wire/field_reader_fast.h"

namespace {

// By value: fields of the packed records must not bind to references.
template <typename V>
V Val(V v) {
    return v;
}

bool SameBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

int Read(const std::string& field, double& out, bool radixIsDot) {
    std::string text = field + ",";
    const char* cur = text.c_str();
    int r = GetNextValue(&cur, 1, out, ',', radixIsDot);
    if (r == 0) {
        EXPECT_EQ(cur, text.c_str() + text.size());
    }
    return r;
}

std::vector<std::string> BoundaryForms() {
    return {"9007199254740992",     "9007199254740993",     "900719925474099.3",   "9999999999999999999",
            "99999999999999999999", "1234567890.123456789", "0.0000000000000000000001",
            "0.00000000000000000000001", "1.0000000000000000000000", "-0", "-0.0", "5.", "-5.",
            "12345678901234567890123456789012", "123456789012345678901234567890123", "3850.2",
            "0.1", "0.7", "3858.37", "92973211400.0", "4235.2", "-", "-.", ".", "1.-", "1.2.3"};
}

TEST(FieldReaderRadix, RecordOverloadMatchesAtofWhateverTheCallerSays) {
    std::mt19937 rng(7);
    std::vector<std::string> fields = BoundaryForms();
    std::uniform_int_distribution<int> dig(0, 9), len(1, 24);
    for (int i = 0; i < 100000; ++i) {
        std::string s = (rng() & 1) ? "-" : "";
        int n = len(rng), dot = len(rng);
        for (int k = 0; k < n; ++k) {
            if (k == dot) s += '.';
            s += static_cast<char>('0' + dig(rng));
        }
        fields.push_back(s);
    }
    ASSERT_TRUE(RadixIsDot());
    for (const std::string& f : fields) {
        for (bool dot : {true, false}) {
            // false only sends '.' fields to the library, which in this
            // locale must still give the same value.
            double got = -1234.5;
            int r = Read(f, got, dot);
            if (f.size() > 32) {
                EXPECT_EQ(r, -3) << f;
                continue;
            }
            ASSERT_EQ(r, 0) << f;
            ASSERT_TRUE(SameBits(got, std::atof(f.c_str()))) << "[" << f << "] dot=" << dot;
        }
    }
}

TEST(FieldReaderRadix, FastPathsRefuseWhatTheFullReadersMustDecide) {
    const char* cur;
    int i = 0;
    double d = 0;
    // A signed 16-digit int is a 17-character field: refused by the fast
    // path, -3 from the reader.
    const char* longInt = "-1234567890123456,";
    cur = longInt;
    EXPECT_FALSE(tikron_fields::TryFastInt(&cur, i, ','));
    EXPECT_EQ(cur, longInt);
    EXPECT_EQ(GetNextValue(&cur, 1, i, ','), -3);
    const char* maxInt = "-123456789012345,";
    cur = maxInt;
    EXPECT_TRUE(tikron_fields::TryFastInt(&cur, i, ','));
    EXPECT_EQ(cur, maxInt + std::strlen(maxInt));
    // No delimiter, blanks, a NUL delimiter: left alone.
    for (const char* t : {"12", " 12,", "12 ,", "+12,"}) {
        cur = t;
        EXPECT_FALSE(tikron_fields::TryFastInt(&cur, i, ',')) << t;
        EXPECT_FALSE(tikron_fields::TryFastDouble(&cur, d, ',', true)) << t;
        EXPECT_EQ(cur, t);
    }
    cur = "12";
    EXPECT_FALSE(tikron_fields::TryFastInt(&cur, i, '\0'));
    EXPECT_FALSE(tikron_fields::TryFastDouble(&cur, d, '\0', true));
    // A '.' field is not taken when the caller says the radix is not '.'.
    cur = "1.5,";
    EXPECT_FALSE(tikron_fields::TryFastDouble(&cur, d, ',', false));
    EXPECT_TRUE(tikron_fields::TryFastDouble(&cur, d, ',', true));
    EXPECT_EQ(d, 1.5);
}

TEST(FieldReaderRadix, RecordParseEqualsFieldByFieldReads) {
    const std::string text =
        "IF2412,3850.2,3855.0,-3861.4,3861.2,12,340,3861.6,8,290,3870.0,3845.2,3858.37,11.2,80321,160234,"
        "92973211400.0,4235.2,3465.2,X,0,0,0,0,3849.8,158000,0,1e3,0x10,.5,3861.0,5,3860.8,-7,3860.6,9,"
        "3860.4,11,3861.8,4,3862.0,6,3862.2,8,3862.4,10,F4";
    tagHQInfo_EX ex;
    std::memset(&ex, 0, sizeof ex);
    const char* cur = text.c_str();
    ASSERT_EQ(tikron_store::ReadSingleLegFields(&cur, ex), 0);
    EXPECT_STREQ(ex.contract_code, "IF2412");
    EXPECT_EQ(Val(ex.futu_open_price), 3855.0);
    EXPECT_EQ(Val(ex.futu_last_price), -3861.4);
    EXPECT_EQ(Val(ex.business_balance), 92973211400.0);
    EXPECT_EQ(Val(ex.square_price), 1e3);
    EXPECT_EQ(Val(ex.pre_delta), 16.0);
    EXPECT_EQ(Val(ex.curr_delta), 0.5);
    EXPECT_EQ(Val(ex.bid_volume3), -7);
    EXPECT_STREQ(ex.futu_exch_type, "F4");
}

}  // namespace
