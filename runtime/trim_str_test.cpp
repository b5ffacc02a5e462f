#include "runtime/trim_str.h"

#include <gtest/gtest.h>

// Outer blanks and control characters go, inner ones stay; the argument is
// left unchanged.
TEST(TrimStr, OuterControlsAndBlanksGoInnerStay) {
    const char* const rows[][2] = {
        {"\t ab c \r\n", "ab c"}, {" \a\b\f\v ", ""}, {"", ""}, {"x", "x"}, {"SHFE\x01", "SHFE\x01"}};
    for (const auto& row : rows) {
        std::string s = row[0];
        EXPECT_EQ(row[1], TrimStr(s)) << "[" << row[0] << "]";
        EXPECT_EQ(row[0], s);
    }
}
