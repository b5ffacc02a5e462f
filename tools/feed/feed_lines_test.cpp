#include "tools/feed/feed_lines.h"
#include "tools/feed/synthetic_quotes.h"

#include <algorithm>
#include <cstdlib>
#include <set>

#include <gtest/gtest.h>

#include "testing/temp_dir.h"

TEST(FeedLines, EscapesFramesAndCaptures) {
    const std::pair<const char*, std::string> good[] = {
        {"0^A999\\x01a", "0\x01" "999\x01" "a"},
        {"a\\\\b\\n\\t\\xFF", "a\\b\n\t\xff"},
        {"^B^", "^B^"},  // only ^A is special
        {"A00007F1,2,1,\r", "A00007F1,2,1,"},
    };
    std::string out, err;
    for (const auto& g : good) {
        EXPECT_TRUE(feed::UnescapeLine(g.first, &out, &err)) << g.first << ": " << err;
        EXPECT_EQ(g.second, out) << g.first;
    }
    for (const char* bad : {"abc\\", "\\x0", "\\xg1", "\\q"}) {
        err.clear();
        EXPECT_FALSE(feed::UnescapeLine(bad, &out, &err)) << bad;
        EXPECT_FALSE(err.empty()) << bad;
    }
    EXPECT_EQ("A00007F1,2,1,", feed::Frame('A', "F1,2,1,"));
    EXPECT_EQ("000000", feed::Frame('0', ""));
    EXPECT_EQ(100005u, feed::Frame('0', std::string(99999, 'x')).size());
    EXPECT_EQ("", feed::Frame('0', std::string(100000, 'x')));

    testing_support::TempDir dir;
    testing_support::WriteFile(dir / "cap", "# comment\n\nA00007F1,2,1,\n0^A1\n");
    std::vector<std::string> d;
    ASSERT_TRUE(feed::ReadCapture(dir / "cap", &d, &err)) << err;
    EXPECT_EQ((std::vector<std::string>{"A00007F1,2,1,", "0\x01" "1"}), d);
    testing_support::WriteFile(dir / "cap", "# comment\n\nA00007F1,2,1,\n0^A1\nbad\\z\n");
    EXPECT_FALSE(feed::ReadCapture(dir / "cap", &d, &err));
    EXPECT_NE(std::string::npos, err.find(":5:")) << err;
    EXPECT_FALSE(feed::ReadCapture(dir / "missing", &d, &err));
}

// Synthetic records are framed right, carry 48 comma-terminated fields and
// unique codes that fit the legacy table; a variant is a repeatable walk.
TEST(SyntheticQuotes, WellFormedUniqueAndBounded) {
    feed::SyntheticQuotes q(3000, 7);
    std::set<std::string> codes;
    for (const auto& c : q.Contracts()) {
        EXPECT_LE(c.code.size(), 11u) << c.code;
        EXPECT_TRUE(c.exchange.size() == 2 && c.exchange[0] == 'F' && c.exchange[1] >= '1' && c.exchange[1] <= '5');
        codes.insert(c.code);
    }
    EXPECT_EQ(3000u, codes.size());
    for (int k = 0; k < 9000; ++k) {
        const std::string d = q.Next();
        ASSERT_EQ('0', d[0]);
        ASSERT_EQ(static_cast<size_t>(atoi(d.substr(1, 5).c_str())), d.size() - 6) << d;
        ASSERT_EQ(48, std::count(d.begin(), d.end(), ',')) << d;
        ASSERT_EQ(',', d.back());
    }
    feed::SyntheticQuotes a(5, 3), b(5, 3);  // the same variant gives the same walk
    for (int k = 0; k < 20; ++k) EXPECT_EQ(a.Next().substr(0, 40), b.Next().substr(0, 40));
}
