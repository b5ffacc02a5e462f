#include "host/nats_chunk.h"

#include <cstdlib>

namespace natsbus {

std::string FormatChunkTag(const ChunkTag& tag) {
    return std::to_string(tag.index) + "/" + std::to_string(tag.count) + "/" + tag.id;
}

namespace {

bool ReadNumber(const std::string& text, size_t* pos, char end, uint32_t* value) {
    size_t start = *pos;
    uint64_t v = 0;
    while (*pos < text.size() && text[*pos] >= '0' && text[*pos] <= '9' && *pos - start < 10) {
        v = v * 10 + static_cast<uint64_t>(text[*pos] - '0');
        ++*pos;
    }
    if (*pos == start || *pos >= text.size() || text[*pos] != end || v > UINT32_MAX) return false;
    ++*pos;
    *value = static_cast<uint32_t>(v);
    return true;
}

}  // namespace

bool ParseChunkTag(const std::string& text, ChunkTag* tag) {
    size_t pos = 0;
    ChunkTag t;
    if (!ReadNumber(text, &pos, '/', &t.index) || !ReadNumber(text, &pos, '/', &t.count)) return false;
    t.id = text.substr(pos);
    if (t.id.empty() || t.count < 2 || t.count > kMaxChunks || t.index >= t.count) return false;
    *tag = std::move(t);
    return true;
}

std::vector<std::pair<size_t, size_t>> ChunkRanges(size_t total, size_t maxChunk) {
    std::vector<std::pair<size_t, size_t>> out;
    if (maxChunk == 0) maxChunk = 1;
    if (total <= maxChunk) {
        out.emplace_back(0, total);
        return out;
    }
    for (size_t off = 0; off < total; off += maxChunk) out.emplace_back(off, std::min(maxChunk, total - off));
    return out;
}

void CChunkAssembler::DropLocked(std::map<std::string, Partial>::iterator it) {
    for (const auto& p : it->second.parts) m_bytes -= p.size();
    m_partial.erase(it);
}

CChunkAssembler::Result CChunkAssembler::Add(const std::string& source, const ChunkTag& tag, const char* data,
                                             size_t len, std::string* whole) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const std::string key = source + "/" + tag.id;
    auto it = m_partial.find(key);
    if (it == m_partial.end()) {
        it = m_partial.emplace(key, Partial{}).first;
        it->second.count = tag.count;
        it->second.parts.resize(tag.count);
        it->second.started = std::chrono::steady_clock::now();
    }
    Partial& p = it->second;
    // A part is never empty (ChunkRanges gives slices of at least one byte),
    // so an empty slot means "not yet received".
    if (p.count != tag.count || len == 0 || !p.parts[tag.index].empty() || m_bytes + len > m_maxBytes) {
        DropLocked(it);
        return kRefused;
    }
    p.parts[tag.index].assign(data, len);
    m_bytes += len;
    if (++p.received < p.count) return kWaiting;
    whole->clear();
    size_t total = 0;
    for (const auto& part : p.parts) total += part.size();
    whole->reserve(total);
    for (const auto& part : p.parts) whole->append(part);
    DropLocked(it);
    return kComplete;
}

size_t CChunkAssembler::Expire() {
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto now = std::chrono::steady_clock::now();
    size_t dropped = 0;
    for (auto it = m_partial.begin(); it != m_partial.end();) {
        auto next = std::next(it);
        if (now - it->second.started > m_maxAge) {
            DropLocked(it);
            ++dropped;
        }
        it = next;
    }
    return dropped;
}

size_t CChunkAssembler::PendingBytes() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_bytes;
}

}  // namespace natsbus
