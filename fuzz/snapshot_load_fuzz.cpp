// A quote table built over an arbitrary snapshot file (LoadFromFile with
// the journal replay before it), then used: records are read back, an
// existing key is updated, a new key is added, and the table is emptied.
//
// Input: a selector byte (bits 0-1 table; bit 2 stamp today's date into the
// header so the slots are loaded; bit 3 a journal follows), with bit 3 two
// bytes of journal length and that many journal bytes, then the file.
// Checked: every loaded key is found again, the table answers after the
// updates, and the file then holds whole slots behind a header.
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "store/hq_tables.h"
#include "store/snapshot_journal.h"

namespace {

fuzzsupport::CheckingLog g_log;

template <typename Table, typename Rec>
void Exercise(const std::string& path) {
    Table table(path.c_str());
    table.SetLogService(&g_log);
    std::vector<Rec> loaded;
    table.LockMap();
    for (auto& kv : table.GetHQMap()) loaded.push_back(kv.second->szHQInfo);
    table.UnlockMap();
    FUZZ_CHECK(loaded.size() == table.GetCount());
    for (Rec r : loaded) {
        Rec probe = r;
        FUZZ_CHECK(table.GetHQInfo(&probe) == 1);
    }
    if (!loaded.empty()) {
        Rec upd = loaded.front();
        reinterpret_cast<unsigned char*>(&upd)[sizeof upd - 1] ^= 0x5a;  // a changed tail field
        FUZZ_CHECK(table.AddHQInfo(&upd, 1) == 0);
    }
    Rec fresh;
    memset(&fresh, 0, sizeof fresh);
    memcpy(&fresh, "ZZFUZZNEW", 9);
    FUZZ_CHECK(table.AddHQInfo(&fresh, 0) == 0);
    Rec probe;
    memset(&probe, 0, sizeof probe);
    memcpy(&probe, "ZZFUZZNEW", 9);
    FUZZ_CHECK(table.GetHQInfo(&probe) == 1);

    struct stat st;
    FUZZ_CHECK(stat(path.c_str(), &st) == 0);
    const size_t head = Table::kHeadSize, slot = Table::kSlotSize;
    FUZZ_CHECK(static_cast<size_t>(st.st_size) >= head);
    FUZZ_CHECK((static_cast<size_t>(st.st_size) - head) % slot == 0);
    table.DeleteAll();
    FUZZ_CHECK(table.GetCount() == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 || size > 256 * 1024) return 0;
    const std::string path = fuzzsupport::WorkDir() + "/load_F#1.db";
    const std::string jnl = tikron_store::JournalPathOf(path.c_str());
    unlink(jnl.c_str());
    const uint8_t sel = data[0];
    size_t pos = 1;
    if (sel & 8) {
        if (size < 3) return 0;
        size_t jlen = (static_cast<size_t>(data[1]) | (static_cast<size_t>(data[2]) << 8)) % 4097;
        pos = 3;
        if (jlen > size - pos) jlen = size - pos;
        FUZZ_CHECK(fuzzsupport::WriteFile(jnl, data + pos, jlen));
        pos += jlen;
    }
    std::vector<uint8_t> file(data + pos, data + size);
    if ((sel & 4) && file.size() >= 8) {
        const uint64_t today = static_cast<uint64_t>(GetDate());
        memcpy(file.data(), &today, sizeof today);
    }
    FUZZ_CHECK(fuzzsupport::WriteFile(path, file.data(), file.size()));
    switch (sel & 3) {
        case 0: Exercise<CTIKRONInfo, tagHQInfo>(path); break;
        case 1: Exercise<CTIKRONInfo_EX, tagHQInfo_EX>(path); break;
        case 2: Exercise<CTIKRONARGInfo, tagArgHQInfo>(path); break;
        default: Exercise<CExchStatusInfo, tagEXCHSTATUS>(path); break;
    }
    unlink(jnl.c_str());
    return 0;
}
