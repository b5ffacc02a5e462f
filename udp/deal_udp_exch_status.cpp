// 'A' exchange status: exchange-status table, issue types 24 and 33105.
#include <cstring>

#include "frame/service_log.h"
#include "frame/tikron_service.h"
#include "quote/quote_text.h"
#include "store/hq_tables.h"
#include "quote/quote_publish.h"

using namespace tikron_udp;

int CTIKRONServiceImpl::DealUDP_exchStatus(void* data, int len) {
    int r = CheckUDPData(data, len);
    if (r != 'A') {
        TikronLog(m_lpLogService, "CTIKRONServiceImpl::DealUDP_exchStatus", "包格式不对, 错误代码: %d!", r);
        return -2;
    }
    if (m_pFUTUExchStatusInfo == nullptr) return 0;
    tagEXCHSTATUS st;
    memset(&st, 0, sizeof st);
    // Published even when parsing failed: with the fields read so far. The
    // table has no log service of its own.
    r = m_pFUTUExchStatusInfo->AddHQData(static_cast<const char*>(data), len, &st, 'A', 0);
    if (r != 0)
        TikronLog(m_lpLogService, "CTIKRONServiceImpl::DealUDP_exchStatus", "get hq from data fail, error code: %d!",
                  r);

    char key[sizeof st.futu_exch_type + 1];
    FieldText(key, st.futu_exch_type);
    Publish(*this, kFuncQuotePublish, 24, TextKey("futu_exch_type", key),
            RawExchStatusBody(&st, static_cast<int>(sizeof st)));
    char text[56];
    Convert24To33105(&st, text, sizeof text);
    Publish(*this, kFuncQuotePublish, 33105, TextKey("futu_exch_type", key), TextBody(text, 1024));
    return 0;
}
