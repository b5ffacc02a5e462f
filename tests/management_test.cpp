// Management console end to end: every action through the manager facet on a
// service with known content, the dumps while workers and the datagram
// consumer update the tables, and the console against the loaded library.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "testing/frame_test_support.h"
#include "frame/local_clock.h"
#include "frame/service_threads.h"
#include "host/mgmt_console.h"
#include "store/hq_tables.h"

namespace {

using hostemu::ConsoleTable;
using Clock = std::chrono::steady_clock;

constexpr int kTestStoreFunction = 990001;  // test-only: store the raw record of item 54

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
void FillSingleLeg(R& r, const char* code, size_t codeLen, int g) {
    memset(&r, 0, sizeof r);
    memcpy(r.contract_code, code, std::min(codeLen, sizeof r.contract_code));
    memcpy(r.futu_exch_type, "F1", 3);
#define SET_FIELD(n, f) r.f = static_cast<decltype(r.f)>(SingleLegIntField(n) ? IntOf(n, g) : DblOf(n, g));
    SINGLE_LEG_FIELDS(SET_FIELD)
#undef SET_FIELD
}

tagArgHQInfo ArgRecord(const char* code, int g) {
    tagArgHQInfo r;
    memset(&r, 0, sizeof r);
    snprintf(r.contract_code, sizeof r.contract_code, "%s", code);
    memcpy(r.futu_exch_type, "F2", 3);
    memcpy(r.first_code, "a2501", 6);
    memcpy(r.second_code, "a2505", 6);
    r.arbi_type = '1';
#define SET_FIELD(n, f) r.f = static_cast<decltype(r.f)>(ArgIntField(n) ? IntOf(n, g) : DblOf(n, g));
    SET_FIELD(5, buy_price) SET_FIELD(6, buy_amount) SET_FIELD(7, buy_total_amount) SET_FIELD(8, sale_price)
    SET_FIELD(9, sale_amount) SET_FIELD(10, sale_total_amount) SET_FIELD(11, futu_high_price)
    SET_FIELD(12, futu_low_price) SET_FIELD(13, uplimited_price) SET_FIELD(14, downlimited_price)
#undef SET_FIELD
    return r;
}

tagEXCHSTATUS ExchRecord(const char* exch, int g) {
    tagEXCHSTATUS r;
    memset(&r, 0, sizeof r);
    memcpy(r.futu_exch_type, exch, strnlen(exch, sizeof r.futu_exch_type - 1));
    snprintf(r.futu_status, sizeof r.futu_status, "%d", g % 10);
    r.can_trade = g % 10;
    return r;
}

// A '0' datagram whose fields follow the same numbering as FillSingleLeg.
std::string UdpSingleLeg(const std::string& code, int g) {
    std::string text = code;
    char buf[64];
    for (int n = 1; n <= 45; ++n) {
        if (n == 19) {
            text += ",X";
            continue;
        }
        if (SingleLegIntField(n))
            snprintf(buf, sizeof buf, ",%d", IntOf(n, g));
        else
            snprintf(buf, sizeof buf, ",%d.5", n + 1000 * g);
        text += buf;
    }
    text += ",F1,93000";
    snprintf(buf, sizeof buf, "0%05d", static_cast<int>(text.size()));
    return buf + text;
}

std::string Expected(int n, bool isInt, int g) {
    if (isInt) return std::to_string(IntOf(n, g));
    char buf[64];
    snprintf(buf, sizeof buf, "%.4f", DblOf(n, g));
    return buf;
}

// The generation a numbered value belongs to, or -1 when it fits no pattern.
int GenerationOf(const std::string& cell, int n, bool isInt) {
    double v = atof(cell.c_str());
    double base = isInt ? 100 + n : n + 0.5;
    double k = (v - base) / 1000.0;
    if (k < 0 || k != static_cast<double>(static_cast<long>(k))) return -1;
    return static_cast<int>(k);
}

// Checks that every numbered value of a dump row comes from one record
// generation (a torn row mixes two). Column 0 and text columns are skipped.
void ExpectWholeRow(const ConsoleTable& t, size_t row, bool (*isInt)(int), int firstNumeric) {
    int gen = -2;
    for (size_t c = 0; c < t.columns.size(); ++c) {
        int n = atoi(t.columns[c].c_str());
        if (n < firstNumeric) continue;
        int g = GenerationOf(t.rows[row][c], n, isInt(n));
        ASSERT_GE(g, 0) << t.columns[c] << " = " << t.rows[row][c];
        if (gen == -2) gen = g;
        ASSERT_EQ(gen, g) << "torn row " << t.rows[row][0] << " at " << t.columns[c];
    }
}

void ExpectKeyOrder(const ConsoleTable& t) {
    for (size_t r = 1; r < t.rows.size(); ++r) EXPECT_LT(t.rows[r - 1][0], t.rows[r][0]);
}

// The service with one extra function: a worker stores the raw record of
// item 54 (issue type in item 53) in its table, as a publication would.
class TestService : public CTIKRONServiceImpl {
public:
    int DealMessage(IESBMessage* msg, IMessageService* from, CMessageServiceThread* thread) override {
        if (msg == nullptr || msg->GetItem(TAG_FUNCTION_ID)->GetInt(0) != kTestStoreFunction)
            return CTIKRONServiceImpl::DealMessage(msg, from, thread);
        int len = 0;
        const void* raw = msg->GetItem(TAG_KEY_INFO)->GetRawData(&len, 0);
        switch (msg->GetItem(TAG_ISSUE_TYPE)->GetInt(0)) {
            case 16: Store(m_pTIKRONInfo, raw, len); break;
            case 22: Store(m_pTIKRONInfo_EX, raw, len); break;
            case 18: Store(m_pTIKRONARGInfo, raw, len); break;
            case 24: Store(m_pFUTUExchStatusInfo, raw, len); break;
            default: break;
        }
        ReleaseESBMsgEx(msg);
        return 0;
    }

private:
    template <typename Table>
    static void Store(Table* table, const void* raw, int len) {
        decltype(Table::SaveType::szHQInfo) rec;
        if (table == nullptr || raw == nullptr || len != static_cast<int>(sizeof rec)) return;
        memcpy(&rec, raw, sizeof rec);
        table->AddHQInfo(&rec, 1);
    }
};

// A service built in this process and wired to the emulator's services the
// way the host wires a loaded one, so tests may fill its tables directly.
class InProcess : public testing::Test {
protected:
    void StartService(const std::string& plugin) {
        ASSERT_TRUE(dir_.Enter());  // snapshot files land here
        ASSERT_EQ(0, config_.LoadString(frametest::Config(plugin)));
        svc_ = new TestService();
        svc_->SetInterfaceID("tikron");
        svc_->SetServiceID("tikron");
        IKnown* ioc = nullptr;
        ASSERT_EQ(1, svc_->QueryInterface(SID_IOC, &ioc));
        IIoC* i = static_cast<IIoC*>(ioc);
        i->SetConfig("plugin", config_.GetConfig("plugin"));
        i->SetConfig("pub", config_.GetConfig("pub"));
        i->SetDependService(SID_ESBMESSAGEFACTORY, &factory_);
        i->SetDependService(SID_F2PACKSVR, &packs_);
        i->SetDependService(SID_CFGSVR, &config_);
        i->SetDependService(SID_LOG, &log_);
        i->SetDependService(SID_SECURITY, &security_);
        svc_->RegisterPrevService(&center_);
        svc_->RegisterNextService(&client_);
        testing::internal::CaptureStdout();
        ASSERT_EQ(0, svc_->OnInit());
        mgr_ = hostemu::ManagerOf(svc_);
        ASSERT_NE(nullptr, mgr_);
        EXPECT_EQ(1, mgr_->ProcSysEvent(1, 0, 0, nullptr));
        testing::internal::GetCapturedStdout();
        started_ = true;
    }
    // Answers the registration so no further request is sent.
    void StopRegistration() {
        // The thread clears its stop flag when it starts: an answer before that is lost.
        ASSERT_TRUE(log_.WaitFor("RegeditThread start...", 3000));
        IESBMessage* m = factory_.NewMessage();
        m->Prepare(1, 2);
        svc_->PostMsg(m, &center_);
        ASSERT_TRUE(log_.WaitFor("RegeditThread stop!", 3000));
    }
    void StopService() {
        if (!started_) return;
        mgr_->ProcSysEvent(2, 0, 0, nullptr);
        mgr_->ProcSysEvent(3, 0, 0, nullptr);
        started_ = false;
    }
    void TearDown() override {
        StopService();
        if (svc_ != nullptr) svc_->Release();
        svc_ = nullptr;
        dir_.Leave();
    }
    ConsoleTable Run(int functionId) {
        ConsoleTable t;
        EXPECT_EQ(0, hostemu::RunManagementAction(mgr_, packs_, functionId, &t)) << functionId;
        return t;
    }

    hostemu::CHostMessageFactory factory_;
    hostemu::CHostPackSvr packs_;
    hostemu::CHostConfig config_;
    hostemu::CHostLog log_;
    hostemu::CHostSecurity security_;
    hostemu::CHostNeighbour center_{"mc"}, client_{"client"};
    TestService* svc_ = nullptr;
    IManager* mgr_ = nullptr;
    bool started_ = false;
    frametest::TempWorkDir dir_;
};

const char* const kConfig =
    "<args enableudprecv=\"0\" port=\"9191\" subscibetomc=\"0\" heartbeattimeout=\"600\" inittime=\"1\" "
    "sysversion=\"1\"/>"
    "<mc>"
    "<request note=\"行情\" functionno=\"620001\" issuetype=\"16\" branchno=\"8\" ospfname=\"ospf1\" "
    "svrname=\"mcsvr\" pluginid=\"mcplugin\"><param name=\"issue_type\" value=\"16\"/></request>"
    "<request note=\"回报\" functionno=\"620002\" issuetype=\"17\" branchno=\"9\"><param name=\"issue_type\" "
    "value=\"17\"/><param name=\"branch_no\" value=\"9\"/></request>"
    "</mc>";

TEST_F(InProcess, FunctionListAndUnknownActions) {
    StartService(kConfig);
    ConsoleTable t = Run(0);
    ASSERT_EQ((std::vector<std::string>{"function_id", "function_name"}), t.columns);
    const std::vector<std::string> captions = {
        u8"取函数列表",   u8"取所有单脚行情", u8"取所有新单脚行情", u8"取所有组合行情",  u8"取交易所状态",
        u8"取状态信息",   u8"取配置信息",     u8"取ESB使用情况",    u8"取主动发送队列信息"};
    ASSERT_EQ(9u, t.rows.size());
    for (size_t i = 0; i < 9; ++i) {
        EXPECT_EQ(std::to_string(i), t.rows[i][0]);
        EXPECT_EQ(captions[i], t.rows[i][1]);
        EXPECT_EQ('I', t.body.rows[i][0].kind);
    }
    for (const auto& col : t.body.columns) {
        EXPECT_EQ('S', col.type);
        EXPECT_EQ(255, col.width);
        EXPECT_EQ(4, col.scale);
    }
    ConsoleTable none;
    EXPECT_EQ(-1, hostemu::RunManagementAction(mgr_, packs_, 9, &none));
    EXPECT_EQ(-1, hostemu::RunManagementAction(mgr_, packs_, -1, &none));
    EXPECT_EQ(-1, mgr_->ProcMngRequest(nullptr, nullptr));
    // The console gives back every packer and unpacker it took.
    const size_t packers = packs_.LivePackers(), unpackers = packs_.LiveUnPackers();
    Run(0);
    EXPECT_EQ(packers, packs_.LivePackers());
    EXPECT_EQ(unpackers, packs_.LiveUnPackers());
}

TEST_F(InProcess, SingleLegDumpsShowEveryCaptionedField) {
    StartService(kConfig);
    tagHQInfo hq;
    FillSingleLeg(hq, "IF2501", 6, 0);
    ASSERT_EQ(0, svc_->m_pTIKRONInfo->AddHQInfo(&hq, 1));
    // A code filling its whole field, without terminator: shown cut at the field.
    FillSingleLeg(hq, "ABCDEFGHIJKLMNOP", 16, 0);
    ASSERT_EQ(0, svc_->m_pTIKRONInfo->AddHQInfo(&hq, 1));
    tagHQInfo_EX ex;
    FillSingleLeg(ex, "SR2501C5000", 11, 2);
    ex.time_stamp = 93000;
    ASSERT_EQ(0, svc_->m_pTIKRONInfo_EX->AddHQInfo(&ex, 1));

    const std::vector<std::string> captions = {
        u8"0合约代码",      u8"1昨日交割结算价", u8"2开盘价",        u8"3最新价格",      u8"4最高买入价",
        u8"5最高买入价买量", u8"6全部买量",      u8"7最低卖价价格",   u8"8最低卖价卖量",  u8"9全部卖量",
        u8"10最高价",       u8"11最低价",       u8"12均价",         u8"13趋势",         u8"14成交量",
        u8"15总持量",       u8"16成交额",       u8"17涨停板",        u8"18跌停板",       u8"20组合买入价格",
        u8"21组合卖出价格",  u8"22组合买入数量",  u8"23组合卖出数量",   u8"24昨日收盘价",    u8"25昨日空盘量",
        u8"26今日收盘价",    u8"27结算价",       u8"28昨日虚实度",    u8"29今日虚实度",    u8"30买二价",
        u8"31买二量",       u8"32买三价",       u8"33买三量",        u8"34买四价",       u8"35买四量",
        u8"36买五价",       u8"37买五量",       u8"38卖二价",        u8"39卖二量",       u8"40卖三价",
        u8"41卖三量",       u8"42卖四价",       u8"43卖四量",        u8"44卖五价",       u8"45卖五量"};
    struct Case {
        int action;
        std::vector<std::string> codes;
        int g;
    };
    for (const Case& c : {Case{1, {"ABCDEFGHIJKLM", "IF2501"}, 0}, Case{2, {"SR2501C5000"}, 2}}) {
        ConsoleTable t = Run(c.action);
        ASSERT_EQ(captions, t.columns) << c.action;
        ASSERT_EQ(c.codes.size(), t.rows.size());
        for (size_t r = 0; r < t.rows.size(); ++r) {
            ASSERT_EQ(45u, t.rows[r].size());
            EXPECT_EQ(c.codes[r], t.rows[r][0]);  // key order
            for (size_t col = 1; col < 45; ++col) {
                int n = atoi(captions[col].c_str());
                EXPECT_EQ(Expected(n, SingleLegIntField(n), c.g), t.rows[r][col]) << captions[col];
                EXPECT_EQ(SingleLegIntField(n) ? 'I' : 'D', t.body.rows[r][col].kind) << captions[col];
            }
        }
    }
}

TEST_F(InProcess, ArbitrageAndExchangeStatusDumps) {
    StartService(kConfig);
    tagArgHQInfo arg = ArgRecord("SPD a2501&a2505", 3);
    ASSERT_EQ(0, svc_->m_pTIKRONARGInfo->AddHQInfo(&arg, 1));
    tagEXCHSTATUS st = ExchRecord("F2", 7);
    ASSERT_EQ(0, svc_->m_pFUTUExchStatusInfo->AddHQInfo(&st, 1));
    st = ExchRecord("F1", 3);
    ASSERT_EQ(0, svc_->m_pFUTUExchStatusInfo->AddHQInfo(&st, 1));

    ConsoleTable t = Run(3);
    ASSERT_EQ((std::vector<std::string>{u8"0 套利合约号", u8"1 交易类别", u8"2 第一腿", u8"3 第二腿",
                                        u8"4 组合类型1-SPD, 2 -IPS", u8"5 最高买入价", u8"6 最高买入价买量",
                                        u8"7 全部买量", u8"8 最低卖价价格", u8"9 最低卖价卖量", u8"10 全部卖量",
                                        u8"11 最高价", u8"12 最低价", u8"13 涨停板价格", u8"14 跌停板价格"}),
              t.columns);
    ASSERT_EQ(1u, t.rows.size());
    const auto& row = t.rows[0];
    EXPECT_EQ("SPD a2501&a2505", row[0]);
    EXPECT_EQ("F2", row[1]);
    EXPECT_EQ("a2501", row[2]);
    EXPECT_EQ("a2505", row[3]);
    EXPECT_EQ("1", row[4]);
    EXPECT_EQ('C', t.body.rows[0][4].kind);
    for (int n = 5; n <= 14; ++n) EXPECT_EQ(Expected(n, ArgIntField(n), 3), row[n]) << n;

    t = Run(4);
    ASSERT_EQ((std::vector<std::string>{u8"0 交易所类别", u8"1 状态", u8"2 是否可交易"}), t.columns);
    ASSERT_EQ(2u, t.rows.size());
    EXPECT_EQ((std::vector<std::string>{"F1", "3", "3"}), t.rows[0]);
    EXPECT_EQ((std::vector<std::string>{"F2", "7", "7"}), t.rows[1]);
    EXPECT_EQ('I', t.body.rows[0][2].kind);
}

TEST_F(InProcess, StatisticsConfigurationAndMessageUsage) {
    StartService(kConfig);
    StopRegistration();
    tagHQInfo hq;
    FillSingleLeg(hq, "IF2501", 6, 0);
    for (int source : {0, 0, 1, 2}) ASSERT_EQ(0, svc_->m_pTIKRONInfo->AddHQInfo(&hq, source));
    svc_->m_uiRecvUDPHB = 7;
    svc_->m_uiRecvCJNum = 8;
    svc_->m_uiRecvWTQRNum = 9;

    ConsoleTable t = Run(5);
    ASSERT_EQ((std::vector<std::string>{u8"系统初始化日期", u8"系统初始化时间", u8"当前日期", u8"当前时间",
                                        u8"总的接收个数", u8"UDP广播接收个数", u8"从消息中心接收个数",
                                        u8"其他方式接收个数", u8"收到UDP回报个数", u8"发送成交回报个数",
                                        u8"发送委托确认个数"}),
              t.columns);
    ASSERT_EQ(1u, t.rows.size());
    const int today = LocalDateYmd();
    EXPECT_EQ(std::to_string(today), t.rows[0][0]);
    EXPECT_EQ("1", t.rows[0][1]);
    EXPECT_EQ(std::to_string(today), t.rows[0][2]);
    const int now = atoi(t.rows[0][3].c_str());
    EXPECT_LE(std::abs(LocalTimeHms() - now), 100) << t.rows[0][3];  // same minute or the next
    EXPECT_EQ((std::vector<std::string>{"4", "2", "1", "1", "7", "8", "9"}),
              std::vector<std::string>(t.rows[0].begin() + 4, t.rows[0].end()));

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
    ASSERT_EQ((std::vector<std::string>{u8"UDP端口", u8"向消息中心订阅", u8"ospf名字", u8"服务名", u8"插件名",
                                        u8"邻居名", u8"心跳超时时间", u8"订阅状态", u8"上一次收到心跳时间",
                                        u8"是否接收UDP行情", u8"后台交易系统版本号"}),
              t.columns);
    ASSERT_EQ(1u, t.rows.size());
    EXPECT_EQ((std::vector<std::string>{"9191", "0", "ospfA", "svrA", "plugA", "nbrA", "600", "1", seenText, "0",
                                        u8"2.5版"}),
              t.rows[0]);
    svc_->m_iSysVersion = 0;
    EXPECT_EQ(u8"06版", Run(6).rows[0][10]);
    svc_->m_iSysVersion = 3;
    EXPECT_EQ(u8"未知版本", Run(6).rows[0][10]);

    // Message usage: the queue's counters and the process-wide counters.
    t = Run(7);
    ASSERT_EQ((std::vector<std::string>{"MsgInQ", "MaxMsgInQ", "DealedMsgs", "getesbnum", "releaseesbnum",
                                        "usedesbnum"}),
              t.columns);
    ASSERT_EQ(1u, t.rows.size());
    IESBQ* q = factory_.GetESBQ();
    const unsigned long got = g_ulGetESBNum, released = g_ulReleaseESBNum;
    EXPECT_EQ(std::to_string(q->GetMsgCount()), t.rows[0][0]);
    EXPECT_EQ(std::to_string(q->GetMaxMsgCount()), t.rows[0][1]);
    EXPECT_EQ(std::to_string(q->GetDealedCount()), t.rows[0][2]);
    EXPECT_NE("0", t.rows[0][2]);  // the registration answer was handled
    EXPECT_EQ(std::to_string(static_cast<int>(got)), t.rows[0][3]);
    EXPECT_EQ(std::to_string(static_cast<int>(released)), t.rows[0][4]);
    EXPECT_EQ(std::to_string(static_cast<int>(got - released)), t.rows[0][5]);

    // After stop: no tables, no heartbeat thread; the actions still answer.
    StopService();
    t = Run(6);
    EXPECT_EQ("0", t.rows[0][7]);
    EXPECT_EQ(u8"空", t.rows[0][8]);
    EXPECT_EQ("0", Run(5).rows[0][4]);
    for (int action : {1, 2, 3, 4}) {
        t = Run(action);
        EXPECT_FALSE(t.columns.empty());
        EXPECT_TRUE(t.rows.empty()) << action;
    }
}

TEST_F(InProcess, SubscriptionListAnsweredFirst) {
    StartService(kConfig);
    ConsoleTable t = Run(8);
    const std::vector<std::string> columns = {u8"是否成功", u8"名字",    u8"功能号",  u8"营业部号",
                                              u8"发布类型", u8"发送时间", u8"发送字段", u8"ospf名",
                                              u8"服务名",   u8"插件名",  u8"邻居名",  u8"包ID"};
    ASSERT_EQ(columns, t.columns);
    const std::vector<std::string> first = {u8"否",  u8"行情",  "620001",   "8", "16", "0", "issue_type#16#",
                                            "ospf1", "mcsvr", "mcplugin", "",  "1"};
    const std::vector<std::string> second = {u8"否", u8"回报", "620002", "9", "17", "0",
                                             "issue_type#17#branch_no#9#", "", "", "", "", "2"};
    ASSERT_EQ(2u, t.rows.size());
    EXPECT_EQ(first, t.rows[0]);
    EXPECT_EQ(second, t.rows[1]);

    // The second request is answered: listed first, marked as a success.
    ASSERT_EQ(0, svc_->DeleteFromMap(2));
    t = Run(8);
    ASSERT_EQ(2u, t.rows.size());
    std::vector<std::string> answered = second;
    answered[0] = u8"是";
    EXPECT_EQ(answered, t.rows[0]);
    EXPECT_EQ(first, t.rows[1]);
}

// Dumps on the console thread while the four workers and the datagram
// consumer update all four tables: every dump completes, keys stay ordered
// and no row mixes two updates.
TEST_F(InProcess, DumpsWhileWorkersAndDatagramsUpdateTheTables) {
    StartService("<args enableudprecv=\"0\" subscibetomc=\"0\"/>");
    StopRegistration();
    center_.SetMode(hostemu::CHostNeighbour::CountOnly);
    constexpr int kRecords = 1500, kDatagrams = 1500, kCodes = 12;

    std::atomic<bool> workersDone{false}, udpDone{false};
    std::thread workers([&] {
        IESBQ* q = factory_.GetESBQ();
        for (int i = 0; i < kRecords; ++i) {
            // Each table gets every fourth record; codes cycle within it.
            const int slot = i / 4;
            const int g = slot / kCodes + 1;
            char code[32];
            snprintf(code, sizeof code, "W%02d", slot % kCodes);
            IESBMessage* m = factory_.NewMessage();
            m->Prepare(0, kTestStoreFunction);
            auto put = [m](int issue, const auto& r) {
                m->GetItem(TAG_ISSUE_TYPE)->SetInt(issue, 0);
                m->GetItem(TAG_KEY_INFO)->SetRawData(&r, sizeof r);
            };
            tagHQInfo hq;
            tagHQInfo_EX ex;
            if (i % 4 == 0) FillSingleLeg(hq, code, strlen(code), g), put(16, hq);
            if (i % 4 == 1) FillSingleLeg(ex, code, strlen(code), g), put(22, ex);
            if (i % 4 == 2) put(18, ArgRecord(code, g));
            if (i % 4 == 3) snprintf(code, sizeof code, "E%d", slot % 9), put(24, ExchRecord(code, g));
            if (svc_->PostMsg(m, &center_) != 0) m->Release();
            for (int spin = 0; spin < 200 && q->GetMsgCount() > 200; ++spin)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        workersDone = true;
    });
    std::thread datagrams([&] {
        for (int i = 0; i < kDatagrams; ++i) {
            char code[32];
            snprintf(code, sizeof code, "cu25%02d", i % kCodes);
            std::string d = UdpSingleLeg(code, i / kCodes + 1);
            CTIKRONServiceImpl::OnUDPReceive(svc_, &d[0], static_cast<int>(d.size()));
            if (i % 50 == 49) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        udpDone = true;
    });

    int dumps = 0;
    auto until = Clock::now() + std::chrono::seconds(60);
    while ((dumps < 40 || !workersDone || !udpDone) && Clock::now() < until) {
        for (int action : {1, 2, 3, 4}) {
            ConsoleTable t = Run(action);
            ASSERT_FALSE(t.columns.empty());
            ExpectKeyOrder(t);
            for (size_t r = 0; r < t.rows.size(); ++r) {
                if (action == 1 || action == 2) ExpectWholeRow(t, r, SingleLegIntField, 1);
                if (action == 3) ExpectWholeRow(t, r, ArgIntField, 5);
                if (action == 4) {
                    EXPECT_EQ(t.rows[r][1], t.rows[r][2]);
                }
            }
        }
        ++dumps;
    }
    workers.join();
    datagrams.join();
    ASSERT_TRUE(workersDone && udpDone);

    // Everything queued is applied within a bounded wait.
    auto settled = Clock::now() + std::chrono::seconds(20);
    size_t legacy = 0;
    while (Clock::now() < settled) {
        legacy = Run(1).rows.size();
        if (legacy == 2 * kCodes && factory_.GetESBQ()->GetMsgCount() == 0) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_EQ(static_cast<size_t>(2 * kCodes), legacy);  // W.. from workers, cu.. from datagrams
    EXPECT_EQ(static_cast<size_t>(kCodes), Run(3).rows.size());
    EXPECT_EQ(9u, Run(4).rows.size());
}

// The console against the library loaded by the emulator.
TEST(LoadedPlugin, ConsoleRendersTheFunctionListAndConfiguration) {
    hostemu::HostEmulator host(frametest::Options(frametest::Config(
        "<args enableudprecv=\"0\" subscibetomc=\"0\" port=\"9300\" sysversion=\"7\"/>")));
    testing::internal::CaptureStdout();
    ASSERT_EQ(0, host.Start()) << host.Error();
    testing::internal::GetCapturedStdout();
    IManager* mgr = hostemu::ManagerOf(host.Service());
    ASSERT_NE(nullptr, mgr);
    ConsoleTable t;
    ASSERT_EQ(0, hostemu::RunManagementAction(mgr, host.PackSvr(), 0, &t));
    const std::string text = hostemu::RenderTable(t);
    // "function_id" is the widest first cell (11), "取主动发送队列信息" the
    // widest second one (18 columns).
    const std::string pad(10, ' ');
    EXPECT_EQ(0u, text.find("function_id | function_name\n" + std::string(11, '-') + "-+-" + std::string(18, '-') +
                            "\n0" + pad + u8" | 取函数列表\n"))
        << text;
    EXPECT_NE(std::string::npos, text.find("8" + pad + u8" | 取主动发送队列信息\n")) << text;

    ASSERT_EQ(0, hostemu::RunManagementAction(mgr, host.PackSvr(), 6, &t));
    ASSERT_EQ(1u, t.rows.size());
    EXPECT_EQ("9300", t.rows[0][0]);
    EXPECT_EQ(u8"未知版本", t.rows[0][10]);
    // The last-heartbeat cell keeps ctime's line feed; rendered, the row
    // stays one line with the line feed shown escaped.
    EXPECT_EQ('\n', t.rows[0][8].back());
    const std::string conf = hostemu::RenderTable(t);
    EXPECT_EQ(3, std::count(conf.begin(), conf.end(), '\n')) << conf;
    EXPECT_NE(std::string::npos, conf.find("\\n | ")) << conf;
    // Unanswered registration keeps going while the console is used.
    EXPECT_TRUE(host.Center().WaitFor([](const hostemu::MessageSnapshot& m) { return m.FunctionNo() == 2; }, 3000));
    host.Shutdown();
    EXPECT_EQ(0u, host.Factory().Stats().doubleReleases);
}

}  // namespace
