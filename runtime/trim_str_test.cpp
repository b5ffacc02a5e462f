#include <gtest/gtest.h>

#include "runtime/trim_str.h"

TEST(TrimStr, OuterControlsAndBlanksGoInnerStay) {
    std::string s = "\t ab c \r\n";
    EXPECT_EQ("ab c", TrimStr(s));
    EXPECT_EQ("\t ab c \r\n", s);  // argument unchanged
    std::string blank = " \a\b\f\v ";
    EXPECT_EQ("", TrimStr(blank));
    std::string empty;
    EXPECT_EQ("", TrimStr(empty));
    std::string one = "x";
    EXPECT_EQ("x", TrimStr(one));
    std::string inner = "SHFE\x01";  // other control bytes are kept
    EXPECT_EQ("SHFE\x01", TrimStr(inner));
}
