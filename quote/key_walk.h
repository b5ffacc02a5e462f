// Row walk of the keyed quote queries: one lookup per requested key.
#pragma once

#include <cstring>

#include "quote/query_frame.h"
#include "quote/quote_columns.h"

namespace tikron_quote {

// Walks the request rows from the current one: each row's keyField is
// copied (at most `bound` characters, zero-padded to the bound) into the
// key record's contract_code and looked up; a hit adds one answer row. A
// row without the key field ends the walk with -4 and "没字段: <keyField>".
// A null table finds nothing.
template <typename T, typename Table>
void WalkKeys(Table* table, const char* keyField, std::size_t bound, QueryCall& call) {
    static_assert(sizeof(T{}.contract_code) > 0, "keyed record");
    T rec;
    std::memset(&rec, 0, sizeof rec);
    IF2UnPacker* up = call.unpacker;
    for (;;) {
        const char* key = up->GetStr(keyField);
        if (key == nullptr) {
            call.SetError(-4, "没字段: %s", keyField);
            return;
        }
        std::size_t n = strnlen(key, bound);
        std::memcpy(rec.contract_code, key, n);
        std::memset(rec.contract_code + n, 0, bound - n);
        // The byte after the bound is part of the field too; clearing it keeps
        // the key terminated whatever an earlier lookup copied in.
        rec.contract_code[bound] = '\0';
        int found = table != nullptr ? table->GetHQInfo(&rec) : 0;
        if (found == 1) AddAnswerRow(call.packer, call.fieldMode, rec);
        call.result = found;
        up->Next();
        if (up->IsEOF() != 0) {
            call.result = 0;
            return;
        }
    }
}

}  // namespace tikron_quote
