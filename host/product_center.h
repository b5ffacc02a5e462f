// The message center's part around the plug-in in tikron-host. Everything
// the plug-in sends towards the center meets a CenterRole; ProductHost only
// writes the lines and serves the control socket. The built-in LocalCenter
// answers registrations and subscriptions itself, sends heartbeats, and
// holds the requests only a peer node can answer (quote queries and
// synchronisation) until an answer is posted through the control socket. A
// center that carries such requests to other nodes is another CenterRole.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/host_message.h"
#include "host/host_queue.h"
#include "host/product_endpoint.h"

namespace product {

class CenterRole {
public:
    // Posts a message into the plug-in from the center's side; the
    // plug-in's PostMsg result.
    using Post = std::function<int(const hostemu::MessageSpec&)>;

    virtual ~CenterRole() = default;
    // Start: the plug-in runs, the role may begin what it does on its own
    // (heartbeats). Stop: the plug-in is stopping, nothing more goes in.
    virtual void Start() = 0;
    virtual void Stop() = 0;
    // A message the plug-in sent towards the center (on the writer thread).
    virtual void FromPlugin(COutgoing& msg) = 0;
    // A message about to be posted into the plug-in from the center's side
    // on behalf of a control client (a peer's answer, a publication).
    virtual void ToPlugin(const hostemu::MessageSpec& msg) = 0;
    // Requests of the plug-in still waiting for an answer from elsewhere.
    virtual std::vector<hostemu::MessageSnapshot> Pending() const = 0;
    // The role's counters for the statistics.
    virtual nlohmann::ordered_json Counters() const = 0;
};

// Functions whose requests a peer node answers: the quote queries and the
// table synchronisation (620200..620207).
bool IsPeerRequest(int function);

// The center's answer to a subscription request: function 620001, packet
// type 1, the request's packet id and issue type, "subscibe_result" 0.
hostemu::MessageSpec SubscriptionAnswer(int packetId, int issueType);

class LocalCenter final : public CenterRole {
public:
    // subscribeFunctions: request functions answered as subscriptions
    // ("subscibe_result" 0); heartbeatMs > 0: a heartbeat 620000 that often.
    LocalCenter(std::set<int> subscribeFunctions, int heartbeatMs, Post post);
    ~LocalCenter() override { Stop(); }

    void Start() override;
    void Stop() override;
    void FromPlugin(COutgoing& msg) override;
    void ToPlugin(const hostemu::MessageSpec& msg) override;
    std::vector<hostemu::MessageSnapshot> Pending() const override;
    nlohmann::ordered_json Counters() const override;

    // An answered request the plug-in sends again within this time was on
    // its way before the answer arrived: it is not pending again. After it,
    // a resend means the plug-in kept the request (the answer was refused).
    static constexpr std::chrono::milliseconds kAnswerGrace{2000};

private:
    void HeartbeatLoop();

    const std::set<int> m_subscribeFunctions;
    const int m_heartbeatMs;
    const Post m_post;

    mutable std::mutex m_mutex;
    std::map<int, hostemu::MessageSnapshot> m_pending;  // by packet id
    std::map<int, std::chrono::steady_clock::time_point> m_answered;
    std::atomic<uint64_t> m_registrations{0}, m_subscriptions{0}, m_heartbeats{0};
    std::atomic<bool> m_running{true};

    std::thread m_heartbeat;
    std::mutex m_hbMutex;
    std::condition_variable m_hbCond;
    bool m_hbStop = false;
};

}  // namespace product
