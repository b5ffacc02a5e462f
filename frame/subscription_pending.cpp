// Subscription bookkeeping without its logic yet: nothing is sent or matched.
#include "frame/message_service.h"
#include "frame/tikron_service.h"

int CMessageServiceImpl::SendRequest(IF2Packer* packer) { return packer == nullptr ? -1 : 0; }

void CMessageServiceImpl::AddToMap() {}

int CMessageServiceImpl::DeleteFromMap(unsigned long) { return -1; }

int CTIKRONServiceImpl::DealSubscibeAnswer(IESBMessage*, IMessageService*, CMessageServiceThread*) {
    return 0;
}
