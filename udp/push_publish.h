// Publication of a push record: one message under 620031 with the record's
// issue type, its subscription key in item 54 and the record as named
// columns in item 8 (one column per field, declared 'S' with width 255,
// wider texts with their capacity-1; values added as text, int, double or
// character), packed with the service's packer.
#pragma once

#include <cstddef>

#include "frame/tikron_service.h"
#include "udp/push_records.h"

namespace tikron_udp {

constexpr int kFuncPushPublish = 620031;

// Declared width of a field's column.
int PushColumnWidth(const PushField& f);

// Index of the field named name in the kind's field table, or -1.
int FindPushField(const PushSpec& desc, const char* name);

// rec: a record of desc.recordSize bytes read by ReadPushRecord. Returns
// true when a message was handed on (or released after a refusal by the
// chain), false when the host had no message or no packer was available.
bool PublishPushRecord(CTIKRONServiceImpl& svc, const PushSpec& desc, const void* rec, std::size_t recSize);

}  // namespace tikron_udp
