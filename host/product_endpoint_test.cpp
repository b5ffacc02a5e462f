// The outbox: what the writer sees of a posted message, records reused
// across batches, the packet id of an answer rewritten, a full queue.
#include "host/product_endpoint.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <tuple>

#include <gtest/gtest.h>

#include "host/host_queue.h"

using namespace product;

namespace {

struct Seen {
    int packetType, function, packetId, issueType;
    std::string key, body, encoded;
};

// Posts a message with items 3, 5, 11, 53, a body (8) and a key (54) when
// `key` is not empty.
void PostOne(COutbox& box, hostemu::CHostMessageFactory& f, int function, int id, const std::string& key) {
    hostemu::CHostMessage* m = f.NewMessage();
    m->Prepare(0, function);
    m->GetItem(11)->SetInt(id, 0);
    m->GetItem(53)->SetString("22", 0);  // read as a number, like the host reads it
    m->GetItem(8)->SetRawData("body", 4);
    if (!key.empty()) m->GetItem(54)->SetRawData(key.data(), static_cast<int>(key.size()));
    box.Push(m);
}

}  // namespace

TEST(Outbox, WriterSeesThePostedMessageAndRecordsAreReused) {
    hostemu::CHostMessageFactory f(0);
    COutbox box;
    std::mutex mu;
    std::condition_variable cv;
    std::vector<Seen> seen;
    box.Start(
        [&](COutgoing& o) {
            if (o.Int(11) == 3) o.SetPacketId(77);  // an answer goes back with the asker's id
            const auto key = o.Raw(54), body = o.Raw(8);
            const auto e = o.Encoded();
            std::lock_guard<std::mutex> lock(mu);
            seen.push_back({o.Int(3), o.Int(5), o.Int(11), o.Int(53),
                            key.first ? std::string(static_cast<const char*>(key.first), key.second) : "",
                            body.first ? std::string(static_cast<const char*>(body.first), body.second) : "",
                            std::string(e.first, e.second)});
            cv.notify_all();
        },
        nullptr, nullptr);
    // Rounds of several batches, so the posting side refills records the
    // writer gave back: a message without key after one with a key has none.
    const std::vector<std::pair<int, std::string>> rounds = {{1, "IF2612"}, {2, ""}, {3, "ag2701"}, {4, ""}};
    for (size_t r = 1; r <= 3; ++r) {
        for (const auto& p : rounds) PostOne(box, f, 620003, p.first, p.second);
        std::unique_lock<std::mutex> lock(mu);
        ASSERT_TRUE(cv.wait_for(lock, std::chrono::seconds(5), [&] { return seen.size() == r * rounds.size(); }));
    }
    box.Stop();
    EXPECT_EQ(0u, f.Stats().live) << "every message is released when posted";
    for (size_t i = 0; i < seen.size(); ++i) {
        const auto& want = rounds[i % rounds.size()];
        const Seen& s = seen[i];
        const int id = want.first == 3 ? 77 : want.first;
        EXPECT_EQ(std::make_tuple(0, 620003, id, 22, want.second, std::string("body")),
                  std::make_tuple(s.packetType, s.function, s.packetId, s.issueType, s.key, s.body))
            << "message " << i;
        hostemu::MessageSnapshot snap;
        ASSERT_EQ(0, hostemu::DecodeMessage(s.encoded.data(), static_cast<int>(s.encoded.size()), &snap));
        EXPECT_EQ(id, snap.PacketId()) << "the encoding carries the rewritten id";
        EXPECT_EQ(want.second.empty(), !snap.Has(54));
    }
}

TEST(Outbox, FullQueueDropsAndReleases) {
    hostemu::CHostMessageFactory f(0);
    COutbox box(2);
    std::atomic<bool> hold{true}, entered{false};
    std::atomic<int> handled{0};
    box.Start(
        [&](COutgoing&) {
            entered = true;
            while (hold) std::this_thread::sleep_for(std::chrono::milliseconds(1));
            ++handled;
        },
        nullptr, nullptr);
    PostOne(box, f, 620003, 1, "a");  // taken by the writer, which then waits
    for (int i = 0; i < 5000 && !entered; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (!entered) {
        hold = false;  // lets the writer go, so the outbox can stop
        FAIL() << "the writer never took the first message";
    }
    int taken = 0;
    for (int i = 0; i < 5; ++i) {
        hostemu::CHostMessage* m = f.NewMessage();
        m->Prepare(0, 620003);
        taken += box.Push(m) ? 1 : 0;
    }
    EXPECT_EQ(2, taken);
    EXPECT_EQ(3u, box.Dropped());
    EXPECT_EQ(0u, f.Stats().live);
    hold = false;
    box.Stop();
    EXPECT_EQ(3, handled.load());
}
