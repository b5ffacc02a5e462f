// Trade-report text: the 33101 readers (deal and entrust) on arbitrary
// text, and every report writer and legacy copy on arbitrary record bytes
// (records read back from the message center travel byte for byte).
// The UDP report records themselves ('3', 'C', 'F', 'E') are parsed inside
// their handlers and are fuzzed through the dispatch target.
//
// Input: a selector byte, then text or record bytes (zero-filled when
// short). The selector's upper bits choose the output size.
// Checked: results are 0 or negative, outputs stay terminated inside their
// buffers, legacy copies leave the target's last text byte alone.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "report/report_text.h"

namespace {

template <typename Rec>
Rec RecordFrom(const uint8_t* data, size_t size) {
    Rec rec;
    memset(&rec, 0, sizeof rec);
    memcpy(&rec, data, size < sizeof rec ? size : sizeof rec);
    return rec;
}

size_t OutSize(uint8_t sel) {
    static const size_t kSizes[] = {1024, 2048, 512, 100, 16, 2, 1, 1024};
    return kSizes[(sel >> 4) & 7];
}

// Runs a writer into a heap buffer of exactly n bytes.
template <typename Rec, typename Fn>
void Write(Rec* rec, size_t n, Fn fn) {
    std::vector<char> out(n, '\x55');
    int r = fn(rec, out.data(), static_cast<int>(n));
    FUZZ_CHECK(r == 0 || r == QUOTE_TEXT_TRUNCATED);
    FUZZ_CHECK(memchr(out.data(), '\0', n) != nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 || size > 8192) return 0;
    const uint8_t sel = data[0];
    const uint8_t* body = data + 1;
    const size_t n = size - 1;
    const size_t outSize = OutSize(sel);
    switch (sel & 15) {
        case 0: {
            fuzzsupport::TextBlock text(body, n);
            tagCJ_EX cj;
            memset(&cj, 0, sizeof cj);
            int r = Convert33101ToCj(text.Get(), &cj, 1024);
            FUZZ_CHECK(r <= 0);
            if (r == 0) {
                Write(&cj, outSize, [](tagCJ_EX* p, char* o, int s) { return ConvertCjTo33101(p, o, s); });
                tagCJ legacy;
                memset(&legacy, 0, sizeof legacy);
                FUZZ_CHECK(ConvertCj23To17(&cj, legacy) == 0);
            }
            break;
        }
        case 1: {
            fuzzsupport::TextBlock text(body, n);
            tagWTQR_EX wt;
            memset(&wt, 0, sizeof wt);
            int r = Convert33101ToWT(text.Get(), &wt, 1024);
            FUZZ_CHECK(r <= 0);
            if (r == 0) {
                Write(&wt, outSize, [](tagWTQR_EX* p, char* o, int s) { return ConvertHbTo33101(p, o, s); });
                tagWTQR legacy;
                memset(&legacy, 0, sizeof legacy);
                FUZZ_CHECK(ConvertHb23To17(&wt, legacy) == 0);
            }
            break;
        }
        case 2: {
            tagHB hb = RecordFrom<tagHB>(body, n);
            Write(&hb, outSize, [](tagHB* p, char* o, int s) { return ConvertHbTo33101(p, o, s); });
            break;
        }
        case 3: {
            tagCJ_EX cj = RecordFrom<tagCJ_EX>(body, n);
            Write(&cj, outSize, [](tagCJ_EX* p, char* o, int s) { return ConvertCjTo33101(p, o, s); });
            tagCJ legacy;
            memset(&legacy, 0x7e, sizeof legacy);
            FUZZ_CHECK(ConvertCj23To17(&cj, legacy) == 0);
            FUZZ_CHECK(legacy.contract_code[sizeof legacy.contract_code - 1] == 0x7e);
            break;
        }
        case 4: {
            tagWTQR_EX wt = RecordFrom<tagWTQR_EX>(body, n);
            Write(&wt, outSize, [](tagWTQR_EX* p, char* o, int s) { return ConvertHbTo33101(p, o, s); });
            tagWTQR legacy;
            memset(&legacy, 0x7e, sizeof legacy);
            FUZZ_CHECK(ConvertHb23To17(&wt, legacy) == 0);
            FUZZ_CHECK(legacy.contract_code[sizeof legacy.contract_code - 1] == 0x7e);
            break;
        }
        case 5: {
            tagBJHB bj = RecordFrom<tagBJHB>(body, n);
            Write(&bj, outSize, [](tagBJHB* p, char* o, int s) { return ConvertBJHbTo33301(p, o, s); });
            break;
        }
        case 6: {
            tagXJ xj = RecordFrom<tagXJ>(body, n);
            Write(&xj, outSize, [](tagXJ* p, char* o, int s) { return ConvertXJHqTo33300(p, o, s); });
            break;
        }
        case 7: {
            tagOFFSET off = RecordFrom<tagOFFSET>(body, n);
            Write(&off, outSize, [](tagOFFSET* p, char* o, int s) { return ConvertOffsetTo33117(p, o, s); });
            break;
        }
        case 8: {
            tagZJZHBZJHB zj = RecordFrom<tagZJZHBZJHB>(body, n);
            Write(&zj, outSize,
                  [](tagZJZHBZJHB* p, char* o, int s) { return ConvertZJZH_BZJHBTo33106(p, o, s); });
            break;
        }
        default:
            break;
    }
    return 0;
}
