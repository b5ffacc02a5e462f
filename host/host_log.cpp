// Log service: GBK to UTF-8, timestamped lines, capture for tests.
#include "host/host_log.h"

#include <iconv.h>
#include <sys/time.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>

namespace hostemu {

std::string GbkToUtf8(const std::string& text) {
    if (text.empty()) return text;
    bool ascii = true;
    for (unsigned char ch : text)
        if (ch >= 0x80) { ascii = false; break; }
    if (ascii) return text;
    // One converter per thread, opened once: texts are converted per cell.
    struct Converter {
        iconv_t cd = iconv_open("UTF-8", "GBK");
        ~Converter() {
            if (cd != reinterpret_cast<iconv_t>(-1)) iconv_close(cd);
        }
    };
    thread_local Converter converter;
    iconv_t cd = converter.cd;
    if (cd == reinterpret_cast<iconv_t>(-1)) return text;
    iconv(cd, nullptr, nullptr, nullptr, nullptr);  // initial state
    std::string out;
    out.reserve(text.size() * 3 / 2 + 8);
    std::vector<char> in(text.begin(), text.end());
    char* inp = in.data();
    size_t inLeft = in.size();
    char buf[1024];
    while (inLeft > 0) {
        char* outp = buf;
        size_t outLeft = sizeof(buf);
        size_t rc = iconv(cd, &inp, &inLeft, &outp, &outLeft);
        out.append(buf, static_cast<size_t>(outp - buf));
        if (rc == static_cast<size_t>(-1)) {
            if (errno == E2BIG) continue;
            // Invalid or truncated sequence: one '?' for the byte, go on.
            out.push_back('?');
            ++inp;
            --inLeft;
        }
    }
    return out;
}

std::string GbkToUtf8(const char* text) { return GbkToUtf8(std::string(text != nullptr ? text : "")); }

CHostLog::CHostLog(size_t capacity) : m_capacity(capacity == 0 ? 1 : capacity) {}

CHostLog::~CHostLog() {
    if (m_file != nullptr) fclose(m_file);
}

int CHostLog::QueryInterface(const char* id, IKnown** out) {
    if (out == nullptr) return 0;
    if (id != nullptr && strcmp(id, SID_LOG) == 0) {
        *out = this;
        return 1;
    }
    if (m_statsSink.QueryInterface(id, out) != 0) return 1;
    *out = nullptr;
    return 0;
}

int CHostLog::OpenFile(const std::string& path) {
    FILE* f = fopen(path.c_str(), "a");
    if (f == nullptr) return errno != 0 ? errno : -1;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_file != nullptr) fclose(m_file);
    m_file = f;
    return 0;
}

int CHostLog::AddLog(const char* function, int code, const char* text) {
    LogLine line;
    line.function = GbkToUtf8(function);
    line.code = code;
    line.raw = text != nullptr ? text : "";
    while (!line.raw.empty() && (line.raw.back() == '\n' || line.raw.back() == '\r')) line.raw.pop_back();
    line.text = GbkToUtf8(line.raw);
    if (m_tap) m_tap(line);

    timeval tv;
    gettimeofday(&tv, nullptr);
    tm lt;
    time_t secs = tv.tv_sec;
    localtime_r(&secs, &lt);
    char stamp[64];
    snprintf(stamp, sizeof(stamp), "%04d-%02d-%02d %02d:%02d:%02d.%03d", lt.tm_year + 1900, lt.tm_mon + 1,
             lt.tm_mday, lt.tm_hour, lt.tm_min, lt.tm_sec, static_cast<int>(tv.tv_usec / 1000));

    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_file != nullptr) {
        fprintf(m_file, "%s [%s] %d %s\n", stamp, line.function.c_str(), code, line.text.c_str());
        fflush(m_file);
    }
    if (m_stderr) fprintf(stderr, "%s [%s] %d %s\n", stamp, line.function.c_str(), code, line.text.c_str());
    m_lines.push_back(std::move(line));
    while (m_lines.size() > m_capacity) m_lines.pop_front();
    m_cond.notify_all();
    return 0;
}

std::vector<LogLine> CHostLog::Lines() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return std::vector<LogLine>(m_lines.begin(), m_lines.end());
}

size_t CHostLog::Count() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines.size();
}

namespace {
bool Matches(const LogLine& l, const std::string& needle) {
    return l.text.find(needle) != std::string::npos || l.raw.find(needle) != std::string::npos ||
           l.function.find(needle) != std::string::npos;
}
}  // namespace

size_t CHostLog::CountContaining(const std::string& needle) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    size_t n = 0;
    for (const LogLine& l : m_lines)
        if (Matches(l, needle)) ++n;
    return n;
}

bool CHostLog::WaitFor(const std::string& needle, int timeoutMs) const {
    std::unique_lock<std::mutex> lock(m_mutex);
    auto found = [&] {
        for (const LogLine& l : m_lines)
            if (Matches(l, needle)) return true;
        return false;
    };
    return m_cond.wait_for(lock, std::chrono::milliseconds(timeoutMs < 0 ? 0 : timeoutMs), found);
}

void CHostLog::Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
}

}  // namespace hostemu
