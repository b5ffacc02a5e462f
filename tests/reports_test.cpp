// Trade reports end to end: reports from the message center (620299), over
// UDP ('3'), offset-setting ('F') and margin-order ('E') records, checked on
// every message the plug-in publishes.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "testing/frame_test_support.h"
#include "frame/tikron_service.h"
#include "host/host_emulator.h"
#include "wire/report_records.h"
#include "report/report_text.h"

using frametest::Datagram;
using frametest::Decode;
using hostemu::MessageSnapshot;
using hostemu::PackCell;
using hostemu::PackedBody;

namespace {

const std::string S1 = "\x01";

// Fields joined with the report text separator.
std::string Join(std::initializer_list<std::string> fields) {
    std::string out;
    for (const auto& f : fields) out += &f == fields.begin() ? f : S1 + f;
    return out;
}

// Runs each test in a fresh directory (snapshot files, trade-report log).
struct InTempDir : testing::Test {
    frametest::TempWorkDir dir;
    void SetUp() override { ASSERT_TRUE(dir.Enter()); }
    std::unique_ptr<hostemu::HostEmulator> Start(const std::string& args) {
        hostemu::HostOptions o =
            frametest::Options(frametest::Config("<args subscibetomc=\"0\" " + args + "/>"));
        o.logFile = dir.Path() + "/host.log";
        auto host = std::make_unique<hostemu::HostEmulator>(o);
        EXPECT_EQ(0, host->Start()) << host->Error();
        return host;
    }
};

void ExpectColumn(const PackedBody& b, int i, const char* name, char type, int width) {
    ASSERT_LT(i, static_cast<int>(b.columns.size()));
    EXPECT_EQ(name, b.columns[i].name);
    EXPECT_EQ(type, b.columns[i].type) << name;
    EXPECT_EQ(width, b.columns[i].width) << name;
    EXPECT_EQ(4, b.columns[i].scale) << name;
}

// Key row: "branch_no" int, "fund_account" int (binary) or text.
void ExpectKey(const MessageSnapshot& m, int branch, const std::string& fund, bool fundAsInt) {
    PackedBody k = Decode(m.Key());
    ASSERT_EQ(2u, k.columns.size());
    ExpectColumn(k, 0, "branch_no", 'S', 255);
    ExpectColumn(k, 1, "fund_account", 'S', 255);
    ASSERT_EQ(1u, k.rows.size());
    EXPECT_EQ(PackCell(branch), k.rows[0][0]);
    if (fundAsInt) {
        EXPECT_EQ(PackCell(atoi(fund.c_str())), k.rows[0][1]);
    } else {
        EXPECT_EQ(PackCell(fund), k.rows[0][1]);
    }
}

// The raw record of a 23/17 message after checking its body layout.
template <typename T>
T RecordOf(const MessageSnapshot& m, const std::string& businessType) {
    PackedBody b = Decode(m.Body());
    EXPECT_EQ(2u, b.columns.size());
    ExpectColumn(b, 0, "business_type", 'S', 255);
    ExpectColumn(b, 1, "futu_hb_raw", 'R', 10240);
    T rec;
    std::memset(&rec, 0xAB, sizeof rec);
    if (b.rows.size() != 1 || b.rows[0].size() != 2) {
        ADD_FAILURE() << "one row of two cells expected";
        return rec;
    }
    EXPECT_EQ(PackCell(businessType), b.rows[0][0]);
    EXPECT_EQ('R', b.rows[0][1].kind);
    EXPECT_EQ(sizeof(T), b.rows[0][1].bytes.size());
    std::memcpy(&rec, b.rows[0][1].bytes.data(), std::min(sizeof rec, b.rows[0][1].bytes.size()));
    return rec;
}

std::string QH(const MessageSnapshot& m, PackCell* ly = nullptr) {
    PackedBody b = Decode(m.Body());
    int qh = b.Find("QH");
    EXPECT_GE(qh, 0);
    if (qh < 0 || b.rows.size() != 1) return "";
    ExpectColumn(b, qh, "QH", 'S', 1024);
    if (ly != nullptr) {
        EXPECT_EQ(0, b.Find("LY"));
        ExpectColumn(b, 0, "LY", 'S', 255);
        *ly = b.rows[0][0];
    }
    return b.rows[0][qh].bytes;
}

template <typename T>
void ExpectSameRecord(const T& want, const T& got) {
    EXPECT_EQ(0, std::memcmp(&want, &got, sizeof(T))) << want.contract_code << " status " << got.entrust_status;
}

std::vector<MessageSnapshot> Reports(hostemu::HostEmulator& h, int function = 620031) {
    return h.Center().MessagesOf(function, 0);
}

bool WaitReports(hostemu::HostEmulator& h, size_t n, int function = 620031) {
    return frametest::WaitUntil([&] { return Reports(h, function).size() >= n; });
}

// Lets late publications arrive before a count is checked for "nothing more".
void Settle() { std::this_thread::sleep_for(std::chrono::milliseconds(300)); }

// A deal row as the message center sends it.
hostemu::MessageSpec DealRow(const std::string& contract, const char* status) {
    PackedBody b = hostemu::MakeBody(
        33,
        {"entrust_no", "futures_account", "futu_exch_type", "contract_code", "entrust_bs",
         "futures_direction", "futu_business_price", "business_amount", "hedge_type", "fund_account",
         "futu_report_no", "seat_no", "operator_no", "client_group", "entrust_amount",
         "entrust_business_amount", "cancel_amount", "futu_entrust_price", "futu_entrust_type",
         "entrust_status", "branch_no", "batch_no", "entrust_type", "amount_per_hand",
         "forceclose_reason", "confirm_no", "futu_business_no", "entrust_occasion",
         "futu_entrust_price2", "init_date", "business_time", "curr_time", "session_no",
         "entrust_reference", "arbitrage_code", "futu_entrust_prop", "drop_profit",
         "drop_profit_float", "futu_position_str", "position_str", "arbideal_total_amount",
         "quote_no"},
        {{101, "FA01", "F1", contract.c_str(), "1", "4", 71230.5, 3.0, "0", "00123", "R77", "S12",
          "op1", 2, 12.9, 5, 1, 71240.25, "B", status, 8, 9, "0", 5, "0", "C99", "B0001", "occ",
          1.5, 20240305, 93015, 1, 4, "ref1", "SPD1", "1", 10.25, -2.0, "pos9", "other", 6, 0}});
    hostemu::MessageSpec req(620299, 0);
    req.body = hostemu::EncodePacked(b);
    return req;
}

tagCJ_EX ExpectedDeal(const std::string& contract, char status) {
    tagCJ_EX d;
    std::memset(&d, 0, sizeof d);
    d.entrust_no = 101;
    strcpy(d.futures_account, "FA01");
    strcpy(d.futu_exch_type, "F1");
    strcpy(d.business_no, "B0001");
    strncpy(d.contract_code, contract.c_str(), sizeof d.contract_code - 1);
    strcpy(d.entrust_name, "买入");
    strcpy(d.direction_name, "平今仓");
    d.business_price = 71230.5;
    d.business_amount = 3.0;
    strcpy(d.hedge_name, "投机");
    d.fund_account = 123;
    strcpy(d.futu_report_no, "R77");
    strcpy(d.firm_no, "S12");
    strcpy(d.operator_no, "op1");
    d.client_group = 2;
    d.entrust_amount = 12;
    d.business_total_amount = 6;
    d.cacel_amount = 1;
    d.entrust_price = 71240.25;
    d.entrust_status = status;
    d.branch_no = 8;
    d.batch_no = 9;
    d.futu_entrust_type = '0';
    d.amount_per_hand = 5;
    d.forceclose_reason = '0';
    d.init_date = 20240305;
    d.business_time = 93015;
    strcpy(d.confirm_no, "C99");
    strcpy(d.entrust_occasion, "occ");
    return d;
}

// The legacy record is the extended one copied by the tested legacy copy.
tagCJ LegacyOf(tagCJ_EX e) {
    tagCJ c;
    std::memset(&c, 0, sizeof c);
    ConvertCj23To17(&e, c);
    return c;
}

std::string DealText(const std::string& contract, const std::string& status) {
    return Join({"101", "FA01", "F1", "B0001", contract, "1", "4", "71230.500000", "3.000000", "0", "123", "R77",
                 "S12", "op1", "2", "12", "6", "1", "71240.250000", status, "8", "9", "0", "5", "0", "20240305",
                 "93015", "C99", "occ", "1.500000", "1", "SPD1", "ref1", "pos9", "4", "0.000000", "0.000000",
                 "0.000000", "0.000000", "0.000000", "0.000000", "10.250000", "-2.000000"});
}

}  // namespace

// A deal from the message center: with sysversion 0 the '5'->'7' rule, a
// 9-character code and all three forms; with sysversion 1 the translation
// comes first ('5' -> '0', which the deal rule leaves) and a 10-character
// code skips the legacy record. Catch-all words and the overriding total
// amount are in the expected record.
TEST_F(InTempDir, CenterDealForms) {
    struct Case {
        const char* sysVersion;
        std::string code;
        char status;
        bool legacy;
    };
    for (const Case& c : {Case{"0", "cu2405P70", '7', true}, Case{"1", "cu2405P700", '0', false}}) {
        SCOPED_TRACE(c.code);
        auto h = Start("enableudprecv=\"0\" enableudphb=\"0\" sysversion=\"" + std::string(c.sysVersion) + "\"");
        ASSERT_EQ(0, h->PostFromCenter(DealRow(c.code, "5")));
        ASSERT_TRUE(WaitReports(*h, c.legacy ? 3 : 2));
        Settle();
        auto msgs = Reports(*h);
        ASSERT_EQ(c.legacy ? 3u : 2u, msgs.size());
        for (size_t i = 0; i < msgs.size(); ++i) {
            EXPECT_EQ((std::vector<int>{23, 33101, 17}[i]), msgs[i].IssueType());
            ExpectKey(msgs[i], 8, "123", i != 1);
        }
        const tagCJ_EX want = ExpectedDeal(c.code, c.status);
        ExpectSameRecord(want, RecordOf<tagCJ_EX>(msgs[0], "B"));
        if (c.legacy) ExpectSameRecord(LegacyOf(want), RecordOf<tagCJ>(msgs[2], "B"));
        PackCell ly;
        EXPECT_EQ(DealText(c.code, std::string(1, c.status)), QH(msgs[1], &ly));
        EXPECT_EQ(PackCell('B'), ly);  // a character on this path
        h->Shutdown();
    }
}

// An entrust confirmation with unknown codes: catch-all words in the records,
// blank codes in the text; arbitrage hedge becomes the catch-all word too.
// weave_type 0 is printed as a zero byte, which ends the published text.
TEST_F(InTempDir, CenterEntrustCatchAllWordsAndTranslation) {
    auto h = Start("enableudprecv=\"0\" enableudphb=\"0\" sysversion=\"1\"");
    PackedBody b = hostemu::MakeBody(
        33,
        {"entrust_no", "futures_account", "futu_exch_type", "contract_code", "entrust_bs",
         "futures_direction", "hedge_type", "fund_account", "entrust_amount", "futu_entrust_type",
         "entrust_status", "branch_no", "entrust_type", "curr_time", "business_time", "init_date",
         "futu_business_no", "error_message", "second_code", "withdraw_reference", "quote_no"},
        {{7, "FA02", "F2", "ab12", "3", "3", "2", 456, 4.0, "0", "C", 3, "9", 101500, 5, 20240306,
          "0999", "refused", "sec", "wr1", -1}});
    hostemu::MessageSpec req(620299, 0);
    req.body = hostemu::EncodePacked(b);
    ASSERT_EQ(0, h->PostFromCenter(req));
    ASSERT_TRUE(WaitReports(*h, 3));
    auto msgs = Reports(*h);
    ASSERT_EQ(3u, msgs.size());

    tagWTQR_EX rec = RecordOf<tagWTQR_EX>(msgs[0], "0");
    EXPECT_STREQ("买卖", rec.entrust_name);
    EXPECT_STREQ("开平仓", rec.direction_name);
    EXPECT_STREQ("投机套保", rec.hedge_name);
    EXPECT_EQ('8', rec.entrust_status);     // 'C' translated
    EXPECT_EQ('0', rec.futu_entrust_type);  // from futu_entrust_type, not entrust_type
    EXPECT_EQ(101500, rec.curr_time);       // entrust: curr_time, not business_time
    EXPECT_EQ(456, rec.fund_account);
    EXPECT_EQ(4, rec.entrust_amount);
    tagWTQR legacy = RecordOf<tagWTQR>(msgs[2], "0");
    EXPECT_STREQ("ab12", legacy.contract_code);
    EXPECT_EQ(20240306, legacy.init_date);

    // Entrusts carry no deal number, so the '7'/'8' -> '2' rule cannot fire
    // here. Fields 1-34, then the zero byte of weave_type.
    const std::string want = Join({"7", "FA02", "F2", "ab12", " ", " ", " ", "456", "", "", "", "0", "4", "0", "0",
                                   "0.000000", "8", "3", "0", "0", "0", "", "20240306", "101500", "", "",
                                   "0.000000", "", "", "", "refused", "", "0", "sec", ""});
    EXPECT_EQ(want, QH(msgs[1]));
    h->Shutdown();
}

// Quote reports go out as 33301 only; a broken or missing body is refused.
TEST_F(InTempDir, CenterQuoteReportAndBadBodies) {
    auto h = Start("enableudprecv=\"0\" enableudphb=\"0\" sysversion=\"1\"");
    PackedBody b = hostemu::MakeBody(
        33, {"quote_no", "futu_exch_type", "contract_code", "fund_account", "branch_no",
             "entrust_status", "buy_price", "quote_occasion"},
        {{55, "F3", "m2409-C-3000", "00987", 6, "1", 12.5, "qo"}});
    hostemu::MessageSpec req(620299, 0);
    req.body = hostemu::EncodePacked(b);
    ASSERT_EQ(0, h->PostFromCenter(req));
    ASSERT_TRUE(WaitReports(*h, 1));

    hostemu::MessageSpec empty(620299, 0);
    ASSERT_EQ(0, h->PostFromCenter(empty));
    hostemu::MessageSpec garbage(620299, 0);
    garbage.body = {'x', 'y', 'z'};
    ASSERT_EQ(0, h->PostFromCenter(garbage));
    ASSERT_TRUE(h->Log().WaitFor("get TAG_MESSAGE_BODY fail!", 3000));
    ASSERT_TRUE(h->Log().WaitFor("解包错误, 错误代码: ", 3000));
    Settle();
    auto msgs = Reports(*h);
    ASSERT_EQ(1u, msgs.size());
    EXPECT_EQ(33301, msgs[0].IssueType());
    ExpectKey(msgs[0], 6, "00987", false);
    PackedBody body = Decode(msgs[0].Body());
    ASSERT_EQ(1u, body.columns.size());
    const std::string text = QH(msgs[0]);
    EXPECT_NE(std::string::npos, text.find("m2409-C-3000")) << text;
    EXPECT_NE(std::string::npos, text.find(S1 + "3" + S1)) << "status '1' translated to '3'";
    int fromDealF1 = 0;
    for (const auto& l : h->Log().Lines())
        if (l.function == "CTIKRONServiceImpl::DealF1_HB" && l.code == 15006) ++fromDealF1;
    EXPECT_EQ(2, fromDealF1);
    h->Shutdown();
}

// With "savehblog" every published report message is written to the
// trade-report log as the message's encoded bytes.
TEST_F(InTempDir, TradeReportLogHoldsEncodedMessages) {
    auto h = Start("enableudprecv=\"0\" enableudphb=\"0\" savehblog=\"1\"");
    ASSERT_EQ(0, h->PostFromCenter(DealRow("cu2405P70", "5")));
    ASSERT_TRUE(WaitReports(*h, 3));
    auto msgs = Reports(*h);
    h->Shutdown();  // the log thread writes what is queued when it stops

    time_t now = time(nullptr);
    struct tm tmv;
    localtime_r(&now, &tmv);
    char name[128];
    snprintf(name, sizeof name, "log/%04d-%02d-%02d-tikrno_A#-1.log", tmv.tm_year + 1900,
             tmv.tm_mon + 1, tmv.tm_mday);
    std::ifstream in(name, std::ios::binary);
    ASSERT_TRUE(in.good()) << name;
    std::stringstream ss;
    ss << in.rdbuf();
    const std::string file = ss.str();

    // Lines: "YYYY-MM-DD HH:MM:SS.mmm[len]" + len bytes + '\n'.
    size_t pos = 0;
    std::vector<MessageSnapshot> logged;
    while (pos < file.size()) {
        ASSERT_LT(pos + 24, file.size());
        ASSERT_EQ('[', file[pos + 23]) << file.substr(pos, 40);
        size_t close = file.find(']', pos + 24);
        ASSERT_NE(std::string::npos, close);
        const size_t len = std::stoul(file.substr(pos + 24, close - pos - 24));
        ASSERT_LE(close + 1 + len + 1, file.size());
        MessageSnapshot m;
        ASSERT_EQ(0, hostemu::DecodeMessage(file.data() + close + 1, static_cast<int>(len), &m));
        logged.push_back(m);
        ASSERT_EQ('\n', file[close + 1 + len]);
        pos = close + 2 + len;
    }
    ASSERT_EQ(3u, logged.size());
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(620031, logged[i].FunctionNo());
        EXPECT_EQ(msgs[i].IssueType(), logged[i].IssueType());
        EXPECT_EQ(msgs[i].Body(), logged[i].Body());
        EXPECT_EQ(msgs[i].Key(), logged[i].Key());
    }
}

// ---- UDP ----------------------------------------------------------------

namespace {

// Mandatory fields 1-27 of a report record.
std::string UdpHead(const std::string& businessType, const std::string& status,
                    const std::string& contract, const std::string& businessNo = "B7") {
    return "31,FA09,F1," + businessNo + "," + contract + ",卖出,开仓,4100.5,2,套利,00077,R1,S1,op,1,2,"
           "2,0,4101.25," + businessType + "," + status + ",12,13,1,10,0,CF1";
}

int SendUdp(int port, const std::string& d) { return frametest::UdpSender().Send(port, d) ? 0 : -1; }

}  // namespace

// Over a real socket: a deal with a 12-character code in all three forms, an
// entrust with a 13-character code without the legacy record, then offset
// and margin-order records.
TEST_F(InTempDir, UdpRecordsOverSocket) {
    const int port = 21000 + static_cast<int>(getpid() % 20000);
    auto h = Start("enableudprecv=\"1\" enableudphb=\"1\" enableudphq=\"0\" port=\"" +
                   std::to_string(port) + "\"");
    // Deal: everything from the last '&' on is dropped; field 30 is ignored.
    const std::string deal = UdpHead("B", "5", "SR2409C12000") +
                             ",20240307,101112,IGNORED,1,3,occ,ref,SPD,7.5,-1.5,pos,9,1,2,3,4,5,6&tail";
    ASSERT_EQ(0, SendUdp(port, Datagram('3', deal)));
    ASSERT_TRUE(WaitReports(*h, 3));
    auto msgs = Reports(*h);
    ASSERT_EQ(3u, msgs.size());
    EXPECT_EQ(23, msgs[0].IssueType());
    EXPECT_EQ(33101, msgs[1].IssueType());
    EXPECT_EQ(17, msgs[2].IssueType());
    ExpectKey(msgs[0], 12, "77", true);
    ExpectKey(msgs[1], 12, "00077", false);
    tagCJ_EX cj = RecordOf<tagCJ_EX>(msgs[0], "B");
    EXPECT_STREQ("卖出", cj.entrust_name);
    EXPECT_STREQ("套利", cj.hedge_name);  // words arrive as words
    EXPECT_EQ('7', cj.entrust_status);
    EXPECT_EQ(20240307, cj.init_date);
    EXPECT_EQ(101112, cj.business_time);
    EXPECT_EQ(9, cj.business_total_amount);  // field 39 overwrites field 17
    const double price = cj.business_price;  // misaligned field: copy first
    EXPECT_EQ(4100.5, price);
    tagCJ legacy = RecordOf<tagCJ>(msgs[2], "B");
    EXPECT_STREQ("SR2409C12000", legacy.contract_code);
    PackCell ly;
    const std::string text = QH(msgs[1], &ly);
    EXPECT_EQ(PackCell("B"), ly);  // a string on this path
    const std::string wantTail = Join({"CF1", "occ", "0.000000", "1", "SPD", "ref", "pos", "3", "1.000000",
                                       "2.000000", "3.000000", "4.000000", "5.000000", "6.000000", "7.500000",
                                       "-1.500000"});
    ASSERT_GE(text.size(), wantTail.size());
    EXPECT_EQ(wantTail, text.substr(text.size() - wantTail.size()));
    EXPECT_EQ(0u, text.find(Join({"31", "FA09", "F1", "B7", "SR2409C12000", "2", "1", "4100.500000", "2.000000",
                                  "2", "00077", ""})));

    // Entrust, 13 characters: only the last '&' cuts, so the record ends
    // right after field 27 with "CF1&x" as its confirmation number.
    h->Center().Clear();
    ASSERT_EQ(0, SendUdp(port, Datagram('3', UdpHead("0", "3", "SR2409C120000") + "&x&,20240308,5")));
    ASSERT_TRUE(WaitReports(*h, 2));
    // Offset and margin-order records follow on the same consumer thread, so
    // once they are out the entrust had its chance to publish a legacy form.
    ASSERT_EQ(0, SendUdp(port, Datagram('F', "FA77,FUT1,5,F1,cu2405,3,1,2,3,none,p1")));
    ASSERT_EQ(0, SendUdp(port, Datagram('E', "8,FUT1,F2,1,SPab,2,3,0,FA78,rep,fm,op,1,4,5,6,10,"
                                             "20240307,93000,7,err,2,oc,rf,1,9")));
    ASSERT_TRUE(WaitReports(*h, 3));
    ASSERT_TRUE(WaitReports(*h, 1, 620003));
    msgs = Reports(*h);
    ASSERT_EQ(3u, msgs.size());
    EXPECT_EQ(23, msgs[0].IssueType());
    EXPECT_EQ(33101, msgs[1].IssueType());
    tagWTQR_EX wt = RecordOf<tagWTQR_EX>(msgs[0], "0");
    EXPECT_STREQ("SR2409C120000", wt.contract_code);
    EXPECT_EQ(0, wt.init_date);
    EXPECT_EQ(0, wt.curr_time);
    EXPECT_EQ('3', wt.entrust_status);
    EXPECT_STREQ("CF1&x", wt.confirm_no);

    ASSERT_EQ(33117, msgs[2].IssueType());
    PackedBody key = Decode(msgs[2].Key());
    ASSERT_EQ(1u, key.columns.size());
    ExpectColumn(key, 0, "fund_account", 'S', 255);
    EXPECT_EQ(PackCell("FA77"), key.rows[0][0]);
    EXPECT_EQ(Join({"FA77", "FUT1", "5", "F1", "cu2405", "3", "1", "2", "3", "none", "p1"}), QH(msgs[2]));

    auto margin = Reports(*h, 620003);
    ASSERT_EQ(1u, margin.size());
    EXPECT_EQ(33106, margin[0].IssueType());
    key = Decode(margin[0].Key());
    ASSERT_EQ(1u, key.columns.size());
    EXPECT_EQ(PackCell("FA78"), key.rows[0][0]);
    // futu_code, second_code, entrust_prop and position_str are not carried.
    EXPECT_EQ(Join({"8", "FUT1", "F2", "SPab", "", "", "2", "0", "1", "FA78", "rep", "fm", "op", "1", "3", "4", "5",
                    "6", "7", "20240307", "93000", "", "9", "oc", "rf", "err", "", "2", "0.000000", "0.000000",
                    "0.000000", "1"}),
              QH(margin[0]));
    h->Shutdown();
}

// ---- UDP handlers called directly on a service built in the test --------

namespace {

struct DirectUdp : testing::Test {
    hostemu::CHostMessageFactory factory;
    hostemu::CHostPackSvr packSvr;
    hostemu::CHostLog log;
    hostemu::CHostNeighbour up{"up"}, down{"down"};
    CTIKRONServiceImpl* svc = new CTIKRONServiceImpl();

    void SetUp() override {
        g_lpMsgFactory = &factory;
        svc->m_lpF2PackSvr = &packSvr;
        svc->m_lpLogService = &log;
        svc->m_pPacker = packSvr.GetPacker(33);
        svc->RegisterNextService(&up);
        svc->RegisterPrevService(&down);
    }
    void TearDown() override {
        svc->m_pPacker->Release();
        svc->m_pPacker = nullptr;
        svc->Release();
        EXPECT_EQ(0u, factory.Stats().live);
        g_lpMsgFactory = nullptr;
    }
    int Udp(char type, const std::string& text) {
        std::string d = Datagram(type, text);
        return type == '3'   ? svc->DealUDP_HB(&d[0], static_cast<int>(d.size()))
               : type == 'F' ? svc->DealUDP_OffsetSet(&d[0], static_cast<int>(d.size()))
                             : svc->DealUDP_ZJZH_BZJHB(&d[0], static_cast<int>(d.size()));
    }
};

}  // namespace

// A deal published in both layouts counts twice; a long code once.
TEST_F(DirectUdp, DealCountsTwiceAndEntrustOnce) {
    ASSERT_EQ(0, Udp('3', UdpHead("B", "1", "cu2405")));
    EXPECT_EQ(3u, down.Count());
    EXPECT_EQ(2u, svc->m_uiRecvCJNum.load());
    ASSERT_EQ(0, Udp('3', UdpHead("0", "1", "cu2405-long-1")));
    EXPECT_EQ(5u, down.Count());
    EXPECT_EQ(1u, svc->m_uiRecvWTQRNum.load());
    EXPECT_EQ(2u, svc->m_uiRecvUDPHB.load());
    // No message from the host: nothing is published and nothing counted.
    factory.SetGetMsgAlwaysFails(true);
    ASSERT_EQ(0, Udp('3', UdpHead("B", "1", "cu2405")));
    factory.SetGetMsgAlwaysFails(false);
    EXPECT_EQ(2u, svc->m_uiRecvCJNum.load());
    EXPECT_EQ(5u, down.Count());
}

// Status rules in order: translation with sysversion 1, then '5' -> '7' for
// deals, then '7'/'8' -> '2' for business_type '0' with a deal number
// starting with '0'.
TEST_F(DirectUdp, StatusRules) {
    struct Case {
        int sysVersion;
        const char* type;
        const char* status;
        const char* businessNo;
        char want;
    } cases[] = {
        {0, "B", "5", "B7", '7'}, {1, "B", "5", "B7", '0'}, {0, "0", "7", "0123", '2'},
        {0, "0", "8", "0123", '2'}, {0, "0", "7", "123", '7'}, {1, "0", "B", "01", '2'},
        {1, "0", "C", "01", '2'},   {1, "0", "Z", "01", 'Z'}, {0, "1", "8", "01", '8'},
    };
    for (const Case& c : cases) {
        svc->m_iSysVersion = c.sysVersion;
        down.Clear();
        ASSERT_EQ(0, Udp('3', UdpHead(c.type, c.status, "cu2405", c.businessNo)));
        ASSERT_GE(down.Count(), 1u);
        const MessageSnapshot m = down.Messages()[0];
        const char got = c.type[0] == 'B' ? RecordOf<tagCJ_EX>(m, c.type).entrust_status
                                          : RecordOf<tagWTQR_EX>(m, c.type).entrust_status;
        EXPECT_EQ(c.want, got) << c.sysVersion << " " << c.type << " " << c.status;
    }
}

// The ignored fields (deal 30, entrust 35) are read and dropped; an entrust
// record fills the entrust layout's own fields.
TEST_F(DirectUdp, IgnoredFieldsAndEntrustLayout) {
    ASSERT_EQ(0, Udp('3', UdpHead("0", "1", "cu2405") +
                              ",20240309,90000,W,ARB1,T,V,P,IGNORED35,bad,6,occ,ref,sec,pos,11,wr,"
                              "1.5,2.5,3.5,4.5,77"));
    ASSERT_EQ(3u, down.Count());
    PackCell ly;
    const std::string text = QH(down.Messages()[1], &ly);
    EXPECT_EQ(PackCell("0"), ly);
    // Fields 28-43 of the entrust text.
    const std::string tail = Join({"P", "ARB1", "ref", "bad", "pos", "6", "sec", "W", "1.500000", "2.500000",
                                   "3.500000", "wr", "T", "V", "4.500000", "77"});
    ASSERT_GE(text.size(), tail.size());
    EXPECT_EQ(tail, text.substr(text.size() - tail.size()));
    EXPECT_EQ(11, RecordOf<tagWTQR_EX>(down.Messages()[0], "0").business_total_amount);

    // An ignored field longer than its width is still a read error.
    down.Clear();
    EXPECT_EQ(-2, Udp('3', UdpHead("B", "1", "cu2405") + ",1,2,ignored-field-of-21ch"));
    EXPECT_EQ(0u, down.Count());
}

// Bad records: wrong framing (-2, logged under the borrowed name), a missing
// mandatory field, an empty character field, a short margin record.
TEST_F(DirectUdp, RefusedRecordsPublishNothing) {
    std::string bad = "3" "00999" "1,2";  // declared length beyond the text
    EXPECT_EQ(-2, svc->DealUDP_HB(&bad[0], static_cast<int>(bad.size())));
    EXPECT_EQ(1, log.CountContaining("包格式不对, 错误代码: -2!"));
    bool borrowed = false;
    for (const auto& l : log.Lines()) borrowed |= l.function == "CTIKRONInfo::LoadFromFile";
    EXPECT_TRUE(borrowed);
    EXPECT_EQ(1u, svc->m_uiRecvUDPHB.load());  // counted before the check

    EXPECT_EQ(-2, Udp('3', "1,FA,F1,B1,cu"));  // ends after field 5
    // An empty offset_type is refused by the character reader.
    EXPECT_EQ(-3, Udp('F', "FA77,FUT1,5,F1,cu2405,3,,2,3,none,p1"));
    std::string wrongType = Datagram('E', "FA77,FUT1,5,F1,cu2405,3,1,2,3,none,p1");
    EXPECT_EQ(-2, svc->DealUDP_OffsetSet(&wrongType[0], static_cast<int>(wrongType.size())));
    EXPECT_EQ(0u, down.Count());
    EXPECT_EQ(0u, svc->m_uiRecvCJNum.load() + svc->m_uiRecvWTQRNum.load());

    // A missing last text field reads as empty (the text reader accepts the
    // end of the record as its end), so ten offset fields still publish.
    EXPECT_EQ(0, Udp('F', "FA77,FUT1,5,F1,cu2405,3,1,2,3,none"));
    ASSERT_EQ(1u, down.Count());
    const std::string text = QH(down.Messages()[0]);
    EXPECT_EQ("none" + S1, text.substr(text.size() - 5));
}

// A margin record ending after field 25 has weave_type 0: "%c" prints a zero
// byte, so the published text ends with the separator after field 22.
TEST_F(DirectUdp, MarginRecordWithoutWeaveType) {
    ASSERT_EQ(0, Udp('E', "8,FUT1,F2,1,SPab,2,3,0,FA78,rep,fm,op,1,4,5,6,10,20240307,93000,7,err,2,"
                          "oc,rf,1"));
    ASSERT_EQ(1u, down.Count());
    const MessageSnapshot m = down.Messages()[0];
    EXPECT_EQ(620003, m.FunctionNo());
    EXPECT_EQ(33106, m.IssueType());
    const std::string text = QH(m);
    EXPECT_EQ("93000" + S1 + S1, text.substr(text.size() - 7));
    EXPECT_EQ(22, static_cast<int>(std::count(text.begin(), text.end(), '\x01')));
}
