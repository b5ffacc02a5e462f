// Recording neighbour service.
#include "host/host_neighbour.h"

#include <chrono>
#include <cstring>

namespace hostemu {

CHostNeighbour::CHostNeighbour(const std::string& id) : m_id(id) {}

int CHostNeighbour::QueryInterface(const char* id, IKnown** out) {
    if (out == nullptr) return 0;
    if (id != nullptr && strcmp(id, SID_MESSAGESERVICE) == 0) {
        *out = this;
        return 1;
    }
    *out = nullptr;
    return 0;
}

int CHostNeighbour::RegisterNextService(IMessageService*) { return 0; }
int CHostNeighbour::RegisterPrevService(IMessageService*) { return 0; }

void CHostNeighbour::SetHandler(std::function<void(const MessageSnapshot&)> handler) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_handler = std::move(handler);
}

int CHostNeighbour::PostMsg(IESBMessage* msg, IMessageService*) {
    if (msg == nullptr) return -1;
    Mode mode = m_mode.load();
    if (mode == Refuse) {
        ++m_refused;
        return 1;
    }
    if (mode == CountOnly) {
        msg->Release();
        // Sequentially consistent add, then the waiter check: a waiter
        // registers before testing the count, so either it sees this message
        // or this thread sees it waiting and wakes it under the lock.
        m_count.fetch_add(1);
        if (m_waiters.load() != 0) {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_cond.notify_all();
        }
        return 0;
    }
    // Messages come from the emulator's factory; decode through the public
    // encoding so any IESBMessage implementation works.
    MessageSnapshot snap;
    int len = 0;
    const void* buf = msg->GetBuffer(&len);
    if (buf == nullptr || DecodeMessage(buf, len, &snap) != 0) snap = MessageSnapshot();
    std::function<void(const MessageSnapshot&)> handler;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        handler = m_handler;
    }
    msg->Release();
    if (handler) handler(snap);
    std::lock_guard<std::mutex> lock(m_mutex);
    m_msgs.push_back(std::move(snap));
    ++m_count;
    m_cond.notify_all();
    return 0;
}

std::vector<MessageSnapshot> CHostNeighbour::Messages() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_msgs;
}

std::vector<MessageSnapshot> CHostNeighbour::MessagesOf(int functionNo, int packetType) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<MessageSnapshot> out;
    for (const MessageSnapshot& m : m_msgs)
        if (m.FunctionNo() == functionNo && (packetType < 0 || m.PacketType() == packetType)) out.push_back(m);
    return out;
}

size_t CHostNeighbour::Count() const { return m_count.load(); }

bool CHostNeighbour::WaitForCount(size_t n, int timeoutMs) const {
    m_waiters.fetch_add(1);
    bool ok;
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        ok = m_cond.wait_for(lock, std::chrono::milliseconds(timeoutMs < 0 ? 0 : timeoutMs),
                             [&] { return m_count.load() >= n; });
    }
    m_waiters.fetch_sub(1);
    return ok;
}

bool CHostNeighbour::WaitFor(const std::function<bool(const MessageSnapshot&)>& pred, int timeoutMs,
                             MessageSnapshot* found) const {
    std::unique_lock<std::mutex> lock(m_mutex);
    auto check = [&] {
        for (const MessageSnapshot& m : m_msgs) {
            if (pred(m)) {
                if (found != nullptr) *found = m;
                return true;
            }
        }
        return false;
    };
    return m_cond.wait_for(lock, std::chrono::milliseconds(timeoutMs < 0 ? 0 : timeoutMs), check);
}

void CHostNeighbour::Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_msgs.clear();
    m_count.store(0);
}

}  // namespace hostemu
