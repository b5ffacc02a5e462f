#include "host/nats_bus.h"

#include <nats/nats.h>

#include <thread>

#include "host/nats_subject.h"

namespace natsbus {

namespace {

// Room left under max_payload for the headers of a chunk.
constexpr size_t kHeaderRoom = 512;

std::mutex g_libMutex;
int g_libUsers = 0;

}  // namespace

struct CNatsBus::Sub {
    CNatsBus* bus = nullptr;
    natsSubscription* sub = nullptr;
    Handler handler;
    std::string subject;
    bool acceptOwn = false;
    std::atomic<uint64_t> handled{0};  // messages through the callback
};

struct BusCallbacks {
    static void OnMessage(natsConnection*, natsSubscription*, natsMsg* msg, void* closure) {
        auto* s = static_cast<CNatsBus::Sub*>(closure);
        s->bus->Deliver(*s, msg);
        natsMsg_Destroy(msg);
        ++s->handled;
    }
    static void OnComplete(void* closure) {
        auto* s = static_cast<CNatsBus::Sub*>(closure);
        CNatsBus* bus = s->bus;
        std::lock_guard<std::mutex> lock(bus->m_subMutex);
        --bus->m_openSubs;
        bus->m_subCond.notify_all();
    }
    static void OnDisconnected(natsConnection*, void* closure) {
        auto* bus = static_cast<CNatsBus*>(closure);
        if (!bus->m_connected.exchange(false)) return;
        ++bus->m_counters.disconnects;
        bus->Log("disconnected from the NATS server, reconnecting");
        bus->FailWaitingRequests();
        if (bus->m_state) bus->m_state(false);
    }
    static void OnReconnected(natsConnection* nc, void* closure) {
        auto* bus = static_cast<CNatsBus*>(closure);
        ++bus->m_counters.reconnects;
        char url[256] = "";
        natsConnection_GetConnectedUrl(nc, url, sizeof url);
        bus->Log(std::string("reconnected to ") + url);
        bus->m_connected = true;
        if (bus->m_state) bus->m_state(true);
    }
    static void OnError(natsConnection*, natsSubscription*, natsStatus err, void* closure) {
        auto* bus = static_cast<CNatsBus*>(closure);
        if (err == NATS_SLOW_CONSUMER) {
            // libnats reports a slow subscription once per episode; the
            // messages it dropped are counted by the subscription itself.
            ++bus->m_counters.slowConsumer;
            bus->Log("slow consumer: a subscription fell behind and drops messages");
        } else {
            ++bus->m_counters.asyncErrors;
            bus->Log(std::string("asynchronous error: ") + natsStatus_GetText(err));
        }
    }
};

CNatsBus::CNatsBus() = default;

CNatsBus::~CNatsBus() { Close(); }

void CNatsBus::Log(const std::string& text) {
    if (m_log) m_log(text);
}

const char* CNatsBus::ResultText(int result) {
    switch (result) {
        case BUS_OK: return "ok";
        case BUS_NOT_CONNECTED: return "not connected to the NATS server";
        case BUS_TIMEOUT: return "no answer in time";
        case BUS_NO_RESPONDERS: return "nobody listens on that subject";
        case BUS_TOO_LARGE: return "message too large for the bus";
        default: return "NATS send failed";
    }
}

int CNatsBus::Connect(const BusOptions& options, std::string* error) {
    m_opt = options;
    m_assembler = std::make_unique<CChunkAssembler>(m_opt.assemblyBytes, m_opt.assemblyAgeMs);
    {
        std::lock_guard<std::mutex> lock(g_libMutex);
        ++g_libUsers;
    }
    natsOptions* o = nullptr;
    natsStatus s = natsOptions_Create(&o);
    if (s == NATS_OK) s = natsOptions_SetURL(o, m_opt.url.c_str());
    if (s == NATS_OK) s = natsOptions_SetName(o, m_opt.name.c_str());
    if (s == NATS_OK) s = natsOptions_SetTimeout(o, m_opt.connectTimeoutMs);
    if (s == NATS_OK) s = natsOptions_SetMaxReconnect(o, -1);
    if (s == NATS_OK) s = natsOptions_SetReconnectWait(o, m_opt.reconnectWaitMs);
    if (s == NATS_OK) s = natsOptions_SetReconnectBufSize(o, m_opt.reconnectBufBytes);
    if (s == NATS_OK) s = natsOptions_SetIOBufSize(o, m_opt.ioBufBytes);
    if (s == NATS_OK) s = natsOptions_SetMaxPendingMsgs(o, m_opt.pendingMsgs);
    if (s == NATS_OK) s = natsOptions_SetNoEcho(o, true);  // a node never hears itself
    if (s == NATS_OK) s = natsOptions_SetDisconnectedCB(o, BusCallbacks::OnDisconnected, this);
    if (s == NATS_OK) s = natsOptions_SetReconnectedCB(o, BusCallbacks::OnReconnected, this);
    if (s == NATS_OK) s = natsOptions_SetErrorHandler(o, BusCallbacks::OnError, this);
    if (s == NATS_OK) s = natsConnection_Connect(&m_nc, o);
    natsOptions_Destroy(o);
    if (s != NATS_OK) {
        if (error) *error = "cannot connect to NATS at " + m_opt.url + ": " + natsStatus_GetText(s);
        m_nc = nullptr;
        Close();
        return BUS_NOT_CONNECTED;
    }
    m_connected = true;

    natsInbox* inbox = nullptr;
    if (natsInbox_Create(&inbox) == NATS_OK) {
        m_inbox = reinterpret_cast<const char*>(inbox);
        natsInbox_Destroy(inbox);
    }
    if (m_inbox.empty() || Subscribe(m_inbox + ".*", "", [this](BusMessage& m) { OnReply(m); }, true) != BUS_OK) {
        if (error) *error = "cannot subscribe to the reply inbox";
        Close();
        return BUS_NOT_CONNECTED;
    }
    return BUS_OK;
}

void CNatsBus::Close() {
    if (m_nc != nullptr && m_connected) natsConnection_FlushTimeout(m_nc, 1000);
    m_closing = true;
    {
        std::lock_guard<std::mutex> lock(m_subMutex);
        for (auto& s : m_subs) natsSubscription_Unsubscribe(s->sub);
    }
    {
        std::unique_lock<std::mutex> lock(m_subMutex);
        m_subCond.wait_for(lock, std::chrono::seconds(5), [this] { return m_openSubs == 0; });
        for (auto& s : m_subs) natsSubscription_Destroy(s->sub);
        m_subs.clear();
    }
    CancelRequests();
    if (m_nc != nullptr) {
        natsConnection_Close(m_nc);
        natsConnection_Destroy(m_nc);
        m_nc = nullptr;
    }
    m_connected = false;
    if (m_assembler) {
        std::lock_guard<std::mutex> lock(g_libMutex);
        // The library's own threads and memory go with the last user, so a
        // leak checker sees nothing left at exit.
        if (--g_libUsers == 0) nats_CloseAndWait(2000);
        m_assembler.reset();
    }
}

void CNatsBus::NoteDrop(const char* why) {
    const uint64_t n = ++m_counters.dropped;
    std::lock_guard<std::mutex> lock(m_dropLogMutex);
    auto now = std::chrono::steady_clock::now();
    if (m_dropsLogged == 0 || now - m_lastDropLog > std::chrono::seconds(1)) {
        Log(std::string("message dropped (") + why + "), " + std::to_string(n) + " dropped in all");
        m_lastDropLog = now;
        ++m_dropsLogged;
    }
}

int CNatsBus::PublishOne(const std::string& subject, const std::string& reply, const char* data, size_t len,
                         const std::string& chunk) {
    natsMsg* msg = nullptr;
    natsStatus s = natsMsg_Create(&msg, subject.c_str(), reply.empty() ? nullptr : reply.c_str(), data,
                                  static_cast<int>(len));
    if (s == NATS_OK) s = natsMsgHeader_Set(msg, kNodeHeader, m_opt.node.c_str());
    if (s == NATS_OK && !chunk.empty()) s = natsMsgHeader_Set(msg, kChunkHeader, chunk.c_str());
    if (s == NATS_OK) s = natsConnection_PublishMsg(m_nc, msg);
    natsMsg_Destroy(msg);
    if (s == NATS_INSUFFICIENT_BUFFER) return BUS_NOT_CONNECTED;  // reconnect buffer full
    if (s == NATS_MAX_PAYLOAD) return BUS_TOO_LARGE;
    return s == NATS_OK ? BUS_OK : (s == NATS_CONNECTION_CLOSED ? BUS_NOT_CONNECTED : BUS_FAILED);
}

int CNatsBus::Publish(const std::string& subject, std::string_view data) {
    if (m_nc == nullptr || m_closing || (m_opt.maxChunkBytes != 0 && data.size() > m_opt.maxChunkBytes))
        return Send(subject, "", data);
    const natsStatus s = natsConnection_Publish(m_nc, subject.c_str(), data.data(), static_cast<int>(data.size()));
    // Above the server's limit: whole, in chunks (libnats checks the limit
    // itself, so the common case asks nothing of the connection first).
    if (s == NATS_MAX_PAYLOAD) return Send(subject, "", data);
    int r = BUS_OK;
    if (s == NATS_INSUFFICIENT_BUFFER || s == NATS_CONNECTION_CLOSED) r = BUS_NOT_CONNECTED;
    else if (s != NATS_OK) r = BUS_FAILED;
    return Count(r, subject, data.size());
}

size_t CNatsBus::ChunkLimit() const {
    if (m_opt.maxChunkBytes != 0) return m_opt.maxChunkBytes;
    const int64_t max = natsConnection_GetMaxPayload(m_nc);
    return max > static_cast<int64_t>(kHeaderRoom) * 2 ? static_cast<size_t>(max) - kHeaderRoom : 1 << 20;
}

int CNatsBus::Count(int r, const std::string& subject, size_t bytes) {
    if (r == BUS_OK) {
        ++m_counters.sent;
    } else if (r == BUS_NOT_CONNECTED) {
        NoteDrop("disconnected and the reconnect buffer is full");
    } else if (r == BUS_TOO_LARGE) {
        ++m_counters.tooLarge;
        Log("message of " + std::to_string(bytes) + " bytes on " + subject + " is more than the bus carries, not sent");
    } else {
        ++m_counters.sendFailed;
        Log("send on " + subject + " failed");
    }
    return r;
}

int CNatsBus::Send(const std::string& subject, const std::string& reply, std::string_view data) {
    if (m_nc == nullptr || m_closing) {
        NoteDrop("bus closed");
        return BUS_NOT_CONNECTED;
    }
    const size_t limit = ChunkLimit();
    int r = BUS_OK;
    if (data.size() <= limit) {
        r = PublishOne(subject, reply, data.data(), data.size(), std::string());
    } else {
        const auto ranges = ChunkRanges(data.size(), limit);
        ChunkTag tag;
        tag.count = static_cast<uint32_t>(ranges.size());
        tag.id = std::to_string(m_nextId++);
        if (ranges.size() > kMaxChunks) r = BUS_TOO_LARGE;
        for (size_t i = 0; i < ranges.size() && r == BUS_OK; ++i) {
            tag.index = static_cast<uint32_t>(i);
            r = PublishOne(subject, reply, data.data() + ranges[i].first, ranges[i].second, FormatChunkTag(tag));
            if (r == BUS_OK) ++m_counters.chunksSent;
        }
    }
    return Count(r, subject, data.size());
}

int CNatsBus::Subscribe(const std::string& subject, const std::string& queue, Handler handler, bool acceptOwn) {
    if (m_nc == nullptr) return BUS_NOT_CONNECTED;
    auto s = std::make_unique<Sub>();
    s->acceptOwn = acceptOwn;
    s->bus = this;
    s->handler = std::move(handler);
    s->subject = subject;
    natsStatus st = queue.empty()
                        ? natsConnection_Subscribe(&s->sub, m_nc, subject.c_str(), BusCallbacks::OnMessage, s.get())
                        : natsConnection_QueueSubscribe(&s->sub, m_nc, subject.c_str(), queue.c_str(),
                                                        BusCallbacks::OnMessage, s.get());
    if (st != NATS_OK) {
        Log("cannot subscribe to " + subject + ": " + natsStatus_GetText(st));
        return BUS_FAILED;
    }
    natsSubscription_SetPendingLimits(s->sub, m_opt.pendingMsgs, m_opt.pendingBytes);
    {
        std::lock_guard<std::mutex> lock(m_subMutex);
        natsSubscription_SetOnCompleteCB(s->sub, BusCallbacks::OnComplete, s.get());
        ++m_openSubs;
        m_subs.push_back(std::move(s));
    }
    // Live on the server once the flush comes back.
    return Flush(5000) ? BUS_OK : BUS_TIMEOUT;
}

bool CNatsBus::CatchUp(const std::string& prefix, int timeoutMs) {
    std::vector<std::pair<const Sub*, uint64_t>> targets;
    {
        std::lock_guard<std::mutex> lock(m_subMutex);
        for (const auto& s : m_subs) {
            int pending = 0;
            int64_t delivered = 0;
            if (s->subject.compare(0, prefix.size(), prefix) == 0 &&
                natsSubscription_GetStats(s->sub, &pending, nullptr, nullptr, nullptr, &delivered, nullptr) == NATS_OK)
                targets.emplace_back(s.get(), static_cast<uint64_t>(delivered) + static_cast<uint64_t>(pending));
        }
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        bool done = true;
        for (const auto& t : targets) done = done && t.first->handled.load() >= t.second;
        if (done) return true;
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

bool CNatsBus::Flush(int timeoutMs) {
    return m_nc != nullptr && natsConnection_FlushTimeout(m_nc, timeoutMs) == NATS_OK;
}

void CNatsBus::Deliver(Sub& sub, natsMsg* msg) {
    if (m_closing) return;
    BusMessage m;
    const char* value = nullptr;
    m.subject = natsMsg_GetSubject(msg);
    if (natsMsgHeader_Get(msg, kNodeHeader, &value) == NATS_OK && value != nullptr)
        m.node = value;
    else
        m.node = SubjectNode(m.subject);  // a publication without headers
    if (!sub.acceptOwn && !m.node.empty() && m.node == m_opt.node) {
        ++m_counters.ownSkipped;
        return;
    }
    if (natsMsg_GetReply(msg) != nullptr) m.reply = natsMsg_GetReply(msg);
    const char* data = natsMsg_GetData(msg);
    const int len = natsMsg_GetDataLength(msg);
    if (natsMsg_IsNoResponders(msg)) {
        m.noResponders = true;
        if (m.subject.rfind(m_inbox, 0) == 0) OnReply(m);
        return;
    }
    value = nullptr;
    if (natsMsgHeader_Get(msg, kChunkHeader, &value) == NATS_OK && value != nullptr) {
        ChunkTag tag;
        ++m_counters.chunksReceived;
        m_counters.expired += m_assembler->Expire();
        if (!ParseChunkTag(value, &tag)) {
            ++m_counters.refusedChunks;
            Log("refused a message on " + m.subject + ": bad chunk header \"" + value + "\"");
            return;
        }
        const auto r = m_assembler->Add(m.node + "|" + m.subject, tag, data, len > 0 ? static_cast<size_t>(len) : 0,
                                        &m.data);
        if (r == CChunkAssembler::kRefused) {
            ++m_counters.refusedChunks;
            Log("refused chunk " + std::string(value) + " on " + m.subject + " (inconsistent or over the limit)");
            return;
        }
        if (r == CChunkAssembler::kWaiting) return;
    } else if (data != nullptr && len > 0) {
        m.data.assign(data, static_cast<size_t>(len));
    }
    ++m_counters.received;
    sub.handler(m);
}

void CNatsBus::OnReply(BusMessage& m) {
    std::lock_guard<std::mutex> lock(m_reqMutex);
    auto it = m_waiters.find(m.subject);
    if (it == m_waiters.end()) return;  // late answer of a request that timed out
    it->second->done = true;
    if (m.noResponders) {
        it->second->result = BUS_NO_RESPONDERS;
    } else {
        it->second->data = std::move(m.data);
    }
    m_reqCond.notify_all();
}

void CNatsBus::FailWaitingRequests() {
    // A request or its answer may have been lost with the connection: the
    // caller learns it now instead of at its timeout. New requests still go
    // out (libnats buffers them until the reconnection).
    std::lock_guard<std::mutex> lock(m_reqMutex);
    for (auto& w : m_waiters) {
        if (w.second->done) continue;
        w.second->done = true;
        w.second->result = BUS_NOT_CONNECTED;
    }
    m_reqCond.notify_all();
}

void CNatsBus::CancelRequests() {
    std::lock_guard<std::mutex> lock(m_reqMutex);
    m_cancelled = true;
    for (auto& w : m_waiters) {
        w.second->done = true;
        w.second->result = BUS_NOT_CONNECTED;
    }
    m_reqCond.notify_all();
}

int CNatsBus::Request(const std::string& subject, const std::string& data, int timeoutMs, std::string* answer) {
    if (m_nc == nullptr || m_inbox.empty()) return BUS_NOT_CONNECTED;
    const std::string reply = m_inbox + "." + std::to_string(m_nextId++);
    auto w = std::make_shared<Waiter>();
    {
        std::lock_guard<std::mutex> lock(m_reqMutex);
        if (m_cancelled) return BUS_NOT_CONNECTED;
        m_waiters[reply] = w;
    }
    int r = Send(subject, reply, data);
    std::unique_lock<std::mutex> lock(m_reqMutex);
    if (r == BUS_OK &&
        !m_reqCond.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] { return w->done; }))
        r = BUS_TIMEOUT;
    if (r == BUS_OK) r = w->result;
    if (r == BUS_OK && answer != nullptr) *answer = std::move(w->data);
    m_waiters.erase(reply);
    return r;
}

uint64_t CNatsBus::SubscriptionDrops() const {
    std::lock_guard<std::mutex> lock(m_subMutex);
    uint64_t total = 0;
    for (const auto& s : m_subs) {
        int64_t n = 0;
        if (natsSubscription_GetDropped(s->sub, &n) == NATS_OK && n > 0) total += static_cast<uint64_t>(n);
    }
    return total;
}

std::vector<std::pair<std::string, uint64_t>> CNatsBus::Stats() const {
    const BusCounters& c = m_counters;
    return {{"connected", m_connected.load() ? 1u : 0u},
            {"sent", c.sent.load()},
            {"chunks_sent", c.chunksSent.load()},
            {"dropped", c.dropped.load()},
            {"send_failed", c.sendFailed.load()},
            {"too_large", c.tooLarge.load()},
            {"received", c.received.load()},
            {"chunks_received", c.chunksReceived.load()},
            {"own_skipped", c.ownSkipped.load()},
            {"refused_chunks", c.refusedChunks.load()},
            {"expired_partials", c.expired.load()},
            {"slow_consumer", c.slowConsumer.load()},
            {"slow_consumer_dropped", SubscriptionDrops()},
            {"disconnects", c.disconnects.load()},
            {"reconnects", c.reconnects.load()},
            {"async_errors", c.asyncErrors.load()}};
}

}  // namespace natsbus
