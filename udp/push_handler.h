// The one road of every push datagram: count it, check its framing, read
// its record and publish it.
#pragma once

#include "frame/tikron_service.h"
#include "udp/push_records.h"

namespace tikron_udp {

// Returns 0 when the record was read (whatever the publication did), -2 for
// a framing error ("包格式不对, 错误代码: %d!"), or the record reader's code
// ("解析记录失败, 错误代码: %d, 字段: %d(%s)!"); both lines are written
// under the kind's function name and nothing is published.
int DealPush(CTIKRONServiceImpl& svc, const PushSpec& desc, const void* data, int len);

}  // namespace tikron_udp
