// tikron-ctl: queries, management dumps, injected publications and
// statistics of a running tikron-host, over its control socket.
#include <cstdio>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "host/product_control.h"
#include "tools/ctl/table_print.h"

using json = nlohmann::ordered_json;

namespace {

int Fail(const std::string& why) {
    fprintf(stderr, "tikron-ctl: %s\n", why.c_str());
    return 1;
}

// Sends one request; prints an error and returns false when it failed.
bool Call(const std::string& socket, const json& request, int timeoutMs, json* answer, int* status) {
    std::string error;
    if (!product::ControlRequest(socket, request, answer, &error, timeoutMs)) {
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
    std::string socket;
    int timeoutMs = 10000;
    app.add_option("--control", socket, "control socket of tikron-host")->required();
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

    json answer;
    int status = 0;
    if (*query) {
        if (keys.empty() && function != 620207) return Fail("query " + std::to_string(function) + " needs a key");
        json req = {{"cmd", "query"}, {"function", function}, {"result_type", resultType}, {"keys", keys},
                    {"timeout_ms", std::max(1, timeoutMs - 500)}};
        if (!Call(socket, req, timeoutMs, &answer, &status)) return status;
        printf("%s\n", answer["answer"].dump(compact ? -1 : 2, ' ', false, json::error_handler_t::replace).c_str());
        return 0;
    }
    if (*mgr || *stats) {
        json req = *mgr ? json{{"cmd", "mgr"}, {"function_id", functionId}} : json{{"cmd", "stats"}};
        if (!Call(socket, req, timeoutMs, &answer, &status)) return status;
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
        if (!Call(socket, req, timeoutMs, &answer, &status)) return status;
        printf("published issue type %d\n", issueType);
        return 0;
    }
    return Fail("no command");
}
