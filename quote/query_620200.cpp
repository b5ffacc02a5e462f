// 620200 DealTIKRON: latest single-leg quotes of the requested contracts
// ("contract_code" per row), as named columns or raw records.
#include "quote/key_walk.h"
#include "store/hq_tables.h"

int CTIKRONServiceImpl::DealTIKRON(IESBMessage* msg, IMessageService* /*from*/, CMessageServiceThread* thread) {
    tikron_quote::QueryCall call;
    if (tikron_quote::BeginQuery(msg, thread, TAG_MESSAGE_BODY, call)) {
        tikron_quote::DeclareAnswer<tagHQInfo>(call.packer, call.fieldMode);
        tikron_quote::WalkKeys<tagHQInfo>(GetTIKRONInfo(), "contract_code", 12, call);
    }
    return tikron_quote::FinishQuery(this, msg, call);
}
