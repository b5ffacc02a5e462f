// Reading and describing quote snapshot files for tikron-dbdump.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace dbdump {

enum class Kind { Unknown, Hq, HqEx, Arg, Exch };

// Field of a record: name, offset inside the record, type and width.
struct FieldDesc {
    const char* name;
    size_t offset;
    char type;  // 's' text, 'c' char, 'i' int, 'd' double
    size_t width;
};

Kind KindFromName(const std::string& name);  // "hq", "hq_ex", "arg", "exch"
Kind KindFromPath(const std::string& path);  // by the file's base name
const char* KindName(Kind k);
size_t RecordSize(Kind k);
const std::vector<FieldDesc>& Fields(Kind k);

struct Slot {
    int recordNo = 0;
    int crc = 0;
    std::vector<unsigned char> record;
};

struct Snapshot {
    uint64_t date = 0;
    uint64_t count = 0;
    std::vector<Slot> slots;
    size_t trailingBytes = 0;  // bytes of a partial slot at the end
};

// Parses the file bytes; false with a message for a short header.
bool ParseSnapshot(const std::string& bytes, Kind kind, Snapshot& out, std::string& error);

// GBK text (up to the first NUL within width) converted to UTF-8; bytes that
// do not convert are shown as \xNN.
std::string GbkToUtf8(const unsigned char* p, size_t width);

// A field's value as text (numbers in shortest round-trip form).
std::string FieldText(const FieldDesc& f, const unsigned char* record);

}  // namespace dbdump
