// Datagram intake: the receiver callback queues a copy of each datagram; one
// consumer thread takes them in arrival order and dispatches by type.
#include <pthread.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <vector>

#include "frame/fatal_check.h"
#include "frame/service_log.h"
#include "frame/tikron_service.h"

int CTIKRONServiceImpl::OnUDPReceive(void* owner, void* data, int len) {
    if (owner == nullptr) return -1;
    return static_cast<CTIKRONServiceImpl*>(owner)->mf_OnUDPReceive(data, len);
}

namespace {

// Blocks of the common size go back from the consumer to the receiver instead
// of being freed on one thread and allocated on the other for every datagram.
// Every block is still a malloc block, so code freeing a queued block with
// free() (the queue's rest at shutdown) stays right. One pool for all services
// of the process: plain data with constant initialisation and no destructor,
// so a thread still running at exit finds it intact; the reaper below frees
// what it holds when the library is unloaded or the process ends.
struct BlockPool {
    // Holds the 4-byte length, a datagram of up to 507 bytes and the NUL:
    // single-leg quote datagrams; longer ones get a block of their own size.
    static constexpr size_t kBlockBytes = 512;
    static constexpr size_t kKeep = 2048;  // blocks held at most (1 MiB)

    pthread_mutex_t mutex;
    size_t count;
    char* blocks[kKeep];
};
BlockPool g_pool = {PTHREAD_MUTEX_INITIALIZER, 0, {}};

struct BlockPoolReaper {
    ~BlockPoolReaper() {
        pthread_mutex_lock(&g_pool.mutex);
        for (size_t i = 0; i < g_pool.count; ++i) free(g_pool.blocks[i]);
        g_pool.count = 0;
        pthread_mutex_unlock(&g_pool.mutex);
    }
};
BlockPoolReaper g_poolReaper;

bool FitsPool(size_t bytes) { return bytes <= BlockPool::kBlockBytes; }

// Queued block of a datagram of len bytes: the length, the bytes, a NUL and
// the receipt time (8 bytes, 0 when not timed).
constexpr size_t kStampBytes = sizeof(uint64_t);
size_t BlockBytes(int len) { return static_cast<size_t>(len) + 5 + kStampBytes; }

// A block of at least `bytes` bytes, or null when memory is out.
char* TakeBlock(size_t bytes) {
    if (!FitsPool(bytes)) return static_cast<char*>(malloc(bytes));
    char* block = nullptr;
    pthread_mutex_lock(&g_pool.mutex);
    if (g_pool.count != 0) block = g_pool.blocks[--g_pool.count];
    pthread_mutex_unlock(&g_pool.mutex);
    return block != nullptr ? block : static_cast<char*>(malloc(BlockPool::kBlockBytes));
}

// Takes back blocks of kBlockBytes (one lock for the lot); what exceeds
// kKeep is freed.
void GiveBackBlocks(std::vector<char*>& blocks) {
    if (blocks.empty()) return;
    size_t kept = 0;
    pthread_mutex_lock(&g_pool.mutex);
    while (kept < blocks.size() && g_pool.count < BlockPool::kKeep) g_pool.blocks[g_pool.count++] = blocks[kept++];
    pthread_mutex_unlock(&g_pool.mutex);
    for (size_t i = kept; i < blocks.size(); ++i) free(blocks[i]);
    blocks.clear();
}

// Frees a handled block or collects it for the recycler (given back in
// groups, one lock per group).
void Retire(char* item, int len, std::vector<char*>& spare) {
    if (!FitsPool(BlockBytes(len))) {
        free(item);
        return;
    }
    spare.push_back(item);
    if (spare.size() >= 32) GiveBackBlocks(spare);
}

}  // namespace

// Queued block: int length, the datagram bytes, one NUL, the receipt time.
int CTIKRONServiceImpl::mf_OnUDPReceive(void* data, int len) {
    if (data == nullptr || len <= 0) return -1;
    // Rejects lengths whose block size would overflow int arithmetic.
    if (len > 0x7fffffff - 5 - static_cast<int>(kStampBytes)) return -1;
    const uint64_t stamp = m_szIngestStats.Timed() ? CIngestStats::NowNs() : 0;
    char* block = TakeBlock(BlockBytes(len));
    if (block == nullptr) {
        TikronLog(m_lpLogService, "CTIKRONServiceImpl::mf_OnUDPReceive", "分配内存失败, 丢弃数据, 长度: %d!", len);
        return -1;
    }
    memcpy(block, &len, sizeof(int));
    memcpy(block + 4, data, static_cast<size_t>(len));
    block[4 + len] = '\0';
    memcpy(block + 5 + len, &stamp, kStampBytes);
    m_szIngestStats.OnQueued();
    m_qUDPData.Push(block);
    return 0;
}

void* DoUDPData(void* service) {
    TIKRON_FATAL_CHECK(service != nullptr);
    CTIKRONServiceImpl* svc = static_cast<CTIKRONServiceImpl*>(service);
    // Takes whatever has queued up in one go and handles it in arrival
    // order; a stop request is still seen between two datagrams.
    std::deque<char*> batch;
    std::vector<char*> spare;
    spare.reserve(32);
    while (!svc->m_bStop) {
        if (svc->m_qUDPData.PopAll(batch, 1000, svc->m_iUDPPollUs) == 0) continue;
        while (!batch.empty() && !svc->m_bStop) {
            char* item = batch.front();
            batch.pop_front();
            int len = 0;
            memcpy(&len, item, sizeof(int));
            uint64_t stamp = 0;
            memcpy(&stamp, item + 5 + len, kStampBytes);
            // A handler that took a message published (or answered) something.
            const unsigned long taken = stamp != 0 ? __atomic_load_n(&g_ulGetESBNum, __ATOMIC_RELAXED) : 0;
            {
                std::lock_guard<std::mutex> guard(svc->m_udpWork);
                svc->DoUDPHelper(item + 4, len);
            }
            svc->m_szIngestStats.OnHandled(static_cast<unsigned char>(item[4]), stamp,
                                           stamp != 0 && __atomic_load_n(&g_ulGetESBNum, __ATOMIC_RELAXED) != taken);
            Retire(item, len, spare);
        }
        // Blocks held back while idle would starve the receiver.
        GiveBackBlocks(spare);
    }
    GiveBackBlocks(spare);
    // Taken but not handled when the stop came: freed, like the queue's rest.
    for (char* item : batch) free(item);
    return nullptr;
}
