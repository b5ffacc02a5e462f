#include "host/product_web.h"

#include <chrono>
#include <cstring>

#include <CivetServer.h>
#include <civetweb.h>
#include <prometheus/collectable.h>
#include <prometheus/exposer.h>

#include "host/product_figures.h"
#include "host/product_host.h"
#include "host/product_json.h"
#include "host/product_metrics.h"
#include "kos/kavle2.h"

namespace product {

extern const char kBoardPage[];

using json = nlohmann::ordered_json;

namespace {

constexpr size_t kSamples = 600;  // ten minutes, one a second

// civetweb's callbacks carry no pointer of ours: the one board of the process.
std::atomic<CWebBoard*> g_board{nullptr};

class FiguresCollectable final : public prometheus::Collectable {
public:
    explicit FiguresCollectable(ProductHost& host) : m_host(host) {}
    std::vector<prometheus::MetricFamily> Collect() const override {
        return FiguresToFamilies(CollectFigures(m_host));
    }

private:
    ProductHost& m_host;
};

int64_t UnixMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

const char* const kTableNames[] = {"", "single_leg", "extended", "arbitrage", "exchange_status"};

}  // namespace

CWebBoard::CWebBoard(ProductHost& host) : m_host(host) {}

CWebBoard::~CWebBoard() { Stop(); }

int CWebBoard::Start(const std::string& address) {
    CWebBoard* none = nullptr;
    if (!g_board.compare_exchange_strong(none, this)) {
        m_error = "a web port is already open in this process";
        return -1;
    }
    CivetCallbacks callbacks;
    callbacks.begin_request = &CWebBoard::BeginRequest;
    try {
        // The options civetweb takes from the exposer; callbacks are copied.
        m_exposer = std::make_unique<prometheus::Exposer>(
            std::vector<std::string>{"listening_ports", address, "num_threads", "4"}, &callbacks);
    } catch (const std::exception& e) {
        g_board = nullptr;
        m_error = "cannot listen on " + address + ": " + e.what();
        return -1;
    }
    m_collectable = std::make_shared<FiguresCollectable>(m_host);
    m_exposer->RegisterCollectable(m_collectable);
    const std::vector<int> ports = m_exposer->GetListeningPorts();
    m_port = ports.empty() ? 0 : ports[0];
    m_sampler = std::thread([this] { SampleLoop(); });
    return 0;
}

void CWebBoard::Stop() {
    if (m_sampler.joinable()) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_stop = true;
        }
        m_cond.notify_all();
        m_sampler.join();
    }
    m_exposer.reset();  // joins civetweb's threads: no request runs after this
    if (g_board == this) g_board = nullptr;
}

void CWebBoard::SampleLoop() {
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_stop) {
        m_samples.emplace_back(UnixMs(), KAVLE2::GetUDPRecvTotals().received);
        while (m_samples.size() > kSamples + 1) m_samples.pop_front();
        m_cond.wait_for(lock, std::chrono::seconds(1), [this] { return m_stop; });
    }
}

json CWebBoard::Rate() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    json points = json::array();
    double peak = 0, last = 0;
    for (size_t i = 1; i < m_samples.size(); ++i) {
        const auto& [t0, n0] = m_samples[i - 1];
        const auto& [t1, n1] = m_samples[i];
        const double rate = t1 > t0 ? static_cast<double>(n1 - n0) * 1000.0 / static_cast<double>(t1 - t0) : 0.0;
        points.push_back({{"t", t1}, {"rate", rate}});
        if (rate > peak) peak = rate;
        last = rate;
    }
    return {{"interval_seconds", 1}, {"now", last}, {"peak", peak}, {"points", points}};
}

CWebBoard::Reply CWebBoard::Serve(const std::string& path) {
    auto asJson = [](int status, const json& j) { return Reply{status, "application/json", DumpLine(j)}; };
    if (path == "/" || path == "/index.html") return {200, "text/html; charset=utf-8", kBoardPage};
    if (path.rfind("/api/", 0) != 0) return {};
    if (path == "/api/stats") {
        json figures = CollectFigures(m_host);
        figures["rate"] = Rate();
        return asJson(200, figures);
    }
    if (path == "/api/rate") return asJson(200, Rate());
    if (path == "/api/tables") {
        json out = {{"ok", true}};
        for (int n = 1; n <= 4; ++n) out[kTableNames[n]] = m_host.Handle({{"cmd", "mgr"}, {"function_id", n}});
        return asJson(200, out);
    }
    if (path.size() == 12 && path.rfind("/api/table/", 0) == 0 && path[11] >= '1' && path[11] <= '4')
        return asJson(200, m_host.Handle({{"cmd", "mgr"}, {"function_id", path[11] - '0'}}));
    return asJson(404, {{"ok", false},
                        {"error", "unknown path " + path + " (/api/stats, /api/rate, /api/tables, /api/table/1..4)"}});
}

int CWebBoard::BeginRequest(mg_connection* conn) {
    CWebBoard* board = g_board.load();
    const mg_request_info* info = mg_get_request_info(conn);
    if (board == nullptr || info == nullptr || info->local_uri == nullptr) return 0;
    const bool head = info->request_method != nullptr && strcmp(info->request_method, "HEAD") == 0;
    const bool get = info->request_method != nullptr && strcmp(info->request_method, "GET") == 0;
    Reply reply;
    try {
        reply = board->Serve(info->local_uri);
    } catch (const std::exception& e) {
        reply = {500, "text/plain", std::string("error: ") + e.what()};
    }
    if (reply.status == 0) return 0;  // /metrics and the rest: the exposer's
    if (!get && !head) reply = {405, "text/plain", "GET only\n"};
    const char* reason = reply.status == 200 ? "OK" : reply.status == 404 ? "Not Found" : "Error";
    mg_printf(conn,
              "HTTP/1.1 %d %s\r\nContent-Type: %s\r\nContent-Length: %zu\r\nCache-Control: no-store\r\n"
              "Connection: close\r\n\r\n",
              reply.status, reason, reply.type.c_str(), reply.body.size());
    if (!head) mg_write(conn, reply.body.data(), reply.body.size());
    return reply.status;
}

}  // namespace product
