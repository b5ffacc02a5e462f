// Datagram dispatch by record type: the table of UDP handlers.
#include "frame/service_log.h"
#include "frame/tikron_service.h"

// A type whose switch is off is dropped and counts as handled (0); an
// unknown type gives -2 and a log line.
int CTIKRONServiceImpl::DoUDPHelper(void* data, int len) {
    if (data == nullptr || len < 1) return -2;
    const unsigned char type = static_cast<const unsigned char*>(data)[0];
    switch (type) {
        case '0': return m_iDealUdpHq ? DealUDP_hq(data, len) : 0;
        case '9': return m_iDealUdpHq ? DealUDP_argHq(data, len) : 0;
        case 'A': return DealUDP_exchStatus(data, len);
        case 'B': return m_iDealUdpHq ? DealUDP_xjHq(data, len) : 0;
        case 'C': return m_iDealUdpHb ? DealUDP_BJHB(data, len) : 0;
        case '3': return m_iDealUdpHb ? DealUDP_HB(data, len) : 0;
        case 'F': return DealUDP_OffsetSet(data, len);
        case 'E': return DealUDP_ZJZH_BZJHB(data, len);
        case 'S': return DealPUSH_STP(data, len);
        case 'D': return DealPUSH_EXERCISESTATUS(data, len);
        case 'X': return DealPUSH_OPT_ENTRUST(data, len);
        case 'Y': return DealPUSH_OPT_CJHB(data, len);
        case 'Z': return DealPUSH_OPT_HQ(data, len);
        default:
            TikronLog(m_lpLogService, "CTIKRONServiceImpl::DoUDPHelper", "未知的记录类型: %d!", type);
            return -2;
    }
}
