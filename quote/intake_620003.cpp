// 620003 DealTIKRONIssue: quote publications from the message center stored
// in the matching table (binary records 16, 22, 18, 24 and texts 33100,
// 33102, 33105). No answer is sent; the result is a status only.
#include <cstring>

#include "frame/service_log.h"
#include "frame/tikron_service.h"
#include "quote/quote_text.h"
#include "store/hq_tables.h"

namespace {

const char* const kFn = "CTIKRONServiceImpl::DealTIKRONIssue";

// Copies a binary record of exactly sizeof(T) bytes into rec; otherwise logs
// the size line for `field` and returns false.
template <typename T>
bool TakeRaw(ILogService* log, const void* raw, int len, const char* field, int issueType, T& rec) {
    std::memset(&rec, 0, sizeof rec);
    if (raw == nullptr || len != static_cast<int>(sizeof(T))) {
        TikronLog(log, kFn, "字段%s结构不附合要求, 大小: %d, 类型: %d!\n", field, raw == nullptr ? 0 : len, issueType);
        return false;
    }
    std::memcpy(&rec, raw, sizeof rec);
    return true;
}

// An extended record with a code of at most 12 characters also goes into the
// single-leg table (its code field holds 12 characters); that result is
// not reported.
void StoreSingleLegCopy(CTIKRONInfo* legacy, tagHQInfo_EX& rec) {
    if (legacy == nullptr || strnlen(rec.contract_code, sizeof rec.contract_code) >= 13) return;
    tagHQInfo single;
    std::memset(&single, 0, sizeof single);
    ConvertHq22To16(&rec, single);
    legacy->AddHQInfo(&single, 1);
}

template <typename Table, typename T>
int Store(Table* table, T& rec) {
    return table != nullptr ? table->AddHQInfo(&rec, 1) : -1;
}

}  // namespace

int CTIKRONServiceImpl::DealTIKRONIssue(IESBMessage* msg, IMessageService* /*from*/, CMessageServiceThread* thread) {
    if (msg == nullptr || thread == nullptr) return -1;
    ILogService* log = m_lpLogService;
    int packetType = msg->GetItem(TAG_PACKET_TYPE)->GetInt(0);
    if (packetType != PACKET_REQUEST) {
        TikronLog(log, kFn, "不能处理的包类型: %d!\n", packetType);
        return -1;
    }
    int issueType = msg->GetItem(TAG_ISSUE_TYPE)->GetInt(0);
    switch (issueType) {
        case 16: case 22: case 33100: case 18: case 33102: case 24: case 33105: case 33300: break;
        default:
            TikronLog(log, kFn, "未知的发布类型: %d!\n", issueType);
            return -5;
    }
    int len = 0;
    const void* body = msg->GetItem(TAG_MESSAGE_BODY)->GetRawData(&len, 0);
    if (body == nullptr || len <= 0) body = msg->GetItem(TAG_KEY_INFO)->GetRawData(&len, 0);
    if (body == nullptr || len <= 0) {
        TikronLog(log, kFn, "get TAG_MESSAGE_BODY fail!");
        return -2;
    }
    thread->GetUnPacker(body, len);
    IF2UnPacker* up = thread->m_pUnPacker;
    int r = up != nullptr ? up->Open(body, len) : -1;
    if (r != 0) {
        TikronLog(log, kFn, "解包错误, 错误代码: %d!\n", r);
        return -3;
    }
    int subType = up->GetInt("type");
    int rawLen = 0;
    const void* raw = up->GetRaw("futu_hq_raw", &rawLen);

    switch (issueType) {
        case 16: {
            if (subType != 1) return -6;
            tagHQInfo rec;
            if (!TakeRaw(log, raw, rawLen, "futu_hq_raw", issueType, rec)) return -4;
            return Store(GetTIKRONInfo(), rec);
        }
        case 22: {
            if (subType != 1) return -6;
            tagHQInfo_EX rec;
            if (!TakeRaw(log, raw, rawLen, "futu_hq_raw", issueType, rec)) return -4;
            int result = Store(GetTIKRONInfo_EX(), rec);
            StoreSingleLegCopy(GetTIKRONInfo(), rec);
            return result;
        }
        case 18: {
            if (subType != 9) return -6;
            tagArgHQInfo rec;
            if (!TakeRaw(log, raw, rawLen, "futu_hq_raw", issueType, rec)) return -4;
            return Store(GetTIKRONARGInfo(), rec);
        }
        case 24: {
            raw = up->GetRaw("futu_exch_status_raw", &rawLen);
            tagEXCHSTATUS rec;
            if (!TakeRaw(log, raw, rawLen, "futu_exch_status_raw", issueType, rec)) return -4;
            return Store(GetExchStatusInfo(), rec);
        }
        case 33100: {
            // The converter's result is not checked: a text that does not
            // convert stores the cleared record, as the publication carried it.
            tagHQInfo_EX rec;
            std::memset(&rec, 0, sizeof rec);
            (void)Convert33100To22(up->GetStr("QH"), &rec);
            int result = Store(GetTIKRONInfo_EX(), rec);
            StoreSingleLegCopy(GetTIKRONInfo(), rec);
            return result;
        }
        case 33102: {
            tagArgHQInfo rec;
            std::memset(&rec, 0, sizeof rec);
            (void)Convert33102To18(up->GetStr("QH"), &rec);
            return Store(GetTIKRONARGInfo(), rec);
        }
        case 33105: {
            tagEXCHSTATUS rec;
            std::memset(&rec, 0, sizeof rec);
            (void)Convert33105To24(up->GetStr("QH"), &rec);
            return Store(GetExchStatusInfo(), rec);
        }
        default:  // 33300: accepted above but not stored here
            TikronLog(log, kFn, "未知的发布类型: %d!\n", issueType);
            return -5;
    }
}
