#include "host/nats_center.h"

#include <unistd.h>

#include <pugixml.hpp>

#include "host/host_message.h"
#include "host/host_pack.h"
#include "host/nats_subject.h"
#include "host/product_center.h"
#include "host/product_json.h"

namespace product {

using json = nlohmann::ordered_json;

namespace {

constexpr int kPublishFunction = 620003;
constexpr int kReportFunction = 620031;
constexpr int kCenterReportFunction = 620299;

bool IsSyncFunction(int f) { return f == 620202 || f == 620203 || f == 620204 || f == 620206; }
bool IsQueryFunction(int f) { return f == 620200 || f == 620201 || f == 620205 || f == 620207; }

int ItemInt(IESBMessage* msg, int tag) {
    IESBMessageItem* item = msg->GetItem(tag);
    return item != nullptr ? item->GetInt(0) : 0;
}

// Splits a subject into its tokens.
std::vector<std::string> Tokens(const std::string& subject) {
    std::vector<std::string> out;
    size_t start = 0;
    for (;;) {
        size_t dot = subject.find('.', start);
        out.push_back(subject.substr(start, dot == std::string::npos ? std::string::npos : dot - start));
        if (dot == std::string::npos) return out;
        start = dot + 1;
    }
}

}  // namespace

bool ReadNatsSettings(const std::string& configXml, const std::string& urlOverride, NatsSettings* out,
                      std::string* error) {
    pugi::xml_document doc;
    if (!doc.load_string(configXml.c_str())) {
        *error = "configuration does not parse";
        return false;
    }
    pugi::xml_node root = doc.document_element();
    pugi::xml_node host = root.child("host");
    NatsSettings s;
    s.url = urlOverride.empty() ? host.attribute("nats_url").as_string() : urlOverride;
    pugi::xml_node id = root.child("pub").first_child();
    const std::string app = id.attribute("AppName").as_string(), appId = id.attribute("AppID").as_string();
    if (!s.url.empty() && (app.empty() || appId.empty())) {
        *error = "the NATS bus needs the node identity (pub AppName and AppID)";
        return false;
    }
    s.node = app + "#" + appId;
    if (host.attribute("nats_group")) s.group = host.attribute("nats_group").as_string();
    s.syncPeer = host.attribute("nats_sync_peer").as_string();
    s.syncGroup = host.attribute("nats_sync_group").as_string(s.group.c_str());
    s.json = host.attribute("nats_json").as_int(1) != 0;
    s.requestTimeoutMs = host.attribute("nats_request_timeout_ms").as_int(15000);
    if (s.group.empty() || s.requestTimeoutMs <= 0) {
        *error = "nats_group must not be empty and nats_request_timeout_ms must be above 0";
        return false;
    }
    *out = std::move(s);
    return true;
}

void CTaskThread::Start() {
    m_stop = false;
    m_thread = std::thread([this] {
        std::unique_lock<std::mutex> lock(m_mutex);
        for (;;) {
            m_cond.wait(lock, [this] { return m_stop || !m_tasks.empty(); });
            if (m_stop) return;
            auto task = std::move(m_tasks.front());
            m_tasks.pop_front();
            lock.unlock();
            task();
            lock.lock();
        }
    });
}

void CTaskThread::Stop() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
        m_tasks.clear();
    }
    m_cond.notify_all();
    if (m_thread.joinable()) m_thread.join();
}

bool CTaskThread::Sleep(int ms) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return !m_cond.wait_for(lock, std::chrono::milliseconds(ms), [this] { return m_stop; });
}

void CTaskThread::Push(std::function<void()> task) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_stop) return;
    m_tasks.push_back(std::move(task));
    m_cond.notify_one();
}

CNatsCenter::CNatsCenter(NatsSettings settings, Logger log) : m_set(std::move(settings)), m_log(std::move(log)) {
    m_bus.SetLogger([this](const std::string& text) { m_log("NATS: " + text); });
    m_bus.SetStateHandler([this](bool up) { OnStateChange(up); });
}

CNatsCenter::~CNatsCenter() { Stop(); }

int CNatsCenter::Connect() {
    natsbus::BusOptions o;
    o.url = m_set.url;
    o.node = m_set.node;
    o.name = "tikron " + m_set.node;
    if (m_bus.Connect(o, &m_error) != natsbus::BUS_OK) return -1;
    // Another node of the same identity answers its identity subject.
    std::string who;
    if (m_bus.Request(natsbus::IdentitySubject(m_set.node), "", 1000, &who) == natsbus::BUS_OK) {
        m_error = "another node with the identity " + m_set.node + " is already on the bus (" + who +
                  "); each node needs its own AppName#AppID";
        m_bus.Close();
        return -1;
    }
    char hostName[128] = "";
    gethostname(hostName, sizeof hostName - 1);
    const std::string me = "pid " + std::to_string(getpid()) + " on " + hostName;
    m_bus.Subscribe(natsbus::IdentitySubject(m_set.node), "", [this, me](natsbus::BusMessage& m) {
        if (!m.reply.empty()) m_bus.Send(m.reply, "", me);
    }, true);  // the probe of a twin carries this very identity
    m_log("NATS: node " + m_set.node + " connected to " + m_set.url);
    return 0;
}

int CNatsCenter::Attach(const Context& context) {
    m_ctx = context;
    m_subscriber.Start();
    m_syncer.Start();
    auto req = [this](natsbus::BusMessage& m) { OnRequest(m); };
    auto ctl = [this](natsbus::BusMessage& m) { OnControl(m); };
    int r = m_bus.Subscribe(natsbus::RequestSubject(m_set.node), "", req);
    if (r == 0) r = m_bus.Subscribe(natsbus::GroupRequestSubject(m_set.group), m_set.group, req);
    if (r == 0) r = m_bus.Subscribe(natsbus::ControlSubject(m_set.node), "", ctl);
    if (r == 0) r = m_bus.Subscribe(natsbus::GroupControlSubject(m_set.group), m_set.group, ctl);
    if (r != 0) {
        m_error = std::string("cannot subscribe to the request subjects: ") + natsbus::CNatsBus::ResultText(r);
        return -1;
    }
    m_attached = true;
    return 0;
}

void CNatsCenter::Stop() {
    m_attached = false;
    m_bus.CancelRequests();
    m_subscriber.Stop();
    m_syncer.Stop();
    m_bus.Close();
}

void CNatsCenter::Refuse(const std::string& why) {
    ++m_refused;
    m_log("NATS: refused " + why);
}

IESBMessage* CNatsCenter::Decode(const std::string& data, const char* what, const std::string& subject,
                                 const std::string& node) {
    hostemu::CHostMessage* msg = m_ctx.factory->NewMessage();
    if (data.empty() || msg->SetBuffer(data.data(), static_cast<int>(data.size())) != 0) {
        msg->Release();
        Refuse(what + subject + (node.empty() ? "" : " from " + node) + ": not a tikron message (" +
               std::to_string(data.size()) + " bytes)");
        return nullptr;
    }
    return msg;
}

int CNatsCenter::PostIntoPlugin(IESBMessage* msg, IMessageService* from) {
    int r = m_attached ? m_ctx.plugin->PostMsg(msg, from) : -1;
    if (r != 0) msg->Release();
    return r;
}

std::string CNatsCenter::SyncSubject() const {
    return m_set.syncPeer.empty() ? natsbus::GroupRequestSubject(m_set.syncGroup)
                                  : natsbus::RequestSubject(m_set.syncPeer);
}

bool CNatsCenter::OnPluginMessage(COutgoing& msg) {
    if (!m_attached) return false;
    const int packetType = msg.Int(3), function = msg.Int(5);
    if (packetType == 1) {
        // The answer to a request that came over the bus goes back to its
        // requester with the requester's own packet id.
        const int id = msg.Int(11);
        Pending p;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            auto it = m_pending.find(id);
            if (it == m_pending.end()) return false;
            p = it->second;
            m_pending.erase(it);
        }
        msg.SetPacketId(p.packetId);
        const auto e = msg.Encoded();
        m_bus.Send(p.reply, "", std::string_view(e.first, e.second));
        ++m_answers;
        return true;
    }
    if (packetType != 0) return false;
    if (function == kPublishFunction || function == kReportFunction) {
        const std::string& keyText = KeyTextOf(msg.Key());
        const int issueType = msg.Int(53);
        const auto e = msg.Encoded();
        m_bus.Publish(natsbus::PublicationSubject(m_set.node, function, issueType, keyText),
                      std::string_view(e.first, e.second));
        ++m_published;
        if (m_set.json) {
            // The very line of the publication file, made once for both.
            m_bus.Publish(natsbus::JsonSubject(m_set.node, function, issueType, keyText), msg.Line());
            ++m_jsonPublished;
        }
        return true;
    }
    if (IsSyncFunction(function)) {
        const auto e = msg.Encoded();
        std::string request(e.first, e.second);
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_syncRequests[function] = request;
            // The plug-in repeats a pending request every second; one at a
            // time goes out.
            if (!m_syncBusy.insert(function).second) return true;
        }
        m_syncer.Push([this, function, request] {
            Synchronise(function, request);
            std::lock_guard<std::mutex> lock(m_mutex);
            m_syncBusy.erase(function);
        });
        return true;
    }
    if (m_ctx.subscribeFunctions.count(function) != 0 && !msg.Key().empty()) {
        const int issueType = msg.Int(53), packetId = msg.Int(11);
        m_subscriber.Push([this, issueType, packetId] { Subscribe(issueType, packetId); });
        return true;
    }
    return false;
}

const std::string& CNatsCenter::KeyTextOf(const std::string& packed) {
    auto it = m_keyTexts.find(packed);
    if (it != m_keyTexts.end()) return it->second;
    if (m_keyTexts.size() >= kKeyCacheLimit) m_keyTexts.clear();
    return m_keyTexts.emplace(packed, natsbus::KeyText(packed.data(), static_cast<int>(packed.size()))).first->second;
}

void CNatsCenter::Subscribe(int issueType, int packetId) {
    bool exists;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        exists = m_subscribed.count(issueType) != 0;
    }
    const std::string subject = natsbus::SubscriptionSubject(issueType);
    int r = natsbus::BUS_OK;
    if (!exists) {
        r = m_bus.Subscribe(subject, "", [this](natsbus::BusMessage& m) { OnPublication(m); });
        if (r == natsbus::BUS_OK || r == natsbus::BUS_TIMEOUT) {
            // It stands even when not confirmed yet: never a second one.
            std::lock_guard<std::mutex> lock(m_mutex);
            m_subscribed[issueType] = packetId;
            ++m_subscriptions;
        }
    } else if (!m_bus.Flush(5000)) {
        r = natsbus::BUS_TIMEOUT;
    }
    if (r != natsbus::BUS_OK) {
        // No answer: the plug-in sends the request again.
        m_log("NATS: subscription to " + subject + " not live yet: " + natsbus::CNatsBus::ResultText(r));
        return;
    }
    // The subscription is live on the server: answer the plug-in.
    PostIntoPlugin(hostemu::BuildMessage(*m_ctx.factory, SubscriptionAnswer(packetId, issueType)), m_ctx.center);
}

bool CNatsCenter::Synchronise(int function, const std::string& request) {
    std::string answer;
    const std::string subject = SyncSubject();
    ++m_syncSent;
    int r = m_bus.Request(subject, request, m_set.requestTimeoutMs, &answer);
    IESBMessage* msg = nullptr;
    if (r == natsbus::BUS_OK) {
        // Publications that came before the answer (a peer's buffered ones
        // after a reconnection) go into the plug-in before it, so none of
        // them overwrites the newer rows of the answer.
        if (!m_bus.CatchUp("tikron.pub.", 5000))
            m_log("NATS: publications still queued behind the synchronisation answer " + std::to_string(function));
        msg = Decode(answer, "synchronisation answer from ", subject);
        if (msg != nullptr && (ItemInt(msg, 3) != 1 || ItemInt(msg, 5) != function)) {
            msg->Release();
            msg = nullptr;
            Refuse("synchronisation answer from " + subject + ": not an answer of function " +
                   std::to_string(function));
        }
    } else {
        m_log("NATS: synchronisation request " + std::to_string(function) + " to " + subject +
              " failed: " + natsbus::CNatsBus::ResultText(r) + "; the request stays pending");
    }
    const bool answered = msg != nullptr && PostIntoPlugin(msg, m_ctx.center) == 0;
    ++(answered ? m_syncAnswered : m_syncFailed);
    return answered;
}

void CNatsCenter::OnStateChange(bool up) {
    if (!up || !m_attached) return;
    const uint64_t round = ++m_round;
    // Whatever was published while this node was away is not replayed by
    // the server: the tables are asked for again.
    m_syncer.Push([this, round] { Resynchronise(round); });
}

void CNatsCenter::Resynchronise(uint64_t round) {
    std::map<int, std::string> left;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        left = m_syncRequests;
    }
    if (left.empty()) return;
    m_log("NATS: reconnected, synchronising " + std::to_string(left.size()) + " tables again");
    // Each table until its answer went in (the peer may come back after
    // this node), once a second; a later reconnection starts over.
    // The plug-in's own requests wait behind this task; an answer the
    // plug-in did not wait for still fills its table.
    while (m_attached && round == m_round) {
        for (auto it = left.begin(); it != left.end();)
            it = Synchronise(it->first, it->second) ? left.erase(it) : std::next(it);
        if (left.empty() || !m_syncer.Sleep(1000)) return;
    }
}

void CNatsCenter::OnPublication(natsbus::BusMessage& m) {
    const std::vector<std::string> t = Tokens(m.subject);
    if (m.node.empty()) return Refuse("publication on " + m.subject + ": no node identity (subject or header)");
    IESBMessage* msg = Decode(m.data, "publication on ", m.subject, m.node);
    if (msg == nullptr) return;
    const int function = ItemInt(msg, 5), issueType = ItemInt(msg, 53);
    const bool fits = t.size() == 6 && ItemInt(msg, 3) == 0 && t[3] == std::to_string(function) &&
                      t[4] == std::to_string(issueType) &&
                      (function == kPublishFunction || function == kReportFunction ||
                       function == kCenterReportFunction);
    if (!fits) {
        msg->Release();
        return Refuse("publication on " + m.subject + " from " + m.node + ": function " + std::to_string(function) +
                      ", issue type " + std::to_string(issueType) + " do not fit the subject");
    }
    // Reports published by another node go through the plug-in's
    // publication intake and conversion like any publication.
    if (function == kReportFunction) msg->GetItem(5)->SetInt(kPublishFunction, 0);
    if (PostIntoPlugin(msg, m_ctx.center) == 0) {
        ++m_intake;
    } else {
        Refuse("publication on " + m.subject + ": the plug-in did not take it");
    }
}

void CNatsCenter::OnRequest(natsbus::BusMessage& m) {
    if (m.reply.empty()) return Refuse("request on " + m.subject + " without a reply subject");
    IESBMessage* msg = Decode(m.data, "request on ", m.subject, m.node);
    if (msg == nullptr) return;
    const int function = ItemInt(msg, 5);
    if (ItemInt(msg, 3) != 0 || !(IsQueryFunction(function) || IsSyncFunction(function))) {
        msg->Release();
        return Refuse("request on " + m.subject + ": function " + std::to_string(function) +
                      " is not a query or synchronisation request");
    }
    const auto now = std::chrono::steady_clock::now();
    int local;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (auto it = m_pending.begin(); it != m_pending.end();)
            it = it->second.deadline < now ? m_pending.erase(it) : std::next(it);
        local = m_nextLocalId++;
        if (m_nextLocalId < 1500000000) m_nextLocalId = 1500000000;
        m_pending[local] = Pending{ItemInt(msg, 11), m.reply, now + std::chrono::seconds(60)};
    }
    msg->GetItem(11)->SetInt(local, 0);
    ++m_requests;
    if (PostIntoPlugin(msg, IsQueryFunction(function) ? m_ctx.client : m_ctx.center) != 0) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_pending.erase(local);
        }
        Refuse("request on " + m.subject + ": the plug-in did not take it");
    }
}

void CNatsCenter::OnControl(natsbus::BusMessage& m) {
    if (m.reply.empty()) return Refuse("control request on " + m.subject + " without a reply subject");
    json req = json::parse(m.data, nullptr, false);
    json answer = req.is_discarded() ? json{{"ok", false}, {"error", "request is not JSON"}} : m_ctx.control(req);
    ++m_controls;
    m_bus.Send(m.reply, "", DumpLine(answer));
}

json CNatsCenter::Stats() const {
    json out = {{"node", m_set.node},
                {"url", m_set.url},
                {"publications", m_published.load()},
                {"json_publications", m_jsonPublished.load()},
                {"intake", m_intake.load()},
                {"refused", m_refused.load()},
                {"requests", m_requests.load()},
                {"answers", m_answers.load()},
                {"subscriptions", m_subscriptions.load()},
                {"control_requests", m_controls.load()},
                {"sync_sent", m_syncSent.load()},
                {"sync_answered", m_syncAnswered.load()},
                {"sync_failed", m_syncFailed.load()}};
    for (const auto& kv : m_bus.Stats()) out["bus_" + kv.first] = kv.second;
    return out;
}

NatsHealth CNatsCenter::Health() const {
    const natsbus::BusCounters& c = m_bus.Counters();
    NatsHealth h;
    h.connected = m_bus.Connected();
    h.dropped = c.dropped.load();
    h.slowConsumers = c.slowConsumer.load();
    h.slowConsumerDropped = m_bus.SubscriptionDrops();
    h.reassemblyErrors = c.refusedChunks.load() + c.expired.load();
    h.tooLarge = c.tooLarge.load();
    h.reconnects = c.reconnects.load();
    return h;
}

}  // namespace product
