// 620203: arbitrage table synchronisation (request and answer).
#include "quote/sync_frame.h"
#include "store/hq_tables.h"

int CTIKRONServiceImpl::DealARGHQSyncRequest(IESBMessage* msg, IMessageService* /*from*/,
                                             CMessageServiceThread* thread) {
    int r = tikron_quote::AnswerSyncRequest<tagArgHQInfo>(this, GetTIKRONARGInfo(), msg, thread);
    if (r != 0) ReleaseESBMsgEx(msg);
    return r;
}

int CTIKRONServiceImpl::DealARGHQSyncAnswer(IESBMessage* msg, IMessageService* /*from*/,
                                            CMessageServiceThread* thread) {
    static const tikron_quote::SyncAnswerSpec kSpec = {"CTIKRONServiceImpl::DealARGHQSyncAnswer", "futu_hq_raw",
                                                       true, "收到组合行情的同步应答, 包序号: %u!"};
    return tikron_quote::StoreSyncAnswer<tagArgHQInfo>(this, GetTIKRONARGInfo(), msg, thread, kSpec,
                                                       [](const tagArgHQInfo&) {});
}
