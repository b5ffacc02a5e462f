// The frame shared by the quote queries and the synchronisation requests:
// check the request, open its body, pick the answer packer, and turn the
// request into its answer (or an error answer) in place.
#pragma once

#include <cstdarg>

#include "frame/tikron_service.h"

namespace tikron_quote {

// State of one request while it is answered.
struct QueryCall {
    int result = 0;
    char errorText[1024] = {0};
    IF2UnPacker* unpacker = nullptr;  // opened request body
    IF2Packer* packer = nullptr;      // null until the answer is started
    bool fieldMode = false;           // "result_type" 1: named columns

    void SetError(int code, const char* fmt, ...) __attribute__((format(printf, 3, 4)));
};

// Steps before the answer: packet type must be 0 (-1), the body of item
// bodyTag must be present (-2) and open on the thread's unpacker (-3). On
// success reads "result_type", takes the thread's packer for that mode
// (field mode: m_pPacker, raw mode: m_pV2Packer), BeginPack, and returns
// true; call.unpacker is left on the first row.
bool BeginQuery(IESBMessage* msg, CMessageServiceThread* thread, int bodyTag, QueryCall& call);

// Sends the answer: nothing when no packer was taken (the result is
// returned as it is); an error answer ("error_no", "error_info") for a
// non-zero result; else the answer as built. The request becomes the answer
// (ChangeToAnswer, item 8 = packed bytes) and goes back through
// TransferMsg, whose result is returned.
int FinishQuery(CTIKRONServiceImpl* svc, IESBMessage* msg, QueryCall& call);

}  // namespace tikron_quote
