// Support of the NATS process tests: a nats-server on a free 127.0.0.1
// port (stopped, and its directory removed, by the destructor), node
// configurations, and snapshot tables compared without file positions.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <set>
#include <string>
#include <vector>

#include "tests/product_support.h"

namespace ntest {

using ptest::json;

inline std::string ServerBinary() {
    for (const char* p : {"/usr/sbin/nats-server", "/usr/bin/nats-server", "/usr/local/bin/nats-server"})
        if (access(p, X_OK) == 0) return p;
    return "nats-server";
}

inline int FreePort() {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t n = sizeof a;
    int port = 0;
    if (bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
        getsockname(fd, reinterpret_cast<sockaddr*>(&a), &n) == 0)
        port = ntohs(a.sin_port);
    close(fd);
    return port;
}

inline bool Accepting(int port) {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bool ok = connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
    close(fd);
    return ok;
}

class NatsServer {
public:
    NatsServer() : port_(FreePort()) { Start(); }
    ~NatsServer() { Stop(); }
    std::string Url() const { return "nats://127.0.0.1:" + std::to_string(port_); }
    bool Start() {
        proc_.Start({ServerBinary(), "-a", "127.0.0.1", "-p", std::to_string(port_)}, dir_.path(), dir_ / "out",
                    dir_ / "err");
        return ptest::WaitUntil([&] { return Accepting(port_); }, 10000);
    }
    void Stop() {
        proc_.Signal(SIGTERM);
        if (proc_.Wait(5000) == -1) proc_.Signal(SIGKILL);
        proc_.Wait(5000);
    }

private:
    int port_;
    ptest::TempDir dir_;
    ptest::Process proc_;
};

// A node configuration: identity n#id, UDP port (0: no receiver), the mc
// requests given as XML, the bus settings as attributes of <host>.
inline std::string NodeConfig(const ptest::TempDir& dir, int id, int udpPort, const std::string& mc,
                              const std::string& hostAttrs = "") {
    std::string xml = "<tikron><pub><node AppName=\"n\" AppID=\"" + std::to_string(id) +
                      "\" SvrName=\"s\" SvrID=\"1\"/></pub><plugin><args enableudprecv=\"" +
                      (udpPort > 0 ? "1" : "0") + "\" port=\"" + std::to_string(udpPort) +
                      "\" heartbeattimeout=\"2\" subscibetomc=\"1\"/><convert><convert33101to23>1</convert33101to23>"
                      "</convert><mc>" + mc + "</mc></plugin><host heartbeat_ms=\"300\" log_file=\"host.log\" " +
                      hostAttrs + "/></tikron>";
    std::string path = dir / "node.xml";
    ptest::WriteFile(path, xml);
    return path;
}

inline std::string McRequest(int function, int issueType, const std::string& param, const std::string& value) {
    return "<request issuetype=\"" + std::to_string(issueType) + "\" functionno=\"" + std::to_string(function) +
           "\" note=\"r" + std::to_string(function) + "_" + std::to_string(issueType) + "\"><param name=\"" + param +
           "\" value=\"" + value + "\"/></request>";
}

// The four synchronisation requests (raw answers) and one subscription, so
// the node counts as subscribed and does not repeat its answered requests.
inline std::string SyncRequests() {
    std::string mc = McRequest(620001, 24, "issue_type", "24");
    for (int f : {620202, 620203, 620204, 620206}) mc += McRequest(f, 0, "result_type", "0");
    return mc;
}

constexpr const char* kTables[] = {"tikron_", "tikron_ex_", "tikronarg_", "futuexchstatus_"};

// A snapshot file's records without their file positions, sorted.
inline std::multiset<std::string> Table(const ptest::TempDir& dir, const std::string& kind, int id) {
    std::string out;
    static const std::string dump = access(ptest::Bin("tikron-dbdump").c_str(), X_OK) == 0
                                        ? ptest::Bin("tikron-dbdump")
                                        : ptest::Bin("tools/dbdump/tikron-dbdump");
    ptest::RunProgram({dump, dir / (kind + "n#" + std::to_string(id) + ".db"),
                       "--json"},
                      &out);
    std::multiset<std::string> rows;
    std::istringstream in(out);
    for (std::string line; std::getline(in, line);) {
        json j = json::parse(line, nullptr, false);
        if (j.is_discarded() || j.contains("slots")) continue;
        for (const char* k : {"slot", "iRecordNo", "iCrc"}) j.erase(k);
        rows.insert(j.dump());
    }
    return rows;
}

// "" once every table of node `id` equals node 1's in dirA (and not all
// are empty), else which table differs.
inline std::string SameTables(const ptest::TempDir& dirA, const ptest::TempDir& dir, int id, int ms) {
    std::string why;
    ptest::WaitUntil([&] {
        size_t rows = 0;
        for (const char* t : kTables) {
            auto a = Table(dirA, t, 1), b = Table(dir, t, id);
            why = std::string(t) + ": " + std::to_string(a.size()) + " rows against " + std::to_string(b.size());
            if (a != b) return false;
            rows += a.size();
        }
        why = "no rows";
        if (rows == 0) return false;
        why.clear();
        return true;
    }, ms);
    return why;
}

inline json NodeStats(const std::string& sock) { return ptest::Control(sock, {{"cmd", "stats"}}); }

}  // namespace ntest
