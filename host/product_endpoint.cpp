#include "host/product_endpoint.h"

#include "host/product_json.h"

namespace product {

void OutgoingRecord::Capture(IESBMessage* msg) {
    // The emulator's messages encode straight into the record.
    if (auto* own = dynamic_cast<hostemu::CHostMessage*>(msg)) {
        own->EncodeTo(&bytes);
    } else {
        int len = 0;
        const void* encoded = msg->GetBuffer(&len);
        bytes.assign(static_cast<const char*>(encoded), encoded != nullptr && len > 0 ? static_cast<size_t>(len) : 0);
    }
    auto value = [msg](int tag) {
        IESBMessageItem* item = msg->GetItem(tag);
        return item != nullptr ? item->GetInt(0) : 0;
    };
    packetType = value(3);
    function = value(5);
    packetId = value(11);
    issueType = value(53);
    IESBMessageItem* item = msg->GetItem(54);
    int keyLen = 0;
    const void* k = item != nullptr ? item->GetRawData(&keyLen, 0) : nullptr;
    key.assign(static_cast<const char*>(k), k != nullptr && keyLen > 0 ? static_cast<size_t>(keyLen) : 0);
}

int COutgoing::Int(int tag) {
    switch (tag) {
        case 3: return m_rec.packetType;
        case 5: return m_rec.function;
        case 11: return m_rec.packetId;
        case 53: return m_rec.issueType;
        default: return Snapshot().Int(tag);
    }
}

std::pair<const void*, int> COutgoing::Raw(int tag) {
    if (tag == 54) return {Key().empty() ? nullptr : Key().data(), static_cast<int>(Key().size())};
    const auto& items = Snapshot().items;
    auto it = items.find(tag);
    if (it == items.end() || it->second.raw.empty()) return {nullptr, 0};
    return {it->second.raw.data(), static_cast<int>(it->second.raw.size())};
}

const hostemu::MessageSnapshot& COutgoing::Snapshot() {
    if (!m_haveSnapshot) {
        if (hostemu::DecodeMessage(m_rec.bytes.data(), static_cast<int>(m_rec.bytes.size()), &m_snapshot) != 0)
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

void COutgoing::SetPacketId(int id) {
    Snapshot();
    hostemu::MessageSnapshot& s = m_snapshot;
    std::vector<hostemu::ItemValue>& values = s.items[11].values;
    if (values.empty()) values.resize(1);
    values[0].kind = hostemu::ItemValue::Int;
    values[0].i = id;
    values[0].s.clear();
    const std::vector<char> bytes = hostemu::EncodeMessage(s);
    m_rec.bytes.assign(bytes.data(), bytes.size());
    m_rec.packetId = id;
    m_haveLine = false;
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
    bool taken = false, wake = false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_running && m_queued < m_capacity) {
            if (m_queued == m_queue.size()) m_queue.emplace_back();
            m_queue[m_queued].Capture(msg);  // short: the writer takes this lock only to swap
            // The writer takes the whole queue per wake-up: only the first
            // message after an empty queue needs to wake it.
            wake = m_queued++ == 0;
            if (m_queued > m_highWater.load(std::memory_order_relaxed))
                m_highWater.store(m_queued, std::memory_order_relaxed);
            taken = true;
        }
    }
    if (wake) m_cond.notify_one();
    if (!taken) ++m_dropped;
    msg->Release();
    return taken;
}

void COutbox::Run() {
    std::vector<OutgoingRecord> batch;
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_cond.wait(lock, [this] { return m_stop || m_queued != 0; });
        if (m_queued == 0) break;
        if (m_lingerUs > 0 && !m_stop)
            m_cond.wait_for(lock, std::chrono::microseconds(m_lingerUs), [this] { return m_stop; });
        batch.swap(m_queue);
        const size_t count = m_queued;
        m_queued = 0;
        lock.unlock();
        bool late = false;
        for (size_t n = 0; n < count; ++n) {
            // Past the drain time of a stop, the rest is dropped unhandled.
            if (!late && (n + 1) % 256 == 0) {
                const int64_t end = m_drainEnd.load();
                late = end != 0 && std::chrono::steady_clock::now().time_since_epoch().count() > end;
            }
            if (late) {
                ++m_dropped;
            } else {
                COutgoing out(batch[n]);
                m_handler(out);
            }
            // Records are reused; one that carried a whole-table answer
            // does not keep megabytes for the quotes after it.
            if (batch[n].bytes.capacity() > kKeepRecordBytes) std::string().swap(batch[n].bytes);
        }
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
