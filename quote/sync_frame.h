// Whole-table synchronisation between nodes: the request side answers with
// every record of a table packed under one lock; the answer side stores the
// peer's raw records and clears the pending request.
#pragma once

#include <cstring>

#include "frame/service_log.h"
#include "quote/query_frame.h"
#include "quote/quote_columns.h"

namespace tikron_quote {

// Answers a synchronisation request (body in item 54) with the whole table,
// walked in key order while the table's map lock is held. A null table
// answers with the columns and no rows.
template <typename T, typename Table>
int AnswerSyncRequest(CTIKRONServiceImpl* svc, Table* table, IESBMessage* msg, CMessageServiceThread* thread) {
    QueryCall call;
    if (BeginQuery(msg, thread, TAG_KEY_INFO, call)) {
        DeclareAnswer<T>(call.packer, call.fieldMode);
        if (table != nullptr) {
            table->LockMap();
            for (auto& entry : table->GetHQMap()) AddAnswerRow(call.packer, call.fieldMode, entry.second->szHQInfo);
            table->UnlockMap();
        }
        call.result = 0;
    }
    return FinishQuery(svc, msg, call);
}

// What an answer handler does with each received record besides storing it.
struct SyncAnswerSpec {
    const char* function;    // log function name
    const char* rawField;    // "futu_hq_raw" or "futu_exch_status_raw"
    bool checkSize;          // refuse rows whose length differs from the record
    const char* receiptFmt;  // receipt line, filled with the serial
};

// Stores every row of a peer's answer (body in item 8) with AddHQInfo(rec, 3)
// and removes its serial (item 11) from the pending requests. `extra` is
// called with each stored record. 0, -1 no body, -2 no unpacker, the Open
// result, -3 a row of the wrong size or without its raw column (a named-
// column answer): rows before it stay stored, the serial stays pending.
template <typename T, typename Table, typename Extra>
int StoreSyncAnswer(CTIKRONServiceImpl* svc, Table* table, IESBMessage* msg, CMessageServiceThread* thread,
                    const SyncAnswerSpec& desc, Extra extra) {
    if (msg == nullptr || thread == nullptr) return -1;
    int len = 0;
    const void* body = msg->GetItem(TAG_MESSAGE_BODY)->GetRawData(&len, 0);
    if (body == nullptr || len < 1) return -1;
    if (thread->GetUnPacker(body, len) != 0 || thread->m_pUnPacker == nullptr) return -2;
    IF2UnPacker* up = thread->m_pUnPacker;
    int r = up->Open(body, len);
    if (r != 0) {
        TikronLog(svc->m_lpLogService, desc.function, "解包失败, 返回: %d!", r);
        return r;
    }
    T rec;
    std::memset(&rec, 0, sizeof rec);
    while (up->IsEOF() == 0) {
        int rawLen = 0;
        const void* raw = up->GetRaw(desc.rawField, &rawLen);
        if (raw == nullptr || rawLen < 0) rawLen = 0;
        // A row without its raw column (named columns) is refused like a
        // row of the wrong size: storing the unchanged buffer would file a
        // stale or zeroed record and clear the request as if it had worked.
        if (rawLen == 0 || (desc.checkSize && rawLen != static_cast<int>(sizeof(T)))) {
            TikronLog(svc->m_lpLogService, desc.function,
                      "取出的数据与数据结果不一样, raw 大小: %d, 结构大小: %d!", rawLen, static_cast<int>(sizeof(T)));
            return -3;
        }
        // At most the record size is copied; a shorter row overwrites only
        // its own length of the buffer, as an unchecked copy would.
        std::size_t n = static_cast<std::size_t>(rawLen) < sizeof rec ? static_cast<std::size_t>(rawLen) : sizeof rec;
        std::memcpy(&rec, raw, n);
        if (table != nullptr) table->AddHQInfo(&rec, 3);
        extra(rec);
        up->Next();
    }
    unsigned int serial = static_cast<unsigned int>(msg->GetItem(TAG_PACKET_ID)->GetInt(0));
    svc->DeleteFromMap(serial);
    TikronLog(svc->m_lpLogService, desc.function, desc.receiptFmt, serial);
    return 0;
}

}  // namespace tikron_quote
