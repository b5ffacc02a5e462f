// Option and STP push records ('S', 'D', 'X', 'Y', 'Z') are not processed
// yet: each one is counted here, logged and dropped.
#pragma once

#include "frame/tikron_service.h"

namespace tikron_udp {

enum PushKind { PUSH_STP, PUSH_EXERCISE_STATUS, PUSH_OPT_ENTRUST, PUSH_OPT_CJHB, PUSH_OPT_HQ, PUSH_KINDS };

// Counts the datagram, writes one log line under function and returns 0.
int DropPush(CTIKRONServiceImpl& svc, PushKind kind, const char* function, const void* data, int len);

// Datagrams of a kind dropped so far by this loaded plug-in.
unsigned long PushDropped(PushKind kind);

}  // namespace tikron_udp
