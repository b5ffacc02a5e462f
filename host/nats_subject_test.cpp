// Subject tokens, chunk tags and reassembly of the NATS bus.
#include <gtest/gtest.h>

#include <thread>

#include "host/host_pack.h"
#include "host/nats_chunk.h"
#include "host/nats_subject.h"

namespace natsbus {
namespace {

TEST(NatsSubject, TokensAreSafeAndReversible) {
    struct Row {
        const char* raw;
        const char* token;
    } rows[] = {{"", "%"},           {"IF2412", "IF2412"},   {"n#1", "n%231"},     {"a.b*c>", "a%2Eb%2Ac%3E"},
                {"x y", "x%20y"},     {"%", "%25"},           {"_-", "_-"},        {"\xC9\xCF", "%C9%CF"}};
    for (const auto& r : rows) {
        EXPECT_EQ(r.token, Token(r.raw)) << r.raw;
        std::string back;
        EXPECT_TRUE(UnToken(r.token, &back)) << r.token;
        EXPECT_EQ(r.raw, back) << r.token;
    }
    // Tokens Token() never writes.
    for (const char* bad : {"%2", "%zz", "%41", "a%2e", "a.b", ""}) {
        std::string back;
        EXPECT_FALSE(UnToken(bad, &back)) << bad;
    }
    EXPECT_EQ("tikron.pub.n%231.620003.22.IF2412", PublicationSubject("n#1", 620003, 22, "IF2412"));
    EXPECT_EQ("tikron.json.n%231.620031.33101.12%2C77", JsonSubject("n#1", 620031, 33101, "12,77"));
    EXPECT_EQ("tikron.pub.*.*.18.*", SubscriptionSubject(18));
    EXPECT_EQ("tikron.pub.>", SubscriptionSubject(0));
    // The sender of a publication, from its subject.
    const std::pair<const char*, const char*> senders[] = {
        {"tikron.pub.n%231.620003.22.IF2412", "n#1"}, {"tikron.json.a%23b%2E.1.2.k", "a#b."},
        {"tikron.pub.n%231", "n#1"},                  {"tikron.req.n%231", ""},
        {"tikron.pub.n%2.620003.22.k", ""},           {"tikron.pubx.n%231.1.2.k", ""}};
    for (const auto& [subject, node] : senders) EXPECT_EQ(node, SubjectNode(subject)) << subject;
    auto key = hostemu::EncodePacked(hostemu::MakeBody(33, {"branch_no", "fund_account"}, {{12, "77"}}));
    EXPECT_EQ("12,77", KeyText(key.data(), static_cast<int>(key.size())));
    EXPECT_EQ("", KeyText("junk", 4));
}

TEST(NatsChunk, TagsRangesAndReassembly) {
    struct TagRow {
        const char* text;
        bool ok;
    } tags[] = {{"0/2/a", true}, {"1/2/a", true},  {"2/2/a", false}, {"0/1/a", false},
                {"0/2/", false}, {"x/2/a", false}, {"0/4097/a", false}, {"4095/4096/id", true}};
    for (const auto& t : tags) {
        ChunkTag tag;
        EXPECT_EQ(t.ok, ParseChunkTag(t.text, &tag)) << t.text;
        if (t.ok) {
            EXPECT_EQ(t.text, FormatChunkTag(tag));
        }
    }
    EXPECT_EQ((std::vector<std::pair<size_t, size_t>>{{0, 10}}), ChunkRanges(10, 10));
    EXPECT_EQ((std::vector<std::pair<size_t, size_t>>{{0, 4}, {4, 4}, {8, 2}}), ChunkRanges(10, 4));

    CChunkAssembler a(16, 60000);
    std::string whole;
    const ChunkTag t0{0, 3, "m"}, t1{1, 3, "m"}, t2{2, 3, "m"};
    EXPECT_EQ(CChunkAssembler::kWaiting, a.Add("s", t2, "gh", 2, &whole));  // any order
    EXPECT_EQ(CChunkAssembler::kWaiting, a.Add("s", t0, "abc", 3, &whole));
    EXPECT_EQ(CChunkAssembler::kWaiting, a.Add("other", t1, "XYZ", 3, &whole));  // sources kept apart
    EXPECT_EQ(CChunkAssembler::kComplete, a.Add("s", t1, "def", 3, &whole));
    EXPECT_EQ("abcdefgh", whole);
    EXPECT_EQ(3u, a.PendingBytes());
    EXPECT_EQ(CChunkAssembler::kRefused, a.Add("other", t1, "XYZ", 3, &whole));  // repeated part
    EXPECT_EQ(0u, a.PendingBytes());
    const ChunkTag big{0, 2, "b"};
    EXPECT_EQ(CChunkAssembler::kRefused, a.Add("s", big, std::string(17, 'x').data(), 17, &whole));  // over the bound
    EXPECT_EQ(CChunkAssembler::kWaiting, a.Add("s", big, "x", 1, &whole));
    EXPECT_EQ(CChunkAssembler::kRefused, a.Add("s", ChunkTag{1, 3, "b"}, "y", 1, &whole));  // count changed
    CChunkAssembler old(16, 0);
    EXPECT_EQ(CChunkAssembler::kWaiting, old.Add("s", t0, "abc", 3, &whole));
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_EQ(1u, old.Expire());
    EXPECT_EQ(0u, old.PendingBytes());
}

}  // namespace
}  // namespace natsbus
