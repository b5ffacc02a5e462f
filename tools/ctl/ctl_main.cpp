// tikron-ctl: queries, management dumps, injected publications and
// statistics of a running tikron-host, over its control socket or, with
// --nats, over the NATS bus from any machine.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "host/nats_bus.h"
#include "host/nats_subject.h"
#include "host/product_control.h"
#include "tools/ctl/table_print.h"

using json = nlohmann::ordered_json;

namespace {

int Fail(const std::string& why) {
    fprintf(stderr, "tikron-ctl: %s\n", why.c_str());
    return 1;
}

// Where the requests go: a control socket, or a node (or any node of a
// group) on a NATS server.
struct Target {
    std::string socket, natsUrl, node, group;
};

// One control request over the bus.
bool BusRequest(const Target& t, const json& request, int timeoutMs, json* answer, std::string* error) {
    natsbus::CNatsBus bus;
    natsbus::BusOptions o;
    o.url = t.natsUrl;
    o.node = "tikron-ctl#" + std::to_string(getpid());
    o.name = "tikron-ctl";
    o.connectTimeoutMs = std::min(timeoutMs, 5000);
    if (bus.Connect(o, error) != natsbus::BUS_OK) return false;
    const std::string subject =
        t.node.empty() ? natsbus::GroupControlSubject(t.group) : natsbus::ControlSubject(t.node);
    const std::string who = t.node.empty() ? "of group " + t.group : t.node;
    std::string reply;
    int r = bus.Request(subject, request.dump(-1, ' ', false, json::error_handler_t::replace), timeoutMs, &reply);
    if (r == natsbus::BUS_NO_RESPONDERS) {
        *error = "no tikron node " + who + " on the bus at " + t.natsUrl;
        return false;
    }
    if (r == natsbus::BUS_TIMEOUT) {
        *error = "no answer from tikron node " + who + " within " + std::to_string(timeoutMs) + " ms (" + subject + ")";
        return false;
    }
    if (r != natsbus::BUS_OK) {
        *error = std::string("request to ") + who + " failed: " + natsbus::CNatsBus::ResultText(r);
        return false;
    }
    *answer = json::parse(reply, nullptr, false);
    if (answer->is_discarded() || !answer->is_object()) {
        *error = "the answer of " + who + " is not a JSON object";
        return false;
    }
    return true;
}

// Sends one request; prints an error and returns false when it failed.
bool Call(const Target& target, const json& request, int timeoutMs, json* answer, int* status) {
    std::string error;
    const bool sent = target.natsUrl.empty()
                          ? product::ControlRequest(target.socket, request, answer, &error, timeoutMs)
                          : BusRequest(target, request, timeoutMs, answer, &error);
    if (!sent) {
        *status = Fail(error);
        return false;
    }
    if (!answer->value("ok", false)) {
        *status = Fail(answer->value("error", std::string("request failed")));
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"tikron-ctl: talk to a running tikron-host"};
    app.require_subcommand(1);
    Target target;
    target.group = "tikron";
    int timeoutMs = 10000;
    auto* control = app.add_option("--control", target.socket, "control socket of tikron-host");
    auto* nats = app.add_option("--nats", target.natsUrl, "NATS server of the nodes, e.g. nats://127.0.0.1:4222");
    control->excludes(nats);
    app.add_option("--node", target.node, "with --nats: the node AppName#AppID (default: any node of --group)");
    app.add_option("--group", target.group, "with --nats: the nodes' queue group")->capture_default_str();
    app.add_option("--timeout-ms", timeoutMs, "how long to wait for an answer")->check(CLI::Range(1, 600000));

    auto* query = app.add_subcommand("query", "ask the plug-in for the latest quotes (prints the answer as JSON)");
    int function = 0, resultType = 1;
    std::vector<std::string> keys;
    query->add_option("function", function, "620200 single-leg, 620205 extended, 620201 arbitrage, 620207 exchange")
        ->required()
        ->check(CLI::IsMember({620200, 620201, 620205, 620207}));
    query->add_option("--result-type", resultType, "1: named columns, 0: one raw column")->capture_default_str();
    bool compact = false;
    query->add_flag("--compact", compact, "print the answer as one line of JSON");
    query->add_option("keys", keys, "contract codes, arbitrage ids or exchange codes (none: every exchange for 620207)");

    auto* mgr = app.add_subcommand("mgr", "print a management dump (0 lists them)");
    int functionId = 0;
    bool asJson = false;
    mgr->add_option("function_id", functionId, "management function number")->required();
    mgr->add_flag("--json", asJson, "print the table as JSON");

    auto* publish = app.add_subcommand("publish", "inject a publication (function 620003) as the message center");
    int issueType = 0;
    std::string body, key;
    publish->add_option("--issue-type", issueType, "issue type (item 53)")->required();
    publish->add_option("--body", body, R"(body JSON: {"columns":["QH"],"rows":[["..."]]})")->required();
    publish->add_option("--key", key, "subscription key JSON, same form (optional)");

    auto* stats = app.add_subcommand("stats", "print the statistics dump");
    bool statsJson = false;
    stats->add_flag("--json", statsJson, "print as JSON, with the host's own counters");

    CLI11_PARSE(app, argc, argv);
    if (target.socket.empty() && target.natsUrl.empty()) return Fail("--control SOCKET or --nats URL is required");

    json answer;
    int status = 0;
    if (*query) {
        if (keys.empty() && function != 620207) return Fail("query " + std::to_string(function) + " needs a key");
        json req = {{"cmd", "query"}, {"function", function}, {"result_type", resultType}, {"keys", keys},
                    {"timeout_ms", std::max(1, timeoutMs - 500)}};
        if (!Call(target, req, timeoutMs, &answer, &status)) return status;
        printf("%s\n", answer["answer"].dump(compact ? -1 : 2, ' ', false, json::error_handler_t::replace).c_str());
        return 0;
    }
    if (*mgr || *stats) {
        json req = *mgr ? json{{"cmd", "mgr"}, {"function_id", functionId}} : json{{"cmd", "stats"}};
        if (!Call(target, req, timeoutMs, &answer, &status)) return status;
        if (asJson || statsJson) {
            printf("%s\n", (*stats ? answer : answer["table"]).dump(2, ' ', false, json::error_handler_t::replace).c_str());
        } else {
            fputs(ctl::FormatTable(answer["table"]).c_str(), stdout);
        }
        return 0;
    }
    if (*publish) {
        json b = json::parse(body, nullptr, false);
        if (b.is_discarded()) return Fail("--body is not valid JSON");
        json req = {{"cmd", "publish"}, {"issue_type", issueType}, {"body", b}};
        if (!key.empty()) {
            json k = json::parse(key, nullptr, false);
            if (k.is_discarded()) return Fail("--key is not valid JSON");
            req["key"] = k;
        }
        if (!Call(target, req, timeoutMs, &answer, &status)) return status;
        printf("published issue type %d\n", issueType);
        return 0;
    }
    return Fail("no command");
}
