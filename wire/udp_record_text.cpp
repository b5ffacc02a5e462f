#include "wire/udp_record_text.h"

#include <vector>

namespace tikron_udp {

std::string PrepareRecordText(const void* data, int len) {
    if (data == nullptr || len < 0) return ",";
    const char* p = static_cast<const char*>(data);
    size_t n = strnlen(p, static_cast<size_t>(len));
    // Everything from the last '&' on is dropped; a '&' inside the header
    // only (none in the text) leaves the text whole.
    for (size_t i = n; i > static_cast<size_t>(kUdpHeaderLen); --i) {
        if (p[i - 1] == '&') {
            n = i - 1;
            break;
        }
    }
    std::string text = n > static_cast<size_t>(kUdpHeaderLen) ? std::string(p + kUdpHeaderLen, n - kUdpHeaderLen)
                                                               : std::string();
    text += ',';
    return text;
}

RecordFields& RecordFields::Skip(int width) {
    if (Due()) {
        std::vector<char> sink(static_cast<size_t>(width > 0 ? width : 1), '\0');
        m_rc = GetNextValue(&m_cur, width, sink.data(), ',');
    }
    return *this;
}

}  // namespace tikron_udp
