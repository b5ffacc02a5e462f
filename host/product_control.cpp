#include "host/product_control.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace product {

using json = nlohmann::ordered_json;

namespace {

bool FillAddress(const std::string& path, sockaddr_un* addr, std::string* error) {
    memset(addr, 0, sizeof *addr);
    addr->sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof addr->sun_path) {
        *error = "socket path must be 1.." + std::to_string(sizeof addr->sun_path - 1) + " characters";
        return false;
    }
    memcpy(addr->sun_path, path.data(), path.size());
    return true;
}

bool SendAll(int fd, const std::string& data) {
    size_t done = 0;
    while (done < data.size()) {
        ssize_t n = send(fd, data.data() + done, data.size() - done, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

int ControlServer::Start(const std::string& path) {
    sockaddr_un addr;
    if (!FillAddress(path, &addr, &m_error)) return -1;
    m_fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (m_fd < 0) {
        m_error = std::string("socket: ") + strerror(errno);
        return -1;
    }
    // A socket file nobody listens on is left over from a killed host.
    int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (probe >= 0) {
        if (connect(probe, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0) {
            close(probe);
            close(m_fd);
            m_fd = -1;
            m_error = "another host is serving " + path;
            return -1;
        }
        close(probe);
    }
    unlink(path.c_str());
    if (bind(m_fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 || listen(m_fd, 16) != 0) {
        m_error = "bind " + path + ": " + strerror(errno);
        close(m_fd);
        m_fd = -1;
        return -1;
    }
    m_path = path;
    m_stop = false;
    m_thread = std::thread([this] { Serve(); });
    return 0;
}

void ControlServer::Stop() {
    m_stop = true;
    if (m_thread.joinable()) m_thread.join();
    if (m_fd >= 0) {
        close(m_fd);
        m_fd = -1;
        unlink(m_path.c_str());
    }
}

void ControlServer::Serve() {
    while (!m_stop) {
        pollfd p{m_fd, POLLIN, 0};
        if (poll(&p, 1, 100) <= 0) continue;
        int c = accept4(m_fd, nullptr, nullptr, SOCK_CLOEXEC);
        if (c < 0) continue;
        ServeClient(c);
        close(c);
    }
}

void ControlServer::ServeClient(int fd) {
    std::string buffer;
    char chunk[65536];
    // A client that stays silent for 10 s is dropped, so one stuck client
    // cannot block the others forever.
    auto last = std::chrono::steady_clock::now();
    while (!m_stop) {
        pollfd p{fd, POLLIN, 0};
        int pr = poll(&p, 1, 100);
        if (pr == 0) {
            if (std::chrono::steady_clock::now() - last > std::chrono::seconds(10)) return;
            continue;
        }
        if (pr < 0) {
            if (errno == EINTR) continue;
            return;
        }
        ssize_t n = recv(fd, chunk, sizeof chunk, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        last = std::chrono::steady_clock::now();
        buffer.append(chunk, static_cast<size_t>(n));
        size_t pos;
        while ((pos = buffer.find('\n')) != std::string::npos) {
            std::string line = buffer.substr(0, pos);
            buffer.erase(0, pos + 1);
            if (!SendAll(fd, Answer(line) + "\n")) return;
        }
        if (buffer.size() > kMaxLine) {
            SendAll(fd, json({{"ok", false}, {"error", "request line too long"}}).dump() + "\n");
            return;
        }
    }
}

std::string ControlServer::Answer(const std::string& line) {
    json req = json::parse(line, nullptr, false);
    json out;
    if (req.is_discarded()) {
        out = {{"ok", false}, {"error", "request is not valid JSON"}};
    } else {
        try {
            out = m_handler(req);
        } catch (const std::exception& e) {
            out = {{"ok", false}, {"error", std::string("request failed: ") + e.what()}};
        }
    }
    return out.dump(-1, ' ', false, json::error_handler_t::replace);
}

bool ControlRequest(const std::string& path, const json& request, json* answer, std::string* error,
                    int timeoutMs) {
    sockaddr_un addr;
    if (!FillAddress(path, &addr, error)) return false;
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        *error = std::string("socket: ") + strerror(errno);
        return false;
    }
    if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
        *error = "cannot reach tikron-host at " + path + ": " + strerror(errno);
        close(fd);
        return false;
    }
    if (!SendAll(fd, request.dump(-1, ' ', false, json::error_handler_t::replace) + "\n")) {
        *error = "cannot send the request";
        close(fd);
        return false;
    }
    std::string buffer;
    char chunk[65536];
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    size_t pos;
    while ((pos = buffer.find('\n')) == std::string::npos) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            *error = "no answer from tikron-host within " + std::to_string(timeoutMs) + " ms";
            close(fd);
            return false;
        }
        pollfd p{fd, POLLIN, 0};
        int pr = poll(&p, 1, static_cast<int>(left.count()));
        if (pr < 0 && errno == EINTR) continue;
        if (pr <= 0) continue;
        ssize_t n = recv(fd, chunk, sizeof chunk, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            *error = "tikron-host closed the connection";
            close(fd);
            return false;
        }
        buffer.append(chunk, static_cast<size_t>(n));
    }
    close(fd);
    *answer = json::parse(buffer.substr(0, pos), nullptr, false);
    if (answer->is_discarded()) {
        *error = "the answer is not valid JSON";
        return false;
    }
    return true;
}

}  // namespace product
