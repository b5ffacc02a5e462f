// Reads a push record from its prepared text (header skipped, cut at the
// last '&', one ',' appended: see PrepareRecordText) with the field reader,
// in the order of the record's field table.
#pragma once

#include <cstddef>

#include "udp/push_records.h"

namespace tikron_udp {

// Fills rec (recSize bytes, already cleared) field by field. Returns 0, or
// the first failing field's code with its table index in *failedField:
//  -1  bad arguments (null text or record, size not the kind's record size);
//  -2  field missing (no ',' left), or a text longer than its capacity-1;
//  -3  a number of more than 16 (int) or 32 (double) characters, or one
//      that is not a number or does not fit its type.
// Every field must be present; an empty number reads 0, an empty character
// field is refused (-3). Fields after the last table entry are ignored.
// Fields read before a failure stay in rec.
int ReadPushRecord(const PushSpec& desc, const char* text, void* rec, std::size_t recSize, int* failedField);

}  // namespace tikron_udp
