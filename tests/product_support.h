// Helpers of the process tests: temporary working directories, spawning the
// built programs, waiting with bounds, reading JSON lines.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "host/product_control.h"
#include "testing/temp_dir.h"

namespace ptest {

using json = nlohmann::ordered_json;
using Clock = std::chrono::steady_clock;

inline std::string Bin(const std::string& name) { return std::string(TIKRON_BINARY_DIR) + "/" + name; }
inline std::string Source(const std::string& rel) { return std::string(TIKRON_SOURCE_DIR) + "/" + rel; }

using testing_support::ReadFile;
using testing_support::TempDir;
using testing_support::WaitUntil;
using testing_support::WriteFile;

// A UDP port derived from the process id, different per test binary.
inline int PickPort(int salt) { return 22000 + static_cast<int>((getpid() * 7 + salt * 131) % 20000); }

// A configuration file (conf/tikron.xml by default) with the UDP port
// changed and each edit's first text replaced by its second.
inline std::string Config(const std::string& dir, int port, const std::string& base = "conf/tikron.xml",
                          const std::vector<std::pair<std::string, std::string>>& edits = {}) {
    std::string xml = ReadFile(Source(base));
    size_t p = xml.find("port=\"9090\"");
    if (p != std::string::npos) xml.replace(p, 11, "port=\"" + std::to_string(port) + "\"");
    for (const auto& e : edits) {
        p = xml.find(e.first);
        EXPECT_NE(std::string::npos, p) << e.first;
        if (p != std::string::npos) xml.replace(p, e.first.size(), e.second);
    }
    std::string path = dir + "/tikron.xml";
    WriteFile(path, xml);
    return path;
}

// A child process with stdout and stderr sent to files.
class Process {
public:
    Process() = default;
    Process(const std::vector<std::string>& argv, const std::string& cwd, const std::string& out,
            const std::string& err) {
        Start(argv, cwd, out, err);
    }
    ~Process() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    void Start(const std::vector<std::string>& argv, const std::string& cwd, const std::string& out,
               const std::string& err) {
        pid_ = fork();
        if (pid_ == 0) {
            if (!cwd.empty() && chdir(cwd.c_str()) != 0) _exit(126);
            int o = open(out.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
            int e = open(err.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
            if (o < 0 || e < 0) _exit(126);
            dup2(o, 1);
            dup2(e, 2);
            std::vector<char*> args;
            for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
            args.push_back(nullptr);
            execv(args[0], args.data());
            _exit(127);
        }
    }
    pid_t pid() const { return pid_; }
    bool Running() {
        if (pid_ <= 0) return false;
        int st = 0;
        pid_t r = waitpid(pid_, &st, WNOHANG);
        if (r == pid_) {
            status_ = st;
            pid_ = -1;
            return false;
        }
        return true;
    }
    void Signal(int sig) {
        if (pid_ > 0) kill(pid_, sig);
    }
    // Waits up to ms for the exit; the wait status, or -1 when still running.
    int Wait(int ms) {
        auto end = Clock::now() + std::chrono::milliseconds(ms);
        while (Running()) {
            if (Clock::now() > end) return -1;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return status_;
    }

private:
    pid_t pid_ = -1;
    int status_ = -1;
};

// Every complete JSON line of a file (a torn last line is skipped).
inline std::vector<json> JsonLines(const std::string& path) {
    std::vector<json> out;
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) {
        json j = json::parse(line, nullptr, false);
        if (!j.is_discarded()) out.push_back(std::move(j));
    }
    return out;
}

inline json Control(const std::string& sock, const json& req, int timeoutMs = 20000) {
    json answer;
    std::string error;
    if (!product::ControlRequest(sock, req, &answer, &error, timeoutMs)) return {{"ok", false}, {"error", error}};
    return answer;
}

// A tikron-host in its own working directory with a control socket.
struct HostRun {
    HostRun(const TempDir& dir, const std::string& config, const std::vector<std::string>& extra = {})
        : sock(dir / "ctl.sock"), pubs(dir / "pubs.jsonl"), err(dir / "host.err") {
        std::vector<std::string> argv = {Bin("tikron-host"), "--config", config, "--control", sock,
                                         "--publications", pubs};
        argv.insert(argv.end(), extra.begin(), extra.end());
        proc.Start(argv, dir.path(), dir / "host.out", err);
    }
    // True once the control socket answers.
    bool Ready(int ms = 30000) {
        return WaitUntil([&] { return proc.Running() && Control(sock, {{"cmd", "mgr"}, {"function_id", 0}}, 2000).value("ok", false); }, ms);
    }
    std::string sock, pubs, err;
    Process proc;
};

// Runs a program to completion (bounded); its exit status, output in *out.
inline int RunProgram(const std::vector<std::string>& argv, std::string* out, int ms = 60000, std::string* err = nullptr) {
    static int serial = 0;
    char base[64];
    snprintf(base, sizeof base, "/tmp/tikron-prun.%d.%d", static_cast<int>(getpid()), ++serial);
    std::string o = std::string(base) + ".out", e = std::string(base) + ".err";
    int st;
    {
        Process p(argv, "", o, e);
        st = p.Wait(ms);
        if (st == -1) p.Signal(SIGKILL);
    }
    if (out) *out = ReadFile(o);
    if (err) *err = ReadFile(e);
    unlink(o.c_str());
    unlink(e.c_str());
    if (st == -1) return -1;
    return WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
}

// tikron-ctl with the given arguments against a control socket.
inline int Ctl(const std::string& sock, const std::vector<std::string>& args, std::string* out,
               std::string* err = nullptr) {
    std::vector<std::string> argv = {Bin("tikron-ctl"), "--control", sock};
    argv.insert(argv.end(), args.begin(), args.end());
    return RunProgram(argv, out, 60000, err);
}

// GET http://127.0.0.1:port/path: the status code and body in *body; -1
// when the connection fails.
inline int HttpGet(int port, const std::string& path, std::string* body) {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    timeval tv{10, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::string reply;
    if (connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0) {
        const std::string req = "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n";
        if (send(fd, req.data(), req.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(req.size())) {
            char buf[65536];
            for (ssize_t n; (n = recv(fd, buf, sizeof buf, 0)) > 0;) reply.append(buf, static_cast<size_t>(n));
        }
    }
    close(fd);
    const size_t end = reply.find("\r\n\r\n");
    if (reply.compare(0, 9, "HTTP/1.1 ") != 0 || end == std::string::npos) return -1;
    if (body) *body = reply.substr(end + 4);
    return atoi(reply.c_str() + 9);
}

// A tikron-host started with --metrics 127.0.0.1:0: the port it reports.
inline int MetricsPort(HostRun& host) {
    int port = 0;
    WaitUntil([&] {
        const std::string err = ReadFile(host.err);
        const size_t p = err.find("quote board on port ");
        if (p != std::string::npos) port = atoi(err.c_str() + p + 20);
        return port > 0;
    }, 30000);
    return port;
}

// Hex string to bytes (publication raw columns).
inline std::string Unhex(const std::string& hex) {
    std::string out;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) out.push_back(static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return out;
}

}  // namespace ptest
