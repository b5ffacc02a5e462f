// Helpers shared by the quote-store tests: a recording log service, a
// scratch directory and realistic datagram texts.
#pragma once

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <mutex>
#include <string>
#include <vector>

#include "frame/host_interfaces.h"

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

class ScratchDir {
public:
    ScratchDir() {
        char tmpl[] = "/tmp/tikron_store_XXXXXX";
        const char* d = mkdtemp(tmpl);
        path = d ? d : "/tmp";
    }
    ~ScratchDir() {
        std::string cmd = "rm -rf '" + path + "'";
        if (path != "/tmp") (void)std::system(cmd.c_str());
    }
    std::string File(const std::string& name) const { return path + "/" + name; }
    std::string path;
};

inline long FileSize(const std::string& p) {
    struct stat st {};
    if (stat(p.c_str(), &st) != 0) return -1;
    return static_cast<long>(st.st_size);
}

inline std::string ReadAll(const std::string& p) {
    std::ifstream in(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteAll(const std::string& p, const std::string& bytes) {
    std::ofstream out(p, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

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
