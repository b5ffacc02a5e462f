// 620207 DealFUTUEXCHSTATUS: trading status of the requested exchanges; no
// rows, or a row whose "futu_exch_type" is blank, asks for every exchange.
#include <cstring>
#include <string>
#include <vector>

#include "quote/query_frame.h"
#include "quote/quote_columns.h"
#include "runtime/trim_str.h"
#include "store/hq_tables.h"

int CTIKRONServiceImpl::DealFUTUEXCHSTATUS(IESBMessage* msg, IMessageService* /*from*/,
                                           CMessageServiceThread* thread) {
    tikron_quote::QueryCall call;
    if (tikron_quote::BeginQuery(msg, thread, TAG_MESSAGE_BODY, call)) {
        tikron_quote::DeclareAnswer<tagEXCHSTATUS>(call.packer, call.fieldMode);
        CExchStatusInfo* table = GetExchStatusInfo();
        IF2UnPacker* up = call.unpacker;
        std::vector<std::string> codes;
        bool all = up->GetRowCount() == 0;
        while (!all && up->IsEOF() == 0) {
            const char* value = up->GetStr("futu_exch_type");
            std::string code(value != nullptr ? value : "");
            code = TrimStr(code);
            if (code.empty()) {
                all = true;
                break;
            }
            codes.push_back(code);
            up->Next();
        }
        if (all) {
            codes.clear();
            if (table != nullptr) table->GetAllExch(codes);
        }
        tagEXCHSTATUS rec;
        std::memset(&rec, 0, sizeof rec);
        for (const std::string& code : codes) {
            const std::size_t n = code.size() < 2 ? code.size() : 2;
            std::memcpy(rec.futu_exch_type, code.data(), n);
            std::memset(rec.futu_exch_type + n, 0, sizeof rec.futu_exch_type - n);
            if (table != nullptr && table->GetHQInfo(&rec) == 1)
                tikron_quote::AddAnswerRow(call.packer, call.fieldMode, rec);
        }
        call.result = 0;
    }
    return tikron_quote::FinishQuery(this, msg, call);
}
