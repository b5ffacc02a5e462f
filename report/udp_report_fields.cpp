#include "report/udp_report_fields.h"

#include <cstring>
#include <vector>

namespace tikron {

std::string PrepareUdpReport(const void* data, int len) {
    if (data == nullptr || len <= 0) return std::string(",");
    const char* p = static_cast<const char*>(data);
    std::size_t n = strnlen(p, static_cast<std::size_t>(len));
    // Trailer after the last '&' (the '&' included) is not part of the record.
    for (std::size_t i = n; i > 0; --i) {
        if (p[i - 1] == '&') {
            n = i - 1;
            break;
        }
    }
    std::string text;
    if (n > static_cast<std::size_t>(kUdpHeaderLen)) text.assign(p + kUdpHeaderLen, n - kUdpHeaderLen);
    text.push_back(',');
    return text;
}

UdpFields& UdpFields::Skip(int width) {
    if (Due()) {
        std::vector<char> sink(static_cast<std::size_t>(width > 0 ? width : 1), '\0');
        m_rc = GetNextValue(&m_cur, width, sink.data(), ',');
    }
    return *this;
}

bool UdpFields::Due() {
    if (m_rc != 0 || m_ended) return false;
    if (m_optional && std::strchr(m_cur, ',') == nullptr) {
        m_ended = true;
        return false;
    }
    return true;
}

}  // namespace tikron
