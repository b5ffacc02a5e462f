// Publication of UDP records to the message center with the service's own
// packer: obtain a message, pack the subscription key into item 54, prepare
// it as a request of the given function number, set the issue type (item 53),
// pack the body into item 8, and hand it on with TransferMsg. A message the
// next service does not take is released here.
#pragma once

#include <cstddef>
#include <cstring>

#include "frame/tikron_service.h"

namespace tikron_udp {

constexpr int kFuncQuotePublish = 620003;   // quote publications
constexpr int kFuncReportPublish = 620031;  // reports from the back end

constexpr int kTypeSingleLeg = 1;  // "type" value of issue types 22 and 16
constexpr int kTypeArbitrage = 9;  // "type" value of issue type 18

// One key column ('S', 255, 4) with its value, added as text or as int.
struct KeyColumn {
    const char* name;
    const char* text;  // used when !isInt
    int number;        // used when isInt
    bool isInt;
};

inline KeyColumn TextKey(const char* name, const char* text) { return {name, text, 0, false}; }
inline KeyColumn IntKey(const char* name, int number) { return {name, nullptr, number, true}; }

// Body of one message.
struct Body {
    enum Kind { RawWithType, RawOnly, Text } kind;
    const char* column;  // raw column name, or "QH" for texts
    int width;           // declared column width
    int typeValue;       // "type" column (RawWithType only)
    const void* data;    // raw bytes
    int len;
    const char* text;    // Text only
};

inline Body RawQuoteBody(int typeValue, const void* rec, int len) {
    return {Body::RawWithType, "futu_hq_raw", 10240, typeValue, rec, len, nullptr};
}
inline Body RawExchStatusBody(const void* rec, int len) {
    return {Body::RawOnly, "futu_exch_status_raw", 1024, 0, rec, len, nullptr};
}
inline Body TextBody(const char* text, int width) {
    return {Body::Text, "QH", width, 0, nullptr, 0, text};
}

// Declares the body's columns and adds its one row on a packer between
// BeginPack and EndPack; 0 or the first failing call's result. Every
// publication of a quote record or text, from UDP or converted, has one of
// these bodies.
int AddBody(IF2Packer& p, const Body& b);

enum PublishResult {
    PUBLISHED = 0,     // taken by the next service
    NOT_TAKEN = 1,     // refused by the chain; released here
    NO_MESSAGE = 2,    // the host had no message: skipped silently
    NO_PACKER = -1,    // the service has no packer: logged, nothing sent
    PACK_FAILED = -2,  // the packer refused a value: logged, message released
};

// keys: 1 or 2 columns (one row). Runs on the datagram consumer thread only:
// the service's packer is not shared with any other thread.
int Publish(CTIKRONServiceImpl& svc, int functionNo, int issueType, const KeyColumn* keys,
            int keyCount, const Body& body);

inline int Publish(CTIKRONServiceImpl& svc, int functionNo, int issueType, const KeyColumn& key,
                   const Body& body) {
    return Publish(svc, functionNo, issueType, &key, 1, body);
}

// A one-column text key packed once and reused by several publications of
// the same record (SetRawData copies the bytes). When the key does not pack
// or does not fit, Ready() is false and Publish packs the key itself, so a
// failure is logged per publication exactly as without reuse.
class PackedKey {
public:
    PackedKey(CTIKRONServiceImpl& svc, const KeyColumn& key);
    bool Ready() const { return m_len > 0; }
    // The key it was packed from (text of a TextKey).
    const KeyColumn& Key() const { return m_key; }
    const char* Bytes() const { return m_bytes; }
    int Length() const { return m_len; }

private:
    KeyColumn m_key;
    char m_bytes[512];
    int m_len = 0;
};

// Same as Publish with key.Key(), with the packed bytes reused when ready.
int Publish(CTIKRONServiceImpl& svc, int functionNo, int issueType, const PackedKey& key,
            const Body& body);

// Terminated copy of a fixed-width record text field for use as a key: at
// most min(N, M) - 1 bytes, so an unterminated field cannot be overread.
template <std::size_t M, std::size_t N>
const char* FieldText(char (&dst)[M], const char (&field)[N]) {
    const std::size_t cap = (M - 1 < N) ? M - 1 : N;
    const std::size_t n = strnlen(field, cap);
    std::memcpy(dst, field, n);
    dst[n] = '\0';
    return dst;
}

}  // namespace tikron_udp
