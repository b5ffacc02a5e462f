#include "udp/udp_record_text.h"

namespace tikron_udp {

std::string PrepareRecordText(const char* data, int len) {
    if (data == nullptr || len < 0) return ",";
    size_t n = strnlen(data, static_cast<size_t>(len));
    // Everything from the last '&' on is dropped; a '&' inside the header
    // only (none in the text) leaves the text whole.
    for (size_t i = n; i > 6; --i) {
        if (data[i - 1] == '&') {
            n = i - 1;
            break;
        }
    }
    std::string text = n > 6 ? std::string(data + 6, n - 6) : std::string();
    text += ',';
    return text;
}

}  // namespace tikron_udp
