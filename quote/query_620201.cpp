// 620201 DealTIKRONARG: latest arbitrage quotes of the requested contracts
// ("arbicontract_id" per row), as named columns or raw records.
#include "quote/key_walk.h"
#include "store/hq_tables.h"

int CTIKRONServiceImpl::DealTIKRONARG(IESBMessage* msg, IMessageService* /*from*/, CMessageServiceThread* thread) {
    tikron_quote::QueryCall call;
    if (tikron_quote::BeginQuery(msg, thread, TAG_MESSAGE_BODY, call)) {
        tikron_quote::DeclareAnswer<tagArgHQInfo>(call.packer, call.fieldMode);
        tikron_quote::WalkKeys<tagArgHQInfo>(GetTIKRONARGInfo(), "arbicontract_id", 30, call);
    }
    return tikron_quote::FinishQuery(this, msg, call);
}
