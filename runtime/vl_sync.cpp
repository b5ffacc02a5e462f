#include "runtime/vl_sync.h"

#include <cerrno>
#include <ctime>
#include <sys/time.h>

namespace VL {

CEvent::CEvent(bool initial) : m_bSignaled(initial) {
    pthread_mutex_init(&m_mutex, nullptr);
    pthread_cond_init(&m_cond, nullptr);
}

CEvent::~CEvent() {
    pthread_cond_destroy(&m_cond);
    pthread_mutex_destroy(&m_mutex);
}

int CEvent::Set() {
    pthread_mutex_lock(&m_mutex);
    m_bSignaled = true;
    pthread_mutex_unlock(&m_mutex);
    pthread_cond_signal(&m_cond);
    return 0;
}

void CEvent::Reset() {
    pthread_mutex_lock(&m_mutex);
    m_bSignaled = false;
    pthread_mutex_unlock(&m_mutex);
}

int CEvent::Wait(long ms) {
    pthread_mutex_lock(&m_mutex);
    int rc = 0;
    if (ms == -1) {
        while (!m_bSignaled && rc == 0) rc = pthread_cond_wait(&m_cond, &m_mutex);
    } else {
        // Deadline: time of day + ms; the millisecond remainder is added to the
        // microsecond part before scaling, as the log's batching expects.
        struct timeval now;
        gettimeofday(&now, nullptr);
        struct timespec until;
        long usec = now.tv_usec + (ms % 1000);
        until.tv_sec = now.tv_sec + ms / 1000 + usec / 1000000;
        until.tv_nsec = (usec % 1000000) * 1000;
        while (!m_bSignaled && rc == 0) rc = pthread_cond_timedwait(&m_cond, &m_mutex, &until);
    }
    int result;
    if (m_bSignaled) {
        m_bSignaled = false;
        result = 0;
    } else {
        result = rc == ETIMEDOUT ? 1 : -1;
    }
    pthread_mutex_unlock(&m_mutex);
    return result;
}

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
int CThreadMutex::TryAcquire() { return pthread_mutex_trylock(&m_mutex); }

}  // namespace VL

CEvent::CEvent() : bSignaled(false) {
    pthread_mutex_init(&mutex, nullptr);
    pthread_cond_init(&ptcond, nullptr);
}

CEvent::~CEvent() {
    pthread_cond_destroy(&ptcond);
    pthread_mutex_destroy(&mutex);
}

void CEvent::Notify() {
    pthread_mutex_lock(&mutex);
    bSignaled = true;
    pthread_mutex_unlock(&mutex);
    // Signalled after the unlock: a waiter woken while the mutex is still
    // held would only block on it again (a second wake-up per datagram).
    // A waiter that saw the flag unset is already inside the wait.
    pthread_cond_signal(&ptcond);
}

void CEvent::Reset() {
    pthread_mutex_lock(&mutex);
    bSignaled = false;
    pthread_mutex_unlock(&mutex);
}

EventWaitState CEvent::Wait(long ms) {
    pthread_mutex_lock(&mutex);
    int rc = 0;
    if (!bSignaled) {
        if (ms < 0) {
            rc = pthread_cond_wait(&ptcond, &mutex);
        } else {
            // Realtime clock + ms; the millisecond remainder goes to the
            // nanoseconds. A sum past one second is normalised (carried) so the
            // deadline stays a valid timespec.
            struct timespec until;
            clock_gettime(CLOCK_REALTIME, &until);
            until.tv_sec += ms / 1000;
            until.tv_nsec += (ms % 1000) * 1000000L;
            if (until.tv_nsec >= 1000000000L) {
                until.tv_sec += 1;
                until.tv_nsec -= 1000000000L;
            }
            rc = pthread_cond_timedwait(&ptcond, &mutex, &until);
        }
    }
    EventWaitState st;
    if (bSignaled) {
        bSignaled = false;
        st = EVENT_SIGNALED;
    } else {
        st = (rc == ETIMEDOUT || rc == 0) ? EVENT_TIMEOUT : EVENT_ERROR;
    }
    pthread_mutex_unlock(&mutex);
    return st;
}
