// tikron-feed: sends back-end datagrams to the plug-in's UDP port, from a
// capture file (one datagram per line) or as a synthetic quote stream.
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "tools/feed/feed_lines.h"
#include "tools/feed/synthetic_quotes.h"

namespace {
volatile sig_atomic_t g_stop = 0;
void OnSignal(int) { g_stop = 1; }
}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"tikron-feed: send back-end datagrams over UDP"};
    int port = 0;
    std::string host = "127.0.0.1", file;
    size_t synthetic = 0;
    double rate = 0, seconds = 0;
    long long count = -1;
    unsigned variant = 1;
    bool quiet = false;
    app.add_option("--port", port, "UDP port of the plug-in")->required()->check(CLI::Range(1, 65535));
    app.add_option("--host", host, "IPv4 address to send to")->capture_default_str();
    auto* fileOpt = app.add_option("--file", file, "capture file: one datagram per line, ^A or \\x01 for byte 1, # comments")
                        ->check(CLI::ExistingFile);
    auto* synOpt = app.add_option("--synthetic", synthetic, "synthetic single-leg quotes of N contracts")
                       ->check(CLI::Range(1, 100000));
    fileOpt->excludes(synOpt);
    app.add_option("--rate", rate, "datagrams per second (default: as fast as possible)")->check(CLI::NonNegativeNumber);
    auto* countOpt = app.add_option("--count", count, "datagrams to send (default: every line once; synthetic: one per contract)")
                         ->check(CLI::NonNegativeNumber);
    auto* secOpt = app.add_option("--seconds", seconds, "send for this long instead of a count")->check(CLI::PositiveNumber);
    countOpt->excludes(secOpt);
    app.add_option("--variant", variant, "synthetic price walk variant (same variant, same walk)");
    app.add_flag("--quiet", quiet, "print nothing but errors");
    CLI11_PARSE(app, argc, argv);
    if (file.empty() && synthetic == 0) {
        fprintf(stderr, "tikron-feed: give --file or --synthetic\n");
        return 2;
    }

    std::vector<std::string> lines;
    std::unique_ptr<feed::SyntheticQuotes> quotes;
    if (!file.empty()) {
        std::string error;
        if (!feed::ReadCapture(file, &lines, &error)) {
            fprintf(stderr, "tikron-feed: %s\n", error.c_str());
            return 2;
        }
        if (lines.empty()) {
            fprintf(stderr, "tikron-feed: %s holds no datagrams\n", file.c_str());
            return 2;
        }
    } else {
        quotes = std::make_unique<feed::SyntheticQuotes>(synthetic, variant);
    }
    if (count < 0 && seconds <= 0) count = !lines.empty() ? static_cast<long long>(lines.size()) : static_cast<long long>(synthetic);

    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(port));
    if (inet_pton(AF_INET, host.c_str(), &to.sin_addr) != 1) {
        fprintf(stderr, "tikron-feed: %s is not an IPv4 address\n", host.c_str());
        return 2;
    }
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        fprintf(stderr, "tikron-feed: socket: %s\n", strerror(errno));
        return 1;
    }
    int one = 1;
    setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &one, sizeof one);
    signal(SIGINT, OnSignal);
    signal(SIGTERM, OnSignal);

    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    const auto until = start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    long long sent = 0, failed = 0;
    size_t next = 0;
    while (!g_stop) {
        if (count >= 0 && sent + failed >= count) break;
        const auto now = Clock::now();
        if (seconds > 0 && now >= until) break;
        if (rate > 0) {
            // Keep to the schedule: datagram k leaves at start + k / rate.
            auto due = start + std::chrono::duration_cast<Clock::duration>(
                                   std::chrono::duration<double>(static_cast<double>(sent + failed) / rate));
            if (due > now) {
                auto wait = due - now;
                if (wait > std::chrono::milliseconds(1)) std::this_thread::sleep_for(wait);
                else continue;  // sub-millisecond: spin to keep high rates
            }
        }
        std::string d = quotes ? quotes->Next() : lines[next];
        if (!quotes) next = (next + 1) % lines.size();
        ssize_t n = sendto(fd, d.data(), d.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
        if (n == static_cast<ssize_t>(d.size())) {
            ++sent;
        } else {
            ++failed;
            if (errno == ENOBUFS || errno == EAGAIN) std::this_thread::sleep_for(std::chrono::microseconds(50));
        }
    }
    close(fd);
    const double took = std::chrono::duration<double>(Clock::now() - start).count();
    if (!quiet)
        printf("tikron-feed: sent %lld datagrams to %s:%d in %.3f s (%.0f/s)%s\n", sent, host.c_str(), port, took,
               took > 0 ? static_cast<double>(sent) / took : 0.0,
               failed != 0 ? (", " + std::to_string(failed) + " failed").c_str() : "");
    return failed != 0 && sent == 0 ? 1 : 0;
}
