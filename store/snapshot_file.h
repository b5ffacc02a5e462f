// Thin POSIX file wrapper behind a quote table's snapshot: unbuffered,
// positioned writes so every completed write is in the file at once.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace tikron_store {

class SnapshotFile {
public:
    SnapshotFile() = default;
    ~SnapshotFile() { Close(); }
    SnapshotFile(const SnapshotFile&) = delete;
    SnapshotFile& operator=(const SnapshotFile&) = delete;

    // Open modes mirror stdio: "rb" (read only), "rb+" (read/write, must
    // exist), "wb" (create or truncate; opened read/write so the file can
    // be mapped). 0 on success, else errno.
    int OpenRead(const char* path);
    int OpenUpdate(const char* path);
    int OpenTruncate(const char* path);
    void Close();
    bool IsOpen() const { return m_fd >= 0; }
    int Fd() const { return m_fd; }

    // Reads up to n bytes from the current position, stopping only at end of
    // file: returns the count read, or -1 on error (errno kept).
    long ReadFull(void* buf, size_t n);

    // Writes all n bytes at off. 0 on success, -1 on error or short write
    // (errno kept; ENOSPC for a short write without error).
    int WriteAt(const void* buf, size_t n, uint64_t off);

private:
    int Open(const char* path, int flags);
    int m_fd = -1;
};

// Lets the first failure through, then at most one line per interval,
// telling how many were suppressed in between.
class FailureLogLimiter {
public:
    explicit FailureLogLimiter(int64_t intervalMs = 60000) : m_intervalMs(intervalMs) {}
    // True when a line may be written now; suppressed receives the number of
    // failures silenced since the last line.
    bool Allow(uint64_t& suppressed);

private:
    int64_t m_intervalMs;
    int64_t m_lastMs = 0;
    bool m_any = false;
    uint64_t m_suppressed = 0;
};

}  // namespace tikron_store
