// Crash recovery with real processes: a host killed with SIGKILL starts
// again the same day with every contract's last values; a clean stop
// empties the day's snapshot files.
#include <cstddef>
#include <cstring>
#include <map>

#include "tests/product_support.h"
#include "wire/quote_records.h"

using namespace ptest;

namespace {

// Last published price of every contract (issue type 22).
std::map<std::string, double> LastPrices(const std::string& pubs) {
    std::map<std::string, double> last;
    for (const auto& j : JsonLines(pubs)) {
        if (j["function"] != 620003 || j["issue_type"] != 22) continue;
        const std::string raw = Unhex(j["body"]["rows"][0][1].get<std::string>());
        double v = 0;
        if (raw.size() == sizeof(tagHQInfo_EX)) memcpy(&v, raw.data() + offsetof(tagHQInfo_EX, futu_last_price), sizeof v);
        last[j["key"]["rows"][0][0].get<std::string>()] = v;
    }
    return last;
}

// The prices a query of every contract answers (extended single-leg, fields).
std::map<std::string, double> Queried(const std::string& sock, const std::map<std::string, double>& contracts) {
    json keys = json::array();
    for (const auto& c : contracts) keys.push_back(c.first);
    const json a = Control(sock, {{"cmd", "query"}, {"function", 620205}, {"result_type", 1}, {"keys", keys},
                                  {"timeout_ms", 15000}});
    EXPECT_TRUE(a.value("ok", false)) << a.dump();
    std::map<std::string, double> out;
    if (!a.value("ok", false)) return out;
    const json& body = a["answer"]["body"];
    size_t code = 0, price = 0;
    for (size_t c = 0; c < body["columns"].size(); ++c) {
        if (body["columns"][c]["name"] == "contract_code") code = c;
        if (body["columns"][c]["name"] == "futu_last_price") price = c;
    }
    for (const auto& row : body["rows"]) out[row[code].get<std::string>()] = row[price].get<double>();
    return out;
}

}  // namespace

TEST(ProductRecovery, KilledHostRestartsWithEveryContract) {
    TempDir dir;
    const int port = PickPort(3);
    const std::string config = Config(dir.path(), port);
    std::map<std::string, double> last;
    {
        HostRun host(dir, config);
        ASSERT_TRUE(host.Ready()) << ReadFile(host.err);
        // Two passes over 1,000 contracts: the second values must survive.
        ASSERT_EQ(0, RunProgram({Bin("tikron-feed"), "--port", std::to_string(port), "--synthetic", "1000", "--count",
                                 "2000", "--rate", "4000"}, nullptr));
        ASSERT_TRUE(WaitUntil([&] {
            size_t n = 0;
            for (const auto& j : JsonLines(host.pubs)) n += j["issue_type"] == 22;
            return n >= 2000;
        }, 60000)) << "publications seen: " << JsonLines(host.pubs).size();
        last = LastPrices(host.pubs);
        ASSERT_EQ(1000u, last.size());
        host.proc.Signal(SIGKILL);
        ASSERT_NE(-1, host.proc.Wait(10000));
    }
    for (bool afterCrash : {true, false}) {
        HostRun host(dir, config);
        ASSERT_TRUE(host.Ready()) << ReadFile(host.err);
        // After the crash every contract has its last price; after the clean
        // stop that follows, the next start has no quotes.
        EXPECT_EQ(afterCrash ? last : decltype(last)(), Queried(host.sock, last));
        host.proc.Signal(SIGTERM);
        const int st = host.proc.Wait(15000);
        ASSERT_TRUE(st != -1 && WIFEXITED(st) && WEXITSTATUS(st) == 0) << ReadFile(host.err);
    }
}
