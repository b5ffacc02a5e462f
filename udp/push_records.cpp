// Field tables of the push records: datagram order = column order.
#include "udp/push_records.h"

#include <type_traits>

namespace tikron_udp {

static_assert(std::is_standard_layout<tagSTPPUSH>::value, "offsetof needs standard layout");
static_assert(std::is_standard_layout<tagEXERCISESTATUS>::value, "offsetof needs standard layout");
static_assert(std::is_standard_layout<tagOPTREPORT>::value, "offsetof needs standard layout");
static_assert(std::is_standard_layout<tagOPTHQ>::value, "offsetof needs standard layout");

namespace {

#define F(member) TIKRON_PUSH_FIELD(tagSTPPUSH, member)
const PushField kStpFields[] = {
    F(fund_account),
    F(branch_no),
    F(stp_strategy_str),
    F(stp_strategy_info),
};
#undef F

#define F(member) TIKRON_PUSH_FIELD(tagEXERCISESTATUS, member)
const PushField kExerciseFields[] = {
    F(fund_account),  F(branch_no),       F(init_date),       F(exchange_type), F(option_code),
    F(stock_account), F(entrust_no),      F(exercise_type),   F(exercise_amount),
    F(exercise_status), F(report_time),   F(error_no),        F(error_info),
};
#undef F

// The deal report reads the first kOptCjhbFields entries, the entrust all.
#define F(member) TIKRON_PUSH_FIELD(tagOPTREPORT, member)
const PushField kOptReportFields[] = {
    F(fund_account),   F(branch_no),      F(exchange_type),      F(option_code),   F(init_date),
    F(client_id),      F(real_type),      F(real_status),        F(report_seat),   F(report_no),
    F(report_account), F(stock_account),  F(opthold_type),       F(option_type),   F(record_no),
    F(report_bs),      F(entrust_bs),     F(entrust_oc),         F(covered_flag),  F(entrust_status),
    F(entrust_no),     F(business_id),    F(business_amount),    F(opt_business_price),
    F(business_time),  F(extern_code),    F(report_time),        F(entrust_amount), F(batch_no),
    F(opt_entrust_price), F(entrust_type),
    // entrust push only
    F(error_no),       F(error_info),
};
#undef F
constexpr int kOptEntrustFields = static_cast<int>(sizeof kOptReportFields / sizeof kOptReportFields[0]);
constexpr int kOptCjhbFields = kOptEntrustFields - 2;

#define F(member) TIKRON_PUSH_FIELD(tagOPTHQ, member)
const PushField kOptHqFields[] = {
    F(exchange_type),   F(option_code),     F(underlying_code), F(option_type),      F(exercise_price),
    F(pre_square_price), F(open_price),     F(last_price),      F(high_price),       F(low_price),
    F(bid_price),       F(bid_amount),      F(ask_price),       F(ask_amount),       F(business_amount),
    F(business_balance), F(open_interest),  F(uplimited_price), F(downlimited_price), F(square_price),
    F(exercise_date),   F(quote_time),
};
#undef F

template <std::size_t N>
constexpr int Count(const PushField (&)[N]) {
    return static_cast<int>(N);
}

const PushSpec kSpecs[PUSH_KINDS] = {
    {PUSH_STP, 'S', "CTIKRONServiceImpl::DealPUSH_STP", kIssueStp, PUSH_KEY_BRANCH_FUND, kStpFields,
     Count(kStpFields), sizeof(tagSTPPUSH)},
    {PUSH_EXERCISE_STATUS, 'D', "CTIKRONServiceImpl::DealPUSH_EXERCISESTATUS", kIssueExerciseStatus,
     PUSH_KEY_BRANCH_FUND, kExerciseFields, Count(kExerciseFields), sizeof(tagEXERCISESTATUS)},
    {PUSH_OPT_ENTRUST, 'X', "CTIKRONServiceImpl::DealPUSH_OPT_ENTRUST", kIssueOptEntrust,
     PUSH_KEY_BRANCH_FUND, kOptReportFields, kOptEntrustFields, sizeof(tagOPTREPORT)},
    {PUSH_OPT_CJHB, 'Y', "CTIKRONServiceImpl::DealPUSH_OPT_CJHB", kIssueOptCjhb, PUSH_KEY_BRANCH_FUND,
     kOptReportFields, kOptCjhbFields, sizeof(tagOPTREPORT)},
    {PUSH_OPT_HQ, 'Z', "CTIKRONServiceImpl::DealPUSH_OPT_HQ", kIssueOptHq, PUSH_KEY_OPTHQ, kOptHqFields,
     Count(kOptHqFields), sizeof(tagOPTHQ)},
};

}  // namespace

const PushSpec& StpSpec() { return kSpecs[PUSH_STP]; }
const PushSpec& ExerciseStatusSpec() { return kSpecs[PUSH_EXERCISE_STATUS]; }
const PushSpec& OptEntrustSpec() { return kSpecs[PUSH_OPT_ENTRUST]; }
const PushSpec& OptCjhbSpec() { return kSpecs[PUSH_OPT_CJHB]; }
const PushSpec& OptHqSpec() { return kSpecs[PUSH_OPT_HQ]; }

const PushSpec* SpecOf(PushKind kind) {
    if (kind < 0 || kind >= PUSH_KINDS) return nullptr;
    return &kSpecs[kind];
}

}  // namespace tikron_udp
