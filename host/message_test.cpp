// Messages and their reuse, and release tracking.
#include "host/host_message.h"
#include "host/host_queue.h"

#include <tuple>

#include <gtest/gtest.h>

#include "frame/esb_message.h"

using namespace hostemu;

namespace {

std::string RawOf(IESBMessageItem* item, int bytes) {
    int len = 0;
    const char* p = static_cast<const char*>(item->GetRawData(&len, 0));
    return p == nullptr ? "" : std::string(p, static_cast<size_t>(bytes));
}

// A pooled object handed out again carries nothing of its earlier life;
// Prepare empties every item (pointers to them stay valid); a shorter raw
// value after a longer one reads zero padding after it.
TEST(Message, ItemsPrepareReuseAndAnswer) {
    CHostMessageFactory f(0);  // no quarantine: the next message is the same object
    IESBMessage* m = f.GetESBMsg();
    EXPECT_EQ(nullptr, m->GetItem(kMaxTag + 1));
    IESBMessageItem* it = m->GetItem(TAG_ERROR_INFO);
    EXPECT_STREQ("", it->GetString(3)) << "absent strings are empty, never null";
    EXPECT_EQ(-1, it->SetString("x", kMaxItemIndex + 1));
    it->SetInt(-15, 0);
    it->SetString("123abc", 1);
    it->SetString("99999999999", 2);
    EXPECT_EQ(std::make_tuple(std::string("-15"), 123, 2147483647, 3),
              std::make_tuple(std::string(it->GetString(0)), it->GetInt(1), it->GetInt(2), it->GetCount()));
    for (int tag : {3, 5, 8, 9, 11, 53, 54, 100, 1023}) m->GetItem(tag)->SetRawData("old", 3);
    m->Release();
    ASSERT_EQ(m, f.GetESBMsg());
    m->Prepare(PACKET_REQUEST, 620200);
    EXPECT_EQ(0, it->GetCount());
    m->GetItem(TAG_PACKET_ID)->SetInt(9, 0);
    m->GetItem(TAG_ROUTE_INFO)->SetString("svr", 2);
    m->ChangeToAnswer();
    MessageSnapshot s;
    int len = 0;
    const void* buf = m->GetBuffer(&len);
    ASSERT_EQ(0, DecodeMessage(buf, len, &s));
    EXPECT_EQ(4u, s.items.size()) << "only items 3, 5, 9 and 11";
    EXPECT_EQ(std::make_tuple(PACKET_ANSWER, 620200, 9, std::string("svr")),
              std::make_tuple(s.PacketType(), s.FunctionNo(), s.PacketId(), s.Route(2)));
    IESBMessageItem* body = m->GetItem(TAG_MESSAGE_BODY);
    EXPECT_EQ("", RawOf(body, 0));
    body->SetRawData("ABCDEFGHIJKLMNOPQRSTUVWXYZ", 26);
    body->SetRawData("xy", 2);
    EXPECT_EQ(std::string("xy\0\0\0\0\0\0\0\0", 10), RawOf(body, 10));
    m->Release();
}

TEST(Message, BufferRoundTripAndMalformedBuffersAreRefused) {
    CHostMessageFactory f;
    MessageSpec fields(620003, 0);
    fields.issueType = 16;
    fields.packetId = 3;
    fields.body = {'a', '\0', 'b'};
    fields.key = {'k'};
    CHostMessage* m = BuildMessage(f, fields);
    m->GetItem(TAG_PATH_STAMP)->SetString("stamp", 2);
    int len = 0;
    const char* p = static_cast<const char*>(m->GetBuffer(&len));
    const std::vector<char> buf(p, p + len);
    CHostMessage* copy = f.NewMessage();
    copy->GetItem(8)->SetRawData("a much longer old body", 22);
    ASSERT_EQ(0, copy->SetBuffer(buf.data(), len));
    const MessageSnapshot s = copy->Snapshot();
    EXPECT_EQ(std::make_tuple(620003, 16, 3, fields.body, fields.key, std::string("stamp")),
              std::make_tuple(s.FunctionNo(), s.IssueType(), s.PacketId(), s.Body(), s.Key(), s.PathStamp(2)));
    EXPECT_EQ(std::string("a\0b\0\0\0\0\0\0\0", 10), RawOf(copy->GetItem(8), 10));
    for (int k = 0; k < len; ++k) {
        std::vector<char> prefix(buf.begin(), buf.begin() + k), bad = buf;
        ASSERT_NE(0, copy->SetBuffer(prefix.empty() ? nullptr : prefix.data(), k)) << k;
        bad[static_cast<size_t>(k)] = static_cast<char>(0xff);
        copy->SetBuffer(bad.data(), len);  // refused or accepted, never out of bounds
    }
    ASSERT_EQ(0, copy->SetBuffer(buf.data(), len));
    ASSERT_NE(0, copy->SetBuffer(buf.data(), len - 1));
    EXPECT_EQ(16, copy->Snapshot().IssueType()) << "a refused buffer leaves the content alone";
    m->Release();
    copy->Release();
}

TEST(MessageTracking, ReleasesQuarantineAndFaultInjection) {
    CHostMessageFactory f(2);
    f.SetReportLeaks(false);
    IESBMessage* a = f.GetESBMsg();
    IESBMessage* b = f.GetESBMsg();
    IESBMessage* c = f.GetESBMsg();
    a->Release();
    a->Release();
    a->GetItem(5)->GetInt(0);  // uses a released message: recorded, harmless
    b->Prepare(0, 620200);
    b->Release();
    c->Prepare(0, 620299);
    MessageStats s = f.Stats();
    EXPECT_EQ(std::make_tuple(3ul, 2ul, 1ul, 1ul, 2ul),
              std::make_tuple(s.created, s.released, s.live, s.doubleReleases, s.usesAfterRelease));
    EXPECT_NE(std::string::npos, f.LeakReport().find("620299"));
    EXPECT_EQ(std::string::npos, f.LeakReport().find("620200"));
    c->Release();  // the quarantine now holds more than 2: `a` is handed out again
    EXPECT_TRUE(f.LeakReport().empty());
    CHostMessage* reused = f.NewMessage();
    EXPECT_EQ(a, reused);
    EXPECT_FALSE(reused->IsReleased());
    f.FailNextGetMsg(2);
    EXPECT_EQ(nullptr, f.GetESBMsg());
    EXPECT_EQ(nullptr, f.GetESBMsg());
    IESBMessage* third = f.GetESBMsg();
    f.SetGetMsgAlwaysFails(true);
    EXPECT_EQ(nullptr, f.GetESBMsg());
    CHostMessage* forced = f.NewMessage();  // NewMessage ignores injection
    EXPECT_EQ(3u, f.Stats().failedGets);
    for (IESBMessage* x : {static_cast<IESBMessage*>(reused), third, static_cast<IESBMessage*>(forced)}) x->Release();
    EXPECT_EQ(0u, f.Stats().live);
}

}  // namespace
