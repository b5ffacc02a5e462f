// Control socket of tikron-host: a Unix domain stream socket carrying JSON
// lines. Each request line gets exactly one answer line; a connection may
// carry any number of requests. Requests are served one at a time.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include <nlohmann/json.hpp>

namespace product {

class ControlServer {
public:
    using Handler = std::function<nlohmann::ordered_json(const nlohmann::ordered_json&)>;
    explicit ControlServer(Handler handler) : m_handler(std::move(handler)) {}
    ~ControlServer() { Stop(); }
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

    // Binds the socket (replacing a stale socket file) and starts serving;
    // 0, or -1 with Error().
    int Start(const std::string& path);
    void Stop();  // stops within about 200 ms, removes the socket file
    const std::string& Error() const { return m_error; }

    // Longest accepted request line; longer lines are answered with an error.
    static constexpr size_t kMaxLine = 4 << 20;

private:
    void Serve();
    void ServeClient(int fd);
    std::string Answer(const std::string& line);

    Handler m_handler;
    std::string m_path, m_error;
    int m_fd = -1;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

// Client side, used by tikron-ctl and the tests: one request, one answer.
// Returns false with a reason when the host cannot be reached or answers
// nothing within timeoutMs.
bool ControlRequest(const std::string& path, const nlohmann::ordered_json& request, nlohmann::ordered_json* answer,
                    std::string* error, int timeoutMs = 10000);

}  // namespace product
