// Named answer columns of the four quote record types.
#include "quote/quote_columns.h"

namespace tikron_quote {

namespace {

const char* const kSingleLegNames[46] = {
    "contract_code",     "pre_square_price",  "futu_open_price",  "futu_last_price",  "buy_high_price",
    "buy_high_amount",   "buy_total_amount",  "sale_low_price",   "sale_low_amount",  "sale_total_amount",
    "futu_high_price",   "futu_low_price",    "average_price",    "change_direction", "business_amount",
    "bear_amount",       "business_balance",  "uplimited_price",  "downlimited_price", "form_buy_price",
    "form_sale_price",   "form_buy_amount",   "form_sale_amount", "pre_close_price",  "pre_open_interest",
    "futu_close_price",  "square_price",      "pre_delta",        "curr_delta",       "bid_price2",
    "bid_volume2",       "bid_price3",        "bid_volume3",      "bid_price4",       "bid_volume4",
    "bid_price5",        "bid_volume5",       "ask_price2",       "ask_volume2",      "ask_price3",
    "ask_volume3",       "ask_price4",        "ask_volume4",      "ask_price5",       "ask_volume5",
    "futu_exch_type",
};

// Values are read by value from the packed record (never bound to a
// reference: some doubles are not 8-byte aligned).
template <typename T>
void AddSingleLegValues(IF2Packer* p, const T& r) {
    p->AddStr(FieldStr(r.contract_code).c_str());
    p->AddDouble(r.pre_square_price);
    p->AddDouble(r.futu_open_price);
    p->AddDouble(r.futu_last_price);
    p->AddDouble(r.buy_high_price);
    p->AddInt(r.buy_high_amount);
    p->AddInt(r.buy_total_amount);
    p->AddDouble(r.sale_low_price);
    p->AddInt(r.sale_low_amount);
    p->AddInt(r.sale_total_amount);
    p->AddDouble(r.futu_high_price);
    p->AddDouble(r.futu_low_price);
    p->AddDouble(r.average_price);
    p->AddDouble(r.change_direction);
    p->AddInt(r.business_amount);
    p->AddInt(r.bear_amount);
    p->AddDouble(r.business_balance);
    p->AddDouble(r.uplimited_price);
    p->AddDouble(r.downlimited_price);
    p->AddDouble(r.form_buy_price);
    p->AddDouble(r.form_sale_price);
    p->AddInt(r.form_buy_amount);
    p->AddInt(r.form_sale_amount);
    p->AddDouble(r.pre_close_price);
    p->AddDouble(r.pre_open_interest);
    p->AddDouble(r.futu_close_price);
    p->AddDouble(r.square_price);
    p->AddDouble(r.pre_delta);
    p->AddDouble(r.curr_delta);
    p->AddDouble(r.bid_price2);
    p->AddInt(r.bid_volume2);
    p->AddDouble(r.bid_price3);
    p->AddInt(r.bid_volume3);
    p->AddDouble(r.bid_price4);
    p->AddInt(r.bid_volume4);
    p->AddDouble(r.bid_price5);
    p->AddInt(r.bid_volume5);
    p->AddDouble(r.ask_price2);
    p->AddInt(r.ask_volume2);
    p->AddDouble(r.ask_price3);
    p->AddInt(r.ask_volume3);
    p->AddDouble(r.ask_price4);
    p->AddInt(r.ask_volume4);
    p->AddDouble(r.ask_price5);
    p->AddInt(r.ask_volume5);
    // Last column although the record keeps it after downlimited_price.
    p->AddStr(FieldStr(r.futu_exch_type).c_str());
}

}  // namespace

void DeclareSingleLegColumns(IF2Packer* p) {
    for (const char* name : kSingleLegNames) DeclareS(p, name);
}

void AddSingleLegRow(IF2Packer* p, const tagHQInfo& r) { AddSingleLegValues(p, r); }

void DeclareSingleLegExColumns(IF2Packer* p) {
    DeclareSingleLegColumns(p);
    DeclareS(p, "time_stamp");
}

void AddSingleLegExRow(IF2Packer* p, const tagHQInfo_EX& r) {
    AddSingleLegValues(p, r);
    p->AddInt(r.time_stamp);
}

void DeclareArbitrageColumns(IF2Packer* p) {
    static const char* const kNames[] = {
        "arbicontract_id", "futu_exch_type",    "first_code",      "second_code",    "arbi_type",
        "buy_price",       "buy_amount",        "buy_total_amount", "sale_price",    "sale_amount",
        "sale_total_amount", "futu_high_price", "futu_low_price",  "uplimited_price", "downlimited_price",
    };
    for (const char* name : kNames) DeclareS(p, name);
}

void AddArbitrageRow(IF2Packer* p, const tagArgHQInfo& r) {
    p->AddStr(FieldStr(r.contract_code).c_str());
    p->AddStr(FieldStr(r.futu_exch_type).c_str());
    p->AddStr(FieldStr(r.first_code).c_str());
    p->AddStr(FieldStr(r.second_code).c_str());
    p->AddChar(r.arbi_type);
    p->AddDouble(r.buy_price);
    p->AddInt(r.buy_amount);
    p->AddInt(r.buy_total_amount);
    p->AddDouble(r.sale_price);
    p->AddInt(r.sale_amount);
    p->AddInt(r.sale_total_amount);
    p->AddDouble(r.futu_high_price);
    p->AddDouble(r.futu_low_price);
    p->AddDouble(r.uplimited_price);
    p->AddDouble(r.downlimited_price);
}

void DeclareExchStatusColumns(IF2Packer* p) {
    DeclareS(p, "futu_exch_type");
    DeclareS(p, "futu_status");
    DeclareS(p, "can_trade");
}

void AddExchStatusRow(IF2Packer* p, const tagEXCHSTATUS& r) {
    p->AddStr(FieldStr(r.futu_exch_type).c_str());
    p->AddStr(FieldStr(r.futu_status).c_str());
    p->AddInt(r.can_trade);
}

}  // namespace tikron_quote
