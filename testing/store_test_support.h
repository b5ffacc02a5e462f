// Helpers shared by the quote-store tests: a recording log service, a
// scratch directory, realistic datagram texts and snapshot file images.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "frame/host_interfaces.h"
#include "wire/quote_records.h"
#include "testing/temp_dir.h"

struct LoggedLine {
    std::string function;
    int code;
    std::string text;
};

class RecordingLog : public ILogService {
public:
    int QueryInterface(const char*, IKnown** out) override {
        if (out) *out = nullptr;
        return -1;
    }
    int AddRef() override { return 1; }
    int Release() override { return 1; }
    int AddLog(const char* function, int code, const char* text) override {
        std::lock_guard<std::mutex> g(m_mutex);
        lines.push_back({function ? function : "", code, text ? text : ""});
        return 0;
    }
    size_t Count(const std::string& text) {
        std::lock_guard<std::mutex> g(m_mutex);
        size_t n = 0;
        for (auto& l : lines) n += l.text == text ? 1 : 0;
        return n;
    }
    std::vector<LoggedLine> lines;

private:
    std::mutex m_mutex;
};

using ScratchDir = testing_support::TempDir;
using testing_support::FileSize;
using testing_support::ReadFile;
using testing_support::WriteFile;

// A single-leg quote text (47 fields) for the given contract and exchange.
inline std::string SingleLegText(const std::string& code, const std::string& exch, double last = 3861.4) {
    char buf[1024];
    std::snprintf(buf, sizeof buf,
                  "%s,3850.2,3855.0,%.1f,3861.2,12,340,3861.6,8,290,3870.0,3845.2,3858.37,11.2,80321,160234,"
                  "92973211400.0,4235.2,3465.2,X,0,0,0,0,3849.8,158000,0,0,0,0,3861.0,5,3860.8,7,3860.6,9,"
                  "3860.4,11,3861.8,4,3862.0,6,3862.2,8,3862.4,10,%s",
                  code.c_str(), last, exch.c_str());
    return buf;
}

// A snapshot file's bytes: the header (date, slot count), the slots, then
// `tail` bytes of a partial slot.
template <typename T>
std::string SnapshotImage(uint64_t date, const std::vector<tagSaveHQInfo<T>>& slots, size_t tail = 0) {
    const tagHQFileHead h{date, slots.size()};
    std::string b(reinterpret_cast<const char*>(&h), sizeof h);
    for (const auto& s : slots) b.append(reinterpret_cast<const char*>(&s), sizeof s);
    return b.append(tail, '\x5a');
}

// Slot k (from 1) of a snapshot file, zero when the file is shorter.
template <typename T>
tagSaveHQInfo<T> SlotInFile(const std::string& path, int k) {
    tagSaveHQInfo<T> s;
    std::memset(&s, 0, sizeof s);
    const std::string b = ReadFile(path);
    const size_t off = sizeof(tagHQFileHead) + static_cast<size_t>(k - 1) * sizeof s;
    if (b.size() >= off + sizeof s) std::memcpy(&s, b.data() + off, sizeof s);
    return s;
}
