// Quote text readers (33100 -> 22 and 16, 33102 -> 18, 33105 -> 24) on
// arbitrary text, and the writers (22 -> 33100, 18 -> 33102, 24 -> 33105,
// 22 -> 16) on arbitrary record bytes, as a snapshot file may hold them.
//
// Input: a selector byte, then the text (readers) or the record bytes
// (writers; short input is zero-filled). For writers the selector's upper
// bits choose the output size, so cut texts are exercised too.
// Checked: readers leave the 33100 record untouched on failure; a text
// read back is written again within bounds; writer output is terminated
// inside the buffer.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "quote/quote_text.h"

namespace {

template <typename Rec>
Rec RecordFrom(const uint8_t* data, size_t size) {
    Rec rec;
    memset(&rec, 0, sizeof rec);
    memcpy(&rec, data, size < sizeof rec ? size : sizeof rec);
    return rec;
}

// Output buffer of exactly n bytes on the heap, so overruns are caught.
struct OutBuf {
    explicit OutBuf(size_t n) : bytes(n, '\x55') {}
    char* Get() { return bytes.data(); }
    int Size() const { return static_cast<int>(bytes.size()); }
    bool Terminated() const { return memchr(bytes.data(), '\0', bytes.size()) != nullptr; }
    std::vector<char> bytes;
};

size_t OutSize(uint8_t sel) {
    static const size_t kSizes[] = {4096, 1024, 512, 64, 17, 16, 2, 1};
    return kSizes[(sel >> 4) & 7];
}

void WriteBack22(tagHQInfo_EX* rec, size_t n) {
    OutBuf out(n);
    char* text = Convert22To33100(rec, out.Get(), out.Size());
    FUZZ_CHECK(text != nullptr);
    FUZZ_CHECK(text >= out.Get() && text < out.Get() + out.Size());
    FUZZ_CHECK(memchr(text, '\0', static_cast<size_t>(out.Get() + out.Size() - text)) != nullptr);
}

void WriteBack18(tagArgHQInfo* rec, size_t n) {
    OutBuf out(n);
    int r = Convert18To33102(rec, out.Get(), out.Size());
    FUZZ_CHECK(r == 0 || r == QUOTE_TEXT_TRUNCATED);
    FUZZ_CHECK(out.Terminated());
}

void WriteBack24(tagEXCHSTATUS* rec, size_t n) {
    OutBuf out(n);
    int r = Convert24To33105(rec, out.Get(), out.Size());
    FUZZ_CHECK(r == 0 || r == QUOTE_TEXT_TRUNCATED);
    FUZZ_CHECK(out.Terminated());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 || size > 8192) return 0;
    const uint8_t sel = data[0];
    const uint8_t* body = data + 1;
    const size_t n = size - 1;
    switch (sel & 7) {
        case 0: {
            fuzzsupport::TextBlock text(body, n);
            tagHQInfo_EX rec, before;
            memset(&rec, 0x5a, sizeof rec);
            memcpy(&before, &rec, sizeof rec);
            int r = Convert33100To22(text.Get(), &rec);
            FUZZ_CHECK(r <= 0);
            if (r != 0) {
                FUZZ_CHECK(memcmp(&rec, &before, sizeof rec) == 0);
            } else {
                WriteBack22(&rec, OutSize(sel));
                tagHQInfo legacy;
                memset(&legacy, 0, sizeof legacy);
                FUZZ_CHECK(ConvertHq22To16(&rec, legacy) == 0);
            }
            break;
        }
        case 1: {
            fuzzsupport::TextBlock text(body, n);
            tagHQInfo rec, before;
            memset(&rec, 0x5a, sizeof rec);
            memcpy(&before, &rec, sizeof rec);
            int r = Convert33100To16(text.Get(), &rec);
            FUZZ_CHECK(r <= 0);
            if (r != 0) FUZZ_CHECK(memcmp(&rec, &before, sizeof rec) == 0);
            break;
        }
        case 2: {
            fuzzsupport::TextBlock text(body, n);
            tagArgHQInfo rec;
            memset(&rec, 0, sizeof rec);
            int r = Convert33102To18(text.Get(), &rec);
            FUZZ_CHECK(r <= 0);
            if (r == 0) WriteBack18(&rec, OutSize(sel));
            break;
        }
        case 3: {
            fuzzsupport::TextBlock text(body, n);
            tagEXCHSTATUS rec;
            memset(&rec, 0, sizeof rec);
            int r = Convert33105To24(text.Get(), &rec);
            FUZZ_CHECK(r <= 0);
            if (r == 0) WriteBack24(&rec, OutSize(sel));
            break;
        }
        case 4: {
            tagHQInfo_EX rec = RecordFrom<tagHQInfo_EX>(body, n);
            WriteBack22(&rec, OutSize(sel));
            tagHQInfo legacy;
            memset(&legacy, 0, sizeof legacy);
            FUZZ_CHECK(ConvertHq22To16(&rec, legacy) == 0);
            FUZZ_CHECK(strnlen(legacy.contract_code, sizeof legacy.contract_code) < sizeof legacy.contract_code);
            break;
        }
        case 5: {
            tagArgHQInfo rec = RecordFrom<tagArgHQInfo>(body, n);
            WriteBack18(&rec, OutSize(sel));
            break;
        }
        case 6: {
            tagEXCHSTATUS rec = RecordFrom<tagEXCHSTATUS>(body, n);
            WriteBack24(&rec, OutSize(sel));
            break;
        }
        default: {
            fuzzsupport::TextBlock text(body, n);
            const char* a = ConvertExch(text.Get(), true);
            const char* b = ConvertExch(text.Get(), false);
            FUZZ_CHECK(a != nullptr && b != nullptr);
            break;
        }
    }
    return 0;
}
