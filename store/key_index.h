// Hash index from a table's key text to its entry: open addressing with
// linear probing in one flat array, keys of up to 19 bytes kept inline, so a
// lookup reads one entry (usually one cache line) besides the entry it finds.
// Longer keys are compared through a pointer to a copy the caller keeps
// alive (the ordered map's own key text). Not thread-safe: the table's lock
// guards it.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

namespace tikron_store {

template <typename V>
class KeyIndex {
public:
    // The entry of key, or null.
    V* Find(std::string_view key) const {
        if (m_slots.empty()) return nullptr;
        const uint32_t h = Hash(key);
        for (size_t i = h & m_mask;; i = (i + 1) & m_mask) {
            const Slot& s = m_slots[i];
            if (s.value == nullptr) return nullptr;
            if (s.hash == h && Same(s, key)) return s.value;
        }
    }

    // Adds a key that is not indexed yet. stableKey: the same text, kept
    // alive and unchanged while indexed (read for keys longer than inline).
    // Throws std::bad_alloc, leaving the index unchanged, when growing fails.
    void Insert(std::string_view key, const char* stableKey, V* value) {
        if ((m_count + 1) * 2 > m_slots.size()) Grow();
        Place(Make(key, stableKey, value));
        ++m_count;
    }

    // Points an indexed key at another entry.
    void Assign(std::string_view key, V* value) {
        if (m_slots.empty()) return;
        const uint32_t h = Hash(key);
        for (size_t i = h & m_mask;; i = (i + 1) & m_mask) {
            Slot& s = m_slots[i];
            if (s.value == nullptr) return;
            if (s.hash == h && Same(s, key)) {
                s.value = value;
                return;
            }
        }
    }

    void Clear() {
        m_slots.clear();
        m_mask = 0;
        m_count = 0;
    }

    size_t Size() const { return m_count; }

private:
    static constexpr size_t kInline = 19;
    struct Slot {
        V* value = nullptr;  // null: free
        uint32_t hash = 0;
        uint8_t len = 0;     // key length, at most 255 (table keys: 127)
        char text[kInline];  // the key, or a pointer to it when longer
    };
    static_assert(sizeof(Slot) == 32, "two slots per cache line");

    // FNV-1a: short keys, no setup cost.
    static uint32_t Hash(std::string_view key) {
        uint32_t h = 2166136261u;
        for (unsigned char c : key) h = (h ^ c) * 16777619u;
        return h;
    }

    static const char* LongText(const Slot& s) {
        const char* p;
        std::memcpy(&p, s.text, sizeof p);
        return p;
    }

    static bool Same(const Slot& s, std::string_view key) {
        if (s.len != key.size()) return false;
        const char* text = key.size() <= kInline ? s.text : LongText(s);
        return std::memcmp(text, key.data(), key.size()) == 0;
    }

    static Slot Make(std::string_view key, const char* stableKey, V* value) {
        Slot s;
        s.value = value;
        s.hash = Hash(key);
        // Longer keys than a byte can count cannot come from a table (127
        // at most); they are cut to the text the slot can compare.
        const size_t len = key.size() < 255 ? key.size() : 255;
        s.len = static_cast<uint8_t>(len);
        if (len <= kInline)
            std::memcpy(s.text, key.data(), len);
        else
            std::memcpy(s.text, &stableKey, sizeof stableKey);
        return s;
    }

    void Place(const Slot& s) {
        size_t i = s.hash & m_mask;
        while (m_slots[i].value != nullptr) i = (i + 1) & m_mask;
        m_slots[i] = s;
    }

    void Grow() {
        std::vector<Slot> old(m_slots.empty() ? 64 : 2 * m_slots.size());  // may throw: nothing changed yet
        old.swap(m_slots);
        m_mask = m_slots.size() - 1;
        for (const Slot& s : old)
            if (s.value != nullptr) Place(s);
    }

    std::vector<Slot> m_slots;  // power-of-two size, at most half full
    size_t m_mask = 0;
    size_t m_count = 0;
};

}  // namespace tikron_store
