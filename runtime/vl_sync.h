// Synchronisation primitives on POSIX threads used by the log (VL::) and by
// the datagram queue (CEvent).
#pragma once

#include <pthread.h>

namespace VL {

// Event with a signalled flag; Wait clears the flag on success.
class CEvent {
public:
    explicit CEvent(bool initial = false);
    ~CEvent();
    CEvent(const CEvent&) = delete;
    CEvent& operator=(const CEvent&) = delete;
    int Set();
    void Reset();
    // 0 when signalled, 1 on time-out, -1 on another error; -1 ms waits without limit.
    int Wait(long ms);

private:
    pthread_mutex_t m_mutex;
    pthread_cond_t m_cond;
    bool m_bSignaled;
};

// Recursive mutex.
class CThreadMutex {
public:
    CThreadMutex();
    ~CThreadMutex();
    CThreadMutex(const CThreadMutex&) = delete;
    CThreadMutex& operator=(const CThreadMutex&) = delete;
    int Acquire();
    int Release();
    int TryAcquire();

private:
    pthread_mutex_t m_mutex;
};

// Scoped Acquire/Release.
class CAutoLock {
public:
    explicit CAutoLock(CThreadMutex& m) : m_m(m) { m_m.Acquire(); }
    ~CAutoLock() { m_m.Release(); }
    CAutoLock(const CAutoLock&) = delete;
    CAutoLock& operator=(const CAutoLock&) = delete;

private:
    CThreadMutex& m_m;
};

}  // namespace VL

enum EventWaitState {
    EVENT_SIGNALED = 0,
    EVENT_TIMEOUT = 1,
    EVENT_ERROR = 2,
};

// Condition-variable event of the datagram queue.
class CEvent {
public:
    CEvent();
    ~CEvent();
    CEvent(const CEvent&) = delete;
    CEvent& operator=(const CEvent&) = delete;
    void Notify();
    void Reset();
    // ms negative waits without limit (a single wait).
    EventWaitState Wait(long ms);

private:
    pthread_cond_t ptcond;
    pthread_mutex_t mutex;
    bool bSignaled;
};
