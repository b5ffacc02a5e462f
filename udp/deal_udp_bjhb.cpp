// 'C' quote report (market maker's quote): relayed as text 33301 under the
// report publication function, not stored.
#include <cstring>
#include <string>

#include "frame/service_log.h"
#include "frame/tikron_service.h"
#include "report/report_text.h"
#include "wire/field_reader.h"
#include "quote/quote_publish.h"
#include "wire/udp_record_text.h"

using namespace tikron_udp;

int CTIKRONServiceImpl::DealUDP_BJHB(void* data, int len) {
    int r = CheckUDPData(data, len);
    if (r != 'C') {
        // Reported under this name, as receivers expect.
        TikronLog(m_lpLogService, "CTIKRONInfo::LoadFromFile", "包格式不对, 错误代码: %d!", r);
        return -2;
    }
    tagBJHB& bj = m_szBJHB;
    memset(&bj, 0, sizeof bj);
    const std::string text = PrepareRecordText(data, len);
    RecordFields f(text);
    f.Text(bj.futu_exch_type).Text(bj.contract_code).Text(bj.buy_futures_direction).Text(bj.buy_hedge_type);
    f.Dbl(TIKRON_UDP_DBL(bj.buy_price)).Dbl(TIKRON_UDP_DBL(bj.buy_amount));
    f.Text(bj.sale_futures_direction).Text(bj.sale_hedge_type);
    f.Dbl(TIKRON_UDP_DBL(bj.sale_price)).Dbl(TIKRON_UDP_DBL(bj.sale_amount));
    f.Int(bj.quote_no).Text(bj.fund_account).Text(bj.futu_report_no).Text(bj.firm_no);
    f.Text(bj.operator_no).Text(bj.entrust_status).Int(bj.branch_no).Int(bj.init_date).Int(bj.curr_time);
    f.Text(bj.confirm_no).Text(bj.buy_confirm_no).Text(bj.sale_confirm_no).Text(bj.quote_occasion);
    // Older senders stop after quote_occasion.
    f.Optional().Text(bj.quote_reference).Int(bj.session_no);
    f.Text(bj.buy_entrust_reference).Text(bj.sell_entrust_reference);
    f.Int(bj.buy_entrust_no).Int(bj.sell_entrust_no);
    if (f.Result() != 0) return f.Result();  // field errors return the reader's code, no line

    if (m_iSysVersion == 1) {
        char c = StatusSwtich(bj.entrust_status[0]);
        if (c != static_cast<char>(0xFF)) bj.entrust_status[0] = c;
    }
    // Room for the longest text of any record (four %f of up to 317
    // characters); valid reports stay far below 1024.
    char out[4096];
    ConvertBJHbTo33301(&bj, out, sizeof out);
    char fund[sizeof bj.fund_account];
    FieldText(fund, bj.fund_account);
    const KeyColumn keys[2] = {IntKey("branch_no", bj.branch_no), TextKey("fund_account", fund)};
    Publish(*this, kFuncReportPublish, 33301, keys, 2, TextBody(out, 1024));
    return 0;
}
