#include "host/product_endpoint.h"

namespace product {

int CEndpoint::PostMsg(IESBMessage* msg, IMessageService*) {
    if (msg == nullptr) return -1;
    hostemu::MessageSnapshot snap;
    int len = 0;
    const void* buf = msg->GetBuffer(&len);
    if (buf == nullptr || hostemu::DecodeMessage(buf, len, &snap) != 0) snap = hostemu::MessageSnapshot();
    msg->Release();
    ++m_count;
    if (m_handler) m_handler(snap);
    return 0;
}

}  // namespace product
