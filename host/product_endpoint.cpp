#include "host/product_endpoint.h"

namespace product {

int CEndpoint::PostMsg(IESBMessage* msg, IMessageService*) {
    if (msg == nullptr) return -1;
    if (m_tap) m_tap(msg);
    hostemu::MessageSnapshot snap;
    int len = 0;
    const void* buf = msg->GetBuffer(&len);
    const bool taken = m_filter && m_filter(msg, buf, len);
    const Handler& next = taken ? m_recorder : m_handler;
    // The filter may have changed the message: decode what it is now.
    if (taken && next) buf = msg->GetBuffer(&len);
    if (next && (buf == nullptr || hostemu::DecodeMessage(buf, len, &snap) != 0)) snap = hostemu::MessageSnapshot();
    msg->Release();
    ++m_count;
    if (next) next(snap);
    return 0;
}

}  // namespace product
