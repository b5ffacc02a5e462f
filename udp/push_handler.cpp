#include "udp/push_handler.h"

#include <cstring>
#include <string>

#include "frame/service_log.h"
#include "udp/push_counter.h"
#include "udp/push_parse.h"
#include "udp/push_publish.h"
#include "wire/udp_record_text.h"

namespace tikron_udp {

namespace {

// Room for the largest push record, aligned for its doubles.
union PushRecordStorage {
    tagSTPPUSH stp;
    tagEXERCISESTATUS exercise;
    tagOPTREPORT report;
    tagOPTHQ hq;
};

}  // namespace

int DealPush(CTIKRONServiceImpl& svc, const PushSpec& desc, const void* data, int len) {
    CountPushReceived(desc.kind);

    const int check = svc.CheckUDPData(const_cast<void*>(data), len);
    if (check != static_cast<unsigned char>(desc.typeChar)) {
        TikronLog(svc.m_lpLogService, desc.function, "包格式不对, 错误代码: %d!", check);
        CountPushRefused(desc.kind);
        return -2;
    }

    const std::string text = PrepareRecordText(data, len);
    PushRecordStorage storage;
    if (desc.recordSize > sizeof storage) return -1;  // a table/record mismatch, caught by the tests
    std::memset(&storage, 0, sizeof storage);
    int failed = -1;
    const int rc = ReadPushRecord(desc, text.c_str(), &storage, desc.recordSize, &failed);
    if (rc != 0) {
        const char* name = (failed >= 0 && failed < desc.fieldCount) ? desc.fields[failed].name : "";
        TikronLog(svc.m_lpLogService, desc.function, "解析记录失败, 错误代码: %d, 字段: %d(%s)!", rc, failed + 1,
                  name);
        CountPushRefused(desc.kind);
        return rc;
    }
    if (PublishPushRecord(svc, desc, &storage, desc.recordSize)) CountPushPublished(desc.kind);
    return 0;
}

}  // namespace tikron_udp
