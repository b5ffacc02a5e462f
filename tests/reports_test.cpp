// Trade reports: from the message center (620299), over UDP ('3'), and the
// offset-setting ('F') and margin-order ('E') records, checked on every
// message the plug-in publishes; the UDP handlers' results and counters
// called directly.
#include <thread>

#include "report/report_text.h"
#include "testing/service_test_support.h"
#include "tests/e2e_support.h"

namespace {

using namespace e2e;

// Key rows of the report messages: fund account as an integer or as text.
std::string Key(int branch, const std::string& fund) {
    return "key[branch_no:S255 fund_account:S255 = I" + std::to_string(branch) + " " + fund + "]";
}
std::string Record(const char* issue, const std::string& key, char type, int size) {
    return std::string("620031/") + issue + " " + key + " body[business_type:S255 futu_hb_raw:R10240 = " + type +
           " R<" + std::to_string(size) + ">]";
}
std::string Text(const std::string& key, const std::string& ly, const std::string& text) {
    return "620031/33101 " + key + " body[LY:S255 QH:S1024 = " + ly + " " + text + "]";
}

MessageSpec Row(const std::vector<std::string>& names, const std::vector<PackCell>& values, int function = 620299) {
    MessageSpec req(function, 0);
    req.body = hostemu::EncodePacked(hostemu::MakeBody(33, names, {values}));
    return req;
}

// A deal row as the message center sends it.
MessageSpec DealRow(const std::string& contract) {
    return Row({"entrust_no", "futures_account", "futu_exch_type", "contract_code", "entrust_bs", "futures_direction",
                "futu_business_price", "business_amount", "hedge_type", "fund_account", "futu_report_no", "seat_no",
                "operator_no", "client_group", "entrust_amount", "entrust_business_amount", "cancel_amount",
                "futu_entrust_price", "futu_entrust_type", "entrust_status", "branch_no", "batch_no", "entrust_type",
                "amount_per_hand", "forceclose_reason", "confirm_no", "futu_business_no", "entrust_occasion",
                "futu_entrust_price2", "init_date", "business_time", "curr_time", "session_no", "entrust_reference",
                "arbitrage_code", "futu_entrust_prop", "drop_profit", "drop_profit_float", "futu_position_str",
                "position_str", "arbideal_total_amount", "quote_no"},
               {101, "FA01", "F1", contract.c_str(), "1", "4", 71230.5, 3.0, "0", "00123", "R77", "S12", "op1", 2,
                12.9, 5, 1, 71240.25, "B", "5", 8, 9, "0", 5, "0", "C99", "B0001", "occ", 1.5, 20240305, 93015, 1, 4,
                "ref1", "SPD1", "1", 10.25, -2.0, "pos9", "other", 6, 0});
}

// Mandatory fields 1-27 of a UDP report record.
std::string UdpHead(const std::string& businessType, const std::string& status, const std::string& contract,
                    const std::string& businessNo = "B7") {
    return "31,FA09,F1," + businessNo + "," + contract + ",卖出,开仓,4100.5,2,套利,00077,R1,S1,op,1,2,2,0,4101.25," +
           businessType + "," + status + ",12,13,1,10,0,CF1";
}

class Reports : public Plugin {
protected:
    // The first n report messages (620031, or 620003), after a pause that
    // lets a surplus one arrive.
    std::vector<MessageSnapshot> Wait(size_t n, int function = 620031) {
        EXPECT_TRUE(WaitUntil([&] { return host_->Center().MessagesOf(function, 0).size() >= n; })) << n;
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        return host_->Center().MessagesOf(function, 0);
    }
};

// A deal from the message center: with sysversion 0 the '5'->'7' rule, a
// 9-character code and all three forms; with sysversion 1 the translation
// comes first ('5' -> '0', which the deal rule leaves) and a 10-character
// code skips the legacy record. The overriding total amount (6) is in both.
TEST_F(Reports, CenterDealForms) {
    for (const auto& c : {std::make_pair(std::string("cu2405P70"), '7'), std::make_pair(std::string("cu2405P700"), '0')}) {
        SCOPED_TRACE(c.first);
        const bool legacy = c.first.size() == 9;
        Start(std::string("enableudphb=\"0\" sysversion=\"") + (legacy ? "0" : "1") + "\"");
        ASSERT_EQ(0, host_->PostFromCenter(DealRow(c.first)));
        auto msgs = Wait(legacy ? 3 : 2);
        const std::string head = "101|FA01|F1|B0001|" + c.first + "|1|4|71230.500000|3.000000|0|123|R77|S12|op1|2|12|6|1|"
                                 "71240.250000|" + c.second + "|8|9|0|5|0|20240305|93015|C99|occ|";
        std::vector<std::string> want = {
            Record("23", Key(8, "I123"), 'B', 304),
            Text(Key(8, "123"), "CB", head + "1.500000|1|SPD1|ref1|pos9|4|0.000000|0.000000|0.000000|0.000000|"
                                             "0.000000|0.000000|10.250000|-2.000000")};
        if (legacy) want.push_back(Record("17", Key(8, "I123"), 'B', 248));
        EXPECT_EQ(want, Show(msgs));
        tagCJ_EX rec = RecordOf<tagCJ_EX>(msgs[0], 1);
        EXPECT_EQ(head + "0.000000", TextOf(rec));
        EXPECT_EQ(u8"买入 平今仓 投机", hostemu::GbkToUtf8(std::string(rec.entrust_name) + " " + rec.direction_name + " " + rec.hedge_name));
        tagCJ old{};
        ConvertCj23To17(&rec, old);
        if (legacy) {
            EXPECT_EQ(Bytes(old), FirstCell(msgs[2], 1));
        }
    }
}

// An entrust confirmation with unknown codes: catch-all words in the
// records, blank codes in the text; arbitrage hedge becomes the catch-all
// word too; 'C' is translated with sysversion 1; curr_time is the entrust's
// time; weave_type 0 is printed as a zero byte, which ends the text.
TEST_F(Reports, CenterEntrustCatchAllWordsAndTranslation) {
    Start("enableudphb=\"0\" sysversion=\"1\"");
    ASSERT_EQ(0, host_->PostFromCenter(Row(
                     {"entrust_no", "futures_account", "futu_exch_type", "contract_code", "entrust_bs",
                      "futures_direction", "hedge_type", "fund_account", "entrust_amount", "futu_entrust_type",
                      "entrust_status", "branch_no", "entrust_type", "curr_time", "business_time", "init_date",
                      "futu_business_no", "error_message", "second_code", "withdraw_reference", "quote_no"},
                     {7, "FA02", "F2", "ab12", "3", "3", "2", 456, 4.0, "0", "C", 3, "9", 101500, 5, 20240306, "0999",
                      "refused", "sec", "wr1", -1})));
    auto msgs = Wait(3);
    const std::string head = "7|FA02|F2|ab12| | | |456||||0|4|0|0|0.000000|8|3|0|0|0||20240306|101500||";
    EXPECT_EQ((std::vector<std::string>{Record("23", Key(3, "I456"), '0', 304),
                                        Text(Key(3, "456"), "C0", head + "|0.000000||||refused||0|sec|"),
                                        Record("17", Key(3, "I456"), '0', 248)}),
              Show(msgs));
    // In the record's text the zero forceclose_reason byte ends the text.
    tagWTQR_EX rec = RecordOf<tagWTQR_EX>(msgs[0], 1);
    EXPECT_EQ(head.substr(0, head.find("||20240306")) + "|", TextOf(rec));
    EXPECT_EQ("20240306 101500", std::to_string(rec.init_date) + " " + std::to_string(rec.curr_time));
    EXPECT_EQ(u8"买卖 开平仓 投机套保", hostemu::GbkToUtf8(std::string(rec.entrust_name) + " " + rec.direction_name + " " + rec.hedge_name));
    tagWTQR old{};
    ConvertHb23To17(&rec, old);
    EXPECT_EQ(Bytes(old), FirstCell(msgs[2], 1));
}

// Quote reports go out as 33301 only ('1' translated to '3'); a broken or
// missing body is refused with a line.
TEST_F(Reports, CenterQuoteReportAndBadBodies) {
    Start("enableudphb=\"0\" sysversion=\"1\"");
    ASSERT_EQ(0, host_->PostFromCenter(Row({"quote_no", "futu_exch_type", "contract_code", "fund_account", "branch_no",
                                            "entrust_status", "buy_price", "quote_occasion"},
                                           {55, "F3", "m2409-C-3000", "00987", 6, "1", 12.5, "qo"})));
    MessageSpec garbage(620299, 0);
    garbage.body = {'x', 'y', 'z'};
    ASSERT_EQ(0, host_->PostFromCenter(MessageSpec(620299, 0)));
    ASSERT_EQ(0, host_->PostFromCenter(garbage));
    EXPECT_EQ(std::vector<std::string>{"620031/33301 " + Key(6, "00987") +
                                       " body[QH:S1024 = F3|m2409-C-3000|||12.500000|0.000000|||0.000000|0.000000|55|"
                                       "00987||||3|6|0|0||||qo||0|||0|0]"},
              Show(Wait(1)));
    EXPECT_TRUE(WaitLog("get TAG_MESSAGE_BODY fail!"));
    EXPECT_TRUE(WaitLog("解包错误, 错误代码: "));
    size_t named = 0;
    for (const auto& l : host_->Log().Lines()) named += l.function == "CTIKRONServiceImpl::DealF1_HB" && l.code == 15006;
    EXPECT_EQ(2u, named);
}

// With "savehblog" every published report message is written to the
// trade-report log: "YYYY-MM-DD HH:MM:SS.mmm[len]", the encoded message, '\n'.
TEST_F(Reports, TradeReportLogHoldsEncodedMessages) {
    Start("enableudphb=\"0\" savehblog=\"1\"");
    ASSERT_EQ(0, host_->PostFromCenter(DealRow("cu2405P70")));
    auto msgs = Wait(3);
    host_->Shutdown();  // the log thread writes what is queued when it stops
    char name[64];
    const time_t now = time(nullptr);
    strftime(name, sizeof name, "log/%Y-%m-%d-tikrno_A#-1.log", localtime(&now));
    const std::string file = testing_support::ReadFile(name);
    std::vector<std::string> logged;
    for (size_t pos = 0, close; pos < file.size(); pos = close + 2 + std::stoul(file.substr(pos + 24, close - pos - 24))) {
        ASSERT_EQ('[', file.at(pos + 23)) << file.substr(pos, 40);
        ASSERT_NE(std::string::npos, close = file.find(']', pos + 24));
        const size_t len = std::stoul(file.substr(pos + 24, close - pos - 24));
        ASSERT_EQ('\n', file.at(close + 1 + len));
        MessageSnapshot m;
        ASSERT_EQ(0, hostemu::DecodeMessage(file.data() + close + 1, static_cast<int>(len), &m));
        logged.push_back(Show(m));
    }
    EXPECT_EQ(Show(msgs), logged);
}

// Over a real socket: a deal with a 12-character code in all three forms
// (everything from the last '&' on dropped, field 30 ignored, field 39
// overwriting 17, words arriving as words), an entrust with a 13-character
// code without the legacy record and with only the last '&' cutting, then
// offset and margin-order records.
TEST_F(Reports, UdpRecordsOverSocket) {
    StartUdp("enableudphq=\"0\"");
    Send(Datagram('3', UdpHead("B", "5", "SR2409C12000") +
                           ",20240307,101112,IGNORED,1,3,occ,ref,SPD,7.5,-1.5,pos,9,1,2,3,4,5,6&tail"));
    auto msgs = Wait(3);
    const std::string head = "31|FA09|F1|B7|SR2409C12000|2|1|4100.500000|2.000000|2|00077|R1|S1|op|1|2|9|0|4101.250000|7|"
                             "12|13|1|10|0|20240307|101112|CF1|occ|";
    EXPECT_EQ((std::vector<std::string>{Record("23", Key(12, "I77"), 'B', 304),
                                        Text(Key(12, "00077"), "B", head + "0.000000|1|SPD|ref|pos|3|1.000000|2.000000|"
                                                                    "3.000000|4.000000|5.000000|6.000000|7.500000|-1.500000"),
                                        Record("17", Key(12, "I77"), 'B', 248)}),
              Show(msgs));
    std::string recHead = head;
    recHead.replace(recHead.find("|00077|"), 7, "|77|");
    EXPECT_EQ(recHead + "0.000000", TextOf(RecordOf<tagCJ_EX>(msgs[0], 1)));
    EXPECT_EQ(u8"卖出 开仓 套利", hostemu::GbkToUtf8(std::string(RecordOf<tagCJ_EX>(msgs[0], 1).entrust_name) + " " +
                                                  RecordOf<tagCJ_EX>(msgs[0], 1).direction_name + " " +
                                                  RecordOf<tagCJ_EX>(msgs[0], 1).hedge_name));

    host_->Center().Clear();
    Send(Datagram('3', UdpHead("0", "3", "SR2409C120000") + "&x&,20240308,5"));
    Send(Datagram('F', "FA77,FUT1,5,F1,cu2405,3,1,2,3,none,p1"));
    Send(Datagram('E', "8,FUT1,F2,1,SPab,2,3,0,FA78,rep,fm,op,1,4,5,6,10,20240307,93000,7,err,2,oc,rf,1,9"));
    msgs = Wait(3);
    ASSERT_EQ(3u, msgs.size());
    EXPECT_EQ("31|FA09|F1|SR2409C120000|2|1|2|77|R1|S1|op|1|2|2|0|4101.250000|3|12|13|1|10|0|0|0|CF1&x||0.000000",
              TextOf(RecordOf<tagWTQR_EX>(msgs[0], 1)));
    EXPECT_EQ(Text(Key(12, "00077"), "0", "31|FA09|F1|SR2409C120000|2|1|2|00077|R1|S1|op|1|2|2|0|4101.250000|3|12|13|1|"
                                          "10|0|0|0|CF1&x||0.000000||||||0||"),
              Show(msgs[1]));
    EXPECT_EQ("620031/33117 key[fund_account:S255 = FA77] body[QH:S1024 = FA77|FUT1|5|F1|cu2405|3|1|2|3|none|p1]",
              Show(msgs[2]));
    // futu_code, second_code, entrust_prop and position_str are not carried.
    EXPECT_EQ(std::vector<std::string>{"620003/33106 key[fund_account:S255 = FA78] body[QH:S1024 = 8|FUT1|F2|SPab|||2|0|1|"
                                       "FA78|rep|fm|op|1|3|4|5|6|7|20240307|93000||9|oc|rf|err||2|0.000000|0.000000|"
                                       "0.000000|1]"},
              Show(Wait(1, 620003)));
}

// ---- the UDP handlers called directly ------------------------------------

struct DirectUdp : testing::Test {
    hostemu::CHostLog log;
    tikron_udp::ScratchService scratch;
    CTIKRONServiceImpl& svc = scratch.Svc();
    hostemu::CHostNeighbour& down = scratch.Center();

    void SetUp() override { svc.m_lpLogService = &log; }
    void TearDown() override {
        scratch.Close();
        EXPECT_EQ(0u, scratch.Factory().Stats().live);
    }
    int Udp(char type, const std::string& text) {
        std::string d = Datagram(type, text);
        return type == '3'   ? svc.DealUDP_HB(&d[0], static_cast<int>(d.size()))
               : type == 'F' ? svc.DealUDP_OffsetSet(&d[0], static_cast<int>(d.size()))
                             : svc.DealUDP_ZJZH_BZJHB(&d[0], static_cast<int>(d.size()));
    }
    std::string Counters() {
        return std::to_string(svc.m_uiRecvUDPHB.load()) + " " + std::to_string(svc.m_uiRecvCJNum.load()) + " " +
               std::to_string(svc.m_uiRecvWTQRNum.load()) + " " + std::to_string(down.Count());
    }
};

// Status rules in order: translation with sysversion 1, then '5' -> '7' for
// deals, then '7'/'8' -> '2' for business_type '0' with a deal number
// starting with '0'.
TEST_F(DirectUdp, StatusRules) {
    struct Case {
        int sysVersion;
        const char *type, *status, *businessNo;
        char want;
    } cases[] = {
        {0, "B", "5", "B7", '7'},   {1, "B", "5", "B7", '0'}, {0, "0", "7", "0123", '2'},
        {0, "0", "8", "0123", '2'}, {0, "0", "7", "123", '7'}, {1, "0", "B", "01", '2'},
        {1, "0", "C", "01", '2'},   {1, "0", "Z", "01", 'Z'}, {0, "1", "8", "01", '8'},
    };
    for (const Case& c : cases) {
        svc.m_iSysVersion = c.sysVersion;
        down.Clear();
        ASSERT_EQ(0, Udp('3', UdpHead(c.type, c.status, "cu2405", c.businessNo)));
        ASSERT_GE(down.Count(), 1u);
        const MessageSnapshot m = down.Messages()[0];
        EXPECT_EQ(c.want, c.type[0] == 'B' ? RecordOf<tagCJ_EX>(m, 1).entrust_status : RecordOf<tagWTQR_EX>(m, 1).entrust_status)
            << c.sysVersion << " " << c.type << " " << c.status;
    }
}

// The ignored fields (deal 30, entrust 35) are read and dropped; an entrust
// record fills the entrust layout's own fields; an ignored field longer
// than its width is still a read error. A deal counts twice, an entrust with
// a long code once, a datagram without messages from the host only as
// received.
TEST_F(DirectUdp, IgnoredFieldsEntrustLayoutAndCounters) {
    ASSERT_EQ(0, Udp('3', UdpHead("0", "1", "cu2405") + ",20240309,90000,W,ARB1,T,V,P,IGNORED35,bad,6,occ,ref,sec,pos,"
                                                         "11,wr,1.5,2.5,3.5,4.5,77"));
    ASSERT_EQ(3u, down.Count());
    EXPECT_EQ(Text(Key(12, "00077"), "0", "31|FA09|F1|cu2405|2|1|2|00077|R1|S1|op|1|2|11|0|4101.250000|1|12|13|1|10|0|"
                                          "20240309|90000|CF1|occ|0.000000|P|ARB1|ref|bad|pos|6|sec|W|1.500000|2.500000|"
                                          "3.500000|wr|T|V|4.500000|77"),
              Show(down.Messages()[1]));
    EXPECT_EQ(11, RecordOf<tagWTQR_EX>(down.Messages()[0], 1).business_total_amount);
    EXPECT_EQ("1 0 2 3", Counters());
    EXPECT_EQ(-2, Udp('3', UdpHead("B", "1", "cu2405") + ",1,2,ignored-field-of-21ch"));
    ASSERT_EQ(0, Udp('3', UdpHead("B", "1", "cu2405")));
    ASSERT_EQ(0, Udp('3', UdpHead("0", "1", "cu2405-long-1")));
    EXPECT_EQ("4 2 3 8", Counters());
    scratch.Factory().SetGetMsgAlwaysFails(true);
    ASSERT_EQ(0, Udp('3', UdpHead("B", "1", "cu2405")));
    scratch.Factory().SetGetMsgAlwaysFails(false);
    EXPECT_EQ("5 2 3 8", Counters());
}

// Bad records: wrong framing (-2, logged under the borrowed name, counted
// before the check), a missing mandatory field, an empty character field,
// a record of another type; a missing last text field reads as empty.
TEST_F(DirectUdp, RefusedRecordsPublishNothing) {
    std::string bad = "3" "00999" "1,2";  // declared length beyond the text
    EXPECT_EQ(-2, svc.DealUDP_HB(&bad[0], static_cast<int>(bad.size())));
    EXPECT_EQ(1, log.CountContaining("包格式不对, 错误代码: -2!"));
    EXPECT_EQ("CTIKRONInfo::LoadFromFile", log.Lines().at(0).function);
    EXPECT_EQ(-2, Udp('3', "1,FA,F1,B1,cu"));  // ends after field 5
    EXPECT_EQ(-3, Udp('F', "FA77,FUT1,5,F1,cu2405,3,,2,3,none,p1"));
    std::string wrongType = Datagram('E', "FA77,FUT1,5,F1,cu2405,3,1,2,3,none,p1");
    EXPECT_EQ(-2, svc.DealUDP_OffsetSet(&wrongType[0], static_cast<int>(wrongType.size())));
    EXPECT_EQ("2 0 0 0", Counters());
    EXPECT_EQ(0, Udp('F', "FA77,FUT1,5,F1,cu2405,3,1,2,3,none"));
    EXPECT_EQ("|3|none|]", Show(down.Messages().at(0)).substr(Show(down.Messages()[0]).size() - 9));
    // A margin record ending after field 25 has weave_type 0: "%c" prints a
    // zero byte, so the text ends with the separator after field 22.
    ASSERT_EQ(0, Udp('E', "8,FUT1,F2,1,SPab,2,3,0,FA78,rep,fm,op,1,4,5,6,10,20240307,93000,7,err,2,oc,rf,1"));
    EXPECT_EQ("620003/33106 key[fund_account:S255 = FA78] body[QH:S1024 = 8|FUT1|F2|SPab|||2|0|1|FA78|rep|fm|op|1|3|4|5|"
              "6|7|20240307|93000||]",
              Show(down.Messages().at(1)));
}

}  // namespace
