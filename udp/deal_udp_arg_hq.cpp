// '9' arbitrage quote: arbitrage table, issue types 18 and 33102.
#include <cstring>

#include "frame/service_log.h"
#include "frame/tikron_service.h"
#include "quote/quote_text.h"
#include "store/hq_tables.h"
#include "quote/quote_publish.h"

using namespace tikron_udp;

int CTIKRONServiceImpl::DealUDP_argHq(void* data, int len) {
    int r = CheckUDPData(data, len);
    if (r != '9') {
        // Reported under the single-leg handler's name, as receivers expect.
        TikronLog(m_lpLogService, "CTIKRONServiceImpl::DealUDP_hq", "包格式不对, 错误代码: %d!", r);
        return -2;
    }
    if (m_pTIKRONARGInfo == nullptr) return 0;
    tagArgHQInfo arg;
    memset(&arg, 0, sizeof arg);
    if (m_pTIKRONARGInfo->AddHQData(static_cast<const char*>(data), len, &arg, '9', 0) != 0) return 0;

    char key[sizeof arg.contract_code];
    FieldText(key, arg.contract_code);
    Publish(*this, kFuncQuotePublish, 18, TextKey("arbicontract_id", key),
            RawQuoteBody(kTypeArbitrage, &arg, static_cast<int>(sizeof arg)));
    // Room for the longest text of any record (eight %f of up to 317
    // characters); valid quotes stay far below 1024.
    char text[4096];
    Convert18To33102(&arg, text, sizeof text);
    Publish(*this, kFuncQuotePublish, 33102, TextKey("arbicontract_id", key), TextBody(text, 1024));
    return 0;
}
