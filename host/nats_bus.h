// One NATS connection of a tikron node or client: reconnects by itself,
// publishes into libnats's buffer (while disconnected into its bounded
// reconnect buffer; beyond it a message is dropped and counted), cuts
// payloads above the server's max_payload into chunks and puts them back
// together on receipt, refuses its own messages, and counts everything it
// could not deliver.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/nats_chunk.h"

struct __natsConnection;
struct __natsSubscription;
struct __natsMsg;

namespace natsbus {

struct BusOptions {
    std::string url;
    std::string node;                     // identity sent in every message's header
    std::string name = "tikron";          // connection name shown by the server
    int reconnectBufBytes = 8 << 20;      // libnats buffer while disconnected; beyond it Send drops
    int ioBufBytes = 1 << 20;             // libnats write buffer: the publisher appends, its flusher writes
    size_t maxChunkBytes = 0;             // 0: the server's max_payload less header room
    int reconnectWaitMs = 200;
    int connectTimeoutMs = 2000;
    int pendingMsgs = 262144;             // per subscription before slow-consumer drops
    int pendingBytes = 64 << 20;
    size_t assemblyBytes = 512u << 20;    // partial chunked messages held at most
    int assemblyAgeMs = 30000;
};

// Results of Send and Request.
enum BusResult {
    BUS_OK = 0,
    BUS_NOT_CONNECTED = -1,
    BUS_TIMEOUT = -2,
    BUS_NO_RESPONDERS = -3,
    BUS_TOO_LARGE = -4,
    BUS_FAILED = -5,
};

struct BusMessage {
    std::string subject, reply, node, data;
    bool noResponders = false;  // the server's answer to a request nobody takes
};

struct BusCounters {
    std::atomic<uint64_t> sent{0}, chunksSent{0}, dropped{0}, sendFailed{0}, tooLarge{0};
    std::atomic<uint64_t> received{0}, chunksReceived{0}, ownSkipped{0}, refusedChunks{0}, expired{0};
    std::atomic<uint64_t> slowConsumer{0}, disconnects{0}, reconnects{0}, asyncErrors{0};
};

class CNatsBus {
public:
    using Handler = std::function<void(BusMessage&)>;
    using Logger = std::function<void(const std::string&)>;
    using StateHandler = std::function<void(bool connected)>;

    CNatsBus();
    ~CNatsBus();  // Close()
    CNatsBus(const CNatsBus&) = delete;
    CNatsBus& operator=(const CNatsBus&) = delete;

    // Set before Connect.
    void SetLogger(Logger log) { m_log = std::move(log); }
    void SetStateHandler(StateHandler h) { m_state = std::move(h); }

    // Connects (one attempt within connectTimeoutMs); later losses reconnect
    // without limit. 0, or BUS_NOT_CONNECTED with the reason.
    int Connect(const BusOptions& options, std::string* error);
    // Sends what libnats holds (up to about a second), unsubscribes, closes.
    void Close();
    bool Connected() const { return m_connected.load(); }

    // Publishes from the calling thread, in chunks when too large. It hands
    // the bytes to libnats, whose own thread writes the socket; only a full
    // socket buffer towards a stuck server holds the caller. Failures are
    // counted and logged (drops at most once a second).
    int Send(const std::string& subject, const std::string& reply, std::string_view data);
    // Send for subjects that name this node (publications, see SubjectNode):
    // a message that fits goes without headers, the subject tells who sent
    // it. That spares the message object libnats makes for headers and
    // frees on a collector thread it wakes for nearly every message.
    int Publish(const std::string& subject, std::string_view data);
    // Subscribes (queue group when `queue` is not empty) and returns once the
    // server has the subscription (flush): BUS_OK; BUS_TIMEOUT when the
    // server did not confirm it in time (the subscription stands and is
    // live once the connection is: do not subscribe again); BUS_FAILED.
    // Messages with this node's own identity are skipped unless acceptOwn.
    int Subscribe(const std::string& subject, const std::string& queue, Handler handler, bool acceptOwn = false);
    // True once the server has everything sent so far (its subscriptions too).
    bool Flush(int timeoutMs);
    // Waits until the subscriptions whose subject starts with `prefix` have
    // handled every message they had received when called; false on time-out.
    // (Each subscription delivers on a thread of its own: an answer can
    // overtake what arrived before it on another subscription.)
    bool CatchUp(const std::string& prefix, int timeoutMs);
    // Sends a request and waits for its one answer (reassembled).
    int Request(const std::string& subject, const std::string& data, int timeoutMs, std::string* answer);
    // Ends every waiting Request with BUS_NOT_CONNECTED and refuses new ones.
    void CancelRequests();

    const BusCounters& Counters() const { return m_counters; }
    // Messages the subscriptions dropped as slow consumers.
    uint64_t SubscriptionDrops() const;
    std::vector<std::pair<std::string, uint64_t>> Stats() const;
    static const char* ResultText(int result);

private:
    struct Sub;
    friend struct BusCallbacks;
    void Deliver(Sub& sub, __natsMsg* msg);
    void OnReply(BusMessage& m);
    size_t ChunkLimit() const;  // largest payload sent as one message
    int Count(int result, const std::string& subject, size_t bytes);  // counts and logs a send
    int PublishOne(const std::string& subject, const std::string& reply, const char* data, size_t len,
                   const std::string& chunk);
    void Log(const std::string& text);
    void NoteDrop(const char* why);

    BusOptions m_opt;
    Logger m_log;
    StateHandler m_state;
    __natsConnection* m_nc = nullptr;
    std::atomic<bool> m_connected{false};
    std::atomic<bool> m_closing{false};
    BusCounters m_counters;
    std::unique_ptr<CChunkAssembler> m_assembler;
    std::atomic<uint64_t> m_nextId{1};

    mutable std::mutex m_subMutex;
    std::condition_variable m_subCond;
    std::vector<std::unique_ptr<Sub>> m_subs;
    int m_openSubs = 0;

    // Requests waiting for their answer, by reply subject.
    std::string m_inbox;
    std::mutex m_reqMutex;
    std::condition_variable m_reqCond;
    struct Waiter {
        bool done = false;
        int result = BUS_OK;
        std::string data;
    };
    std::map<std::string, std::shared_ptr<Waiter>> m_waiters;
    void FailWaitingRequests();
    bool m_cancelled = false;

    std::mutex m_dropLogMutex;
    std::chrono::steady_clock::time_point m_lastDropLog{};
    uint64_t m_dropsLogged = 0;
};

}  // namespace natsbus
