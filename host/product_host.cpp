#include "host/product_host.h"

#include <chrono>
#include <cstring>
#include <sstream>

#include <pugixml.hpp>

#include "host/product_json.h"

namespace product {

using json = nlohmann::ordered_json;

namespace {

constexpr int kRegisterFunction = 2;
constexpr int kHeartbeatFunction = 620000;
constexpr int kPublishFunction = 620003;
constexpr int kSubscribeAnswerFunction = 620001;

json Fail(const std::string& why) { return {{"ok", false}, {"error", why}}; }

// Key column of each query function.
const char* QueryKeyColumn(int function) {
    switch (function) {
        case 620200:
        case 620205: return "contract_code";
        case 620201: return "arbicontract_id";
        case 620207: return "futu_exch_type";
        default: return nullptr;
    }
}

}  // namespace

ProductHost::ProductHost(ProductOptions options) : m_opt(std::move(options)) {}

ProductHost::~ProductHost() { Stop(); }

int ProductHost::ReadConfig(std::string* xml) {
    pugi::xml_document doc;
    pugi::xml_parse_result r = doc.load_file(m_opt.configFile.c_str());
    if (!r) {
        m_error = "cannot read configuration " + m_opt.configFile + ": " + r.description();
        return -1;
    }
    pugi::xml_node root = doc.document_element();
    pugi::xml_node host = root.child("host");
    if (!host) host = root.append_child("host");
    m_heartbeatMs = m_opt.heartbeatMs >= 0 ? m_opt.heartbeatMs : host.attribute("heartbeat_ms").as_int(0);
    // This program sends the heartbeats itself, from the center's side.
    if (!host.attribute("heartbeat_ms")) host.append_attribute("heartbeat_ms");
    host.attribute("heartbeat_ms").set_value(0);
    for (pugi::xml_node req : root.child("plugin").child("mc").children())
        if (req.attribute("functionno")) m_subscribeFunctions.insert(req.attribute("functionno").as_int());
    std::ostringstream out;
    doc.save(out, "", pugi::format_raw);
    *xml = out.str();
    return 0;
}

int ProductHost::Start() {
    if (m_started) return 0;
    hostemu::HostOptions o;
    o.pluginPath = m_opt.pluginPath;
    o.logFile = m_opt.logFile;
    o.logStderr = m_opt.logStderr;
    if (ReadConfig(&o.configXml) != 0) return -1;

    if (m_opt.publications == "-") {
        m_out = stdout;
    } else if (!m_opt.publications.empty()) {
        m_out = fopen(m_opt.publications.c_str(), "w");
        if (m_out == nullptr) {
            m_error = "cannot open " + m_opt.publications + ": " + strerror(errno);
            return -1;
        }
        m_ownOut = true;
    }

    if (StartBus(o.configXml) != 0) return -1;
    m_center.SetHandler([this](const hostemu::MessageSnapshot& m) { OnCenterMessage(m); });
    if (m_nats) {
        // What the bus takes is still written to the publication lines.
        m_center.SetFilter(
            [this](IESBMessage* msg, const void* b, int n) { return m_nats->OnPluginMessage(msg, b, n); },
            m_out != nullptr ? CEndpoint::Handler([this](const hostemu::MessageSnapshot& m) { WriteLine(m); })
                             : CEndpoint::Handler());
    }
    m_client.SetHandler([this](const hostemu::MessageSnapshot& m) { WriteLine(m); });
    m_host = std::make_unique<hostemu::HostEmulator>(o);
    m_running = true;
    int rc = m_host->Load();
    if (rc == 0) {
        // The plug-in's neighbours are this program's endpoints.
        m_host->Service()->RegisterPrevService(&m_center);
        m_host->Service()->RegisterNextService(&m_client);
        rc = AttachBus();
        if (rc == 0) rc = m_host->Init();
    }
    if (rc == 0) rc = m_host->Start();
    if (rc != 0) {
        m_error = m_nats && !m_nats->Error().empty()
                      ? m_nats->Error()
                      : "plug-in start failed (" + std::to_string(rc) + "): " + m_host->Error();
        m_running = false;
        if (m_nats) m_nats->Stop();
        m_host.reset();
        m_nats.reset();
        return rc < 0 ? rc : -rc;
    }
    m_started = true;
    if (m_heartbeatMs > 0) m_heartbeat = std::thread([this] { HeartbeatLoop(m_heartbeatMs); });
    return 0;
}

int ProductHost::AttachBus() {
    if (!m_nats) return 0;
    // The bus takes the plug-in's first subscription requests already.
    CNatsCenter::Context ctx;
    ctx.factory = &m_host->Factory();
    ctx.plugin = m_host->Service();
    ctx.center = &m_center;
    ctx.client = &m_client;
    ctx.control = [this](const json& r) { return Handle(r); };
    ctx.subscribeFunctions = m_subscribeFunctions;
    if (m_nats->Attach(ctx) == 0) return 0;
    return -1;
}

int ProductHost::StartBus(const std::string& configXml) {
    NatsSettings settings;
    if (!ReadNatsSettings(configXml, m_opt.natsUrl, &settings, &m_error)) return -1;
    if (settings.url.empty()) return 0;
    m_nats = std::make_unique<CNatsCenter>(settings, [this](const std::string& text) {
        hostemu::HostEmulator* host = m_host.get();
        if (host != nullptr) {
            host->Log().AddLog("tikron-host", 0, text.c_str());
        } else {
            fprintf(stderr, "tikron-host: %s\n", text.c_str());
        }
    });
    if (m_nats->Connect() != 0) {
        m_error = m_nats->Error();
        m_nats.reset();
        return -1;
    }
    return 0;
}

void ProductHost::Stop() {
    if (m_heartbeat.joinable()) {
        {
            std::lock_guard<std::mutex> lock(m_hbMutex);
            m_hbStop = true;
        }
        m_hbCond.notify_all();
        m_heartbeat.join();
    }
    if (m_nats) m_nats->Stop();  // nothing more from the bus into a stopping plug-in
    if (m_host) {
        m_running = false;  // no more answers into a stopping plug-in
        m_host->Shutdown();
        m_host.reset();
    }
    m_started = false;
    std::lock_guard<std::mutex> lock(m_outMutex);
    if (m_out != nullptr) {
        fflush(m_out);
        if (m_ownOut) fclose(m_out);
        m_out = nullptr;
    }
}

void ProductHost::HeartbeatLoop(int periodMs) {
    std::unique_lock<std::mutex> lock(m_hbMutex);
    while (!m_hbStop) {
        if (m_hbCond.wait_for(lock, std::chrono::milliseconds(periodMs), [this] { return m_hbStop; })) break;
        lock.unlock();
        // On the bus the center is alive only while the connection is up.
        if (m_nats && !m_nats->Up()) {
            lock.lock();
            continue;
        }
        IESBMessage* msg = hostemu::BuildMessage(m_host->Factory(), hostemu::MessageSpec{kHeartbeatFunction, 0});
        if (m_host->Service()->PostMsg(msg, &m_center) != 0) msg->Release();
        ++m_heartbeats;
        lock.lock();
    }
}

void ProductHost::WriteLine(const hostemu::MessageSnapshot& msg) {
    std::lock_guard<std::mutex> lock(m_outMutex);
    if (m_out == nullptr) return;
    std::string line = DumpLine(MessageToJson(msg));
    line.push_back('\n');
    fwrite(line.data(), 1, line.size(), m_out);
    fflush(m_out);
    ++m_lines;
}

void ProductHost::OnCenterMessage(const hostemu::MessageSnapshot& msg) {
    WriteLine(msg);
    const int function = msg.FunctionNo();
    const int packetType = msg.PacketType();
    IMessageService* svc = m_host ? m_host->Service() : nullptr;

    if (packetType == 1 && QueryKeyColumn(function) != nullptr) {
        std::lock_guard<std::mutex> lock(m_waitMutex);
        if (m_waiting.count(msg.PacketId()) != 0) {
            m_answers[msg.PacketId()] = std::make_unique<hostemu::MessageSnapshot>(msg);
            m_waitCond.notify_all();
        }
        return;
    }
    if (!m_running || svc == nullptr || packetType == 1) return;

    hostemu::MessageSpec answer;
    if (function == kRegisterFunction) {
        answer = hostemu::MessageSpec{kRegisterFunction, 1};
        ++m_registrations;
    } else if (packetType == 0 && m_subscribeFunctions.count(function) != 0 && msg.Has(54)) {
        answer = hostemu::MessageSpec{kSubscribeAnswerFunction, 1};
        answer.packetId = msg.PacketId();
        answer.issueType = msg.IssueType();
        auto key = hostemu::EncodePacked(hostemu::MakeBody(33, {"subscibe_result"}, {{0}}));
        answer.key.assign(key.begin(), key.end());
        ++m_subscriptions;
    } else {
        return;
    }
    IESBMessage* m = hostemu::BuildMessage(m_host->Factory(), answer);
    if (svc->PostMsg(m, &m_center) != 0) m->Release();
}

json ProductHost::Handle(const json& req) {
    if (!req.is_object() || !req.contains("cmd") || !req["cmd"].is_string())
        return Fail("request needs a \"cmd\" string");
    if (!m_started || !m_host) return Fail("plug-in not running");
    const std::string cmd = req["cmd"].get<std::string>();
    try {
        if (cmd == "query") return Query(req);
        if (cmd == "mgr") {
            if (!req.contains("function_id") || !req["function_id"].is_number_integer())
                return Fail("mgr needs an integer \"function_id\"");
            return Manage(req["function_id"].get<int>());
        }
        if (cmd == "publish") return Publish(req);
        if (cmd == "stats") return Stats();
    } catch (const json::exception& e) {
        return Fail(std::string("bad request: ") + e.what());
    }
    return Fail("unknown cmd \"" + cmd + "\" (query, mgr, publish, stats)");
}

json ProductHost::Query(const json& req) {
    if (!req.contains("function") || !req["function"].is_number_integer())
        return Fail("query needs an integer \"function\"");
    const int function = req["function"].get<int>();
    const char* keyColumn = QueryKeyColumn(function);
    if (keyColumn == nullptr) return Fail("query function is one of 620200, 620201, 620205, 620207");
    const int resultType = req.value("result_type", 1);
    const int timeoutMs = req.value("timeout_ms", 3000);
    std::vector<std::string> keys;
    if (req.contains("keys")) {
        if (!req["keys"].is_array()) return Fail("\"keys\" is an array of strings");
        for (const auto& k : req["keys"]) {
            if (!k.is_string()) return Fail("\"keys\" is an array of strings");
            keys.push_back(Utf8ToGbk(k.get<std::string>()));
        }
    }
    if (keys.empty()) {
        if (function != 620207) return Fail("query needs at least one key");
        keys.push_back("");  // an empty exchange code asks for every exchange
    }
    std::vector<std::vector<hostemu::PackCell>> rows;
    for (const auto& k : keys) rows.push_back({resultType, k});
    auto body = hostemu::EncodePacked(hostemu::MakeBody(33, {"result_type", keyColumn}, rows));

    const int id = m_nextPacketId++;
    hostemu::MessageSpec fields{function, 0};
    fields.packetId = id;
    fields.body.assign(body.begin(), body.end());
    {
        std::lock_guard<std::mutex> lock(m_waitMutex);
        m_waiting.insert(id);
    }
    ++m_queries;
    IESBMessage* msg = hostemu::BuildMessage(m_host->Factory(), fields);
    int rc = m_host->Service()->PostMsg(msg, &m_client);
    if (rc != 0) msg->Release();

    std::unique_lock<std::mutex> lock(m_waitMutex);
    bool got = rc == 0 && m_waitCond.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                                               [&] { return m_answers.count(id) != 0; });
    json out;
    if (got) {
        out = {{"ok", true}, {"answer", MessageToJson(*m_answers[id])}};
    } else if (rc != 0) {
        out = Fail("plug-in refused the request (" + std::to_string(rc) + ")");
    } else {
        out = Fail("no answer within " + std::to_string(timeoutMs) + " ms");
    }
    m_answers.erase(id);
    m_waiting.erase(id);
    return out;
}

json ProductHost::Manage(int functionId) {
    std::lock_guard<std::mutex> lock(m_mgrMutex);
    IKnown* known = nullptr;
    IKnown* instance = m_host->Loader().Instance();
    if (instance != nullptr) instance->QueryInterface(SID_MANAGER, &known);
    if (known == nullptr)
        return Fail("the plug-in offers no manager facet");
    auto* manager = static_cast<IManager*>(known);
    IF2UnPacker* request = m_host->PackSvr().GetUnPacker(1);
    IF2Packer* answer = m_host->PackSvr().GetPacker(1);
    if (request == nullptr || answer == nullptr) {
        if (request) request->Release();
        if (answer) answer->Release();
        return Fail("no packer available");
    }
    auto reqBody = hostemu::EncodePacked(hostemu::MakeBody(1, {"function_id"}, {{functionId}}));
    json out;
    if (request->Open(reqBody.data(), static_cast<int>(reqBody.size())) != 0) {
        out = Fail("cannot pack the management request");
    } else {
        answer->BeginPack();
        int rc = manager->ProcMngRequest(request, answer);
        answer->EndPack();
        hostemu::PackedBody table;
        const void* buf = answer->GetPackBuf();
        int len = answer->GetPackLen();
        if (rc != 0) {
            out = Fail("management action " + std::to_string(functionId) + " failed (" + std::to_string(rc) + ")");
            out["result"] = rc;
        } else if (buf == nullptr || len <= 0 || hostemu::DecodePacked(buf, len, &table) != 0) {
            out = {{"ok", true}, {"result", rc}, {"table", {{"columns", json::array()}, {"rows", json::array()}}}};
        } else {
            out = {{"ok", true}, {"result", rc}, {"table", PackedToJson(table)}};
        }
        if (buf != nullptr) answer->FreeMem(answer->GetPackBuf());
    }
    request->Release();
    answer->Release();
    return out;
}

json ProductHost::Publish(const json& req) {
    if (!req.contains("issue_type") || !req["issue_type"].is_number_integer())
        return Fail("publish needs an integer \"issue_type\"");
    if (!req.contains("body")) return Fail("publish needs a \"body\"");
    const int version = req.value("version", 33);
    if (version != 1 && version != 33) return Fail("\"version\" is 1 or 33");
    hostemu::MessageSpec fields{kPublishFunction, 0};
    fields.issueType = req["issue_type"].get<int>();
    std::string error;
    hostemu::PackedBody body;
    if (!JsonToPacked(req["body"], version, &body, &error)) return Fail("body: " + error);
    auto bytes = hostemu::EncodePacked(body);
    fields.body.assign(bytes.begin(), bytes.end());
    if (req.contains("key") && !req["key"].is_null()) {
        hostemu::PackedBody key;
        if (!JsonToPacked(req["key"], version, &key, &error)) return Fail("key: " + error);
        auto kb = hostemu::EncodePacked(key);
        fields.key.assign(kb.begin(), kb.end());
    }
    if (req.contains("packet_id") && req["packet_id"].is_number_integer()) fields.packetId = req["packet_id"].get<int>();
    IESBMessage* msg = hostemu::BuildMessage(m_host->Factory(), fields);
    int rc = m_host->Service()->PostMsg(msg, &m_center);
    if (rc != 0) {
        msg->Release();
        return Fail("plug-in refused the publication (" + std::to_string(rc) + ")");
    }
    ++m_published;
    return {{"ok", true}};
}

json ProductHost::Stats() {
    json out = Manage(5);
    auto f = m_host->Factory().Stats();
    out["host"] = {{"lines_written", m_lines.load()},
                   {"to_center", m_center.Count()},
                   {"to_client", m_client.Count()},
                   {"registration_answers", m_registrations.load()},
                   {"subscription_answers", m_subscriptions.load()},
                   {"heartbeats_sent", m_heartbeats.load()},
                   {"queries", m_queries.load()},
                   {"publications_injected", m_published.load()},
                   {"messages_created", f.created},
                   {"messages_live", f.live}};
    if (m_nats) out["nats"] = m_nats->Stats();
    return out;
}

}  // namespace product
