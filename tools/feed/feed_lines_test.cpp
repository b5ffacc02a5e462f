#include "tools/feed/feed_lines.h"
#include "tools/feed/synthetic_quotes.h"

#include <cstdio>
#include <cstdlib>
#include <set>

#include <gtest/gtest.h>

namespace {

std::string Unescape(const std::string& s) {
    std::string out, err;
    EXPECT_TRUE(feed::UnescapeLine(s, &out, &err)) << s << ": " << err;
    return out;
}

bool Refused(const std::string& s) {
    std::string out, err;
    return !feed::UnescapeLine(s, &out, &err) && !err.empty();
}

}  // namespace

TEST(FeedLines, Escapes) {
    EXPECT_EQ(std::string("0\x01" "999\x01" "a"), Unescape("0^A999\\x01a"));
    EXPECT_EQ(std::string("a\\b\n\t\xff"), Unescape("a\\\\b\\n\\t\\xFF"));
    EXPECT_EQ("^B^", Unescape("^B^"));  // only ^A is special
    EXPECT_EQ("A00007F1,2,1,", Unescape("A00007F1,2,1,\r"));
    EXPECT_TRUE(Refused("abc\\"));
    EXPECT_TRUE(Refused("\\x0"));
    EXPECT_TRUE(Refused("\\xg1"));
    EXPECT_TRUE(Refused("\\q"));
}

TEST(FeedLines, CaptureSkipsCommentsAndReportsBadLines) {
    char path[] = "/tmp/feedcapXXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    FILE* f = fdopen(fd, "w");
    fputs("# comment\n\nA00007F1,2,1,\n0^A1\n", f);
    fclose(f);
    std::vector<std::string> d;
    std::string err;
    ASSERT_TRUE(feed::ReadCapture(path, &d, &err)) << err;
    ASSERT_EQ(2u, d.size());
    EXPECT_EQ(std::string("0\x01" "1"), d[1]);

    f = fopen(path, "a");
    fputs("bad\\z\n", f);
    fclose(f);
    d.clear();
    EXPECT_FALSE(feed::ReadCapture(path, &d, &err));
    EXPECT_NE(std::string::npos, err.find(":5:")) << err;
    remove(path);
    EXPECT_FALSE(feed::ReadCapture(path, &d, &err));
}

TEST(FeedLines, FrameDeclaresTheTextLength) {
    EXPECT_EQ("A00007F1,2,1,", feed::Frame('A', "F1,2,1,"));
    EXPECT_EQ("000000", feed::Frame('0', ""));
    EXPECT_EQ(100005u, feed::Frame('0', std::string(99999, 'x')).size());
    EXPECT_EQ("", feed::Frame('0', std::string(100000, 'x')));
}

// Synthetic records are framed right, carry 48 comma-terminated fields,
// unique codes that fit the legacy table, and prices that stay near the mid.
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
        std::string d = q.Next();
        ASSERT_EQ('0', d[0]);
        ASSERT_EQ(static_cast<size_t>(atoi(d.substr(1, 5).c_str())), d.size() - 6) << d;
        size_t fields = 0;
        for (char ch : d) fields += ch == ',';
        ASSERT_EQ(48u, fields) << d;
        ASSERT_EQ(',', d.back());
    }
    for (const auto& c : q.Contracts()) {
        EXPECT_GE(c.last, c.mid * 0.92 - c.tick);
        EXPECT_LE(c.last, c.mid * 1.08 + c.tick);
    }
    // The same variant gives the same walk.
    feed::SyntheticQuotes a(5, 3), b(5, 3);
    for (int k = 0; k < 20; ++k) EXPECT_EQ(a.Next().substr(0, 40), b.Next().substr(0, 40));
}
