// Snapshot writes without a system call per update, and why they stay safe.
//
// Update of a slot already in the file (the common case), table lock held:
//   1. copy slot number and slot bytes into the journal page ("<path>.jnl",
//      MAP_SHARED), then store its commit sequence (release order);
//   2. store-store barrier, then copy the slot into the snapshot mapping;
//   3. store the applied sequence (release order).
// Guarantees:
//   (a) Stores into a MAP_SHARED mapping go straight into the kernel's page
//       cache of the file: read() by any process sees them at once, and they
//       outlive a SIGKILL of this process (the kernel, not the process,
//       writes the pages back).
//   (b) A kill stops the stores somewhere in 1-3; stores already made stay,
//       in program order (release stores / fences order them for compiler
//       and CPU). Killed before the commit store: commit == applied, the
//       journal is ignored and the slot still holds its previous value (it
//       was not touched). Killed after it: the journal holds the whole new
//       slot, committed but not applied; the next load replays it over the
//       possibly torn slot before reading. So every slot reads as the
//       previous or the new value, never a mix. Replay is idempotent, so a
//       kill during the replay is repaired by the load after it.
//   (c) The mapping only rewrites bytes inside the file; the length changes
//       only by the positioned write of a new slot at the end, exactly R
//       bytes. A new-slot write cut by a kill at a page boundary leaves a
//       partial slot at the end, which the load ignores and Open cuts off.
//   (d) Stores into a shared mapping raise SIGBUS when the file has no block
//       for the page. Mapped pages are only touched inside the file, and the
//       whole mapped range (journal page, snapshot up to the mapping size)
//       is allocated with fallocate before it is mapped; when allocation or
//       mapping fails, the mirror writes with pwrite instead, whose errors
//       come back as codes. A file shrunk by another process while mapped is
//       outside this contract: the file belongs to its table.
#include "store/snapshot_mirror.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tikron_store {

namespace {

std::atomic<bool> g_mappingEnabled{true};

constexpr uint64_t kMinMapBytes = 64 * 1024;

uint64_t PageRound(uint64_t n) {
    const uint64_t page = 4096;
    return (n + page - 1) / page * page;
}

}  // namespace

void SnapshotMirror::SetMappingEnabled(bool enabled) { g_mappingEnabled.store(enabled); }

int SnapshotMirror::Open(const char* path, bool keep) {
    Close();
    if (path == nullptr) return EINVAL;
    int err = keep ? m_file.OpenUpdate(path) : m_file.OpenTruncate(path);
    if (err != 0) return err;
    m_journalPath = JournalPathOf(path);
    struct stat st {};
    m_regular = fstat(m_file.Fd(), &st) == 0 && S_ISREG(st.st_mode);
    m_slots = 0;
    if (m_regular) {
        uint64_t size = static_cast<uint64_t>(st.st_size);
        if (size >= m_headSize) {
            m_slots = (size - m_headSize) / m_slotSize;
            uint64_t whole = m_headSize + m_slots * m_slotSize;
            // A slot cut short by a kill is not part of the table; drop it
            // so the length is header + whole slots again.
            if (whole != size && ftruncate(m_file.Fd(), static_cast<off_t>(whole)) != 0) {
                // Harmless: the next new slot overwrites the tail anyway.
            }
        }
    }
    m_mapAllowed = m_regular && g_mappingEnabled.load();
    if (m_mapAllowed) TryMap(m_headSize + m_slots * m_slotSize);
    return 0;
}

void SnapshotMirror::TryMap(uint64_t minBytes) {
    if (!m_journal.IsOpen()) {
        int err = m_journal.Open(m_journalPath, m_headSize, m_slotSize);
        if (err != 0) {
            m_mapError = err;
            return;
        }
        m_journalCreated = true;
    }
    uint64_t bytes = m_mapBytes * 2;
    if (bytes < kMinMapBytes) bytes = kMinMapBytes;
    if (bytes < minBytes) bytes = minBytes;
    bytes = PageRound(bytes);
    Unmap();
    // Blocks for the whole mapped range exist before any store can reach
    // it; the file length stays as it is.
    int r;
    do {
        r = fallocate(m_file.Fd(), FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(bytes));
    } while (r != 0 && errno == EINTR);
    if (r != 0) {
        m_mapError = errno;
        return;
    }
    void* p = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, m_file.Fd(), 0);
    if (p == MAP_FAILED) {
        m_mapError = errno;
        return;
    }
    m_map = static_cast<char*>(p);
    m_mapBytes = bytes;
}

void SnapshotMirror::Unmap() {
    if (m_map != nullptr) {
        munmap(m_map, m_mapBytes);
        m_map = nullptr;
    }
}

void SnapshotMirror::Close() {
    Unmap();
    m_mapBytes = 0;
    m_journal.Close();
    m_file.Close();
    m_slots = 0;
    m_regular = false;
    m_mapAllowed = false;
}

void SnapshotMirror::RemoveJournal() {
    if (m_journalCreated && !m_journal.IsOpen()) {
        ::unlink(m_journalPath.c_str());
        m_journalCreated = false;
    }
}

int SnapshotMirror::WriteSlot(uint64_t slotNo, const void* slot) {
    if (!m_file.IsOpen()) {
        errno = EBADF;
        return -1;
    }
    if (slot == nullptr || slotNo < 1 || slotNo > m_slots) {
        errno = EINVAL;
        return -1;
    }
    const uint64_t off = m_headSize + (slotNo - 1) * m_slotSize;
    if (m_map != nullptr && off + m_slotSize <= m_mapBytes) {
        m_journal.Commit(slotNo, slot);
        std::memcpy(m_map + off, slot, m_slotSize);
        m_journal.MarkApplied();
        return 0;
    }
    return m_file.WriteAt(slot, m_slotSize, off);
}

int SnapshotMirror::AppendSlot(uint64_t slotNo, const void* slot) {
    if (!m_file.IsOpen()) {
        errno = EBADF;
        return -1;
    }
    if (slot == nullptr || slotNo != m_slots + 1) {
        errno = EINVAL;
        return -1;
    }
    const uint64_t off = m_headSize + (slotNo - 1) * m_slotSize;
    if (m_file.WriteAt(slot, m_slotSize, off) != 0) {
        // A short write (full disk, size limit) must not leave part of a
        // slot behind: cut the file back to its whole slots.
        int err = errno;
        if (m_regular && ftruncate(m_file.Fd(), static_cast<off_t>(off)) != 0) {
            // Still a partial tail; the load ignores it and the next append overwrites it.
        }
        errno = err;
        return -1;
    }
    m_slots = slotNo;
    const uint64_t end = off + m_slotSize;
    // Grow (or, after an earlier failure, retry) the mapping; new keys are
    // rare, so the system calls here do not matter.
    if (m_mapAllowed && (m_map == nullptr || end > m_mapBytes)) TryMap(end);
    return 0;
}

int SnapshotMirror::WriteHead(const void* head) {
    if (head == nullptr) {
        errno = EINVAL;
        return -1;
    }
    return m_file.WriteAt(head, m_headSize, 0);
}

int SnapshotMirror::TakeMapError() {
    int e = m_mapError;
    m_mapError = 0;
    return e;
}

int SnapshotMirror::ReplayJournal(const char* path, size_t headSize, size_t slotSize) {
    if (path == nullptr) return 0;
    SnapshotFile main;
    if (main.OpenUpdate(path) != 0) return 0;  // missing or unwritable: nothing to repair
    struct stat st {};
    if (fstat(main.Fd(), &st) != 0 || !S_ISREG(st.st_mode)) return 0;
    return SlotJournal::Replay(JournalPathOf(path), main.Fd(), headSize, slotSize);
}

}  // namespace tikron_store
