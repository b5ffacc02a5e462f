// tikron-host's core: runs the plug-in in the host emulator with a message
// center role around it (host/product_center.h), writes every message the
// plug-in sends as one JSON line, and serves the control requests (send,
// query, publish, pending, mgr, stats) given as JSON objects.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/host_emulator.h"
#include "host/nats_center.h"
#include "host/product_center.h"
#include "host/product_endpoint.h"
#include "host/product_observer.h"

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
    // The bus's health for monitoring; false when the node is not on a bus.
    bool BusHealth(NatsHealth* out) const;

    // For the metrics and the quote board (valid while started).
    const CHostObserver& Observer() const { return m_observer; }
    hostemu::HostEmulator* Emulator() { return m_host.get(); }
    // Messages for the center its writer thread dropped (queue full).
    uint64_t CenterOutboxDropped() const { return m_centerOut.Dropped(); }

    // On the bus the center's writer gathers this long after a wake-up.
    static constexpr int kBusLingerUs = 500;
    // Released messages held back before reuse (use-after-release checks).
    static constexpr size_t kQuarantine = 64;

private:
    // What the plug-in sent while one posted message was under way.
    struct Exchange {
        int rc = 0;                              // the plug-in's PostMsg result
        nlohmann::ordered_json answer;           // null, or the answer's line
        nlohmann::ordered_json messages = nlohmann::ordered_json::array();
    };
    // Posts msgFields into the plug-in (from the client or the center side) and
    // collects every message the plug-in sends until the answer to it
    // (packet type 1, same function and packet id) or waitMs.
    Exchange PostAndCollect(const hostemu::MessageSpec& msgFields, bool fromClient, int waitMs);
    int PostIn(const hostemu::MessageSpec& msgFields, IMessageService* from);

    nlohmann::ordered_json Send(const nlohmann::ordered_json& req, int function, int defaultWaitMs);
    nlohmann::ordered_json Query(const nlohmann::ordered_json& req);
    nlohmann::ordered_json Manage(int functionId);
    nlohmann::ordered_json Pending();
    nlohmann::ordered_json Stats();
    // On the writer thread: every message the plug-in sent, in order.
    void OnPluginMessage(COutgoing& msg, bool toCenter);
    void WriteLines(bool toCenter);
    void Log(const std::string& text);
    int ReadConfig(std::string* xml, std::set<int>* subscribeFunctions, int* heartbeatMs);
    int StartBus(const std::string& configXml);
    int AttachBus(const std::set<int>& subscribeFunctions);

    ProductOptions m_opt;
    std::string m_error;
    std::unique_ptr<hostemu::HostEmulator> m_host;
    std::unique_ptr<CenterRole> m_role;
    std::unique_ptr<CNatsCenter> m_nats;  // the message center on NATS, when configured
    // One writer per side: answers to clients never wait behind a backlog
    // of publications.
    COutbox m_centerOut, m_clientOut;
    CEndpoint m_center{"mc", &m_centerOut};
    CEndpoint m_client{"client", &m_clientOut};
    CHostObserver m_observer;

    // The lines file, written once per batch of either writer.
    std::mutex m_outMutex;
    FILE* m_out = nullptr;
    bool m_ownOut = false;
    struct Lines {
        std::string text;
        uint64_t count = 0;
    } m_lanes[2];  // by side: [1] center, [0] client; each its writer's own
    std::atomic<uint64_t> m_lines{0};
    std::atomic<uint64_t> m_queries{0}, m_published{0}, m_sent{0};

    // Messages collected for the posts under way.
    struct Watch {
        int function = 0, packetId = 0;
        nlohmann::ordered_json lines = nlohmann::ordered_json::array();
        nlohmann::ordered_json answer;
    };
    std::mutex m_watchMutex;
    std::condition_variable m_watchCond;
    std::set<Watch*> m_watches;
    std::atomic<int> m_nextPacketId{1000000};

    std::mutex m_mgrMutex;
    bool m_started = false;
};

}  // namespace product
