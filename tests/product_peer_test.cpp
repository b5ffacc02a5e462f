// Two tikron-host nodes with tikron-ctl playing the message center between
// them: node B's synchronisation requests stay pending until answers with
// every raw row of node A's tables are sent, which fill B's tables through
// the real answer handlers; an exchange status A converts from 33105 to 24
// is taken by B's intake; a client's query keeps its route and a
// subscription answer reaches B as a peer would send them.
#include <algorithm>
#include <map>

#include "tests/product_support.h"

using namespace ptest;

namespace {

std::vector<json> Lines(const std::string& text) {
    std::vector<json> out;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) out.push_back(json::parse(line, nullptr, false));
    return out;
}

// tikron-dbdump --json of a snapshot file, slot numbers left out and sorted:
// the nodes filled their files in different orders.
std::vector<std::string> Records(const std::string& file) {
    std::string out;
    EXPECT_EQ(0, RunProgram({Bin("tikron-dbdump"), file, "--json"}, &out)) << file;
    std::vector<std::string> recs;
    for (json j : Lines(out)) {
        for (const char* k : {"slot", "iRecordNo", "iCrc"}) j.erase(k);
        recs.push_back(j.dump());
    }
    std::sort(recs.begin(), recs.end());
    return recs;
}

const char* const kSyncRequests =
    "<request functionno=\"620202\" note=\"hq\"><param name=\"result_type\" value=\"0\"/></request>"
    "<request functionno=\"620203\" note=\"arg\"><param name=\"result_type\" value=\"0\"/></request>"
    "<request functionno=\"620204\" note=\"hq_ex\"><param name=\"result_type\" value=\"0\"/></request>"
    "<request functionno=\"620206\" note=\"exch\"><param name=\"result_type\" value=\"0\"/></request></mc>";

}  // namespace

TEST(ProductPeers, PeerAnswersSentWithCtlFillTheOtherNode) {
    TempDir a, b;
    const int port = PickPort(9);
    HostRun nodeA(a, Config(a.path(), port, "conf/tikron.xml", {{"<convert33105to24>0", "<convert33105to24>1"}}));
    HostRun nodeB(b, Config(b.path(), port, "conf/tikron.xml",
                            {{"enableudprecv=\"1\"", "enableudprecv=\"0\""},
                             {"enableudphb=\"1\"", "enableudphb=\"0\""},
                             {"</mc>", kSyncRequests}}));
    ASSERT_TRUE(nodeA.Ready()) << ReadFile(nodeA.err);
    ASSERT_TRUE(nodeB.Ready()) << ReadFile(nodeB.err);
    ASSERT_EQ(0, RunProgram({Bin("tikron-feed"), "--port", std::to_string(port), "--file",
                             Source("samples/backend_capture.txt")}, nullptr));
    std::string out, err;
    ASSERT_TRUE(WaitUntil([&] {
        return Ctl(nodeA.sock, {"query", "620207"}, &out) == 0 && json::parse(out)["body"]["rows"].size() == 5;
    }, 10000)) << out;

    // B's synchronisation requests are not answered as subscriptions: they
    // wait for a peer, one per table.
    std::map<int, int> idOf;
    ASSERT_TRUE(WaitUntil([&] {
        idOf.clear();
        if (Ctl(nodeB.sock, {"pending"}, &out) != 0) return false;
        for (const json& r : Lines(out)) idOf[r["function"].get<int>()] = r["packet_id"].get<int>();
        return idOf.size() == 4;
    }, 10000)) << out;
    const struct {
        int function;
        const char* file;
        const char* receipt;
    } tables[] = {{620202, "tikron_futu#1.db", u8"收到单腿行情的同步应答"},
                  {620203, "tikronarg_futu#1.db", u8"收到组合行情的同步应答"},
                  {620204, "tikron_ex_futu#1.db", u8"收到单腿行情(扩展)的同步应答"},
                  {620206, "futuexchstatus_futu#1.db", u8"收到交易所状态的同步应答"}};
    for (const auto& t : tables) {
        // A's answer with every raw row, sent to B as the answer to its request.
        const std::string answer = a / (std::to_string(t.function) + ".json");
        ASSERT_EQ(0, Ctl(nodeA.sock, {"sync", std::to_string(t.function), "--compact"}, &out)) << t.function;
        WriteFile(answer, out);
        ASSERT_EQ(0, Ctl(nodeB.sock, {"send", std::to_string(t.function), "--packet-type", "1", "--packet-id",
                                      std::to_string(idOf[t.function]), "--body", "@" + answer, "--wait-ms", "0"},
                         &out, &err))
            << err;
    }
    for (const auto& t : tables) {
        EXPECT_TRUE(WaitUntil([&] { return ReadFile(b / "host.log").find(t.receipt) != std::string::npos; }, 10000))
            << t.receipt;
        const std::vector<std::string> recsA = Records(a / t.file);
        EXPECT_GT(recsA.size(), 1u) << t.file;
        EXPECT_EQ(recsA, Records(b / t.file)) << t.file;
    }
    EXPECT_TRUE(WaitUntil([&] { return Ctl(nodeB.sock, {"pending"}, &out) == 0 && out.empty(); }, 5000)) << out;

    // A 33105 publication A converts to 24, published into B as it is.
    const json status = {{"columns", {"QH"}}, {"rows", {{"F7\x01" "3\x01" "1"}}}};
    ASSERT_EQ(0, Ctl(nodeA.sock, {"send", "620003", "--issue-type", "33105", "--body", status.dump(), "--wait-ms",
                                  "1500"}, &out));
    std::string converted;
    for (const json& m : Lines(out))
        if (m["issue_type"] == 24) converted = m.dump();
    ASSERT_FALSE(converted.empty()) << out;
    WriteFile(a / "24.json", converted);
    ASSERT_EQ(0, Ctl(nodeB.sock, {"publish", "--issue-type", "24", "--body", "@" + a / "24.json", "--key",
                                  "@" + a / "24.json"}, &out, &err)) << err;
    EXPECT_TRUE(WaitUntil([&] {
        return Ctl(nodeB.sock, {"query", "620207", "F7", "--compact"}, &out) == 0 &&
               out.find("[\"F7\",\"3\",1]") != std::string::npos;
    }, 5000)) << out;

    // A query from the client side keeps its route in the answer; a
    // subscription answer with any result reaches the plug-in.
    ASSERT_EQ(0, Ctl(nodeB.sock, {"send", "620207", "--from", "client", "--route", "ospf,nbr,svr,plug", "--body",
                                  R"({"columns":["result_type","futu_exch_type"],"rows":[[1,"F7"]]})", "--answer"},
                     &out));
    EXPECT_EQ(json({"ospf", "nbr", "svr", "plug"}), json::parse(out)["route"]) << out;
    ASSERT_EQ(0, Ctl(nodeB.sock, {"send", "620001", "--packet-type", "1", "--packet-id", "1", "--key",
                                  R"({"columns":["subscibe_result"],"rows":[[2]]})", "--wait-ms", "0"}, &out));
    EXPECT_TRUE(WaitUntil([&] { return ReadFile(b / "host.log").find(u8"subscibe_result: 2") != std::string::npos; },
                          5000));

    for (HostRun* n : {&nodeA, &nodeB}) {
        n->proc.Signal(SIGTERM);
        const int st = n->proc.Wait(15000);
        EXPECT_TRUE(st != -1 && WIFEXITED(st) && WEXITSTATUS(st) == 0) << ReadFile(n->err);
    }
}
