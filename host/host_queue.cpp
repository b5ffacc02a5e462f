// Service queue and message factory with release tracking.
#include "host/host_queue.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <sstream>

namespace hostemu {

// --- queue -------------------------------------------------------------------

CHostQueue::~CHostQueue() { Drain(); }

int CHostQueue::QueryInterface(const char*, IKnown** out) {
    if (out != nullptr) *out = nullptr;
    return 0;
}

IESBMessage* CHostQueue::PopMsg(int wait, IMessageService** from, int) {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_queue.empty() && wait != 0) {
        auto ready = [this] { return !m_queue.empty(); };
        if (wait < 0) m_cond.wait(lock, ready);
        else m_cond.wait_for(lock, std::chrono::milliseconds(wait), ready);
    }
    if (m_queue.empty()) {
        if (from != nullptr) *from = nullptr;
        return nullptr;
    }
    Entry e = m_queue.front();
    m_queue.pop_front();
    if (e.msg != nullptr) ++m_dealed;
    if (from != nullptr) *from = e.from;
    return e.msg;
}

int CHostQueue::PushMsg(IESBMessage* msg, IMessageService* from, int) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_queue.push_back(Entry{msg, from});
        if (static_cast<int>(m_queue.size()) > m_max) m_max = static_cast<int>(m_queue.size());
    }
    m_cond.notify_one();
    return 0;
}

int CHostQueue::GetMsgCount() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<int>(m_queue.size());
}

int CHostQueue::GetMaxMsgCount() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_max;
}

int CHostQueue::GetDealedCount() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_dealed;
}

int CHostQueue::Drain() {
    std::deque<Entry> left;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        left.swap(m_queue);
    }
    int n = 0;
    for (const Entry& e : left) {
        if (e.msg == nullptr) continue;
        e.msg->Release();
        ++n;
    }
    return n;
}

// --- factory -----------------------------------------------------------------

CHostMessageFactory::CHostMessageFactory(size_t quarantine) : m_quarantineLimit(quarantine) {}

CHostMessageFactory::~CHostMessageFactory() {
    m_queue.Drain();
    if (m_reportLeaks) {
        std::string report = LeakReport();
        MessageStats s = Stats();
        if (!report.empty() || s.doubleReleases != 0 || s.usesAfterRelease != 0) {
            fprintf(stderr,
                    "host emulator: %llu message(s) never given back, %llu double release(s), "
                    "%llu use(s) after release\n%s",
                    static_cast<unsigned long long>(s.live), static_cast<unsigned long long>(s.doubleReleases),
                    static_cast<unsigned long long>(s.usesAfterRelease), report.c_str());
        }
    }
}

int CHostMessageFactory::QueryInterface(const char* id, IKnown** out) {
    if (out == nullptr) return 0;
    if (id != nullptr && strcmp(id, SID_ESBMESSAGEFACTORY) == 0) {
        *out = this;
        return 1;
    }
    *out = nullptr;
    return 0;
}

IESBQ* CHostMessageFactory::GetESBQ() { return &m_queue; }

IESBMessage* CHostMessageFactory::GetESBMsg() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_failAlways || m_failNext > 0) {
        if (m_failNext > 0) --m_failNext;
        ++m_stats.failedGets;
        return nullptr;
    }
    return NewMessageLocked();
}

CHostMessage* CHostMessageFactory::NewMessage() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return NewMessageLocked();
}

CHostMessage* CHostMessageFactory::NewMessageLocked() {
    CHostMessage* msg;
    if (!m_free.empty()) {
        msg = m_free.back();
        m_free.pop_back();
    } else {
        m_all.emplace_back(new CHostMessage(this));
        msg = m_all.back().get();
    }
    msg->ClearAll();
    msg->m_serial = m_nextSerial++;
    msg->m_released.store(false);
    ++m_stats.created;
    ++m_stats.live;
    return msg;
}

void CHostMessageFactory::OnRelease(CHostMessage* msg) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (msg->m_released.load()) {
        ++m_stats.doubleReleases;
        return;
    }
    msg->m_released.store(true);
    ++m_stats.released;
    --m_stats.live;
    m_quarantine.push_back(msg);
    while (m_quarantine.size() > m_quarantineLimit) {
        CHostMessage* old = m_quarantine.front();
        m_quarantine.pop_front();
        m_free.push_back(old);  // emptied when handed out again
    }
}

void CHostMessageFactory::OnUseAfterRelease() { m_usesAfterRelease.fetch_add(1); }

void CHostMessageFactory::SetGetMsgAlwaysFails(bool on) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_failAlways = on;
}

void CHostMessageFactory::FailNextGetMsg(int n) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_failNext = n > 0 ? n : 0;
}

MessageStats CHostMessageFactory::Stats() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    MessageStats s = m_stats;
    s.usesAfterRelease = m_usesAfterRelease.load();
    return s;
}

std::string CHostMessageFactory::LeakReport() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::ostringstream out;
    for (const auto& m : m_all) {
        if (m->m_released.load()) continue;
        // Reading items of a live message here is a diagnostic race at most;
        // the report is meant for shutdown, when no thread uses them.
        MessageSnapshot s = m->Snapshot();
        out << "  live message #" << m->m_serial << " function " << s.FunctionNo() << " packet type "
            << s.PacketType() << " issue type " << s.IssueType() << "\n";
    }
    return out.str();
}

CHostMessage* BuildMessage(CHostMessageFactory& factory, const MessageSpec& fields) {
    CHostMessage* msg = factory.NewMessage();
    msg->Prepare(fields.packetType, fields.functionNo);
    if (fields.issueType != -1) msg->GetItem(53)->SetInt(fields.issueType, 0);
    if (fields.packetId != -1) msg->GetItem(11)->SetInt(fields.packetId, 0);
    if (fields.errorFlag != 0) msg->GetItem(7)->SetInt(fields.errorFlag, 0);
    if (fields.errorNo != 0) msg->GetItem(19)->SetInt(fields.errorNo, 0);
    if (!fields.errorInfo.empty()) msg->GetItem(20)->SetString(fields.errorInfo.c_str(), 0);
    for (size_t i = 0; i < fields.route.size(); ++i)
        msg->GetItem(9)->SetString(fields.route[i].c_str(), static_cast<int>(i));
    if (!fields.body.empty()) msg->GetItem(8)->SetRawData(fields.body.data(), static_cast<int>(fields.body.size()));
    if (!fields.key.empty()) msg->GetItem(54)->SetRawData(fields.key.data(), static_cast<int>(fields.key.size()));
    return msg;
}

}  // namespace hostemu
