// 'D' exercise status push: its record layout is not settled yet, so the datagram is
// counted and dropped with a log line.
#include "frame/tikron_service.h"
#include "udp/push_drop_counter.h"

int CTIKRONServiceImpl::DealPUSH_EXERCISESTATUS(void* data, int len) {
    return tikron_udp::DropPush(*this, tikron_udp::PUSH_EXERCISE_STATUS, "CTIKRONServiceImpl::DealPUSH_EXERCISESTATUS", data, len);
}
