#include "wire/quote_records.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

// Expected bytes of one record: fields at literal offsets; every byte not
// covered by a field must be zero padding.
class Layout {
public:
    explicit Layout(size_t size) : m_bytes(size, 0), m_used(size, false) {}
    void Dbl(size_t off, double v) { Put(off, &v, 8); }
    void Int(size_t off, int v) { Put(off, &v, 4); }
    void Str(size_t off, size_t width, const char* s) {
        std::vector<char> b(width, 0);
        std::memcpy(b.data(), s, std::strlen(s));
        Put(off, b.data(), width);
    }
    void Chr(size_t off, char c) { Put(off, &c, 1); }
    void ExpectEqual(const void* rec, size_t size) const {
        ASSERT_EQ(size, m_bytes.size());
        const unsigned char* p = static_cast<const unsigned char*>(rec);
        for (size_t i = 0; i < size; ++i) {
            unsigned char want = m_used[i] ? m_bytes[i] : 0;
            ASSERT_EQ(p[i], want) << "byte " << i << (m_used[i] ? " (field)" : " (padding)");
        }
    }

private:
    void Put(size_t off, const void* v, size_t n) {
        ASSERT_LE(off + n, m_bytes.size());
        for (size_t i = 0; i < n; ++i) {
            ASSERT_FALSE(m_used[off + i]) << "overlap at " << off + i;
            m_used[off + i] = true;
        }
        std::memcpy(&m_bytes[off], v, n);
    }
    std::vector<unsigned char> m_bytes;
    std::vector<bool> m_used;
};

// Fills a single-leg record field by field and records the expected bytes
// with the given shift (0 legacy, 16 extended) after the contract code.
template <typename R>
void FillSingleLeg(R& r, Layout& L, size_t codeWidth, size_t s) {
    std::memset(&r, 0, sizeof r);
    std::strcpy(r.contract_code, "IF2412");
    L.Str(0, codeWidth, "IF2412");
    double dv = 1.25;
    int iv = 100;
    // Packed doubles may be misaligned: write them by address, never by reference.
    auto D = [&](double* f, size_t off) { std::memcpy(f, &dv, sizeof dv); L.Dbl(off + s, dv); dv += 1.0; };
    auto I = [&](int& f, size_t off) { f = iv; L.Int(off + s, iv); iv += 3; };
    D(&r.pre_square_price, 16); D(&r.futu_open_price, 24); D(&r.futu_last_price, 32); D(&r.buy_high_price, 40);
    I(r.buy_high_amount, 48); I(r.buy_total_amount, 52); D(&r.sale_low_price, 56);
    I(r.sale_low_amount, 64); I(r.sale_total_amount, 68);
    D(&r.futu_high_price, 72); D(&r.futu_low_price, 80); D(&r.average_price, 88); D(&r.change_direction, 96);
    I(r.business_amount, 104); I(r.bear_amount, 108);
    D(&r.business_balance, 112); D(&r.uplimited_price, 120); D(&r.downlimited_price, 128);
    std::strcpy(r.futu_exch_type, "F4");
    L.Str(136 + s, 3, "F4");
    D(&r.form_buy_price, 140); D(&r.form_sale_price, 148); I(r.form_buy_amount, 156); I(r.form_sale_amount, 160);
    D(&r.pre_close_price, 164); D(&r.pre_open_interest, 172); D(&r.futu_close_price, 180); D(&r.square_price, 188);
    D(&r.pre_delta, 196); D(&r.curr_delta, 204);
    D(&r.bid_price2, 212); I(r.bid_volume2, 220); D(&r.bid_price3, 224); I(r.bid_volume3, 232);
    D(&r.bid_price4, 236); I(r.bid_volume4, 244); D(&r.bid_price5, 248); I(r.bid_volume5, 256);
    D(&r.ask_price2, 260); I(r.ask_volume2, 268); D(&r.ask_price3, 272); I(r.ask_volume3, 280);
    D(&r.ask_price4, 284); I(r.ask_volume4, 292); D(&r.ask_price5, 296); I(r.ask_volume5, 304);
}

TEST(QuoteRecordLayout, SingleLegLegacyAndExtended) {
    tagHQInfo a;
    Layout la(308);
    FillSingleLeg(a, la, 13, 0);
    la.ExpectEqual(&a, sizeof a);

    tagHQInfo_EX b;
    Layout lb(328);
    FillSingleLeg(b, lb, 30, 16);
    b.time_stamp = 93015;
    lb.Int(324, 93015);
    lb.ExpectEqual(&b, sizeof b);
}

TEST(QuoteRecordLayout, ArbitrageExchangeStatusAndSlots) {
    tagArgHQInfo g;
    std::memset(&g, 0, sizeof g);
    Layout lg(128);
    std::strcpy(g.contract_code, "SP rb2501&rb2505");
    lg.Str(0, 31, "SP rb2501&rb2505");
    std::strcpy(g.futu_exch_type, "F3");
    lg.Str(31, 3, "F3");
    std::strcpy(g.first_code, "rb2501");
    lg.Str(34, 13, "rb2501");
    std::strcpy(g.second_code, "rb2505");
    lg.Str(47, 13, "rb2505");
    g.arbi_type = 'S';
    lg.Chr(60, 'S');
    g.buy_price = -12.5; lg.Dbl(64, -12.5);
    g.buy_amount = 3; lg.Int(72, 3);
    g.buy_total_amount = 30; lg.Int(76, 30);
    g.sale_price = -11.5; lg.Dbl(80, -11.5);
    g.sale_amount = 4; lg.Int(88, 4);
    g.sale_total_amount = 40; lg.Int(92, 40);
    g.futu_high_price = -10; lg.Dbl(96, -10);
    g.futu_low_price = -20; lg.Dbl(104, -20);
    g.uplimited_price = 300; lg.Dbl(112, 300);
    g.downlimited_price = -300; lg.Dbl(120, -300);
    lg.ExpectEqual(&g, sizeof g);

    tagEXCHSTATUS e;
    std::memset(&e, 0, sizeof e);
    Layout le(12);
    std::strcpy(e.futu_exch_type, "F1");
    le.Str(0, 3, "F1");
    std::strcpy(e.futu_status, "3");
    le.Str(3, 3, "3");
    e.can_trade = 1;
    le.Int(8, 1);
    le.ExpectEqual(&e, sizeof e);

    tagSaveHQInfo<tagEXCHSTATUS> s;
    std::memset(&s, 0, sizeof s);
    s.iRecordNo = 7;
    s.szHQInfo = e;
    s.iCrc = 7;
    Layout ls(20);
    ls.Int(0, 7);
    ls.Str(4, 3, "F1");
    ls.Str(7, 3, "3");
    ls.Int(12, 1);
    ls.Int(16, 7);
    ls.ExpectEqual(&s, sizeof s);

    tagHQFileHead h{20241203u, 5u};
    unsigned char raw[16];
    std::memcpy(raw, &h, 16);
    uint64_t v;
    std::memcpy(&v, raw, 8);
    EXPECT_EQ(v, 20241203u);
    std::memcpy(&v, raw + 8, 8);
    EXPECT_EQ(v, 5u);
}

TEST(QuoteRecordLayout, ExchangeFeedRecordPairs) {
    tagQRX_HQ q;
    std::memset(&q, 0, sizeof q);
    double* prices[] = {&q.buy_price2, &q.buy_price3, &q.buy_price4, &q.buy_price5,
                        &q.sale_price2, &q.sale_price3, &q.sale_price4, &q.sale_price5};
    int* amounts[] = {&q.buy_amount2, &q.buy_amount3, &q.buy_amount4, &q.buy_amount5,
                      &q.sale_amount2, &q.sale_amount3, &q.sale_amount4, &q.sale_amount5};
    for (int k = 0; k < 8; ++k) {
        double v = 100.5 + k;
        std::memcpy(prices[k], &v, sizeof v);  // may be misaligned
        *amounts[k] = 10 + k;
    }
    const unsigned char* p = reinterpret_cast<const unsigned char*>(&q);
    for (int k = 0; k < 8; ++k) {
        double d;
        int i;
        std::memcpy(&d, p + 216 + 12 * k, 8);
        std::memcpy(&i, p + 224 + 12 * k, 4);
        EXPECT_EQ(d, 100.5 + k);
        EXPECT_EQ(i, 10 + k);
    }
}

}  // namespace
