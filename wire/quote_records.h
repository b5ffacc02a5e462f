// Quote records: fixed binary layouts (4-byte packing, little-endian) shared
// by memory, snapshot files and raw message payloads. Offsets are checked at
// compile time; do not reorder or resize any field.
#pragma once

#include <cstddef>
#include <cstdint>

#pragma pack(push, 4)

// Issue type 16: single-leg quote, legacy layout (308 bytes).
struct tagHQInfo {
    char contract_code[13];
    double pre_square_price;
    double futu_open_price;
    double futu_last_price;
    double buy_high_price;
    int buy_high_amount;
    int buy_total_amount;
    double sale_low_price;
    int sale_low_amount;
    int sale_total_amount;
    double futu_high_price;
    double futu_low_price;
    double average_price;
    double change_direction;
    int business_amount;
    int bear_amount;
    double business_balance;
    double uplimited_price;
    double downlimited_price;
    char futu_exch_type[3];
    double form_buy_price;
    double form_sale_price;
    int form_buy_amount;
    int form_sale_amount;
    double pre_close_price;
    double pre_open_interest;
    double futu_close_price;
    double square_price;
    double pre_delta;
    double curr_delta;
    double bid_price2;
    int bid_volume2;
    double bid_price3;
    int bid_volume3;
    double bid_price4;
    int bid_volume4;
    double bid_price5;
    int bid_volume5;
    double ask_price2;
    int ask_volume2;
    double ask_price3;
    int ask_volume3;
    double ask_price4;
    int ask_volume4;
    double ask_price5;
    int ask_volume5;
};

// Issue type 22: single-leg quote, extended layout (328 bytes).
struct tagHQInfo_EX {
    char contract_code[30];
    double pre_square_price;
    double futu_open_price;
    double futu_last_price;
    double buy_high_price;
    int buy_high_amount;
    int buy_total_amount;
    double sale_low_price;
    int sale_low_amount;
    int sale_total_amount;
    double futu_high_price;
    double futu_low_price;
    double average_price;
    double change_direction;
    int business_amount;
    int bear_amount;
    double business_balance;
    double uplimited_price;
    double downlimited_price;
    char futu_exch_type[3];
    double form_buy_price;
    double form_sale_price;
    int form_buy_amount;
    int form_sale_amount;
    double pre_close_price;
    double pre_open_interest;
    double futu_close_price;
    double square_price;
    double pre_delta;
    double curr_delta;
    double bid_price2;
    int bid_volume2;
    double bid_price3;
    int bid_volume3;
    double bid_price4;
    int bid_volume4;
    double bid_price5;
    int bid_volume5;
    double ask_price2;
    int ask_volume2;
    double ask_price3;
    int ask_volume3;
    double ask_price4;
    int ask_volume4;
    double ask_price5;
    int ask_volume5;
    int time_stamp;  // HHMMSS
};

// Issue type 18: arbitrage (combination) quote (128 bytes).
struct tagArgHQInfo {
    char contract_code[31];
    char futu_exch_type[3];
    char first_code[13];
    char second_code[13];
    char arbi_type;
    double buy_price;
    int buy_amount;
    int buy_total_amount;
    double sale_price;
    int sale_amount;
    int sale_total_amount;
    double futu_high_price;
    double futu_low_price;
    double uplimited_price;
    double downlimited_price;
};

// Issue type 24: exchange trading status (12 bytes).
struct tagEXCHSTATUS {
    char futu_exch_type[3];
    char futu_status[3];
    int can_trade;
};

// Exchange-side quote feed record (312 bytes); read, never stored.
struct tagQRX_HQ {
    char quote_type;
    int quote_length;
    int update_time;
    int quote_index;
    char futu_exch_type[4];
    char commodity_type[6];
    char futu_code[30];
    double pre_settlement_price;
    double pre_close_price;
    int pre_open_interest;
    double pre_delta;
    double futu_open_price;
    double futu_last_price;
    double buy_high_price;
    int buy_high_amount;
    double low_sell_price;
    int low_sell_amount;
    double futu_high_price;
    double futu_low_price;
    double uplimited_price;
    double downlimited_price;
    double average_price;
    double change_direction;
    int business_amount;
    int open_interest;
    double business_balance;
    double futu_close_price;
    double square_price;
    int curr_date;
    double curr_delta;
    double buy_price2;
    int buy_amount2;
    double buy_price3;
    int buy_amount3;
    double buy_price4;
    int buy_amount4;
    double buy_price5;
    int buy_amount5;
    double sale_price2;
    int sale_amount2;
    double sale_price3;
    int sale_amount3;
    double sale_price4;
    int sale_amount4;
    double sale_price5;
    int sale_amount5;
};

// Snapshot file header (16 bytes).
struct tagHQFileHead {
    uint64_t ulTime;   // YYYYMMDD of the last write
    uint64_t dwCount;  // records appended so far
};

// One snapshot slot: the record wrapped with its 1-based slot number.
template <typename T>
struct tagSaveHQInfo {
    int iRecordNo;
    T szHQInfo;
    int iCrc;  // copy of iRecordNo, never checked
};

#pragma pack(pop)

// ---- layout checks ---------------------------------------------------------
#define TIKRON_CHECK_OFF(T, f, off) static_assert(offsetof(T, f) == (off), #T "::" #f)

static_assert(sizeof(tagHQInfo) == 308, "tagHQInfo size");
TIKRON_CHECK_OFF(tagHQInfo, contract_code, 0);
TIKRON_CHECK_OFF(tagHQInfo, pre_square_price, 16);
TIKRON_CHECK_OFF(tagHQInfo, futu_open_price, 24);
TIKRON_CHECK_OFF(tagHQInfo, futu_last_price, 32);
TIKRON_CHECK_OFF(tagHQInfo, buy_high_price, 40);
TIKRON_CHECK_OFF(tagHQInfo, buy_high_amount, 48);
TIKRON_CHECK_OFF(tagHQInfo, buy_total_amount, 52);
TIKRON_CHECK_OFF(tagHQInfo, sale_low_price, 56);
TIKRON_CHECK_OFF(tagHQInfo, sale_low_amount, 64);
TIKRON_CHECK_OFF(tagHQInfo, sale_total_amount, 68);
TIKRON_CHECK_OFF(tagHQInfo, futu_high_price, 72);
TIKRON_CHECK_OFF(tagHQInfo, futu_low_price, 80);
TIKRON_CHECK_OFF(tagHQInfo, average_price, 88);
TIKRON_CHECK_OFF(tagHQInfo, change_direction, 96);
TIKRON_CHECK_OFF(tagHQInfo, business_amount, 104);
TIKRON_CHECK_OFF(tagHQInfo, bear_amount, 108);
TIKRON_CHECK_OFF(tagHQInfo, business_balance, 112);
TIKRON_CHECK_OFF(tagHQInfo, uplimited_price, 120);
TIKRON_CHECK_OFF(tagHQInfo, downlimited_price, 128);
TIKRON_CHECK_OFF(tagHQInfo, futu_exch_type, 136);
TIKRON_CHECK_OFF(tagHQInfo, form_buy_price, 140);
TIKRON_CHECK_OFF(tagHQInfo, form_sale_price, 148);
TIKRON_CHECK_OFF(tagHQInfo, form_buy_amount, 156);
TIKRON_CHECK_OFF(tagHQInfo, form_sale_amount, 160);
TIKRON_CHECK_OFF(tagHQInfo, pre_close_price, 164);
TIKRON_CHECK_OFF(tagHQInfo, pre_open_interest, 172);
TIKRON_CHECK_OFF(tagHQInfo, futu_close_price, 180);
TIKRON_CHECK_OFF(tagHQInfo, square_price, 188);
TIKRON_CHECK_OFF(tagHQInfo, pre_delta, 196);
TIKRON_CHECK_OFF(tagHQInfo, curr_delta, 204);
TIKRON_CHECK_OFF(tagHQInfo, bid_price2, 212);
TIKRON_CHECK_OFF(tagHQInfo, bid_volume2, 220);
TIKRON_CHECK_OFF(tagHQInfo, bid_price3, 224);
TIKRON_CHECK_OFF(tagHQInfo, bid_volume3, 232);
TIKRON_CHECK_OFF(tagHQInfo, bid_price4, 236);
TIKRON_CHECK_OFF(tagHQInfo, bid_volume4, 244);
TIKRON_CHECK_OFF(tagHQInfo, bid_price5, 248);
TIKRON_CHECK_OFF(tagHQInfo, bid_volume5, 256);
TIKRON_CHECK_OFF(tagHQInfo, ask_price2, 260);
TIKRON_CHECK_OFF(tagHQInfo, ask_volume2, 268);
TIKRON_CHECK_OFF(tagHQInfo, ask_price3, 272);
TIKRON_CHECK_OFF(tagHQInfo, ask_volume3, 280);
TIKRON_CHECK_OFF(tagHQInfo, ask_price4, 284);
TIKRON_CHECK_OFF(tagHQInfo, ask_volume4, 292);
TIKRON_CHECK_OFF(tagHQInfo, ask_price5, 296);
TIKRON_CHECK_OFF(tagHQInfo, ask_volume5, 304);

static_assert(sizeof(tagHQInfo_EX) == 328, "tagHQInfo_EX size");
TIKRON_CHECK_OFF(tagHQInfo_EX, contract_code, 0);
TIKRON_CHECK_OFF(tagHQInfo_EX, pre_square_price, 32);
TIKRON_CHECK_OFF(tagHQInfo_EX, futu_open_price, 40);
TIKRON_CHECK_OFF(tagHQInfo_EX, futu_last_price, 48);
TIKRON_CHECK_OFF(tagHQInfo_EX, buy_high_price, 56);
TIKRON_CHECK_OFF(tagHQInfo_EX, buy_high_amount, 64);
TIKRON_CHECK_OFF(tagHQInfo_EX, buy_total_amount, 68);
TIKRON_CHECK_OFF(tagHQInfo_EX, sale_low_price, 72);
TIKRON_CHECK_OFF(tagHQInfo_EX, sale_low_amount, 80);
TIKRON_CHECK_OFF(tagHQInfo_EX, sale_total_amount, 84);
TIKRON_CHECK_OFF(tagHQInfo_EX, futu_high_price, 88);
TIKRON_CHECK_OFF(tagHQInfo_EX, futu_low_price, 96);
TIKRON_CHECK_OFF(tagHQInfo_EX, average_price, 104);
TIKRON_CHECK_OFF(tagHQInfo_EX, change_direction, 112);
TIKRON_CHECK_OFF(tagHQInfo_EX, business_amount, 120);
TIKRON_CHECK_OFF(tagHQInfo_EX, bear_amount, 124);
TIKRON_CHECK_OFF(tagHQInfo_EX, business_balance, 128);
TIKRON_CHECK_OFF(tagHQInfo_EX, uplimited_price, 136);
TIKRON_CHECK_OFF(tagHQInfo_EX, downlimited_price, 144);
TIKRON_CHECK_OFF(tagHQInfo_EX, futu_exch_type, 152);
TIKRON_CHECK_OFF(tagHQInfo_EX, form_buy_price, 156);
TIKRON_CHECK_OFF(tagHQInfo_EX, form_sale_price, 164);
TIKRON_CHECK_OFF(tagHQInfo_EX, form_buy_amount, 172);
TIKRON_CHECK_OFF(tagHQInfo_EX, form_sale_amount, 176);
TIKRON_CHECK_OFF(tagHQInfo_EX, pre_close_price, 180);
TIKRON_CHECK_OFF(tagHQInfo_EX, pre_open_interest, 188);
TIKRON_CHECK_OFF(tagHQInfo_EX, futu_close_price, 196);
TIKRON_CHECK_OFF(tagHQInfo_EX, square_price, 204);
TIKRON_CHECK_OFF(tagHQInfo_EX, pre_delta, 212);
TIKRON_CHECK_OFF(tagHQInfo_EX, curr_delta, 220);
TIKRON_CHECK_OFF(tagHQInfo_EX, bid_price2, 228);
TIKRON_CHECK_OFF(tagHQInfo_EX, bid_volume2, 236);
TIKRON_CHECK_OFF(tagHQInfo_EX, bid_price3, 240);
TIKRON_CHECK_OFF(tagHQInfo_EX, bid_volume3, 248);
TIKRON_CHECK_OFF(tagHQInfo_EX, bid_price4, 252);
TIKRON_CHECK_OFF(tagHQInfo_EX, bid_volume4, 260);
TIKRON_CHECK_OFF(tagHQInfo_EX, bid_price5, 264);
TIKRON_CHECK_OFF(tagHQInfo_EX, bid_volume5, 272);
TIKRON_CHECK_OFF(tagHQInfo_EX, ask_price2, 276);
TIKRON_CHECK_OFF(tagHQInfo_EX, ask_volume2, 284);
TIKRON_CHECK_OFF(tagHQInfo_EX, ask_price3, 288);
TIKRON_CHECK_OFF(tagHQInfo_EX, ask_volume3, 296);
TIKRON_CHECK_OFF(tagHQInfo_EX, ask_price4, 300);
TIKRON_CHECK_OFF(tagHQInfo_EX, ask_volume4, 308);
TIKRON_CHECK_OFF(tagHQInfo_EX, ask_price5, 312);
TIKRON_CHECK_OFF(tagHQInfo_EX, ask_volume5, 320);
TIKRON_CHECK_OFF(tagHQInfo_EX, time_stamp, 324);

static_assert(sizeof(tagArgHQInfo) == 128, "tagArgHQInfo size");
TIKRON_CHECK_OFF(tagArgHQInfo, contract_code, 0);
TIKRON_CHECK_OFF(tagArgHQInfo, futu_exch_type, 31);
TIKRON_CHECK_OFF(tagArgHQInfo, first_code, 34);
TIKRON_CHECK_OFF(tagArgHQInfo, second_code, 47);
TIKRON_CHECK_OFF(tagArgHQInfo, arbi_type, 60);
TIKRON_CHECK_OFF(tagArgHQInfo, buy_price, 64);
TIKRON_CHECK_OFF(tagArgHQInfo, buy_amount, 72);
TIKRON_CHECK_OFF(tagArgHQInfo, buy_total_amount, 76);
TIKRON_CHECK_OFF(tagArgHQInfo, sale_price, 80);
TIKRON_CHECK_OFF(tagArgHQInfo, sale_amount, 88);
TIKRON_CHECK_OFF(tagArgHQInfo, sale_total_amount, 92);
TIKRON_CHECK_OFF(tagArgHQInfo, futu_high_price, 96);
TIKRON_CHECK_OFF(tagArgHQInfo, futu_low_price, 104);
TIKRON_CHECK_OFF(tagArgHQInfo, uplimited_price, 112);
TIKRON_CHECK_OFF(tagArgHQInfo, downlimited_price, 120);

static_assert(sizeof(tagEXCHSTATUS) == 12, "tagEXCHSTATUS size");
TIKRON_CHECK_OFF(tagEXCHSTATUS, futu_exch_type, 0);
TIKRON_CHECK_OFF(tagEXCHSTATUS, futu_status, 3);
TIKRON_CHECK_OFF(tagEXCHSTATUS, can_trade, 8);

static_assert(sizeof(tagQRX_HQ) == 312, "tagQRX_HQ size");
TIKRON_CHECK_OFF(tagQRX_HQ, quote_type, 0);
TIKRON_CHECK_OFF(tagQRX_HQ, quote_length, 4);
TIKRON_CHECK_OFF(tagQRX_HQ, update_time, 8);
TIKRON_CHECK_OFF(tagQRX_HQ, quote_index, 12);
TIKRON_CHECK_OFF(tagQRX_HQ, futu_exch_type, 16);
TIKRON_CHECK_OFF(tagQRX_HQ, commodity_type, 20);
TIKRON_CHECK_OFF(tagQRX_HQ, futu_code, 26);
TIKRON_CHECK_OFF(tagQRX_HQ, pre_settlement_price, 56);
TIKRON_CHECK_OFF(tagQRX_HQ, pre_close_price, 64);
TIKRON_CHECK_OFF(tagQRX_HQ, pre_open_interest, 72);
TIKRON_CHECK_OFF(tagQRX_HQ, pre_delta, 76);
TIKRON_CHECK_OFF(tagQRX_HQ, futu_open_price, 84);
TIKRON_CHECK_OFF(tagQRX_HQ, futu_last_price, 92);
TIKRON_CHECK_OFF(tagQRX_HQ, buy_high_price, 100);
TIKRON_CHECK_OFF(tagQRX_HQ, buy_high_amount, 108);
TIKRON_CHECK_OFF(tagQRX_HQ, low_sell_price, 112);
TIKRON_CHECK_OFF(tagQRX_HQ, low_sell_amount, 120);
TIKRON_CHECK_OFF(tagQRX_HQ, futu_high_price, 124);
TIKRON_CHECK_OFF(tagQRX_HQ, futu_low_price, 132);
TIKRON_CHECK_OFF(tagQRX_HQ, uplimited_price, 140);
TIKRON_CHECK_OFF(tagQRX_HQ, downlimited_price, 148);
TIKRON_CHECK_OFF(tagQRX_HQ, average_price, 156);
TIKRON_CHECK_OFF(tagQRX_HQ, change_direction, 164);
TIKRON_CHECK_OFF(tagQRX_HQ, business_amount, 172);
TIKRON_CHECK_OFF(tagQRX_HQ, open_interest, 176);
TIKRON_CHECK_OFF(tagQRX_HQ, business_balance, 180);
TIKRON_CHECK_OFF(tagQRX_HQ, futu_close_price, 188);
TIKRON_CHECK_OFF(tagQRX_HQ, square_price, 196);
TIKRON_CHECK_OFF(tagQRX_HQ, curr_date, 204);
TIKRON_CHECK_OFF(tagQRX_HQ, curr_delta, 208);
TIKRON_CHECK_OFF(tagQRX_HQ, buy_price2, 216);
TIKRON_CHECK_OFF(tagQRX_HQ, buy_amount2, 224);
TIKRON_CHECK_OFF(tagQRX_HQ, buy_price3, 228);
TIKRON_CHECK_OFF(tagQRX_HQ, buy_amount3, 236);
TIKRON_CHECK_OFF(tagQRX_HQ, buy_price4, 240);
TIKRON_CHECK_OFF(tagQRX_HQ, buy_amount4, 248);
TIKRON_CHECK_OFF(tagQRX_HQ, buy_price5, 252);
TIKRON_CHECK_OFF(tagQRX_HQ, buy_amount5, 260);
TIKRON_CHECK_OFF(tagQRX_HQ, sale_price2, 264);
TIKRON_CHECK_OFF(tagQRX_HQ, sale_amount2, 272);
TIKRON_CHECK_OFF(tagQRX_HQ, sale_price3, 276);
TIKRON_CHECK_OFF(tagQRX_HQ, sale_amount3, 284);
TIKRON_CHECK_OFF(tagQRX_HQ, sale_price4, 288);
TIKRON_CHECK_OFF(tagQRX_HQ, sale_amount4, 296);
TIKRON_CHECK_OFF(tagQRX_HQ, sale_price5, 300);
TIKRON_CHECK_OFF(tagQRX_HQ, sale_amount5, 308);

static_assert(sizeof(tagHQFileHead) == 16, "tagHQFileHead size");
TIKRON_CHECK_OFF(tagHQFileHead, ulTime, 0);
TIKRON_CHECK_OFF(tagHQFileHead, dwCount, 8);
static_assert(sizeof(tagSaveHQInfo<tagHQInfo>) == 316, "slot size 16");
static_assert(sizeof(tagSaveHQInfo<tagHQInfo_EX>) == 336, "slot size 22");
static_assert(sizeof(tagSaveHQInfo<tagArgHQInfo>) == 136, "slot size 18");
static_assert(sizeof(tagSaveHQInfo<tagEXCHSTATUS>) == 20, "slot size 24");
TIKRON_CHECK_OFF(tagSaveHQInfo<tagHQInfo>, szHQInfo, 4);
TIKRON_CHECK_OFF(tagSaveHQInfo<tagHQInfo>, iCrc, 312);
TIKRON_CHECK_OFF(tagSaveHQInfo<tagEXCHSTATUS>, iCrc, 16);

#undef TIKRON_CHECK_OFF
