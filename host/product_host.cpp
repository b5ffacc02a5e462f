#include "host/product_host.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <sstream>

#include <pugixml.hpp>

#include "host/product_json.h"

namespace product {

using json = nlohmann::ordered_json;

namespace {

constexpr int kPublishFunction = 620003;
constexpr int kSubscribeAnswerFunction = 620001;
constexpr int kMaxWaitMs = 600000;

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

int ProductHost::ReadConfig(std::string* xml, std::set<int>* subscribeFunctions, int* heartbeatMs) {
    pugi::xml_document doc;
    pugi::xml_parse_result r = doc.load_file(m_opt.configFile.c_str());
    if (!r) {
        m_error = "cannot read configuration " + m_opt.configFile + ": " + r.description();
        return -1;
    }
    pugi::xml_node root = doc.document_element();
    pugi::xml_node host = root.child("host");
    if (!host) host = root.append_child("host");
    *heartbeatMs = m_opt.heartbeatMs >= 0 ? m_opt.heartbeatMs : host.attribute("heartbeat_ms").as_int(0);
    // This program sends the heartbeats itself, from the center's side.
    if (!host.attribute("heartbeat_ms")) host.append_attribute("heartbeat_ms");
    host.attribute("heartbeat_ms").set_value(0);
    subscribeFunctions->insert(kSubscribeAnswerFunction);
    for (pugi::xml_node req : root.child("plugin").child("mc").children())
        if (req.attribute("functionno")) subscribeFunctions->insert(req.attribute("functionno").as_int());
    std::ostringstream out;
    doc.save(out, "", pugi::format_raw);
    *xml = out.str();
    return 0;
}

int ProductHost::Start() {
    if (m_started) return 0;
    hostemu::HostOptions o;
    o.pluginPath = m_opt.pluginPath;
    // A short quarantine: released messages come back while their memory is
    // still in the cache (the long one of the tests evicts it under a feed).
    o.quarantine = kQuarantine;
    o.logFile = m_opt.logFile;
    o.logStderr = m_opt.logStderr;
    std::set<int> subscribeFunctions;
    int heartbeatMs = 0;
    if (ReadConfig(&o.configXml, &subscribeFunctions, &heartbeatMs) != 0) return -1;

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
    m_host = std::make_unique<hostemu::HostEmulator>(o);
    m_host->Log().SetTap([this](const hostemu::LogLine& l) { m_observer.OnLogLine(l); });
    for (bool toCenter : {true, false})
        (toCenter ? m_centerOut : m_clientOut)
            .Start([this, toCenter](COutgoing& m) { OnPluginMessage(m, toCenter); },
                   [this, toCenter] { WriteLines(toCenter); }, [this](const std::string& text) { Log(text); },
                   toCenter && m_nats ? kBusLingerUs : 0);
    const std::set<int> functions = subscribeFunctions;
    m_role = std::make_unique<LocalCenter>(std::move(subscribeFunctions), heartbeatMs,
                                           [this](const hostemu::MessageSpec& s) {
                                               // On the bus the center is alive only while the
                                               // connection is up: no heartbeat without it.
                                               if (s.functionNo == 620000 && m_nats && !m_nats->Up()) return -1;
                                               return PostIn(s, &m_center);
                                           });
    int rc = m_host->Load();
    if (rc == 0) {
        // The plug-in's neighbours are this program's endpoints.
        m_host->Service()->RegisterPrevService(&m_center);
        m_host->Service()->RegisterNextService(&m_client);
        rc = AttachBus(functions);
        if (rc == 0) rc = m_host->Init();
    }
    if (rc == 0) rc = m_host->Start();
    if (rc != 0) {
        m_error = m_nats && !m_nats->Error().empty()
                      ? m_nats->Error()
                      : "plug-in start failed (" + std::to_string(rc) + "): " + m_host->Error();
        m_role->Stop();
        if (m_nats) m_nats->Stop();
        m_host->Shutdown();
        m_centerOut.Stop();  // gives the plug-in's last messages back before the factory goes
        m_clientOut.Stop();
        m_host.reset();
        m_role.reset();
        m_nats.reset();
        return rc < 0 ? rc : -rc;
    }
    m_started = true;
    m_role->Start();
    return 0;
}

int ProductHost::AttachBus(const std::set<int>& subscribeFunctions) {
    if (!m_nats) return 0;
    // The bus takes the plug-in's first subscription requests already.
    CNatsCenter::Context ctx;
    ctx.factory = &m_host->Factory();
    ctx.plugin = m_host->Service();
    ctx.center = &m_center;
    ctx.client = &m_client;
    ctx.control = [this](const json& r) { return Handle(r); };
    ctx.subscribeFunctions = subscribeFunctions;
    return m_nats->Attach(ctx) == 0 ? 0 : -1;
}

int ProductHost::StartBus(const std::string& configXml) {
    NatsSettings settings;
    if (!ReadNatsSettings(configXml, m_opt.natsUrl, &settings, &m_error)) return -1;
    if (settings.url.empty()) return 0;
    m_nats = std::make_unique<CNatsCenter>(settings, [this](const std::string& text) { Log(text); });
    if (m_nats->Connect() != 0) {
        m_error = m_nats->Error();
        m_nats.reset();
        return -1;
    }
    return 0;
}

void ProductHost::Log(const std::string& text) {
    hostemu::HostEmulator* host = m_host.get();
    if (host != nullptr) {
        host->Log().AddLog("tikron-host", 0, text.c_str());
    } else {
        fprintf(stderr, "tikron-host: %s\n", text.c_str());
    }
}

void ProductHost::Stop() {
    if (m_role) m_role->Stop();
    if (m_nats) m_nats->Stop();  // nothing more from the bus into a stopping plug-in
    if (m_host) m_host->Shutdown();
    m_centerOut.Stop();  // writes the last lines, gives the messages back
    m_clientOut.Stop();
    m_host.reset();
    m_role.reset();
    m_started = false;
    if (m_out != nullptr) {
        if (m_ownOut) fclose(m_out);
        m_out = nullptr;
    }
}

bool ProductHost::BusHealth(NatsHealth* out) const {
    if (!m_nats) return false;
    *out = m_nats->Health();
    return true;
}

int ProductHost::PostIn(const hostemu::MessageSpec& msgFields, IMessageService* from) {
    IMessageService* svc = m_host ? m_host->Service() : nullptr;
    if (svc == nullptr) return -1;
    IESBMessage* msg = hostemu::BuildMessage(m_host->Factory(), msgFields);
    const int rc = svc->PostMsg(msg, from);
    if (rc != 0) msg->Release();
    m_observer.OnPostedIn(msgFields.functionNo, rc);
    return rc;
}

void ProductHost::OnPluginMessage(COutgoing& msg, bool toCenter) {
    if (toCenter) m_observer.OnToCenter(msg);
    // The bus first: an answer to a request that came over it gets the
    // requester's packet id back, and the line shows it so.
    const bool taken = toCenter && m_nats && m_nats->OnPluginMessage(msg);
    if (m_out != nullptr) {
        Lines& lines = m_lanes[toCenter ? 1 : 0];
        lines.text += msg.Line();
        lines.text.push_back('\n');
        ++lines.count;
    }
    {
        std::lock_guard<std::mutex> lock(m_watchMutex);
        if (!m_watches.empty()) {
            const json line = json::parse(msg.Line());
            const bool answer = msg.Int(3) == 1;
            for (Watch* w : m_watches) {
                w->lines.push_back(line);
                if (answer && msg.Int(5) == w->function && msg.Int(11) == w->packetId) w->answer = line;
            }
            m_watchCond.notify_all();
        }
    }
    if (toCenter && !taken && m_role) m_role->FromPlugin(msg);
}

void ProductHost::WriteLines(bool toCenter) {
    Lines& lines = m_lanes[toCenter ? 1 : 0];
    if (m_out == nullptr || lines.text.empty()) return;
    {
        std::lock_guard<std::mutex> lock(m_outMutex);
        if (fwrite(lines.text.data(), 1, lines.text.size(), m_out) != lines.text.size() || fflush(m_out) != 0)
            Log(std::string("cannot write the publication lines: ") + strerror(errno));
    }
    m_lines += lines.count;
    lines.count = 0;
    lines.text.clear();
}

ProductHost::Exchange ProductHost::PostAndCollect(const hostemu::MessageSpec& msgFields, bool fromClient, int waitMs) {
    Watch watch;
    watch.function = msgFields.functionNo;
    watch.packetId = msgFields.packetId;
    {
        std::lock_guard<std::mutex> lock(m_watchMutex);
        m_watches.insert(&watch);
    }
    if (!fromClient && m_role) m_role->ToPlugin(msgFields);
    Exchange out;
    out.rc = PostIn(msgFields, fromClient ? static_cast<IMessageService*>(&m_client) : &m_center);
    std::unique_lock<std::mutex> lock(m_watchMutex);
    if (out.rc == 0)
        m_watchCond.wait_for(lock, std::chrono::milliseconds(waitMs), [&] { return !watch.answer.is_null(); });
    m_watches.erase(&watch);
    out.answer = std::move(watch.answer);
    out.messages = std::move(watch.lines);
    return out;
}

json ProductHost::Handle(const json& req) {
    if (!req.is_object() || !req.contains("cmd") || !req["cmd"].is_string())
        return Fail("request needs a \"cmd\" string");
    if (!m_started || !m_host) return Fail("plug-in not running");
    const std::string cmd = req["cmd"].get<std::string>();
    try {
        if (cmd == "send") return Send(req, 0, 500);
        if (cmd == "query") return Query(req);
        if (cmd == "publish") return Send(req, kPublishFunction, 0);
        if (cmd == "pending") return Pending();
        if (cmd == "mgr") {
            if (!req.contains("function_id") || !req["function_id"].is_number_integer())
                return Fail("mgr needs an integer \"function_id\"");
            return Manage(req["function_id"].get<int>());
        }
        if (cmd == "stats") return Stats();
    } catch (const json::exception& e) {
        return Fail(std::string("bad request: ") + e.what());
    }
    return Fail("unknown cmd \"" + cmd + "\" (send, query, publish, pending, mgr, stats)");
}

// function != 0: the message's function is fixed (publish: 620003, packet
// type 0, issue type and body required).
json ProductHost::Send(const json& req, int function, int defaultWaitMs) {
    hostemu::MessageSpec msgFields;
    msgFields.packetId = m_nextPacketId++;
    std::string error;
    if (!JsonToMessage(req, &msgFields, &error)) return Fail(error);
    if (function != 0) {
        if (msgFields.issueType < 0) return Fail("publish needs an integer \"issue_type\"");
        if (!req.contains("body")) return Fail("publish needs a \"body\"");
        msgFields.functionNo = function;
        msgFields.packetType = 0;
    } else if (!req.contains("function") || !req["function"].is_number_integer()) {
        return Fail("send needs an integer \"function\"");
    }
    const std::string from = req.value("from", std::string("center"));
    if (from != "center" && from != "client") return Fail("\"from\" is \"center\" or \"client\"");
    const int waitMs = req.value("wait_ms", defaultWaitMs);
    if (waitMs < 0 || waitMs > kMaxWaitMs) return Fail("\"wait_ms\" is 0.." + std::to_string(kMaxWaitMs));

    Exchange ex = PostAndCollect(msgFields, from == "client", waitMs);
    if (ex.rc != 0) return Fail("plug-in refused the message (" + std::to_string(ex.rc) + ")");
    ++(function == kPublishFunction ? m_published : m_sent);
    return {{"ok", true}, {"packet_id", msgFields.packetId}, {"answer", ex.answer}, {"messages", ex.messages}};
}

json ProductHost::Query(const json& req) {
    if (!req.contains("function") || !req["function"].is_number_integer())
        return Fail("query needs an integer \"function\"");
    const int function = req["function"].get<int>();
    const char* keyColumn = QueryKeyColumn(function);
    if (keyColumn == nullptr) return Fail("query function is one of 620200, 620201, 620205, 620207");
    const int resultType = req.value("result_type", 1);
    const int timeoutMs = req.value("timeout_ms", 3000);
    if (timeoutMs < 0 || timeoutMs > kMaxWaitMs) return Fail("\"timeout_ms\" is 0.." + std::to_string(kMaxWaitMs));
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

    hostemu::MessageSpec msgFields{function, 0};
    msgFields.packetId = m_nextPacketId++;
    msgFields.body.assign(body.begin(), body.end());
    ++m_queries;
    Exchange ex = PostAndCollect(msgFields, /*fromClient*/ true, timeoutMs);
    if (ex.rc != 0) return Fail("plug-in refused the request (" + std::to_string(ex.rc) + ")");
    if (ex.answer.is_null()) return Fail("no answer within " + std::to_string(timeoutMs) + " ms");
    return {{"ok", true}, {"answer", ex.answer}};
}

json ProductHost::Pending() {
    json lines = json::array();
    for (const auto& m : m_role->Pending()) lines.push_back(MessageToJson(m));
    return {{"ok", true}, {"requests", lines}};
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

json ProductHost::Stats() {
    json out = Manage(5);
    auto f = m_host->Factory().Stats();
    json host = {{"lines_written", m_lines.load()}, {"to_center", m_center.Count()}, {"to_client", m_client.Count()},
                 {"writer_dropped", m_centerOut.Dropped() + m_clientOut.Dropped()},
                 {"writer_high_water", std::max(m_centerOut.HighWater(), m_clientOut.HighWater())}};
    const json role = m_role->Counters();
    for (const auto& c : role.items()) host[c.key()] = c.value();
    host["queries"] = m_queries.load();
    host["publications_injected"] = m_published.load();
    host["messages_sent"] = m_sent.load();
    host["messages_created"] = f.created;
    host["messages_live"] = f.live;
    out["host"] = host;
    if (m_nats) out["nats"] = m_nats->Stats();
    return out;
}

}  // namespace product
