// 'X' option entrust push: read into its record and published under 620031
// (layout in docs/records.md).
#include "frame/tikron_service.h"
#include "udp/push_handler.h"

int CTIKRONServiceImpl::DealPUSH_OPT_ENTRUST(void* data, int len) {
    return tikron_udp::DealPush(*this, tikron_udp::OptEntrustSpec(), data, len);
}
