// ','-separated report records received over UDP: the record text prepared
// for reading (cut at the last '&', header skipped, closing ',' appended) and
// a chain of field reads that stops at the first failure.
#pragma once

#include <cstddef>
#include <string>

#include "udp/field_reader.h"

namespace tikron {

// Length of the record header (type character and five-digit length).
constexpr int kUdpHeaderLen = 6;

// The record's text within len bytes (up to its first NUL), everything from
// the last '&' on removed, the first six characters skipped, and one ','
// appended so that the last field is closed like every other one.
std::string PrepareUdpReport(const void* data, int len);

// Field reads on one cursor into the prepared text. After the first failure
// every further read is skipped and Result() is that read's code. In the
// optional part (after Optional()) a read happens only while the rest of the
// text still holds a ','; once it does not, the remaining reads are skipped
// without error.
class UdpFields {
public:
    explicit UdpFields(const std::string& text) : m_cur(text.c_str()) {}

    UdpFields& Int(int& v) {
        if (Due()) m_rc = GetNextValue(&m_cur, 4, v, ',');
        return *this;
    }
    // Doubles of the packed records may be misaligned: read into a local
    // and assign, never bind a reference to the field.
    template <typename Set>
    UdpFields& Dbl(Set set) {
        if (Due()) {
            double v = 0.0;
            m_rc = GetNextValue(&m_cur, 8, v, ',');
            if (m_rc == 0) set(v);
        }
        return *this;
    }
    UdpFields& Char(char& c) {
        if (Due()) m_rc = GetNextValue(&m_cur, 1, c, ',');
        return *this;
    }
    template <std::size_t N>
    UdpFields& Text(char (&s)[N]) {
        if (Due()) m_rc = GetNextValue(&m_cur, static_cast<int>(N), s, ',');
        return *this;
    }
    // A field that is read with the given width and dropped.
    UdpFields& Skip(int width);

    // The following reads are optional.
    UdpFields& Optional() {
        m_optional = true;
        return *this;
    }
    bool Ok() const { return m_rc == 0; }
    int Result() const { return m_rc; }

private:
    bool Due();

    const char* m_cur;
    int m_rc = 0;
    bool m_optional = false;
    bool m_ended = false;
};

}  // namespace tikron

// Setter for UdpFields::Dbl that assigns a possibly misaligned double field.
#define TIKRON_SET_DBL(lvalue) [&](double v_) { (lvalue) = v_; }
