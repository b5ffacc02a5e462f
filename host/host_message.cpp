// Host message and message items.
#include "host/host_message.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "host/wire.h"

namespace hostemu {

namespace {

// atoi without the overflow: clamps to the int range.
int ToInt(const std::string& s) {
    errno = 0;
    long long v = strtoll(s.c_str(), nullptr, 10);
    if (v > INT_MAX) return INT_MAX;
    if (v < INT_MIN) return INT_MIN;
    return static_cast<int>(v);
}

std::string ValueText(const ItemValue& v) {
    if (v.kind == ItemValue::Int) return std::to_string(v.i);
    if (v.kind == ItemValue::Str) return v.s;
    return std::string();
}

}  // namespace

// --- item ------------------------------------------------------------------

int CHostMessageItem::QueryInterface(const char*, IKnown** out) {
    if (out != nullptr) *out = nullptr;
    return 0;
}

const char* CHostMessageItem::GetString(int index) {
    m_owner->NoteUse();
    Sync();
    if (index < 0 || static_cast<size_t>(index) >= m_count) return "";
    const ItemValue& v = m_values[static_cast<size_t>(index)];
    if (v.kind == ItemValue::Str) return v.s.c_str();
    if (v.kind == ItemValue::Int) {
        m_scratch = std::to_string(v.i);
        return m_scratch.c_str();
    }
    return "";
}

int CHostMessageItem::GetInt(int index) {
    m_owner->NoteUse();
    Sync();
    if (index < 0 || static_cast<size_t>(index) >= m_count) return 0;
    const ItemValue& v = m_values[static_cast<size_t>(index)];
    if (v.kind == ItemValue::Int) return v.i;
    if (v.kind == ItemValue::Str) return ToInt(v.s);
    return 0;
}

ItemValue& CHostMessageItem::Slot(size_t index) {
    Sync();
    if (index < m_count) return m_values[index];
    // Slots past m_count may hold an earlier message's values: the ones now
    // coming into use are emptied first.
    if (m_values.size() <= index) m_values.resize(index + 1);
    // A None slot's text is never read (ValueText, Values' users and the
    // encoder look at the kind), so the old text is left for reuse.
    for (; m_count <= index; ++m_count) {
        ItemValue& v = m_values[m_count];
        v.kind = ItemValue::None;
        v.i = 0;
    }
    return m_values[index];
}

std::vector<ItemValue> CHostMessageItem::Values() const {
    if (Stale()) return {};
    std::vector<ItemValue> out(m_values.begin(), m_values.begin() + static_cast<std::ptrdiff_t>(m_count));
    for (ItemValue& v : out)
        if (v.kind != ItemValue::Str) v.s.clear();  // leftover text of a reused slot
    return out;
}

std::vector<char> CHostMessageItem::Raw() const {
    if (Stale()) return {};
    return std::vector<char>(m_raw.data(), m_raw.data() + m_rawLen);
}

const void* CHostMessageItem::GetRawData(int* len, int /*index*/) {
    m_owner->NoteUse();
    Sync();
    if (m_rawLen == 0) {
        if (len != nullptr) *len = 0;
        return nullptr;
    }
    if (len != nullptr) *len = static_cast<int>(m_rawLen);
    return m_raw.data();
}

int CHostMessageItem::SetString(const char* value, int index) {
    m_owner->NoteUse();
    if (index < 0 || index > kMaxItemIndex) return -1;
    ItemValue& v = Slot(static_cast<size_t>(index));
    v.kind = ItemValue::Str;
    v.i = 0;
    if (value != nullptr)
        v.s.assign(value, strlen(value));
    else
        v.s.clear();
    return 0;
}

int CHostMessageItem::SetInt(int value, int index) {
    m_owner->NoteUse();
    if (index < 0 || index > kMaxItemIndex) return -1;
    ItemValue& v = Slot(static_cast<size_t>(index));
    v.kind = ItemValue::Int;
    v.i = value;
    return 0;
}

int CHostMessageItem::SetRawData(const void* data, int len) {
    m_owner->NoteUse();
    if (data == nullptr || len <= 0) {
        SetRaw(nullptr, 0);
        return 0;
    }
    SetRaw(static_cast<const char*>(data), static_cast<size_t>(len));
    return 0;
}

void CHostMessageItem::SetRaw(const char* p, size_t n) {
    Sync();
    if (n == 0) {
        m_rawLen = 0;
        return;
    }
    // The storage is kept across messages of the pool and only grows, so
    // this rarely allocates and never clears bytes about to be overwritten.
    if (m_raw.size() < n + kRawPad) m_raw.resize(n + kRawPad);
    memcpy(m_raw.data(), p, n);
    memset(m_raw.data() + n, 0, kRawPad);
    m_rawLen = n;
}

int CHostMessageItem::GetCount() {
    m_owner->NoteUse();
    Sync();
    return static_cast<int>(m_count);
}

// --- snapshots ---------------------------------------------------------------

std::string ItemSnapshot::Str(int index) const {
    if (index < 0 || index >= static_cast<int>(values.size())) return "";
    return ValueText(values[static_cast<size_t>(index)]);
}

int ItemSnapshot::Int(int index) const {
    if (index < 0 || index >= static_cast<int>(values.size())) return 0;
    const ItemValue& v = values[static_cast<size_t>(index)];
    if (v.kind == ItemValue::Int) return v.i;
    if (v.kind == ItemValue::Str) return ToInt(v.s);
    return 0;
}

int MessageSnapshot::Int(int tag, int index) const {
    auto it = items.find(tag);
    return it == items.end() ? 0 : it->second.Int(index);
}

std::string MessageSnapshot::Str(int tag, int index) const {
    auto it = items.find(tag);
    return it == items.end() ? std::string() : it->second.Str(index);
}

std::vector<char> MessageSnapshot::Raw(int tag) const {
    auto it = items.find(tag);
    return it == items.end() ? std::vector<char>() : it->second.raw;
}

// --- encoding ----------------------------------------------------------------

namespace {
const char kMagic[4] = {'E', 'S', 'B', 'M'};
constexpr uint32_t kMaxItems = kMaxTag + 1;
}  // namespace

namespace {

// One item of the encoding: tag, values, raw block. Sized first, then
// written in place, so a message is encoded with one allocation at most.
size_t ItemSize(const ItemValue* values, size_t count, size_t rawLen) {
    size_t n = 12 + count + rawLen;
    for (size_t i = 0; i < count; ++i)
        if (values[i].kind == ItemValue::Int) {
            n += 4;
        } else if (values[i].kind == ItemValue::Str) {
            n += 4 + values[i].s.size();
        }
    return n;
}

char* PutItem(char* p, int tag, const ItemValue* values, size_t count, const char* raw, size_t rawLen) {
    auto u32 = [&p](uint32_t v) {
        wire::SetU32At(reinterpret_cast<unsigned char*>(p), v);
        p += 4;
    };
    u32(static_cast<uint32_t>(tag));
    u32(static_cast<uint32_t>(count));
    for (size_t i = 0; i < count; ++i) {
        const ItemValue& v = values[i];
        *p++ = static_cast<char>(v.kind);
        if (v.kind == ItemValue::Int) {
            u32(static_cast<uint32_t>(v.i));
        } else if (v.kind == ItemValue::Str) {
            u32(static_cast<uint32_t>(v.s.size()));
            if (!v.s.empty()) memcpy(p, v.s.data(), v.s.size());
            p += v.s.size();
        }
    }
    u32(static_cast<uint32_t>(rawLen));
    if (rawLen > 0) memcpy(p, raw, rawLen);
    return p + rawLen;
}

char* PutHeader(char* p, size_t items) {
    memcpy(p, kMagic, 4);
    wire::SetU32At(reinterpret_cast<unsigned char*>(p + 4), static_cast<uint32_t>(items));
    return p + 8;
}

}  // namespace

std::vector<char> EncodeMessage(const MessageSnapshot& m) {
    size_t size = 8;
    for (const auto& kv : m.items) size += ItemSize(kv.second.values.data(), kv.second.values.size(), kv.second.raw.size());
    std::vector<char> out(size);
    char* p = PutHeader(out.data(), m.items.size());
    for (const auto& kv : m.items)
        p = PutItem(p, kv.first, kv.second.values.data(), kv.second.values.size(), kv.second.raw.data(),
                    kv.second.raw.size());
    return out;
}

int DecodeMessage(const void* buf, int len, MessageSnapshot* out) {
    if (buf == nullptr || len < 0 || out == nullptr) return -1;
    wire::Reader r(buf, static_cast<size_t>(len));
    char magic[4];
    if (!r.Raw(4, magic) || memcmp(magic, kMagic, 4) != 0) return -2;
    uint32_t count;
    if (!r.U32(&count) || count > kMaxItems) return -3;
    MessageSnapshot m;
    for (uint32_t i = 0; i < count; ++i) {
        int32_t tag;
        uint32_t nvalues;
        if (!r.I32(&tag) || tag < 0 || tag > kMaxTag || m.items.count(tag) != 0) return -4;
        if (!r.U32(&nvalues) || nvalues > static_cast<uint32_t>(kMaxItemIndex) + 1) return -5;
        ItemSnapshot item;
        item.values.resize(nvalues);
        for (ItemValue& v : item.values) {
            unsigned char kind;
            if (!r.U8(&kind)) return -6;
            if (kind == ItemValue::Int) {
                v.kind = ItemValue::Int;
                if (!r.I32(&v.i)) return -6;
            } else if (kind == ItemValue::Str) {
                uint32_t n;
                v.kind = ItemValue::Str;
                if (!r.U32(&n) || !r.Bytes(n, &v.s)) return -6;
            } else if (kind != ItemValue::None) {
                return -7;
            }
        }
        uint32_t rawLen;
        std::string raw;
        if (!r.U32(&rawLen) || !r.Bytes(rawLen, &raw)) return -8;
        item.raw.assign(raw.begin(), raw.end());
        m.items.emplace(tag, std::move(item));
    }
    if (r.Left() != 0) return -9;
    *out = std::move(m);
    return 0;
}

// --- message -----------------------------------------------------------------

CHostMessage::CHostMessage(IMessageOwner* factory) : m_factory(factory) {}
CHostMessage::~CHostMessage() = default;

void CHostMessage::NoteUse() const {
    if (m_released.load(std::memory_order_relaxed) && m_factory != nullptr) m_factory->OnUseAfterRelease();
}

int CHostMessage::QueryInterface(const char* id, IKnown** out) {
    NoteUse();
    if (out == nullptr) return 0;
    (void)id;  // messages expose no other interface
    *out = nullptr;
    return 0;
}

int CHostMessage::AddRef() {
    NoteUse();
    return 1;
}

int CHostMessage::Release() {
    if (m_factory != nullptr) m_factory->OnRelease(this);
    return 1;
}

CHostMessageItem* CHostMessage::NewItem(int tag) {
    const bool direct = tag >= 0 && tag < kDirectTags;
    auto at = std::lower_bound(m_items.begin(), m_items.end(), tag,
                               [](const auto& kv, int t) { return kv.first < t; });
    if (!direct && at != m_items.end() && at->first == tag) return at->second.get();
    auto* item = new CHostMessageItem(this);
    item->m_generation = m_generation;
    m_items.emplace(at, tag, std::unique_ptr<CHostMessageItem>(item));
    if (direct) m_direct[tag] = item;
    return item;
}

IESBMessageItem* CHostMessage::GetItem(int tag) {
    NoteUse();
    if (tag < 0 || tag > kMaxTag) return nullptr;
    return Item(tag);
}

MessageSnapshot CHostMessage::Snapshot() const {
    MessageSnapshot s;
    for (const auto& kv : m_items) {
        if (kv.second->Empty()) continue;
        ItemSnapshot item;
        item.values = kv.second->Values();
        item.raw = kv.second->Raw();
        s.items.emplace(kv.first, std::move(item));
    }
    return s;
}

size_t CHostMessage::EncodedSize() const {
    size_t size = 8;
    for (const auto& kv : m_items)
        if (!kv.second->Empty()) size += ItemSize(kv.second->m_values.data(), kv.second->m_count, kv.second->m_rawLen);
    return size;
}

void CHostMessage::EncodeAt(char* p) const {
    // Straight from the items, which are kept in tag order: the same bytes
    // as EncodeMessage of the Snapshot, without a copy of the message.
    size_t used = 0;
    for (const auto& kv : m_items) used += kv.second->Empty() ? 0 : 1;
    p = PutHeader(p, used);
    for (const auto& kv : m_items) {
        const CHostMessageItem& item = *kv.second;
        if (!item.Empty()) p = PutItem(p, kv.first, item.m_values.data(), item.m_count, item.m_raw.data(), item.m_rawLen);
    }
}

const void* CHostMessage::GetBuffer(int* len) {
    NoteUse();
    m_encoded.resize(EncodedSize());
    EncodeAt(m_encoded.data());
    if (len != nullptr) *len = static_cast<int>(m_encoded.size());
    return m_encoded.data();
}

void CHostMessage::EncodeTo(std::string* out) const {
    NoteUse();
    out->resize(EncodedSize());
    EncodeAt(&(*out)[0]);
}

void CHostMessage::ClearAll() {
    // Items are kept (pointers handed out stay valid); a new generation
    // empties them all. On the (theoretical) wrap of the counter the items
    // are emptied directly, so none can look current by accident.
    if (++m_generation == 0) {
        for (auto& kv : m_items) {
            kv.second->m_count = 0;
            kv.second->m_rawLen = 0;
            kv.second->m_generation = 0;
        }
    }
    // m_encoded keeps its size: GetBuffer writes every byte it returns, and
    // a buffer of the right size already is not filled with zeros first.
}

// Index 0 of an item, without counting another use.
void CHostMessage::SetIntQuiet(CHostMessageItem* item, int value) {
    ItemValue& v = item->Slot(0);
    v.kind = ItemValue::Int;
    v.i = value;
}

int CHostMessage::Prepare(int packetType, int functionNo) {
    NoteUse();
    ClearAll();
    SetIntQuiet(Item(3), packetType);
    SetIntQuiet(Item(5), functionNo);
    return 0;
}

int CHostMessage::ChangeToAnswer() {
    NoteUse();
    SetIntQuiet(Item(3), 1);
    return 0;
}

int CHostMessage::SetBuffer(const void* buf, int len) {
    NoteUse();
    MessageSnapshot s;
    int rc = DecodeMessage(buf, len, &s);
    if (rc != 0) return rc;
    ClearAll();
    for (auto& kv : s.items) {
        CHostMessageItem* item = Item(kv.first);
        item->Sync();
        item->m_values = std::move(kv.second.values);
        item->m_count = item->m_values.size();
        item->SetRaw(kv.second.raw.data(), kv.second.raw.size());
    }
    return 0;
}

}  // namespace hostemu
