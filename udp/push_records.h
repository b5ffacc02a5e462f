// Option and STP push records of the back end ('S', 'D', 'X', 'Y', 'Z').
//
// Each record is a plain structure with bounded text fields, cleared before
// it is filled, plus a field table that drives both reading the datagram
// (fields in table order) and the published body (one named column per
// field, same order). Column names are the member names. docs/records.md
// documents every layout; keep the tables and the document in step.
#pragma once

#include <cstddef>

namespace tikron_udp {

// ---------------------------------------------------------------------------
// Records
// ---------------------------------------------------------------------------

// 'S': self-trade-prevention strategy of an account, issue type 33400.
struct tagSTPPUSH {
    char fund_account[19];
    int branch_no;
    char stp_strategy_str[256];    // strategy codes, e.g. "CN|CO"
    char stp_strategy_info[1024];  // readable description of the strategy
};

// 'D': state of an exercise (or abandonment) request, issue type 33401.
struct tagEXERCISESTATUS {
    char fund_account[19];
    int branch_no;
    int init_date;
    char exchange_type[11];
    char option_code[31];
    char stock_account[21];
    int entrust_no;
    char exercise_type;    // '1' exercise, '2' abandon
    int exercise_amount;
    char exercise_status;  // back-end entrust status character
    int report_time;
    int error_no;
    char error_info[256];
};

// 'X' option entrust (issue type 33402) and 'Y' option deal report (issue
// type 33403) share this record; only the entrust push carries the two
// error fields at its end.
struct tagOPTREPORT {
    char fund_account[19];
    int branch_no;
    char exchange_type[11];
    char option_code[31];
    int init_date;
    char client_id[19];
    char real_type;
    char real_status;
    char report_seat[11];
    char report_no[21];
    char report_account[21];
    char stock_account[21];
    char opthold_type;
    char option_type;  // 'C' call, 'P' put
    int record_no;
    char report_bs;
    char entrust_bs;
    char entrust_oc;
    char covered_flag;
    char entrust_status;
    int entrust_no;
    char business_id[33];
    double business_amount;
    double opt_business_price;
    int business_time;
    char extern_code[33];
    int report_time;
    int entrust_amount;
    int batch_no;
    double opt_entrust_price;
    char entrust_type;
    int error_no;          // entrust push only
    char error_info[256];  // entrust push only
};

// 'Z': option quote, issue type 33404.
struct tagOPTHQ {
    char exchange_type[11];
    char option_code[31];
    char underlying_code[31];
    char option_type;  // 'C' call, 'P' put
    double exercise_price;
    double pre_square_price;
    double open_price;
    double last_price;
    double high_price;
    double low_price;
    double bid_price;
    int bid_amount;
    double ask_price;
    int ask_amount;
    int business_amount;
    double business_balance;
    int open_interest;
    double uplimited_price;
    double downlimited_price;
    double square_price;
    int exercise_date;  // YYYYMMDD
    int quote_time;     // HHMMSS
};

// ---------------------------------------------------------------------------
// Field tables
// ---------------------------------------------------------------------------

enum PushFieldType { PF_TEXT, PF_INT, PF_DOUBLE, PF_CHAR };

template <typename T>
struct PushTypeOf;
template <std::size_t N>
struct PushTypeOf<char[N]> {
    static constexpr PushFieldType value = PF_TEXT;
};
template <>
struct PushTypeOf<int> {
    static constexpr PushFieldType value = PF_INT;
};
template <>
struct PushTypeOf<double> {
    static constexpr PushFieldType value = PF_DOUBLE;
};
template <>
struct PushTypeOf<char> {
    static constexpr PushFieldType value = PF_CHAR;
};

// One field: column name, kind, place and size in the record (for texts
// the capacity, at most size-1 characters).
struct PushField {
    const char* name;
    PushFieldType type;
    std::size_t offset;
    std::size_t size;
};

// Table entry for a member; the kind follows from the member's type.
#define TIKRON_PUSH_FIELD(Rec, member)                                                   \
    ::tikron_udp::PushField {                                                           \
        #member, ::tikron_udp::PushTypeOf<decltype(Rec::member)>::value, offsetof(Rec, member), \
            sizeof(Rec::member)                                                          \
    }

// Kinds of pushes, index of their counters.
enum PushKind { PUSH_STP, PUSH_EXERCISE_STATUS, PUSH_OPT_ENTRUST, PUSH_OPT_CJHB, PUSH_OPT_HQ, PUSH_KINDS };

// Subscription key of a publication.
enum PushKeyKind {
    PUSH_KEY_BRANCH_FUND,  // "branch_no" (int) and "fund_account" (text) of the record
    PUSH_KEY_OPTHQ,        // "fund_account" = "OPTHQ": the public option quote stream
};

constexpr const char* kOptHqKey = "OPTHQ";

// Everything a push handler needs to know about its record.
struct PushSpec {
    PushKind kind;
    char typeChar;         // datagram type character
    const char* function;  // log function name of the handler
    int issueType;         // item 53 of the publication
    PushKeyKind key;
    const PushField* fields;
    int fieldCount;
    std::size_t recordSize;
};

const PushSpec& StpSpec();
const PushSpec& ExerciseStatusSpec();
const PushSpec& OptEntrustSpec();
const PushSpec& OptCjhbSpec();
const PushSpec& OptHqSpec();

// Field table of a kind; null for an invalid kind.
const PushSpec* SpecOf(PushKind kind);

// Issue types of the published pushes.
constexpr int kIssueStp = 33400;
constexpr int kIssueExerciseStatus = 33401;
constexpr int kIssueOptEntrust = 33402;
constexpr int kIssueOptCjhb = 33403;
constexpr int kIssueOptHq = 33404;

}  // namespace tikron_udp
