// Reading 0x01-separated text records: a bounded working copy with the
// closing separator appended, and a chain of field reads that stops at the
// first failure.
#pragma once

#include <cstddef>
#include <cstring>

#include "wire/field_reader.h"

namespace tikron {

constexpr char kTextSep = '\x01';

// Working copy of a text of at most N-2 bytes, with one separator appended
// so that the last field is closed like every other one.
template <std::size_t N>
class WorkText {
public:
    static constexpr std::size_t kMaxLen = N - 2;

    WorkText() { std::memset(m_buf, 0, sizeof m_buf); }
    WorkText(const WorkText&) = delete;
    WorkText& operator=(const WorkText&) = delete;

    // 0, -1 for a null text, tooLong when the text does not fit (it is
    // refused rather than cut).
    int Load(const char* text, int tooLong) {
        if (text == nullptr) return -1;
        const std::size_t len = strnlen(text, kMaxLen + 1);
        if (len > kMaxLen) return tooLong;
        std::memcpy(m_buf, text, len);
        m_buf[len] = kTextSep;
        m_buf[len + 1] = '\0';
        m_cur = m_buf;
        return 0;
    }
    const char** Cursor() { return &m_cur; }
    bool AtEnd() const { return *m_cur == '\0'; }

private:
    char m_buf[N];
    const char* m_cur = m_buf;
};

// Field reads on one cursor. After the first failure every further call is
// skipped, so the fields behind it keep what they held and Result() is the
// first failing reader's code. Widths: 1 for characters, 4 for ints, 8 for
// doubles, the array size for texts.
class FieldSeq {
public:
    explicit FieldSeq(const char** cur) : m_cur(cur) {}
    FieldSeq& Char(char& c) {
        if (m_rc == 0) m_rc = GetNextValue(m_cur, 1, c, kTextSep);
        return *this;
    }
    FieldSeq& Int(int& i) {
        if (m_rc == 0) m_rc = GetNextValue(m_cur, 4, i, kTextSep);
        return *this;
    }
    // Doubles of the 4-byte packed records may be misaligned, so no
    // reference to them is formed: the value goes through set (see
    // TIKRON_DBL).
    template <typename Set>
    FieldSeq& Dbl(Set set) {
        if (m_rc == 0) {
            double v = 0.0;
            m_rc = GetNextValue(m_cur, 8, v, kTextSep);
            if (m_rc == 0) set(v);
        }
        return *this;
    }
    template <std::size_t M>
    FieldSeq& Text(char (&s)[M]) {
        if (m_rc == 0) m_rc = GetNextValue(m_cur, static_cast<int>(M), s, kTextSep);
        return *this;
    }
    bool Ok() const { return m_rc == 0; }
    int Result() const { return m_rc; }

private:
    const char** m_cur;
    int m_rc = 0;
};

}  // namespace tikron

// Setter for FieldSeq::Dbl that assigns a possibly misaligned double field.
#define TIKRON_DBL(lvalue) [&](double v_) { (lvalue) = v_; }
