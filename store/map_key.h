// Key of every quote table: up to 127 characters, ordered byte-wise.
#pragma once

#include <cstring>

class CMapKey {
public:
    CMapKey() { std::memset(m_cKey, 0, sizeof m_cKey); }
    explicit CMapKey(const char* pszKey) {
        std::memset(m_cKey, 0, sizeof m_cKey);
        if (pszKey != nullptr) {
            size_t n = strnlen(pszKey, sizeof m_cKey - 1);
            std::memcpy(m_cKey, pszKey, n);
        }
    }

    const char* GetKey() const { return m_cKey; }

    bool operator<(const CMapKey& other) const { return std::strcmp(m_cKey, other.m_cKey) < 0; }

    char m_cKey[128];
};
