#include "host/product_observer.h"

#include <string>

namespace product {

namespace {

constexpr int kHeartbeatFunction = 620000;

bool Has(const std::string& text, const char* needle) { return text.find(needle) != std::string::npos; }

int64_t NowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

void CHostObserver::OnToCenter(COutgoing& msg) {
    const int function = msg.Int(5);
    if ((function != 620003 && function != 620031) || msg.Int(3) != 0) return;
    const int issueType = msg.Int(53);  // every publication carries one
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_publications[{function, issueType}];
}

void CHostObserver::OnLogLine(const hostemu::LogLine& line) {
    // The plug-in's lines for datagrams it drops (docs/operations.md).
    if (Has(line.text, u8"包格式不对"))
        ++m_framing;
    else if (Has(line.text, "get hq from data fail") || Has(line.text, u8"解析记录失败"))
        ++m_parse;
    else if (Has(line.text, u8"未知的记录类型"))
        ++m_unknown;
}

void CHostObserver::OnPostedIn(int functionNo, int rc) {
    if (rc != 0)
        ++m_refused;
    else if (functionNo == kHeartbeatFunction)
        m_lastHeartbeatNs = NowNs();
}

std::map<std::pair<int, int>, uint64_t> CHostObserver::Publications() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_publications;
}

double CHostObserver::SecondsSinceHeartbeat() const {
    const int64_t last = m_lastHeartbeatNs.load();
    return last == 0 ? -1.0 : static_cast<double>(NowNs() - last) / 1e9;
}

}  // namespace product
