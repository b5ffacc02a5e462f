// The 47 fields shared by the legacy and extended single-leg record texts.
#pragma once

#include "wire/field_reader.h"
#include "wire/field_reader_fast.h"

namespace tikron_store {

// Numeric field of a record whose radix check was made once for the
// record: the inline fast path, else the full reader.
inline int ReadNumber(const char** ppCur, int& v, char d, bool) {
    if (tikron_fields::TryFastInt(ppCur, v, d)) return 0;
    return GetNextValue(ppCur, 1, v, d);
}
inline int ReadNumber(const char** ppCur, double& v, char d, bool radixIsDot) {
    if (tikron_fields::TryFastDouble(ppCur, v, d, radixIsDot)) return 0;
    return GetNextValue(ppCur, 1, v, d, radixIsDot);
}

// Reads the fields in record order into rec (either single-leg layout);
// contract_code uses the record's own field width as capacity.
template <typename R>
int ReadSingleLegFields(const char** ppCur, R& rec) {
    const char d = ',';
    // One locale question per record instead of one per price field.
    const bool radixIsDot = RadixIsDot();
    char skip[64];
    int r;
#define TK_RD(cap, dst)                                  \
    if ((r = GetNextValue(ppCur, (cap), (dst), d)) != 0) \
        return r
// Numeric fields go through an aligned local: packed doubles may sit at
// addresses a double reference must not bind to.
#define TK_D(f)                                                  \
    {                                                            \
        decltype(rec.f) tmp{};                                   \
        if ((r = ReadNumber(ppCur, tmp, d, radixIsDot)) != 0) return r; \
        rec.f = tmp;                                             \
    }
#define TK_S(f) TK_RD(static_cast<int>(sizeof rec.f), rec.f)
    TK_S(contract_code);
    TK_D(pre_square_price); TK_D(futu_open_price); TK_D(futu_last_price); TK_D(buy_high_price);
    TK_D(buy_high_amount); TK_D(buy_total_amount); TK_D(sale_low_price);
    TK_D(sale_low_amount); TK_D(sale_total_amount);
    TK_D(futu_high_price); TK_D(futu_low_price); TK_D(average_price); TK_D(change_direction);
    TK_D(business_amount); TK_D(bear_amount);
    TK_D(business_balance); TK_D(uplimited_price); TK_D(downlimited_price);
    TK_RD(static_cast<int>(sizeof skip), skip);
    TK_D(form_buy_price); TK_D(form_sale_price); TK_D(form_buy_amount); TK_D(form_sale_amount);
    TK_D(pre_close_price); TK_D(pre_open_interest); TK_D(futu_close_price); TK_D(square_price);
    TK_D(pre_delta); TK_D(curr_delta);
    TK_D(bid_price2); TK_D(bid_volume2); TK_D(bid_price3); TK_D(bid_volume3);
    TK_D(bid_price4); TK_D(bid_volume4); TK_D(bid_price5); TK_D(bid_volume5);
    TK_D(ask_price2); TK_D(ask_volume2); TK_D(ask_price3); TK_D(ask_volume3);
    TK_D(ask_price4); TK_D(ask_volume4); TK_D(ask_price5); TK_D(ask_volume5);
    TK_S(futu_exch_type);
#undef TK_S
#undef TK_D
#undef TK_RD
    return 0;
}

}  // namespace tikron_store
