// Publication conversion: 620003 publications posted into the loaded
// plug-in and the converted publications it issues, per switch.
#include <thread>

#include "quote/quote_text.h"
#include "report/report_text.h"
#include "tests/e2e_support.h"

namespace {

using namespace e2e;

const std::vector<char> kKey = {'K', 'E', 'Y', '\0', '7'};
const std::string kReport = "620003/%d key[<not packed>] body[business_type:S255 futu_hb_raw:R10240 = ";
// A deal and an entrust 33101 text (the deal's code filled in).
const std::string kDeal = "5|FA1|F2|BN|%s|2|2|10.500000|2.000000|1|42||||0|0|0|0|0.000000|8|0|0|0|0|0|20240301|93000|CN||0.000000";
const std::string kEntrust = "9||F1|ab1|1|1|0|0||||0|0|0|0|0.000000|1|0|0|0|0|0|0|0|||0.000000";

std::string Fill(std::string f, const std::string& value) { return f.replace(f.find("%s"), 2, value); }
std::string Fill(std::string f, int value) { return f.replace(f.find("%d"), 2, std::to_string(value)); }
std::string Plain(std::string s) {
    for (char& c : s) c = c == '|' ? '\x01' : c;
    return s;
}

PackedBody ReportText(char ly, const std::string& text) {
    PackedBody b;
    b.columns = {{"LY", 'S', 255, 4}, {"QH", 'S', 1024, 4}};
    b.rows = {{PackCell(ly), PackCell(Plain(text))}};
    return b;
}
PackedBody Raw(const std::string& rec, int type = 1) {
    PackedBody b = RawBody(type, rec);
    b.columns[1].width = 10240;
    return b;
}

class Convert : public Plugin {
protected:
    void StartWith(const std::vector<std::string>& switches) {
        std::string conv;
        for (const auto& s : switches) conv += "<" + s + ">1</" + s + ">";
        Start("", "<convert>" + conv + "</convert>");
        seen_ = 0;
    }
    void Post(int issue, const PackedBody& body, bool bodyInKey = false, int packetType = 0) {
        MessageSpec req(620003, packetType);
        req.issueType = issue;
        (bodyInKey ? req.key : req.body) = hostemu::EncodePacked(body);
        if (!bodyInKey) req.key = kKey;
        ASSERT_EQ(0, host_->PostFromCenter(req));
    }
    std::vector<MessageSnapshot> Out() {
        std::vector<MessageSnapshot> v;
        for (const auto& m : host_->Center().MessagesOf(620003, 0))
            if (m.IssueType() != 0) v.push_back(m);
        return v;
    }
    // Posts and returns the n converted publications it gives.
    std::vector<MessageSnapshot> Converted(int issue, const PackedBody& body, size_t n, bool bodyInKey = false) {
        Post(issue, body, bodyInKey);
        std::vector<MessageSnapshot> out;
        EXPECT_TRUE(WaitUntil([&] { return (out = Out()).size() >= seen_ + n; })) << issue;
        out.erase(out.begin(), out.begin() + static_cast<long>(std::min(seen_, out.size())));
        seen_ += n;
        return out;
    }
    // Nothing more than the publications seen so far comes out.
    void ExpectNoMore() {
        std::this_thread::sleep_for(std::chrono::milliseconds(250));
        EXPECT_EQ(seen_, Out().size());
    }
    // Converts a record to its text and the text back: the record publication.
    MessageSnapshot RoundTrip(int issue, const PackedBody& rec, int textIssue) {
        auto text = Converted(issue, rec, 1);
        if (text.empty() || text[0].IssueType() != textIssue) return {};
        auto back = Converted(textIssue, TextBody(FirstCell(text[0])), 1);
        return back.empty() ? MessageSnapshot() : back[0];
    }
    size_t seen_ = 0;
};

// Both 33101 switches: a 23 and a 17 from the same parse, the incoming key
// kept; a 13-character code has no legacy form. 23 publications are never
// converted, answers and missing or broken bodies are refused with a line.
TEST_F(Convert, DealTextWithBothSwitchesAndRefusals) {
    StartWith({"convert33101to23", "convert33101to17", "convert23to17", "convert23to33101"});
    auto out = Converted(33101, ReportText('B', Fill(kDeal, "cu2405C50")), 2);
    ASSERT_EQ(2u, out.size());
    EXPECT_EQ((std::vector<std::string>{Fill(kReport, 23) + "CB R<304>]", Fill(kReport, 17) + "CB R<248>]"}), Show(out));
    EXPECT_EQ(kKey, out[0].Key());
    tagCJ_EX deal = RecordOf<tagCJ_EX>(out[0], 1);
    EXPECT_EQ(Fill(kDeal, "cu2405C50"), TextOf(deal));
    EXPECT_EQ(u8"卖出 平仓 套保", hostemu::GbkToUtf8(Join({deal.entrust_name, deal.direction_name, deal.hedge_name})));
    tagCJ legacy{};
    ConvertCj23To17(&deal, legacy);
    EXPECT_EQ(Bytes(legacy), FirstCell(out[1], 1));
    EXPECT_EQ(23, Converted(33101, ReportText('B', Fill(kDeal, "cu2405C500000")), 1).at(0).IssueType());

    Post(23, Raw(Bytes(deal)));
    Post(33101, ReportText('B', Fill(kDeal, "cu2405")), false, /*packetType=*/1);
    MessageSpec none(620003, 0), broken(620003, 0);
    none.issueType = 22;
    none.key = kKey;
    broken.issueType = 33101;
    broken.body = {'n', 'o', 'p', 'e'};
    ASSERT_EQ(0, host_->PostFromCenter(none));
    ASSERT_EQ(0, host_->PostFromCenter(broken));
    // The quote intake sees each publication too and logs under the same
    // name: the answer, the 22 (it unpacks the key instead), the report issue
    // types (23, 33101 x 3).
    EXPECT_TRUE(WaitLog("不能处理的包类型: 1!", 2));
    EXPECT_TRUE(WaitLog("get TAG_MESSAGE_BODY fail!"));
    EXPECT_TRUE(WaitLog("解包错误, 错误代码: -2!", 2));
    ExpectNoMore();
    size_t named = 0;
    for (const auto& l : host_->Log().Lines()) named += l.function == "CTIKRONServiceImpl::DealTIKRONIssue";
    EXPECT_EQ(9u, named);
}

// Each switch alone, on an entrust text; a text may travel in item 54 only.
TEST_F(Convert, EntrustTextEachSwitchAloneAndBodyInKey) {
    StartWith({"convert33101to17"});
    auto out = Converted(33101, ReportText('0', kEntrust), 1);
    EXPECT_EQ(Fill(kReport, 17) + "C0 R<248>]", Show(out.at(0)));
    const std::string legacy17 = FirstCell(out[0], 1);
    ExpectNoMore();

    StartWith({"convert33101to23"});
    out = Converted(33101, ReportText('0', kEntrust), 1, /*bodyInKey=*/true);
    EXPECT_EQ("620003/23 key[LY:S255 QH:S1024 = C0 " + kEntrust + "] body[business_type:S255 futu_hb_raw:R10240 = C0 R<304>]",
              Show(out.at(0)));
    tagWTQR_EX entrust = RecordOf<tagWTQR_EX>(out[0], 1);
    EXPECT_EQ(kEntrust, TextOf(entrust));
    EXPECT_EQ(u8"买入 开仓 投机", hostemu::GbkToUtf8(Join({entrust.entrust_name, entrust.direction_name, entrust.hedge_name})));
    tagWTQR legacy{};
    ConvertHb23To17(&entrust, legacy);
    EXPECT_EQ(Bytes(legacy), legacy17);  // the legacy form of the same parse
    ExpectNoMore();
}

// Quote records to texts and back; the legacy record only for codes of at
// most 12 characters; only the switches that are on.
TEST_F(Convert, QuoteRecordsAndTexts) {
    StartWith({"convert22to16", "convert22to33100", "convert18to33102", "convert24to33105", "convert33100to22",
               "convert33100to16", "convert33102to18", "convert33105to24"});
    tagHQInfo_EX q = HqEx("cu2405", 71000.5);
    auto out = Converted(22, Raw(Bytes(q)), 2);
    ASSERT_EQ(2u, out.size());
    char buf[1024] = {0};
    const std::string text = Convert22To33100(&q, buf, sizeof buf);
    tagHQInfo legacy{};
    ConvertHq22To16(&q, legacy);
    EXPECT_EQ((std::vector<std::string>{"620003/16 key[<not packed>] body[type:S255 futu_hq_raw:R10240 = I1 R<308>]",
                                        "620003/33100 key[<not packed>] body[QH:S1024 = " + Bars(text) + "]"}),
              Show(out));
    EXPECT_EQ(Bytes(legacy), FirstCell(out[0], 1));
    memcpy(q.contract_code + 6, "X-C-700", 8);  // 13 characters: no legacy form
    EXPECT_EQ(33100, Converted(22, Raw(Bytes(q)), 1).at(0).IssueType());
    out = Converted(33100, TextBody(text), 2);
    ASSERT_EQ(2u, out.size());
    EXPECT_EQ("620003/22 key[<not packed>] body[type:S255 futu_hq_raw:R10240 = I1 R<328>]", Show(out[0]));
    EXPECT_EQ(Bytes(HqEx("cu2405", 71000.5)), FirstCell(out[0], 1));
    EXPECT_EQ(16, out[1].IssueType());

    // 24 -> 33105 -> 24 with the body of the UDP exchange-status publication,
    // which the 24 conversion reads back itself; 18 -> 33102 -> 18.
    PackedBody status;
    status.columns = {{"futu_exch_status_raw", 'R', 10240, 4}};
    status.rows = {{PackCell::Raw(Bytes(Exch("F1", "2", 1)))}};
    MessageSnapshot back = RoundTrip(24, status, 33105);
    EXPECT_EQ("620003/24 key[<not packed>] body[futu_exch_status_raw:R1024 = R<12>]", Show(back));
    EXPECT_EQ(Bytes(Exch("F1", "2", 1)), FirstCell(back));
    EXPECT_EQ(Bytes(Exch("F1", "2", 1)), FirstCell(RoundTrip(24, Decode(back.Body()), 33105)));
    EXPECT_EQ(0u, LogCount("结构不附合要求")) << "the intake refused a converted 24";
    const tagArgHQInfo a = Arg("SP cu2405&cu2406", 12.5);
    back = RoundTrip(18, Raw(Bytes(a), 9), 33102);
    EXPECT_EQ("620003/18 key[<not packed>] body[type:S255 futu_hq_raw:R10240 = I9 R<128>]", Show(back));
    EXPECT_EQ(Bytes(a), FirstCell(back, 1));

    // A text that does not parse is converted all the same, with what the
    // parser left in the zeroed record.
    tagHQInfo_EX ex22{};
    tagHQInfo ex16{};
    tagArgHQInfo ex18{};
    tagEXCHSTATUS ex24{};
    const std::string t100 = "IF2412\x01" "3850.2\x01" "x", t102 = "SP a&b\x01" "F2", t105 = "F9\x01" "2";
    EXPECT_TRUE(Convert33100To22(t100.c_str(), &ex22) != 0 && Convert33100To16(t100.c_str(), &ex16) != 0);
    EXPECT_TRUE(Convert33102To18(t102.c_str(), &ex18) != 0 && Convert33105To24(t105.c_str(), &ex24) != 0);
    const struct Broken {
        int issue;
        std::string text;
        std::vector<std::string> records;
    } broken[] = {{33100, t100, {Bytes(ex22), Bytes(ex16)}}, {33102, t102, {Bytes(ex18)}}, {33105, t105, {Bytes(ex24)}}};
    for (const Broken& c : broken) {
        out = Converted(c.issue, TextBody(c.text), c.records.size());
        ASSERT_EQ(c.records.size(), out.size()) << c.issue;
        for (size_t i = 0; i < out.size(); ++i) EXPECT_EQ(c.records[i], Decode(out[i].Body()).rows.at(0).back().bytes);
    }
    ExpectNoMore();
    EXPECT_EQ(0u, LogCount("convert 33")) << "no extra log line";
}

// Only "convert22to33100": a 22 gives only 33100, long code or not; a 33101
// without its switches gives nothing.
TEST_F(Convert, OnlyTextSwitchForQuotes) {
    StartWith({"convert22to33100"});
    tagHQInfo_EX q = HqEx("cu2405-C-70000", 1.0);
    EXPECT_EQ(33100, Converted(22, Raw(Bytes(q)), 1).at(0).IssueType());
    q.contract_code[6] = '\0';
    EXPECT_EQ(33100, Converted(22, Raw(Bytes(q)), 1).at(0).IssueType());
    Post(33101, ReportText('B', Fill(kDeal, "cu2405")));
    ExpectNoMore();
}

}  // namespace
