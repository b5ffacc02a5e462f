// OS support library: threads, events, the mutex and the UDP receiver.
#include "kos/kavle2.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "testing/temp_dir.h"

using namespace KAVLE2;
using std::chrono::milliseconds;

namespace {

// Runs until signalled, or (stubborn) until released.
struct TestThread : CThread {
    explicit TestThread(bool stubborn) : stubborn(stubborn) {}
    ~TestThread() override { Stop(-1); }
    long Run() override {
        for (++runs; stubborn ? !release.load() : ev.Wait(1000) != EVENT_OK;) std::this_thread::sleep_for(milliseconds(1));
        return 0;
    }
    void Signal() override { ev.Set(); }
    const bool stubborn;
    CEvent ev;  // automatic reset
    std::atomic<int> runs{0};
    std::atomic<bool> release{false};
};

TEST(Thread, StartStopTimeoutEventsAndRecursiveMutex) {
    TestThread t(false);
    EXPECT_EQ(pthread_t{}, t.GetId());
    ASSERT_EQ(0, t.Start());
    EXPECT_NE(pthread_t{}, t.GetId());
    EXPECT_EQ(-1, t.Start()) << "a running thread cannot be started twice";
    EXPECT_EQ(0, t.Stop(2000));
    EXPECT_FALSE(t.IsRunning());
    EXPECT_EQ(1, t.runs.load());
    auto* stubborn = new TestThread(true);
    ASSERT_EQ(0, stubborn->Start());
    EXPECT_EQ(1, stubborn->Stop(50)) << "Run ignores the signal: a time-out";
    stubborn->release = true;
    delete stubborn;  // joins, never leaves the thread on freed memory
    CEvent manual(true);
    EXPECT_EQ(EVENT_TIMEOUT, t.ev.Wait(10));
    t.ev.Set();
    EXPECT_EQ(EVENT_OK, t.ev.Wait(0));
    EXPECT_EQ(EVENT_TIMEOUT, t.ev.Wait(0)) << "reset after one successful wait";
    manual.Set();
    EXPECT_EQ(EVENT_OK, manual.Wait(0));
    EXPECT_EQ(EVENT_OK, manual.Wait(0));
    manual.Reset();
    EXPECT_EQ(EVENT_TIMEOUT, manual.Wait(5));
    CThreadMutex m;
    ASSERT_EQ(0, m.Acquire());
    ASSERT_EQ(0, m.Acquire());
    std::atomic<bool> got{false};
    std::thread other([&] { m.Acquire(), got = true, m.Release(); });
    m.Release();
    std::this_thread::sleep_for(milliseconds(30));
    EXPECT_FALSE(got.load()) << "still held once";
    m.Release();
    other.join();
}

// Datagrams reach the callback whole and in order; a port held elsewhere is
// EADDRINUSE; Destroy returns at once (under load: the shutdown test).
TEST(UDPBroadcast, ReceivesInOrderAndStopsAtOnce) {
    std::atomic<int> count{0};
    std::string first;
    auto callback = [](void* ctx, void* data, int len) {
        auto* self = static_cast<std::pair<std::atomic<int>*, std::string*>*>(ctx);
        if (++*self->first <= 2) self->second->append(static_cast<char*>(data), static_cast<size_t>(len)) += '|';
        return 0;
    };
    std::pair<std::atomic<int>*, std::string*> ctx{&count, &first};
    CUDPBroadcast rx, second;
    ASSERT_EQ(0, rx.Init(0, callback, &ctx));
    EXPECT_GT(rx.SetRecvBufLen(256 * 1024), 0);  // what was granted; may be capped without privileges
    ASSERT_EQ(0, rx.Start());
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);  // holds a port, bound without SO_REUSEADDR
    sockaddr_in a{};
    a.sin_family = AF_INET;
    socklen_t len = sizeof a;
    ASSERT_EQ(0, bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a));
    ASSERT_EQ(0, getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len));
    EXPECT_EQ(EADDRINUSE, second.Init(ntohs(a.sin_port), callback, &ctx));
    a.sin_port = htons(static_cast<uint16_t>(rx.GetPort()));
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto send = [&](const std::string& d) { sendto(fd, d.data(), d.size(), 0, reinterpret_cast<sockaddr*>(&a), sizeof a); };
    send("0,first");
    send(std::string("1\0binary", 8));
    ASSERT_TRUE(testing_support::WaitUntil([&] { return count.load() >= 2; }));
    EXPECT_EQ(std::string("0,first|1\0binary|", 17), first);
    EXPECT_EQ(2ul, rx.GetRecvCount());
    const auto t0 = std::chrono::steady_clock::now();
    rx.Destroy();
    EXPECT_LT(std::chrono::steady_clock::now() - t0, milliseconds(300)) << "an idle receiver stops at once";
    close(fd);
}

}  // namespace
