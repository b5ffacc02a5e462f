#include "runtime/trim_str.h"

std::string TrimStr(std::string& s) {
    static const char kSpace[] = " \a\b\f\n\r\t\v";
    std::string::size_type first = s.find_first_not_of(kSpace);
    if (first == std::string::npos) return std::string();
    std::string::size_type last = s.find_last_not_of(kSpace);
    return s.substr(first, last - first + 1);
}
