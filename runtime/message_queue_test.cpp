// The datagram queue (order, batch takes, bounded waits, wake-ups) and the
// service's intake in front of it.
#include <gtest/gtest.h>

#include <chrono>
#include <deque>
#include <thread>

#include "frame/tikron_service.h"
#include "runtime/message_queue.h"
#include "testing/temp_dir.h"

namespace {

using Clock = std::chrono::steady_clock;

long MsSince(Clock::time_point t0) {
    return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - t0).count());
}

TEST(MessageQueue, SingleAndBatchTakesKeepArrivalOrder) {
    CMessageQueue<long> q;
    EXPECT_EQ(0, q.TryPop());
    EXPECT_EQ(0, q.Pop(0));
    for (long i = 1; i <= 5; ++i) q.Push(i);
    EXPECT_EQ(1, q.TryPop());
    EXPECT_EQ(2, q.Pop(1000));
    EXPECT_EQ(3u, q.Size());
    std::deque<long> out{-1};
    EXPECT_EQ(3u, q.PopAll(out, 0));  // appended behind what out holds
    EXPECT_EQ((std::deque<long>{-1, 3, 4, 5}), out);
    EXPECT_EQ(0u, q.Size());
    out.clear();
    q.Push(6);
    EXPECT_EQ(1u, q.PopAll(out, 0));
    EXPECT_EQ((std::deque<long>{6}), out);
}

// An empty queue waits its time; a push to it or a Wake ends a wait early,
// also one that looks at the queue for a while before it sleeps (round 3).
TEST(MessageQueue, WaitsAreBoundedAndEndedByPushOrWake) {
    CMessageQueue<long> q;
    std::deque<long> out;
    auto t0 = Clock::now();
    EXPECT_EQ(0, q.Pop(40));
    EXPECT_EQ(0u, q.PopAll(out, 40));
    EXPECT_GE(MsSince(t0), 70);
    for (int round = 0; round < 4; ++round) {
        SCOPED_TRACE(round);
        std::thread other([&q, round] {
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
            round == 2 ? q.Wake() : q.Push(7);
        });
        t0 = Clock::now();
        if (round == 1 || round == 3) {
            out.clear();
            EXPECT_EQ(1u, q.PopAll(out, 4000, round == 3 ? 100000 : 0));
            EXPECT_EQ(std::deque<long>{7}, out);
        } else {
            EXPECT_EQ(round == 0 ? 7 : 0, q.Pop(4000));
        }
        EXPECT_LT(MsSince(t0), 2000);
        other.join();
    }
}

// Refusals, and queued datagrams of every kind (an unknown type too) are
// consumed; what is still queued at destruction is freed with the service.
TEST(UdpIntake, RefusesEmptyInputAndDrainsTheQueue) {
    CTIKRONServiceImpl* svc = new CTIKRONServiceImpl();
    char text[] = "Q00003abc";
    EXPECT_EQ(-1, svc->mf_OnUDPReceive(nullptr, 5));
    EXPECT_EQ(-1, svc->mf_OnUDPReceive(text, 0));
    EXPECT_EQ(-1, svc->mf_OnUDPReceive(text, -3));
    EXPECT_EQ(-1, CTIKRONServiceImpl::OnUDPReceive(nullptr, text, 9));
    EXPECT_EQ(-2, svc->DoUDPHelper(text, 9));
    EXPECT_EQ(-2, svc->DoUDPHelper(text, 0));
    svc->m_iDealUdpHq = 0;
    svc->m_iDealUdpHb = 0;
    char hq[] = "000003abc";
    EXPECT_EQ(0, svc->DoUDPHelper(hq, 1));  // switched off: not even checked
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(0, CTIKRONServiceImpl::OnUDPReceive(svc, text, 9));
        ASSERT_EQ(0, svc->mf_OnUDPReceive(hq, 9));
    }
    EXPECT_TRUE(testing_support::WaitUntil([svc] { return svc->m_qUDPData.Size() == 0; }));
    for (int i = 0; i < 10; ++i) svc->mf_OnUDPReceive(text, 9);
    svc->Release();
}

}  // namespace
