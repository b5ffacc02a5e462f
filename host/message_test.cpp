// Messages, tracking of releases, the service queue and message building.
#include "host/host_message.h"
#include "host/host_queue.h"

#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>

#include <gtest/gtest.h>

#include "frame/esb_message.h"

using namespace hostemu;

namespace {

TEST(Message, ItemsPrepareAndChangeToAnswer) {
    CHostMessageFactory f;
    IESBMessage* m = f.GetESBMsg();
    ASSERT_NE(nullptr, m);
    EXPECT_EQ(nullptr, m->GetItem(-1));
    EXPECT_EQ(nullptr, m->GetItem(kMaxTag + 1));
    IESBMessageItem* route = m->GetItem(TAG_ROUTE_INFO);
    ASSERT_NE(nullptr, route);
    EXPECT_STREQ("", route->GetString(3)) << "absent strings are empty, never null";
    EXPECT_EQ(0, route->GetInt(0));
    route->SetString("ospf", 0);
    route->SetString("plugin", 3);
    EXPECT_EQ(4, route->GetCount());
    EXPECT_EQ(-1, route->SetString("x", kMaxItemIndex + 1));
    m->GetItem(TAG_PACKET_ID)->SetInt(77, 0);
    m->GetItem(TAG_MESSAGE_BODY)->SetRawData("body", 4);

    m->Prepare(PACKET_REQUEST, 620200);
    EXPECT_EQ(0, m->GetItem(TAG_PACKET_ID)->GetInt(0)) << "Prepare clears every item";
    EXPECT_STREQ("", route->GetString(0)) << "item pointers stay valid, emptied";
    int len = 5;
    EXPECT_EQ(nullptr, m->GetItem(TAG_MESSAGE_BODY)->GetRawData(&len, 0));
    EXPECT_EQ(0, len);
    EXPECT_EQ(620200, m->GetItem(TAG_FUNCTION_ID)->GetInt(0));

    m->GetItem(TAG_PACKET_ID)->SetInt(9, 0);
    m->GetItem(TAG_ROUTE_INFO)->SetString("svr", 2);
    m->ChangeToAnswer();
    MessageSnapshot s = static_cast<CHostMessage*>(m)->Snapshot();
    EXPECT_EQ(PACKET_ANSWER, s.PacketType());
    EXPECT_EQ(620200, s.FunctionNo());
    EXPECT_EQ(9, s.PacketId());
    EXPECT_EQ("svr", s.Route(2));

    // Conversions between the two value kinds.
    IESBMessageItem* it = m->GetItem(TAG_ERROR_INFO);
    it->SetInt(-15, 0);
    EXPECT_STREQ("-15", it->GetString(0));
    it->SetString("123abc", 1);
    EXPECT_EQ(123, it->GetInt(1));
    it->SetString("99999999999", 2);
    EXPECT_EQ(2147483647, it->GetInt(2));
    m->Release();
    EXPECT_EQ(0u, f.Stats().live);
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
    const void* p = m->GetBuffer(&len);
    std::vector<char> buf(static_cast<const char*>(p), static_cast<const char*>(p) + len);

    CHostMessage* copy = f.NewMessage();
    ASSERT_EQ(0, copy->SetBuffer(buf.data(), len));
    MessageSnapshot s = copy->Snapshot();
    EXPECT_EQ(620003, s.FunctionNo());
    EXPECT_EQ(16, s.IssueType());
    EXPECT_EQ(3, s.PacketId());
    EXPECT_EQ(fields.body, s.Body());
    EXPECT_EQ(fields.key, s.Key());
    EXPECT_EQ("stamp", s.PathStamp(2));

    for (int n = 0; n < len; ++n) {
        std::vector<char> prefix(buf.begin(), buf.begin() + n);
        ASSERT_NE(0, copy->SetBuffer(prefix.empty() ? nullptr : prefix.data(), n)) << n;
    }
    for (int pos = 0; pos < len; ++pos) {
        std::vector<char> bad = buf;
        bad[static_cast<size_t>(pos)] = static_cast<char>(0xff);
        copy->SetBuffer(bad.data(), len);  // refused or accepted, never out of bounds
    }
    ASSERT_EQ(0, copy->SetBuffer(buf.data(), len));
    EXPECT_EQ(16, copy->Snapshot().IssueType()) << "refused buffers left the content alone";
    m->Release();
    copy->Release();
}

TEST(MessageTracking, DoubleReleaseUseAfterReleaseAndLeaks) {
    CHostMessageFactory f(8);
    f.SetReportLeaks(false);
    IESBMessage* a = f.GetESBMsg();
    IESBMessage* b = f.GetESBMsg();
    IESBMessage* c = f.GetESBMsg();
    a->Prepare(0, 620031);
    a->Release();
    a->Release();
    EXPECT_EQ(1u, f.Stats().doubleReleases);
    a->GetItem(5)->GetInt(0);  // reads a released message: recorded, harmless
    EXPECT_EQ(2u, f.Stats().usesAfterRelease) << "GetItem and GetInt";
    b->Prepare(0, 620200);
    b->Release();
    b->Prepare(0, 1);
    EXPECT_EQ(3u, f.Stats().usesAfterRelease);
    c->Prepare(0, 620299);
    MessageStats s = f.Stats();
    EXPECT_EQ(3u, s.created);
    EXPECT_EQ(2u, s.released);
    EXPECT_EQ(1u, s.live);
    std::string report = f.LeakReport();
    EXPECT_NE(std::string::npos, report.find("620299"));
    EXPECT_EQ(std::string::npos, report.find("620200"));
    c->Release();
    EXPECT_TRUE(f.LeakReport().empty());
}

TEST(MessageTracking, QuarantineReusesObjectsOnlyAfterTheLimit) {
    CHostMessageFactory f(2);
    CHostMessage* first = f.NewMessage();
    first->Release();
    CHostMessage* m2 = f.NewMessage();
    m2->Release();
    CHostMessage* m3 = f.NewMessage();
    EXPECT_NE(first, m3);
    m3->Release();  // quarantine now exceeds 2: `first` becomes reusable
    CHostMessage* m4 = f.NewMessage();
    EXPECT_EQ(first, m4);
    EXPECT_FALSE(m4->IsReleased());
    EXPECT_NE(first->Serial(), 1u);
    m4->Release();
    EXPECT_EQ(0u, f.Stats().doubleReleases);
}

TEST(MessageFactory, FaultInjection) {
    CHostMessageFactory f;
    f.FailNextGetMsg(3);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(nullptr, f.GetESBMsg());
    IESBMessage* m = f.GetESBMsg();
    ASSERT_NE(nullptr, m) << "the fourth call succeeds";
    EXPECT_EQ(3u, f.Stats().failedGets);
    m->Release();
    f.SetGetMsgAlwaysFails(true);
    for (int i = 0; i < 10; ++i) EXPECT_EQ(nullptr, f.GetESBMsg());
    IESBMessage* forced = f.NewMessage();
    EXPECT_NE(nullptr, forced) << "NewMessage ignores injection";
    f.SetGetMsgAlwaysFails(false);
    f.SetReportLeaks(false);
    EXPECT_EQ(1u, f.Stats().live);
}

TEST(Queue, PopWaitsInMillisecondsAndCounts) {
    CHostMessageFactory f;
    IESBQ* q = f.GetESBQ();
    IMessageService* from = reinterpret_cast<IMessageService*>(1);
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(nullptr, q->PopMsg(40, &from, 0));
    auto waited = std::chrono::steady_clock::now() - t0;
    EXPECT_GE(waited, std::chrono::milliseconds(35));
    EXPECT_LT(waited, std::chrono::seconds(2));
    EXPECT_EQ(nullptr, from);

    IESBMessage* a = f.GetESBMsg();
    IESBMessage* b = f.GetESBMsg();
    q->PushMsg(a, nullptr, 0);
    q->PushMsg(b, reinterpret_cast<IMessageService*>(&f), 0);
    EXPECT_EQ(2, q->GetMsgCount());
    EXPECT_EQ(a, q->PopMsg(0, &from, 0));
    EXPECT_EQ(b, q->PopMsg(0, &from, 0));
    EXPECT_EQ(reinterpret_cast<IMessageService*>(&f), from);
    EXPECT_EQ(0, q->GetMsgCount());
    EXPECT_EQ(2, q->GetMaxMsgCount());
    EXPECT_EQ(2, q->GetDealedCount());
    a->Release();
    b->Release();
}

TEST(Queue, NullPushWakesExactlyOneWaitingWorker) {
    CHostMessageFactory f;
    IESBQ* q = f.GetESBQ();
    std::atomic<int> woke{0};
    std::atomic<bool> stop{false};
    auto worker = [&] {
        while (!stop.load()) {
            IMessageService* from = nullptr;
            if (q->PopMsg(5000, &from, 0) == nullptr && !stop.load()) ++woke;
        }
    };
    std::thread w1(worker), w2(worker);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    q->PushMsg(nullptr, nullptr, 0);
    for (int i = 0; i < 200 && woke.load() < 1; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(1, woke.load()) << "one wake-up, one worker";
    stop = true;
    q->PushMsg(nullptr, nullptr, 0);
    q->PushMsg(nullptr, nullptr, 0);
    w1.join();
    w2.join();
    EXPECT_EQ(0, q->GetDealedCount());
}

TEST(Queue, MessagesLeftInTheQueueAreGivenBackNotLeaked) {
    auto f = std::make_unique<CHostMessageFactory>();
    f->GetESBQ()->PushMsg(f->GetESBMsg(), nullptr, 0);
    f->GetESBQ()->PushMsg(nullptr, nullptr, 0);
    EXPECT_EQ(1, f->Queue().Drain());
    EXPECT_EQ(0u, f->Stats().live);
}

}  // namespace
