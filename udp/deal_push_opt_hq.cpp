// 'Z' option quote push: its record layout is not settled yet, so the datagram is
// counted and dropped with a log line.
#include "frame/tikron_service.h"
#include "udp/push_drop_counter.h"

int CTIKRONServiceImpl::DealPUSH_OPT_HQ(void* data, int len) {
    return tikron_udp::DropPush(*this, tikron_udp::PUSH_OPT_HQ, "CTIKRONServiceImpl::DealPUSH_OPT_HQ", data, len);
}
