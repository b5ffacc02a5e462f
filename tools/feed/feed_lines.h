// Capture files of tikron-feed: one datagram per line. Lines starting with
// '#' and empty lines are skipped. Escapes: "^A" is the byte 0x01, "\xHH"
// any byte, "\\" a backslash, "\n" / "\r" / "\t" those characters. A
// trailing '\r' (CRLF files) is dropped.
#pragma once

#include <string>
#include <vector>

namespace feed {

// Decodes one line; false with a reason on a malformed escape.
bool UnescapeLine(const std::string& line, std::string* out, std::string* error);

// Reads a capture; false with "file:line: reason" on the first bad line.
bool ReadCapture(const std::string& path, std::vector<std::string>* datagrams, std::string* error);

// The framed datagram: type character, five-digit text length, text.
// Texts longer than 99999 characters are refused (empty result).
std::string Frame(char type, const std::string& text);

}  // namespace feed
