// Datagram intake: the receiver callback queues a copy of each datagram; one
// consumer thread takes them in arrival order and dispatches by type.
#include <cstdlib>
#include <deque>
#include <cstring>

#include "frame/fatal_check.h"
#include "frame/tikron_service.h"

int CTIKRONServiceImpl::OnUDPReceive(void* owner, void* data, int len) {
    if (owner == nullptr) return -1;
    return static_cast<CTIKRONServiceImpl*>(owner)->mf_OnUDPReceive(data, len);
}

// Queued block: int length, the datagram bytes, one NUL.
int CTIKRONServiceImpl::mf_OnUDPReceive(void* data, int len) {
    if (data == nullptr || len <= 0) return -1;
    char* block = static_cast<char*>(malloc(static_cast<size_t>(len) + 5));
    if (block == nullptr) return -1;
    memcpy(block, &len, sizeof(int));
    memcpy(block + 4, data, static_cast<size_t>(len));
    block[4 + len] = '\0';
    m_qUDPData.Push(block);
    return 0;
}

void* DoUDPData(void* service) {
    TIKRON_FATAL_CHECK(service != nullptr);
    CTIKRONServiceImpl* svc = static_cast<CTIKRONServiceImpl*>(service);
    // Takes whatever has queued up in one go and handles it in arrival
    // order; a stop request is still seen between two datagrams.
    std::deque<char*> batch;
    while (!svc->m_bStop) {
        if (svc->m_qUDPData.PopAll(batch, 1000) == 0) continue;
        while (!batch.empty() && !svc->m_bStop) {
            char* item = batch.front();
            batch.pop_front();
            int len = 0;
            memcpy(&len, item, sizeof(int));
            {
                std::lock_guard<std::mutex> guard(svc->m_udpWork);
                svc->DoUDPHelper(item + 4, len);
            }
            free(item);
        }
    }
    // Taken but not handled when the stop came: freed, like the queue's rest.
    for (char* item : batch) free(item);
    return nullptr;
}
