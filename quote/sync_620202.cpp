// 620202: single-leg table synchronisation (request and answer).
#include "quote/sync_frame.h"
#include "store/hq_tables.h"

int CTIKRONServiceImpl::DealHQSyncRequest(IESBMessage* msg, IMessageService* /*from*/,
                                          CMessageServiceThread* thread) {
    int r = tikron_quote::AnswerSyncRequest<tagHQInfo>(this, GetTIKRONInfo(), msg, thread);
    if (r != 0) ReleaseESBMsgEx(msg);
    return r;
}

int CTIKRONServiceImpl::DealHQSyncAnswer(IESBMessage* msg, IMessageService* /*from*/,
                                         CMessageServiceThread* thread) {
    static const tikron_quote::SyncAnswerSpec kSpec = {"CTIKRONServiceImpl::DealHQSyncAnswer", "futu_hq_raw", false,
                                                       "收到单腿行情的同步应答, 包序号: %u!"};
    return tikron_quote::StoreSyncAnswer<tagHQInfo>(this, GetTIKRONInfo(), msg, thread, kSpec,
                                                    [](const tagHQInfo&) {});
}
