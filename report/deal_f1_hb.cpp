// 620299: a trade report from the message center. A row with a positive
// "quote_no" is a market maker's quote report (republished as 33301); any
// other row is a deal or an entrust confirmation (republished as 23, 33101
// and 17).
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "frame/service_log.h"
#include "frame/text_copy.h"
#include "report/hb_publish.h"
#include "report/report_publish.h"
#include "report/report_text.h"
#include "wire/field_reader.h"

using tikron::HBPublishOptions;
using tikron::HBScratch;

namespace {

const char* const kFn = "CTIKRONServiceImpl::DealF1_HB";

// Copies at most maxChars characters of a column (absent: empty) into a
// field; maxChars is below the field's size, so the field stays terminated.
template <size_t N>
void GetText(IF2UnPacker* u, const char* column, char (&field)[N], size_t maxChars) {
    static_assert(N > 1, "field");
    const size_t cap = (maxChars + 1 < N ? maxChars + 1 : N);
    CopyField(field, cap, u->GetStr(column));
}

bool HasColumn(IF2UnPacker* u, const char* column) { return u->FindColumn(column) >= 0; }

// Double to int by truncation; out-of-range values saturate and NaN gives 0
// instead of the undefined conversion.
int TruncToInt(double v) {
    if (std::isnan(v)) return 0;
    if (v >= static_cast<double>(INT_MAX)) return INT_MAX;
    if (v <= static_cast<double>(INT_MIN)) return INT_MIN;
    return static_cast<int>(v);
}

char FirstChar(IF2UnPacker* u, const char* column) {
    const char* s = u->GetStr(column);
    return s != nullptr ? s[0] : '\0';
}

bool ColumnIs(IF2UnPacker* u, const char* column, const char* value) {
    const char* s = u->GetStr(column);
    return s != nullptr && std::strcmp(s, value) == 0;
}

void ReadQuoteReport(IF2UnPacker* u, tagBJHB& bj) {
    std::memset(&bj, 0, sizeof bj);
    GetText(u, "futu_exch_type", bj.futu_exch_type, 2);
    GetText(u, "contract_code", bj.contract_code, 29);
    GetText(u, "buy_futures_direction", bj.buy_futures_direction, 1);
    GetText(u, "buy_hedge_type", bj.buy_hedge_type, 1);
    bj.buy_price = u->GetDouble("buy_price");
    bj.buy_amount = u->GetDouble("buy_amount");
    GetText(u, "sale_futures_direction", bj.sale_futures_direction, 1);
    GetText(u, "sale_hedge_type", bj.sale_hedge_type, 1);
    bj.sale_price = u->GetDouble("sale_price");
    bj.sale_amount = u->GetDouble("sale_amount");
    bj.quote_no = u->GetInt("quote_no");
    GetText(u, "fund_account", bj.fund_account, 17);
    GetText(u, "futu_report_no", bj.futu_report_no, 20);
    GetText(u, "firm_no", bj.firm_no, 20);
    GetText(u, "operator_no", bj.operator_no, 17);
    GetText(u, "entrust_status", bj.entrust_status, 1);
    bj.branch_no = u->GetInt("branch_no");
    bj.init_date = u->GetInt("init_date");
    bj.curr_time = u->GetInt("curr_time");
    GetText(u, "confirm_no", bj.confirm_no, 19);
    GetText(u, "buy_confirm_no", bj.buy_confirm_no, 19);
    GetText(u, "sale_confirm_no", bj.sale_confirm_no, 19);
    GetText(u, "quote_occasion", bj.quote_occasion, 31);
}

void ReadOrderReport(IF2UnPacker* u, tagHB& hb, int sysVersion) {
    std::memset(&hb, 0, sizeof hb);
    hb.entrust_no = u->GetInt("entrust_no");
    GetText(u, "futures_account", hb.futures_account, 20);
    GetText(u, "futu_exch_type", hb.futu_exch_type, 10);
    GetText(u, "contract_code", hb.contract_code, 29);
    if (ColumnIs(u, "entrust_bs", "1")) {
        CopyField(hb.entrust_name, "买入");
    } else if (ColumnIs(u, "entrust_bs", "2")) {
        CopyField(hb.entrust_name, "卖出");
    } else {
        CopyField(hb.entrust_name, "买卖");
    }
    if (ColumnIs(u, "futures_direction", "1")) {
        CopyField(hb.direction_name, "开仓");
    } else if (ColumnIs(u, "futures_direction", "2")) {
        CopyField(hb.direction_name, "平仓");
    } else if (ColumnIs(u, "futures_direction", "4")) {
        CopyField(hb.direction_name, "平今仓");
    } else {
        CopyField(hb.direction_name, "开平仓");
    }
    hb.business_price = u->GetDouble("futu_business_price");
    hb.business_amount = u->GetDouble("business_amount");
    // Arbitrage ("2") also becomes the catch-all word.
    if (ColumnIs(u, "hedge_type", "0")) {
        CopyField(hb.hedge_name, "投机");
    } else if (ColumnIs(u, "hedge_type", "1")) {
        CopyField(hb.hedge_name, "套保");
    } else {
        CopyField(hb.hedge_name, "投机套保");
    }
    std::snprintf(hb.fund_account, sizeof hb.fund_account, "%d", u->GetInt("fund_account"));
    GetText(u, "futu_report_no", hb.futu_report_no, 20);
    GetText(u, "seat_no", hb.firm_no, 8);
    GetText(u, "operator_no", hb.operator_no, 8);
    hb.client_group = u->GetInt("client_group");
    hb.entrust_amount = TruncToInt(u->GetDouble("entrust_amount"));
    hb.business_total_amount = u->GetInt("entrust_business_amount");
    hb.cacel_amount = u->GetInt("cancel_amount");
    hb.entrust_price = u->GetDouble("futu_entrust_price");
    hb.business_type[0] = FirstChar(u, "futu_entrust_type");
    GetText(u, "entrust_status", hb.entrust_status, 1);
    hb.branch_no = u->GetInt("branch_no");
    hb.batch_no = u->GetInt("batch_no");
    const bool deal = hb.business_type[0] == 'B';
    hb.futu_entrust_type[0] = FirstChar(u, deal ? "entrust_type" : "futu_entrust_type");
    hb.amount_per_hand = u->GetInt("amount_per_hand");
    GetText(u, "forceclose_reason", hb.forceclose_reason, 1);
    GetText(u, "confirm_no", hb.confirm_no, 20);
    if (deal) GetText(u, "futu_business_no", hb.business_no, 20);
    if (HasColumn(u, "entrust_occasion")) GetText(u, "entrust_occasion", hb.entrust_occasion, 32);
    hb.futu_entrust_price2 =
        HasColumn(u, "futu_entrust_price2") ? u->GetDouble("futu_entrust_price2") : 0.0;
    if (HasColumn(u, "init_date")) hb.curr_date = u->GetInt("init_date");
    const char* timeColumn = deal ? "business_time" : "curr_time";
    if (HasColumn(u, timeColumn)) hb.curr_time = u->GetInt(timeColumn);

    tikron::ApplyStatusRules(hb, sysVersion);

    hb.session_no = u->GetInt("session_no");
    if (u->GetStr("entrust_occasion") != nullptr) GetText(u, "entrust_occasion", hb.entrust_occasion, 32);
    if (u->GetStr("entrust_reference") != nullptr)
        GetText(u, "entrust_reference", hb.entrust_reference, 31);
    if (u->GetStr("arbitrage_code") != nullptr) GetText(u, "arbitrage_code", hb.arbit_code, 29);
    if (u->GetStr("second_code") != nullptr) GetText(u, "second_code", hb.second_code, 29);
    hb.weave_type = u->GetChar("weave_type");
    if (u->GetStr("futu_entrust_prop") != nullptr)
        GetText(u, "futu_entrust_prop", hb.futu_entrust_prop, 1);
    if (u->GetStr("error_message") != nullptr) GetText(u, "error_message", hb.error_message, 255);
    if (deal) {
        if (HasColumn(u, "drop_profit")) hb.drop_profit = u->GetDouble("drop_profit");
        if (HasColumn(u, "drop_profit_float")) hb.drop_profit_float = u->GetDouble("drop_profit_float");
    }
    if (u->GetStr("futu_position_str") != nullptr) {
        GetText(u, "futu_position_str", hb.szPositionStr, 99);
    } else if (u->GetStr("position_str") != nullptr) {
        GetText(u, "position_str", hb.szPositionStr, 99);
    }
    if (HasColumn(u, "arbideal_total_amount"))
        hb.business_total_amount = u->GetInt("arbideal_total_amount");
    if (u->GetStr("withdraw_reference") != nullptr)
        GetText(u, "withdraw_reference", hb.withdraw_reference, 32);
}

}  // namespace

int CTIKRONServiceImpl::DealF1_HB(IESBMessage* msg, CMessageServiceThread* thread) {
    if (msg == nullptr || thread == nullptr) return -1;
    int len = 0;
    const void* body = msg->GetItem(TAG_MESSAGE_BODY)->GetRawData(&len, 0);
    if (body == nullptr || len < 1) {
        TikronLog(m_lpLogService, kFn, "get TAG_MESSAGE_BODY fail!");
        return -2;
    }
    thread->GetUnPacker(body, len);
    IF2UnPacker* u = thread->m_pUnPacker;
    const int r = u != nullptr ? u->Open(body, len) : -1;
    if (r != 0) {
        TikronLog(m_lpLogService, kFn, "解包错误, 错误代码: %d!\n", r);
        return -3;
    }

    if (HasColumn(u, "quote_no") && u->GetInt("quote_no") > 0) {
        tagBJHB& bj = thread->m_szLocalBJ;
        ReadQuoteReport(u, bj);
        if (m_iSysVersion == 1) {
            const char s = StatusSwtich(bj.entrust_status[0]);
            if (s != static_cast<char>(0xFF)) bj.entrust_status[0] = s;
        }
        char text[1024];
        std::memset(text, 0, sizeof text);
        ConvertBJHbTo33301(&bj, text, sizeof text);
        tikron::ReportTarget target;
        target.issueType = 33301;
        tikron::ReportKey key;
        key.kind = tikron::ReportKeyKind::BranchFundText;
        key.branchNo = bj.branch_no;
        key.fundText = bj.fund_account;
        tikron::PublishMessage(*this, nullptr, target, key, [&](IF2Packer& p) {
            tikron::AddTextColumn(p, "QH");
            p.AddStr(text);
        });
        return 0;
    }

    tagHB& hb = thread->m_szLocalHB;
    ReadOrderReport(u, hb, m_iSysVersion);
    HBScratch scratch{&thread->m_szLocalCJ_EX, &thread->m_szLocalCJ, &thread->m_szLocalWTQR_EX,
                      &thread->m_szLocalWTQR};
    HBPublishOptions opt;
    opt.legacyCodeLimit = 9;
    tikron::PublishHBReports(*this, hb, scratch, opt);
    return 0;
}
