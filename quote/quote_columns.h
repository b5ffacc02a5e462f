// Answer layouts of the quote queries and synchronisation answers: the
// named columns of each record type (every one declared 'S', 255, 4 and
// filled with the add call that suits the field) and the raw column.
#pragma once

#include <cstring>
#include <string>

#include "frame/host_interfaces.h"
#include "wire/quote_records.h"

namespace tikron_quote {

// A record text field as a terminated string, bounded by its array: a field
// filled to its full width is cut at the width instead of read past.
template <std::size_t N>
inline std::string FieldStr(const char (&f)[N]) {
    return std::string(f, strnlen(f, N));
}

inline void DeclareS(IF2Packer* p, const char* name) { p->AddField(name, 'S', 255, 4); }

// Single-leg columns 1..46 (legacy and extended layouts share the names).
void DeclareSingleLegColumns(IF2Packer* p);
void AddSingleLegRow(IF2Packer* p, const tagHQInfo& r);
// The 46 single-leg columns followed by "time_stamp".
void DeclareSingleLegExColumns(IF2Packer* p);
void AddSingleLegExRow(IF2Packer* p, const tagHQInfo_EX& r);
void DeclareArbitrageColumns(IF2Packer* p);
void AddArbitrageRow(IF2Packer* p, const tagArgHQInfo& r);
void DeclareExchStatusColumns(IF2Packer* p);
void AddExchStatusRow(IF2Packer* p, const tagEXCHSTATUS& r);

// Field-mode and raw-mode layout of one record type.
template <typename T>
struct AnswerLayout;

template <>
struct AnswerLayout<tagHQInfo> {
    static constexpr const char* kRawName = "futu_hq_raw";
    static void Declare(IF2Packer* p) { DeclareSingleLegColumns(p); }
    static void Row(IF2Packer* p, const tagHQInfo& r) { AddSingleLegRow(p, r); }
};
template <>
struct AnswerLayout<tagHQInfo_EX> {
    static constexpr const char* kRawName = "futu_hq_raw";
    static void Declare(IF2Packer* p) { DeclareSingleLegExColumns(p); }
    static void Row(IF2Packer* p, const tagHQInfo_EX& r) { AddSingleLegExRow(p, r); }
};
template <>
struct AnswerLayout<tagArgHQInfo> {
    static constexpr const char* kRawName = "futu_hq_raw";
    static void Declare(IF2Packer* p) { DeclareArbitrageColumns(p); }
    static void Row(IF2Packer* p, const tagArgHQInfo& r) { AddArbitrageRow(p, r); }
};
template <>
struct AnswerLayout<tagEXCHSTATUS> {
    static constexpr const char* kRawName = "futu_exch_status_raw";
    static void Declare(IF2Packer* p) { DeclareExchStatusColumns(p); }
    static void Row(IF2Packer* p, const tagEXCHSTATUS& r) { AddExchStatusRow(p, r); }
};

// Declares the answer columns: named columns in field mode, else one raw
// column declared one byte wider than the record.
template <typename T>
void DeclareAnswer(IF2Packer* p, bool fieldMode) {
    if (fieldMode)
        AnswerLayout<T>::Declare(p);
    else
        p->AddField(AnswerLayout<T>::kRawName, 'R', static_cast<int>(sizeof(T)) + 1, 4);
}

template <typename T>
void AddAnswerRow(IF2Packer* p, bool fieldMode, const T& rec) {
    if (fieldMode)
        AnswerLayout<T>::Row(p, rec);
    else
        p->PackRaw(&rec, static_cast<int>(sizeof(T)));
}

}  // namespace tikron_quote
