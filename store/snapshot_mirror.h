// Write side of a quote table's snapshot file: a header, then fixed-size
// slots numbered from 1. Updates of slots already in the file are copied
// through a shared mapping guarded by a one-entry side journal (no system
// call); new slots and the header are positioned writes. When the file
// cannot be mapped (not a regular file, no space for its blocks, no
// journal) every write falls back to pwrite. See snapshot_mirror.cpp.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "store/snapshot_file.h"
#include "store/snapshot_journal.h"

namespace tikron_store {

class SnapshotMirror {
public:
    SnapshotMirror(size_t headSize, size_t slotSize) : m_headSize(headSize), m_slotSize(slotSize) {}
    ~SnapshotMirror() { Close(); }
    SnapshotMirror(const SnapshotMirror&) = delete;
    SnapshotMirror& operator=(const SnapshotMirror&) = delete;

    // keep: open an existing file for update ("rb+"); a partial slot at its
    // end is cut off. Otherwise create or truncate it ("wb"). Both reset the
    // journal. 0 or an errno value.
    int Open(const char* path, bool keep);
    void Close();
    // Deletes the journal file if this mirror created it (call after Close).
    void RemoveJournal();

    bool IsOpen() const { return m_file.IsOpen(); }
    bool IsMapped() const { return m_map != nullptr; }
    // Whole slots in the file: slots 1..SlotsInFile() may be rewritten.
    uint64_t SlotsInFile() const { return m_slots; }

    // Rewrites slot slotNo (1..SlotsInFile()). 0, or -1 with errno set.
    int WriteSlot(uint64_t slotNo, const void* slot);
    // Writes slot SlotsInFile() + 1 at the end of the file. 0, or -1 with errno.
    int AppendSlot(uint64_t slotNo, const void* slot);
    // Rewrites the header at offset 0. 0, or -1 with errno.
    int WriteHead(const void* head);

    // errno of the last failure to map the file since the previous call
    // (0 when none); the caller logs it.
    int TakeMapError();

    // Before a load: completes an update that a killed process left
    // committed in the journal of path. 1 replayed, 0 nothing to do,
    // negative on an I/O failure (errno set).
    static int ReplayJournal(const char* path, size_t headSize, size_t slotSize);

    // Process-wide switch for mirrors opened afterwards: false keeps every
    // write on the pwrite path (baseline measurements and tests).
    static void SetMappingEnabled(bool enabled);

private:
    void TryMap(uint64_t minBytes);
    void Unmap();

    const size_t m_headSize;
    const size_t m_slotSize;
    SnapshotFile m_file;
    SlotJournal m_journal;
    std::string m_journalPath;
    bool m_journalCreated = false;
    bool m_regular = false;
    bool m_mapAllowed = false;
    char* m_map = nullptr;
    uint64_t m_mapBytes = 0;
    uint64_t m_slots = 0;
    int m_mapError = 0;
};

}  // namespace tikron_store
