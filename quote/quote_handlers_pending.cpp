// Quote query, synchronisation and publication handlers that do not
// process their messages yet. Queries and sync requests return non-zero so
// the dispatcher releases the message; sync requests release it themselves.
#include "frame/tikron_service.h"

int CTIKRONServiceImpl::DealTIKRON(IESBMessage*, IMessageService*, CMessageServiceThread*) { return -1; }
int CTIKRONServiceImpl::DealTIKRONARG(IESBMessage*, IMessageService*, CMessageServiceThread*) { return -1; }
int CTIKRONServiceImpl::DealTIKRON_EX(IESBMessage*, IMessageService*, CMessageServiceThread*) { return -1; }
int CTIKRONServiceImpl::DealFUTUEXCHSTATUS(IESBMessage*, IMessageService*, CMessageServiceThread*) {
    return -1;
}

int CTIKRONServiceImpl::DealHQSyncRequest(IESBMessage* msg, IMessageService*, CMessageServiceThread*) {
    ReleaseESBMsgEx(msg);
    return 0;
}
int CTIKRONServiceImpl::DealHQSyncAnswer(IESBMessage*, IMessageService*, CMessageServiceThread*) { return 0; }
int CTIKRONServiceImpl::DealARGHQSyncRequest(IESBMessage* msg, IMessageService*, CMessageServiceThread*) {
    ReleaseESBMsgEx(msg);
    return 0;
}
int CTIKRONServiceImpl::DealARGHQSyncAnswer(IESBMessage*, IMessageService*, CMessageServiceThread*) { return 0; }
int CTIKRONServiceImpl::DealHQSyncRequest_ex(IESBMessage* msg, IMessageService*, CMessageServiceThread*) {
    ReleaseESBMsgEx(msg);
    return 0;
}
int CTIKRONServiceImpl::DealHQSyncAnswer_ex(IESBMessage*, IMessageService*, CMessageServiceThread*) { return 0; }
int CTIKRONServiceImpl::DealExchStatusSyncRequest(IESBMessage* msg, IMessageService*, CMessageServiceThread*) {
    ReleaseESBMsgEx(msg);
    return 0;
}
int CTIKRONServiceImpl::DealExchStatusSyncAnswer(IESBMessage*, IMessageService*, CMessageServiceThread*) {
    return 0;
}

int CTIKRONServiceImpl::DealTIKRONIssue(IESBMessage*, IMessageService*, CMessageServiceThread*) { return 0; }
