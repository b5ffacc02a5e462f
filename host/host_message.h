// Host messages of the emulator: items with values by index, raw data, a
// binary encoding of the whole message, and use/release tracking.
//
// Messages are pooled by their factory and never freed while it lives: a
// released message sits in a bounded quarantine, any call on it is recorded as
// a use after release (and still answered harmlessly), a second Release is
// recorded as a double release. Once it leaves the quarantine the object is
// reused for a new message.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "frame/host_interfaces.h"

namespace hostemu {

class CHostMessage;

// What a message tells the factory that made it: its release and any use
// after that (the factory's tracking).
class IMessageOwner {
public:
    virtual void OnRelease(CHostMessage* msg) = 0;
    virtual void OnUseAfterRelease() = 0;

protected:
    ~IMessageOwner() = default;
};

// Highest value index an item holds (indexes 0..kMaxItemIndex).
constexpr int kMaxItemIndex = 63;
// Valid tags are 0..kMaxTag; GetItem returns null outside.
constexpr int kMaxTag = 1023;

// One value slot of an item.
struct ItemValue {
    enum Kind : char { None = 0, Int = 'I', Str = 'S' };
    Kind kind = None;
    int i = 0;
    std::string s;
};

class CHostMessageItem final : public IESBMessageItem {
public:
    explicit CHostMessageItem(CHostMessage* owner) : m_owner(owner) {}
    int QueryInterface(const char* id, IKnown** out) override;
    int AddRef() override { return 1; }
    int Release() override { return 1; }  // owned by the message

    // Absent index: "" (never null). An int value reads as its decimal text.
    const char* GetString(int index) override;
    // Absent index: 0. A string value converts like atoi (clamped, no overflow).
    int GetInt(int index) override;
    // The item's raw bytes (one block per item, `index` is ignored);
    // null and *len = 0 when none.
    const void* GetRawData(int* len, int index) override;
    int SetString(const char* value, int index) override;  // -1: bad index
    int SetInt(int value, int index) override;             // -1: bad index
    int SetRawData(const void* data, int len) override;    // len <= 0 clears
    int GetCount() override;  // highest set index + 1

    bool Empty() const { return Stale() || (m_count == 0 && m_rawLen == 0); }
    std::vector<ItemValue> Values() const;  // the values in use
    std::vector<char> Raw() const;

private:
    friend class CHostMessage;
    // The item was last written before its message was cleared: it is empty.
    inline bool Stale() const;
    // Brings a stale item to the empty state before it is read or written.
    inline void Sync();
    CHostMessage* m_owner;
    uint32_t m_generation = 0;  // the message's generation this item belongs to
    // Storage only grows; the first m_count values are this message's.
    std::vector<ItemValue> m_values;
    size_t m_count = 0;
    ItemValue& Slot(size_t index);  // brings index into use
    void SetRaw(const char* p, size_t n);
    // Raw bytes followed by kRawPad zero bytes, so a reader peeking at a
    // short buffer's first bytes (version checks) stays inside the block.
    static constexpr size_t kRawPad = 8;
    std::vector<char> m_raw;
    size_t m_rawLen = 0;
    std::string m_scratch;  // decimal text of an int read as string
};

// Plain copy of a message, for tests and the recording neighbour.
struct ItemSnapshot {
    std::vector<ItemValue> values;
    std::vector<char> raw;
    std::string Str(int index) const;  // "" when absent; int as decimal text
    int Int(int index) const;          // 0 when absent
};

struct MessageSnapshot {
    std::map<int, ItemSnapshot> items;
    // Convenience accessors for the common tags (0 / "" / empty when absent).
    int PacketType() const { return Int(3); }
    int FunctionNo() const { return Int(5); }
    int ErrorFlag() const { return Int(7); }
    int PacketId() const { return Int(11); }
    int ErrorNo() const { return Int(19); }
    std::string ErrorInfo() const { return Str(20, 0); }
    int IssueType() const { return Int(53); }
    std::vector<char> Body() const { return Raw(8); }  // item 8
    std::vector<char> Key() const { return Raw(54); }  // item 54
    std::string Route(int index) const { return Str(9, index); }
    std::string PathStamp(int index) const { return Str(100, index); }

    bool Has(int tag) const { return items.count(tag) != 0; }
    int Int(int tag, int index = 0) const;
    std::string Str(int tag, int index) const;
    std::vector<char> Raw(int tag) const;
};

class CHostMessage final : public IESBMessage {
public:
    explicit CHostMessage(IMessageOwner* factory);
    ~CHostMessage();
    CHostMessage(const CHostMessage&) = delete;
    CHostMessage& operator=(const CHostMessage&) = delete;

    int QueryInterface(const char* id, IKnown** out) override;
    int AddRef() override;   // returns 1; counts nothing
    int Release() override;  // gives the message back to its factory
    // Null for tags outside 0..kMaxTag.
    IESBMessageItem* GetItem(int tag) override;
    // Encoding described in host/README.md; valid until the next change.
    const void* GetBuffer(int* len) override;
    // Clears every item, then item 3 = packetType, item 5 = functionNo.
    int Prepare(int packetType, int functionNo) override;
    // Item 3 = 1 in place; everything else (function, packet id, route) kept.
    int ChangeToAnswer() override;
    // Replaces the content with a GetBuffer encoding; 0 or negative (content
    // unchanged) when the buffer is malformed.
    int SetBuffer(const void* buf, int len) override;

    MessageSnapshot Snapshot() const;
    // The GetBuffer encoding written into `out` (resized to it), without
    // the message's own copy: for a host that keeps the bytes itself.
    void EncodeTo(std::string* out) const;
    bool IsReleased() const { return m_released.load(); }
    uint64_t Serial() const { return m_serial; }
    void ClearAll();

private:
    friend class CHostMessageFactory;
    friend class CHostMessageItem;
    void NoteUse() const;  // records a use after release
    // The item of a tag, made on first use; tags below kDirectTags are
    // found without a call.
    CHostMessageItem* Item(int tag) {
        if (tag >= 0 && tag < kDirectTags && m_direct[tag] != nullptr) return m_direct[tag];
        return NewItem(tag);
    }
    CHostMessageItem* NewItem(int tag);
    // Size of the encoding, and the encoding written at p (that size).
    size_t EncodedSize() const;
    void EncodeAt(char* p) const;
    static void SetIntQuiet(CHostMessageItem* item, int value);

    IMessageOwner* m_factory;
    std::atomic<bool> m_released{false};
    uint64_t m_serial = 0;
    // Clearing bumps the generation; an item of an older generation is
    // empty and is reset when next touched, so clearing a pooled message
    // costs the same however many items it ever had.
    uint32_t m_generation = 1;
    // Only the tags ever used on this object, in tag order (the order of
    // the encoding). Items are never removed (pointers handed out stay valid
    // while the message is pooled).
    std::vector<std::pair<int, std::unique_ptr<CHostMessageItem>>> m_items;
    // The same items of the common low tags by tag, found without a scan.
    static constexpr int kDirectTags = 128;
    CHostMessageItem* m_direct[kDirectTags] = {};
    std::vector<char> m_encoded;
};

inline bool CHostMessageItem::Stale() const { return m_generation != m_owner->m_generation; }

inline void CHostMessageItem::Sync() {
    if (!Stale()) return;
    m_count = 0;
    m_rawLen = 0;  // value and raw storage are kept for reuse
    m_generation = m_owner->m_generation;
}

// Encoding helpers (also used by tools): 0 on success, negative when malformed.
std::vector<char> EncodeMessage(const MessageSnapshot& m);
int DecodeMessage(const void* buf, int len, MessageSnapshot* out);

}  // namespace hostemu
