// Per-datagram latency of the UDP path over 127.0.0.1, next to a plain
// recvmmsg receiver measured in the same run.
//
//   build/release/bench/udp_latency_bench [seconds-per-trial] [rate...]
//
// For each rate (default 20,000 and 200,000 single-leg quotes per second)
// the sender paces sendto calls and notes the time of each; the plain
// receiver notes when recvmmsg returned each datagram; the plug-in path
// (the library's receiver, datagram queue, consumer, tables with snapshot
// files) publishes three messages per quote into a center that notes when
// the third one arrived. The plug-in runs twice: with the consumer sleeping
// as soon as the queue is empty (the default) and with a 100 us poll window
// ("udppollus"). Datagrams are matched by order (UDP on the loopback keeps
// it; a loss is reported and spoils the match).
//
// The machine is shared and its tail moves from second to second, so the
// three paths take turns in kRounds rounds and each round's p99 ratio is
// taken against the plain receiver of the same round; printed per rate:
// p50, p99, p99.9 and max over all rounds, losses, the median and the range
// of the rounds' p99 ratios, the plug-in's own histogram (receiver callback
// to last publication) and how often each receiving thread slept per
// datagram.
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
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/bench_quotes.h"
#include "frame/tikron_service.h"
#include "kos/kavle2.h"
#include "testing/service_test_support.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kBufBytes = 64 << 20;
constexpr int kBatch = 32;
constexpr int kRounds = 5;
constexpr int kPollUs = 100;

int64_t Ns(Clock::time_point t) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(t.time_since_epoch()).count();
}

// Where each datagram's arrival is noted, by its order number.
struct Arrivals {
    explicit Arrivals(size_t n) : at(n) {
        for (auto& a : at) a.store(0, std::memory_order_relaxed);
    }
    void Note(size_t i) {
        if (i < at.size()) at[i].store(Ns(Clock::now()), std::memory_order_relaxed);
        count.fetch_add(1, std::memory_order_release);
    }
    std::vector<std::atomic<int64_t>> at;
    std::atomic<size_t> count{0};
};

class Receiver {
public:
    virtual ~Receiver() = default;
    virtual unsigned Port() = 0;
    virtual void Start() = 0;
};

// recvmmsg in batches on its own thread; notes each datagram's arrival.
class PlainReceiver final : public Receiver {
public:
    explicit PlainReceiver(Arrivals& arrivals) : m_arrivals(arrivals) {
        m_fd = benchquotes::OpenLoopbackReceiver(kBufBytes, &m_port);
    }
    ~PlainReceiver() override {
        m_stop = true;
        if (m_thread.joinable()) m_thread.join();
        close(m_fd);
    }
    unsigned Port() override { return m_port; }
    void Start() override {
        m_thread = std::thread([this] {
            pthread_setname_np(pthread_self(), "plain-recv");
            static char bufs[kBatch][2048];
            mmsghdr msgs[kBatch];
            iovec iov[kBatch];
            size_t next = 0;
            while (!m_stop) {
                for (int i = 0; i < kBatch; ++i) {
                    iov[i] = {bufs[i], sizeof bufs[i]};
                    memset(&msgs[i], 0, sizeof msgs[i]);
                    msgs[i].msg_hdr.msg_iov = &iov[i];
                    msgs[i].msg_hdr.msg_iovlen = 1;
                }
                int n = recvmmsg(m_fd, msgs, kBatch, MSG_WAITFORONE, nullptr);
                for (int i = 0; i < n; ++i) m_arrivals.Note(next++);
            }
        });
    }

private:
    Arrivals& m_arrivals;
    int m_fd;
    unsigned m_port = 0;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

// The message center in front of the plug-in: every third publication
// completes a quote (issue types 22, 33100, 16 in that order).
class TimingCenter final : public IMessageService {
public:
    explicit TimingCenter(Arrivals& arrivals) : m_arrivals(arrivals) {}
    int QueryInterface(const char*, IKnown** out) override {
        if (out != nullptr) *out = nullptr;
        return 0;
    }
    int AddRef() override { return 1; }
    int Release() override { return 1; }
    int PostMsg(IESBMessage* msg, IMessageService*) override {
        if (msg == nullptr) return -1;
        msg->Release();
        if (++m_messages % 3 == 0) m_arrivals.Note(m_messages / 3 - 1);
        return 0;
    }
    int RegisterNextService(IMessageService*) override { return 0; }
    int RegisterPrevService(IMessageService*) override { return 0; }
    int RemoveService() override { return 0; }
    const char* GetServiceID() override { return "mc"; }
    int SetServiceID(const char*) override { return 0; }
    int GetServiceStatus() override { return 0; }
    int RegisterService() override { return 0; }
    int SendSvrHeartBeat() override { return 0; }

private:
    Arrivals& m_arrivals;
    size_t m_messages = 0;  // only the consumer thread posts here
};

class PluginReceiver final : public Receiver {
public:
    PluginReceiver(Arrivals& arrivals, int pollUs) : m_service(0), m_center(arrivals) {
        m_service.Svc().m_iUDPPollUs = pollUs;
        m_service.Svc().RegisterPrevService(&m_center);
        m_udp.Init(0, CTIKRONServiceImpl::OnUDPReceive, &m_service.Svc());
        m_udp.SetRecvBufLen(kBufBytes);
    }
    ~PluginReceiver() override { m_udp.Destroy(); }
    unsigned Port() override { return m_udp.GetPort(); }
    void Start() override {
        m_service.Svc().m_szIngestStats.SetTimed(true);
        m_udp.Start();
    }
    // The plug-in's own histogram: receiver callback to last publication.
    tagTikronStats Inside() {
        tagTikronStats s;
        memset(&s, 0, sizeof s);
        m_service.Svc().m_szIngestStats.Fill(s);
        return s;
    }

private:
    tikron_udp::ScratchService m_service;
    TimingCenter m_center;
    KAVLE2::CUDPBroadcast m_udp;
};

// Sends n quotes at rate per second, one sendto each, noting each send's
// time; sleeps between due times rather than spinning, so a 2-core machine
// keeps a core for the receivers.
std::vector<int64_t> Send(unsigned port, long n, double rate) {
    const std::vector<std::string> grams = benchquotes::MakeDatagrams();
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    int sndbuf = 8 << 20;
    setsockopt(fd, SOL_SOCKET, SO_SNDBUFFORCE, &sndbuf, sizeof sndbuf);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(port));
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::vector<int64_t> sent(static_cast<size_t>(n));
    const Clock::time_point start = Clock::now();
    for (long i = 0; i < n;) {
        std::this_thread::sleep_until(start + std::chrono::duration_cast<Clock::duration>(
                                                  std::chrono::duration<double>(i / rate)));
        // Everything due by now goes out, each with its own time.
        const double elapsedNs = static_cast<double>(Ns(Clock::now()) - Ns(start));
        const long due = std::min(n, static_cast<long>(elapsedNs * rate / 1e9) + 1);
        for (; i < due; ++i) {
            const std::string& g = grams[static_cast<size_t>(i) % grams.size()];
            sent[static_cast<size_t>(i)] = Ns(Clock::now());
            while (sendto(fd, g.data(), g.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to) < 0) {
            }
        }
    }
    close(fd);
    return sent;
}

// Voluntary context switches (sleeps) of this process's threads named
// `name`, summed.
long Sleeps(const char* name) {
    long total = 0;
    DIR* d = opendir("/proc/self/task");
    if (d == nullptr) return 0;
    while (dirent* e = readdir(d)) {
        if (e->d_name[0] == '.') continue;
        const std::string base = std::string("/proc/self/task/") + e->d_name;
        char comm[64] = {0};
        if (FILE* f = fopen((base + "/comm").c_str(), "r")) {
            if (fgets(comm, sizeof comm, f) == nullptr) comm[0] = '\0';
            fclose(f);
        }
        comm[strcspn(comm, "\n")] = '\0';
        if (strcmp(comm, name) != 0) continue;
        if (FILE* f = fopen((base + "/status").c_str(), "r")) {
            char line[256];
            while (fgets(line, sizeof line, f) != nullptr)
                if (strncmp(line, "voluntary_ctxt_switches:", 24) == 0) total += atol(line + 24);
            fclose(f);
        }
    }
    closedir(d);
    return total;
}

struct Result {
    std::vector<double> us;  // per datagram, microseconds
    double p99 = 0;          // of this trial alone
    long lost = 0;
    // Plug-in only: upper bucket bounds (us) of p50 and p99 of the part
    // from the receiver callback to the last publication.
    double insideP50 = 0, insideP99 = 0;
    // Sleeps per datagram of the receiving thread(s) (plug-in: the library's
    // receiver and the consumer).
    double recvSleeps = 0, consumerSleeps = 0;
};

// Upper bound of the bucket holding quantile q of the plug-in's histogram.
double BucketQuantile(const tagTikronStats& s, double q) {
    uint64_t seen = 0;
    for (int b = 0; b < kTikronLatencyBuckets; ++b) {
        seen += s.ullLatencyBuckets[b];
        if (static_cast<double>(seen) >= q * static_cast<double>(s.ullLatencyCount))
            return b + 1 < kTikronLatencyBuckets ? kTikronLatencyBoundsUs[b] : 1e9;
    }
    return 0;
}

double Quantile(const std::vector<double>& sorted, double p) {
    if (sorted.empty()) return 0;
    return sorted[std::min(sorted.size() - 1, static_cast<size_t>(p * static_cast<double>(sorted.size())))];
}

// pollUs < 0: the plain receiver; otherwise the plug-in with that window.
Result Trial(int pollUs, long n, double rate) {
    const bool plugin = pollUs >= 0;
    Arrivals arrivals(static_cast<size_t>(n));
    std::unique_ptr<Receiver> r(plugin ? static_cast<Receiver*>(new PluginReceiver(arrivals, pollUs))
                                       : static_cast<Receiver*>(new PlainReceiver(arrivals)));
    r->Start();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const char* recvName = plugin ? "kos-udp-recv" : "plain-recv";
    const long recv0 = Sleeps(recvName), consumer0 = Sleeps("tikron-udp");
    std::vector<int64_t> sent = Send(r->Port(), n, rate);
    // Everything in, or nothing more for a second.
    size_t last = 0;
    for (auto still = Clock::now(); arrivals.count.load(std::memory_order_acquire) < static_cast<size_t>(n);) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        size_t c = arrivals.count.load(std::memory_order_acquire);
        if (c != last) {
            last = c;
            still = Clock::now();
        } else if (Clock::now() - still > std::chrono::seconds(1)) {
            break;
        }
    }
    Result res;
    res.recvSleeps = static_cast<double>(Sleeps(recvName) - recv0) / static_cast<double>(n);
    res.consumerSleeps = plugin ? static_cast<double>(Sleeps("tikron-udp") - consumer0) / static_cast<double>(n) : 0;
    if (plugin) {
        const tagTikronStats inside = static_cast<PluginReceiver*>(r.get())->Inside();
        res.insideP50 = BucketQuantile(inside, 0.5);
        res.insideP99 = BucketQuantile(inside, 0.99);
    }
    res.lost = n - static_cast<long>(std::min<size_t>(arrivals.count.load(), static_cast<size_t>(n)));
    res.us.reserve(sent.size());
    for (size_t i = 0; i < sent.size(); ++i) {
        int64_t at = arrivals.at[i].load(std::memory_order_relaxed);
        if (at != 0) res.us.push_back(static_cast<double>(at - sent[i]) / 1e3);
    }
    std::sort(res.us.begin(), res.us.end());
    res.p99 = Quantile(res.us, 0.99);
    return res;
}

// One path's rounds together.
struct Pooled {
    std::vector<double> us;
    std::vector<double> ratios;  // round p99 / plain p99 of the same round
    long lost = 0;
    double insideP50 = 0, insideP99 = 0, recvSleeps = 0, consumerSleeps = 0;  // of the last round
    void Add(Result&& r, double plainP99) {
        us.insert(us.end(), r.us.begin(), r.us.end());
        if (plainP99 > 0) ratios.push_back(r.p99 / plainP99);
        lost += r.lost;
        insideP50 = r.insideP50;
        insideP99 = r.insideP99;
        recvSleeps = r.recvSleeps;
        consumerSleeps = r.consumerSleeps;
    }
};

}  // namespace

int main(int argc, char** argv) {
    double seconds = argc > 1 ? atof(argv[1]) : 1.0;
    if (seconds <= 0) seconds = 1.0;
    std::vector<double> rates;
    for (int i = 2; i < argc; ++i) rates.push_back(atof(argv[i]));
    if (rates.empty()) rates = {20000, 200000};

    const std::pair<const char*, int> paths[] = {{"plain", -1}, {"plug-in", 0}, {"poll 100", kPollUs}};
    printf("%-8s %-9s %9s %9s %9s %9s %6s  %s\n", "rate/s", "path", "p50 us", "p99 us", "p99.9 us", "max us",
           "lost", "p99 / plain p99 of the round: median [range]");
    for (double rate : rates) {
        const long n = static_cast<long>(rate * seconds);
        Pooled pooled[3];
        for (int round = 0; round < kRounds; ++round) {
            double plainP99 = 0;
            for (int p = 0; p < 3; ++p) {
                Result r = Trial(paths[p].second, n, rate);
                if (p == 0) plainP99 = r.p99;
                pooled[p].Add(std::move(r), p == 0 ? 0 : plainP99);
            }
        }
        for (int p = 0; p < 3; ++p) {
            Pooled& o = pooled[p];
            std::sort(o.us.begin(), o.us.end());
            std::sort(o.ratios.begin(), o.ratios.end());
            printf("%-8.0f %-9s %9.1f %9.1f %9.1f %9.1f %6ld", rate, paths[p].first, Quantile(o.us, 0.5),
                   Quantile(o.us, 0.99), Quantile(o.us, 0.999), o.us.empty() ? 0.0 : o.us.back(), o.lost);
            if (!o.ratios.empty())
                printf("  %.2f [%.2f .. %.2f]", o.ratios[o.ratios.size() / 2], o.ratios.front(), o.ratios.back());
            printf("\n");
        }
        for (int p = 1; p < 3; ++p)
            printf("         %-9s inside (callback to last publication): p50 <= %.0f us, p99 <= %.0f us; sleeps per\n"
                   "                   datagram: plain receiver %.2f, library receiver %.2f, consumer %.2f\n",
                   paths[p].first, pooled[p].insideP50, pooled[p].insideP99, pooled[0].recvSleeps,
                   pooled[p].recvSleeps, pooled[p].consumerSleeps);
    }
    printf("plain: sendto to recvmmsg returning it; plug-in: sendto to the third publication (issue types 22,\n"
           "33100, 16) reaching the center, through the library's receiver, the datagram queue, the consumer,\n"
           "the extended and legacy tables with their snapshot files; poll 100: the same with udppollus=100.\n"
           "%d rounds of %.1f s of quotes per rate, the paths taking turns.\n",
           kRounds, seconds);
    printf("goals: plug-in p99 within 3x of the plain p99 at 20,000/s; no loss at 200,000/s\n");
    return 0;
}
