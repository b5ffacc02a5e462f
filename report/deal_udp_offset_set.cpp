// 'F': result of an offset (close-out) setting request, republished as the
// text record 33117 under 620031.
#include <cstdio>
#include <cstring>

#include "frame/service_log.h"
#include "report/report_publish.h"
#include "report/report_text.h"
#include "wire/udp_record_text.h"

int CTIKRONServiceImpl::DealUDP_OffsetSet(void* data, int len) {
    const int check = CheckUDPData(data, len);
    if (check != 'F') {
        // Formatted but deliberately not logged.
        char info[64];
        std::snprintf(info, sizeof info, "包格式不对, 错误代码: %d!", check);
        (void)info;
        return -2;
    }
    const std::string text = tikron_udp::PrepareRecordText(data, len);
    tagOFFSET rec;
    std::memset(&rec, 0, sizeof rec);
    tikron_udp::RecordFields f(text);
    f.Text(rec.fund_account)
        .Text(rec.futures_account)
        .Int(rec.entrust_no)
        .Text(rec.futu_exch_type)
        .Text(rec.futu_code)
        .Int(rec.entrust_amount)
        .Char(rec.offset_type)
        .Char(rec.entrust_status)
        .Char(rec.offset_action_type)
        .Text(rec.error_message)
        .Text(rec.position_str);
    if (!f.Ok()) {
        TikronLog(m_lpLogService, "CTIKRONServiceImpl::DealUDP_OffsetSet", "解析记录失败, 错误代码: %d!", f.Result());
        return f.Result();
    }

    char out[1024];
    std::memset(out, 0, sizeof out);
    ConvertOffsetTo33117(&rec, out, sizeof out);
    tikron::PublishFundText(*this, tikron::kFuncReportPublish, 33117, rec.fund_account, out);
    return 0;
}
