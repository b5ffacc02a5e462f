// OS support library: threads, events, recursive mutexes, the UDP broadcast
// receiver and the process clock.
#include "kos/kavle2.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <vector>

namespace KAVLE2 {

namespace {

timespec Deadline(long ms) {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    ts.tv_sec += ms / 1000;
    ts.tv_nsec += (ms % 1000) * 1000000L;
    if (ts.tv_nsec >= 1000000000L) {
        ts.tv_sec += 1;
        ts.tv_nsec -= 1000000000L;
    }
    return ts;
}

void InitMonotonicCond(pthread_cond_t* cond) {
    pthread_condattr_t attr;
    pthread_condattr_init(&attr);
    pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
    pthread_cond_init(cond, &attr);
    pthread_condattr_destroy(&attr);
}

unsigned long NowMs() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<unsigned long>(ts.tv_sec) * 1000UL + static_cast<unsigned long>(ts.tv_nsec / 1000000L);
}

// Taken when the library is loaded, i.e. at process start for a linked library.
const unsigned long g_startMs = NowMs();

}  // namespace

unsigned long GetTimeSinceStart() { return NowMs() - g_startMs; }

// --- CThread ---------------------------------------------------------------

struct CThread::State {
    pthread_mutex_t mutex;
    pthread_cond_t cond;
    pthread_t tid{};
    bool started = false;  // an OS thread exists and was not joined yet
    bool finished = false; // Run returned
};

CThread::CThread() : m_pState(new State) {
    pthread_mutex_init(&m_pState->mutex, nullptr);
    InitMonotonicCond(&m_pState->cond);
}

CThread::~CThread() {
    // A derived object should have stopped its thread already; here only the
    // base part is left, so wait (without a limit) rather than let Run touch
    // freed memory. A warning tells about a long wait.
    if (IsRunning()) {
        while (Stop(5000) != 0) fprintf(stderr, "KAVLE2::CThread: still waiting for a thread to end\n");
    } else {
        Stop(0);  // joins a finished thread
    }
    pthread_cond_destroy(&m_pState->cond);
    pthread_mutex_destroy(&m_pState->mutex);
    delete m_pState;
}

void* CThread::Entry(void* self) {
    CThread* t = static_cast<CThread*>(self);
    t->Run();
    pthread_mutex_lock(&t->m_pState->mutex);
    t->m_pState->finished = true;
    pthread_cond_broadcast(&t->m_pState->cond);
    pthread_mutex_unlock(&t->m_pState->mutex);
    return nullptr;
}

int CThread::Start() {
    pthread_mutex_lock(&m_pState->mutex);
    if (m_pState->started && !m_pState->finished) {
        pthread_mutex_unlock(&m_pState->mutex);
        return -1;  // already running
    }
    if (m_pState->started) {  // previous run ended but was not joined
        pthread_join(m_pState->tid, nullptr);
        m_pState->started = false;
    }
    m_pState->finished = false;
    int rc = pthread_create(&m_pState->tid, nullptr, &CThread::Entry, this);
    if (rc == 0) m_pState->started = true;
    else m_pState->tid = pthread_t{};
    pthread_mutex_unlock(&m_pState->mutex);
    return rc == 0 ? 0 : -1;
}

void CThread::Signal() {}

int CThread::Stop(long wait) {
    pthread_mutex_lock(&m_pState->mutex);
    bool started = m_pState->started;
    pthread_t tid = m_pState->tid;
    pthread_mutex_unlock(&m_pState->mutex);
    if (!started) return 0;
    if (pthread_equal(tid, pthread_self())) {
        Signal();  // cannot wait for ourselves
        return 1;
    }
    Signal();
    pthread_mutex_lock(&m_pState->mutex);
    if (wait < 0) {
        while (!m_pState->finished) pthread_cond_wait(&m_pState->cond, &m_pState->mutex);
    } else {
        timespec dl = Deadline(wait);
        while (!m_pState->finished) {
            if (pthread_cond_timedwait(&m_pState->cond, &m_pState->mutex, &dl) == ETIMEDOUT) break;
        }
    }
    bool done = m_pState->finished;
    bool join = done && m_pState->started;
    if (join) m_pState->started = false;
    pthread_mutex_unlock(&m_pState->mutex);
    if (join) pthread_join(tid, nullptr);
    return done ? 0 : 1;
}

pthread_t CThread::GetId() const {
    pthread_mutex_lock(&m_pState->mutex);
    pthread_t tid = m_pState->tid;
    pthread_mutex_unlock(&m_pState->mutex);
    return tid;
}

bool CThread::IsRunning() const {
    pthread_mutex_lock(&m_pState->mutex);
    bool r = m_pState->started && !m_pState->finished;
    pthread_mutex_unlock(&m_pState->mutex);
    return r;
}

// --- CEvent ----------------------------------------------------------------

CEvent::CEvent(bool manualReset) : m_bManual(manualReset), m_bSignaled(false) {
    pthread_mutex_init(&m_mutex, nullptr);
    InitMonotonicCond(&m_cond);
}

CEvent::~CEvent() {
    pthread_cond_destroy(&m_cond);
    pthread_mutex_destroy(&m_mutex);
}

int CEvent::Set() {
    if (pthread_mutex_lock(&m_mutex) != 0) return EVENT_FAILED;
    m_bSignaled = true;
    if (m_bManual) pthread_cond_broadcast(&m_cond);
    else pthread_cond_signal(&m_cond);
    pthread_mutex_unlock(&m_mutex);
    return EVENT_OK;
}

int CEvent::Reset() {
    if (pthread_mutex_lock(&m_mutex) != 0) return EVENT_FAILED;
    m_bSignaled = false;
    pthread_mutex_unlock(&m_mutex);
    return EVENT_OK;
}

int CEvent::Wait(long milliseconds) {
    if (pthread_mutex_lock(&m_mutex) != 0) return EVENT_FAILED;
    int result = EVENT_OK;
    if (milliseconds < 0) {
        while (!m_bSignaled) {
            if (pthread_cond_wait(&m_cond, &m_mutex) != 0) { result = EVENT_FAILED; break; }
        }
    } else {
        timespec dl = Deadline(milliseconds);
        while (!m_bSignaled) {
            int rc = pthread_cond_timedwait(&m_cond, &m_mutex, &dl);
            if (rc == ETIMEDOUT) { result = EVENT_TIMEOUT; break; }
            if (rc != 0) { result = EVENT_FAILED; break; }
        }
    }
    if (result == EVENT_OK && !m_bManual) m_bSignaled = false;
    pthread_mutex_unlock(&m_mutex);
    return result;
}

// --- CThreadMutex ----------------------------------------------------------

CThreadMutex::CThreadMutex() {
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&m_mutex, &attr);
    pthread_mutexattr_destroy(&attr);
}

CThreadMutex::~CThreadMutex() { pthread_mutex_destroy(&m_mutex); }
int CThreadMutex::Acquire() { return pthread_mutex_lock(&m_mutex); }
int CThreadMutex::Release() { return pthread_mutex_unlock(&m_mutex); }

// --- CUDPBroadcast ---------------------------------------------------------

namespace {
constexpr int kBatch = 32;             // datagrams per recvmmsg call
constexpr size_t kDatagramMax = 65536; // larger than any UDP payload
constexpr int kPollMs = 100;           // upper bound for noticing a stop
constexpr size_t kControlBytes = CMSG_SPACE(sizeof(uint32_t));  // SO_RXQ_OVFL count

std::atomic<unsigned long> g_udpReceived{0};
std::atomic<unsigned long> g_udpDropped{0};

// The socket's drop count carried by a received message, or -1.
long DropCount(const msghdr& h) {
    for (cmsghdr* c = CMSG_FIRSTHDR(&h); c != nullptr; c = CMSG_NXTHDR(const_cast<msghdr*>(&h), c)) {
        if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SO_RXQ_OVFL) {
            uint32_t n = 0;
            memcpy(&n, CMSG_DATA(c), sizeof n);
            return static_cast<long>(n);
        }
    }
    return -1;
}
}  // namespace

UDPRecvTotals GetUDPRecvTotals() { return {g_udpReceived.load(), g_udpDropped.load()}; }

struct CUDPBroadcast::Impl {
    int fd = -1;
    unsigned port = 0;
    UDPRecvCallback callback = nullptr;
    void* context = nullptr;
    pthread_t thread{};
    bool threadStarted = false;
    std::atomic<bool> stop{false};
    std::atomic<unsigned long> count{0};
    uint32_t drops = 0;         // the socket's drop count seen last
    std::vector<char> buffers;  // kBatch * kDatagramMax

    static void* Loop(void* self);
    void Close() {
        if (fd >= 0) close(fd);
        fd = -1;
    }
};

void* CUDPBroadcast::Impl::Loop(void* self) {
    Impl* impl = static_cast<Impl*>(self);
    mmsghdr msgs[kBatch];
    iovec iovs[kBatch];
    alignas(cmsghdr) char control[kBatch][kControlBytes];
    // One call per wake-up: recvmmsg blocks for the first datagram (at most
    // kPollMs, the socket's receive time-out, so a stop is seen) and takes
    // whatever else is queued behind it. Destroy ends a wait at once by
    // shutting the socket down for reading.
    while (!impl->stop.load(std::memory_order_acquire)) {
        for (int i = 0; i < kBatch; ++i) {
            iovs[i].iov_base = impl->buffers.data() + static_cast<size_t>(i) * kDatagramMax;
            iovs[i].iov_len = kDatagramMax;
            memset(&msgs[i], 0, sizeof(msgs[i]));
            msgs[i].msg_hdr.msg_iov = &iovs[i];
            msgs[i].msg_hdr.msg_iovlen = 1;
            msgs[i].msg_hdr.msg_control = control[i];
            msgs[i].msg_hdr.msg_controllen = kControlBytes;
        }
        int n = recvmmsg(impl->fd, msgs, kBatch, MSG_WAITFORONE, nullptr);
        if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) return nullptr;
        if (n <= 0) continue;  // time-out, signal, or shut down by Destroy
        // The count is the socket's running total: the batch's last says it all.
        long drops = DropCount(msgs[n - 1].msg_hdr);
        if (drops >= 0 && static_cast<uint32_t>(drops) != impl->drops) {
            g_udpDropped.fetch_add(static_cast<uint32_t>(drops) - impl->drops, std::memory_order_relaxed);
            impl->drops = static_cast<uint32_t>(drops);
        }
        g_udpReceived.fetch_add(static_cast<unsigned long>(n), std::memory_order_relaxed);
        for (int i = 0; i < n; ++i) {
            int len = static_cast<int>(msgs[i].msg_len);
            if (len > static_cast<int>(kDatagramMax)) len = static_cast<int>(kDatagramMax);
            impl->count.fetch_add(1, std::memory_order_relaxed);
            if (impl->callback != nullptr) impl->callback(impl->context, iovs[i].iov_base, len);
        }
    }
    return nullptr;
}

CUDPBroadcast::CUDPBroadcast() : m_pImpl(new Impl) {}

CUDPBroadcast::~CUDPBroadcast() {
    Destroy();
    delete m_pImpl;
}

int CUDPBroadcast::Init(unsigned port, UDPRecvCallback callback, void* context) {
    if (m_pImpl->fd >= 0 || m_pImpl->threadStarted) return EISCONN;
    if (port > 65535) return EINVAL;
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return errno != 0 ? errno : -1;
    int on = 1;
    if (setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0 ||
        setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof(on)) != 0 ||
        setsockopt(fd, SOL_SOCKET, SO_RXQ_OVFL, &on, sizeof(on)) != 0) {
        int e = errno;
        close(fd);
        return e != 0 ? e : -1;
    }
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_ANY);
    addr.sin_port = htons(static_cast<uint16_t>(port));
    if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
        int e = errno;
        close(fd);
        return e != 0 ? e : -1;
    }
    socklen_t alen = sizeof(addr);
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &alen) != 0) {
        int e = errno;
        close(fd);
        return e != 0 ? e : -1;
    }
    const timeval wait{0, kPollMs * 1000};  // a blocked receive returns this often
    if (setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof(wait)) != 0) {
        int e = errno;
        close(fd);
        return e != 0 ? e : -1;
    }
    m_pImpl->fd = fd;
    m_pImpl->port = ntohs(addr.sin_port);
    m_pImpl->callback = callback;
    m_pImpl->context = context;
    return 0;
}

int CUDPBroadcast::SetRecvBufLen(int bytes) {
    if (m_pImpl->fd < 0 || bytes <= 0) return -1;
    // SO_RCVBUFFORCE passes the system limit but needs CAP_NET_ADMIN.
    if (setsockopt(m_pImpl->fd, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof(bytes)) != 0 &&
        setsockopt(m_pImpl->fd, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof(bytes)) != 0)
        return -1;
    int granted = 0;
    socklen_t len = sizeof(granted);
    if (getsockopt(m_pImpl->fd, SOL_SOCKET, SO_RCVBUF, &granted, &len) != 0) return -1;
    return granted;
}

int CUDPBroadcast::Start() {
    if (m_pImpl->fd < 0 || m_pImpl->threadStarted) return -1;
    if (m_pImpl->buffers.empty()) m_pImpl->buffers.resize(kBatch * kDatagramMax);
    m_pImpl->stop.store(false);
    if (pthread_create(&m_pImpl->thread, nullptr, &Impl::Loop, m_pImpl) != 0) return -1;
    // Named for top -H and /proc (at most 15 characters).
    pthread_setname_np(m_pImpl->thread, "kos-udp-recv");
    m_pImpl->threadStarted = true;
    return 0;
}

void CUDPBroadcast::Destroy() {
    m_pImpl->stop.store(true, std::memory_order_release);
    if (m_pImpl->threadStarted) {
        if (pthread_equal(m_pImpl->thread, pthread_self())) {
            // Called from the callback: the loop ends after it returns; the
            // socket is closed when the object is destroyed from elsewhere.
            pthread_detach(m_pImpl->thread);
            m_pImpl->threadStarted = false;
            return;
        }
        // Wakes a blocked receive (it returns 0); the receive time-out ends
        // the wait all the same should this fail.
        shutdown(m_pImpl->fd, SHUT_RD);
        pthread_join(m_pImpl->thread, nullptr);
        m_pImpl->threadStarted = false;
    }
    m_pImpl->Close();
    m_pImpl->port = 0;
}

unsigned CUDPBroadcast::GetPort() const { return m_pImpl->port; }

unsigned long CUDPBroadcast::GetRecvCount() const { return m_pImpl->count.load(); }

}  // namespace KAVLE2
