// Log service of the emulator: one line per AddLog with local timestamp,
// function name, code and text (GBK converted to UTF-8 with iconv), written
// to a file and/or stderr and captured for tests.
#pragma once

#include <condition_variable>
#include <cstdio>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "frame/host_interfaces.h"
#include "host/host_stats_sink.h"

namespace hostemu {

struct LogLine {
    std::string function;  // UTF-8
    int code = 0;
    std::string text;      // UTF-8, trailing line breaks removed
    std::string raw;       // the text as passed (GBK), trailing line breaks removed
};

// GBK bytes to UTF-8; invalid sequences become '?'.
std::string GbkToUtf8(const char* text);
std::string GbkToUtf8(const std::string& text);

class CHostLog final : public ILogService {
public:
    // Keeps at most `capacity` captured lines (oldest dropped).
    explicit CHostLog(size_t capacity = 200000);
    ~CHostLog();
    CHostLog(const CHostLog&) = delete;
    CHostLog& operator=(const CHostLog&) = delete;

    int QueryInterface(const char* id, IKnown** out) override;
    int AddLog(const char* function, int code, const char* text) override;  // 0
    int AddRef() override { return 1; }
    int Release() override { return 1; }

    int OpenFile(const std::string& path);  // 0, or errno (appends)
    void SetStderr(bool on) { m_stderr = on; }

    // Sees every line as it is written (set before the plug-in is loaded).
    void SetTap(std::function<void(const LogLine&)> tap) { m_tap = std::move(tap); }
    // The statistics sink this log answers QueryInterface with.
    CStatsSink& StatsSink() { return m_statsSink; }

    std::vector<LogLine> Lines() const;
    size_t Count() const;
    // Matching: a line matches when its UTF-8 text, its raw (GBK) text or its
    // function contains `needle`, so literals of a test compiled with
    // -fexec-charset=GBK and u8"" literals both work.
    size_t CountContaining(const std::string& needle) const;
    // True when a matching line exists within timeoutMs.
    bool WaitFor(const std::string& needle, int timeoutMs) const;
    void Clear();

private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_cond;
    std::deque<LogLine> m_lines;
    size_t m_capacity;
    FILE* m_file = nullptr;
    bool m_stderr = false;
    std::function<void(const LogLine&)> m_tap;
    CStatsSink m_statsSink;
};

}  // namespace hostemu
