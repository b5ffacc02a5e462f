// tikron-host's web port (--metrics ADDR:PORT): Prometheus text at /metrics
// through prometheus-cpp's pull exposer, and on the same civetweb server
// the live quote board at / with its JSON under /api/ (served from the
// exposer's begin_request callback, so one port carries all).
//
//   /api/stats     the figures (host/product_figures.h) and the ingest rate
//   /api/rate      datagrams per second, one sample a second, last 10 minutes
//   /api/tables    management dumps 1-4 (single-leg, extended, arbitrage,
//                  exchange status) as {"columns":[...],"rows":[...]}
//   /api/table/N   one of them
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

struct mg_connection;
namespace prometheus {
class Exposer;
class Collectable;
}  // namespace prometheus

namespace product {

class ProductHost;

class CWebBoard {
public:
    explicit CWebBoard(ProductHost& host);
    ~CWebBoard();  // Stop()
    CWebBoard(const CWebBoard&) = delete;
    CWebBoard& operator=(const CWebBoard&) = delete;

    // Listens on "ADDR:PORT" (port 0: any free port). One board per process.
    // 0, or -1 with Error().
    int Start(const std::string& address);
    void Stop();
    const std::string& Error() const { return m_error; }
    int Port() const { return m_port; }

    // The answer to GET path: status, content type and body; status 0 when
    // the path is not the board's (left to the exposer).
    struct Reply {
        int status = 0;
        std::string type, body;
    };
    Reply Serve(const std::string& path);

private:
    static int BeginRequest(mg_connection* conn);
    void SampleLoop();
    nlohmann::ordered_json Rate() const;

    ProductHost& m_host;
    std::string m_error;
    int m_port = 0;
    std::shared_ptr<prometheus::Collectable> m_collectable;
    std::unique_ptr<prometheus::Exposer> m_exposer;

    // Ingest samples: (unix ms, datagrams received so far), one a second.
    mutable std::mutex m_mutex;
    std::condition_variable m_cond;
    std::deque<std::pair<int64_t, uint64_t>> m_samples;
    bool m_stop = false;
    std::thread m_sampler;
};

}  // namespace product
