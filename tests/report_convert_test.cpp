// Publication conversion end to end: 620003 publications posted into the
// plug-in and the converted publications it issues, per switch.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "testing/frame_test_support.h"
#include "host/host_emulator.h"
#include "quote/quote_text.h"
#include "report/report_text.h"

using hostemu::DecodePacked;
using hostemu::MessageSnapshot;
using hostemu::PackCell;
using hostemu::PackedBody;

namespace {

const std::vector<char> kKey = {'K', 'E', 'Y', '\0', '7'};

struct Convert : testing::Test {
    frametest::TempWorkDir dir;
    std::unique_ptr<hostemu::HostEmulator> h;

    void SetUp() override { ASSERT_TRUE(dir.Enter()); }
    void TearDown() override {
        if (h) h->Shutdown();
        dir.Leave();
    }
    // switches: names of the conversion switches to turn on.
    void Start(const std::vector<std::string>& switches) {
        std::string conv;
        for (const auto& s : switches) conv += "<" + s + ">1</" + s + ">";
        hostemu::HostOptions o = frametest::Options(frametest::Config(
            "<args enableudprecv=\"0\" subscibetomc=\"0\"/><convert>" + conv + "</convert>"));
        o.logFile = dir.Path() + "/host.log";
        h = std::make_unique<hostemu::HostEmulator>(o);
        ASSERT_EQ(0, h->Start()) << h->Error();
    }
    void Post(int issue, const PackedBody& body, bool bodyInKey = false, int packetType = 0) {
        hostemu::MessageSpec req(620003, packetType);
        req.issueType = issue;
        if (bodyInKey) {
            req.key = hostemu::EncodePacked(body);
        } else {
            req.body = hostemu::EncodePacked(body);
            req.key = kKey;
        }
        ASSERT_EQ(0, h->PostFromCenter(req));
    }
    // Converted publications after the plug-in had time for all of them.
    std::vector<MessageSnapshot> Published(size_t atLeast) {
        frametest::WaitUntil([&] { return Out().size() >= atLeast; });
        std::this_thread::sleep_for(std::chrono::milliseconds(250));
        return Out();
    }
    std::vector<MessageSnapshot> Out() {
        std::vector<MessageSnapshot> v;
        for (const auto& m : h->Center().MessagesOf(620003, 0))
            if (m.IssueType() != 0) v.push_back(m);
        return v;
    }
};

PackedBody ReportText(char ly, const std::string& text) {
    PackedBody b;
    b.version = 33;
    b.columns = {{"LY", 'S', 255, 4}, {"QH", 'S', 1024, 4}};
    b.rows = {{PackCell(ly), PackCell(text)}};
    return b;
}

PackedBody QuoteText(const std::string& text) { return hostemu::MakeBody(33, {"QH"}, {{text}}); }

PackedBody RawRecord(const char* column, const void* rec, size_t size) {
    PackedBody b;
    b.columns = {{"type", 'S', 255, 4}, {column, 'R', 10240, 4}};
    b.rows = {{PackCell(1), PackCell::Raw(rec, size)}};
    return b;
}

tagCJ_EX Deal(const char* contract) {
    tagCJ_EX d;
    std::memset(&d, 0, sizeof d);
    d.entrust_no = 5;
    strcpy(d.futures_account, "FA1");
    strcpy(d.futu_exch_type, ConvertExch("F2", false));
    strcpy(d.business_no, "BN");
    strncpy(d.contract_code, contract, sizeof d.contract_code - 1);
    strcpy(d.entrust_name, "卖出");
    strcpy(d.direction_name, "平仓");
    strcpy(d.hedge_name, "套保");
    d.business_price = 10.5;
    d.business_amount = 2;
    d.fund_account = 42;
    d.entrust_status = '8';
    d.futu_entrust_type = '0';
    d.forceclose_reason = '0';
    d.init_date = 20240301;
    d.business_time = 93000;
    strcpy(d.confirm_no, "CN");
    strcpy(d.entrust_occasion, "oc");
    return d;
}

std::string TextOf(tagCJ_EX& d) {
    char t[1024] = {0};
    EXPECT_EQ(0, ConvertCjTo33101(&d, t, sizeof t));
    return t;
}

// Checks the body of a converted report record and returns its raw bytes.
std::string RecordBytes(const MessageSnapshot& m, char ly) {
    PackedBody b;
    EXPECT_EQ(0, DecodePacked(m.Body().data(), static_cast<int>(m.Body().size()), &b));
    if (b.columns.size() != 2 || b.rows.size() != 1) {
        ADD_FAILURE() << "two columns and one row expected";
        return "";
    }
    EXPECT_EQ("business_type", b.columns[0].name);
    EXPECT_EQ("futu_hb_raw", b.columns[1].name);
    EXPECT_EQ('R', b.columns[1].type);
    EXPECT_EQ(10240, b.columns[1].width);
    EXPECT_EQ(PackCell(ly), b.rows[0][0]);
    EXPECT_EQ(kKey, m.Key());  // the incoming key, unchanged
    return b.rows[0][1].bytes;
}

std::string Bytes(const void* p, size_t n) { return std::string(static_cast<const char*>(p), n); }

}  // namespace

// Both 33101 switches: one 23 and one 17, the legacy one from the same
// parse; a 13-character contract code has no legacy form, 23 still goes out.
TEST_F(Convert, DealTextWithBothSwitches) {
    Start({"convert33101to23", "convert33101to17"});
    tagCJ_EX d = Deal("cu2405C50");
    Post(33101, ReportText('B', TextOf(d)));
    auto out = Published(2);
    ASSERT_EQ(2u, out.size());
    EXPECT_EQ(23, out[0].IssueType());
    EXPECT_EQ(17, out[1].IssueType());
    EXPECT_EQ(Bytes(&d, sizeof d), RecordBytes(out[0], 'B'));
    tagCJ legacy;
    std::memset(&legacy, 0, sizeof legacy);
    ConvertCj23To17(&d, legacy);
    EXPECT_EQ(Bytes(&legacy, sizeof legacy), RecordBytes(out[1], 'B'));

    h->Center().Clear();
    tagCJ_EX longCode = Deal("cu2405C500000");
    Post(33101, ReportText('B', TextOf(longCode)));
    out = Published(1);
    ASSERT_EQ(1u, out.size());
    EXPECT_EQ(23, out[0].IssueType());
}

// Each switch alone, on entrust texts; the body may travel in item 54 only.
TEST_F(Convert, EntrustTextEachSwitchAloneAndBodyInKey) {
    Start({"convert33101to17"});
    tagWTQR_EX w;
    std::memset(&w, 0, sizeof w);
    w.entrust_no = 9;
    strcpy(w.contract_code, "ab1");
    strcpy(w.entrust_name, "买入");
    strcpy(w.direction_name, "开仓");
    strcpy(w.hedge_name, "投机");
    w.entrust_status = '1';
    w.futu_entrust_type = '0';
    w.forceclose_reason = '0';
    strcpy(w.futu_exch_type, ConvertExch("F1", false));
    char t[1024] = {0};
    ASSERT_EQ(0, ConvertHbTo33101(&w, t, sizeof t));
    Post(33101, ReportText('0', t));
    auto out = Published(1);
    ASSERT_EQ(1u, out.size());
    EXPECT_EQ(17, out[0].IssueType());
    tagWTQR legacy;
    std::memset(&legacy, 0, sizeof legacy);
    ConvertHb23To17(&w, legacy);
    EXPECT_EQ(Bytes(&legacy, sizeof legacy), RecordBytes(out[0], '0'));
    h->Shutdown();
    h.reset();

    Start({"convert33101to23"});
    Post(33101, ReportText('0', t), /*bodyInKey=*/true);
    out = Published(1);
    ASSERT_EQ(1u, out.size());
    EXPECT_EQ(23, out[0].IssueType());
    PackedBody b = frametest::Decode(out[0].Body());
    ASSERT_EQ(1u, b.rows.size());
    EXPECT_EQ(Bytes(&w, sizeof w), b.rows[0][1].bytes);
    EXPECT_EQ(hostemu::EncodePacked(ReportText('0', t)), out[0].Key());
}

// 23 and 17 publications are never converted; with every switch off nothing is.
TEST_F(Convert, ReportRecordsNeverConverted) {
    Start({"convert23to17", "convert23to33101"});
    tagCJ_EX d = Deal("cu2405");
    PackedBody b;
    b.columns = {{"business_type", 'S', 255, 4}, {"futu_hb_raw", 'R', 10240, 4}};
    b.rows = {{PackCell("B"), PackCell::Raw(&d, sizeof d)}};
    Post(23, b);
    Post(33101, ReportText('B', TextOf(d)));
    EXPECT_TRUE(Published(0).empty());
}

// Quote conversions: 22 -> 16 (code within 12 characters) and 33100; only
// 33100 for a long code; 18, 24 and the quote texts back to records.
TEST_F(Convert, QuoteRecordsAndTexts) {
    Start({"convert22to16", "convert22to33100", "convert18to33102", "convert24to33105",
           "convert33100to22", "convert33100to16", "convert33102to18", "convert33105to24"});
    tagHQInfo_EX q;
    std::memset(&q, 0, sizeof q);
    strcpy(q.contract_code, "cu2405");
    q.futu_last_price = 71000.5;
    q.buy_high_amount = 3;
    Post(22, RawRecord("futu_hq_raw", &q, sizeof q));
    auto out = Published(2);
    ASSERT_EQ(2u, out.size());
    EXPECT_EQ(16, out[0].IssueType());
    EXPECT_EQ(33100, out[1].IssueType());
    tagHQInfo legacy;
    std::memset(&legacy, 0, sizeof legacy);
    ConvertHq22To16(&q, legacy);
    PackedBody b = frametest::Decode(out[0].Body());
    ASSERT_EQ(2u, b.columns.size());
    EXPECT_EQ(PackCell(1), b.rows[0][0]);
    EXPECT_EQ(Bytes(&legacy, sizeof legacy), b.rows[0][1].bytes);
    char buf[1024] = {0};
    const std::string text33100 = Convert22To33100(&q, buf, sizeof buf);
    b = frametest::Decode(out[1].Body());
    EXPECT_EQ(text33100, b.rows[0][0].bytes);

    // A 13-character code: the 16 form is skipped, 33100 still goes out.
    h->Center().Clear();
    std::memset(q.contract_code, 0, sizeof q.contract_code);
    strcpy(q.contract_code, "cu2405-C-7000");
    Post(22, RawRecord("futu_hq_raw", &q, sizeof q));
    out = Published(1);
    ASSERT_EQ(1u, out.size());
    EXPECT_EQ(33100, out[0].IssueType());

    // 33100 text -> 22 and 16.
    h->Center().Clear();
    std::memset(q.contract_code, 0, sizeof q.contract_code);
    strcpy(q.contract_code, "cu2405");
    Post(33100, QuoteText(text33100));
    out = Published(2);
    ASSERT_EQ(2u, out.size());
    EXPECT_EQ(22, out[0].IssueType());
    EXPECT_EQ(16, out[1].IssueType());
    b = frametest::Decode(out[0].Body());
    EXPECT_EQ(Bytes(&q, sizeof q), b.rows[0][1].bytes);

    // A record to its text and the text back: the record publication as decoded.
    auto roundTrip = [&](int issue, const PackedBody& rec, int textIssue) {
        PackedBody back;
        h->Center().Clear();
        Post(issue, rec);
        out = Published(1);
        if (out.size() != 1 || out[0].IssueType() != textIssue) {
            ADD_FAILURE() << issue << " gave " << out.size() << " publications";
            return back;
        }
        b = frametest::Decode(out[0].Body());
        const std::string text = b.rows.empty() || b.rows[0].empty() ? "" : b.rows[0][0].bytes;
        h->Center().Clear();
        Post(textIssue, QuoteText(text));
        out = Published(1);
        if (out.size() == 1 && out[0].IssueType() == issue) back = frametest::Decode(out[0].Body());
        return back;
    };
    // 24 -> 33105 -> 24 (no "type" column).
    tagEXCHSTATUS st;
    std::memset(&st, 0, sizeof st);
    strcpy(st.futu_exch_type, "F1");
    strcpy(st.futu_status, "2");
    st.can_trade = 1;
    PackedBody sb;
    sb.columns = {{"futu_exch_status_raw", 'R', 10240, 4}};
    sb.rows = {{PackCell::Raw(&st, sizeof st)}};
    // The converted 24 has the body of the UDP exchange-status publication,
    // which the 24 conversion itself reads back.
    b = roundTrip(24, sb, 33105);
    ASSERT_EQ(1u, b.rows.size());
    ASSERT_EQ(1u, b.columns.size());
    EXPECT_EQ("futu_exch_status_raw", b.columns[0].name);
    EXPECT_EQ('R', b.columns[0].type);
    EXPECT_EQ(1024, b.columns[0].width);
    EXPECT_EQ(Bytes(&st, sizeof st), b.rows[0][0].bytes);
    EXPECT_EQ(Bytes(&st, sizeof st), roundTrip(24, b, 33105).rows.at(0).at(0).bytes);

    // 18 -> 33102 -> 18 with "type" 9.
    tagArgHQInfo a;
    std::memset(&a, 0, sizeof a);
    strcpy(a.contract_code, "SP cu2405&cu2406");
    strcpy(a.futu_exch_type, "F3");
    strcpy(a.first_code, "cu2405");
    strcpy(a.second_code, "cu2406");
    a.arbi_type = '1';
    a.buy_price = 12.5;
    b = roundTrip(18, RawRecord("futu_hq_raw", &a, sizeof a), 33102);
    ASSERT_EQ(1u, b.rows.size());
    ASSERT_EQ(2u, b.columns.size());
    EXPECT_EQ(PackCell(9), b.rows[0][0]);
    EXPECT_EQ(Bytes(&a, sizeof a), b.rows[0][1].bytes);

    // A text that does not parse is converted all the same, with what the
    // parser left in the zeroed record.
    struct Broken {
        int issue;
        std::string text;
        std::vector<int> out;
        std::vector<std::string> records;  // expected record bytes per output
    };
    tagHQInfo_EX ex22;
    tagHQInfo ex16;
    tagArgHQInfo ex18;
    tagEXCHSTATUS ex24;
    std::memset(&ex22, 0, sizeof ex22);
    std::memset(&ex16, 0, sizeof ex16);
    std::memset(&ex18, 0, sizeof ex18);
    std::memset(&ex24, 0, sizeof ex24);
    const std::string t100 = "IF2412\x01" "3850.2\x01" "x", t102 = "SP a&b\x01" "F2", t105 = "F9\x01" "2";
    EXPECT_NE(0, Convert33100To22(t100.c_str(), &ex22));
    EXPECT_NE(0, Convert33100To16(t100.c_str(), &ex16));
    EXPECT_NE(0, Convert33102To18(t102.c_str(), &ex18));
    EXPECT_NE(0, Convert33105To24(t105.c_str(), &ex24));
    Broken broken[] = {
        {33100, t100, {22, 16}, {Bytes(&ex22, sizeof ex22), Bytes(&ex16, sizeof ex16)}},
        {33102, t102, {18}, {Bytes(&ex18, sizeof ex18)}},
        {33105, t105, {24}, {Bytes(&ex24, sizeof ex24)}},
    };
    for (const Broken& c : broken) {
        h->Center().Clear();
        Post(c.issue, QuoteText(c.text));
        out = Published(c.out.size());
        ASSERT_EQ(c.out.size(), out.size()) << c.issue;
        for (size_t i = 0; i < out.size(); ++i) {
            EXPECT_EQ(c.out[i], out[i].IssueType()) << c.issue;
            b = frametest::Decode(out[i].Body());
            ASSERT_EQ(1u, b.rows.size()) << c.issue;
            EXPECT_EQ(c.records[i], b.rows[0].back().bytes) << c.issue << " -> " << c.out[i];
        }
    }
    EXPECT_EQ(0u, h->Log().CountContaining("convert 33")) << "no extra log line";
}

// Only "convert22to33100": a 22 publication gives only 33100, long code or not.
TEST_F(Convert, OnlyTextSwitchForQuotes) {
    Start({"convert22to33100"});
    tagHQInfo_EX q;
    std::memset(&q, 0, sizeof q);
    strcpy(q.contract_code, "cu2405");
    Post(22, RawRecord("futu_hq_raw", &q, sizeof q));
    strcpy(q.contract_code, "cu2405-C-70000");
    Post(22, RawRecord("futu_hq_raw", &q, sizeof q));
    auto out = Published(2);
    ASSERT_EQ(2u, out.size());
    EXPECT_EQ(33100, out[0].IssueType());
    EXPECT_EQ(33100, out[1].IssueType());
}

// Answers, missing bodies and broken bodies are refused with a log line.
TEST_F(Convert, RefusedPublications) {
    Start({"convert33101to23", "convert33101to17"});
    tagCJ_EX d = Deal("cu2405");
    Post(33101, ReportText('B', TextOf(d)), false, /*packetType=*/1);
    hostemu::MessageSpec none(620003, 0);
    none.issueType = 22;
    none.key = kKey;
    ASSERT_EQ(0, h->PostFromCenter(none));
    hostemu::MessageSpec broken(620003, 0);
    broken.issueType = 33101;
    broken.body = {'n', 'o', 'p', 'e'};
    ASSERT_EQ(0, h->PostFromCenter(broken));
    EXPECT_TRUE(h->Log().WaitFor("不能处理的包类型: 1!", 3000));
    EXPECT_TRUE(h->Log().WaitFor("get TAG_MESSAGE_BODY fail!", 3000));
    EXPECT_TRUE(h->Log().WaitFor("解包错误, 错误代码: ", 3000));
    EXPECT_TRUE(Published(0).empty());
    int named = 0;
    for (const auto& l : h->Log().Lines())
        if (l.function == "CTIKRONServiceImpl::DealTIKRONIssue") ++named;
    EXPECT_GE(named, 3);
}
