// Actions 1 and 2: dumps of the legacy and extended single-leg tables.
//
// Captions number the record fields in declaration order (the same order as
// the UDP record text): 0 contract_code, 1 pre_square_price, 2 futu_open_price,
// 3 futu_last_price, 4 buy_high_price, 5 buy_high_amount, 6 buy_total_amount,
// 7 sale_low_price, 8 sale_low_amount, 9 sale_total_amount, 10 futu_high_price,
// 11 futu_low_price, 12 average_price, 13 change_direction, 14 business_amount,
// 15 bear_amount, 16 business_balance, 17 uplimited_price, 18 downlimited_price,
// (19 futu_exch_type, not shown), 20 form_buy_price, 21 form_sale_price,
// 22 form_buy_amount, 23 form_sale_amount, 24 pre_close_price,
// 25 pre_open_interest, 26 futu_close_price, 27 square_price, 28 pre_delta,
// 29 curr_delta, 30-37 bid_price2/bid_volume2 .. bid_price5/bid_volume5,
// 38-45 ask_price2/ask_volume2 .. ask_price5/ask_volume5, (46 time_stamp of
// the extended record, not shown). "买" levels are the bid fields, "卖" the ask.
#include "frame/mgmt_actions.h"
#include "frame/mgmt_table.h"
#include "store/hq_tables.h"

namespace {

const char* const kSingleLegColumns[] = {
    "0合约代码",     "1昨日交割结算价", "2开盘价",      "3最新价格",    "4最高买入价",
    "5最高买入价买量", "6全部买量",      "7最低卖价价格", "8最低卖价卖量", "9全部卖量",
    "10最高价",      "11最低价",       "12均价",       "13趋势",       "14成交量",
    "15总持量",      "16成交额",       "17涨停板",     "18跌停板",     "20组合买入价格",
    "21组合卖出价格", "22组合买入数量", "23组合卖出数量", "24昨日收盘价", "25昨日空盘量",
    "26今日收盘价",  "27结算价",       "28昨日虚实度", "29今日虚实度", "30买二价",
    "31买二量",      "32买三价",       "33买三量",     "34买四价",     "35买四量",
    "36买五价",      "37买五量",       "38卖二价",     "39卖二量",     "40卖三价",
    "41卖三量",      "42卖四价",       "43卖四量",     "44卖五价",     "45卖五量"};
static_assert(sizeof kSingleLegColumns / sizeof kSingleLegColumns[0] == 45, "45 captions");

// One row of either single-leg layout. Packed fields are passed by value.
template <typename R>
void AddSingleLegRow(IF2Packer* a, const R& r) {
    tikron_mgmt::AddField(a, r.contract_code);
    a->AddDouble(r.pre_square_price);
    a->AddDouble(r.futu_open_price);
    a->AddDouble(r.futu_last_price);
    a->AddDouble(r.buy_high_price);
    a->AddInt(r.buy_high_amount);
    a->AddInt(r.buy_total_amount);
    a->AddDouble(r.sale_low_price);
    a->AddInt(r.sale_low_amount);
    a->AddInt(r.sale_total_amount);
    a->AddDouble(r.futu_high_price);
    a->AddDouble(r.futu_low_price);
    a->AddDouble(r.average_price);
    a->AddDouble(r.change_direction);
    a->AddInt(r.business_amount);
    a->AddInt(r.bear_amount);
    a->AddDouble(r.business_balance);
    a->AddDouble(r.uplimited_price);
    a->AddDouble(r.downlimited_price);
    a->AddDouble(r.form_buy_price);
    a->AddDouble(r.form_sale_price);
    a->AddInt(r.form_buy_amount);
    a->AddInt(r.form_sale_amount);
    a->AddDouble(r.pre_close_price);
    a->AddDouble(r.pre_open_interest);
    a->AddDouble(r.futu_close_price);
    a->AddDouble(r.square_price);
    a->AddDouble(r.pre_delta);
    a->AddDouble(r.curr_delta);
    a->AddDouble(r.bid_price2);
    a->AddInt(r.bid_volume2);
    a->AddDouble(r.bid_price3);
    a->AddInt(r.bid_volume3);
    a->AddDouble(r.bid_price4);
    a->AddInt(r.bid_volume4);
    a->AddDouble(r.bid_price5);
    a->AddInt(r.bid_volume5);
    a->AddDouble(r.ask_price2);
    a->AddInt(r.ask_volume2);
    a->AddDouble(r.ask_price3);
    a->AddInt(r.ask_volume3);
    a->AddDouble(r.ask_price4);
    a->AddInt(r.ask_volume4);
    a->AddDouble(r.ask_price5);
    a->AddInt(r.ask_volume5);
}

// The whole table in key order under its lock; a missing table gives the
// columns without rows.
template <typename Table>
int DumpSingleLeg(Table* table, IF2Packer* answer) {
    tikron_mgmt::BeginTable(answer, kSingleLegColumns);
    if (table != nullptr) {
        tikron_mgmt::TableLock<Table> lock(table);
        for (const auto& entry : table->GetHQMap())
            if (entry.second != nullptr) AddSingleLegRow(answer, entry.second->szHQInfo);
    }
    answer->EndPack();
    return 0;
}

}  // namespace

int mf_GetHQInfo(CMessageServiceImpl* service, IF2UnPacker*, IF2Packer* answer) {
    if (service == nullptr || answer == nullptr) return -1;
    CTIKRONServiceImpl* tikron = tikron_mgmt::Tikron(service);
    return DumpSingleLeg(tikron != nullptr ? tikron->m_pTIKRONInfo : nullptr, answer);
}

int mf_GetHQInfo_EX(CMessageServiceImpl* service, IF2UnPacker*, IF2Packer* answer) {
    if (service == nullptr || answer == nullptr) return -1;
    CTIKRONServiceImpl* tikron = tikron_mgmt::Tikron(service);
    return DumpSingleLeg(tikron != nullptr ? tikron->m_pTIKRONInfo_EX : nullptr, answer);
}
