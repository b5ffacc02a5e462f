// 620204: extended single-leg table synchronisation (request and answer).
// Stored extended records with a code of at most 12 characters go into the
// single-leg table as well.
#include <cstring>

#include "quote/quote_text.h"
#include "quote/sync_frame.h"
#include "store/hq_tables.h"

int CTIKRONServiceImpl::DealHQSyncRequest_ex(IESBMessage* msg, IMessageService* /*from*/,
                                             CMessageServiceThread* thread) {
    int r = tikron_quote::AnswerSyncRequest<tagHQInfo_EX>(this, GetTIKRONInfo_EX(), msg, thread);
    if (r != 0) ReleaseESBMsgEx(msg);
    return r;
}

int CTIKRONServiceImpl::DealHQSyncAnswer_ex(IESBMessage* msg, IMessageService* /*from*/,
                                            CMessageServiceThread* thread) {
    static const tikron_quote::SyncAnswerSpec kSpec = {"CTIKRONServiceImpl::DealHQSyncAnswer_ex", "futu_hq_raw",
                                                       true, "收到单腿行情(扩展)的同步应答, 包序号: %u!"};
    CTIKRONInfo* legacy = GetTIKRONInfo();
    return tikron_quote::StoreSyncAnswer<tagHQInfo_EX>(
        this, GetTIKRONInfo_EX(), msg, thread, kSpec, [legacy](const tagHQInfo_EX& rec) {
            if (legacy == nullptr || strnlen(rec.contract_code, sizeof rec.contract_code) >= 13) return;
            tagHQInfo single;
            std::memset(&single, 0, sizeof single);
            tagHQInfo_EX copy = rec;
            ConvertHq22To16(&copy, single);
            legacy->AddHQInfo(&single, 3);
        });
}
