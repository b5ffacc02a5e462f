#include "host/product_endpoint.h"

#include "host/product_json.h"

namespace product {

int COutgoing::Int(int tag) const {
    IESBMessageItem* item = m_msg->GetItem(tag);
    return item != nullptr ? item->GetInt(0) : 0;
}

std::pair<const void*, int> COutgoing::Raw(int tag) const {
    IESBMessageItem* item = m_msg->GetItem(tag);
    int len = 0;
    const void* data = item != nullptr ? item->GetRawData(&len, 0) : nullptr;
    return {data, data != nullptr ? len : 0};
}

std::pair<const char*, size_t> COutgoing::Encoded() {
    if (m_encoded == nullptr) {
        int len = 0;
        m_encoded = static_cast<const char*>(m_msg->GetBuffer(&len));
        m_encodedLen = m_encoded != nullptr && len > 0 ? static_cast<size_t>(len) : 0;
    }
    return {m_encoded, m_encodedLen};
}

const hostemu::MessageSnapshot& COutgoing::Snapshot() {
    if (!m_haveSnapshot) {
        const auto e = Encoded();
        if (e.first == nullptr || hostemu::DecodeMessage(e.first, static_cast<int>(e.second), &m_snapshot) != 0)
            m_snapshot = hostemu::MessageSnapshot();
        m_haveSnapshot = true;
    }
    return m_snapshot;
}

const std::string& COutgoing::Line() {
    if (!m_haveLine) {
        m_line = MessageLine(Snapshot());
        m_haveLine = true;
    }
    return m_line;
}

void COutgoing::Changed() {
    m_encoded = nullptr;
    m_encodedLen = 0;
    m_haveSnapshot = m_haveLine = false;
}

void COutbox::Start(Handler handler, BatchDone batchDone, Logger log, int lingerUs) {
    m_lingerUs = lingerUs;
    m_handler = std::move(handler);
    m_batchDone = std::move(batchDone);
    m_log = std::move(log);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_running = true;
        m_stop = false;
    }
    m_thread = std::thread([this] { Run(); });
}

void COutbox::Stop(int drainMs) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_stop)
            m_drainEnd = (std::chrono::steady_clock::now() + std::chrono::milliseconds(drainMs)).time_since_epoch().count();
        m_stop = true;
    }
    m_cond.notify_all();
    if (m_thread.joinable()) m_thread.join();
}

bool COutbox::Push(IESBMessage* msg) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_running && m_queue.size() < m_capacity) {
            // The writer takes the whole queue per wake-up: only the first
            // message after an empty queue needs to wake it.
            const bool wake = m_queue.empty();
            m_queue.push_back(msg);
            if (m_queue.size() > m_highWater.load(std::memory_order_relaxed))
                m_highWater.store(m_queue.size(), std::memory_order_relaxed);
            if (wake) m_cond.notify_one();
            return true;
        }
    }
    ++m_dropped;
    msg->Release();
    return false;
}

void COutbox::Run() {
    std::deque<IESBMessage*> batch;
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_cond.wait(lock, [this] { return m_stop || !m_queue.empty(); });
        if (m_queue.empty()) break;
        if (m_lingerUs > 0 && !m_stop)
            m_cond.wait_for(lock, std::chrono::microseconds(m_lingerUs), [this] { return m_stop; });
        batch.swap(m_queue);
        lock.unlock();
        bool late = false;
        size_t n = 0;
        for (IESBMessage* m : batch) {
            // Past the drain time of a stop, the rest is given back unhandled.
            if (!late && ++n % 256 == 0) {
                const int64_t end = m_drainEnd.load();
                late = end != 0 && std::chrono::steady_clock::now().time_since_epoch().count() > end;
            }
            if (late) {
                ++m_dropped;
            } else {
                COutgoing out(m);
                m_handler(out);
            }
            m->Release();
        }
        batch.clear();
        if (m_batchDone) m_batchDone();
        const uint64_t dropped = m_dropped.load();
        if (dropped != m_droppedLogged && m_log) {
            m_log("the writer fell behind: " + std::to_string(dropped - m_droppedLogged) +
                  " messages of the plug-in dropped (queue of " + std::to_string(m_capacity) + " full), " +
                  std::to_string(dropped) + " in all");
            m_droppedLogged = dropped;
        }
        lock.lock();
    }
    m_running = false;
}

int CEndpoint::PostMsg(IESBMessage* msg, IMessageService*) {
    if (msg == nullptr) return -1;
    ++m_count;
    m_outbox->Push(msg);
    return 0;
}

}  // namespace product
