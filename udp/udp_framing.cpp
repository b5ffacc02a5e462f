// Framing check of a datagram (type character, five-digit length, text),
// used by every UDP handler before it reads the record.
#include <cstring>

#include "frame/tikron_service.h"
#include "wire/field_reader_fast.h"

// Type character when the framing holds; -2 when the datagram is shorter
// than its 6-byte header or the declared length (positions 1..5) exceeds
// the text from position 6; -1 for a null datagram.
int CTIKRONServiceImpl::CheckUDPData(void* data, int len) {
    // Any null datagram is refused (not only one shorter than the header).
    if (data == nullptr) return -1;
    // No length field to check: a framing error, so every handler logs it
    // instead of dropping the datagram in its parser without a word.
    if (len < 6) return -2;
    const char* text = static_cast<const char*>(data);
    char digits[6] = {0};
    memcpy(digits, text + 1, 5);
    int declared = tikron_fields::LengthFieldValue(digits);
    size_t textLen = strnlen(text + 6, static_cast<size_t>(len - 6));
    if (declared > 0 && static_cast<size_t>(declared) > textLen) return -2;
    return static_cast<unsigned char>(text[0]);
}
