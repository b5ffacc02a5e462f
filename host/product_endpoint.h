// How the plug-in's messages leave it in tikron-host. The plug-in posts to
// its two neighbours (the center and the client side) on its own threads
// (UDP consumer, workers); a CEndpoint only puts the message into its
// bounded COutbox and returns, so those threads never wait for a file, the
// network or a lock held long. The outbox's writer thread takes the
// messages in order and hands each to the host as a COutgoing. The encoding
// and the items every message is asked for are taken when the message is
// posted, on the posting thread where it is still in the cache, and the
// message goes back to its factory at once: the writer reads one block per
// message on its own core, and the pool stays as small as the plug-in's
// own use. Snapshot and JSON line are made at most once, when asked for.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "frame/host_interfaces.h"
#include "host/host_message.h"

namespace product {

// A message as posted: its encoding and the items read of every message.
struct OutgoingRecord {
    std::string bytes;  // the encoding (host/README.md)
    std::string key;    // raw block of item 54 (empty: none)
    int packetType = 0, function = 0, packetId = 0, issueType = 0;  // items 3, 5, 11, 53
    void Capture(IESBMessage* msg);
};

class COutgoing {
public:
    explicit COutgoing(OutgoingRecord& record) : m_rec(record) {}
    // Value 0 of an item; 0 when absent.
    int Int(int tag);
    // The raw block of an item (null, 0 when absent).
    std::pair<const void*, int> Raw(int tag);
    // Item 54 (the packed key) as posted; empty when absent.
    const std::string& Key() const { return m_rec.key; }
    // The message's encoding (host/README.md).
    std::pair<const char*, size_t> Encoded() const { return {m_rec.bytes.data(), m_rec.bytes.size()}; }
    const hostemu::MessageSnapshot& Snapshot();
    // The JSON line (README, "JSON line format"), without the line feed.
    const std::string& Line();
    // Item 11 (packet id) set to `id`: encoding, snapshot and line follow.
    void SetPacketId(int id);

private:
    OutgoingRecord& m_rec;
    bool m_haveSnapshot = false, m_haveLine = false;
    hostemu::MessageSnapshot m_snapshot;
    std::string m_line;
};

class COutbox {
public:
    // Runs on the writer thread for every message, in the order posted;
    // the message is released after it. BatchDone runs after each batch
    // taken from the queue (where files are flushed).
    using Handler = std::function<void(COutgoing&)>;
    using BatchDone = std::function<void()>;
    using Logger = std::function<void(const std::string&)>;

    explicit COutbox(size_t capacity = kDefaultCapacity) : m_capacity(capacity) {}
    ~COutbox() { Stop(); }

    // lingerUs > 0: once woken by a message, the writer waits that long
    // before it takes the queue, so a busy feed is written in batches and
    // the plug-in's threads wake it once per batch rather than per message
    // (on the bus, where libnats itself gathers for a millisecond).
    void Start(Handler handler, BatchDone batchDone, Logger log, int lingerUs = 0);
    // Handles what is queued (for drainMs at most: the rest is released,
    // counted as dropped and logged), then ends the writer thread. Messages
    // posted afterwards are released and counted as dropped.
    void Stop(int drainMs = kStopDrainMs);
    // Never blocks beyond the queue's lock; the message is released before
    // it returns. False when the queue is full or the writer stopped: the
    // message is counted as dropped; the writer logs the count.
    bool Push(IESBMessage* msg);

    uint64_t Dropped() const { return m_dropped.load(); }
    size_t HighWater() const { return m_highWater.load(); }

    // About a second of a busy feed (three publications per datagram).
    static constexpr size_t kDefaultCapacity = 65536;
    // A record's storage kept for reuse at most (larger: freed after use).
    static constexpr size_t kKeepRecordBytes = 64 * 1024;
    // A stopping host exits promptly even behind a backlog.
    static constexpr int kStopDrainMs = 500;

private:
    void Run();

    const size_t m_capacity;
    int m_lingerUs = 0;
    Handler m_handler;
    BatchDone m_batchDone;
    Logger m_log;
    std::mutex m_mutex;
    std::condition_variable m_cond;
    // Records are kept and reused (their strings keep their storage): the
    // writer swaps m_queue with its batch, the posting side refills the
    // batch it gets back.
    std::vector<OutgoingRecord> m_queue;
    size_t m_queued = 0;
    bool m_running = false, m_stop = false;
    std::atomic<int64_t> m_drainEnd{0};  // steady clock ticks; 0: not stopping
    std::thread m_thread;
    std::atomic<uint64_t> m_dropped{0};
    std::atomic<size_t> m_highWater{0};
    uint64_t m_droppedLogged = 0;  // writer thread only
};

// A neighbour of the plug-in: puts every message into its outbox.
class CEndpoint final : public IMessageService {
public:
    CEndpoint(std::string id, COutbox* outbox) : m_id(std::move(id)), m_outbox(outbox) {}
    uint64_t Count() const { return m_count.load(); }

    int QueryInterface(const char*, IKnown** out) override {
        if (out != nullptr) *out = nullptr;
        return -1;
    }
    int AddRef() override { return 1; }
    int Release() override { return 1; }
    // Takes the message (returns 0) even when the outbox drops it.
    int PostMsg(IESBMessage* msg, IMessageService* from) override;
    int RegisterNextService(IMessageService*) override { return 0; }
    int RegisterPrevService(IMessageService*) override { return 0; }
    int RemoveService() override { return 0; }
    const char* GetServiceID() override { return m_id.c_str(); }
    int SetServiceID(const char*) override { return 0; }
    int GetServiceStatus() override { return 7; }
    int RegisterService() override { return 0; }
    int SendSvrHeartBeat() override { return 0; }

private:
    std::string m_id;
    COutbox* m_outbox;
    std::atomic<uint64_t> m_count{0};
};

}  // namespace product
