// Statistics of the push records, per kind: datagrams received (counted
// before any check), records published, and datagrams refused (framing or
// record errors). Incremented by the datagram consumer thread only; read
// from any thread.
#pragma once

#include "udp/push_records.h"

namespace tikron_udp {

void CountPushReceived(PushKind kind);
void CountPushPublished(PushKind kind);
void CountPushRefused(PushKind kind);

// Totals of this loaded plug-in; 0 for an invalid kind.
unsigned long PushReceived(PushKind kind);
unsigned long PushPublished(PushKind kind);
unsigned long PushRefused(PushKind kind);

}  // namespace tikron_udp
