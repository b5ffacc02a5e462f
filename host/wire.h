// Little-endian byte writer and bounds-checked reader shared by the message
// and packed-body encodings.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace hostemu {
namespace wire {

template <class Buf>
inline void PutU32(Buf& b, uint32_t v) {
    unsigned char x[4] = {static_cast<unsigned char>(v), static_cast<unsigned char>(v >> 8),
                          static_cast<unsigned char>(v >> 16), static_cast<unsigned char>(v >> 24)};
    b.insert(b.end(), x, x + 4);
}
template <class Buf>
inline void PutI32(Buf& b, int32_t v) { PutU32(b, static_cast<uint32_t>(v)); }
template <class Buf>
inline void PutBytes(Buf& b, const void* p, size_t n) {
    const unsigned char* c = static_cast<const unsigned char*>(p);
    b.insert(b.end(), c, c + n);
}

inline void SetU32At(unsigned char* p, uint32_t v) {
    p[0] = static_cast<unsigned char>(v);
    p[1] = static_cast<unsigned char>(v >> 8);
    p[2] = static_cast<unsigned char>(v >> 16);
    p[3] = static_cast<unsigned char>(v >> 24);
}

// Every read checks the remaining length first; a failed read leaves ok false.
class Reader {
public:
    Reader(const void* p, size_t n) : m_p(static_cast<const unsigned char*>(p)), m_n(n) {}
    bool U8(unsigned char* v) {
        if (m_n - m_pos < 1) return false;
        *v = m_p[m_pos++];
        return true;
    }
    bool U32(uint32_t* v) {
        if (m_n - m_pos < 4) return false;
        const unsigned char* c = m_p + m_pos;
        *v = static_cast<uint32_t>(c[0]) | (static_cast<uint32_t>(c[1]) << 8) |
             (static_cast<uint32_t>(c[2]) << 16) | (static_cast<uint32_t>(c[3]) << 24);
        m_pos += 4;
        return true;
    }
    bool I32(int32_t* v) {
        uint32_t u;
        if (!U32(&u)) return false;
        memcpy(v, &u, 4);
        return true;
    }
    bool Bytes(size_t n, std::string* out) {
        if (m_n - m_pos < n) return false;
        out->assign(reinterpret_cast<const char*>(m_p + m_pos), n);
        m_pos += n;
        return true;
    }
    bool Raw(size_t n, void* out) {
        if (m_n - m_pos < n) return false;
        memcpy(out, m_p + m_pos, n);
        m_pos += n;
        return true;
    }
    size_t Left() const { return m_n - m_pos; }

private:
    const unsigned char* m_p;
    size_t m_n;
    size_t m_pos = 0;
};

}  // namespace wire
}  // namespace hostemu
