// The message center on NATS under load, with figures as ratios of the bus's
// own ceiling measured in the same run (one loopback nats-server, started
// here on a free port):
//   1. bus efficiency: loss-free UDP datagram rate of a tikron-host on the
//      bus times the NATS messages per datagram, against a plain libnats
//      publisher of the same messages (subjects and sizes of a sample of the
//      node's), and of messages of the same sizes on one subject (JSON form
//      off and on);
//   2. cross-node latency at 20,000 datagrams/s: UDP into node A until node
//      B has taken the quote in (B's conversion of it, 33100, heard on the
//      bus), beside plain libnats publish-to-deliver latency and the
//      in-process path (UDP into the plug-in until its publication reaches
//      the emulated center);
//   3. whole-table synchronisation of 10,000 contracts: a late node's start
//      until its tables hold every contract.
// Run: build/release/bench/nats_bus_bench [seconds-per-trial [efficiency [rate [off|on]]|latency|sync]]
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <nats/nats.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host/host_emulator.h"
#include "host/nats_bus.h"
#include "testing/temp_dir.h"
#include "tools/feed/synthetic_quotes.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kContracts = 500;
double g_trial = 2.0;
double g_fixedRate = 0;  // efficiency at this one rate only (profiling)

double Now() { return std::chrono::duration<double>(Clock::now().time_since_epoch()).count(); }

int FreePort(int type) {
    int fd = socket(AF_INET, type, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t n = sizeof a;
    bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a);
    getsockname(fd, reinterpret_cast<sockaddr*>(&a), &n);
    close(fd);
    return ntohs(a.sin_port);
}

pid_t Spawn(const std::vector<std::string>& argv, const std::string& cwd) {
    pid_t pid = fork();
    if (pid == 0) {
        if (chdir(cwd.c_str()) != 0) _exit(126);
        int null = open("/dev/null", O_WRONLY);
        dup2(null, 1);
        dup2(null, 2);
        std::vector<char*> args;
        for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        execv(args[0], args.data());
        _exit(127);
    }
    return pid;
}

void Kill(pid_t pid) {
    kill(pid, SIGTERM);
    waitpid(pid, nullptr, 0);
}

std::string NodeXml(const std::string& dir, int id, int udp, const std::string& url, const std::string& mc,
                    bool json) {
    std::string path = dir + "/node.xml";
    std::ofstream(path) << "<t><pub><node AppName=\"n\" AppID=\"" << id
                        << "\" SvrName=\"s\" SvrID=\"1\"/></pub><plugin><args enableudprecv=\"" << (udp ? 1 : 0)
                        << "\" port=\"" << udp << "\" subscibetomc=\"1\" heartbeattimeout=\"5\"/><convert>"
                        << "<convert22to33100>1</convert22to33100></convert><mc>" << mc
                        << "</mc></plugin><host heartbeat_ms=\"500\" log_file=\"host.log\" nats_url=\"" << url
                        << "\" nats_json=\"" << (json ? 1 : 0) << "\" nats_sync_peer=\"n#1\"/></t>";
    return path;
}

pid_t StartNode(const std::string& dir, const std::string& xml) {
    return Spawn({std::string(TIKRON_BINARY_DIR) + "/tikron-host", "--config", xml, "--publications", ""},
                 dir);
}

// Paced UDP sender of synthetic quotes. The datagrams are made before the
// trials (kRingPasses passes over the contracts, then sent again in turn),
// so the sender spends its CPU on sending only, like the plain publisher.
constexpr int kRingPasses = 8;
struct Sender {
    explicit Sender(int port) : Sender(port, feed::SyntheticQuotes(kContracts)) {}
    Sender(int port, feed::SyntheticQuotes q) : quotes(std::move(q)) {
        for (size_t i = 0; i < quotes.Contracts().size() * kRingPasses; ++i) ring.push_back(quotes.Next());
        fd = socket(AF_INET, SOCK_DGRAM, 0);
        to.sin_family = AF_INET;
        to.sin_port = htons(static_cast<uint16_t>(port));
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to);
    }
    ~Sender() { close(fd); }
    // Sends n datagrams at `rate` per second; stamps[i] is the send time.
    // Returns the rate achieved (below `rate` when sendto cannot keep up).
    // Without stamps the datagrams due by now go out in one sendmmsg on the
    // connected socket: the sender's system calls would otherwise take a
    // good part of the two cores the node and the server share with it.
    double Send(long n, double rate, std::vector<double>* stamps = nullptr) {
        const double start = Now();
        std::vector<mmsghdr> batch(kBatch);
        std::vector<iovec> iov(kBatch);
        for (long i = 0; i < n;) {
            // Paced in bursts of about 100 us, sleeping between them, so the
            // sender leaves the second core to the node and the server.
            const double due = start + i / rate;
            if (Now() < due) std::this_thread::sleep_for(std::chrono::duration<double>(due - Now() + 100e-6));
            if (stamps) {
                const std::string& d = ring[next++ % ring.size()];
                stamps->push_back(Now());
                send(fd, d.data(), d.size(), 0);
                ++i;
                continue;
            }
            const long dueNow = std::min(n, static_cast<long>((Now() - start) * rate) + 1);
            int k = 0;
            for (; k < kBatch && i + k < dueNow; ++k) {
                const std::string& d = ring[next++ % ring.size()];
                iov[k] = {const_cast<char*>(d.data()), d.size()};
                batch[k] = {};
                batch[k].msg_hdr.msg_iov = &iov[k];
                batch[k].msg_hdr.msg_iovlen = 1;
            }
            for (int sent = 0; sent < k;) {
                const int r = sendmmsg(fd, batch.data() + sent, static_cast<unsigned>(k - sent), 0);
                if (r <= 0) break;
                sent += r;
            }
            i += std::max(k, 1);
        }
        const double took = Now() - start;
        return took > 0 ? n / took : rate;
    }
    static constexpr int kBatch = 64;
    feed::SyntheticQuotes quotes;
    std::vector<std::string> ring;
    size_t next = 0;
    int fd;
    sockaddr_in to{};
};

// A sample of node A's publications: the plain publisher sends the same.
struct Traffic {
    std::vector<std::string> subjects;
    std::vector<size_t> sizes;
};

struct Counter {
    std::atomic<long> n{0};
    std::mutex mutex;
    Traffic sample;
};

bool WaitCount(const std::atomic<long>& n, long want, double seconds) {
    const double end = Now() + seconds;
    while (n.load() < want && Now() < end) std::this_thread::sleep_for(std::chrono::milliseconds(2));
    return n.load() >= want;
}

natsbus::BusOptions Client(const std::string& url, const char* who) {
    natsbus::BusOptions o;
    o.url = url;
    o.node = who;
    return o;
}

// Highest datagram rate at which every publication of node A arrived: the
// rate the sender achieved in the best passing trial. The ramp goes up by
// 25 % to the first failure, then halves the interval between the last pass
// and that failure three times. It ends early when the sender itself falls
// 10 % behind the asked rate (its own limit on this machine: the result is
// then "at least").
constexpr char kNodeASubjects[] = "tikron.*.n%231.>";
double LossFreeRate(const std::string& url, bool json, double* perDatagram, Traffic* sample, bool* senderBound) {
    const testing_support::TempDir tdir;  // removed with the object
    const std::string& dir = tdir.path();
    const int udp = FreePort(SOCK_DGRAM);
    pid_t a = StartNode(dir, NodeXml(dir, 1, udp, url, "", json));
    natsbus::CNatsBus sub;
    std::string err;
    sub.Connect(Client(url, "bench#1"), &err);
    Counter c;
    sub.Subscribe(kNodeASubjects, "", [&](natsbus::BusMessage& m) {
        if (c.n++ < 2000) {
            std::lock_guard<std::mutex> lock(c.mutex);
            c.sample.sizes.push_back(m.data.size());
            c.sample.subjects.push_back(m.subject);
        }
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    Sender s(udp);
    s.Send(kContracts, 20000);  // every contract known, then count per datagram
    WaitCount(c.n, 1, 5);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    c.n = 0;
    s.Send(1000, 20000);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    *perDatagram = c.n.load() / 1000.0;
    {
        std::lock_guard<std::mutex> lock(c.mutex);
        *sample = c.sample;
    }
    // One trial: true when every message of the datagrams sent arrived in time.
    auto trial = [&](double rate, double* achieved) {
        const long n = static_cast<long>(rate * g_trial);
        c.n = 0;
        *achieved = s.Send(n, rate);
        const long want = static_cast<long>(n * *perDatagram + 0.5);
        const bool ok = WaitCount(c.n, want, g_trial * 0.2 + 0.05);
        if (g_fixedRate > 0) {
            const long inTime = c.n.load();
            WaitCount(c.n, want, 5);
            printf("  at %.0f datagrams/s (sent at %.0f/s): %ld of %ld messages in time, %ld within 5 s more "
                   "(%llu dropped by the subscriber's client as a slow consumer)\n",
                   rate, *achieved, inTime, want, c.n.load(), static_cast<unsigned long long>(sub.SubscriptionDrops()));
        }
        return ok;
    };
    double best = 0, achieved = 0;
    *senderBound = false;
    if (g_fixedRate > 0) {
        if (trial(g_fixedRate, &achieved)) best = achieved;
    } else {
        double pass = 0, fail = 0;
        for (double rate = 5000; rate <= 1e6 && fail == 0; rate *= 1.25) {
            if (!trial(rate, &achieved)) {
                fail = rate;
            } else {
                pass = rate;
                best = std::max(best, achieved);
                *senderBound = achieved < 0.9 * rate;
                if (*senderBound) break;
            }
        }
        for (int i = 0; i < 3 && fail > 0 && pass > 0; ++i) {
            const double rate = std::sqrt(pass * fail);
            if (trial(rate, &achieved)) {
                pass = rate;
                best = std::max(best, achieved);
            } else {
                fail = rate;
            }
        }
    }
    Kill(a);
    if (g_fixedRate > 0) {  // what node A logged of losses
        std::ifstream log(dir + "/host.log");
        for (std::string line; std::getline(log, line);)
            if (line.find("drop") != std::string::npos || line.find("slow") != std::string::npos)
                printf("    node A: %s\n", line.c_str());
    }
    return best;
}

// A plain libnats publisher and one subscriber: messages per second
// delivered. The publisher cycles through the sample of node A's messages,
// with their subjects (the bus's own cost of this very traffic, routing of
// one subject per contract and issue type included) or all on one subject.
double PlainRate(const std::string& url, const Traffic& sample, bool sameSubjects) {
    natsConnection* pub = nullptr;
    natsConnection_ConnectTo(&pub, url.c_str());
    natsbus::CNatsBus sub;
    std::string err;
    sub.Connect(Client(url, "bench#2"), &err);
    std::atomic<long> n{0};
    sub.Subscribe(kNodeASubjects, "", [&](natsbus::BusMessage&) { ++n; });
    const std::vector<size_t>& sizes = sample.sizes;
    const std::string one = "tikron.pub.n%231.plain";
    std::string payload(*std::max_element(sizes.begin(), sizes.end()), 'x');
    const long total = 600000;
    const double start = Now();
    for (long i = 0; i < total; ++i) {
        const size_t k = static_cast<size_t>(i) % sizes.size();
        natsConnection_Publish(pub, (sameSubjects ? sample.subjects[k] : one).c_str(), payload.data(),
                               static_cast<int>(sizes[k]));
    }
    natsConnection_Flush(pub);
    WaitCount(n, total, 30);
    const double rate = n.load() / (Now() - start);
    natsConnection_Destroy(pub);
    return rate;
}

struct Pct {
    double p50, p99, p999;
};
Pct Percentiles(std::vector<double> v) {
    if (v.empty()) return {0, 0, 0};
    std::sort(v.begin(), v.end());
    auto at = [&](double q) { return v[std::min(v.size() - 1, static_cast<size_t>(q * v.size()))] * 1e6; };
    return {at(0.5), at(0.99), at(0.999)};
}

void PrintPct(const char* what, const Pct& p) {
    printf("  %-34s p50 %8.1f us   p99 %8.1f us   p99.9 %8.1f us\n", what, p.p50, p.p99, p.p999);
}

// UDP into A until B's 33100 conversion of the same quote is heard.
Pct CrossNode(const std::string& url) {
    const testing_support::TempDir tda, tdb;
    const std::string &da = tda.path(), &db = tdb.path();
    const int udp = FreePort(SOCK_DGRAM);
    pid_t a = StartNode(da, NodeXml(da, 1, udp, url, "", false));
    pid_t b = StartNode(db, NodeXml(db, 2, 0, url,
                                    "<request issuetype=\"22\" functionno=\"620001\" note=\"q\">"
                                    "<param name=\"issue_type\" value=\"22\"/></request>", false));
    natsbus::CNatsBus sub;
    std::string err;
    sub.Connect(Client(url, "bench#3"), &err);
    std::mutex mutex;
    std::map<std::string, std::vector<double>> arrived;
    std::atomic<long> n{0};
    sub.Subscribe("tikron.pub.n%232.620003.33100.*", "", [&](natsbus::BusMessage& m) {
        const double t = Now();
        std::lock_guard<std::mutex> lock(mutex);
        arrived[m.subject.substr(m.subject.rfind('.') + 1)].push_back(t);
        ++n;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    Sender s(udp);
    s.Send(kContracts, 20000);
    WaitCount(n, kContracts, 5);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    {
        std::lock_guard<std::mutex> lock(mutex);
        arrived.clear();
        n = 0;
    }
    std::vector<double> stamps;
    const long total = static_cast<long>(20000 * g_trial);
    s.Send(total, 20000, &stamps);
    WaitCount(n, total, 5);
    std::vector<double> lat;
    std::lock_guard<std::mutex> lock(mutex);
    std::map<std::string, size_t> next;
    for (long i = 0; i < static_cast<long>(stamps.size()); ++i) {
        const std::string& code = s.quotes.Contracts()[i % kContracts].code;
        auto& v = arrived[code];
        size_t& k = next[code];
        if (k < v.size()) lat.push_back(v[k++] - stamps[i]);
    }
    printf("  cross-node: %zu of %ld quotes taken in by B\n", lat.size(), total);
    Kill(a);
    Kill(b);
    return Percentiles(lat);
}

// Plain libnats: publish with a timestamp, deliver, at 20,000 per second.
Pct PlainLatency(const std::string& url, size_t size) {
    natsConnection* pub = nullptr;
    natsConnection_ConnectTo(&pub, url.c_str());
    natsbus::CNatsBus sub;
    std::string err;
    sub.Connect(Client(url, "bench#4"), &err);
    std::mutex mutex;
    std::vector<double> lat;
    sub.Subscribe("plainlat", "", [&](natsbus::BusMessage& m) {
        double sent = 0;
        memcpy(&sent, m.data.data(), sizeof sent);
        std::lock_guard<std::mutex> lock(mutex);
        lat.push_back(Now() - sent);
    });
    std::string payload(std::max(size, sizeof(double)), 'x');
    const long total = static_cast<long>(20000 * g_trial);
    const double start = Now();
    for (long i = 0; i < total; ++i) {
        const double due = start + i / 20000.0;
        if (Now() < due) std::this_thread::sleep_for(std::chrono::duration<double>(due - Now() + 100e-6));
        double t = Now();
        memcpy(&payload[0], &t, sizeof t);
        natsConnection_Publish(pub, "plainlat", payload.data(), static_cast<int>(payload.size()));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    natsConnection_Destroy(pub);
    std::lock_guard<std::mutex> lock(mutex);
    return Percentiles(lat);
}

// UDP into the plug-in until its issue-22 publication reaches the center.
Pct InProcess() {
    const testing_support::TempDir tdir;  // removed with the object
    const std::string& dir = tdir.path();
    const int udp = FreePort(SOCK_DGRAM);
    hostemu::HostOptions o;
    o.pluginPath = TIKRON_PLUGIN_PATH;
    o.configXml = "<t><pub><node AppName=\"n\" AppID=\"1\" SvrName=\"s\" SvrID=\"1\"/></pub><plugin><args "
                  "enableudprecv=\"1\" port=\"" + std::to_string(udp) + "\"/></plugin></t>";
    char cwd[4096] = "";
    if (getcwd(cwd, sizeof cwd) == nullptr || chdir(dir.c_str()) != 0) return {0, 0, 0};  // snapshot files go there
    hostemu::HostEmulator host(o);
    std::mutex mutex;
    std::vector<double> arrivals;
    host.Center().SetHandler([&](const hostemu::MessageSnapshot& m) {
        if (m.IssueType() != 22) return;
        std::lock_guard<std::mutex> lock(mutex);
        arrivals.push_back(Now());
    });
    if (host.Start() != 0) return {0, 0, 0};
    Sender s(udp);
    s.Send(kContracts, 20000);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    {
        std::lock_guard<std::mutex> lock(mutex);
        arrivals.clear();
    }
    std::vector<double> stamps;
    s.Send(static_cast<long>(20000 * g_trial), 20000, &stamps);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    host.Shutdown();
    std::vector<double> lat;
    std::lock_guard<std::mutex> lock(mutex);
    for (size_t i = 0; i < std::min(stamps.size(), arrivals.size()); ++i) lat.push_back(arrivals[i] - stamps[i]);
    if (chdir(cwd) != 0) perror("chdir");
    return Percentiles(lat);
}

// A late node's start until it holds all of A's 10,000 contracts.
double WholeTableSync(const std::string& url) {
    const int contracts = 10000;
    const testing_support::TempDir tda, tdc;
    const std::string &da = tda.path(), &dc = tdc.path();
    const int udp = FreePort(SOCK_DGRAM);
    pid_t a = StartNode(da, NodeXml(da, 1, udp, url, "", false));
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    Sender s(udp, feed::SyntheticQuotes(contracts));
    s.Send(contracts, 20000);
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    std::string mc = "<request issuetype=\"24\" functionno=\"620001\" note=\"s\"><param name=\"issue_type\" "
                     "value=\"24\"/></request>";
    for (int f : {620202, 620203, 620204, 620206})
        mc += "<request issuetype=\"0\" functionno=\"" + std::to_string(f) +
              "\" note=\"y\"><param name=\"result_type\" value=\"0\"/></request>";
    const std::string xml = NodeXml(dc, 3, 0, url, mc, false);
    const double start = Now();
    pid_t c = StartNode(dc, xml);
    const std::string log = dc + "/host.log";
    double took = -1;
    while (Now() - start < 60) {
        std::ifstream in(log);
        std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        int receipts = 0;
        for (size_t p = 0; (p = text.find(u8"的同步应答", p)) != std::string::npos; ++p) ++receipts;
        if (receipts >= 4) {
            took = Now() - start;
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    Kill(c);
    Kill(a);
    return took;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1) g_trial = atof(argv[1]) > 0 ? atof(argv[1]) : g_trial;
    const std::string only = argc > 2 ? argv[2] : "";
    if (only == "efficiency" && argc > 3) g_fixedRate = atof(argv[3]);
    const std::string form = only == "efficiency" && argc > 4 ? argv[4] : "";  // "off" or "on": that form only
    auto runs = [&only](const char* part) { return only.empty() || only == part; };
    const int port = FreePort(SOCK_STREAM);
    const testing_support::TempDir tsdir;
    const std::string& sdir = tsdir.path();
    const char* server = access("/usr/sbin/nats-server", X_OK) == 0 ? "/usr/sbin/nats-server" : "/usr/bin/nats-server";
    pid_t srv = Spawn({server, "-a", "127.0.0.1", "-p", std::to_string(port)}, sdir);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    const std::string url = "nats://127.0.0.1:" + std::to_string(port);

    if (runs("efficiency")) printf("bus efficiency (trials of %.1f s, %d contracts)\n", g_trial, kContracts);
    for (bool json : {false, true}) {
        if (!runs("efficiency") || (!form.empty() && form != (json ? "on" : "off"))) continue;
        double per = 0;
        Traffic sample;
        bool senderBound = false;
        const double rate = LossFreeRate(url, json, &per, &sample, &senderBound);
        if (sample.sizes.empty()) {
            printf("  JSON form %-3s: node A published nothing\n", json ? "on" : "off");
            continue;
        }
        // The plain rates move from one blast to the next on a shared
        // machine: the median of three, taken in turns.
        std::vector<double> sames, ones;
        for (int i = 0; i < 3; ++i) {
            sames.push_back(PlainRate(url, sample, true));
            ones.push_back(PlainRate(url, sample, false));
        }
        std::sort(sames.begin(), sames.end());
        std::sort(ones.begin(), ones.end());
        const double same = sames[1], one = ones[1];
        const char* atLeast = senderBound ? ">=" : "";
        printf("  JSON form %-3s: loss-free %s%.0f datagrams/s x %.2f messages = %.0f msg/s\n", json ? "on" : "off",
               atLeast, rate, per, rate * per);
        printf("    plain libnats, the same messages: %.0f msg/s, efficiency %s%.1f %%\n", same, atLeast,
               same > 0 ? 100.0 * rate * per / same : 0.0);
        printf("    plain libnats, sizes only (one subject): %.0f msg/s, efficiency %s%.1f %%\n", one, atLeast,
               one > 0 ? 100.0 * rate * per / one : 0.0);
    }
    if (runs("latency")) {
        printf("latency at 20,000 datagrams/s\n");
        PrintPct("UDP into A -> intake done at B", CrossNode(url));
        PrintPct("plain libnats publish -> deliver", PlainLatency(url, 400));
        PrintPct("in-process: UDP -> publication", InProcess());
    }
    if (runs("sync"))
        printf("whole-table synchronisation of 10,000 contracts: %.2f s to equal tables\n", WholeTableSync(url));
    Kill(srv);
    return 0;
}
