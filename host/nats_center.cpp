#include "host/nats_center.h"

#include <unistd.h>

#include <pugixml.hpp>

#include "host/host_message.h"
#include "host/host_pack.h"
#include "host/nats_subject.h"
#include "host/product_json.h"

namespace product {

using json = nlohmann::ordered_json;

namespace {

constexpr int kPublishFunction = 620003;
constexpr int kReportFunction = 620031;
constexpr int kCenterReportFunction = 620299;
constexpr int kSubscribeAnswerFunction = 620001;

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
        if (!m.reply.empty()) m_bus.Post(m.reply, me);
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

IESBMessage* CNatsCenter::Decode(const std::string& data, const std::string& what) {
    hostemu::CHostMessage* msg = m_ctx.factory->NewMessage();
    if (data.empty() || msg->SetBuffer(data.data(), static_cast<int>(data.size())) != 0) {
        msg->Release();
        Refuse(what + ": not a tikron message (" + std::to_string(data.size()) + " bytes)");
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

bool CNatsCenter::OnPluginMessage(IESBMessage* msg, const void* encoded, int len) {
    if (!m_attached || msg == nullptr || encoded == nullptr || len <= 0) return false;
    const int packetType = ItemInt(msg, 3), function = ItemInt(msg, 5);
    if (packetType == 1) {
        // The answer to a request that came over the bus goes back to its
        // requester with the requester's own packet id.
        const int id = ItemInt(msg, 11);
        Pending p;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            auto it = m_pending.find(id);
            if (it == m_pending.end()) return false;
            p = it->second;
            m_pending.erase(it);
        }
        msg->GetItem(11)->SetInt(p.packetId, 0);
        int n = 0;
        const void* buf = msg->GetBuffer(&n);
        if (buf != nullptr && n > 0) m_bus.Post(p.reply, std::string(static_cast<const char*>(buf), n));
        ++m_answers;
        return true;
    }
    if (packetType != 0) return false;
    if (function == kPublishFunction || function == kReportFunction) {
        int keyLen = 0;
        IESBMessageItem* keyItem = msg->GetItem(54);
        const void* key = keyItem != nullptr ? keyItem->GetRawData(&keyLen, 0) : nullptr;
        const std::string keyText = natsbus::KeyText(key, keyLen);
        const int issueType = ItemInt(msg, 53);
        m_bus.Post(natsbus::PublicationSubject(m_set.node, function, issueType, keyText),
                   std::string(static_cast<const char*>(encoded), static_cast<size_t>(len)));
        ++m_published;
        if (m_set.json) {
            hostemu::MessageSnapshot snap;
            if (hostemu::DecodeMessage(encoded, len, &snap) == 0) {
                m_bus.Post(natsbus::JsonSubject(m_set.node, function, issueType, keyText),
                           DumpLine(MessageToJson(snap)));
                ++m_jsonPublished;
            }
        }
        return true;
    }
    if (IsSyncFunction(function)) {
        std::string request(static_cast<const char*>(encoded), static_cast<size_t>(len));
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_syncRequests[function] = request;
            // The plug-in repeats a pending request every second; one at a
            // time goes out.
            if (!m_syncBusy.insert(function).second) return true;
        }
        m_syncer.Push([this, function, request] { Synchronise(function, request); });
        return true;
    }
    if (m_ctx.subscribeFunctions.count(function) != 0 && msg->GetItem(54) != nullptr) {
        int keyLen = 0;
        msg->GetItem(54)->GetRawData(&keyLen, 0);
        if (keyLen <= 0) return false;
        const int issueType = ItemInt(msg, 53), packetId = ItemInt(msg, 11);
        m_subscriber.Push([this, issueType, packetId] { Subscribe(issueType, packetId); });
        return true;
    }
    return false;
}

void CNatsCenter::Subscribe(int issueType, int packetId) {
    bool live;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        live = m_subscribed.count(issueType) != 0;
    }
    if (!live) {
        const std::string subject = natsbus::SubscriptionSubject(issueType);
        int r = m_bus.Subscribe(subject, "", [this](natsbus::BusMessage& m) { OnPublication(m); });
        if (r != natsbus::BUS_OK) {
            // No answer: the plug-in sends the request again.
            m_log("NATS: subscription to " + subject + " not live yet: " + natsbus::CNatsBus::ResultText(r));
            return;
        }
        std::lock_guard<std::mutex> lock(m_mutex);
        m_subscribed[issueType] = packetId;
        ++m_subscriptions;
    }
    // The subscription is live on the server: answer the plug-in.
    hostemu::MessageSpec answer{kSubscribeAnswerFunction, 1};
    answer.packetId = packetId;
    answer.issueType = issueType;
    auto key = hostemu::EncodePacked(hostemu::MakeBody(33, {"subscibe_result"}, {{0}}));
    answer.key.assign(key.begin(), key.end());
    PostIntoPlugin(hostemu::BuildMessage(*m_ctx.factory, answer), m_ctx.center);
}

void CNatsCenter::Synchronise(int function, std::string request) {
    std::string answer;
    const std::string subject = SyncSubject();
    ++m_syncSent;
    int r = m_bus.Request(subject, request, m_set.requestTimeoutMs, &answer);
    IESBMessage* msg = nullptr;
    if (r == natsbus::BUS_OK) {
        msg = Decode(answer, "synchronisation answer from " + subject);
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
    if (msg != nullptr && PostIntoPlugin(msg, m_ctx.center) == 0) {
        ++m_syncAnswered;
    } else {
        ++m_syncFailed;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    m_syncBusy.erase(function);
}

void CNatsCenter::OnStateChange(bool up) {
    if (!up || !m_attached) return;
    // Whatever was published while this node was away is not replayed by
    // the server: ask the peer for the tables again, once at once and once
    // after the other nodes had time to come back too.
    std::map<int, std::string> requests;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        requests = m_syncRequests;
    }
    if (requests.empty()) return;
    m_log("NATS: reconnected, synchronising " + std::to_string(requests.size()) + " tables again");
    auto resync = [this, requests](bool settle) {
        if (settle) std::this_thread::sleep_for(std::chrono::seconds(2));
        for (const auto& r : requests) {
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                if (!m_syncBusy.insert(r.first).second) continue;
            }
            Synchronise(r.first, r.second);
        }
    };
    m_syncer.Push([resync] { resync(false); });
    m_syncer.Push([resync] { resync(true); });
}

void CNatsCenter::OnPublication(natsbus::BusMessage& m) {
    const std::vector<std::string> t = Tokens(m.subject);
    if (m.node.empty()) return Refuse("publication on " + m.subject + ": no node identity header");
    IESBMessage* msg = Decode(m.data, "publication on " + m.subject + " from " + m.node);
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
    if (PostIntoPlugin(msg, m_ctx.center) == 0) ++m_intake;
}

void CNatsCenter::OnRequest(natsbus::BusMessage& m) {
    if (m.reply.empty()) return Refuse("request on " + m.subject + " without a reply subject");
    IESBMessage* msg = Decode(m.data, "request on " + m.subject + " from " + m.node);
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
        std::lock_guard<std::mutex> lock(m_mutex);
        m_pending.erase(local);
    }
}

void CNatsCenter::OnControl(natsbus::BusMessage& m) {
    if (m.reply.empty()) return Refuse("control request on " + m.subject + " without a reply subject");
    json req = json::parse(m.data, nullptr, false);
    json answer = req.is_discarded() ? json{{"ok", false}, {"error", "request is not JSON"}} : m_ctx.control(req);
    ++m_controls;
    m_bus.Post(m.reply, DumpLine(answer));
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

}  // namespace product
