// Crash recovery with real processes: a host killed with SIGKILL starts
// again the same day with every contract's last values; a clean stop
// empties the day's snapshot files.
#include <cstddef>
#include <cstring>
#include <map>

#include "wire/quote_records.h"
#include "tests/product_support.h"

using namespace ptest;

namespace {

// Last published extended record of every contract (issue type 22).
std::map<std::string, std::string> LastRecords(const std::string& pubs) {
    std::map<std::string, std::string> last;
    for (const auto& j : JsonLines(pubs)) {
        if (j["function"] != 620003 || j["issue_type"] != 22 || !j["body"].is_object()) continue;
        last[j["key"]["rows"][0][0].get<std::string>()] = Unhex(j["body"]["rows"][0][1].get<std::string>());
    }
    return last;
}

double LastPrice(const std::string& raw) {
    double v = 0;
    if (raw.size() == sizeof(tagHQInfo_EX)) memcpy(&v, raw.data() + offsetof(tagHQInfo_EX, futu_last_price), sizeof v);
    return v;
}

json QueryAll(const std::string& sock, const std::map<std::string, std::string>& contracts) {
    json keys = json::array();
    for (const auto& c : contracts) keys.push_back(c.first);
    return Control(sock, {{"cmd", "query"}, {"function", 620205}, {"result_type", 1}, {"keys", keys},
                          {"timeout_ms", 15000}});
}

}  // namespace

TEST(ProductRecovery, KilledHostRestartsWithEveryContract) {
    TempDir dir;
    const int port = PickPort(3);
    const std::string config = Config(dir.path(), port);
    std::map<std::string, std::string> last;
    {
        HostRun host(dir, config);
        ASSERT_TRUE(host.Ready()) << ReadFile(host.err);
        // Two passes over 1,000 contracts: the second values must survive.
        std::string out;
        ASSERT_EQ(0, RunProgram({Bin("tikron-feed"), "--port", std::to_string(port), "--synthetic", "1000", "--count",
                          "2000", "--rate", "4000"}, &out));
        ASSERT_TRUE(WaitUntil([&] {
            size_t n = 0;
            for (const auto& j : JsonLines(host.pubs)) n += j["issue_type"] == 22;
            return n >= 2000;
        }, 60000)) << "publications seen: " << JsonLines(host.pubs).size();
        last = LastRecords(host.pubs);
        ASSERT_EQ(1000u, last.size());
        host.proc.Signal(SIGKILL);
        ASSERT_NE(-1, host.proc.Wait(10000));
    }
    {
        HostRun host(dir, config);
        ASSERT_TRUE(host.Ready()) << ReadFile(host.err);
        json a = QueryAll(host.sock, last);
        ASSERT_TRUE(a.value("ok", false)) << a.dump();
        const json& body = a["answer"]["body"];
        ASSERT_EQ(1000u, body["rows"].size());
        size_t codeCol = 0, priceCol = 0;
        for (size_t c = 0; c < body["columns"].size(); ++c) {
            if (body["columns"][c]["name"] == "contract_code") codeCol = c;
            if (body["columns"][c]["name"] == "futu_last_price") priceCol = c;
        }
        ASSERT_NE(priceCol, 0u);
        size_t matching = 0;
        for (const auto& row : body["rows"]) {
            const std::string code = row[codeCol].get<std::string>();
            ASSERT_EQ(1u, last.count(code)) << code;
            EXPECT_EQ(LastPrice(last[code]), row[priceCol].get<double>()) << code;
            matching += LastPrice(last[code]) == row[priceCol].get<double>();
        }
        EXPECT_EQ(1000u, matching);

        // A clean stop empties the snapshot: the next start has no quotes.
        host.proc.Signal(SIGTERM);
        int st = host.proc.Wait(15000);
        ASSERT_TRUE(st != -1 && WIFEXITED(st) && WEXITSTATUS(st) == 0) << ReadFile(host.err);
    }
    {
        HostRun host(dir, config);
        ASSERT_TRUE(host.Ready()) << ReadFile(host.err);
        json a = QueryAll(host.sock, last);
        ASSERT_TRUE(a.value("ok", false)) << a.dump();
        EXPECT_EQ(0u, a["answer"]["body"]["rows"].size());
        host.proc.Signal(SIGTERM);
        EXPECT_NE(-1, host.proc.Wait(15000));
    }
}
