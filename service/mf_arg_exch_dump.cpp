// Actions 3 and 4: dumps of the arbitrage and exchange-status tables.
#include "frame/mgmt_actions.h"
#include "frame/mgmt_table.h"
#include "store/hq_tables.h"

int mf_GetARGHQInfo(CMessageServiceImpl* service, IF2UnPacker*, IF2Packer* answer) {
    if (service == nullptr || answer == nullptr) return -1;
    static const char* const kColumns[] = {
        "0 套利合约号",   "1 交易类别",     "2 第一腿",   "3 第二腿",    "4 组合类型1-SPD, 2 -IPS",
        "5 最高买入价",   "6 最高买入价买量", "7 全部买量", "8 最低卖价价格", "9 最低卖价卖量",
        "10 全部卖量",    "11 最高价",       "12 最低价",  "13 涨停板价格", "14 跌停板价格"};
    tikron_mgmt::BeginTable(answer, kColumns);
    CTIKRONServiceImpl* tikron = tikron_mgmt::Tikron(service);
    CTIKRONARGInfo* table = tikron != nullptr ? tikron->m_pTIKRONARGInfo : nullptr;
    if (table != nullptr) {
        tikron_mgmt::TableLock<CTIKRONARGInfo> lock(table);
        for (const auto& entry : table->GetHQMap()) {
            if (entry.second == nullptr) continue;
            const tagArgHQInfo& r = entry.second->szHQInfo;
            tikron_mgmt::AddField(answer, r.contract_code);
            tikron_mgmt::AddField(answer, r.futu_exch_type);
            tikron_mgmt::AddField(answer, r.first_code);
            tikron_mgmt::AddField(answer, r.second_code);
            answer->AddChar(r.arbi_type);
            answer->AddDouble(r.buy_price);
            answer->AddInt(r.buy_amount);
            answer->AddInt(r.buy_total_amount);
            answer->AddDouble(r.sale_price);
            answer->AddInt(r.sale_amount);
            answer->AddInt(r.sale_total_amount);
            answer->AddDouble(r.futu_high_price);
            answer->AddDouble(r.futu_low_price);
            answer->AddDouble(r.uplimited_price);
            answer->AddDouble(r.downlimited_price);
        }
    }
    answer->EndPack();
    return 0;
}

int mf_GetExchStatusInfo(CMessageServiceImpl* service, IF2UnPacker*, IF2Packer* answer) {
    if (service == nullptr || answer == nullptr) return -1;
    static const char* const kColumns[] = {"0 交易所类别", "1 状态", "2 是否可交易"};
    tikron_mgmt::BeginTable(answer, kColumns);
    CTIKRONServiceImpl* tikron = tikron_mgmt::Tikron(service);
    CExchStatusInfo* table = tikron != nullptr ? tikron->m_pFUTUExchStatusInfo : nullptr;
    if (table != nullptr) {
        tikron_mgmt::TableLock<CExchStatusInfo> lock(table);
        for (const auto& entry : table->GetHQMap()) {
            if (entry.second == nullptr) continue;
            const tagEXCHSTATUS& r = entry.second->szHQInfo;
            tikron_mgmt::AddField(answer, r.futu_exch_type);
            tikron_mgmt::AddField(answer, r.futu_status);
            answer->AddInt(r.can_trade);
        }
    }
    answer->EndPack();
    return 0;
}
