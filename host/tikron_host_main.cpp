// tikron-host: runs the tikron plug-in as a process. It loads the library
// into the host emulator, plays the message center around it, writes the
// plug-in's messages as JSON lines and serves the control socket until
// SIGINT or SIGTERM, then stops the plug-in cleanly.
#include <climits>
#include <csignal>
#include <cstdio>
#include <string>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "host/product_control.h"
#include "host/product_host.h"
#include "host/product_web.h"

namespace {

// The library built beside this executable.
std::string DefaultPluginPath() {
    char self[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    if (n <= 0) return "./libtikron.so";
    std::string path(self, static_cast<size_t>(n));
    size_t slash = path.rfind('/');
    return path.substr(0, slash == std::string::npos ? 0 : slash + 1) + "libtikron.so";
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"tikron-host: run the tikron plug-in with an emulated message center"};
    product::ProductOptions opt;
    std::string control;
    app.add_option("--config", opt.configFile, "configuration XML file")->required()->check(CLI::ExistingFile);
    app.add_option("--plugin", opt.pluginPath, "plug-in library (default: libtikron.so beside this program)");
    app.add_option("--publications", opt.publications,
                   "where the JSON lines of the plug-in's messages go: a file, or - for stdout")
        ->capture_default_str();
    app.add_option("--control", control, "Unix socket for tikron-ctl (none when omitted)");
    app.add_option("--log", opt.logFile, "host log file (default: <host log_file> of the configuration)");
    app.add_option("--heartbeat-ms", opt.heartbeatMs,
                   "message-center heartbeat period in ms, 0 none (default: <host heartbeat_ms>)")
        ->check(CLI::Range(0, 3600000));
    app.add_flag("--log-stderr", opt.logStderr, "copy the host log to standard error");
    app.add_option("--nats", opt.natsUrl,
                   "message center on this NATS server, e.g. nats://127.0.0.1:4222 (default: <host nats_url>, "
                   "else in-process)");
    std::string metrics;
    app.add_option("--metrics", metrics,
                   "serve Prometheus metrics (/metrics) and the quote board (/, /api/) on ADDR:PORT, "
                   "e.g. 127.0.0.1:9464 (port 0: any free port)");
    CLI11_PARSE(app, argc, argv);
    if (opt.pluginPath.empty()) opt.pluginPath = DefaultPluginPath();

    // Every thread started from here on inherits the blocked signals; the
    // main thread takes them with sigwait.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    signal(SIGPIPE, SIG_IGN);

    product::ProductHost host(opt);
    if (host.Start() != 0) {
        fprintf(stderr, "tikron-host: %s\n", host.Error().c_str());
        return 1;
    }
    product::ControlServer server([&host](const nlohmann::ordered_json& r) { return host.Handle(r); });
    if (!control.empty() && server.Start(control) != 0) {
        fprintf(stderr, "tikron-host: control socket: %s\n", server.Error().c_str());
        host.Stop();
        return 1;
    }
    product::CWebBoard board(host);
    if (!metrics.empty() && board.Start(metrics) != 0) {
        fprintf(stderr, "tikron-host: metrics: %s\n", board.Error().c_str());
        server.Stop();
        host.Stop();
        return 1;
    }
    fprintf(stderr, "tikron-host: running %s (pid %d)%s%s\n", opt.pluginPath.c_str(), static_cast<int>(getpid()),
            control.empty() ? "" : ", control ", control.c_str());
    if (!metrics.empty()) fprintf(stderr, "tikron-host: metrics and quote board on port %d\n", board.Port());

    int sig = 0;
    while (sigwait(&stopSignals, &sig) != 0) {
    }
    fprintf(stderr, "tikron-host: %s, stopping\n", sig == SIGINT ? "SIGINT" : "SIGTERM");
    board.Stop();
    server.Stop();
    host.Stop();
    fprintf(stderr, "tikron-host: stopped, %llu lines written\n",
            static_cast<unsigned long long>(host.LinesWritten()));
    return 0;
}
