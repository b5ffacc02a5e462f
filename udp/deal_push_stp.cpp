// 'S' STP strategy push of an account: read into its record and published under 620031
// (layout in docs/records.md).
#include "frame/tikron_service.h"
#include "udp/push_handler.h"

int CTIKRONServiceImpl::DealPUSH_STP(void* data, int len) {
    return tikron_udp::DealPush(*this, tikron_udp::StpSpec(), data, len);
}
