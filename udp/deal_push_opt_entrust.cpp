// 'X' option entrust push: its record layout is not settled yet, so the datagram is
// counted and dropped with a log line.
#include "frame/tikron_service.h"
#include "udp/push_drop_counter.h"

int CTIKRONServiceImpl::DealPUSH_OPT_ENTRUST(void* data, int len) {
    return tikron_udp::DropPush(*this, tikron_udp::PUSH_OPT_ENTRUST, "CTIKRONServiceImpl::DealPUSH_OPT_ENTRUST", data, len);
}
