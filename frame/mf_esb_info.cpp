// Action 7: message usage (service queue and message counters).
#include "frame/mgmt_actions.h"
#include "frame/mgmt_table.h"

int mf_GetESBInfo(CMessageServiceImpl* service, IF2UnPacker*, IF2Packer* answer) {
    if (service == nullptr || answer == nullptr) return -1;
    static const char* const kColumns[] = {"MsgInQ",    "MaxMsgInQ",     "DealedMsgs",
                                           "getesbnum", "releaseesbnum", "usedesbnum"};
    tikron_mgmt::BeginTable(answer, kColumns);
    IESBQ* queue = service->m_lpMessageQueue;
    answer->AddInt(queue != nullptr ? queue->GetMsgCount() : 0);
    answer->AddInt(queue != nullptr ? queue->GetMaxMsgCount() : 0);
    answer->AddInt(queue != nullptr ? queue->GetDealedCount() : 0);
    const unsigned long got = __atomic_load_n(&g_ulGetESBNum, __ATOMIC_RELAXED);
    const unsigned long released = __atomic_load_n(&g_ulReleaseESBNum, __ATOMIC_RELAXED);
    tikron_mgmt::AddCount(answer, got);
    tikron_mgmt::AddCount(answer, released);
    // Unsigned difference, shown as a 32-bit integer (negative when more
    // messages were handed on than taken, as the console always showed).
    tikron_mgmt::AddCount(answer, got - released);
    answer->EndPack();
    return 0;
}
