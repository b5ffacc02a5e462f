// Bounded text copy into fixed-width record fields.
#pragma once

#include <cstddef>
#include <cstring>

// Copies at most cap-1 bytes of src (null reads as empty) and terminates.
inline void CopyField(char* dst, size_t cap, const char* src) {
    if (dst == nullptr || cap == 0) return;
    if (src == nullptr) src = "";
    size_t n = strnlen(src, cap - 1);
    memcpy(dst, src, n);
    dst[n] = '\0';
}

template <size_t N>
inline void CopyField(char (&dst)[N], const char* src) {
    CopyField(dst, N, src);
}
