#include "udp/push_handler.h"

#include <cstring>
#include <string>

#include "frame/service_log.h"
#include "udp/push_counter.h"
#include "udp/push_parse.h"
#include "udp/push_publish.h"
#include "udp/udp_record_text.h"

namespace tikron_udp {

namespace {

constexpr int kHeaderLen = 6;

// Room for the largest push record, aligned for its doubles.
union PushRecordStorage {
    tagSTPPUSH stp;
    tagEXERCISESTATUS exercise;
    tagOPTREPORT report;
    tagOPTHQ hq;
};

}  // namespace

int DealPush(CTIKRONServiceImpl& svc, const PushSpec& spec, const void* data, int len) {
    CountPushReceived(spec.kind);

    int check = svc.CheckUDPData(const_cast<void*>(data), len);
    // A datagram shorter than its header has no length field to check.
    if (check >= 0 && len < kHeaderLen) check = -2;
    if (check != static_cast<unsigned char>(spec.typeChar)) {
        TikronLog(svc.m_lpLogService, spec.function, "包格式不对, 错误代码: %d!", check);
        CountPushRefused(spec.kind);
        return -2;
    }

    const std::string text = PrepareRecordText(static_cast<const char*>(data), len);
    PushRecordStorage storage;
    if (spec.recordSize > sizeof storage) return -1;  // a table/record mismatch, caught by the tests
    std::memset(&storage, 0, sizeof storage);
    int failed = -1;
    const int rc = ReadPushRecord(spec, text.c_str(), &storage, spec.recordSize, &failed);
    if (rc != 0) {
        const char* name = (failed >= 0 && failed < spec.fieldCount) ? spec.fields[failed].name : "";
        TikronLog(svc.m_lpLogService, spec.function, "解析记录失败, 错误代码: %d, 字段: %d(%s)!", rc, failed + 1,
                  name);
        CountPushRefused(spec.kind);
        return rc;
    }
    if (PublishPushRecord(svc, spec, &storage, spec.recordSize)) CountPushPublished(spec.kind);
    return 0;
}

}  // namespace tikron_udp
