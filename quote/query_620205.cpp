// 620205 DealTIKRON_EX: latest extended single-leg quotes of the requested contracts
// ("contract_code" per row), as named columns or raw records.
#include "quote/key_walk.h"
#include "store/hq_tables.h"

int CTIKRONServiceImpl::DealTIKRON_EX(IESBMessage* msg, IMessageService* /*from*/, CMessageServiceThread* thread) {
    tikron_quote::QueryCall call;
    if (tikron_quote::BeginQuery(msg, thread, TAG_MESSAGE_BODY, call)) {
        tikron_quote::DeclareAnswer<tagHQInfo_EX>(call.packer, call.fieldMode);
        tikron_quote::WalkKeys<tagHQInfo_EX>(GetTIKRONInfo_EX(), "contract_code", 29, call);
    }
    return tikron_quote::FinishQuery(this, msg, call);
}
