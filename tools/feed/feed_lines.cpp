#include "tools/feed/feed_lines.h"

#include <cstdio>
#include <fstream>

namespace feed {

namespace {
int Hex(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}
}  // namespace

bool UnescapeLine(const std::string& line, std::string* out, std::string* error) {
    std::string s;
    s.reserve(line.size());
    size_t end = line.size();
    if (end > 0 && line[end - 1] == '\r') --end;
    for (size_t i = 0; i < end; ++i) {
        char c = line[i];
        if (c == '^' && i + 1 < end && line[i + 1] == 'A') {
            s.push_back('\x01');
            ++i;
        } else if (c == '\\') {
            if (i + 1 >= end) {
                *error = "backslash at the end of the line";
                return false;
            }
            char e = line[++i];
            switch (e) {
                case '\\': s.push_back('\\'); break;
                case 'n': s.push_back('\n'); break;
                case 'r': s.push_back('\r'); break;
                case 't': s.push_back('\t'); break;
                case 'x': {
                    int hi = i + 1 < end ? Hex(line[i + 1]) : -1;
                    int lo = i + 2 < end ? Hex(line[i + 2]) : -1;
                    if (hi < 0 || lo < 0) {
                        *error = "\\x needs two hex digits";
                        return false;
                    }
                    s.push_back(static_cast<char>(hi * 16 + lo));
                    i += 2;
                    break;
                }
                default:
                    *error = std::string("unknown escape \\") + e;
                    return false;
            }
        } else {
            s.push_back(c);
        }
    }
    *out = std::move(s);
    return true;
}

bool ReadCapture(const std::string& path, std::vector<std::string>* datagrams, std::string* error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        *error = path + ": cannot open";
        return false;
    }
    std::string line;
    size_t number = 0;
    while (std::getline(in, line)) {
        ++number;
        if (line.empty() || line[0] == '#' || line == "\r") continue;
        std::string d, why;
        if (!UnescapeLine(line, &d, &why)) {
            *error = path + ":" + std::to_string(number) + ": " + why;
            return false;
        }
        if (d.empty()) continue;
        if (d.size() > 65507) {
            *error = path + ":" + std::to_string(number) + ": longer than one UDP datagram";
            return false;
        }
        datagrams->push_back(std::move(d));
    }
    return true;
}

std::string Frame(char type, const std::string& text) {
    if (text.size() > 99999) return std::string();
    char head[8];
    snprintf(head, sizeof head, "%c%05u", type, static_cast<unsigned>(text.size()));
    return head + text;
}

}  // namespace feed
