// Helpers of the text-format tests: readable expected texts and the check
// every bounded text writer must pass.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "quote/quote_text.h"

namespace testing_support {

// Expected texts are written with '|' for the 0x01 field separator.
inline std::string T(std::string s) {
    std::replace(s.begin(), s.end(), '|', '\x01');
    return s;
}

// A writer (buffer, size) -> result cut at every size: the full text's prefix
// with its terminator, QUOTE_TEXT_TRUNCATED until the whole text fits, no
// byte written past the size; size 0 and no buffer are refused with -1.
inline void ExpectCutsClean(const std::function<int(char*, int)>& write, const std::string& full) {
    for (size_t size = 1; size <= full.size() + 1; ++size) {
        std::vector<char> buf(size + 8, '#');
        ASSERT_EQ(write(buf.data(), static_cast<int>(size)), size <= full.size() ? QUOTE_TEXT_TRUNCATED : 0) << size;
        const size_t n = std::min(size - 1, full.size());
        ASSERT_EQ(std::string(buf.data(), n + 1), full.substr(0, n) + '\0') << "size " << size;
        ASSERT_EQ(buf[size], '#') << "written past size " << size;
    }
    char one = '#';
    EXPECT_EQ(write(&one, 0), -1);
    EXPECT_EQ(one, '#');
    EXPECT_EQ(write(nullptr, 64), -1);
}

}  // namespace testing_support
