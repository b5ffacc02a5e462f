// tikron-host's core: runs the plug-in in the host emulator and plays the
// message center around it. It answers registration and subscription
// requests, sends heartbeats, writes every message the plug-in sends to the
// center as one JSON line, and serves the control requests (query, mgr,
// publish, stats) given as JSON objects.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include <nlohmann/json.hpp>

#include "host/host_emulator.h"
#include "host/nats_center.h"
#include "host/product_endpoint.h"

namespace product {

struct ProductOptions {
    std::string configFile;
    std::string pluginPath;
    std::string publications = "-";  // file, "-" for stdout, "" for none
    std::string logFile;              // overrides <host log_file> when set
    int heartbeatMs = -1;             // < 0: <host heartbeat_ms> of the config
    bool logStderr = false;
    std::string natsUrl;              // overrides <host nats_url>; empty: in-process center
};

class ProductHost {
public:
    explicit ProductHost(ProductOptions options);
    ~ProductHost();  // Stop()
    ProductHost(const ProductHost&) = delete;
    ProductHost& operator=(const ProductHost&) = delete;

    // Loads, initialises and starts the plug-in; 0 or a negative code with Error().
    int Start();
    // Stop, exit and release the plug-in; idempotent.
    void Stop();
    const std::string& Error() const { return m_error; }

    // One control request; always returns an object with "ok".
    nlohmann::ordered_json Handle(const nlohmann::ordered_json& request);

    uint64_t LinesWritten() const { return m_lines.load(); }

private:
    nlohmann::ordered_json Query(const nlohmann::ordered_json& req);
    nlohmann::ordered_json Manage(int functionId);
    nlohmann::ordered_json Publish(const nlohmann::ordered_json& req);
    nlohmann::ordered_json Stats();
    void OnCenterMessage(const hostemu::MessageSnapshot& msg);
    void WriteLine(const hostemu::MessageSnapshot& msg);
    void HeartbeatLoop(int periodMs);
    int StartBus(const std::string& configXml);
    int AttachBus();
    int ReadConfig(std::string* xml);

    ProductOptions m_opt;
    std::string m_error;
    std::unique_ptr<hostemu::HostEmulator> m_host;
    std::unique_ptr<CNatsCenter> m_nats;  // the message center on NATS, when configured
    CEndpoint m_center{"mc"};
    CEndpoint m_client{"client"};
    std::set<int> m_subscribeFunctions{620001};
    int m_heartbeatMs = 0;

    std::mutex m_outMutex;
    FILE* m_out = nullptr;
    bool m_ownOut = false;
    std::atomic<uint64_t> m_lines{0};
    std::atomic<uint64_t> m_registrations{0}, m_subscriptions{0}, m_heartbeats{0};
    std::atomic<uint64_t> m_queries{0}, m_published{0};

    // Query answers by packet id.
    std::mutex m_waitMutex;
    std::condition_variable m_waitCond;
    std::map<int, std::unique_ptr<hostemu::MessageSnapshot>> m_answers;
    std::set<int> m_waiting;
    std::atomic<int> m_nextPacketId{1000000};

    std::mutex m_mgrMutex;
    std::thread m_heartbeat;
    std::mutex m_hbMutex;
    std::condition_variable m_hbCond;
    bool m_hbStop = false;
    bool m_started = false;
    std::atomic<bool> m_running{false};
};

}  // namespace product
