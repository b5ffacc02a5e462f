#include "fuzz/fuzz_support.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "host/host_message.h"
#include "host/host_pack.h"
#include "testing/temp_dir.h"

namespace fuzzsupport {

void Check(bool ok, const char* what, const char* file, int line) {
    if (ok) return;
    fprintf(stderr, "%s:%d: property broken: %s\n", file, line, what);
    fflush(stderr);
    abort();
}

const std::string& WorkDir() {
    static const testing_support::TempDir dir;  // removed at exit
    return dir.path();
}

int CheckingLog::QueryInterface(const char*, IKnown** out) {
    if (out != nullptr) *out = nullptr;
    return 0;
}

int CheckingLog::AddLog(const char* function, int, const char* text) {
    FUZZ_CHECK(function != nullptr && text != nullptr);
    // The plug-in formats lines into bounded buffers: a line longer than
    // that means an unbounded path.
    FUZZ_CHECK(strnlen(function, 256) < 256);
    FUZZ_CHECK(strnlen(text, 1 << 16) < (1 << 16));
    m_lines.fetch_add(1, std::memory_order_relaxed);
    return 0;
}

int CheckingNeighbour::QueryInterface(const char* id, IKnown** out) {
    if (out == nullptr) return 0;
    if (id != nullptr && strcmp(id, SID_MESSAGESERVICE) == 0) {
        *out = this;
        return 1;
    }
    *out = nullptr;
    return 0;
}

int CheckingNeighbour::PostMsg(IESBMessage* msg, IMessageService*) {
    FUZZ_CHECK(msg != nullptr);
    if (m_refuse.load()) return 1;
    int len = 0;
    const void* buf = msg->GetBuffer(&len);
    FUZZ_CHECK(buf != nullptr && len > 0);
    hostemu::MessageSnapshot snap;
    FUZZ_CHECK(hostemu::DecodeMessage(buf, len, &snap) == 0);
    // Whatever the plug-in publishes must be a well-formed packed body.
    for (int tag : {8, 54}) {
        std::vector<char> raw = snap.Raw(tag);
        if (raw.empty()) continue;
        hostemu::PackedBody body;
        FUZZ_CHECK(hostemu::DecodePacked(raw.data(), static_cast<int>(raw.size()), &body) == 0);
    }
    msg->Release();
    m_count.fetch_add(1, std::memory_order_relaxed);
    return 0;
}

TextBlock::TextBlock(const uint8_t* data, size_t n) {
    m_p = static_cast<char*>(malloc(n + 1));
    FUZZ_CHECK(m_p != nullptr);
    if (n > 0) memcpy(m_p, data, n);
    m_p[n] = '\0';
    m_len = static_cast<int>(n);
}

TextBlock::~TextBlock() { free(m_p); }

bool WriteFile(const std::string& path, const uint8_t* data, size_t n) {
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) return false;
    size_t done = 0;
    while (done < n) {
        ssize_t w = write(fd, data + done, n - done);
        if (w <= 0) break;
        done += static_cast<size_t>(w);
    }
    close(fd);
    return done == n;
}

}  // namespace fuzzsupport
