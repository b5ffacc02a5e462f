// Bounded builder for the 0x01-separated text records, and bounded copies
// between fixed-width text fields.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "quote/number_format.h"

// Field separator of every text record.
#define TIKRON_SEP "\x01"

namespace tikron {

// Appends formatted pieces to a caller's buffer without ever writing past
// its size. Once a piece does not fit, the text is cut at the bound, stays
// NUL-terminated and Truncated() reports it.
class TextWriter {
public:
    TextWriter(char* buf, std::size_t size) : m_buf(buf), m_size(size) {
        if (m_buf != nullptr && m_size > 0) m_buf[0] = '\0';
    }

    __attribute__((format(printf, 2, 3))) void Add(const char* fmt, ...) {
        if (m_buf == nullptr || m_size == 0 || m_truncated) {
            m_truncated = true;
            return;
        }
        va_list ap;
        va_start(ap, fmt);
        const int n = std::vsnprintf(m_buf + m_len, m_size - m_len, fmt, ap);
        va_end(ap);
        if (n < 0 || static_cast<std::size_t>(n) >= m_size - m_len) {
            m_truncated = true;
            m_len = m_size - 1;
            return;
        }
        m_len += static_cast<std::size_t>(n);
    }

    // Typed appends without printf, byte-identical to Add with "%f", "%d",
    // "%.*s" (a fixed-width field up to its terminator), "%c" and the
    // separator; the same bound and truncation rules apply.
    void Put(const char* p, std::size_t n) {
        if (!Room()) return;
        const std::size_t left = m_size - m_len;
        if (n >= left) {
            std::memcpy(m_buf + m_len, p, left - 1);
            m_len = m_size - 1;
            m_buf[m_len] = '\0';
            m_truncated = true;
            return;
        }
        std::memcpy(m_buf + m_len, p, n);
        m_len += n;
        m_buf[m_len] = '\0';
    }
    void Dbl(double v) {
        if (!Room()) return;
        if (m_size - m_len > kFixed6MaxLen) {
            m_len = static_cast<std::size_t>(FormatFixed6(m_buf + m_len, v) - m_buf);
            m_buf[m_len] = '\0';
            return;
        }
        char tmp[kFixed6MaxLen];
        Put(tmp, static_cast<std::size_t>(FormatFixed6(tmp, v) - tmp));
    }
    void Int(int v) {
        if (Room() && m_size - m_len > kIntMaxLen) {
            m_len = static_cast<std::size_t>(FormatInt(m_buf + m_len, v) - m_buf);
            m_buf[m_len] = '\0';
            return;
        }
        char tmp[kIntMaxLen];
        Put(tmp, static_cast<std::size_t>(FormatInt(tmp, v) - tmp));
    }
    template <std::size_t N>
    void Field(const char (&field)[N]) {
        Put(field, strnlen(field, N));
    }
    // One byte with room for it and the terminator: stored directly.
    void Chr(char c) {
        if (m_buf != nullptr && !m_truncated && m_size - m_len > 1) {
            m_buf[m_len++] = c;
            m_buf[m_len] = '\0';
            return;
        }
        Put(&c, 1);
    }
    void Sep() { Chr(TIKRON_SEP[0]); }

    // Bytes written, the zero bytes printed by "%c" of 0 included.
    std::size_t Length() const { return m_len; }
    bool Truncated() const { return m_truncated; }

private:
    bool Room() {
        if (m_buf == nullptr || m_size == 0 || m_truncated) {
            m_truncated = true;
            return false;
        }
        return true;
    }

    char* m_buf;
    std::size_t m_size;
    std::size_t m_len = 0;
    bool m_truncated = false;
};

// Length of a text field of fixed width that may lack its terminator.
template <std::size_t N>
int FieldLen(const char (&field)[N]) {
    return static_cast<int>(strnlen(field, N));
}

// strncpy of at most count bytes from a field of srcWidth bytes: stops at the
// source's terminator, zero-fills the rest of the count and leaves the bytes
// of dst beyond count untouched.
inline void CopyField(char* dst, std::size_t count, const char* src, std::size_t srcWidth) {
    std::size_t n = strnlen(src, srcWidth < count ? srcWidth : count);
    std::memcpy(dst, src, n);
    std::memset(dst + n, 0, count - n);
}

// Copy into a whole field: at most N-1 bytes, always terminated.
template <std::size_t N, std::size_t M>
void CopyText(char (&dst)[N], const char (&src)[M]) {
    CopyField(dst, N - 1, src, M);
    dst[N - 1] = '\0';
}

}  // namespace tikron
