// 'F': result of an offset (close-out) setting request, republished as the
// text record 33117 under 620031.
#include <cstdio>
#include <cstring>

#include "report/report_publish.h"
#include "report/report_text.h"
#include "report/udp_report_fields.h"

int CTIKRONServiceImpl::DealUDP_OffsetSet(void* data, int len) {
    const int check = CheckUDPData(data, len);
    if (check != 'F') {
        // Formatted for a debugger but deliberately not logged.
        char info[128];
        std::snprintf(info, sizeof info, "包格式不对, 错误代码: %d!", check);
        (void)info;
        return -2;
    }
    const std::string text = tikron::PrepareUdpReport(data, len);
    tagOFFSET rec;
    std::memset(&rec, 0, sizeof rec);
    tikron::UdpFields f(text);
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
    if (!f.Ok()) return f.Result();

    char out[1024];
    std::memset(out, 0, sizeof out);
    ConvertOffsetTo33117(&rec, out, sizeof out);
    tikron::ReportTarget target;
    target.functionNo = tikron::kFuncReportPublish;
    target.issueType = 33117;
    tikron::ReportKey key;
    key.kind = tikron::ReportKeyKind::FundText;
    key.fundText = rec.fund_account;
    tikron::PublishMessage(*this, m_pPacker, target, key, [&](IF2Packer& p) {
        tikron::AddTextColumn(p, "QH");
        p.AddStr(out);
    });
    return 0;
}
