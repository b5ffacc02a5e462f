#include "report/report_text.h"

#include <cstring>

#include "quote/text_builder.h"
#include "quote/text_fields.h"
#include "report/report_codes.h"

using tikron::CopyField;
using tikron::CopyText;
using tikron::FieldLen;
using tikron::FieldSeq;
using tikron::TextWriter;

// A fixed-width text field as the two printf arguments of "%.*s": never read
// past the field even when its terminator is missing.
#define TK_S(field) FieldLen(field), (field)
// Field separator glued to a conversion.
#define SEP TIKRON_SEP

namespace {

// The 33101 parsers use a 1024-byte working buffer.
using ReportWork = tikron::WorkText<1024>;

// Exchange code of the text form, from a record's exchange field (copied
// first so the lookup never runs past the field).
class ExchCode {
public:
    explicit ExchCode(const char (&field)[11]) {
        CopyText(m_copy, field);
        m_code = ConvertExch(m_copy, true);
    }
    const char* Get() const { return m_code; }

private:
    char m_copy[11];
    const char* m_code;
};

int Finish(const TextWriter& w) { return w.Truncated() ? QUOTE_TEXT_TRUNCATED : 0; }

// Replace a text field by a constant of at most count bytes (strncpy form).
void Replace(char* field, std::size_t count, const char* value) {
    if (value == field) return;
    CopyField(field, count, value, count);
}

template <std::size_t N>
void ReplaceWord(char (&field)[N], const char* word) {
    // Word of at most 8 bytes; the field keeps its terminator in byte 8.
    Replace(field, N - 1, word);
}

void ReplaceExch(char (&field)[11]) {
    // Exchange name of at most 10 bytes; byte 10 stays the terminator.
    Replace(field, sizeof field - 1, ConvertExch(field, false));
}

}  // namespace

int ConvertHbTo33101(tagHB* r, char* text, int size) {
    if (r == nullptr || text == nullptr || size < 1) return -1;
    TextWriter w(text, static_cast<std::size_t>(size));
    const ExchCode exch(r->futu_exch_type);
    const char bs = ConvertBS(r->entrust_name);
    const char kp = ConvertKP(r->direction_name);
    const char hedge = ConvertHedge(r->hedge_name);
    if (r->business_type[0] == 'B') {
        w.Add("%d" SEP "%.*s" SEP "%s" SEP "%.*s" SEP "%.*s" SEP, r->entrust_no,
              TK_S(r->futures_account), exch.Get(), TK_S(r->business_no), TK_S(r->contract_code));
        w.Add("%c" SEP "%c" SEP "%f" SEP "%f" SEP "%c" SEP, bs, kp, r->business_price,
              r->business_amount, hedge);
        w.Add("%.*s" SEP "%.*s" SEP "%.*s" SEP "%.*s" SEP, TK_S(r->fund_account),
              TK_S(r->futu_report_no), TK_S(r->firm_no), TK_S(r->operator_no));
        w.Add("%d" SEP "%d" SEP "%d" SEP "%d" SEP "%f" SEP, r->client_group, r->entrust_amount,
              r->business_total_amount, r->cacel_amount, r->entrust_price);
        w.Add("%.*s" SEP "%d" SEP "%d" SEP "%.*s" SEP "%d" SEP "%.*s" SEP, TK_S(r->entrust_status),
              r->branch_no, r->batch_no, TK_S(r->futu_entrust_type), r->amount_per_hand,
              TK_S(r->forceclose_reason));
        w.Add("%d" SEP "%d" SEP "%.*s" SEP "%.*s" SEP "%f" SEP, r->curr_date, r->curr_time,
              TK_S(r->confirm_no), TK_S(r->entrust_occasion), r->futu_entrust_price2);
        w.Add("%.*s" SEP "%.*s" SEP "%.*s" SEP "%.*s" SEP "%d" SEP, TK_S(r->futu_entrust_prop),
              TK_S(r->arbit_code), TK_S(r->entrust_reference), TK_S(r->szPositionStr),
              r->session_no);
        w.Add("%f" SEP "%f" SEP "%f" SEP "%f" SEP "%f" SEP "%f" SEP "%f" SEP "%f",
              r->delta_entrust_fare, r->delta_business_fare, r->delta_entrust_margin,
              r->delta_hold_margin, r->delta_entrust_premium, r->delta_premium, r->drop_profit,
              r->drop_profit_float);
    } else {
        w.Add("%d" SEP "%.*s" SEP "%s" SEP "%.*s" SEP, r->entrust_no, TK_S(r->futures_account),
              exch.Get(), TK_S(r->contract_code));
        w.Add("%c" SEP "%c" SEP "%c" SEP, bs, kp, hedge);
        w.Add("%.*s" SEP "%.*s" SEP "%.*s" SEP "%.*s" SEP, TK_S(r->fund_account),
              TK_S(r->futu_report_no), TK_S(r->firm_no), TK_S(r->operator_no));
        w.Add("%d" SEP "%d" SEP "%d" SEP "%d" SEP "%f" SEP, r->client_group, r->entrust_amount,
              r->business_total_amount, r->cacel_amount, r->entrust_price);
        w.Add("%.*s" SEP "%d" SEP "%d" SEP "%.*s" SEP "%d" SEP "%.*s" SEP, TK_S(r->entrust_status),
              r->branch_no, r->batch_no, TK_S(r->futu_entrust_type), r->amount_per_hand,
              TK_S(r->forceclose_reason));
        w.Add("%d" SEP "%d" SEP "%.*s" SEP "%.*s" SEP "%f" SEP, r->curr_date, r->curr_time,
              TK_S(r->confirm_no), TK_S(r->entrust_occasion), r->futu_entrust_price2);
        w.Add("%.*s" SEP "%.*s" SEP "%.*s" SEP "%.*s" SEP "%.*s" SEP "%d" SEP,
              TK_S(r->futu_entrust_prop), TK_S(r->arbit_code), TK_S(r->entrust_reference),
              TK_S(r->error_message), TK_S(r->szPositionStr), r->session_no);
        w.Add("%.*s" SEP "%c" SEP "%f" SEP "%f" SEP "%f" SEP, TK_S(r->second_code), r->weave_type,
              r->delta_entrust_fare, r->delta_entrust_margin, r->delta_entrust_premium);
        w.Add("%.*s" SEP "%c" SEP "%c" SEP "%f" SEP "%d", TK_S(r->withdraw_reference),
              r->time_condition, r->volume_condition, r->delta_report_fare, r->fex_min_volume);
    }
    return Finish(w);
}

int ConvertCjTo33101(tagCJ_EX* r, char* text, int size) {
    if (r == nullptr || text == nullptr || size < 1) return -1;
    TextWriter w(text, static_cast<std::size_t>(size));
    const ExchCode exch(r->futu_exch_type);
    w.Add("%d" SEP "%.*s" SEP "%s" SEP "%.*s" SEP "%.*s" SEP, r->entrust_no,
          TK_S(r->futures_account), exch.Get(), TK_S(r->business_no), TK_S(r->contract_code));
    w.Add("%c" SEP "%c" SEP "%f" SEP "%f" SEP "%c" SEP, ConvertBS(r->entrust_name),
          ConvertKP(r->direction_name), r->business_price, r->business_amount,
          ConvertHedge(r->hedge_name));
    w.Add("%d" SEP "%.*s" SEP "%.*s" SEP "%.*s" SEP, r->fund_account, TK_S(r->futu_report_no),
          TK_S(r->firm_no), TK_S(r->operator_no));
    w.Add("%d" SEP "%d" SEP "%d" SEP "%d" SEP "%f" SEP, r->client_group, r->entrust_amount,
          r->business_total_amount, r->cacel_amount, r->entrust_price);
    w.Add("%c" SEP "%d" SEP "%d" SEP "%c" SEP "%d" SEP "%c" SEP, r->entrust_status, r->branch_no,
          r->batch_no, r->futu_entrust_type, r->amount_per_hand, r->forceclose_reason);
    // The closing price field has no source in this record: zero keeps the
    // 30-field count.
    w.Add("%d" SEP "%d" SEP "%.*s" SEP "%.*s" SEP "%f", r->init_date, r->business_time,
          TK_S(r->confirm_no), TK_S(r->entrust_occasion), 0.0);
    return Finish(w);
}

int ConvertHbTo33101(tagWTQR_EX* r, char* text, int size) {
    if (r == nullptr || text == nullptr || size < 1) return -1;
    TextWriter w(text, static_cast<std::size_t>(size));
    const ExchCode exch(r->futu_exch_type);
    w.Add("%d" SEP "%.*s" SEP "%s" SEP "%.*s" SEP, r->entrust_no, TK_S(r->futures_account),
          exch.Get(), TK_S(r->contract_code));
    w.Add("%c" SEP "%c" SEP "%c" SEP, ConvertBS(r->entrust_name), ConvertKP(r->direction_name),
          ConvertHedge(r->hedge_name));
    w.Add("%d" SEP "%.*s" SEP "%.*s" SEP "%.*s" SEP, r->fund_account, TK_S(r->futu_report_no),
          TK_S(r->firm_no), TK_S(r->operator_no));
    w.Add("%d" SEP "%d" SEP "%d" SEP "%d" SEP "%f" SEP, r->client_group, r->entrust_amount,
          r->business_total_amount, r->cacel_amount, r->entrust_price);
    w.Add("%c" SEP "%d" SEP "%d" SEP "%c" SEP "%d" SEP "%c" SEP, r->entrust_status, r->branch_no,
          r->batch_no, r->futu_entrust_type, r->amount_per_hand, r->forceclose_reason);
    // The closing price field has no source in this record: zero keeps the
    // 27-field count.
    w.Add("%d" SEP "%d" SEP "%.*s" SEP "%.*s" SEP "%f", r->init_date, r->curr_time,
          TK_S(r->confirm_no), TK_S(r->entrust_occasion), 0.0);
    return Finish(w);
}

int Convert33101ToCj(const char* text, tagCJ_EX* r, int /*size*/) {
    if (r == nullptr) return -1;
    ReportWork work;
    const int rc = work.Load(text, QUOTE_TEXT_TOO_LONG);
    if (rc != 0) return rc;
    FieldSeq f(work.Cursor());
    f.Int(r->entrust_no).Text(r->futures_account).Text(r->futu_exch_type);
    if (f.Ok()) ReplaceExch(r->futu_exch_type);
    f.Text(r->business_no).Text(r->contract_code).Text(r->entrust_name);
    if (f.Ok()) ReplaceWord(r->entrust_name, ConvertBS(r->entrust_name[0]));
    f.Text(r->direction_name);
    if (f.Ok()) ReplaceWord(r->direction_name, ConvertKP(r->direction_name[0]));
    f.Dbl(TIKRON_DBL(r->business_price)).Dbl(TIKRON_DBL(r->business_amount)).Text(r->hedge_name);
    if (f.Ok()) ReplaceWord(r->hedge_name, ConvertHedge(r->hedge_name[0]));
    f.Int(r->fund_account).Text(r->futu_report_no).Text(r->firm_no).Text(r->operator_no);
    f.Int(r->client_group).Int(r->entrust_amount).Int(r->business_total_amount);
    f.Int(r->cacel_amount).Dbl(TIKRON_DBL(r->entrust_price)).Char(r->entrust_status);
    f.Int(r->branch_no).Int(r->batch_no).Char(r->futu_entrust_type).Int(r->amount_per_hand);
    f.Char(r->forceclose_reason).Int(r->init_date).Int(r->business_time);
    f.Text(r->confirm_no).Text(r->entrust_occasion);
    return f.Result();
}

int Convert33101ToWT(const char* text, tagWTQR_EX* r, int /*size*/) {
    if (r == nullptr) return -1;
    ReportWork work;
    const int rc = work.Load(text, QUOTE_TEXT_TOO_LONG);
    if (rc != 0) return rc;
    FieldSeq f(work.Cursor());
    f.Int(r->entrust_no).Text(r->futures_account).Text(r->futu_exch_type);
    if (f.Ok()) ReplaceExch(r->futu_exch_type);
    f.Text(r->contract_code).Text(r->entrust_name);
    if (f.Ok()) ReplaceWord(r->entrust_name, ConvertBS(r->entrust_name[0]));
    f.Text(r->direction_name);
    if (f.Ok()) ReplaceWord(r->direction_name, ConvertKP(r->direction_name[0]));
    f.Text(r->hedge_name);
    if (f.Ok()) ReplaceWord(r->hedge_name, ConvertHedge(r->hedge_name[0]));
    f.Int(r->fund_account).Text(r->futu_report_no).Text(r->firm_no).Text(r->operator_no);
    f.Int(r->client_group).Int(r->entrust_amount).Int(r->business_total_amount);
    f.Int(r->cacel_amount).Dbl(TIKRON_DBL(r->entrust_price)).Char(r->entrust_status);
    f.Int(r->branch_no).Int(r->batch_no).Char(r->futu_entrust_type).Int(r->amount_per_hand);
    f.Char(r->forceclose_reason).Int(r->init_date).Int(r->curr_time);
    f.Text(r->confirm_no).Text(r->entrust_occasion);
    return f.Result();
}

// Legacy text copy: at most width-1 bytes, the target's last byte untouched.
#define TK_COPY17(name) CopyField(d.name, sizeof d.name - 1, s->name, sizeof s->name)

int ConvertCj23To17(tagCJ_EX* s, tagCJ& d) {
    if (s == nullptr) return -1;
    d.entrust_no = s->entrust_no;
    TK_COPY17(futures_account);
    TK_COPY17(futu_exch_type);
    TK_COPY17(business_no);
    TK_COPY17(contract_code);
    TK_COPY17(entrust_name);
    TK_COPY17(direction_name);
    d.business_price = s->business_price;
    d.business_amount = s->business_amount;
    TK_COPY17(hedge_name);
    d.fund_account = s->fund_account;
    TK_COPY17(futu_report_no);
    TK_COPY17(firm_no);
    TK_COPY17(operator_no);
    d.client_group = s->client_group;
    d.entrust_amount = s->entrust_amount;
    d.business_total_amount = s->business_total_amount;
    d.cacel_amount = s->cacel_amount;
    d.entrust_price = s->entrust_price;
    d.entrust_status = s->entrust_status;
    d.branch_no = s->branch_no;
    d.batch_no = s->batch_no;
    d.futu_entrust_type = s->futu_entrust_type;
    d.amount_per_hand = s->amount_per_hand;
    d.forceclose_reason = s->forceclose_reason;
    d.init_date = s->init_date;
    d.business_time = s->business_time;
    TK_COPY17(confirm_no);
    d.frozen_fare = s->frozen_fare;
    return 0;
}

int ConvertHb23To17(tagWTQR_EX* s, tagWTQR& d) {
    if (s == nullptr) return -1;
    d.entrust_no = s->entrust_no;
    TK_COPY17(futures_account);
    TK_COPY17(futu_exch_type);
    TK_COPY17(contract_code);
    TK_COPY17(entrust_name);
    TK_COPY17(direction_name);
    TK_COPY17(hedge_name);
    d.fund_account = s->fund_account;
    TK_COPY17(futu_report_no);
    TK_COPY17(firm_no);
    TK_COPY17(operator_no);
    d.client_group = s->client_group;
    d.entrust_amount = s->entrust_amount;
    d.business_total_amount = s->business_total_amount;
    d.cacel_amount = s->cacel_amount;
    d.entrust_price = s->entrust_price;
    d.entrust_status = s->entrust_status;
    d.branch_no = s->branch_no;
    d.batch_no = s->batch_no;
    d.futu_entrust_type = s->futu_entrust_type;
    d.amount_per_hand = s->amount_per_hand;
    d.forceclose_reason = s->forceclose_reason;
    d.init_date = s->init_date;
    d.curr_time = s->curr_time;
    TK_COPY17(confirm_no);
    d.weave_type = s->weave_type;
    TK_COPY17(arbitrage_code);
    d.time_condition = s->time_condition;
    d.volume_condition = s->volume_condition;
    d.futu_entrust_prop = s->futu_entrust_prop;
    d.frozen_fare = s->frozen_fare;
    return 0;
}

#undef TK_COPY17

int ConvertBJHbTo33301(tagBJHB* r, char* text, int size) {
    if (r == nullptr || text == nullptr || size < 1) return -1;
    TextWriter w(text, static_cast<std::size_t>(size));
    w.Add("%.*s" SEP "%.*s" SEP "%.*s" SEP "%.*s" SEP "%f" SEP "%f" SEP, TK_S(r->futu_exch_type),
          TK_S(r->contract_code), TK_S(r->buy_futures_direction), TK_S(r->buy_hedge_type),
          r->buy_price, r->buy_amount);
    w.Add("%.*s" SEP "%.*s" SEP "%f" SEP "%f" SEP "%d" SEP, TK_S(r->sale_futures_direction),
          TK_S(r->sale_hedge_type), r->sale_price, r->sale_amount, r->quote_no);
    w.Add("%.*s" SEP "%.*s" SEP "%.*s" SEP "%.*s" SEP "%.*s" SEP, TK_S(r->fund_account),
          TK_S(r->futu_report_no), TK_S(r->firm_no), TK_S(r->operator_no), TK_S(r->entrust_status));
    w.Add("%d" SEP "%d" SEP "%d" SEP "%.*s" SEP "%.*s" SEP "%.*s" SEP, r->branch_no, r->init_date,
          r->curr_time, TK_S(r->confirm_no), TK_S(r->buy_confirm_no), TK_S(r->sale_confirm_no));
    w.Add("%.*s" SEP "%.*s" SEP "%d" SEP "%.*s" SEP "%.*s" SEP "%d" SEP "%d",
          TK_S(r->quote_occasion), TK_S(r->quote_reference), r->session_no,
          TK_S(r->buy_entrust_reference), TK_S(r->sell_entrust_reference), r->buy_entrust_no,
          r->sell_entrust_no);
    return Finish(w);
}

int ConvertXJHqTo33300(tagXJ* r, char* text, int size) {
    if (r == nullptr || text == nullptr || size < 1) return -1;
    TextWriter w(text, static_cast<std::size_t>(size));
    w.Add("%.*s" SEP "%.*s" SEP "%d" SEP "%d", TK_S(r->forquote_no), TK_S(r->contract_code),
          r->init_date, r->update_time);
    return Finish(w);
}

int ConvertOffsetTo33117(tagOFFSET* r, char* text, int size) {
    if (r == nullptr || text == nullptr || size < 1) return -1;
    TextWriter w(text, static_cast<std::size_t>(size));
    w.Add("%.*s" SEP "%.*s" SEP "%d" SEP "%.*s" SEP "%.*s" SEP "%d" SEP, TK_S(r->fund_account),
          TK_S(r->futures_account), r->entrust_no, TK_S(r->futu_exch_type), TK_S(r->futu_code),
          r->entrust_amount);
    w.Add("%c" SEP "%c" SEP "%c" SEP "%.*s" SEP "%.*s", r->offset_type, r->entrust_status,
          r->offset_action_type, TK_S(r->error_message), TK_S(r->position_str));
    return Finish(w);
}

int ConvertZJZH_BZJHBTo33106(tagZJZHBZJHB* r, char* text, int size) {
    if (r == nullptr || text == nullptr || size < 1) return -1;
    TextWriter w(text, static_cast<std::size_t>(size));
    w.Add("%d" SEP "%.*s" SEP "%.*s" SEP "%.*s" SEP "%.*s" SEP "%.*s" SEP, r->entrust_no,
          TK_S(r->futures_account), TK_S(r->futu_exch_type), TK_S(r->arbit_code),
          TK_S(r->futu_code), TK_S(r->second_code));
    w.Add("%c" SEP "%c" SEP "%c" SEP, r->entrust_bs, r->hedge_type, r->combdirection);
    w.Add("%.*s" SEP "%.*s" SEP "%.*s" SEP "%.*s" SEP, TK_S(r->fund_account), TK_S(r->report_id),
          TK_S(r->firm_id), TK_S(r->operator_no));
    w.Add("%d" SEP "%d" SEP "%c" SEP "%d" SEP "%d" SEP "%c" SEP, r->client_group,
          r->entrust_amount, r->entrust_status, r->branch_no, r->batch_no, r->entrust_type);
    w.Add("%d" SEP "%d" SEP "%.*s" SEP "%c" SEP, r->init_date, r->entrust_time,
          TK_S(r->entrust_prop), r->weave_type);
    w.Add("%.*s" SEP "%.*s" SEP "%.*s" SEP "%.*s" SEP "%d" SEP, TK_S(r->entrust_occasion),
          TK_S(r->entrust_reference), TK_S(r->error_message), TK_S(r->position_str),
          r->session_no);
    w.Add("%f" SEP "%f" SEP "%f" SEP "%c", r->first_hold_margin, r->second_hold_margin,
          r->delta_hold_margin, r->second_hedge_type);
    return Finish(w);
}
