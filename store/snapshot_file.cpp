#include "store/snapshot_file.h"

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

namespace tikron_store {

int SnapshotFile::Open(const char* path, int flags) {
    Close();
    if (path == nullptr) return EINVAL;
    int fd;
    do {
        fd = ::open(path, flags | O_CLOEXEC, 0666);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) return errno != 0 ? errno : EIO;
    m_fd = fd;
    return 0;
}

int SnapshotFile::OpenRead(const char* path) { return Open(path, O_RDONLY); }
int SnapshotFile::OpenUpdate(const char* path) { return Open(path, O_RDWR); }
int SnapshotFile::OpenTruncate(const char* path) { return Open(path, O_RDWR | O_CREAT | O_TRUNC); }

void SnapshotFile::Close() {
    if (m_fd >= 0) {
        ::close(m_fd);
        m_fd = -1;
    }
}

long SnapshotFile::ReadFull(void* buf, size_t n) {
    if (m_fd < 0) {
        errno = EBADF;
        return -1;
    }
    char* p = static_cast<char*>(buf);
    size_t got = 0;
    while (got < n) {
        ssize_t r = ::read(m_fd, p + got, n - got);
        if (r < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        if (r == 0) break;
        got += static_cast<size_t>(r);
    }
    return static_cast<long>(got);
}

int SnapshotFile::WriteAt(const void* buf, size_t n, uint64_t off) {
    if (m_fd < 0) {
        errno = EBADF;
        return -1;
    }
    const char* p = static_cast<const char*>(buf);
    size_t done = 0;
    while (done < n) {
        ssize_t w = ::pwrite(m_fd, p + done, n - done, static_cast<off_t>(off + done));
        if (w < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        if (w == 0) {
            errno = ENOSPC;
            return -1;
        }
        done += static_cast<size_t>(w);
    }
    return 0;
}

bool FailureLogLimiter::Allow(uint64_t& suppressed) {
    struct timespec ts {};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    int64_t now = static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
    if (m_any && now - m_lastMs < m_intervalMs) {
        ++m_suppressed;
        return false;
    }
    m_any = true;
    m_lastMs = now;
    suppressed = m_suppressed;
    m_suppressed = 0;
    return true;
}

}  // namespace tikron_store
