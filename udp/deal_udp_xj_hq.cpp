// 'B' inquiry quote (request for quote): relayed as text 33300, not stored.
#include <cstring>
#include <string>

#include "frame/service_log.h"
#include "frame/tikron_service.h"
#include "report/report_text.h"
#include "quote/quote_publish.h"
#include "wire/udp_record_text.h"

using namespace tikron_udp;

int CTIKRONServiceImpl::DealUDP_xjHq(void* data, int len) {
    // Only the comma feed carries inquiry quotes.
    if (m_iUdpHqVersion != 0) return 0;
    tagXJ xj;
    memset(&xj, 0, sizeof xj);
    int r = CheckUDPData(data, len);
    if (r != 'B') {
        // Reported under the table class's name, as receivers expect.
        TikronLog(m_lpLogService, "CTIKRONInfo::DealUDP_xjHq", "包格式不对, 错误代码: %d!", r);
        return -2;
    }
    const std::string text = PrepareRecordText(data, len);
    RecordFields f(text);
    r = f.Text(xj.forquote_no).Text(xj.contract_code).Int(xj.init_date).Int(xj.update_time).Result();
    if (r != 0) return r;  // field errors return the reader's code, no line

    char out[1024];
    ConvertXJHqTo33300(&xj, out, sizeof out);  // at most 72 characters: always fits
    char key[sizeof xj.contract_code];
    FieldText(key, xj.contract_code);
    Publish(*this, kFuncQuotePublish, 33300, TextKey("contract_code", key), TextBody(out, 1024));
    return 0;
}
