// Trade-report records: the wide working report (tagHB), the deal and entrust
// confirmation records in their extended (issue type 23) and legacy (issue
// type 17) layouts, the quote report and inquiry records, and the offset and
// margin-order reports. All travel byte for byte, so the layouts are fixed:
// 4-byte packing, 32-bit ints, IEEE doubles, NUL-terminated GBK texts.
#pragma once

#include <cstddef>

#pragma pack(push, 4)

// Working report record, filled from the message center or from UDP.
struct tagHB {
    int entrust_no;
    char futures_account[21];
    char futu_exch_type[11];
    char business_no[21];
    char contract_code[30];
    char entrust_name[9];
    char direction_name[9];
    double business_price;
    double business_amount;
    char hedge_name[9];
    char fund_account[19];
    char futu_report_no[21];
    char firm_no[9];
    char operator_no[9];
    int client_group;
    int entrust_amount;
    int business_total_amount;
    int cacel_amount;
    double entrust_price;
    char business_type[2];
    char entrust_status[2];
    int branch_no;
    int batch_no;
    char futu_entrust_type[2];
    int amount_per_hand;
    char forceclose_reason[2];
    char confirm_no[21];
    int curr_date;
    int curr_time;
    char entrust_occasion[33];
    double futu_entrust_price2;
    char futu_entrust_prop[2];
    char error_message[256];
    int session_no;
    char entrust_reference[32];
    char weave_type;
    char arbit_code[30];
    char second_code[30];
    double drop_profit;
    double drop_profit_float;
    char szPositionStr[100];
    char withdraw_reference[33];
    double delta_entrust_fare;
    double delta_entrust_margin;
    double delta_entrust_premium;
    double delta_business_fare;
    double delta_hold_margin;
    double delta_premium;
    char time_condition;
    char volume_condition;
    double delta_report_fare;
    int fex_min_volume;
};

// Deal, extended layout (issue type 23).
struct tagCJ_EX {
    int entrust_no;
    char futures_account[21];
    char futu_exch_type[11];
    char business_no[21];
    char contract_code[30];
    char entrust_name[9];
    char direction_name[9];
    double business_price;
    double business_amount;
    char hedge_name[9];
    int fund_account;
    char futu_report_no[21];
    char firm_no[9];
    char operator_no[9];
    int client_group;
    int entrust_amount;
    int business_total_amount;
    int cacel_amount;
    double entrust_price;
    char entrust_status;
    int branch_no;
    int batch_no;
    char futu_entrust_type;
    int amount_per_hand;
    char forceclose_reason;
    int init_date;
    int business_time;
    char confirm_no[21];
    double frozen_fare;
    char entrust_occasion[33];
};

// Deal, legacy layout (issue type 17): 13-byte contract code, no occasion.
struct tagCJ {
    int entrust_no;
    char futures_account[21];
    char futu_exch_type[11];
    char business_no[21];
    char contract_code[13];
    char entrust_name[9];
    char direction_name[9];
    double business_price;
    double business_amount;
    char hedge_name[9];
    int fund_account;
    char futu_report_no[21];
    char firm_no[9];
    char operator_no[9];
    int client_group;
    int entrust_amount;
    int business_total_amount;
    int cacel_amount;
    double entrust_price;
    char entrust_status;
    int branch_no;
    int batch_no;
    char futu_entrust_type;
    int amount_per_hand;
    char forceclose_reason;
    int init_date;
    int business_time;
    char confirm_no[21];
    double frozen_fare;
};

// Entrust confirmation, extended layout (issue type 23).
struct tagWTQR_EX {
    int entrust_no;
    char futures_account[21];
    char futu_exch_type[11];
    char contract_code[30];
    char entrust_name[9];
    char direction_name[9];
    char hedge_name[9];
    int fund_account;
    char futu_report_no[21];
    char firm_no[9];
    char operator_no[9];
    int client_group;
    int entrust_amount;
    int business_total_amount;
    int cacel_amount;
    double entrust_price;
    char entrust_status;
    int branch_no;
    int batch_no;
    char futu_entrust_type;
    int amount_per_hand;
    char forceclose_reason;
    int init_date;
    int curr_time;
    char confirm_no[21];
    int weave_type;
    char arbitrage_code[21];
    int time_condition;
    int volume_condition;
    int futu_entrust_prop;
    double frozen_fare;
    char entrust_occasion[33];
};

// Entrust confirmation, legacy layout (issue type 17).
struct tagWTQR {
    int entrust_no;
    char futures_account[21];
    char futu_exch_type[11];
    char contract_code[13];
    char entrust_name[9];
    char direction_name[9];
    char hedge_name[9];
    int fund_account;
    char futu_report_no[21];
    char firm_no[9];
    char operator_no[9];
    int client_group;
    int entrust_amount;
    int business_total_amount;
    int cacel_amount;
    double entrust_price;
    char entrust_status;
    int branch_no;
    int batch_no;
    char futu_entrust_type;
    int amount_per_hand;
    char forceclose_reason;
    int init_date;
    int curr_time;
    char confirm_no[21];
    int weave_type;
    char arbitrage_code[21];
    int time_condition;
    int volume_condition;
    int futu_entrust_prop;
    double frozen_fare;
};

// Inquiry quote (request for quote), published as text 33300.
struct tagXJ {
    char forquote_no[20];
    char contract_code[30];
    int init_date;
    int update_time;
};

// Market maker's quote report, published as text 33301.
struct tagBJHB {
    char futu_exch_type[3];
    char contract_code[30];
    char buy_futures_direction[2];
    char buy_hedge_type[2];
    double buy_price;
    double buy_amount;
    char sale_futures_direction[2];
    char sale_hedge_type[2];
    double sale_price;
    double sale_amount;
    int quote_no;
    char fund_account[18];
    char futu_report_no[21];
    char firm_no[21];
    char operator_no[18];
    char entrust_status[2];
    int branch_no;
    int init_date;
    int curr_time;
    char confirm_no[20];
    char buy_confirm_no[20];
    char sale_confirm_no[20];
    char quote_occasion[32];
    char quote_reference[33];
    int session_no;
    char buy_entrust_reference[32];
    char sell_entrust_reference[32];
    int buy_entrust_no;
    int sell_entrust_no;
};

// Result of an offset (close-out) setting request, published as text 33117.
struct tagOFFSET {
    char fund_account[19];
    char futures_account[21];
    int entrust_no;
    char futu_exch_type[11];
    char futu_code[31];
    int entrust_amount;
    char offset_type;
    char entrust_status;
    char offset_action_type;
    char error_message[256];
    char position_str[101];
};

// Combination-margin order report, published as text 33106.
struct tagZJZHBZJHB {
    int entrust_no;
    char futures_account[21];
    char futu_exch_type[11];
    char arbit_code[30];
    char futu_code[31];
    char second_code[31];
    char entrust_bs;
    char hedge_type;
    char combdirection;
    char fund_account[19];
    char report_id[33];
    char firm_id[9];
    char operator_no[18];
    int client_group;
    int entrust_amount;
    char entrust_status;
    int branch_no;
    int batch_no;
    char entrust_type;
    int init_date;
    int entrust_time;
    char entrust_prop[4];
    char weave_type;
    char entrust_occasion[33];
    char entrust_reference[33];
    char error_message[256];
    char position_str[101];
    int session_no;
    double first_hold_margin;
    double second_hold_margin;
    double delta_hold_margin;
    char second_hedge_type;
    int amount_per_hand;
};

#pragma pack(pop)

// ---- Layout checks: these bytes are exchanged with other systems. ----------

static_assert(sizeof(tagHB) == 888, "tagHB size");
static_assert(offsetof(tagHB, entrust_no) == 0, "tagHB");
static_assert(offsetof(tagHB, futures_account) == 4, "tagHB");
static_assert(offsetof(tagHB, futu_exch_type) == 25, "tagHB");
static_assert(offsetof(tagHB, business_no) == 36, "tagHB");
static_assert(offsetof(tagHB, contract_code) == 57, "tagHB");
static_assert(offsetof(tagHB, entrust_name) == 87, "tagHB");
static_assert(offsetof(tagHB, direction_name) == 96, "tagHB");
static_assert(offsetof(tagHB, business_price) == 108, "tagHB");
static_assert(offsetof(tagHB, business_amount) == 116, "tagHB");
static_assert(offsetof(tagHB, hedge_name) == 124, "tagHB");
static_assert(offsetof(tagHB, fund_account) == 133, "tagHB");
static_assert(offsetof(tagHB, futu_report_no) == 152, "tagHB");
static_assert(offsetof(tagHB, firm_no) == 173, "tagHB");
static_assert(offsetof(tagHB, operator_no) == 182, "tagHB");
static_assert(offsetof(tagHB, client_group) == 192, "tagHB");
static_assert(offsetof(tagHB, entrust_amount) == 196, "tagHB");
static_assert(offsetof(tagHB, business_total_amount) == 200, "tagHB");
static_assert(offsetof(tagHB, cacel_amount) == 204, "tagHB");
static_assert(offsetof(tagHB, entrust_price) == 208, "tagHB");
static_assert(offsetof(tagHB, business_type) == 216, "tagHB");
static_assert(offsetof(tagHB, entrust_status) == 218, "tagHB");
static_assert(offsetof(tagHB, branch_no) == 220, "tagHB");
static_assert(offsetof(tagHB, batch_no) == 224, "tagHB");
static_assert(offsetof(tagHB, futu_entrust_type) == 228, "tagHB");
static_assert(offsetof(tagHB, amount_per_hand) == 232, "tagHB");
static_assert(offsetof(tagHB, forceclose_reason) == 236, "tagHB");
static_assert(offsetof(tagHB, confirm_no) == 238, "tagHB");
static_assert(offsetof(tagHB, curr_date) == 260, "tagHB");
static_assert(offsetof(tagHB, curr_time) == 264, "tagHB");
static_assert(offsetof(tagHB, entrust_occasion) == 268, "tagHB");
static_assert(offsetof(tagHB, futu_entrust_price2) == 304, "tagHB");
static_assert(offsetof(tagHB, futu_entrust_prop) == 312, "tagHB");
static_assert(offsetof(tagHB, error_message) == 314, "tagHB");
static_assert(offsetof(tagHB, session_no) == 572, "tagHB");
static_assert(offsetof(tagHB, entrust_reference) == 576, "tagHB");
static_assert(offsetof(tagHB, weave_type) == 608, "tagHB");
static_assert(offsetof(tagHB, arbit_code) == 609, "tagHB");
static_assert(offsetof(tagHB, second_code) == 639, "tagHB");
static_assert(offsetof(tagHB, drop_profit) == 672, "tagHB");
static_assert(offsetof(tagHB, drop_profit_float) == 680, "tagHB");
static_assert(offsetof(tagHB, szPositionStr) == 688, "tagHB");
static_assert(offsetof(tagHB, withdraw_reference) == 788, "tagHB");
static_assert(offsetof(tagHB, delta_entrust_fare) == 824, "tagHB");
static_assert(offsetof(tagHB, delta_entrust_margin) == 832, "tagHB");
static_assert(offsetof(tagHB, delta_entrust_premium) == 840, "tagHB");
static_assert(offsetof(tagHB, delta_business_fare) == 848, "tagHB");
static_assert(offsetof(tagHB, delta_hold_margin) == 856, "tagHB");
static_assert(offsetof(tagHB, delta_premium) == 864, "tagHB");
static_assert(offsetof(tagHB, time_condition) == 872, "tagHB");
static_assert(offsetof(tagHB, volume_condition) == 873, "tagHB");
static_assert(offsetof(tagHB, delta_report_fare) == 876, "tagHB");
static_assert(offsetof(tagHB, fex_min_volume) == 884, "tagHB");

// Deal records: both layouts share the field order; legacy offsets follow
// the 13-byte contract code and lack entrust_occasion.
#define TIKRON_CHECK_CJ(T, name, ex, legacy)                                   \
    static_assert(offsetof(T, name) == (sizeof(T) == 304 ? (ex) : (legacy)), \
                  #T "::" #name)
#define TIKRON_CHECK_CJ_BOTH(name, ex, legacy) \
    TIKRON_CHECK_CJ(tagCJ_EX, name, ex, legacy); \
    TIKRON_CHECK_CJ(tagCJ, name, ex, legacy)

static_assert(sizeof(tagCJ_EX) == 304, "tagCJ_EX size");
static_assert(sizeof(tagCJ) == 248, "tagCJ size");
TIKRON_CHECK_CJ_BOTH(entrust_no, 0, 0);
TIKRON_CHECK_CJ_BOTH(futures_account, 4, 4);
TIKRON_CHECK_CJ_BOTH(futu_exch_type, 25, 25);
TIKRON_CHECK_CJ_BOTH(business_no, 36, 36);
TIKRON_CHECK_CJ_BOTH(contract_code, 57, 57);
TIKRON_CHECK_CJ_BOTH(entrust_name, 87, 70);
TIKRON_CHECK_CJ_BOTH(direction_name, 96, 79);
TIKRON_CHECK_CJ_BOTH(business_price, 108, 88);
TIKRON_CHECK_CJ_BOTH(business_amount, 116, 96);
TIKRON_CHECK_CJ_BOTH(hedge_name, 124, 104);
TIKRON_CHECK_CJ_BOTH(fund_account, 136, 116);
TIKRON_CHECK_CJ_BOTH(futu_report_no, 140, 120);
TIKRON_CHECK_CJ_BOTH(firm_no, 161, 141);
TIKRON_CHECK_CJ_BOTH(operator_no, 170, 150);
TIKRON_CHECK_CJ_BOTH(client_group, 180, 160);
TIKRON_CHECK_CJ_BOTH(entrust_amount, 184, 164);
TIKRON_CHECK_CJ_BOTH(business_total_amount, 188, 168);
TIKRON_CHECK_CJ_BOTH(cacel_amount, 192, 172);
TIKRON_CHECK_CJ_BOTH(entrust_price, 196, 176);
TIKRON_CHECK_CJ_BOTH(entrust_status, 204, 184);
TIKRON_CHECK_CJ_BOTH(branch_no, 208, 188);
TIKRON_CHECK_CJ_BOTH(batch_no, 212, 192);
TIKRON_CHECK_CJ_BOTH(futu_entrust_type, 216, 196);
TIKRON_CHECK_CJ_BOTH(amount_per_hand, 220, 200);
TIKRON_CHECK_CJ_BOTH(forceclose_reason, 224, 204);
TIKRON_CHECK_CJ_BOTH(init_date, 228, 208);
TIKRON_CHECK_CJ_BOTH(business_time, 232, 212);
TIKRON_CHECK_CJ_BOTH(confirm_no, 236, 216);
TIKRON_CHECK_CJ_BOTH(frozen_fare, 260, 240);
static_assert(offsetof(tagCJ_EX, entrust_occasion) == 268, "tagCJ_EX");

static_assert(sizeof(tagWTQR_EX) == 304, "tagWTQR_EX size");
static_assert(sizeof(tagWTQR) == 248, "tagWTQR size");
#define TIKRON_CHECK_WTQR_BOTH(name, ex, legacy) \
    TIKRON_CHECK_CJ(tagWTQR_EX, name, ex, legacy); \
    TIKRON_CHECK_CJ(tagWTQR, name, ex, legacy)
TIKRON_CHECK_WTQR_BOTH(entrust_no, 0, 0);
TIKRON_CHECK_WTQR_BOTH(futures_account, 4, 4);
TIKRON_CHECK_WTQR_BOTH(futu_exch_type, 25, 25);
TIKRON_CHECK_WTQR_BOTH(contract_code, 36, 36);
TIKRON_CHECK_WTQR_BOTH(entrust_name, 66, 49);
TIKRON_CHECK_WTQR_BOTH(direction_name, 75, 58);
TIKRON_CHECK_WTQR_BOTH(hedge_name, 84, 67);
TIKRON_CHECK_WTQR_BOTH(fund_account, 96, 76);
TIKRON_CHECK_WTQR_BOTH(futu_report_no, 100, 80);
TIKRON_CHECK_WTQR_BOTH(firm_no, 121, 101);
TIKRON_CHECK_WTQR_BOTH(operator_no, 130, 110);
TIKRON_CHECK_WTQR_BOTH(client_group, 140, 120);
TIKRON_CHECK_WTQR_BOTH(entrust_amount, 144, 124);
TIKRON_CHECK_WTQR_BOTH(business_total_amount, 148, 128);
TIKRON_CHECK_WTQR_BOTH(cacel_amount, 152, 132);
TIKRON_CHECK_WTQR_BOTH(entrust_price, 156, 136);
TIKRON_CHECK_WTQR_BOTH(entrust_status, 164, 144);
TIKRON_CHECK_WTQR_BOTH(branch_no, 168, 148);
TIKRON_CHECK_WTQR_BOTH(batch_no, 172, 152);
TIKRON_CHECK_WTQR_BOTH(futu_entrust_type, 176, 156);
TIKRON_CHECK_WTQR_BOTH(amount_per_hand, 180, 160);
TIKRON_CHECK_WTQR_BOTH(forceclose_reason, 184, 164);
TIKRON_CHECK_WTQR_BOTH(init_date, 188, 168);
TIKRON_CHECK_WTQR_BOTH(curr_time, 192, 172);
TIKRON_CHECK_WTQR_BOTH(confirm_no, 196, 176);
TIKRON_CHECK_WTQR_BOTH(weave_type, 220, 200);
TIKRON_CHECK_WTQR_BOTH(arbitrage_code, 224, 204);
TIKRON_CHECK_WTQR_BOTH(time_condition, 248, 228);
TIKRON_CHECK_WTQR_BOTH(volume_condition, 252, 232);
TIKRON_CHECK_WTQR_BOTH(futu_entrust_prop, 256, 236);
TIKRON_CHECK_WTQR_BOTH(frozen_fare, 260, 240);
static_assert(offsetof(tagWTQR_EX, entrust_occasion) == 268, "tagWTQR_EX");

#undef TIKRON_CHECK_WTQR_BOTH
#undef TIKRON_CHECK_CJ_BOTH
#undef TIKRON_CHECK_CJ

static_assert(sizeof(tagXJ) == 60, "tagXJ size");
static_assert(offsetof(tagXJ, contract_code) == 20, "tagXJ");
static_assert(offsetof(tagXJ, init_date) == 52, "tagXJ");
static_assert(offsetof(tagXJ, update_time) == 56, "tagXJ");

static_assert(sizeof(tagBJHB) == 376, "tagBJHB size");
static_assert(offsetof(tagBJHB, contract_code) == 3, "tagBJHB");
static_assert(offsetof(tagBJHB, buy_price) == 40, "tagBJHB");
static_assert(offsetof(tagBJHB, sale_futures_direction) == 56, "tagBJHB");
static_assert(offsetof(tagBJHB, sale_price) == 60, "tagBJHB");
static_assert(offsetof(tagBJHB, quote_no) == 76, "tagBJHB");
static_assert(offsetof(tagBJHB, fund_account) == 80, "tagBJHB");
static_assert(offsetof(tagBJHB, entrust_status) == 158, "tagBJHB");
static_assert(offsetof(tagBJHB, branch_no) == 160, "tagBJHB");
static_assert(offsetof(tagBJHB, confirm_no) == 172, "tagBJHB");
static_assert(offsetof(tagBJHB, quote_occasion) == 232, "tagBJHB");
static_assert(offsetof(tagBJHB, quote_reference) == 264, "tagBJHB");
static_assert(offsetof(tagBJHB, session_no) == 300, "tagBJHB");
static_assert(offsetof(tagBJHB, buy_entrust_reference) == 304, "tagBJHB");
static_assert(offsetof(tagBJHB, buy_entrust_no) == 368, "tagBJHB");
static_assert(offsetof(tagBJHB, sell_entrust_no) == 372, "tagBJHB");

static_assert(sizeof(tagOFFSET) == 452, "tagOFFSET size");
static_assert(offsetof(tagOFFSET, entrust_no) == 40, "tagOFFSET");
static_assert(offsetof(tagOFFSET, futu_code) == 55, "tagOFFSET");
static_assert(offsetof(tagOFFSET, entrust_amount) == 88, "tagOFFSET");
static_assert(offsetof(tagOFFSET, offset_type) == 92, "tagOFFSET");
static_assert(offsetof(tagOFFSET, error_message) == 95, "tagOFFSET");
static_assert(offsetof(tagOFFSET, position_str) == 351, "tagOFFSET");

static_assert(sizeof(tagZJZHBZJHB) == 708, "tagZJZHBZJHB size");
static_assert(offsetof(tagZJZHBZJHB, entrust_bs) == 128, "tagZJZHBZJHB");
static_assert(offsetof(tagZJZHBZJHB, fund_account) == 131, "tagZJZHBZJHB");
static_assert(offsetof(tagZJZHBZJHB, client_group) == 212, "tagZJZHBZJHB");
static_assert(offsetof(tagZJZHBZJHB, entrust_status) == 220, "tagZJZHBZJHB");
static_assert(offsetof(tagZJZHBZJHB, entrust_type) == 232, "tagZJZHBZJHB");
static_assert(offsetof(tagZJZHBZJHB, entrust_prop) == 244, "tagZJZHBZJHB");
static_assert(offsetof(tagZJZHBZJHB, weave_type) == 248, "tagZJZHBZJHB");
static_assert(offsetof(tagZJZHBZJHB, error_message) == 315, "tagZJZHBZJHB");
static_assert(offsetof(tagZJZHBZJHB, session_no) == 672, "tagZJZHBZJHB");
static_assert(offsetof(tagZJZHBZJHB, first_hold_margin) == 676, "tagZJZHBZJHB");
static_assert(offsetof(tagZJZHBZJHB, second_hedge_type) == 700, "tagZJZHBZJHB");
static_assert(offsetof(tagZJZHBZJHB, amount_per_hand) == 704, "tagZJZHBZJHB");
