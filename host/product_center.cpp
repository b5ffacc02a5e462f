#include "host/product_center.h"

#include <iterator>

#include "host/host_pack.h"

namespace product {

namespace {

constexpr int kRegisterFunction = 2;
constexpr int kHeartbeatFunction = 620000;
constexpr int kSubscribeAnswerFunction = 620001;

}  // namespace

bool IsPeerRequest(int function) { return function >= 620200 && function <= 620207; }

hostemu::MessageSpec SubscriptionAnswer(int packetId, int issueType) {
    hostemu::MessageSpec answer{kSubscribeAnswerFunction, 1};
    answer.packetId = packetId;
    answer.issueType = issueType;
    auto key = hostemu::EncodePacked(hostemu::MakeBody(33, {"subscibe_result"}, {{0}}));
    answer.key.assign(key.begin(), key.end());
    return answer;
}

LocalCenter::LocalCenter(std::set<int> subscribeFunctions, int heartbeatMs, Post post)
    : m_subscribeFunctions(std::move(subscribeFunctions)), m_heartbeatMs(heartbeatMs), m_post(std::move(post)) {}

void LocalCenter::Start() {
    if (m_heartbeatMs > 0 && !m_heartbeat.joinable()) m_heartbeat = std::thread([this] { HeartbeatLoop(); });
}

void LocalCenter::Stop() {
    m_running = false;  // no more answers into a stopping plug-in
    if (m_heartbeat.joinable()) {
        {
            std::lock_guard<std::mutex> lock(m_hbMutex);
            m_hbStop = true;
        }
        m_hbCond.notify_all();
        m_heartbeat.join();
    }
}

void LocalCenter::HeartbeatLoop() {
    std::unique_lock<std::mutex> lock(m_hbMutex);
    while (!m_hbStop) {
        if (m_hbCond.wait_for(lock, std::chrono::milliseconds(m_heartbeatMs), [this] { return m_hbStop; })) break;
        lock.unlock();
        m_post(hostemu::MessageSpec{kHeartbeatFunction, 0});
        ++m_heartbeats;
        lock.lock();
    }
}

void LocalCenter::FromPlugin(COutgoing& msg) {
    const int function = msg.Int(5), packetType = msg.Int(3);
    if (!m_running || packetType == 1) return;
    if (function == kRegisterFunction) {
        ++m_registrations;
        m_post(hostemu::MessageSpec{kRegisterFunction, 1});
        return;
    }
    if (packetType != 0) return;
    if (IsPeerRequest(function)) {
        // Not a subscription, whatever the configuration calls it: it waits
        // for a peer's answer. The plug-in sends it every second meanwhile.
        const int packetId = msg.Int(11);
        std::lock_guard<std::mutex> lock(m_mutex);
        auto answered = m_answered.find(packetId);
        if (answered != m_answered.end() && std::chrono::steady_clock::now() - answered->second < kAnswerGrace)
            return;
        m_pending[packetId] = msg.Snapshot();
        return;
    }
    if (m_subscribeFunctions.count(function) == 0 || !msg.Snapshot().Has(54)) return;
    ++m_subscriptions;
    m_post(SubscriptionAnswer(msg.Int(11), msg.Int(53)));
}

void LocalCenter::ToPlugin(const hostemu::MessageSpec& msg) {
    if (msg.packetType != 1 || !IsPeerRequest(msg.functionNo)) return;
    const auto now = std::chrono::steady_clock::now();
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_pending.find(msg.packetId);
    if (it != m_pending.end() && it->second.FunctionNo() == msg.functionNo) m_pending.erase(it);
    for (auto a = m_answered.begin(); a != m_answered.end();)
        a = now - a->second >= kAnswerGrace ? m_answered.erase(a) : std::next(a);
    m_answered[msg.packetId] = now;
}

std::vector<hostemu::MessageSnapshot> LocalCenter::Pending() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<hostemu::MessageSnapshot> out;
    for (const auto& p : m_pending) out.push_back(p.second);
    return out;
}

nlohmann::ordered_json LocalCenter::Counters() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return {{"registration_answers", m_registrations.load()},
            {"subscription_answers", m_subscriptions.load()},
            {"heartbeats_sent", m_heartbeats.load()},
            {"peer_requests_pending", m_pending.size()}};
}

}  // namespace product
