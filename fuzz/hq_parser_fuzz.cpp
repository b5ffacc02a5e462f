// The four tables' record parsers (GetHQFromData) on arbitrary text.
// Input: a selector byte (low two bits: legacy single-leg, extended
// single-leg, arbitrage, exchange status), then the record text.
// Checked: a stored record can be found again by its key, and its key text
// is terminated within the record.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "fuzz/fuzz_support.h"
#include "store/hq_tables.h"

namespace {

struct Tables {
    fuzzsupport::CheckingLog log;
    CTIKRONInfo* legacy;
    CTIKRONInfo_EX* ext;
    CTIKRONARGInfo* arg;
    CExchStatusInfo* exch;
    Tables() {
        const std::string& dir = fuzzsupport::WorkDir();
        legacy = new CTIKRONInfo((dir + "/p_l.db").c_str());
        ext = new CTIKRONInfo_EX((dir + "/p_e.db").c_str());
        arg = new CTIKRONARGInfo((dir + "/p_a.db").c_str());
        exch = new CExchStatusInfo((dir + "/p_s.db").c_str());
        legacy->SetLogService(&log);
        ext->SetLogService(&log);
        arg->SetLogService(&log);
        exch->SetLogService(&log);
    }
};

template <typename Table, typename Rec>
void Run(Table* t, const char* text, int len) {
    Rec rec;
    memset(&rec, 0, sizeof rec);
    int r = t->GetHQFromData(text, len, &rec);
    FUZZ_CHECK(r <= 0);
    if (r == 0) {
        Rec probe;
        memset(&probe, 0, sizeof probe);
        // The key is the record's first field; it must be terminated inside.
        const char* key = reinterpret_cast<const char*>(&rec);
        size_t keyLen = strnlen(key, sizeof rec);
        FUZZ_CHECK(keyLen < sizeof rec);
        memcpy(&probe, key, keyLen);
        FUZZ_CHECK(t->GetHQInfo(&probe) == 1);
    }
    if (t->GetCount() > 2048) t->DeleteAll();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 || size > 16384) return 0;
    static Tables* tables = new Tables();
    fuzzsupport::TextBlock text(data + 1, size - 1);
    switch (data[0] & 3) {
        case 0: Run<CTIKRONInfo, tagHQInfo>(tables->legacy, text.Get(), text.Len()); break;
        case 1: Run<CTIKRONInfo_EX, tagHQInfo_EX>(tables->ext, text.Get(), text.Len()); break;
        case 2: Run<CTIKRONARGInfo, tagArgHQInfo>(tables->arg, text.Get(), text.Len()); break;
        default: Run<CExchStatusInfo, tagEXCHSTATUS>(tables->exch, text.Get(), text.Len()); break;
    }
    return 0;
}
