// OS support library (libk_os.so): threads, events, mutexes and the UDP
// broadcast receiver used by host plug-ins.
#pragma once

#include <pthread.h>

namespace KAVLE2 {

enum {
    EVENT_OK = 0,
    EVENT_TIMEOUT = 1,
    EVENT_FAILED = -1,
    EVENT_ABANDONED = 2,
};

// A thread that runs Run() once. Stop() calls Signal() (the derived loop's
// wake-up hook) and waits for Run() to return. A derived class whose Run()
// uses its own members must call Stop() in its own destructor: by the time
// ~CThread runs, the derived part no longer exists.
class CThread {
public:
    CThread();
    virtual ~CThread();
    // Wait up to `wait` ms (negative: without limit) for Run to return.
    // Returns 0 when the thread has ended (or never ran), 1 on time-out.
    virtual int Stop(long wait);
    virtual void Signal();
    virtual long Run() = 0;

    int Start();               // 0 on success
    pthread_t GetId() const;   // 0 before Start
    bool IsRunning() const;

private:
    static void* Entry(void* self);
    struct State;
    State* m_pState;
};

// Automatic- or manual-reset event.
class CEvent {
public:
    explicit CEvent(bool manualReset = false);
    ~CEvent();
    CEvent(const CEvent&) = delete;
    CEvent& operator=(const CEvent&) = delete;
    int Set();
    int Reset();
    // milliseconds; negative waits without limit.
    int Wait(long milliseconds);

private:
    pthread_mutex_t m_mutex;
    pthread_cond_t m_cond;
    bool m_bManual;
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

private:
    pthread_mutex_t m_mutex;
};

typedef int (*UDPRecvCallback)(void* context, void* data, int len);

// UDP receiver bound to a port on all addresses, broadcast allowed. Start()
// delivers every datagram to the callback on the receiver's own thread.
class CUDPBroadcast {
public:
    CUDPBroadcast();
    ~CUDPBroadcast();
    CUDPBroadcast(const CUDPBroadcast&) = delete;
    CUDPBroadcast& operator=(const CUDPBroadcast&) = delete;
    // 0 on success, else an error code (errno of the failing call).
    int Init(unsigned port, UDPRecvCallback callback, void* context);
    // Returns the buffer size the kernel granted, or -1.
    int SetRecvBufLen(int bytes);
    int Start();
    void Destroy();
    unsigned GetPort() const;            // bound port (useful with port 0)
    unsigned long GetRecvCount() const;  // datagrams delivered so far

private:
    struct Impl;
    Impl* m_pImpl;
};

// Milliseconds since the process started.
unsigned long GetTimeSinceStart();

// Totals of every CUDPBroadcast of the process: datagrams delivered to the
// callbacks, and datagrams the kernel dropped because a receive buffer was
// full (SO_RXQ_OVFL). For the host's metrics; plug-ins do not call it.
struct UDPRecvTotals {
    unsigned long received;
    unsigned long dropped;
};
UDPRecvTotals GetUDPRecvTotals();

}  // namespace KAVLE2
