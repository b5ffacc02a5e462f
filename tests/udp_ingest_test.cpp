// UDP ingest end to end: the real plug-in, loaded by the host emulator,
// receives datagrams on 127.0.0.1 and publishes to the message center.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "testing/frame_test_support.h"
#include "testing/store_test_support.h"
#include "quote/quote_text.h"
#include "report/report_text.h"
#include "store/hq_tables.h"

namespace {

using hostemu::MessageSnapshot;
using hostemu::PackedBody;
using frametest::Datagram;
using frametest::Decode;

// A record text with its 0x01 separators shown as '|'.
std::string Bars(std::string s) {
    for (char& c : s)
        if (c == '\x01') c = '|';
    return s;
}

// A 47-field single-leg record text (code, last price, exchange, tail).
std::string SingleLeg(const std::string& code, double last, const std::string& tail) {
    return SingleLegText(code, tail, last);
}

double DblAt(const std::string& raw, size_t off) {
    double v;
    memcpy(&v, raw.data() + off, sizeof v);
    return v;
}
int IntAt(const std::string& raw, size_t off) {
    int v;
    memcpy(&v, raw.data() + off, sizeof v);
    return v;
}

class UdpIngest : public frametest::UdpPlugin {
protected:
    void Start(const std::string& args) { StartUdp(args); }
    // Sends, then waits (bounded) until n publications in total arrived.
    std::vector<MessageSnapshot> SendAndWait(const std::string& d, size_t n) {
        Send(d);
        std::vector<MessageSnapshot> out;
        EXPECT_TRUE(frametest::WaitUntil([&] { return (out = Published()).size() >= n; })) << out.size();
        return out;
    }
    // Marker datagram (an exchange status, never gated) whose two messages
    // show that everything sent before it was processed.
    std::vector<MessageSnapshot> Flush(size_t before) {
        return SendAndWait(Datagram('A', "ZZ,1,1,"), before + 2);
    }
    static void ExpectKey(const MessageSnapshot& m, const std::vector<std::string>& cols,
                          const std::vector<std::string>& values) {
        PackedBody k = Decode(m.Key());
        ASSERT_EQ(cols.size(), k.columns.size());
        ASSERT_EQ(1u, k.rows.size());
        for (size_t i = 0; i < cols.size(); ++i) {
            EXPECT_EQ(cols[i], k.columns[i].name);
            EXPECT_EQ('S', k.columns[i].type);
            EXPECT_EQ(255, k.columns[i].width);
            EXPECT_EQ(4, k.columns[i].scale);
            EXPECT_EQ(values[i], k.Str(0, cols[i]));
        }
    }
    // The text body: one column "QH" ('S', width) and one row.
    static std::string TextOf(const MessageSnapshot& m, int width) {
        PackedBody b = Decode(m.Body());
        EXPECT_EQ(1u, b.columns.size());
        if (b.columns.empty() || b.rows.size() != 1) return "";
        EXPECT_EQ("QH", b.columns[0].name);
        EXPECT_EQ('S', b.columns[0].type);
        EXPECT_EQ(width, b.columns[0].width);
        return b.rows[0][0].bytes;
    }
    // The raw quote body: "type" ('S') = typeValue, "futu_hq_raw" ('R', 10240).
    static std::string RawQuoteOf(const MessageSnapshot& m, int typeValue) {
        PackedBody b = Decode(m.Body());
        EXPECT_EQ(2u, b.columns.size());
        if (b.columns.size() != 2 || b.rows.size() != 1) return "";
        EXPECT_EQ("type", b.columns[0].name);
        EXPECT_EQ('S', b.columns[0].type);
        EXPECT_EQ("futu_hq_raw", b.columns[1].name);
        EXPECT_EQ('R', b.columns[1].type);
        EXPECT_EQ(10240, b.columns[1].width);
        EXPECT_EQ(typeValue, b.rows[0][0].i);
        return b.rows[0][1].bytes;
    }
    static void ExpectHeader(const MessageSnapshot& m, int function, int issue) {
        EXPECT_EQ(0, m.PacketType());
        EXPECT_EQ(function, m.FunctionNo());
        EXPECT_EQ(issue, m.IssueType());
    }
};

TEST_F(UdpIngest, SingleLegQuoteFillsBothTablesAndPublishesThreeMessages) {
    Start("");
    auto msgs = SendAndWait(Datagram('0', SingleLeg("IF2412", 3861.4, "F4,93015,")), 3);
    ASSERT_EQ(3u, msgs.size());
    ExpectHeader(msgs[0], 620003, 33100);
    ExpectHeader(msgs[1], 620003, 22);
    ExpectHeader(msgs[2], 620003, 16);
    for (const auto& m : msgs) ExpectKey(m, {"contract_code"}, {"IF2412"});

    tagHQInfo_EX ex;
    memset(&ex, 0, sizeof ex);
    strcpy(ex.contract_code, "IF2412");
    ASSERT_EQ(1, svc_->GetTIKRONInfo_EX()->GetHQInfo(&ex));
    EXPECT_EQ(93015, ex.time_stamp);
    tagHQInfo hq;
    memset(&hq, 0, sizeof hq);
    strcpy(hq.contract_code, "IF2412");
    ASSERT_EQ(1, svc_->GetTIKRONInfo()->GetHQInfo(&hq));

    // 33100: the converter's text of the stored record, width = length + 1.
    char buf[4096];
    std::string expect = Convert22To33100(&ex, buf, sizeof buf);
    EXPECT_EQ(expect, TextOf(msgs[0], static_cast<int>(expect.size()) + 1));
    EXPECT_NE(std::string::npos, expect.find("\x01" "IF2412\x01" "3850.200000\x01"));

    // 22 and 16: the stored records byte for byte, fields at their offsets.
    std::string raw22 = RawQuoteOf(msgs[1], 1);
    ASSERT_EQ(sizeof(tagHQInfo_EX), raw22.size());
    EXPECT_EQ(0, memcmp(raw22.data(), &ex, sizeof ex));
    EXPECT_STREQ("IF2412", raw22.c_str());
    EXPECT_EQ(3861.4, DblAt(raw22, offsetof(tagHQInfo_EX, futu_last_price)));
    EXPECT_EQ(160234, IntAt(raw22, offsetof(tagHQInfo_EX, bear_amount)));
    EXPECT_STREQ("F4", raw22.c_str() + offsetof(tagHQInfo_EX, futu_exch_type));
    EXPECT_EQ(3862.4, DblAt(raw22, offsetof(tagHQInfo_EX, ask_price5)));
    EXPECT_EQ(10, IntAt(raw22, offsetof(tagHQInfo_EX, ask_volume5)));
    EXPECT_EQ(93015, IntAt(raw22, offsetof(tagHQInfo_EX, time_stamp)));

    std::string raw16 = RawQuoteOf(msgs[2], 1);
    ASSERT_EQ(sizeof(tagHQInfo), raw16.size());
    EXPECT_EQ(0, memcmp(raw16.data(), &hq, sizeof hq));
    EXPECT_EQ(3861.4, DblAt(raw16, offsetof(tagHQInfo, futu_last_price)));
    EXPECT_EQ(158000.0, DblAt(raw16, offsetof(tagHQInfo, pre_open_interest)));
    EXPECT_STREQ("F4", raw16.c_str() + offsetof(tagHQInfo, futu_exch_type));

    // An update of the same contract replaces the record, no new entry.
    SendAndWait(Datagram('0', SingleLeg("IF2412", 3870.0, "F4,&")), 6);
    EXPECT_EQ(1u, svc_->GetTIKRONInfo_EX()->GetCount());
    ASSERT_EQ(1, svc_->GetTIKRONInfo_EX()->GetHQInfo(&ex));
    EXPECT_EQ(3870.0, double(ex.futu_last_price));
    EXPECT_EQ(0, ex.time_stamp);  // '&' after the exchange code: no time stamp
}

TEST_F(UdpIngest, ContractCodeLengthDecidesTheLegacyRecord) {
    Start("");
    // 12 characters: extended only (33100 and 22), no 16.
    auto msgs = SendAndWait(Datagram('0', SingleLeg("SR501C5600AB", 61.5, "F1,100000,")), 2);
    msgs = Flush(2);
    ASSERT_EQ(4u, msgs.size());
    EXPECT_EQ(33100, msgs[0].IssueType());
    EXPECT_EQ(22, msgs[1].IssueType());
    EXPECT_EQ(24, msgs[2].IssueType());
    EXPECT_EQ(1u, svc_->GetTIKRONInfo_EX()->GetCount());
    EXPECT_EQ(0u, svc_->GetTIKRONInfo()->GetCount());

    // 11 characters still reach the legacy table.
    msgs = SendAndWait(Datagram('0', SingleLeg("SR501C56001", 61.5, "F1,100000,")), 7);
    ASSERT_EQ(7u, msgs.size());
    EXPECT_EQ(16, msgs[6].IssueType());
    ExpectKey(msgs[6], {"contract_code"}, {"SR501C56001"});

    // The extended parse fails (no time stamp after the exchange code) but the
    // legacy one succeeds: 16 only.
    host_->Center().Clear();
    Send(Datagram('0', SingleLeg("cu2501", 70120.0, "F3")));
    msgs = Flush(0);
    ASSERT_EQ(3u, msgs.size());
    ExpectHeader(msgs[0], 620003, 16);
    ExpectKey(msgs[0], {"contract_code"}, {"cu2501"});
    EXPECT_EQ(70120.0, DblAt(RawQuoteOf(msgs[0], 1), offsetof(tagHQInfo, futu_last_price)));
    EXPECT_EQ(2u, svc_->GetTIKRONInfo_EX()->GetCount());
    EXPECT_EQ(2u, svc_->GetTIKRONInfo()->GetCount());
}

TEST_F(UdpIngest, ArbitrageQuoteAndExchangeStatus) {
    Start("");
    auto msgs = SendAndWait(
        Datagram('9', "SP a2501&a2505,F2,a2501,a2505,SP,12.5,3,30,13.0,4,40,14.0,11.0,80.0,-80.0,F2,"), 2);
    ASSERT_EQ(2u, msgs.size());
    ExpectHeader(msgs[0], 620003, 18);
    ExpectHeader(msgs[1], 620003, 33102);
    ExpectKey(msgs[0], {"arbicontract_id"}, {"SP a2501&a2505"});
    ExpectKey(msgs[1], {"arbicontract_id"}, {"SP a2501&a2505"});
    std::string raw = RawQuoteOf(msgs[0], 9);
    ASSERT_EQ(sizeof(tagArgHQInfo), raw.size());
    EXPECT_STREQ("a2505", raw.c_str() + offsetof(tagArgHQInfo, second_code));
    EXPECT_EQ('S', raw[offsetof(tagArgHQInfo, arbi_type)]);
    EXPECT_EQ(12.5, DblAt(raw, offsetof(tagArgHQInfo, buy_price)));
    EXPECT_EQ(40, IntAt(raw, offsetof(tagArgHQInfo, sale_total_amount)));
    EXPECT_EQ(-80.0, DblAt(raw, offsetof(tagArgHQInfo, downlimited_price)));
    tagArgHQInfo arg;
    memcpy(&arg, raw.data(), sizeof arg);
    char text[1024];
    ASSERT_EQ(0, Convert18To33102(&arg, text, sizeof text));
    EXPECT_EQ(std::string(text), TextOf(msgs[1], 1024));
    EXPECT_EQ(1u, svc_->GetTIKRONARGInfo()->GetCount());

    // Exchange status with a bad second field: both messages, with the
    // fields read before it.
    msgs = SendAndWait(Datagram('A', "F3,TOOLONG,1,"), 4);
    ASSERT_EQ(4u, msgs.size());
    ExpectHeader(msgs[2], 620003, 24);
    ExpectHeader(msgs[3], 620003, 33105);
    ExpectKey(msgs[2], {"futu_exch_type"}, {"F3"});
    PackedBody b = Decode(msgs[2].Body());
    ASSERT_EQ(1u, b.columns.size());
    EXPECT_EQ("futu_exch_status_raw", b.columns[0].name);
    EXPECT_EQ('R', b.columns[0].type);
    EXPECT_EQ(1024, b.columns[0].width);
    ASSERT_EQ(1u, b.rows.size());
    std::string st = b.rows[0][0].bytes;
    ASSERT_EQ(sizeof(tagEXCHSTATUS), st.size());
    EXPECT_STREQ("F3", st.c_str());
    EXPECT_STREQ("", st.c_str() + offsetof(tagEXCHSTATUS, futu_status));
    EXPECT_EQ(std::string("F3\x01\x01" "0"), TextOf(msgs[3], 1024));
    EXPECT_EQ(0u, svc_->GetExchStatusInfo()->GetCount());  // not stored

    msgs = SendAndWait(Datagram('A', "F3,2,1,"), 6);
    EXPECT_EQ(std::string("F3\x01" "2\x01" "1"), TextOf(msgs[5], 1024));
    EXPECT_EQ(1u, svc_->GetExchStatusInfo()->GetCount());
}

TEST_F(UdpIngest, InquiryAndQuoteReportTexts) {
    Start("sysversion=\"1\"");
    auto msgs = SendAndWait(Datagram('B', "FQ20240105001,IF2412,20240105,93001,&trailer,x"), 1);
    ASSERT_EQ(1u, msgs.size());
    ExpectHeader(msgs[0], 620003, 33300);
    ExpectKey(msgs[0], {"contract_code"}, {"IF2412"});
    EXPECT_EQ(std::string("FQ20240105001\x01IF2412\x01" "20240105\x01" "93001"), TextOf(msgs[0], 1024));

    // A full quote report; the part from the last '&' is dropped. Status '6'
    // becomes '1' with sysversion 1.
    const std::string full =
        "F4,IF2412,0,1,3861.2,5,1,1,3862.0,6,778,10086,R001,F01,OP1,6,8888,20240105,93002,"
        "C1,BC1,SC1,OCC,REF1,3,BREF,SREF,11,12,&&ignored";
    msgs = SendAndWait(Datagram('C', full), 2);
    ASSERT_EQ(2u, msgs.size());
    ExpectHeader(msgs[1], 620031, 33301);
    ExpectKey(msgs[1], {"branch_no", "fund_account"}, {"8888", "10086"});
    EXPECT_EQ('I', Decode(msgs[1].Key()).rows[0][0].kind);  // branch_no added as int
    EXPECT_EQ(std::string("F4|IF2412|0|1|3861.200000|5.000000|1|1|3862.000000|6.000000|778|10086|R001|F01|OP1|1|"
                          "8888|20240105|93002|C1|BC1|SC1|OCC|REF1|3|BREF|SREF|11|12"),
              Bars(TextOf(msgs[1], 1024)));

    // An older sender stops after quote_occasion: the optional fields are
    // empty and zero. Status '9' has no mapping and stays.
    msgs = SendAndWait(Datagram('C', "F4,IF2412,0,1,3861.2,5,1,1,3862.0,6,778,10086,R001,F01,OP1,9,8888,"
                                     "20240105,93002,C1,BC1,SC1,OCC"),
                       3);
    ASSERT_EQ(3u, msgs.size());
    std::string older = TextOf(msgs[2], 1024);
    EXPECT_NE(std::string::npos, older.find("\x01" "9\x01" "8888\x01"));
    const std::string tail = "\x01OCC\x01\x01" "0\x01\x01\x01" "0\x01" "0";
    ASSERT_GT(older.size(), tail.size());
    EXPECT_EQ(tail, older.substr(older.size() - tail.size()));

    // A missing numeric field: the reader's error, nothing published.
    Send(Datagram('B', "FQ1,IF2412,20240105"));
    Send(Datagram('C', "F4,IF2412,0,1,abc"));
    msgs = Flush(3);
    EXPECT_EQ(5u, msgs.size());
    EXPECT_EQ(24, msgs[3].IssueType());
}

TEST_F(UdpIngest, HqSwitchOffDropsQuotesButNotExchangeStatus) {
    Start("enableudphq=\"0\"");
    Send(Datagram('0', SingleLeg("IF2412", 3861.4, "F4,93015,")));
    Send(Datagram('9', "SP a2501&a2505,F2,a2501,a2505,SP,12.5,3,30,13.0,4,40,14.0,11.0,80.0,-80.0,F2,"));
    Send(Datagram('B', "FQ1,IF2412,20240105,93001,"));
    auto msgs = Flush(0);
    ASSERT_EQ(2u, msgs.size());
    EXPECT_EQ(24, msgs[0].IssueType());
    EXPECT_EQ(0u, svc_->GetTIKRONInfo_EX()->GetCount());
    EXPECT_EQ(0u, svc_->GetTIKRONARGInfo()->GetCount());
    EXPECT_EQ(1u, svc_->GetExchStatusInfo()->GetCount());
}

TEST_F(UdpIngest, ExchangeFeedModeStoresWhatIsPresent) {
    Start("udphqversion=\"1\"");
    // Fields 0..31 only (depth level 2 of the bid side), 0x01-separated;
    // field 3 ignored, a 40-character field 5 cut harmlessly.
    std::string feed = std::string("0\x01" "999\x01" "93005\x01" "7\x01" "F4\x01") + std::string(40, 'x') +
                       "\x01IF2412\x01" "3850.2\x01" "3849.8\x01" "158000\x01" "0.1\x01" "3855\x01" "3861.4\x01" "3861.2\x01" "12\x01"
                       "3861.6\x01" "8\x01" "3870\x01" "3845.2\x01" "4235.2\x01" "3465.2\x01" "3858.37\x01" "11.2\x01" "80321\x01"
                       "160234\x01" "92973211400\x01" "3860\x01" "3859\x01" "20240105\x01" "0.2\x01" "3861.0\x01" "5";
    auto msgs = SendAndWait(feed, 2);
    ASSERT_EQ(2u, msgs.size());
    ExpectHeader(msgs[0], 620003, 33100);
    ExpectKey(msgs[0], {"contract_code"}, {"IF2412"});
    EXPECT_EQ(feed, TextOf(msgs[0], 1024));  // the feed's own text
    std::string raw = RawQuoteOf(msgs[1], 1);
    ASSERT_EQ(sizeof(tagHQInfo_EX), raw.size());
    tagHQInfo_EX ex;
    memcpy(&ex, raw.data(), sizeof ex);
    EXPECT_EQ(93005, ex.time_stamp);
    EXPECT_STREQ("F4", ex.futu_exch_type);
    EXPECT_EQ(158000.0, double(ex.pre_open_interest));
    EXPECT_EQ(0.1, double(ex.pre_delta));
    EXPECT_EQ(160234, ex.bear_amount);
    EXPECT_EQ(92973211400.0, double(ex.business_balance));
    EXPECT_EQ(3859.0, double(ex.square_price));
    EXPECT_EQ(0.2, double(ex.curr_delta));
    EXPECT_EQ(3861.0, double(ex.bid_price2));
    EXPECT_EQ(5, ex.bid_volume2);
    EXPECT_EQ(0.0, double(ex.bid_price3));
    EXPECT_EQ(0, ex.ask_volume5);
    tagHQInfo_EX stored;
    memset(&stored, 0, sizeof stored);
    strcpy(stored.contract_code, "IF2412");
    ASSERT_EQ(1, svc_->GetTIKRONInfo_EX()->GetHQInfo(&stored));
    EXPECT_EQ(0, memcmp(&stored, &ex, sizeof ex));
    EXPECT_EQ(0u, svc_->GetTIKRONInfo()->GetCount());  // no legacy update in this mode

    // Inquiry quotes are ignored in this mode.
    Send(Datagram('B', "FQ1,IF2412,20240105,93001,"));
    msgs = Flush(2);
    EXPECT_EQ(4u, msgs.size());
}

// Dropped datagrams leave a line: framing errors (also datagrams shorter
// than their header), unknown types and records whose fields fail; except
// the framing of offset/margin records and the field errors of inquiry,
// quote-report and trade-report records, which stay quiet on purpose.
TEST_F(UdpIngest, DroppedDatagramsAreLogged) {
    Start("");
    const std::string bad = "包格式不对, 错误代码: -2!", field = "解析记录失败, 错误代码: ";
    const std::string longCode = Datagram('0', std::string(30, 'X') + ",1,");  // extended parse fails
    struct Drop {
        std::string datagram;
        const char* function;
        std::string line;  // prefix of the line
        bool logged = true;
    } drops[] = {
        {"000010123456789", "CTIKRONServiceImpl::DealUDP_hq", bad},  // declared 10, 9 characters
        {"0", "CTIKRONServiceImpl::DealUDP_hq", bad},
        {"0ab", "CTIKRONServiceImpl::DealUDP_hq", bad},
        {"900050abc", "CTIKRONServiceImpl::DealUDP_hq", bad},
        {"9", "CTIKRONServiceImpl::DealUDP_hq", bad},
        {"A00099F1,", "CTIKRONServiceImpl::DealUDP_exchStatus", bad},
        {"A", "CTIKRONServiceImpl::DealUDP_exchStatus", bad},
        {"B00099x", "CTIKRONInfo::DealUDP_xjHq", bad},
        {"B", "CTIKRONInfo::DealUDP_xjHq", bad},
        {"C00099x", "CTIKRONInfo::LoadFromFile", bad},
        {"3", "CTIKRONInfo::LoadFromFile", bad},
        {"F", "CTIKRONServiceImpl::DealUDP_OffsetSet", bad, false},
        {"E12", "CTIKRONServiceImpl::DealUDP_ZJZH_BZJHB", bad, false},
        {"Q00003abc", "CTIKRONServiceImpl::DoUDPHelper", "未知的记录类型: 81!"},
        {longCode, "CTIKRONServiceImpl::DealUDP_hq", "get hq from data fail, error code: -3!"},
        {Datagram('B', "FQ1,IF2412,20240105"), "CTIKRONServiceImpl::DealUDP_xjHq", field + "-", false},
        {Datagram('C', "F4,IF2412,0,1,abc"), "CTIKRONServiceImpl::DealUDP_BJHB", field + "-", false},
        {Datagram('3', "1,x"), "CTIKRONServiceImpl::DealUDP_HB", field + "-", false},
        {Datagram('F', "x"), "CTIKRONServiceImpl::DealUDP_OffsetSet", field + "-"},
        {Datagram('E', "x"), "CTIKRONServiceImpl::DealUDP_ZJZH_BZJHB", field + "-"},
        {Datagram('Z', "OPT,1,"), "CTIKRONServiceImpl::DealPUSH_OPT_HQ", field},
        {Datagram('S', "1,2,"), "CTIKRONServiceImpl::DealPUSH_STP", field},
    };
    for (const Drop& d : drops) Send(d.datagram);
    auto msgs = Flush(0);
    ASSERT_EQ(2u, msgs.size());  // only the marker's messages
    std::map<std::pair<std::string, std::string>, size_t> want, got;
    for (const Drop& d : drops) want[{d.function, d.line}] += d.logged ? 1 : 0;
    for (const auto& l : host_->Log().Lines())
        for (const auto& w : want)
            if (l.function == w.first.first && l.raw.compare(0, w.first.second.size(), w.first.second) == 0)
                ++got[w.first];
    for (const auto& w : want)
        EXPECT_EQ(w.second, got[w.first]) << w.first.first << " " << hostemu::GbkToUtf8(w.first.second);

    // 10 characters pass the framing check.
    msgs = SendAndWait(Datagram('A', "F1,5,1,") + "xyz", 4);
    EXPECT_EQ(std::string("F1\x01" "5\x01" "1"), TextOf(msgs[3], 1024));
}

TEST_F(UdpIngest, RefusedAndUnpackableMessagesAreReleased) {
    Start("");
    host_->PackSvr().SetPackRawFails(true);
    Send(Datagram('0', SingleLeg("IF2501", 3861.4, "F4,93015,")));
    auto msgs = Flush(0);
    host_->PackSvr().SetPackRawFails(false);
    // Only the texts went out; the raw records (22, 16 and the marker's 24)
    // failed to pack, were logged and released.
    ASSERT_EQ(2u, msgs.size());
    EXPECT_EQ(33100, msgs[0].IssueType());
    EXPECT_EQ(33105, msgs[1].IssueType());
    EXPECT_GE(host_->Log().CountContaining("pack fail"), 3u);
    EXPECT_EQ(1u, svc_->GetTIKRONInfo_EX()->GetCount());

    // Refused publications stay with the plug-in, which releases them
    // (TearDown checks that no message is left alive).
    host_->Center().SetMode(hostemu::CHostNeighbour::Refuse);
    size_t refusedBefore = host_->Center().Refused();
    Send(Datagram('0', SingleLeg("IF2412", 3861.4, "F4,93015,")));
    Send(Datagram('A', "F9,1,1,"));
    for (int i = 0; i < 300 && svc_->GetExchStatusInfo()->GetCount() < 2; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_GE(host_->Center().Refused(), refusedBefore + 5);
    EXPECT_EQ(2u, svc_->GetTIKRONInfo_EX()->GetCount());
}

}  // namespace
