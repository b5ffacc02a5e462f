// OS support library: threads, events, mutexes and the UDP receiver.
#include "kos/kavle2.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

using namespace KAVLE2;

namespace {

class LoopThread : public CThread {
public:
    ~LoopThread() override { Stop(-1); }
    long Run() override {
        ++runs;
        while (ev.Wait(1000) != EVENT_OK) {
        }
        return 0;
    }
    void Signal() override { ev.Set(); }
    CEvent ev;
    std::atomic<int> runs{0};
};

class StubbornThread : public CThread {
public:
    ~StubbornThread() override { Stop(-1); }
    long Run() override {
        while (!release.load()) std::this_thread::sleep_for(std::chrono::milliseconds(5));
        return 0;
    }
    std::atomic<bool> release{false};
};

TEST(Thread, StartRunsOnceAndStopWaitsForRun) {
    LoopThread t;
    EXPECT_EQ(pthread_t{}, t.GetId());
    ASSERT_EQ(0, t.Start());
    EXPECT_NE(pthread_t{}, t.GetId());
    EXPECT_EQ(-1, t.Start()) << "a running thread cannot be started twice";
    EXPECT_EQ(0, t.Stop(2000));
    EXPECT_FALSE(t.IsRunning());
    EXPECT_EQ(1, t.runs.load());
    EXPECT_EQ(0, t.Stop(0)) << "stopping a stopped thread is harmless";
}

TEST(Thread, StopTimesOutWhileRunIgnoresSignalThenDestructorWaits) {
    auto* t = new StubbornThread;
    ASSERT_EQ(0, t->Start());
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(1, t->Stop(50));
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(2));
    EXPECT_TRUE(t->IsRunning());
    t->release = true;
    delete t;  // must join, not leave the thread running on freed memory
}

TEST(Thread, DeletingARunningThreadStopsIt) {
    auto* t = new LoopThread;
    ASSERT_EQ(0, t->Start());
    delete t;
}

TEST(Event, AutoResetManualResetAndTimeout) {
    CEvent autoEv(false);
    EXPECT_EQ(EVENT_TIMEOUT, autoEv.Wait(10));
    autoEv.Set();
    EXPECT_EQ(EVENT_OK, autoEv.Wait(0));
    EXPECT_EQ(EVENT_TIMEOUT, autoEv.Wait(0)) << "automatic reset after one successful wait";

    CEvent manual(true);
    manual.Set();
    EXPECT_EQ(EVENT_OK, manual.Wait(0));
    EXPECT_EQ(EVENT_OK, manual.Wait(0));
    manual.Reset();
    EXPECT_EQ(EVENT_TIMEOUT, manual.Wait(5));

    CEvent cross(false);
    std::thread setter([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        cross.Set();
    });
    EXPECT_EQ(EVENT_OK, cross.Wait(5000));
    setter.join();
}

TEST(Mutex, IsRecursiveAndExcludesOtherThreads) {
    CThreadMutex m;
    ASSERT_EQ(0, m.Acquire());
    ASSERT_EQ(0, m.Acquire());
    std::atomic<bool> got{false};
    std::thread other([&] {
        m.Acquire();
        got = true;
        m.Release();
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_FALSE(got.load());
    m.Release();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_FALSE(got.load()) << "still held once";
    m.Release();
    other.join();
    EXPECT_TRUE(got.load());
}

TEST(Clock, TimeSinceStartAdvances) {
    unsigned long a = GetTimeSinceStart();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    unsigned long b = GetTimeSinceStart();
    EXPECT_GE(b - a, 15ul);
    EXPECT_LT(b, 24ul * 3600 * 1000);
}

struct Sink {
    std::mutex m;
    std::vector<std::string> got;
    std::atomic<int> count{0};
    static int Callback(void* ctx, void* data, int len) {
        auto* s = static_cast<Sink*>(ctx);
        {
            std::lock_guard<std::mutex> l(s->m);
            if (s->got.size() < 1000) s->got.emplace_back(static_cast<char*>(data), static_cast<size_t>(len));
        }
        ++s->count;
        return 0;
    }
};

int SendTo(unsigned port, const std::string& text, int times = 1) {
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    if (fd < 0) return -1;
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int sent = 0;
    for (int i = 0; i < times; ++i)
        if (sendto(fd, text.data(), text.size(), 0, reinterpret_cast<sockaddr*>(&a), sizeof(a)) ==
            static_cast<ssize_t>(text.size()))
            ++sent;
    close(fd);
    return sent;
}

bool WaitCount(const std::atomic<int>& c, int n, int ms) {
    for (int i = 0; i < ms / 5 && c.load() < n; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return c.load() >= n;
}

TEST(UDPBroadcast, ReceivesDatagramsOnItsOwnThreadInOrder) {
    Sink sink;
    CUDPBroadcast rx;
    ASSERT_EQ(0, rx.Init(0, &Sink::Callback, &sink));
    unsigned port = rx.GetPort();
    ASSERT_NE(0u, port);
    ASSERT_EQ(0, rx.Start());
    EXPECT_NE(0, rx.Start()) << "second Start refused";
    ASSERT_EQ(1, SendTo(port, "0,first"));
    ASSERT_EQ(1, SendTo(port, std::string("1\0binary", 8)));
    ASSERT_TRUE(WaitCount(sink.count, 2, 3000));
    {
        std::lock_guard<std::mutex> l(sink.m);
        EXPECT_EQ("0,first", sink.got[0]);
        EXPECT_EQ(std::string("1\0binary", 8), sink.got[1]);
    }
    EXPECT_EQ(2ul, rx.GetRecvCount());
    rx.Destroy();
    EXPECT_EQ(0u, rx.GetPort());
}

TEST(UDPBroadcast, ReportsGrantedBufferAndRefusesBeforeInit) {
    CUDPBroadcast rx;
    EXPECT_EQ(-1, rx.SetRecvBufLen(1 << 20)) << "no socket yet";
    EXPECT_NE(0, rx.Start());
    Sink sink;
    ASSERT_EQ(0, rx.Init(0, &Sink::Callback, &sink));
    int granted = rx.SetRecvBufLen(256 * 1024);
    // Linux doubles the request for bookkeeping; without privileges it may be capped.
    EXPECT_GT(granted, 0);
    EXPECT_EQ(-1, rx.SetRecvBufLen(0));
}

TEST(UDPBroadcast, PortHeldByAnotherSocketIsAnError) {
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    ASSERT_GE(fd, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_ANY);
    ASSERT_EQ(0, bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof(a)));
    socklen_t len = sizeof(a);
    ASSERT_EQ(0, getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len));
    CUDPBroadcast rx;
    Sink sink;
    EXPECT_EQ(EADDRINUSE, rx.Init(ntohs(a.sin_port), &Sink::Callback, &sink));
    EXPECT_NE(0, rx.Init(70000, &Sink::Callback, &sink)) << "port out of range";
    close(fd);
}

TEST(UDPBroadcast, DestroyReturnsQuicklyWhileDatagramsKeepArriving) {
    Sink sink;
    auto rx = std::make_unique<CUDPBroadcast>();
    ASSERT_EQ(0, rx->Init(0, &Sink::Callback, &sink));
    unsigned port = rx->GetPort();
    ASSERT_EQ(0, rx->Start());
    std::atomic<bool> stop{false};
    std::thread sender([&] {
        for (int i = 0; i < 20000 && !stop.load(); ++i) SendTo(port, "9,flood", 20);
    });
    ASSERT_TRUE(WaitCount(sink.count, 100, 5000));
    auto t0 = std::chrono::steady_clock::now();
    rx->Destroy();
    auto took = std::chrono::steady_clock::now() - t0;
    int after = sink.count.load();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(after, sink.count.load()) << "no callback after Destroy";
    stop = true;
    sender.join();
    EXPECT_LT(took, std::chrono::milliseconds(500));
    rx.reset();
}

TEST(UDPBroadcast, IdleReceiverStopsWithinAFractionOfASecond) {
    Sink sink;
    CUDPBroadcast rx;
    ASSERT_EQ(0, rx.Init(0, &Sink::Callback, &sink));
    ASSERT_EQ(0, rx.Start());
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    auto t0 = std::chrono::steady_clock::now();
    rx.Destroy();
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(300));
    rx.Destroy();  // twice is harmless
}

}  // namespace
