// tikron-dbdump: prints a quote snapshot file as an aligned listing or as
// JSON lines. Exit codes: 0 ok, 1 usage, 2 unreadable or unknown kind,
// 3 malformed file (short header or partial trailing slot).
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>

#include "tools/dbdump/snapshot_reader.h"

namespace {

void PrintText(const dbdump::Snapshot& s, dbdump::Kind kind) {
    std::printf("date: %llu  count: %llu  slots: %zu  kind: %s\n", static_cast<unsigned long long>(s.date),
                static_cast<unsigned long long>(s.count), s.slots.size(), dbdump::KindName(kind));
    const auto& fields = dbdump::Fields(kind);
    size_t w = 0;
    for (auto& f : fields) w = std::max(w, std::strlen(f.name));
    for (size_t k = 0; k < s.slots.size(); ++k) {
        const auto& sl = s.slots[k];
        std::printf("\n[slot %zu] iRecordNo=%d iCrc=%d\n", k + 1, sl.recordNo, sl.crc);
        for (auto& f : fields)
            std::printf("  %-*s  %s\n", static_cast<int>(w), f.name, dbdump::FieldText(f, sl.record.data()).c_str());
    }
}

void PrintJson(const dbdump::Snapshot& s, dbdump::Kind kind) {
    using nlohmann::json;
    json head = {{"date", s.date}, {"count", s.count}, {"slots", s.slots.size()}, {"kind", dbdump::KindName(kind)}};
    std::cout << head.dump(-1, ' ', false, json::error_handler_t::replace) << "\n";
    for (size_t k = 0; k < s.slots.size(); ++k) {
        const auto& sl = s.slots[k];
        json j;
        j["slot"] = k + 1;
        j["iRecordNo"] = sl.recordNo;
        j["iCrc"] = sl.crc;
        for (auto& f : dbdump::Fields(kind)) {
            std::string v = dbdump::FieldText(f, sl.record.data());
            if (f.type == 'i') {
                int x;
                std::memcpy(&x, sl.record.data() + f.offset, 4);
                j[f.name] = x;
            } else if (f.type == 'd') {
                double x;
                std::memcpy(&x, sl.record.data() + f.offset, 8);
                j[f.name] = x;
            } else {
                j[f.name] = v;
            }
        }
        std::cout << j.dump(-1, ' ', false, json::error_handler_t::replace) << "\n";
    }
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Print a tikron quote snapshot file"};
    std::string path;
    std::string kindName;
    bool json = false;
    app.add_option("file", path, "snapshot file (tikron_*.db, tikron_ex_*.db, tikronarg_*.db, futuexchstatus_*.db)")
        ->required();
    app.add_option("--kind", kindName, "record kind: hq, hq_ex, arg or exch (default: from the file name)")
        ->check(CLI::IsMember({"hq", "hq_ex", "arg", "exch"}));
    app.add_flag("--json", json, "one JSON object per line");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : 1;
    }

    dbdump::Kind kind = kindName.empty() ? dbdump::KindFromPath(path) : dbdump::KindFromName(kindName);
    if (kind == dbdump::Kind::Unknown) {
        std::fprintf(stderr, "tikron-dbdump: cannot tell the record kind of '%s'; use --kind hq|hq_ex|arg|exch\n",
                     path.c_str());
        return 2;
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "tikron-dbdump: cannot open '%s'\n", path.c_str());
        return 2;
    }
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    dbdump::Snapshot snap;
    std::string error;
    if (!dbdump::ParseSnapshot(bytes, kind, snap, error)) {
        std::fprintf(stderr, "tikron-dbdump: %s: %s\n", path.c_str(), error.c_str());
        return 3;
    }
    if (json)
        PrintJson(snap, kind);
    else
        PrintText(snap, kind);
    std::fflush(stdout);
    if (snap.trailingBytes != 0) {
        std::fprintf(stderr,
                     "tikron-dbdump: %s: partial trailing slot of %zu bytes (slot size %zu for kind %s); file size "
                     "does not fit this kind\n",
                     path.c_str(), snap.trailingBytes, dbdump::RecordSize(kind) + 8, dbdump::KindName(kind));
        return 3;
    }
    return 0;
}
