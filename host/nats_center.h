// The message center of tikron-host on a NATS bus. It takes what the
// plug-in sends to the center (publications, subscription requests, its own
// synchronisation requests, answers to requests that came over the bus) and
// brings the bus's traffic into the plug-in (foreign publications, requests
// of other nodes, control requests of tikron-ctl --nats). Subjects and
// payloads: host/nats_subject.h and docs/nats.md.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <unordered_map>

#include <nlohmann/json.hpp>

#include "frame/host_interfaces.h"
#include "host/host_queue.h"
#include "host/nats_bus.h"
#include "host/product_endpoint.h"

namespace product {

struct NatsSettings {
    std::string url;        // empty: the bus is off
    std::string node;       // AppName#AppID of the configuration
    std::string group = "tikron";  // queue group of requests and control requests
    std::string syncPeer;   // node asked for the plug-in's synchronisation requests
    std::string syncGroup;  // else any node of this group (default: group)
    bool json = true;       // also publish the JSON line form
    int requestTimeoutMs = 15000;
};

// The bus's health, for monitoring.
struct NatsHealth {
    bool connected = false;
    uint64_t dropped = 0;             // publications not sent (disconnected beyond the buffer, bus closed)
    uint64_t slowConsumers = 0;       // episodes of a subscription falling behind
    uint64_t slowConsumerDropped = 0; // messages the subscriptions dropped meanwhile
    uint64_t reassemblyErrors = 0;    // chunks refused, partial messages expired
    uint64_t tooLarge = 0;            // messages more than the bus carries
    uint64_t reconnects = 0;
};

// Reads <host nats_url nats_group nats_sync_peer nats_sync_group nats_json
// nats_request_timeout_ms> and the node identity; urlOverride replaces
// nats_url when not empty. False with a reason on a bad configuration.
bool ReadNatsSettings(const std::string& configXml, const std::string& urlOverride, NatsSettings* out,
                      std::string* error);

// One job at a time on its own thread (subscriptions, synchronisation).
class CTaskThread {
public:
    CTaskThread() = default;
    ~CTaskThread() { Stop(); }
    void Start();
    void Stop();
    void Push(std::function<void()> task);
    // For a task: waits ms; false when the thread is stopping.
    bool Sleep(int ms);

private:
    std::mutex m_mutex;
    std::condition_variable m_cond;
    std::deque<std::function<void()>> m_tasks;
    bool m_stop = false;
    std::thread m_thread;
};

class CNatsCenter {
public:
    struct Context {
        hostemu::CHostMessageFactory* factory = nullptr;
        IMessageService* plugin = nullptr;
        IMessageService* center = nullptr;  // sender of what comes from the bus
        IMessageService* client = nullptr;  // sender of requests
        std::function<nlohmann::ordered_json(const nlohmann::ordered_json&)> control;
        std::set<int> subscribeFunctions;
    };
    using Logger = std::function<void(const std::string&)>;

    explicit CNatsCenter(NatsSettings settings, Logger log);
    ~CNatsCenter();  // Stop()

    // Connects and makes sure no other node has this identity; 0 or -1 with
    // Error(). Runs before the plug-in starts.
    int Connect();
    // Takes requests and control requests for this node from now on.
    int Attach(const Context& context);
    void Stop();
    const std::string& Error() const { return m_error; }
    bool Up() const { return m_bus.Connected(); }

    // A message the plug-in sent to the center (on the writer thread). True
    // when the bus took it.
    bool OnPluginMessage(COutgoing& msg);
    nlohmann::ordered_json Stats() const;
    NatsHealth Health() const;
    natsbus::CNatsBus& Bus() { return m_bus; }

private:
    struct Pending {
        int packetId = 0;
        std::string reply;
        std::chrono::steady_clock::time_point deadline;
    };
    void OnPublication(natsbus::BusMessage& m);
    void OnRequest(natsbus::BusMessage& m);
    void OnControl(natsbus::BusMessage& m);
    void Subscribe(int issueType, int packetId);
    // One request of the plug-in to the peer; true when its answer went in.
    bool Synchronise(int function, const std::string& request);
    // After a reconnection: every table asked for again until answered.
    void Resynchronise(uint64_t round);
    void OnStateChange(bool up);
    // Builds a plug-in message from an encoding; null (logged) when refused.
    // A refusal names it "<what><subject>[ from <node>]", made only then.
    IESBMessage* Decode(const std::string& data, const char* what, const std::string& subject,
                        const std::string& node = std::string());
    int PostIntoPlugin(IESBMessage* msg, IMessageService* from);
    void Refuse(const std::string& why);
    std::string SyncSubject() const;
    // The subject token text of a packed key, from a cache of the keys seen
    // (writer thread only; emptied when it holds kKeyCacheLimit keys).
    const std::string& KeyTextOf(const std::string& packed);
    static constexpr size_t kKeyCacheLimit = 200000;

    NatsSettings m_set;
    Logger m_log;
    Context m_ctx;
    std::string m_error;
    natsbus::CNatsBus m_bus;
    std::atomic<bool> m_attached{false};
    std::unordered_map<std::string, std::string> m_keyTexts;
    CTaskThread m_subscriber, m_syncer;

    std::mutex m_mutex;
    std::map<int, int> m_subscribed;                // issue type -> packet id of the request
    std::map<int, std::string> m_syncRequests;      // function -> last request of the plug-in
    std::set<int> m_syncBusy;                       // functions with a request under way
    std::map<int, Pending> m_pending;               // local packet id -> requester
    int m_nextLocalId = 1500000000;
    std::atomic<uint64_t> m_round{0};  // reconnections so far

    std::atomic<uint64_t> m_published{0}, m_jsonPublished{0}, m_intake{0}, m_refused{0};
    std::atomic<uint64_t> m_requests{0}, m_answers{0}, m_syncSent{0}, m_syncAnswered{0}, m_syncFailed{0};
    std::atomic<uint64_t> m_subscriptions{0}, m_controls{0};
};

}  // namespace product
