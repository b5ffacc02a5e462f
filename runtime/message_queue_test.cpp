// The datagram queue and the intake around it.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

#include "frame/tikron_service.h"
#include "runtime/message_queue.h"

TEST(MessageQueue, FifoTryPopAndBoundedPop) {
    CMessageQueue<int*> q;
    int a = 1, b = 2;
    EXPECT_EQ(nullptr, q.TryPop());
    EXPECT_EQ(nullptr, q.Pop(0));
    EXPECT_EQ(nullptr, q.Pop(20));  // times out empty
    q.Push(&a);
    q.Push(&b);
    EXPECT_EQ(&a, q.Pop(0));
    EXPECT_EQ(&b, q.Pop(1000));
    EXPECT_EQ(nullptr, q.TryPop());
}

TEST(MessageQueue, ProducerToConsumerKeepsArrivalOrder) {
    CMessageQueue<char*> q;
    const int kItems = 20000;
    std::vector<char> items(kItems);
    std::thread producer([&] {
        for (int i = 0; i < kItems; ++i) q.Push(&items[i]);
    });
    int got = 0;
    for (int spins = 0; got < kItems && spins < kItems * 4; ++spins) {
        char* p = q.Pop(1000);
        if (p == nullptr) continue;
        ASSERT_EQ(&items[got], p);
        ++got;
    }
    producer.join();
    EXPECT_EQ(kItems, got);
}

TEST(MessageQueue, WakeReleasesAWaitingConsumer) {
    CMessageQueue<char*> q;
    std::thread waker([&] { q.Wake(); });
    EXPECT_EQ(nullptr, q.Pop(5000));
    waker.join();
}

// The service's intake: refusals, and queued datagrams of every kind are
// consumed and freed (an unknown type too) before destruction ends.
TEST(UdpIntake, RefusesEmptyInputAndDrainsQueue) {
    CTIKRONServiceImpl* svc = new CTIKRONServiceImpl();
    char text[] = "Q00003abc";
    EXPECT_EQ(-1, svc->mf_OnUDPReceive(nullptr, 5));
    EXPECT_EQ(-1, svc->mf_OnUDPReceive(text, 0));
    EXPECT_EQ(-1, svc->mf_OnUDPReceive(text, -3));
    EXPECT_EQ(-1, CTIKRONServiceImpl::OnUDPReceive(nullptr, text, 9));
    EXPECT_EQ(-2, svc->DoUDPHelper(text, 9));
    svc->m_iDealUdpHq = 0;
    svc->m_iDealUdpHb = 0;
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(0, CTIKRONServiceImpl::OnUDPReceive(svc, text, 9));
        char hq[] = "000003abc";
        ASSERT_EQ(0, svc->mf_OnUDPReceive(hq, 9));
    }
    for (int i = 0; i < 300 && svc->m_qUDPData.Size() != 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(0u, svc->m_qUDPData.Size());
    // Items still queued at destruction are freed with the service.
    for (int i = 0; i < 10; ++i) svc->mf_OnUDPReceive(text, 9);
    svc->Release();
}
