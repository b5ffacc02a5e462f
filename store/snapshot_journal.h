// One-entry side journal of a snapshot file ("<snapshot>.jnl"), mapped
// shared, holding the slot currently being copied into the mapped snapshot.
// An entry is committed by a release store of its sequence after its bytes,
// and marked applied once the slot is complete in the snapshot; a reader of
// the snapshot replays a committed, unapplied entry first.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tikron_store {

// Layout of the journal file (one page, native byte order).
struct SlotJournalHead {
    char szMagic[8];       // kJournalMagic
    uint32_t uSlotSize;    // bytes of one slot of the snapshot it serves
    uint32_t uHeadSize;    // bytes of the snapshot header before slot 1
    uint64_t uCommitSeq;   // stored last, with release order, once an entry is whole
    uint64_t uAppliedSeq;  // equals uCommitSeq once the entry is in the snapshot
    uint64_t uSlotNo;      // 1-based slot of the entry
    uint64_t uReserved[3];
};
static_assert(sizeof(SlotJournalHead) == 64, "journal head is 64 bytes");

constexpr char kJournalMagic[8] = {'T', 'K', 'R', 'J', 'N', 'L', '1', '\0'};
constexpr size_t kJournalFileSize = 4096;
constexpr size_t kJournalDataOffset = sizeof(SlotJournalHead);
constexpr size_t kJournalMaxSlot = kJournalFileSize - kJournalDataOffset;

// Journal path of a snapshot path.
std::string JournalPathOf(const char* snapshotPath);

class SlotJournal {
public:
    SlotJournal() = default;
    ~SlotJournal() { Close(); }
    SlotJournal(const SlotJournal&) = delete;
    SlotJournal& operator=(const SlotJournal&) = delete;

    // Creates or reuses the file, allocates its blocks (so stores into the
    // mapping can never hit an unallocated block), maps it and resets it to
    // an empty journal for the given sizes. 0 or an errno value.
    int Open(const std::string& path, size_t headSize, size_t slotSize);
    void Close();
    bool IsOpen() const { return m_page != nullptr; }

    // Copies the slot into the journal, then publishes it as committed.
    void Commit(uint64_t slotNo, const void* slot);
    // Marks the last committed entry as applied to the snapshot.
    void MarkApplied();

    // Replays a committed, unapplied entry of the journal at jnlPath into the
    // snapshot open read/write as mainFd, then marks it applied. Returns 1
    // when a slot was replayed, 0 when there was nothing to do (no journal,
    // empty, other sizes, slot outside the file), negative with errno on an
    // I/O failure.
    static int Replay(const std::string& jnlPath, int mainFd, size_t headSize, size_t slotSize);

private:
    SlotJournalHead* Head() const { return static_cast<SlotJournalHead*>(m_page); }

    int m_fd = -1;
    void* m_page = nullptr;
    size_t m_slotSize = 0;
    uint64_t m_seq = 0;
};

}  // namespace tikron_store
