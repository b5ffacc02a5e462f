// Sustained UDP ingest over 127.0.0.1: the whole plug-in path (receiver
// thread, datagram queue, parsing, extended and legacy tables with their
// snapshot files, three publications into a neighbour that counts and
// releases) next to a plain recvmmsg receiver measured in the same run.
//
// Google Benchmark's per-iteration model does not fit a loss search, so this
// is a standalone program with its own main. Run:
//   ninja -C build/<dir> udp_ingest_bench && build/<dir>/bench/udp_ingest_bench [seconds-per-trial]
// It prints, for both receivers, the highest paced rate without loss and the
// drain rate of a filled socket buffer, and the plug-in/plain ratios; for
// each drain, the CPU time and run-queue wait of the threads that took part.
// "udp_ingest_bench drain [runs]" repeats the plug-in drain alone (profiling).
//
// Zero loss: every datagram sent at the paced rate for one trial arrived;
// for the plug-in also processed (three publications each) no later than
// 20 % of the trial time after the last send, so the rate is sustained
// rather than buffered in the unbounded datagram queue.
#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "frame/tikron_service.h"
#include "host/host_emulator.h"
#include "kos/kavle2.h"
#include "bench/bench_quotes.h"
#include "store/hq_tables.h"
#include "testing/service_test_support.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kBufBytes = 64 << 20;  // socket receive buffer of both receivers
using benchquotes::kContracts;  // distinct contracts cycled by the sender
constexpr int kBatch = 32;

double Seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

using benchquotes::MakeDatagrams;

class Sender {
public:
    explicit Sender(unsigned port) : m_grams(MakeDatagrams()) {
        m_fd = socket(AF_INET, SOCK_DGRAM, 0);
        int sndbuf = 8 << 20;
        setsockopt(m_fd, SOL_SOCKET, SO_SNDBUFFORCE, &sndbuf, sizeof sndbuf);
        m_to.sin_family = AF_INET;
        m_to.sin_port = htons(static_cast<uint16_t>(port));
        m_to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    }
    ~Sender() { close(m_fd); }
    // Sends n datagrams at rate per second (0: as fast as possible); returns
    // the time the last batch left.
    Clock::time_point Send(long n, double rate) {
        const Clock::time_point start = Clock::now();
        long sent = 0;
        mmsghdr msgs[kBatch];
        iovec iov[kBatch];
        while (sent < n) {
            if (rate > 0) {
                auto due = start + std::chrono::duration_cast<Clock::duration>(
                                       std::chrono::duration<double>(sent / rate));
                // Sleep rather than spin: on a small machine a spinning
                // sender would take the receivers' CPU.
                std::this_thread::sleep_until(due);
            }
            int k = static_cast<int>(n - sent < kBatch ? n - sent : kBatch);
            for (int i = 0; i < k; ++i) {
                const std::string& g = m_grams[static_cast<size_t>((sent + i) % kContracts)];
                iov[i].iov_base = const_cast<char*>(g.data());
                iov[i].iov_len = g.size();
                memset(&msgs[i], 0, sizeof msgs[i]);
                msgs[i].msg_hdr.msg_name = &m_to;
                msgs[i].msg_hdr.msg_namelen = sizeof m_to;
                msgs[i].msg_hdr.msg_iov = &iov[i];
                msgs[i].msg_hdr.msg_iovlen = 1;
            }
            int r = sendmmsg(m_fd, msgs, static_cast<unsigned>(k), 0);
            if (r > 0) sent += r;
        }
        return Clock::now();
    }

private:
    std::vector<std::string> m_grams;
    int m_fd;
    sockaddr_in m_to{};
};

// One receiver under test: its port, how many datagrams it has fully
// handled, and start/stop of its receiving.
struct Receiver {
    virtual ~Receiver() = default;
    virtual unsigned Port() = 0;
    virtual long Handled() = 0;
    virtual void Start() = 0;
};

// recvmmsg in batches of 32 on its own thread, counting datagrams.
class PlainReceiver : public Receiver {
public:
    PlainReceiver() {
        m_fd = benchquotes::OpenLoopbackReceiver(kBufBytes, &m_port);
    }
    ~PlainReceiver() override {
        m_stop = true;
        if (m_thread.joinable()) m_thread.join();
        close(m_fd);
    }
    unsigned Port() override { return m_port; }
    long Handled() override { return m_count.load(); }
    void Start() override {
        m_thread = std::thread([this] {
            pthread_setname_np(pthread_self(), "plain-recv");
            static char bufs[kBatch][2048];
            mmsghdr msgs[kBatch];
            iovec iov[kBatch];
            while (!m_stop) {
                for (int i = 0; i < kBatch; ++i) {
                    iov[i] = {bufs[i], sizeof bufs[i]};
                    memset(&msgs[i], 0, sizeof msgs[i]);
                    msgs[i].msg_hdr.msg_iov = &iov[i];
                    msgs[i].msg_hdr.msg_iovlen = 1;
                }
                int n = recvmmsg(m_fd, msgs, kBatch, MSG_WAITFORONE, nullptr);
                if (n > 0) m_count += n;
            }
        });
    }

private:
    int m_fd;
    unsigned m_port = 0;
    std::atomic<long> m_count{0};
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

// The service behind the library's UDP receiver, counting what it publishes.
class PluginReceiver : public Receiver {
public:
    PluginReceiver() : m_service(0) {
        m_service.Center().SetMode(hostemu::CHostNeighbour::CountOnly);
        m_udp.Init(0, CTIKRONServiceImpl::OnUDPReceive, &m_service.Svc());
        m_udp.SetRecvBufLen(kBufBytes);
    }
    // The receiver stops before the service goes.
    ~PluginReceiver() override { m_udp.Destroy(); }
    unsigned Port() override { return m_udp.GetPort(); }
    long Handled() override { return static_cast<long>(m_service.Center().Count() / 3); }
    void Start() override { m_udp.Start(); }

private:
    tikron_udp::ScratchService m_service;
    KAVLE2::CUDPBroadcast m_udp;
};

// Waits until the handled count reaches target or stops moving for 300 ms.
Clock::time_point WaitHandled(Receiver& r, long target) {
    long last = -1;
    Clock::time_point lastMove = Clock::now();
    for (;;) {
        long n = r.Handled();
        if (n >= target) return Clock::now();
        if (n != last) {
            last = n;
            lastMove = Clock::now();
        } else if (Clock::now() - lastMove > std::chrono::milliseconds(300)) {
            return Clock::now();
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
}

// One paced trial on a fresh receiver: true when nothing was lost.
bool PacedTrial(const std::function<Receiver*()>& make, double rate, double seconds) {
    std::unique_ptr<Receiver> r(make());
    r->Start();
    Sender s(r->Port());
    long n = static_cast<long>(rate * seconds);
    Clock::time_point sent = s.Send(n, rate);
    long base = 0;
    Clock::time_point done = WaitHandled(*r, base + n);
    return r->Handled() >= n && Seconds(done - sent) <= 0.2 * seconds + 0.005;
}

double MaxLossFree(const std::function<Receiver*()>& make, double seconds, double ceiling) {
    double lo = 0, hi = 0;
    for (double rate = 20000; lo < ceiling; rate *= 2) {
        // The last step is the sender's own ceiling.
        if (rate > ceiling) rate = ceiling;
        if (!PacedTrial(make, rate, seconds)) {
            hi = rate;
            break;
        }
        lo = rate;
    }
    if (hi == 0) return lo;  // kept up with everything the sender could pace
    for (int i = 0; i < 5; ++i) {
        double mid = (lo + hi) / 2;
        if (PacedTrial(make, mid, seconds))
            lo = mid;
        else
            hi = mid;
    }
    return lo;
}

// CPU time and run-queue wait of every thread of this process, in ns, by
// thread id (from /proc/self/task/<tid>/schedstat), with the thread names.
struct ThreadTime {
    std::string name;
    double runNs = 0, waitNs = 0;
};
std::map<int, ThreadTime> ThreadTimes() {
    std::map<int, ThreadTime> out;
    DIR* d = opendir("/proc/self/task");
    if (d == nullptr) return out;
    while (dirent* e = readdir(d)) {
        int tid = atoi(e->d_name);
        if (tid <= 0) continue;
        std::string base = std::string("/proc/self/task/") + e->d_name;
        ThreadTime t;
        if (FILE* f = fopen((base + "/schedstat").c_str(), "r")) {
            if (fscanf(f, "%lf %lf", &t.runNs, &t.waitNs) != 2) t.runNs = t.waitNs = 0;
            fclose(f);
        }
        if (FILE* f = fopen((base + "/comm").c_str(), "r")) {
            char name[64] = {0};
            if (fgets(name, sizeof name, f) != nullptr) name[strcspn(name, "\n")] = '\0';
            t.name = name;
            fclose(f);
        }
        out[tid] = t;
    }
    closedir(d);
    return out;
}

// "name cpu/wait ms" of the threads that ran at least 1 ms between two
// snapshots; the measuring thread itself is left out.
std::string ThreadBreakdown(const std::map<int, ThreadTime>& before, const std::map<int, ThreadTime>& after) {
    std::string out;
    const int self = static_cast<int>(gettid());
    for (const auto& [tid, t] : after) {
        if (tid == self) continue;
        auto b = before.find(tid);
        double run = t.runNs - (b != before.end() ? b->second.runNs : 0);
        double wait = t.waitNs - (b != before.end() ? b->second.waitNs : 0);
        if (run < 1e6) continue;
        char line[128];
        snprintf(line, sizeof line, "%s%s cpu %.1f ms wait %.1f ms", out.empty() ? "" : ", ", t.name.c_str(),
                 run / 1e6, wait / 1e6);
        out += line;
    }
    return out;
}

// Fills the socket buffer with n datagrams before the receiver starts, then
// measures how fast it drains them. Returns datagrams per second (0 when the
// buffer could not hold them all); threads: where the CPU time went.
double DrainRate(const std::function<Receiver*()>& make, long n, std::string* threads) {
    std::unique_ptr<Receiver> r(make());
    Sender s(r->Port());
    s.Send(n, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const auto before = ThreadTimes();
    Clock::time_point start = Clock::now();
    r->Start();
    Clock::time_point done = WaitHandled(*r, n);
    *threads = ThreadBreakdown(before, ThreadTimes());
    if (r->Handled() < n) {
        fprintf(stderr, "drain: %ld of %ld handled\n", r->Handled(), n);
        return 0;
    }
    return n / Seconds(done - start);
}

double SenderCeiling() {
    PlainReceiver sink;  // not started: measures the sender alone
    Sender s(sink.Port());
    const long n = 200000;
    Clock::time_point t0 = Clock::now();
    Clock::time_point t1 = s.Send(n, 0);
    return n / Seconds(t1 - t0);
}

}  // namespace

int main(int argc, char** argv) {
    auto plain = [] { return static_cast<Receiver*>(new PlainReceiver()); };
    auto plugin = [] { return static_cast<Receiver*>(new PluginReceiver()); };
    const long drainN = 20000;
    // "drain [runs]": plug-in drains only, for profiling the path.
    if (argc > 1 && strcmp(argv[1], "drain") == 0) {
        int runs = argc > 2 ? atoi(argv[2]) : 20;
        for (int i = 0; i < runs; ++i) {
            std::string threads;
            double rate = DrainRate(plugin, drainN, &threads);
            printf("plug-in drain %.0f/s (%s)\n", rate, threads.c_str());
        }
        return 0;
    }
    double seconds = argc > 1 ? atof(argv[1]) : 0.5;
    if (seconds <= 0) seconds = 0.5;

    double ceiling = SenderCeiling();
    printf("sender alone: %.0f datagrams/s (upper bound of the paced search)\n", ceiling);
    double plainPaced = MaxLossFree(plain, seconds, ceiling);
    double pluginPaced = MaxLossFree(plugin, seconds, ceiling);
    // Interleaved repeats: a shared machine's other load slows single runs
    // unevenly; both receivers get the same treatment. Reported: the best
    // of each, and the median of the ratios of runs made back to back
    // (less sensitive to a slow spell that hits one side only).
    const int kDrainRuns = 5;
    double plainDrain = 0, pluginDrain = 0;
    std::vector<double> pairRatios;
    for (int i = 0; i < kDrainRuns; ++i) {
        std::string plainThreads, pluginThreads;
        double a = DrainRate(plain, drainN, &plainThreads);
        double b = DrainRate(plugin, drainN, &pluginThreads);
        printf("drain run %d: plain %.0f/s (%s)\n             plug-in %.0f/s (%s)  ratio %.1f%%\n", i + 1, a,
               plainThreads.c_str(), b, pluginThreads.c_str(), a > 0 ? 100.0 * b / a : 0.0);
        if (a > plainDrain) plainDrain = a;
        if (b > pluginDrain) pluginDrain = b;
        pairRatios.push_back(a > 0 ? b / a : 0.0);
    }
    std::sort(pairRatios.begin(), pairRatios.end());

    printf("%-28s %14s %14s %8s\n", "", "plain recvmmsg", "plug-in path", "ratio");
    printf("%-28s %14.0f %14.0f %7.1f%%\n", "loss-free paced rate (/s)", plainPaced, pluginPaced,
           plainPaced > 0 ? 100.0 * pluginPaced / plainPaced : 0.0);
    printf("%-28s %14.0f %14.0f %7.1f%%\n", "drain rate (/s), best", plainDrain, pluginDrain,
           plainDrain > 0 ? 100.0 * pluginDrain / plainDrain : 0.0);
    printf("%-28s %14s %14s %7.1f%%\n", "drain, median paired ratio", "", "",
           100.0 * pairRatios[pairRatios.size() / 2]);
    printf("what is counted: plain = datagrams returned by recvmmsg (no processing); plug-in = datagrams\n"
           "fully processed (received by the library's receiver, queued, framed, parsed into the extended\n"
           "and legacy tables with their snapshot files, 33100 text built, issue types 33100, 22 and 16\n"
           "delivered to the neighbour). Drain: %ld datagrams sent into the socket buffer before the\n"
           "receiver starts; time from starting it until the last one is counted; %d runs each.\n",
           drainN, kDrainRuns);
    printf("goals: paced >= 50%%, drain >= 25%% of the plain receiver\n");
    return 0;
}
