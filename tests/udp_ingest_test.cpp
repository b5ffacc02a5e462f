// Datagrams over 127.0.0.1 into the loaded plug-in: quote, arbitrage,
// exchange-status, inquiry and quote-report records, the tables they fill
// and the messages they publish; dropped datagrams and their log lines.
#include <unistd.h>

#include <map>

#include "quote/quote_text.h"
#include "testing/store_test_support.h"
#include "tests/e2e_support.h"

namespace {

using namespace e2e;

class UdpIngest : public Plugin {
protected:
    // The 33100 text of a stored extended record.
    std::string StoredText(const std::string& code) {
        tagHQInfo_EX ex = Blank<tagHQInfo_EX>(code, "");
        char buf[4096];
        return svc_->GetTIKRONInfo_EX()->GetHQInfo(&ex) == 1 ? Bars(Convert22To33100(&ex, buf, sizeof buf)) : "-";
    }
    // Issue type and key of each publication up to a marker.
    std::vector<std::string> IssueTypes() {
        std::vector<std::string> out;
        for (const auto& m : Flush()) out.push_back(std::to_string(m.IssueType()) + " " + ShowItem(m.Key()));
        return out;
    }
};

const std::string kQuoteKey = " key[contract_code:S255 = IF2412] body[";
const std::string kRawQuote = "type:S255 futu_hq_raw:R10240 = I1 R<";

TEST_F(UdpIngest, SingleLegQuoteFillsBothTablesAndPublishesThreeMessages) {
    StartUdp();
    Send(Datagram('0', SingleLegText("IF2412", "F4,93015,")));
    auto msgs = Flush();
    ASSERT_EQ(3u, msgs.size());
    const std::string text = FirstCell(msgs[0]);
    EXPECT_EQ((std::vector<std::string>{"620003/33100" + kQuoteKey + "QH:S" + std::to_string(text.size() + 1) + " = " +
                                            Bars(text) + "]",
                                        "620003/22" + kQuoteKey + kRawQuote + "328>]",
                                        "620003/16" + kQuoteKey + kRawQuote + "308>]"}),
              Show(msgs));
    // The text and records published are those stored.
    EXPECT_EQ("0|363|93015|0|F4||IF2412|3850.200000|3849.800000|158000.000000|0.000000|3855.000000|3861.400000|"
              "3861.200000|12|3861.600000|8|3870.000000|3845.200000|4235.200000|3465.200000|3858.370000|11.200000|80321|"
              "160234|92973211400.000000|0.000000|0.000000|0|0.000000|3861.000000|5|3860.800000|7|3860.600000|9|"
              "3860.400000|11|3861.800000|4|3862.000000|6|3862.200000|8|3862.400000|10",
              Bars(text));
    EXPECT_EQ(Bars(text), StoredText("IF2412"));
    tagHQInfo_EX ex = RecordOf<tagHQInfo_EX>(msgs[1], 1);
    tagHQInfo hq = RecordOf<tagHQInfo>(msgs[2], 1), stored = hq;
    ASSERT_EQ(1, svc_->GetTIKRONInfo_EX()->GetHQInfo(&ex));
    ASSERT_EQ(1, svc_->GetTIKRONInfo()->GetHQInfo(&stored));
    EXPECT_EQ(FirstCell(msgs[1], 1) + FirstCell(msgs[2], 1), Bytes(ex) + Bytes(stored));

    // An update replaces the record; '&' after the exchange code: no time stamp.
    Send(Datagram('0', SingleLegText("IF2412", "F4,&", 3870.0)));
    EXPECT_EQ(6u, Flush().size());
    EXPECT_EQ("1 1 0 2", Tables());
    EXPECT_NE(std::string::npos,
              StoredText("IF2412").find("|0|0|F4||IF2412|3850.200000|3849.800000|158000.000000|0.000000|3855.000000|3870."));
}

// The code's length decides the legacy record: 12 characters extended only,
// 11 both; a failing extended parse with a passing legacy one gives 16 only.
TEST_F(UdpIngest, ContractCodeLengthDecidesTheLegacyRecord) {
    StartUdp();
    struct Case {
        std::string code, exch;
        std::vector<int> issues;
    } cases[] = {{"SR501C5600AB", "F1,100000,", {33100, 22}},
                 {"SR501C56001", "F1,100000,", {33100, 22, 16}},
                 {"cu2501", "F3", {16}}};
    for (const Case& c : cases) {
        host_->Center().Clear();
        Send(Datagram('0', SingleLegText(c.code, c.exch)));
        std::vector<std::string> want;
        for (int i : c.issues) want.push_back(std::to_string(i) + " contract_code:S255 = " + c.code);
        EXPECT_EQ(want, IssueTypes());
    }
    EXPECT_EQ("2 2 0 3", Tables());
    EXPECT_EQ(1u, LogCount("get hq from data fail, error code: -"));
}

// Arbitrage: both messages, the record stored; an exchange status with a bad
// second field: both messages with the fields read before it, not stored.
TEST_F(UdpIngest, ArbitrageQuoteAndExchangeStatus) {
    StartUdp();
    Send(Datagram('9', "SP a2501&a2505,F2,a2501,a2505,SP,12.5,3,30,13.0,4,40,14.0,11.0,80.0,-80.0,F2,"));
    Send(Datagram('A', "F3,TOOLONG,1,"));
    Send(Datagram('A', "F4,2,1,"));
    auto msgs = Flush();
    ASSERT_EQ(6u, msgs.size());
    const std::string arg = " key[arbicontract_id:S255 = SP a2501&a2505] body[";
    const std::string st = "620003/24 key[futu_exch_type:S255 = F";
    EXPECT_EQ((std::vector<std::string>{"620003/18" + arg + "type:S255 futu_hq_raw:R10240 = I9 R<128>]",
                                        "620003/33102" + arg + "QH:S1024 = SP a2501&a2505|F2|a2501|a2505|S|12.500000|3|30|"
                                                               "13.000000|4|40|14.000000|11.000000|80.000000|-80.000000]",
                                        st + "3] body[futu_exch_status_raw:R1024 = R<12>]",
                                        "620003/33105 key[futu_exch_type:S255 = F3] body[QH:S1024 = F3||0]",
                                        st + "4] body[futu_exch_status_raw:R1024 = R<12>]",
                                        "620003/33105 key[futu_exch_type:S255 = F4] body[QH:S1024 = F4|2|1]"}),
              Show(msgs));
    tagArgHQInfo stored = RecordOf<tagArgHQInfo>(msgs[0], 1);
    ASSERT_EQ(1, svc_->GetTIKRONARGInfo()->GetHQInfo(&stored));
    EXPECT_EQ(Bytes(stored) + Bytes(Exch("F3", "", 0)) + Bytes(Exch("F4", "2", 1)),
              FirstCell(msgs[0], 1) + FirstCell(msgs[2]) + FirstCell(msgs[4]));
    EXPECT_EQ("0 0 1 2", Tables());  // F4 and the marker
}

TEST_F(UdpIngest, InquiryAndQuoteReportTexts) {
    StartUdp("sysversion=\"1\"");
    Send(Datagram('B', "FQ20240105001,IF2412,20240105,93001,&trailer,x"));
    // A full quote report; the part from the last '&' is dropped; status '6'
    // becomes '1' with sysversion 1. An older sender stops after
    // quote_occasion: the optional fields are empty and zero; status '9' has
    // no mapping and stays. A missing numeric field publishes nothing.
    const std::string head = "F4,IF2412,0,1,3861.2,5,1,1,3862.0,6,778,10086,R001,F01,OP1,";
    Send(Datagram('C', head + "6,8888,20240105,93002,C1,BC1,SC1,OCC,REF1,3,BREF,SREF,11,12,&&ignored"));
    Send(Datagram('C', head + "9,8888,20240105,93002,C1,BC1,SC1,OCC"));
    Send(Datagram('B', "FQ1,IF2412,20240105"));
    Send(Datagram('C', "F4,IF2412,0,1,abc"));
    const std::string report = "620031/33301 key[branch_no:S255 fund_account:S255 = I8888 10086] body[QH:S1024 = "
                               "F4|IF2412|0|1|3861.200000|5.000000|1|1|3862.000000|6.000000|778|10086|R001|F01|OP1|";
    EXPECT_EQ((std::vector<std::string>{"620003/33300" + kQuoteKey + "QH:S1024 = FQ20240105001|IF2412|20240105|93001]",
                                        report + "1|8888|20240105|93002|C1|BC1|SC1|OCC|REF1|3|BREF|SREF|11|12]",
                                        report + "9|8888|20240105|93002|C1|BC1|SC1|OCC||0|||0|0]"}),
              Show(Flush()));
}

TEST_F(UdpIngest, HqSwitchOffDropsQuotesButNotExchangeStatus) {
    StartUdp("enableudphq=\"0\"");
    Send(Datagram('0', SingleLegText("IF2412", "F4,93015,")));
    Send(Datagram('9', "SP a2501&a2505,F2,a2501,a2505,SP,12.5,3,30,13.0,4,40,14.0,11.0,80.0,-80.0,F2,"));
    Send(Datagram('B', "FQ1,IF2412,20240105,93001,"));
    EXPECT_TRUE(Flush().empty());
    EXPECT_EQ("0 0 0 1", Tables());
}

// Fields 0..31 only (depth level 2 of the bid side), 0x01-separated; field
// 3 ignored, a 40-character field 5 cut harmlessly. Inquiry quotes are
// ignored in this mode, and there is no legacy record.
TEST_F(UdpIngest, ExchangeFeedModeStoresWhatIsPresent) {
    StartUdp("udphqversion=\"1\"");
    std::string feed = "0|999|93005|7|F4|" + std::string(40, 'x') +
                       "|IF2412|3850.2|3849.8|158000|0.1|3855|3861.4|3861.2|12|3861.6|8|3870|3845.2|4235.2|3465.2|"
                       "3858.37|11.2|80321|160234|92973211400|3860|3859|20240105|0.2|3861.0|5";
    for (char& c : feed) c = c == '|' ? '\x01' : c;
    Send(feed);
    Send(Datagram('B', "FQ1,IF2412,20240105,93001,"));
    auto msgs = Flush();
    EXPECT_EQ((std::vector<std::string>{"620003/33100" + kQuoteKey + "QH:S1024 = " + Bars(feed) + "]",
                                        "620003/22" + kQuoteKey + kRawQuote + "328>]"}),
              Show(msgs));
    EXPECT_EQ("0|346|93005|0|F4||IF2412|3850.200000|3849.800000|158000.000000|0.100000|3855.000000|3861.400000|"
              "3861.200000|12|3861.600000|8|3870.000000|3845.200000|4235.200000|3465.200000|3858.370000|11.200000|80321|"
              "160234|92973211400.000000|3860.000000|3859.000000|0|0.200000|3861.000000|5|0.000000|0|0.000000|0|"
              "0.000000|0|0.000000|0|0.000000|0|0.000000|0|0.000000|0",
              StoredText("IF2412"));
    tagHQInfo_EX stored = Blank<tagHQInfo_EX>("IF2412", "");
    ASSERT_EQ(1, svc_->GetTIKRONInfo_EX()->GetHQInfo(&stored));
    EXPECT_EQ(FirstCell(msgs.at(1), 1), Bytes(stored));
    EXPECT_EQ("0 1 0 1", Tables());
}

// Dropped datagrams leave a line: framing errors (also datagrams shorter
// than their header), unknown types and records whose fields fail; except
// the framing of offset/margin records and the field errors of inquiry,
// quote-report and trade-report records, which stay quiet on purpose.
TEST_F(UdpIngest, DroppedDatagramsAreLogged) {
    StartUdp();
    const std::string bad = "包格式不对, 错误代码: -2!", field = "解析记录失败, 错误代码: -";
    const std::string hq = "DealUDP_hq", st = "DealUDP_exchStatus", xj = "DealUDP_xjHq", off = "DealUDP_OffsetSet",
                      zj = "DealUDP_ZJZH_BZJHB", info = "CTIKRONInfo::";
    const struct Drop {
        std::string datagram, function, line;
        size_t logged;
    } drops[] = {
        {"000010123456789", hq, bad, 1},  // declared 10, 9 characters
        {"0", hq, bad, 1}, {"0ab", hq, bad, 1}, {"900050abc", hq, bad, 1}, {"9", hq, bad, 1},
        {"A00099F1,", st, bad, 1}, {"A", st, bad, 1}, {"B00099x", info + xj, bad, 1}, {"B", info + xj, bad, 1},
        {"C00099x", info + "LoadFromFile", bad, 1}, {"3", info + "LoadFromFile", bad, 1}, {"F", off, bad, 0},
        {"E12", zj, bad, 0}, {"Q00003abc", "DoUDPHelper", "未知的记录类型: 81!", 1},
        {Datagram('0', std::string(30, 'X') + ",1,"), hq, "get hq from data fail, error code: -3!", 1},
        {Datagram('B', "FQ1,IF2412,20240105"), xj, field, 0},
        {Datagram('C', "F4,IF2412,0,1,abc"), "DealUDP_BJHB", field, 0},
        {Datagram('3', "1,x"), "DealUDP_HB", field, 0}, {Datagram('F', "x"), off, field, 1},
        {Datagram('E', "x"), zj, field, 1}, {Datagram('Z', "OPT,1,"), "DealPUSH_OPT_HQ", field, 1},
        {Datagram('S', "1,2,"), "DealPUSH_STP", field, 1},
    };
    std::map<std::pair<std::string, std::string>, size_t> want, got;
    for (const Drop& d : drops) {
        Send(d.datagram);
        want[{d.function.find("::") == std::string::npos ? "CTIKRONServiceImpl::" + d.function : d.function, d.line}] +=
            d.logged;
    }
    EXPECT_TRUE(Flush().empty());
    for (const auto& l : host_->Log().Lines())
        for (const auto& w : want)
            if (l.function == w.first.first && l.raw.compare(0, w.first.second.size(), w.first.second) == 0)
                ++got[w.first];
    for (const auto& w : want) EXPECT_EQ(w.second, got[w.first]) << w.first.first;

    // Bytes beyond the declared length pass the framing check.
    Send(Datagram('A', "F1,5,1,") + "xyz");
    EXPECT_EQ("620003/33105 key[futu_exch_type:S255 = F1] body[QH:S1024 = F1|5|1]", Show(Flush().back()));
}

// Faults around the plug-in: raw records that fail to pack (logged, the
// texts still go out), publications the center refuses, no message from the
// factory (three failed gets absorbed, a fourth costs that publication; the
// tables still updated, queries answered in place), snapshot files on a full
// disk (the error code logged, the tables stay authoritative). Every message
// is released (TearDown).
TEST_F(UdpIngest, FaultsAreLoggedOrCountedAndEveryMessageIsReleased) {
    const std::string deal = "31,FA09,F1,B7,cu2405,sell,open,4100.5,2,arb,00077,R1,S1,op,1,2,2,0,4101.25,B,5,12,13,1,10,0,CF1";
    Start("enableudprecv=\"1\"", "", [] {
        for (const char* f : {"tikron_A#1.db", "tikron_ex_A#1.db", "tikronarg_A#1.db", "futuexchstatus_A#1.db"})
            ASSERT_EQ(0, symlink("/dev/full", f));
    });
    host_->PackSvr().SetPackRawFails(true);
    Send(Datagram('0', SingleLegText("IF2501", "F4,93015,")));
    Send(Datagram('3', deal));
    Send(Datagram('A', "F9,1,1,"));
    EXPECT_EQ((std::vector<std::string>{"33100 contract_code:S255 = IF2501", "23 branch_no:S255 fund_account:S255 = I12 I77",
                                        "33101 branch_no:S255 fund_account:S255 = I12 00077",
                                        "17 branch_no:S255 fund_account:S255 = I12 I77", "33105 futu_exch_type:S255 = F9"}),
              IssueTypes());
    host_->PackSvr().SetPackRawFails(false);  // failed: 22, 16, the 24s of F9 and the marker
    EXPECT_EQ("4 1 1", std::to_string(LogCount("pack fail")) + " " + std::to_string(LogCount("add raw fail, result: -1, size: 304!")) +
                           " " + std::to_string(LogCount("add raw fail, result: -1, size: 248!")));
    EXPECT_TRUE(WaitLog(", 错误代码: 28"));
    host_->Center().SetMode(hostemu::CHostNeighbour::Refuse);
    Send(Datagram('0', SingleLegText("IF2412", "F4,93015,")));
    Send(Datagram('A', "F8,1,1,"));
    EXPECT_TRUE(WaitUntil([&] { return Tables() == "2 2 0 3"; })) << Tables();
    EXPECT_TRUE(WaitUntil([&] { return host_->Center().Refused() >= 5u; }));
    host_->Center().SetMode(hostemu::CHostNeighbour::Record);

    host_->Factory().SetGetMsgAlwaysFails(true);
    Send(Datagram('0', SingleLegText("IF2601", "F4,93015,")));
    Send(Datagram('3', deal));
    Send(Datagram('A', "F7,1,1,"));
    ASSERT_TRUE(WaitUntil([&] { return Tables() == "3 3 0 4"; }));
    MessageSnapshot a;
    ASSERT_TRUE(Ask(620205, hostemu::MakeBody(33, {"result_type", "contract_code"}, {{1, "IF2601"}}), &a));
    EXPECT_EQ("IF2601", Decode(a.Body()).Str(0, "contract_code"));
    host_->Factory().SetGetMsgAlwaysFails(false);
    // Registration answered: its thread stops asking for messages, so only
    // the consumer meets the failed gets below.
    ASSERT_EQ(0, host_->PostFromCenter(MessageSpec(2, 1)));
    ASSERT_TRUE(WaitLog("RegeditThread stop!"));
    const size_t before = Flush().size();
    for (int fails : {3, 4}) {
        host_->Factory().FailNextGetMsg(fails);
        Send(Datagram('0', SingleLegText("IF270" + std::to_string(fails), "F4,93015,")));
        EXPECT_EQ(before + (fails == 3 ? 3 : 5), Flush().size()) << fails;
    }
}

}  // namespace
