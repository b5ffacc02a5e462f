// Batch taking from the datagram queue: order, appending, waiting.
#include <gtest/gtest.h>

#include <chrono>
#include <deque>
#include <thread>

#include "runtime/message_queue.h"

namespace {

TEST(MessageQueueBatch, TakesEverythingInOrderAndAppends) {
    CMessageQueue<long> q;
    for (long i = 1; i <= 5; ++i) q.Push(i);
    std::deque<long> out{-1};
    EXPECT_EQ(q.PopAll(out, 0), 5u);
    EXPECT_EQ(out, (std::deque<long>{-1, 1, 2, 3, 4, 5}));
    EXPECT_EQ(q.Size(), 0u);
    // Drained: the next push wakes a consumer again.
    out.clear();
    q.Push(6);
    EXPECT_EQ(q.PopAll(out, 0), 1u);
    EXPECT_EQ(out, (std::deque<long>{6}));
}

TEST(MessageQueueBatch, WaitsBoundedAndWakesOnPush) {
    CMessageQueue<long> q;
    std::deque<long> out;
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(q.PopAll(out, 30), 0u);
    EXPECT_GE(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(20));
    std::thread producer([&q] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        q.Push(7);
    });
    size_t n = 0;
    for (int i = 0; i < 50 && n == 0; ++i) n = q.PopAll(out, 100);
    producer.join();
    EXPECT_EQ(n, 1u);
    EXPECT_EQ(out, (std::deque<long>{7}));
}

}  // namespace
