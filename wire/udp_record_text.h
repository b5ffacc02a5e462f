// Text of a ','-separated UDP record (inquiry, quote report, trade report,
// offset setting, margin account, pushes) prepared for the field reader:
// cut at the last '&', header skipped, one ',' appended so that the last
// field is closed too; plus a chain of reads on it.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>

#include "wire/field_reader.h"

namespace tikron_udp {

// Length of the record header (type character and five-digit length).
constexpr int kUdpHeaderLen = 6;

// The datagram is read up to len bytes or its first NUL, whichever comes
// first. Shorter than the 6-byte header: an empty text (then just ",").
std::string PrepareRecordText(const void* data, int len);

// Reads on one cursor; after the first failure every further read is
// skipped and Result() is that reader's code. Reads after Optional() happen
// only while a ',' remains after the cursor; once none does, they are
// skipped without error and leave their fields as they were.
class RecordFields {
public:
    explicit RecordFields(const std::string& text) : m_cur(text.c_str()) {}

    template <std::size_t N>
    RecordFields& Text(char (&s)[N]) {
        if (Due()) m_rc = GetNextValue(&m_cur, static_cast<int>(N), s, ',');
        return *this;
    }
    RecordFields& Int(int& v) {
        if (Due()) m_rc = GetNextValue(&m_cur, 4, v, ',');
        return *this;
    }
    RecordFields& Char(char& c) {
        if (Due()) m_rc = GetNextValue(&m_cur, 1, c, ',');
        return *this;
    }
    // Doubles of the packed records may be misaligned: the value is
    // assigned through set, never bound by reference.
    template <typename Set>
    RecordFields& Dbl(Set set) {
        if (Due()) {
            double v = 0.0;
            m_rc = GetNextValue(&m_cur, 8, v, ',');
            if (m_rc == 0) set(v);
        }
        return *this;
    }
    // A field read with the given width and dropped.
    RecordFields& Skip(int width);
    RecordFields& Optional() {
        m_optional = true;
        return *this;
    }
    bool Ok() const { return m_rc == 0; }
    int Result() const { return m_rc; }

private:
    bool Due() const { return m_rc == 0 && (!m_optional || strchr(m_cur, ',') != nullptr); }

    const char* m_cur;
    int m_rc = 0;
    bool m_optional = false;
};

}  // namespace tikron_udp

// Setter for RecordFields::Dbl that assigns a possibly misaligned double field.
#define TIKRON_UDP_DBL(lvalue) [&](double v_) { (lvalue) = v_; }
