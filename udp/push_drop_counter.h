// Earlier name of the push statistics: PushDropped counts the datagrams
// received per kind, like PushReceived. New code uses udp/push_counter.h.
#pragma once

#include "udp/push_counter.h"

namespace tikron_udp {

inline unsigned long PushDropped(PushKind kind) { return PushReceived(kind); }

}  // namespace tikron_udp
