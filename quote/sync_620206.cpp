// 620206: exchange-status table synchronisation (request and answer).
#include "quote/sync_frame.h"
#include "store/hq_tables.h"

int CTIKRONServiceImpl::DealExchStatusSyncRequest(IESBMessage* msg, IMessageService* /*from*/,
                                                  CMessageServiceThread* thread) {
    int r = tikron_quote::AnswerSyncRequest<tagEXCHSTATUS>(this, GetExchStatusInfo(), msg, thread);
    if (r != 0) ReleaseESBMsgEx(msg);
    return r;
}

int CTIKRONServiceImpl::DealExchStatusSyncAnswer(IESBMessage* msg, IMessageService* /*from*/,
                                                 CMessageServiceThread* thread) {
    static const tikron_quote::SyncAnswerSpec kSpec = {"CTIKRONServiceImpl::DealExchStatusSyncAnswer",
                                                       "futu_exch_status_raw", false,
                                                       "收到交易所状态的同步应答, 包序号: %u!"};
    return tikron_quote::StoreSyncAnswer<tagEXCHSTATUS>(this, GetExchStatusInfo(), msg, thread, kSpec,
                                                        [](const tagEXCHSTATUS&) {});
}
