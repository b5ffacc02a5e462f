// FIFO between the UDP receiving thread (producer) and the datagram consumer
// thread. The lock guards only the list; the event is signalled outside it.
#pragma once

#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <chrono>
#include <deque>

#include "runtime/vl_sync.h"

// Plain non-recursive process-private mutex.
class ManualLock {
public:
    ManualLock() { pthread_mutex_init(&m_mutex, nullptr); }
    ~ManualLock() { pthread_mutex_destroy(&m_mutex); }
    ManualLock(const ManualLock&) = delete;
    ManualLock& operator=(const ManualLock&) = delete;
    void Lock() { pthread_mutex_lock(&m_mutex); }
    void UnLock() { pthread_mutex_unlock(&m_mutex); }

private:
    pthread_mutex_t m_mutex;
};

template <typename T>
class CMessageQueue {
public:
    CMessageQueue() = default;
    CMessageQueue(const CMessageQueue&) = delete;
    CMessageQueue& operator=(const CMessageQueue&) = delete;

    // Appends; wakes the consumer when the queue was empty before.
    void Push(T item) {
        lock.Lock();
        lst.push_back(item);
        m_count.store(lst.size(), std::memory_order_release);
        bool first = lst.size() == 1;
        lock.UnLock();
        if (first) evt.Notify();
    }

    // Front item, or a value-initialised T (null) when empty.
    T TryPop() {
        lock.Lock();
        T item{};
        if (!lst.empty()) {
            item = lst.front();
            lst.pop_front();
            m_count.store(lst.size(), std::memory_order_release);
        }
        lock.UnLock();
        return item;
    }

    // Waits up to ms milliseconds for an item when the queue is empty.
    T Pop(long ms) {
        T item = TryPop();
        if (item != T{} || ms == 0) return item;
        evt.Wait(ms);
        return TryPop();
    }

    // Moves every queued item, in order, to the end of out (one lock for the
    // lot, so a busy consumer and the producer meet on the lock once per
    // batch, not once per item); waits up to ms milliseconds when the queue
    // is empty. Returns the number of items moved.
    //
    // pollUs > 0: before it sleeps, the caller keeps looking at the queue
    // for up to pollUs microseconds, giving the CPU to any other runnable
    // thread between looks. An item pushed meanwhile is taken without a
    // wake-up, which on virtual machines costs tens of microseconds (the
    // idle CPU must be woken first); the price is that CPU time.
    size_t PopAll(std::deque<T>& out, long ms, long pollUs = 0) {
        size_t n = TakeAll(out);
        if (n != 0 || ms == 0) return n;
        if (pollUs > 0) {
            const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(pollUs);
            do {
                sched_yield();
                if (m_count.load(std::memory_order_acquire) != 0) return TakeAll(out);
            } while (std::chrono::steady_clock::now() < until);
        }
        evt.Wait(ms);
        return TakeAll(out);
    }

    // Wakes a waiting consumer without an item (used when stopping).
    void Wake() { evt.Notify(); }

    size_t Size() {
        lock.Lock();
        size_t n = lst.size();
        lock.UnLock();
        return n;
    }

private:
    size_t TakeAll(std::deque<T>& out) {
        lock.Lock();
        size_t n = lst.size();
        if (out.empty()) {
            lst.swap(out);  // keeps out's old storage for the next batch
        } else {
            out.insert(out.end(), lst.begin(), lst.end());
            lst.clear();
        }
        m_count.store(0, std::memory_order_release);
        lock.UnLock();
        return n;
    }

    CEvent evt;
    ManualLock lock;
    std::deque<T> lst;
    std::atomic<size_t> m_count{0};  // lst.size(), readable without the lock
};
