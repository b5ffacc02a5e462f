#include "quote/quote_text.h"

#include <cstring>

#include "quote/number_format.h"
#include "quote/text_builder.h"
#include "quote/text_fields.h"

using tikron::CopyText;
using tikron::TextWriter;

namespace {

constexpr int kHeaderRoom = 15;  // bytes kept free for the 33100 header

using QuoteWork = tikron::WorkText<QUOTE_TEXT_MAX_LEN + 2>;
using tikron::FieldSeq;

// Reads the 46 fields of a 33100 text into a working record; depth fields
// 31-46 only when text remains after field 30.
int ReadQrx(const char* text, tagQRX_HQ& q) {
    QuoteWork work;
    const int rc = work.Load(text, QUOTE_TEXT_TOO_LONG);
    if (rc != 0) return rc;
    FieldSeq f(work.Cursor());
    f.Char(q.quote_type).Int(q.quote_length).Int(q.update_time).Int(q.quote_index);
    f.Text(q.futu_exch_type).Text(q.commodity_type).Text(q.futu_code);
    f.Dbl(TIKRON_DBL(q.pre_settlement_price)).Dbl(TIKRON_DBL(q.pre_close_price));
    // Written as a fixed-point number, read as an int (atoi stops at '.').
    f.Int(q.pre_open_interest);
    f.Dbl(TIKRON_DBL(q.pre_delta)).Dbl(TIKRON_DBL(q.futu_open_price));
    f.Dbl(TIKRON_DBL(q.futu_last_price));
    f.Dbl(TIKRON_DBL(q.buy_high_price)).Int(q.buy_high_amount).Dbl(TIKRON_DBL(q.low_sell_price));
    f.Int(q.low_sell_amount);
    f.Dbl(TIKRON_DBL(q.futu_high_price)).Dbl(TIKRON_DBL(q.futu_low_price));
    f.Dbl(TIKRON_DBL(q.uplimited_price));
    f.Dbl(TIKRON_DBL(q.downlimited_price)).Dbl(TIKRON_DBL(q.average_price));
    f.Dbl(TIKRON_DBL(q.change_direction));
    f.Int(q.business_amount).Int(q.open_interest).Dbl(TIKRON_DBL(q.business_balance));
    f.Dbl(TIKRON_DBL(q.futu_close_price)).Dbl(TIKRON_DBL(q.square_price)).Int(q.curr_date);
    f.Dbl(TIKRON_DBL(q.curr_delta));
    if (f.Result() != 0 || work.AtEnd()) return f.Result();  // no depth: stays zero
    f.Dbl(TIKRON_DBL(q.buy_price2)).Int(q.buy_amount2).Dbl(TIKRON_DBL(q.buy_price3));
    f.Int(q.buy_amount3);
    f.Dbl(TIKRON_DBL(q.buy_price4)).Int(q.buy_amount4).Dbl(TIKRON_DBL(q.buy_price5));
    f.Int(q.buy_amount5);
    f.Dbl(TIKRON_DBL(q.sale_price2)).Int(q.sale_amount2).Dbl(TIKRON_DBL(q.sale_price3));
    f.Int(q.sale_amount3);
    f.Dbl(TIKRON_DBL(q.sale_price4)).Int(q.sale_amount4).Dbl(TIKRON_DBL(q.sale_price5));
    f.Int(q.sale_amount5);
    return f.Result();
}

// Copies the fields both quote layouts take from a 33100 text. The exchange
// code keeps its first 2 characters, the contract code its first N-1.
template <typename T>
void CopyQrxCommon(const tagQRX_HQ& q, T& out) {
    std::memset(out.contract_code, 0, sizeof out.contract_code);
    std::memcpy(out.contract_code, q.futu_code,
                strnlen(q.futu_code, sizeof out.contract_code - 1));
    std::memset(out.futu_exch_type, 0, sizeof out.futu_exch_type);
    std::memcpy(out.futu_exch_type, q.futu_exch_type, strnlen(q.futu_exch_type, 2));
    out.pre_square_price = q.pre_settlement_price;
    out.pre_close_price = q.pre_close_price;
    out.pre_open_interest = q.pre_open_interest;
    out.pre_delta = q.pre_delta;
    out.futu_open_price = q.futu_open_price;
    out.futu_last_price = q.futu_last_price;
    out.buy_high_price = q.buy_high_price;
    out.buy_high_amount = q.buy_high_amount;
    out.sale_low_price = q.low_sell_price;
    out.sale_low_amount = q.low_sell_amount;
    out.futu_high_price = q.futu_high_price;
    out.futu_low_price = q.futu_low_price;
    out.uplimited_price = q.uplimited_price;
    out.downlimited_price = q.downlimited_price;
    out.average_price = q.average_price;
    out.change_direction = q.change_direction;
    out.business_amount = q.business_amount;
    out.bear_amount = q.open_interest;
    out.futu_close_price = q.futu_close_price;
    out.square_price = q.square_price;
    out.bid_price2 = q.buy_price2;
    out.bid_volume2 = q.buy_amount2;
    out.bid_price3 = q.buy_price3;
    out.bid_volume3 = q.buy_amount3;
    out.bid_price4 = q.buy_price4;
    out.bid_volume4 = q.buy_amount4;
    out.bid_price5 = q.buy_price5;
    out.bid_volume5 = q.buy_amount5;
    out.ask_price2 = q.sale_price2;
    out.ask_volume2 = q.sale_amount2;
    out.ask_price3 = q.sale_price3;
    out.ask_volume3 = q.sale_amount3;
    out.ask_price4 = q.sale_price4;
    out.ask_volume4 = q.sale_amount4;
    out.ask_price5 = q.sale_price5;
    out.ask_volume5 = q.sale_amount5;
}

}  // namespace

int Convert24To33105(tagEXCHSTATUS* r, char* text, int size) {
    if (r == nullptr || text == nullptr || size < 1) return -1;
    TextWriter w(text, static_cast<std::size_t>(size));
    // "%s\x01%s\x01%d"
    w.Field(r->futu_exch_type);
    w.Sep();
    w.Field(r->futu_status);
    w.Sep();
    w.Int(r->can_trade);
    return w.Truncated() ? QUOTE_TEXT_TRUNCATED : 0;
}

int Convert18To33102(tagArgHQInfo* r, char* text, int size) {
    if (r == nullptr || text == nullptr || size < 1) return -1;
    TextWriter w(text, static_cast<std::size_t>(size));
    // "%s %s %s %s %c %f %d %d %f %d %d %f %f %f %f", 0x01 between fields.
    w.Field(r->contract_code);
    w.Sep();
    w.Field(r->futu_exch_type);
    w.Sep();
    w.Field(r->first_code);
    w.Sep();
    w.Field(r->second_code);
    w.Sep();
    w.Chr(r->arbi_type);
    w.Sep();
    w.Dbl(r->buy_price);
    w.Sep();
    w.Int(r->buy_amount);
    w.Sep();
    w.Int(r->buy_total_amount);
    w.Sep();
    w.Dbl(r->sale_price);
    w.Sep();
    w.Int(r->sale_amount);
    w.Sep();
    w.Int(r->sale_total_amount);
    w.Sep();
    w.Dbl(r->futu_high_price);
    w.Sep();
    w.Dbl(r->futu_low_price);
    w.Sep();
    w.Dbl(r->uplimited_price);
    w.Sep();
    w.Dbl(r->downlimited_price);
    return w.Truncated() ? QUOTE_TEXT_TRUNCATED : 0;
}

namespace {

// Writes the 33100 body fields of r to a sink with the TextWriter calls.
// Every field but the last is followed by the separator.
template <typename Sink>
void Write33100Body(const tagHQInfo_EX& r, Sink& w) {
    auto dbl = [&w](double v) {
        w.Dbl(v);
        w.Sep();
    };
    auto num = [&w](int v) {
        w.Int(v);
        w.Sep();
    };
    num(r.time_stamp);
    num(0);  // quote index
    w.Field(r.futu_exch_type);
    w.Sep();
    w.Sep();  // commodity type: always empty
    w.Field(r.contract_code);
    w.Sep();
    dbl(r.pre_square_price);
    dbl(r.pre_close_price);
    dbl(r.pre_open_interest);
    dbl(r.pre_delta);
    dbl(r.futu_open_price);
    dbl(r.futu_last_price);
    dbl(r.buy_high_price);
    num(r.buy_high_amount);
    dbl(r.sale_low_price);
    num(r.sale_low_amount);
    dbl(r.futu_high_price);
    dbl(r.futu_low_price);
    dbl(r.uplimited_price);
    dbl(r.downlimited_price);
    dbl(r.average_price);
    dbl(r.change_direction);
    num(r.business_amount);
    num(r.bear_amount);
    dbl(r.business_balance);
    dbl(r.futu_close_price);
    dbl(r.square_price);
    num(0);  // current date
    dbl(r.curr_delta);
    dbl(r.bid_price2);
    num(r.bid_volume2);
    dbl(r.bid_price3);
    num(r.bid_volume3);
    dbl(r.bid_price4);
    num(r.bid_volume4);
    dbl(r.bid_price5);
    num(r.bid_volume5);
    dbl(r.ask_price2);
    num(r.ask_volume2);
    dbl(r.ask_price3);
    num(r.ask_volume3);
    dbl(r.ask_price4);
    num(r.ask_volume4);
    dbl(r.ask_price5);
    w.Int(r.ask_volume5);
}

// Unchecked writer for a buffer known to hold the longest possible body
// (k33100BodyMax): no bound test per field, same bytes as TextWriter.
struct DirectSink {
    char* p;
    void Dbl(double v) { p = tikron::FormatFixed6(p, v); }
    void Int(int v) { p = tikron::FormatInt(p, v); }
    template <std::size_t N>
    void Field(const char (&field)[N]) {
        const std::size_t n = strnlen(field, N);
        std::memcpy(p, field, n);
        p += n;
    }
    void Sep() { *p++ = '\x01'; }
};

// Longest 33100 body: 41 numbers (bounded here by 48), each with its
// separator, the two text fields and three separators, plus the terminator.
constexpr std::size_t k33100BodyMax = 48 * (tikron::kFixed6MaxLen + 1) +
                                      sizeof(tagHQInfo_EX::futu_exch_type) +
                                      sizeof(tagHQInfo_EX::contract_code) + 3 + 1;

}  // namespace

char* Convert22To33100(tagHQInfo_EX* r, char* buf, int size) {
    if (buf == nullptr) return nullptr;
    if (r == nullptr || size <= kHeaderRoom + 1) {
        if (size >= 1) buf[0] = '\0';
        return buf;
    }
    char* body = buf + kHeaderRoom;
    const std::size_t room = static_cast<std::size_t>(size - kHeaderRoom);
    std::size_t bodyLen;
    if (room >= k33100BodyMax) {
        DirectSink d{body};
        Write33100Body(*r, d);
        *d.p = '\0';
        bodyLen = static_cast<std::size_t>(d.p - body);
    } else {
        TextWriter w(body, room);
        Write33100Body(*r, w);
        bodyLen = w.Length();
    }

    // "0\x01%d\x01" with the body length.
    char header[kHeaderRoom + 1];
    header[0] = '0';
    header[1] = '\x01';
    char* hend = tikron::FormatInt(header + 2, static_cast<int>(bodyLen));
    *hend++ = '\x01';
    const int hlen = static_cast<int>(hend - header);
    // The body length has at most 10 digits, so the header always fits.
    char* start = body - hlen;
    std::memcpy(start, header, static_cast<std::size_t>(hlen));
    return start;
}

int Convert33105To24(const char* text, tagEXCHSTATUS* r) {
    if (r == nullptr) return -1;
    QuoteWork work;
    const int rc = work.Load(text, QUOTE_TEXT_TOO_LONG);
    if (rc != 0) return rc;
    FieldSeq f(work.Cursor());
    return f.Text(r->futu_exch_type).Text(r->futu_status).Int(r->can_trade).Result();
}

int Convert33102To18(const char* text, tagArgHQInfo* r) {
    if (r == nullptr) return -1;
    QuoteWork work;
    const int rc = work.Load(text, QUOTE_TEXT_TOO_LONG);
    if (rc != 0) return rc;
    FieldSeq f(work.Cursor());
    f.Text(r->contract_code).Text(r->futu_exch_type).Text(r->first_code).Text(r->second_code);
    f.Char(r->arbi_type).Dbl(TIKRON_DBL(r->buy_price)).Int(r->buy_amount).Int(r->buy_total_amount);
    f.Dbl(TIKRON_DBL(r->sale_price)).Int(r->sale_amount).Int(r->sale_total_amount);
    f.Dbl(TIKRON_DBL(r->futu_high_price)).Dbl(TIKRON_DBL(r->futu_low_price));
    f.Dbl(TIKRON_DBL(r->uplimited_price));
    f.Dbl(TIKRON_DBL(r->downlimited_price));
    return f.Result();
}

int Convert33100To22(const char* text, tagHQInfo_EX* r) {
    if (r == nullptr) return -1;
    tagQRX_HQ q;
    std::memset(&q, 0, sizeof q);
    const int rc = ReadQrx(text, q);
    if (rc != 0) return rc;
    CopyQrxCommon(q, *r);
    r->time_stamp = q.update_time;
    r->business_balance = q.business_balance;
    // curr_delta (field 30) is not taken: the record keeps its own.
    return 0;
}

int Convert33100To16(const char* text, tagHQInfo* r) {
    if (r == nullptr) return -1;
    tagQRX_HQ q;
    std::memset(&q, 0, sizeof q);
    const int rc = ReadQrx(text, q);
    if (rc != 0) return rc;
    CopyQrxCommon(q, *r);
    // The legacy layout's traded value is the traded amount (field 24).
    r->business_balance = q.business_amount;
    r->curr_delta = q.curr_delta;
    return 0;
}

int ConvertHq22To16(tagHQInfo_EX* s, tagHQInfo& d) {
    if (s == nullptr) return -1;
    CopyText(d.contract_code, s->contract_code);
    CopyText(d.futu_exch_type, s->futu_exch_type);
    d.pre_square_price = s->pre_square_price;
    d.futu_open_price = s->futu_open_price;
    d.futu_last_price = s->futu_last_price;
    d.buy_high_price = s->buy_high_price;
    d.buy_high_amount = s->buy_high_amount;
    d.buy_total_amount = s->buy_total_amount;
    d.sale_low_price = s->sale_low_price;
    d.sale_low_amount = s->sale_low_amount;
    d.sale_total_amount = s->sale_total_amount;
    d.futu_high_price = s->futu_high_price;
    d.futu_low_price = s->futu_low_price;
    d.average_price = s->average_price;
    d.change_direction = s->change_direction;
    d.business_amount = s->business_amount;
    d.bear_amount = s->bear_amount;
    d.business_balance = s->business_balance;
    d.uplimited_price = s->uplimited_price;
    d.downlimited_price = s->downlimited_price;
    d.form_buy_price = s->form_buy_price;
    d.form_sale_price = s->form_sale_price;
    d.form_buy_amount = s->form_buy_amount;
    d.form_sale_amount = s->form_sale_amount;
    d.pre_close_price = s->pre_close_price;
    d.pre_open_interest = s->pre_open_interest;
    d.futu_close_price = s->futu_close_price;
    d.square_price = s->square_price;
    d.pre_delta = s->pre_delta;
    d.curr_delta = s->curr_delta;
    d.bid_price2 = s->bid_price2;
    d.bid_volume2 = s->bid_volume2;
    d.bid_price3 = s->bid_price3;
    d.bid_volume3 = s->bid_volume3;
    d.bid_price4 = s->bid_price4;
    d.bid_volume4 = s->bid_volume4;
    d.bid_price5 = s->bid_price5;
    d.bid_volume5 = s->bid_volume5;
    d.ask_price2 = s->ask_price2;
    d.ask_volume2 = s->ask_volume2;
    d.ask_price3 = s->ask_price3;
    d.ask_volume3 = s->ask_volume3;
    d.ask_price4 = s->ask_price4;
    d.ask_volume4 = s->ask_volume4;
    d.ask_price5 = s->ask_price5;
    d.ask_volume5 = s->ask_volume5;
    return 0;
}

const char* ConvertExch(const char* exch, bool toCode) {
    if (exch == nullptr) return "";
    if (toCode) {
        // Byte-wise substring search on GBK text; the first match decides.
        if (std::strstr(exch, "郑") != nullptr) return "F1";
        if (std::strstr(exch, "大") != nullptr) return "F2";
        if (std::strstr(exch, "上海") != nullptr) return "F3";
        if (std::strstr(exch, "金融") != nullptr) return "F4";
        if (std::strstr(exch, "能源") != nullptr || std::strstr(exch, "原油") != nullptr)
            return "F5";
        return exch;
    }
    if (exch[0] == '\0') return exch;  // no second character to look at
    switch (exch[1]) {
        case '1': return "郑州交易所";
        case '2': return "大连交易所";
        case '3': return "上海交易所";
        case '4': return "金融交易所";
        case '5': return "能源交易所";
        default: return exch;
    }
}
