// Common request checks and answer sending of the quote queries and the
// synchronisation requests.
#include "quote/query_frame.h"

#include <cstdio>

namespace tikron_quote {

void QueryCall::SetError(int code, const char* fmt, ...) {
    result = code;
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(errorText, sizeof errorText, fmt, ap);
    va_end(ap);
}

bool BeginQuery(IESBMessage* msg, CMessageServiceThread* thread, int bodyTag, QueryCall& call) {
    if (msg == nullptr || thread == nullptr) {
        call.result = -1;
        return false;
    }
    int packetType = msg->GetItem(TAG_PACKET_TYPE)->GetInt(0);
    if (packetType != PACKET_REQUEST) {
        call.SetError(-1, "不能处理的包类型: %d!\n", packetType);
        return false;
    }
    int len = 0;
    const void* body = msg->GetItem(bodyTag)->GetRawData(&len, 0);
    if (body == nullptr || len <= 0) {
        call.SetError(-2, "取TAG_MESSAGE_BODY失败!\n");
        return false;
    }
    thread->GetUnPacker(body, len);
    IF2UnPacker* up = thread->m_pUnPacker;
    if (up == nullptr) {
        call.SetError(-3, "解包错误, 错误代码: %d!\n", -1);
        return false;
    }
    int r = up->Open(body, len);
    if (r != 0) {
        call.SetError(-3, "解包错误, 错误代码: %d!\n", r);
        return false;
    }
    call.unpacker = up;
    call.fieldMode = up->GetInt("result_type") == 1;
    IF2Packer* packer = call.fieldMode ? thread->m_pPacker : thread->m_pV2Packer;
    if (packer == nullptr) {
        // No packer service was given to the thread: nothing to answer with.
        call.result = -3;
        return false;
    }
    packer->BeginPack();
    call.packer = packer;
    return true;
}

int FinishQuery(CTIKRONServiceImpl* svc, IESBMessage* msg, QueryCall& call) {
    IF2Packer* p = call.packer;
    if (p == nullptr) return call.result;
    if (call.result != 0) {
        p->BeginPack();
        p->AddField("error_no", 'S', 255, 4);
        p->AddField("error_info", 'S', 255, 4);
        p->AddInt(call.result);
        p->AddStr(call.errorText);
    }
    p->EndPack();
    msg->ChangeToAnswer();
    msg->GetItem(TAG_MESSAGE_BODY)->SetRawData(p->GetPackBuf(), p->GetPackLen());
    return svc->TransferMsg(msg, nullptr);
}

}  // namespace tikron_quote
