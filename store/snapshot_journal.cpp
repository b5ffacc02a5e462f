#include "store/snapshot_journal.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tikron_store {

namespace {

int OpenRetry(const char* path, int flags) {
    int fd;
    do {
        fd = ::open(path, flags | O_CLOEXEC, 0666);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

bool PreadAll(int fd, void* buf, size_t n, off_t off) {
    char* p = static_cast<char*>(buf);
    size_t got = 0;
    while (got < n) {
        ssize_t r = ::pread(fd, p + got, n - got, off + static_cast<off_t>(got));
        if (r < 0 && errno == EINTR) continue;
        if (r <= 0) return false;
        got += static_cast<size_t>(r);
    }
    return true;
}

bool PwriteAll(int fd, const void* buf, size_t n, off_t off) {
    const char* p = static_cast<const char*>(buf);
    size_t done = 0;
    while (done < n) {
        ssize_t w = ::pwrite(fd, p + done, n - done, off + static_cast<off_t>(done));
        if (w < 0 && errno == EINTR) continue;
        if (w < 0) return false;
        if (w == 0) {
            errno = ENOSPC;
            return false;
        }
        done += static_cast<size_t>(w);
    }
    return true;
}

}  // namespace

std::string JournalPathOf(const char* snapshotPath) {
    return std::string(snapshotPath != nullptr ? snapshotPath : "") + ".jnl";
}

int SlotJournal::Open(const std::string& path, size_t headSize, size_t slotSize) {
    Close();
    if (slotSize == 0 || slotSize > kJournalMaxSlot || headSize > UINT32_MAX) return EINVAL;
    int fd = OpenRetry(path.c_str(), O_RDWR | O_CREAT);
    if (fd < 0) return errno != 0 ? errno : EIO;
    struct stat st {};
    int err = 0;
    if (fstat(fd, &st) != 0) {
        err = errno;
    } else if (!S_ISREG(st.st_mode)) {
        err = ENODEV;
    } else if (st.st_size != static_cast<off_t>(kJournalFileSize) &&
               ftruncate(fd, static_cast<off_t>(kJournalFileSize)) != 0) {
        err = errno;
    } else {
        // Blocks are allocated now, so a store into the mapping cannot fault
        // for want of space later.
        err = posix_fallocate(fd, 0, static_cast<off_t>(kJournalFileSize));
    }
    void* page = MAP_FAILED;
    if (err == 0) {
        page = mmap(nullptr, kJournalFileSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        if (page == MAP_FAILED) err = errno;
    }
    if (err != 0) {
        ::close(fd);
        return err;
    }
    m_fd = fd;
    m_page = page;
    m_slotSize = slotSize;
    m_seq = 0;
    SlotJournalHead* h = Head();
    // Reset: applied first, so the page never reads as a pending entry of
    // the new sizes.
    __atomic_store_n(&h->uAppliedSeq, 0, __ATOMIC_RELEASE);
    __atomic_store_n(&h->uCommitSeq, 0, __ATOMIC_RELEASE);
    std::memcpy(h->szMagic, kJournalMagic, sizeof h->szMagic);
    h->uSlotSize = static_cast<uint32_t>(slotSize);
    h->uHeadSize = static_cast<uint32_t>(headSize);
    h->uSlotNo = 0;
    return 0;
}

void SlotJournal::Close() {
    if (m_page != nullptr) {
        munmap(m_page, kJournalFileSize);
        m_page = nullptr;
    }
    if (m_fd >= 0) {
        ::close(m_fd);
        m_fd = -1;
    }
}

void SlotJournal::Commit(uint64_t slotNo, const void* slot) {
    SlotJournalHead* h = Head();
    const uint64_t seq = m_seq + 1;
    h->uSlotNo = slotNo;
    std::memcpy(static_cast<char*>(m_page) + kJournalDataOffset, slot, m_slotSize);
    // Everything above is in the page before the sequence says so.
    __atomic_store_n(&h->uCommitSeq, seq, __ATOMIC_RELEASE);
    // And the commit is in the page before any later store (the caller's
    // copy into the snapshot): a store-store barrier on every target.
    __atomic_thread_fence(__ATOMIC_RELEASE);
    m_seq = seq;
}

void SlotJournal::MarkApplied() {
    __atomic_store_n(&Head()->uAppliedSeq, m_seq, __ATOMIC_RELEASE);
}

int SlotJournal::Replay(const std::string& jnlPath, int mainFd, size_t headSize, size_t slotSize) {
    if (mainFd < 0 || slotSize == 0 || slotSize > kJournalMaxSlot) return 0;
    int fd = OpenRetry(jnlPath.c_str(), O_RDWR);
    if (fd < 0) return 0;  // no journal: nothing was in flight
    char page[kJournalFileSize];
    SlotJournalHead h;
    int ret = 0;
    struct stat st {};
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size != static_cast<off_t>(kJournalFileSize) ||
        !PreadAll(fd, page, sizeof page, 0)) {
        ::close(fd);
        return 0;  // not a journal of ours
    }
    std::memcpy(&h, page, sizeof h);
    struct stat mst {};
    bool pending = std::memcmp(h.szMagic, kJournalMagic, sizeof h.szMagic) == 0 && h.uSlotSize == slotSize &&
                   h.uHeadSize == headSize && h.uCommitSeq != h.uAppliedSeq && h.uSlotNo >= 1;
    if (pending && fstat(mainFd, &mst) == 0) {
        uint64_t size = static_cast<uint64_t>(mst.st_size);
        uint64_t maxSlots = size >= headSize ? (size - headSize) / slotSize : 0;
        int32_t storedNo = 0;
        std::memcpy(&storedNo, page + kJournalDataOffset, sizeof storedNo);
        // Only a slot that lies inside the file and names itself is replayed.
        if (h.uSlotNo <= maxSlots && storedNo >= 1 && static_cast<uint64_t>(storedNo) == h.uSlotNo) {
            off_t off = static_cast<off_t>(headSize + (h.uSlotNo - 1) * slotSize);
            if (!PwriteAll(mainFd, page + kJournalDataOffset, slotSize, off)) {
                ret = -1;
            } else {
                ret = 1;
            }
        }
    }
    if (pending && ret >= 0) {
        // Applied (or not applicable): the entry must not be replayed again.
        uint64_t applied = h.uCommitSeq;
        int e = errno;
        if (!PwriteAll(fd, &applied, sizeof applied, offsetof(SlotJournalHead, uAppliedSeq))) ret = -1;
        else errno = e;
    }
    int e = errno;
    ::close(fd);
    errno = e;
    return ret;
}

}  // namespace tikron_store
