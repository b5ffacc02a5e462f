// CTIKRONServiceImpl::DealMessage: dispatch by function number and packet
// type, and who releases the message afterwards.
#include "frame/tikron_service.h"

namespace {

// The dispatcher releases the message only when the handler kept it.
void ReleaseIfFailed(int r, IESBMessage* msg) {
    if (r != 0) ReleaseESBMsgEx(msg);
}

}  // namespace

int CTIKRONServiceImpl::DealMessage(IESBMessage* msg, IMessageService* from,
                                    CMessageServiceThread* thread) {
    if (msg == nullptr) return -1;
    int e = msg->GetItem(TAG_ERROR_FLAG)->GetInt(0);
    int f = msg->GetItem(TAG_FUNCTION_ID)->GetInt(0);
    if (e != 0) {
        (void)msg->GetItem(TAG_ERROR_NO)->GetInt(0);
        (void)msg->GetItem(TAG_ERROR_INFO)->GetString(0);
        ReleaseESBMsgEx(msg);
        return -1;
    }
    int packetType = msg->GetItem(TAG_PACKET_TYPE)->GetInt(0);

    // Sync functions: a request answers and releases itself, an answer or
    // any other packet type is released here.
    auto sync = [&](int (CTIKRONServiceImpl::*request)(IESBMessage*, IMessageService*, CMessageServiceThread*),
                    int (CTIKRONServiceImpl::*answer)(IESBMessage*, IMessageService*, CMessageServiceThread*)) {
        if (packetType == PACKET_REQUEST) {
            (this->*request)(msg, from, thread);
            return;
        }
        if (packetType == PACKET_ANSWER) (this->*answer)(msg, from, thread);
        ReleaseESBMsgEx(msg);
    };

    switch (f) {
        case 2:
            if (m_lpRegeditThread != nullptr) m_lpRegeditThread->m_iStop = 1;
            ReleaseESBMsgEx(msg);
            break;
        case 620000:
            if (packetType == PACKET_REQUEST) {
                msg->ChangeToAnswer();
                if (TransferMsg(msg, nullptr) != 0) ReleaseESBMsgEx(msg);
            } else {
                ReleaseESBMsgEx(msg);
            }
            RefreshSubscribeTime();
            break;
        case 620001:
            DealSubscibeAnswer(msg, from, thread);
            ReleaseESBMsgEx(msg);
            break;
        case 620003:
            RefreshSubscribeTime();
            DealTIKRONIssue(msg, from, thread);
            DealFUTUIssueeConvert(msg, from, thread);
            ReleaseESBMsgEx(msg);
            break;
        case 620200: ReleaseIfFailed(DealTIKRON(msg, from, thread), msg); break;
        case 620201: ReleaseIfFailed(DealTIKRONARG(msg, from, thread), msg); break;
        case 620202:
            sync(&CTIKRONServiceImpl::DealHQSyncRequest, &CTIKRONServiceImpl::DealHQSyncAnswer);
            break;
        case 620203:
            sync(&CTIKRONServiceImpl::DealARGHQSyncRequest, &CTIKRONServiceImpl::DealARGHQSyncAnswer);
            break;
        case 620204:
            sync(&CTIKRONServiceImpl::DealHQSyncRequest_ex, &CTIKRONServiceImpl::DealHQSyncAnswer_ex);
            break;
        case 620205: ReleaseIfFailed(DealTIKRON_EX(msg, from, thread), msg); break;
        case 620206:
            sync(&CTIKRONServiceImpl::DealExchStatusSyncRequest,
                 &CTIKRONServiceImpl::DealExchStatusSyncAnswer);
            break;
        case 620207: ReleaseIfFailed(DealFUTUEXCHSTATUS(msg, from, thread), msg); break;
        case 620299:
            // With UDP trade reports on, the message center's copies are ignored.
            if (m_iDealUdpHb != 1) DealF1_HB(msg, thread);
            ReleaseESBMsgEx(msg);
            break;
        case 620301:
            DealCommIncomeFunc(msg, thread, 33200);
            ReleaseESBMsgEx(msg);
            break;
        case 620302:
            DealCommIncomeFunc(msg, thread, 33201);
            ReleaseESBMsgEx(msg);
            break;
        case 620303:
            DealCommIncomeFunc(msg, thread, 33202);
            ReleaseESBMsgEx(msg);
            break;
        default: ReleaseESBMsgEx(msg); break;
    }
    return 0;
}
