// Trade-report and conversion handlers that do not process their input yet.
#include "frame/tikron_service.h"

int CTIKRONServiceImpl::DealF1_HB(IESBMessage*, CMessageServiceThread*) { return 0; }
int CTIKRONServiceImpl::DealFUTUIssueeConvert(IESBMessage*, IMessageService*, CMessageServiceThread*) {
    return 0;
}
int CTIKRONServiceImpl::DealUDP_HB(void*, int) { return 0; }
int CTIKRONServiceImpl::DealUDP_OffsetSet(void*, int) { return 0; }
int CTIKRONServiceImpl::DealUDP_ZJZH_BZJHB(void*, int) { return 0; }
