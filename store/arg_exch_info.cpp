#include "store/hq_tables.h"

int CTIKRONARGInfo::GetHQFromData(const char* pData, int iLen, tagArgHQInfo* pRec) {
    if (pData == nullptr || iLen < 1 || pRec == nullptr) return -1;
    const char* cur = pData;
    const char d = ',';
    char szArbi[64];
    int r;
#define TK_RD(cap, dst)                                 \
    if ((r = GetNextValue(&cur, (cap), (dst), d)) != 0) \
        return r
#define TK_S(f) TK_RD(static_cast<int>(sizeof pRec->f), pRec->f)
// Through an aligned local: packed doubles may be misaligned.
#define TK_D(f)                                                 \
    {                                                           \
        decltype(pRec->f) tmp{};                                \
        if ((r = GetNextValue(&cur, 1, tmp, d)) != 0) return r; \
        pRec->f = tmp;                                          \
    }
    TK_S(contract_code);
    TK_S(futu_exch_type);
    TK_S(first_code);
    TK_S(second_code);
    TK_RD(static_cast<int>(sizeof szArbi), szArbi);
    pRec->arbi_type = szArbi[0];
    TK_D(buy_price); TK_D(buy_amount); TK_D(buy_total_amount);
    TK_D(sale_price); TK_D(sale_amount); TK_D(sale_total_amount);
    TK_D(futu_high_price); TK_D(futu_low_price); TK_D(uplimited_price); TK_D(downlimited_price);
    // The closing exchange code replaces the one read second.
    TK_S(futu_exch_type);
#undef TK_D
#undef TK_S
#undef TK_RD
    return AddHQInfo(pRec, 0);
}

int CExchStatusInfo::GetHQFromData(const char* pData, int iLen, tagEXCHSTATUS* pRec) {
    if (pData == nullptr || iLen < 1 || pRec == nullptr) return -1;
    const char* cur = pData;
    int r;
    if ((r = GetNextValue(&cur, static_cast<int>(sizeof pRec->futu_exch_type), pRec->futu_exch_type, ',')) != 0)
        return r;
    if ((r = GetNextValue(&cur, static_cast<int>(sizeof pRec->futu_status), pRec->futu_status, ',')) != 0) return r;
    int iCanTrade = 0;
    if ((r = GetNextValue(&cur, 1, iCanTrade, ',')) != 0) return r;
    pRec->can_trade = iCanTrade;
    return AddHQInfo(pRec, 0);
}
