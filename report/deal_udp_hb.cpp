// '3': a trade report over UDP, parsed into the service's working report and
// republished as 23, 33101 and 17 with the service's packer. Runs only on the
// datagram consumer thread, which owns the service's scratch records.
#include <cstring>

#include "frame/service_log.h"
#include "report/hb_publish.h"
#include "wire/udp_record_text.h"

using tikron_udp::RecordFields;

namespace {

// Fields 1-27 are mandatory, the rest optional and laid out by report kind.
int ReadUdpReport(const std::string& text, tagHB& hb) {
    RecordFields f(text);
    f.Int(hb.entrust_no)
        .Text(hb.futures_account)
        .Text(hb.futu_exch_type)
        .Text(hb.business_no)
        .Text(hb.contract_code)
        .Text(hb.entrust_name)
        .Text(hb.direction_name)
        .Dbl(TIKRON_UDP_DBL(hb.business_price))
        .Dbl(TIKRON_UDP_DBL(hb.business_amount))
        .Text(hb.hedge_name)
        .Text(hb.fund_account)
        .Text(hb.futu_report_no)
        .Text(hb.firm_no)
        .Text(hb.operator_no)
        .Int(hb.client_group)
        .Int(hb.entrust_amount)
        .Int(hb.business_total_amount)
        .Int(hb.cacel_amount)
        .Dbl(TIKRON_UDP_DBL(hb.entrust_price))
        .Text(hb.business_type)
        .Text(hb.entrust_status)
        .Int(hb.branch_no)
        .Int(hb.batch_no)
        .Text(hb.futu_entrust_type)
        .Int(hb.amount_per_hand)
        .Text(hb.forceclose_reason)
        .Text(hb.confirm_no);
    if (!f.Ok()) return f.Result();

    f.Optional().Int(hb.curr_date).Int(hb.curr_time);
    if (hb.business_type[0] == 'B') {
        f.Skip(20)
            .Text(hb.futu_entrust_prop)
            .Int(hb.session_no)
            .Text(hb.entrust_occasion)
            .Text(hb.entrust_reference)
            .Text(hb.arbit_code)
            .Dbl(TIKRON_UDP_DBL(hb.drop_profit))
            .Dbl(TIKRON_UDP_DBL(hb.drop_profit_float))
            .Text(hb.szPositionStr)
            .Int(hb.business_total_amount)
            .Dbl(TIKRON_UDP_DBL(hb.delta_entrust_fare))
            .Dbl(TIKRON_UDP_DBL(hb.delta_business_fare))
            .Dbl(TIKRON_UDP_DBL(hb.delta_entrust_margin))
            .Dbl(TIKRON_UDP_DBL(hb.delta_hold_margin))
            .Dbl(TIKRON_UDP_DBL(hb.delta_entrust_premium))
            .Dbl(TIKRON_UDP_DBL(hb.delta_premium));
    } else {
        f.Char(hb.weave_type)
            .Text(hb.arbit_code)
            .Char(hb.time_condition)
            .Char(hb.volume_condition)
            .Text(hb.futu_entrust_prop)
            .Skip(20)
            .Text(hb.error_message)
            .Int(hb.session_no)
            .Text(hb.entrust_occasion)
            .Text(hb.entrust_reference)
            .Text(hb.second_code)
            .Text(hb.szPositionStr)
            .Int(hb.business_total_amount)
            .Text(hb.withdraw_reference)
            .Dbl(TIKRON_UDP_DBL(hb.delta_entrust_fare))
            .Dbl(TIKRON_UDP_DBL(hb.delta_entrust_margin))
            .Dbl(TIKRON_UDP_DBL(hb.delta_entrust_premium))
            .Dbl(TIKRON_UDP_DBL(hb.delta_report_fare))
            .Int(hb.fex_min_volume);
    }
    return f.Result();
}

}  // namespace

int CTIKRONServiceImpl::DealUDP_HB(void* data, int len) {
    ++m_uiRecvUDPHB;
    const int check = CheckUDPData(data, len);
    if (check != '3') {
        // Logged under the quote table's loader name, as the operators know it.
        TikronLog(m_lpLogService, "CTIKRONInfo::LoadFromFile", "包格式不对, 错误代码: %d!", check);
        return -2;
    }
    const std::string text = tikron_udp::PrepareRecordText(data, len);
    std::memset(&m_szHB, 0, sizeof m_szHB);
    const int r = ReadUdpReport(text, m_szHB);
    if (r != 0) return r;  // a field error returns the reader's code without a line

    tikron::ApplyStatusRules(m_szHB, m_iSysVersion);
    tikron::HBScratch scratch{&m_szCJ_EX, &m_szCJ, &m_szWTQR_EX, &m_szWTQR};
    tikron::HBPublishOptions opt;
    opt.packer = m_pPacker;  // null: a packer per message from the pack service
    opt.legacyCodeLimit = 12;
    opt.lyAsString = true;
    opt.countLegacy = true;
    tikron::PublishHBReports(*this, m_szHB, scratch, opt);
    return 0;
}
