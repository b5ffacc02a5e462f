// Management console on the loaded plug-in: every action through the
// manager facet on known content, and the rendered console text.
#include <ctime>
#include <set>

#include "frame/local_clock.h"
#include "frame/service_threads.h"
#include "host/mgmt_console.h"
#include "host/plugin_symbols.h"
#include "testing/store_test_support.h"
#include "tests/e2e_support.h"

namespace {

using namespace e2e;
using hostemu::ConsoleTable;

// Caption numbers of the single-leg dumps whose fields are integers; every
// other numbered field is a double (0 is the contract code).
bool SingleLegIntField(int n) {
    static const std::set<int> kInts = {5, 6, 8, 9, 14, 15, 22, 23, 31, 33, 35, 37, 39, 41, 43, 45};
    return kInts.count(n) != 0;
}
bool ArgIntField(int n) { return n == 6 || n == 7 || n == 9 || n == 10; }

// Field n of generation g: doubles n + 0.5 + 1000 g, integers 100 + n + 1000 g.
double DblOf(int n, int g) { return n + 0.5 + 1000.0 * g; }
int IntOf(int n, int g) { return 100 + n + 1000 * g; }
std::string Expected(int n, bool isInt, int g) {
    char buf[64];
    snprintf(buf, sizeof buf, "%.4f", DblOf(n, g));
    return isInt ? std::to_string(IntOf(n, g)) : buf;
}

// The 45 captioned single-leg fields in caption order (19 is the exchange).
#define SINGLE_LEG_FIELDS(X)                                                                                  \
    X(1, pre_square_price) X(2, futu_open_price) X(3, futu_last_price) X(4, buy_high_price)                   \
    X(5, buy_high_amount) X(6, buy_total_amount) X(7, sale_low_price) X(8, sale_low_amount)                   \
    X(9, sale_total_amount) X(10, futu_high_price) X(11, futu_low_price) X(12, average_price)                 \
    X(13, change_direction) X(14, business_amount) X(15, bear_amount) X(16, business_balance)                 \
    X(17, uplimited_price) X(18, downlimited_price) X(20, form_buy_price) X(21, form_sale_price)              \
    X(22, form_buy_amount) X(23, form_sale_amount) X(24, pre_close_price) X(25, pre_open_interest)            \
    X(26, futu_close_price) X(27, square_price) X(28, pre_delta) X(29, curr_delta) X(30, bid_price2)          \
    X(31, bid_volume2) X(32, bid_price3) X(33, bid_volume3) X(34, bid_price4) X(35, bid_volume4)              \
    X(36, bid_price5) X(37, bid_volume5) X(38, ask_price2) X(39, ask_volume2) X(40, ask_price3)               \
    X(41, ask_volume3) X(42, ask_price4) X(43, ask_volume4) X(44, ask_price5) X(45, ask_volume5)

// Every field set by name to its caption's number, so a dump column showing
// another field than its caption names is caught.
template <typename R>
R SingleLeg(const char* code, size_t codeLen, int g) {
    R r;
    memset(&r, 0, sizeof r);
    memcpy(r.contract_code, code, std::min(codeLen, sizeof r.contract_code));
    memcpy(r.futu_exch_type, "F1", 3);
#define SET_FIELD(n, f) r.f = static_cast<decltype(r.f)>(SingleLegIntField(n) ? IntOf(n, g) : DblOf(n, g));
    SINGLE_LEG_FIELDS(SET_FIELD)
#undef SET_FIELD
    return r;
}

tagArgHQInfo ArgRecord(const char* code, int g) {
    tagArgHQInfo r = Arg(code, 0);
    memcpy(r.first_code, "a2501", 6);
    memcpy(r.second_code, "a2505", 6);
#define SET_FIELD(n, f) r.f = static_cast<decltype(r.f)>(ArgIntField(n) ? IntOf(n, g) : DblOf(n, g));
    SET_FIELD(5, buy_price) SET_FIELD(6, buy_amount) SET_FIELD(7, buy_total_amount) SET_FIELD(8, sale_price)
    SET_FIELD(9, sale_amount) SET_FIELD(10, sale_total_amount) SET_FIELD(11, futu_high_price)
    SET_FIELD(12, futu_low_price) SET_FIELD(13, uplimited_price) SET_FIELD(14, downlimited_price)
#undef SET_FIELD
    return r;
}

const char* const kConfig = "heartbeattimeout=\"600\" inittime=\"1\" sysversion=\"1\"";
const char* const kRequests =
    "<mc>"
    "<request note=\"行情\" functionno=\"620001\" issuetype=\"16\" branchno=\"8\" ospfname=\"ospf1\" "
    "svrname=\"mcsvr\" pluginid=\"mcplugin\"><param name=\"issue_type\" value=\"16\"/></request>"
    "<request note=\"回报\" functionno=\"620002\" issuetype=\"17\" branchno=\"9\"><param name=\"issue_type\" "
    "value=\"17\"/><param name=\"branch_no\" value=\"9\"/></request>"
    "</mc>";

class Management : public Plugin {
protected:
    ConsoleTable Run(int functionId) {
        ConsoleTable t;
        EXPECT_EQ(0, hostemu::RunManagementAction(hostemu::ManagerOf(host_->Service()), host_->PackSvr(), functionId, &t))
            << functionId;
        return t;
    }
    // Answers the registration so that no further request comes and goes.
    void StopRegistration() {
        // The thread clears its stop flag when it starts: an answer before that is lost.
        ASSERT_TRUE(host_->Log().WaitFor("RegeditThread start...", 3000));
        ASSERT_EQ(0, host_->PostFromCenter(MessageSpec(2, 1)));
        ASSERT_TRUE(host_->Log().WaitFor("RegeditThread stop!", 3000));
    }
};

TEST_F(Management, FunctionListRenderedAndUnknownActions) {
    Start(kConfig);
    ConsoleTable t = Run(0);
    // "function_id" is the widest first cell (11), "取主动发送队列信息" the
    // widest second one (18 columns).
    const std::vector<std::string> names = {u8"取函数列表",   u8"取所有单脚行情", u8"取所有新单脚行情",
                                            u8"取所有组合行情", u8"取交易所状态",   u8"取状态信息",
                                            u8"取配置信息",     u8"取ESB使用情况",  u8"取主动发送队列信息"};
    std::string want = "function_id | function_name\n" + std::string(11, '-') + "-+-" + std::string(18, '-') + "\n";
    for (size_t i = 0; i < names.size(); ++i) want += std::to_string(i) + std::string(10, ' ') + " | " + names[i] + "\n";
    EXPECT_EQ(want, hostemu::RenderTable(t));
    EXPECT_EQ("function_id:S255 function_name:S255 =", Show(t.body).substr(0, 37));
    for (size_t i = 0; i < t.body.rows.size(); ++i) EXPECT_EQ('I', t.body.rows[i][0].kind);
    ConsoleTable none;
    IManager* mgr = hostemu::ManagerOf(host_->Service());
    EXPECT_EQ(-1, hostemu::RunManagementAction(mgr, host_->PackSvr(), 9, &none));
    EXPECT_EQ(-1, hostemu::RunManagementAction(mgr, host_->PackSvr(), -1, &none));
    EXPECT_EQ(-1, mgr->ProcMngRequest(nullptr, nullptr));
    // The console gives back every packer and unpacker it took.
    const size_t packers = host_->PackSvr().LivePackers(), unpackers = host_->PackSvr().LiveUnPackers();
    Run(0);
    EXPECT_EQ(packers, host_->PackSvr().LivePackers());
    EXPECT_EQ(unpackers, host_->PackSvr().LiveUnPackers());
}

TEST_F(Management, QuoteDumpsShowEveryCaptionedField) {
    Start(kConfig);
    Put(SingleLeg<tagHQInfo>("IF2501", 6, 0));
    // A code filling its whole field, without terminator: shown cut at the field.
    Put(SingleLeg<tagHQInfo>("ABCDEFGHIJKLMNOP", 16, 0));
    tagHQInfo_EX ex = SingleLeg<tagHQInfo_EX>("SR2501C5000XY", 13, 2);
    ex.time_stamp = 93000;
    Put(ex);
    const std::string captions =
        u8"0合约代码 1昨日交割结算价 2开盘价 3最新价格 4最高买入价 5最高买入价买量 6全部买量 7最低卖价价格 8最低卖价卖量 "
        u8"9全部卖量 10最高价 11最低价 12均价 13趋势 14成交量 15总持量 16成交额 17涨停板 18跌停板 20组合买入价格 "
        u8"21组合卖出价格 22组合买入数量 23组合卖出数量 24昨日收盘价 25昨日空盘量 26今日收盘价 27结算价 28昨日虚实度 "
        u8"29今日虚实度 30买二价 31买二量 32买三价 33买三量 34买四价 35买四量 36买五价 37买五量 38卖二价 39卖二量 "
        u8"40卖三价 41卖三量 42卖四价 43卖四量 44卖五价 45卖五量";
    struct Case {
        int action;
        std::vector<std::string> codes;
        int g;
    };
    for (const Case& c : {Case{1, {"ABCDEFGHIJKLM", "IF2501"}, 0}, Case{2, {"SR2501C5000XY"}, 2}}) {
        ConsoleTable t = Run(c.action);
        ASSERT_EQ(captions, Join(t.columns)) << c.action;
        ASSERT_EQ(c.codes.size(), t.rows.size());
        for (size_t r = 0; r < t.rows.size(); ++r) {
            EXPECT_EQ(c.codes[r], t.rows[r][0]);  // key order
            for (size_t col = 1; col < 45; ++col) {
                const int n = atoi(t.columns[col].c_str());
                EXPECT_EQ(Expected(n, SingleLegIntField(n), c.g), t.rows[r][col]) << t.columns[col];
                EXPECT_EQ(SingleLegIntField(n) ? 'I' : 'D', t.body.rows[r][col].kind) << t.columns[col];
            }
        }
    }

    Put(ArgRecord("SPD a2501&a2505", 3));
    for (auto e : {Exch("F2", "7", 7), Exch("F1", "3", 3)}) Put(e);
    ConsoleTable t = Run(3);
    EXPECT_EQ(u8"0 套利合约号|1 交易类别|2 第一腿|3 第二腿|4 组合类型1-SPD, 2 -IPS|5 最高买入价|6 最高买入价买量|"
              u8"7 全部买量|8 最低卖价价格|9 最低卖价卖量|10 全部卖量|11 最高价|12 最低价|13 涨停板价格|14 跌停板价格",
              Join(t.columns, "|"));
    ASSERT_EQ(1u, t.rows.size());
    EXPECT_EQ("SPD a2501&a2505 F2 a2501 a2505 1", Join({t.rows[0].begin(), t.rows[0].begin() + 5}));
    EXPECT_EQ('C', t.body.rows[0][4].kind);
    for (int n = 5; n <= 14; ++n) EXPECT_EQ(Expected(n, ArgIntField(n), 3), t.rows[0][n]) << n;
    t = Run(4);
    ASSERT_EQ(2u, t.rows.size());
    EXPECT_EQ(u8"0 交易所类别|1 状态|2 是否可交易 = F1 3 3 = F2 7 7",
              Join(t.columns, "|") + " = " + Join(t.rows[0]) + " = " + Join(t.rows[1]));
    EXPECT_EQ('I', t.body.rows[0][2].kind);
}

TEST_F(Management, StatisticsConfigurationMessageUsageAndSubscriptions) {
    Start("enableudprecv=\"1\" " + std::string(kConfig), kRequests);
    StopRegistration();
    svc_->m_iUDPPort = 9191;
    // Receive counters: two single-leg quotes over UDP and one from the
    // center; a deal counted in both layouts, an entrust with a long code
    // once, a datagram without messages from the host not at all.
    Send(Datagram('0', SingleLegText("IF2501", "F1,93000,")));
    Send(Datagram('0', SingleLegText("IF2502", "F1,93000,")));
    Put(Hq("IF2503", 1.0));
    const std::string head = "31,FA09,F1,B7,";
    const std::string tail = ",卖出,开仓,4100.5,2,套利,00077,R1,S1,op,1,2,2,0,4101.25,";
    Send(Datagram('3', head + "cu2405" + tail + "B,1,12,13,1,10,0,CF1"));
    Send(Datagram('3', head + "cu2405-long-1" + tail + "0,1,12,13,1,10,0,CF1"));
    Flush();
    host_->Factory().SetGetMsgAlwaysFails(true);
    Send(Datagram('3', head + "cu2405" + tail + "B,1,12,13,1,10,0,CF1"));
    ASSERT_TRUE(WaitUntil([&] { return svc_->m_uiRecvUDPHB.load() == 3; }));
    host_->Factory().SetGetMsgAlwaysFails(false);
    ConsoleTable t = Run(5);
    EXPECT_EQ(u8"系统初始化日期 系统初始化时间 当前日期 当前时间 总的接收个数 UDP广播接收个数 从消息中心接收个数 "
              u8"其他方式接收个数 收到UDP回报个数 发送成交回报个数 发送委托确认个数",
              Join(t.columns));
    ASSERT_EQ(1u, t.rows.size());
    const std::string today = std::to_string(LocalDateYmd());
    EXPECT_EQ(today + " 1 " + today, Join({t.rows[0].begin(), t.rows[0].begin() + 3}));
    EXPECT_LE(std::abs(LocalTimeHms() - atoi(t.rows[0][3].c_str())), 100) << t.rows[0][3];  // same minute or the next
    EXPECT_EQ("3 2 1 0 3 2 1", Join({t.rows[0].begin() + 4, t.rows[0].end()}));

    // Configuration, with the heartbeat thread's state.
    strcpy(svc_->m_szMCRouteInfo.m_cOSPFName, "ospfA");
    strcpy(svc_->m_szMCRouteInfo.m_cNBRName, "nbrA");
    strcpy(svc_->m_szMCRouteInfo.m_cSVRName, "svrA");
    strcpy(svc_->m_szMCRouteInfo.m_cPluginID, "plugA");
    const time_t seen = time(nullptr);
    svc_->m_pHeartBeatThread->m_iSubscibeTime = seen;
    svc_->m_pHeartBeatThread->m_iStatus = 1;
    char seenText[64];
    ASSERT_NE(nullptr, ctime_r(&seen, seenText));
    t = Run(6);
    EXPECT_EQ(u8"UDP端口 向消息中心订阅 ospf名字 服务名 插件名 邻居名 心跳超时时间 订阅状态 上一次收到心跳时间 "
              u8"是否接收UDP行情 后台交易系统版本号",
              Join(t.columns));
    EXPECT_EQ(std::string("9191 0 ospfA svrA plugA nbrA 600 1 ") + seenText + u8" 1 2.5版", Join(t.rows.at(0)));
    // Rendered, the row stays one line with ctime's line feed shown escaped.
    const std::string conf = hostemu::RenderTable(t);
    EXPECT_EQ(3, std::count(conf.begin(), conf.end(), '\n')) << conf;
    EXPECT_NE(std::string::npos, conf.find("\\n | ")) << conf;
    for (auto v : {std::make_pair(0, u8"06版"), std::make_pair(3, u8"未知版本")}) {
        svc_->m_iSysVersion = v.first;
        EXPECT_EQ(v.second, Run(6).rows.at(0).at(10));
    }

    // Message usage: the queue's counters and the plug-in's counters.
    t = Run(7);
    EXPECT_EQ("MsgInQ MaxMsgInQ DealedMsgs getesbnum releaseesbnum usedesbnum", Join(t.columns));
    IESBQ* q = host_->Factory().GetESBQ();
    const auto got = *static_cast<unsigned long*>(hostemu::FindLocalSymbol(TIKRON_PLUGIN_PATH, "g_ulGetESBNum"));
    const auto released = *static_cast<unsigned long*>(hostemu::FindLocalSymbol(TIKRON_PLUGIN_PATH, "g_ulReleaseESBNum"));
    EXPECT_EQ(std::to_string(q->GetMsgCount()) + " " + std::to_string(q->GetMaxMsgCount()) + " " +
                  std::to_string(q->GetDealedCount()) + " " + std::to_string(static_cast<int>(got)) + " " +
                  std::to_string(static_cast<int>(released)) + " " + std::to_string(static_cast<int>(got - released)),
              Join(t.rows.at(0)));
    EXPECT_NE("0", t.rows[0][2]);  // the registration answer was handled

    // Subscriptions: the second request answered is listed first, marked.
    const std::string first = u8"行情 620001 8 16 0 issue_type#16# ospf1 mcsvr mcplugin  1";
    const std::string second = u8"回报 620002 9 17 0 issue_type#17#branch_no#9#     2";
    EXPECT_EQ(u8"是否成功 名字 功能号 营业部号 发布类型 发送时间 发送字段 ospf名 服务名 插件名 邻居名 包ID",
              Join(Run(8).columns));
    EXPECT_EQ(u8"否 " + first + u8" / 否 " + second, Join(Run(8).rows.at(0)) + " / " + Join(Run(8).rows.at(1)));
    MessageSpec answer(620001, 1);
    answer.packetId = 2;
    answer.key = hostemu::EncodePacked(hostemu::MakeBody(33, {"subscibe_result"}, {{0}}));
    ASSERT_EQ(0, host_->PostFromCenter(answer));
    ASSERT_TRUE(WaitLog(u8"订阅: 回报 成功!"));
    EXPECT_EQ(u8"是 " + second + u8" / 否 " + first, Join(Run(8).rows.at(0)) + " / " + Join(Run(8).rows.at(1)));

    // After stop: no tables, no heartbeat thread; the actions still answer.
    ASSERT_EQ(0, host_->Stop());
    t = Run(6);
    EXPECT_EQ(u8"0 空", t.rows.at(0).at(7) + " " + t.rows[0][8]);
    EXPECT_EQ("0", Run(5).rows.at(0).at(4));
    for (int action : {1, 2, 3, 4}) {
        t = Run(action);
        EXPECT_FALSE(t.columns.empty());
        EXPECT_TRUE(t.rows.empty()) << action;
    }
}

}  // namespace
