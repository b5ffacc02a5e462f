// 'E': combination-margin order report, republished as the text record 33106
// under 620003 (not 620031 like the other back-end reports).
#include <cstdio>
#include <cstring>

#include "frame/service_log.h"
#include "report/report_publish.h"
#include "report/report_text.h"
#include "wire/udp_record_text.h"

int CTIKRONServiceImpl::DealUDP_ZJZH_BZJHB(void* data, int len) {
    const int check = CheckUDPData(data, len);
    if (check != 'E') {
        // Formatted but deliberately not logged.
        char info[64];
        std::snprintf(info, sizeof info, "包格式不对, 错误代码: %d!", check);
        (void)info;
        return -2;
    }
    const std::string text = tikron_udp::PrepareRecordText(data, len);
    tagZJZHBZJHB rec;
    std::memset(&rec, 0, sizeof rec);
    // The record's field order differs from the structure's; futu_code,
    // second_code, entrust_prop, position_str and the margins are not carried.
    tikron_udp::RecordFields f(text);
    f.Int(rec.entrust_no)
        .Text(rec.futures_account)
        .Text(rec.futu_exch_type)
        .Char(rec.combdirection)
        .Text(rec.arbit_code)
        .Char(rec.entrust_bs)
        .Int(rec.entrust_amount)
        .Char(rec.hedge_type)
        .Text(rec.fund_account)
        .Text(rec.report_id)
        .Text(rec.firm_id)
        .Text(rec.operator_no)
        .Int(rec.client_group)
        .Char(rec.entrust_status)
        .Int(rec.branch_no)
        .Int(rec.batch_no)
        .Int(rec.amount_per_hand)
        .Int(rec.init_date)
        .Int(rec.entrust_time)
        .Char(rec.entrust_type)
        .Text(rec.error_message)
        .Int(rec.session_no)
        .Text(rec.entrust_occasion)
        .Text(rec.entrust_reference)
        .Char(rec.second_hedge_type)
        .Optional()
        .Char(rec.weave_type);
    if (!f.Ok()) {
        TikronLog(m_lpLogService, "CTIKRONServiceImpl::DealUDP_ZJZH_BZJHB", "解析记录失败, 错误代码: %d!", f.Result());
        return f.Result();
    }

    char out[1024];
    std::memset(out, 0, sizeof out);
    ConvertZJZH_BZJHBTo33106(&rec, out, sizeof out);
    tikron::PublishFundText(*this, tikron::kFuncPublish, 33106, rec.fund_account, out);
    return 0;
}
