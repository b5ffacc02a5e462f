// Messages larger than the server's max_payload travel as chunks: each
// chunk carries the header "Tikron-Chunk: <index>/<count>/<id>" and a slice
// of the payload; the receiver puts the whole payload back together before
// anyone sees it. Partial messages are bounded in bytes and in age.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace natsbus {

struct ChunkTag {
    uint32_t index = 0;
    uint32_t count = 0;
    std::string id;
};

std::string FormatChunkTag(const ChunkTag& tag);
// False for anything but "<index>/<count>/<id>" with index < count,
// 1 < count <= kMaxChunks and a non-empty id.
bool ParseChunkTag(const std::string& text, ChunkTag* tag);

constexpr uint32_t kMaxChunks = 4096;

// Slices [offset, offset + length) of a payload of `total` bytes cut into
// chunks of at most maxChunk bytes (one slice when it fits).
std::vector<std::pair<size_t, size_t>> ChunkRanges(size_t total, size_t maxChunk);

class CChunkAssembler {
public:
    enum Result { kWaiting = 0, kComplete = 1, kRefused = -1 };
    CChunkAssembler(size_t maxBytes, int maxAgeMs) : m_maxBytes(maxBytes), m_maxAge(maxAgeMs) {}

    // Adds one chunk of the message `source`/tag.id. kComplete fills *whole.
    // kRefused: inconsistent count, repeated index, or the partial messages
    // would exceed maxBytes (that message is dropped whole).
    Result Add(const std::string& source, const ChunkTag& tag, const char* data, size_t len, std::string* whole);
    // Drops partial messages older than maxAgeMs; how many were dropped.
    size_t Expire();
    size_t PendingBytes() const;

private:
    struct Partial {
        uint32_t count = 0;
        uint32_t received = 0;
        std::vector<std::string> parts;
        std::chrono::steady_clock::time_point started;
    };
    mutable std::mutex m_mutex;
    std::map<std::string, Partial> m_partial;
    size_t m_bytes = 0;
    size_t m_maxBytes;
    std::chrono::milliseconds m_maxAge;
    void DropLocked(std::map<std::string, Partial>::iterator it);
};

}  // namespace natsbus
