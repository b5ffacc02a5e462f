// tikron-ctl: sends any message into the plug-in of a running tikron-host
// and shows what it answers and publishes; queries, synchronisation
// requests, injected publications, pending requests, management dumps and
// statistics are convenience forms. Talks over the control socket or, with
// --nats, over the NATS bus from any machine.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>
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

// Sends one request; prints an error and returns false when it failed.
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

std::string Dump(const json& j, bool compact) { return j.dump(compact ? -1 : 2, ' ', false, json::error_handler_t::replace); }

// A packed body given as JSON text or as @FILE. A whole message line (as
// tikron-host writes them) stands for its item: "body" or "key".
bool ReadPacked(const std::string& arg, const char* item, json* out, std::string* error) {
    std::string text = arg;
    if (!arg.empty() && arg[0] == '@') {
        std::ifstream in(arg.substr(1));
        if (!in) {
            *error = "cannot read " + arg.substr(1);
            return false;
        }
        std::stringstream ss;
        ss << in.rdbuf();
        text = ss.str();
    }
    *out = json::parse(text, nullptr, false);
    if (out->is_discarded()) {
        *error = std::string("--") + item + " is not valid JSON";
        return false;
    }
    if (out->is_object() && !out->contains("columns") && out->contains(item)) *out = (*out)[item];
    return true;
}

// "a,b,c,d" into up to four route parts.
json RouteParts(const std::string& route) {
    json parts = json::array();
    std::stringstream ss(route);
    std::string part;
    while (std::getline(ss, part, ',')) parts.push_back(part);
    if (!route.empty() && route.back() == ',') parts.push_back("");
    return parts;
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

    auto* send = app.add_subcommand("send", "send any message into the plug-in; prints what it sends meanwhile");
    int function = 0, packetType = 0, packetId = -1, issueType = -1, version = 33, errorFlag = 0, errorNo = 0;
    int waitMs = 500;
    std::string body, key, errorInfo, route, from = "center";
    bool answerOnly = false;
    send->add_option("function", function, "function number (item 5)")->required();
    send->add_option("--packet-type", packetType, "item 3: 0 request, 1 answer, 2 ...")->capture_default_str();
    send->add_option("--packet-id", packetId, "item 11 (default: a fresh id)");
    send->add_option("--issue-type", issueType, "item 53");
    send->add_option("--body", body, "item 8: packed body as JSON, or @FILE (a body or a whole message line)");
    send->add_option("--key", key, "item 54: packed body as JSON, or @FILE (a body or a whole message line)");
    send->add_option("--version", version, "pack version of body and key")->check(CLI::IsMember({1, 33}))
        ->capture_default_str();
    send->add_option("--error-flag", errorFlag, "item 7");
    send->add_option("--error-no", errorNo, "item 19");
    send->add_option("--error-info", errorInfo, "item 20");
    send->add_option("--route", route, "item 9: OSPF,NEIGHBOUR,SERVER,PLUGIN");
    send->add_option("--from", from, "the side it comes from")->check(CLI::IsMember({"center", "client"}))
        ->capture_default_str();
    send->add_option("--wait-ms", waitMs, "collect what the plug-in sends until its answer or this long")
        ->check(CLI::Range(0, 600000))->capture_default_str();
    send->add_flag("--answer", answerOnly, "print only the answer (packet type 1, same function and packet id); "
                                            "fail when none came");

    auto* query = app.add_subcommand("query", "ask the plug-in for the latest quotes (prints the answer as JSON)");
    int resultType = 1;
    std::vector<std::string> keys;
    query->add_option("function", function, "620200 single-leg, 620205 extended, 620201 arbitrage, 620207 exchange")
        ->required()
        ->check(CLI::IsMember({620200, 620201, 620205, 620207}));
    query->add_option("--result-type", resultType, "1: named columns, 0: one raw column")->capture_default_str();
    bool compact = false;
    query->add_flag("--compact", compact, "print the answer as one line of JSON");
    query->add_option("keys", keys, "contract codes, arbitrage ids or exchange codes (none: every exchange for 620207)");

    auto* sync = app.add_subcommand("sync", "ask for a whole table as a peer node does (prints the answer as JSON)");
    int syncResult = 0;
    sync->add_option("function", function, "620202 single-leg, 620203 arbitrage, 620204 extended, 620206 exchange")
        ->required()
        ->check(CLI::IsMember({620202, 620203, 620204, 620206}));
    sync->add_option("--result-type", syncResult, "0: one raw column, 1: named columns")->capture_default_str();
    sync->add_flag("--compact", compact, "print the answer as one line of JSON");

    auto* pending = app.add_subcommand("pending", "the plug-in's requests waiting for a peer's answer (JSON lines)");

    auto* mgr = app.add_subcommand("mgr", "print a management dump (0 lists them)");
    int functionId = 0;
    bool asJson = false;
    mgr->add_option("function_id", functionId, "management function number")->required();
    mgr->add_flag("--json", asJson, "print the table as JSON");

    auto* publish = app.add_subcommand("publish", "inject a publication (function 620003) as the message center");
    publish->add_option("--issue-type", issueType, "issue type (item 53)")->required();
    publish->add_option("--body", body, R"(body JSON: {"columns":["QH"],"rows":[["..."]]}, or @FILE)")->required();
    publish->add_option("--key", key, "subscription key JSON, same form (optional)");

    auto* stats = app.add_subcommand("stats", "print the statistics dump");
    bool statsJson = false;
    stats->add_flag("--json", statsJson, "print as JSON, with the host's own counters");

    CLI11_PARSE(app, argc, argv);
    if (target.socket.empty() && target.natsUrl.empty()) return Fail("--control SOCKET or --nats URL is required");

    json answer;
    int status = 0;
    std::string error;
    if (*send || *publish) {
        json req = {{"cmd", *send ? "send" : "publish"}, {"issue_type", issueType}};
        json packed;
        if (!body.empty()) {
            if (!ReadPacked(body, "body", &packed, &error)) return Fail(error);
            req["body"] = packed;
        }
        if (!key.empty()) {
            if (!ReadPacked(key, "key", &packed, &error)) return Fail(error);
            req["key"] = packed;
        }
        int wait = 0;
        if (*send) {
            wait = waitMs;
            req.update({{"function", function}, {"packet_type", packetType}, {"version", version},
                        {"error_flag", errorFlag}, {"error_no", errorNo}, {"from", from}, {"wait_ms", waitMs}});
            if (packetId >= 0) req["packet_id"] = packetId;
            if (!errorInfo.empty()) req["error_info"] = errorInfo;
            if (!route.empty()) req["route"] = RouteParts(route);
        }
        if (issueType < 0) req.erase("issue_type");
        if (!Call(target, req, timeoutMs + wait, &answer, &status)) return status;
        if (*publish) {
            printf("published issue type %d\n", issueType);
        } else if (answerOnly) {
            if (answer["answer"].is_null()) return Fail("no answer within " + std::to_string(waitMs) + " ms");
            printf("%s\n", Dump(answer["answer"], true).c_str());
        } else {
            for (const auto& m : answer["messages"]) printf("%s\n", Dump(m, true).c_str());
        }
        return 0;
    }
    if (*query || *sync) {
        if (*query && keys.empty() && function != 620207)
            return Fail("query " + std::to_string(function) + " needs a key");
        json req;
        if (*query) {
            req = {{"cmd", "query"}, {"function", function}, {"result_type", resultType}, {"keys", keys},
                   {"timeout_ms", std::max(1, timeoutMs - 500)}};
        } else {
            // A peer's request: from the center's side, its body in item 54.
            req = {{"cmd", "send"}, {"function", function}, {"packet_type", 0},
                   {"key", {{"columns", {"result_type"}}, {"rows", {{syncResult}}}}},
                   {"wait_ms", std::max(1, timeoutMs - 500)}};
        }
        if (!Call(target, req, timeoutMs, &answer, &status)) return status;
        if (answer["answer"].is_null()) return Fail("no answer within " + std::to_string(timeoutMs) + " ms");
        printf("%s\n", Dump(answer["answer"], compact).c_str());
        return 0;
    }
    if (*pending) {
        if (!Call(target, {{"cmd", "pending"}}, timeoutMs, &answer, &status)) return status;
        for (const auto& m : answer["requests"]) printf("%s\n", Dump(m, true).c_str());
        return 0;
    }
    if (*mgr || *stats) {
        json req = *mgr ? json{{"cmd", "mgr"}, {"function_id", functionId}} : json{{"cmd", "stats"}};
        if (!Call(target, req, timeoutMs, &answer, &status)) return status;
        if (asJson || statsJson) {
            printf("%s\n", Dump(*stats ? answer : answer["table"], false).c_str());
        } else {
            fputs(ctl::FormatTable(answer["table"]).c_str(), stdout);
        }
        return 0;
    }
    return Fail("no command");
}
