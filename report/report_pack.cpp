#include "report/report_pack.h"

#include <climits>
#include <cstdio>
#include <cstring>

#include "quote/text_builder.h"

using tikron::CopyText;

namespace {

constexpr int kLogCode = 15006;
constexpr const char* kNameEx = "CTIKRONServiceImpl::HBToCJ_EX";
constexpr const char* kNameLegacy = "CTIKRONServiceImpl::HBToCJ";

// Clamp the requested size to the record so the packing stays inside it.
template <typename T>
int ClampSize(int size) {
    if (size < 0) return 0;
    return size > static_cast<int>(sizeof(T)) ? static_cast<int>(sizeof(T)) : size;
}

void PackAndLog(ILogService* log, IF2Packer* packer, const void* rec, int size, const char* name) {
    if (packer == nullptr) return;
    const int rc = packer->PackRaw(rec, size);
    if (rc < 0 && log != nullptr) {
        char text[96];
        std::snprintf(text, sizeof text, "add raw fail, result: %d, size: %d!", rc, size);
        log->AddLog(name, kLogCode, text);
    }
}

// Fields the deal and the entrust confirmation take alike. Text copies are
// bounded to the target field: for codes that fit (every one published in the
// legacy layout) the bytes are those of a plain string copy.
template <typename T>
void FillCommon(const tagHB& hb, T& out) {
    out.entrust_no = hb.entrust_no;
    CopyText(out.futures_account, hb.futures_account);
    CopyText(out.futu_exch_type, hb.futu_exch_type);
    CopyText(out.contract_code, hb.contract_code);
    CopyText(out.entrust_name, hb.entrust_name);
    CopyText(out.direction_name, hb.direction_name);
    CopyText(out.hedge_name, hb.hedge_name);
    out.fund_account = FundAccountToInt(hb.fund_account);
    CopyText(out.futu_report_no, hb.futu_report_no);
    CopyText(out.firm_no, hb.firm_no);
    CopyText(out.operator_no, hb.operator_no);
    out.client_group = hb.client_group;
    out.entrust_amount = hb.entrust_amount;
    out.business_total_amount = hb.business_total_amount;
    out.cacel_amount = hb.cacel_amount;
    out.entrust_price = hb.entrust_price;
    out.entrust_status = hb.entrust_status[0];
    out.branch_no = hb.branch_no;
    out.batch_no = hb.batch_no;
    out.futu_entrust_type = hb.futu_entrust_type[0];
    out.amount_per_hand = hb.amount_per_hand;
    out.forceclose_reason = hb.forceclose_reason[0];
    out.init_date = hb.curr_date;
    CopyText(out.confirm_no, hb.confirm_no);
}

template <typename T>
void FillDeal(const tagHB& hb, T& out) {
    FillCommon(hb, out);
    CopyText(out.business_no, hb.business_no);
    out.business_price = hb.business_price;
    out.business_amount = hb.business_amount;
    out.business_time = hb.curr_time;
}

template <typename T>
int Fill(ILogService* log, IF2Packer* packer, tagHB* hb, T* out, int size, const char* name,
         void (*fill)(const tagHB&, T&)) {
    if (hb == nullptr || out == nullptr) return -1;
    const int n = ClampSize<T>(size);
    std::memset(out, 0, sizeof(T));
    fill(*hb, *out);
    PackAndLog(log, packer, out, n, name);
    return 0;
}

void FillCjEx(const tagHB& hb, tagCJ_EX& out) {
    FillDeal(hb, out);
    CopyText(out.entrust_occasion, hb.entrust_occasion);
}
void FillCj(const tagHB& hb, tagCJ& out) { FillDeal(hb, out); }
void FillWtqrEx(const tagHB& hb, tagWTQR_EX& out) {
    FillCommon(hb, out);
    out.curr_time = hb.curr_time;
    CopyText(out.entrust_occasion, hb.entrust_occasion);
}
void FillWtqr(const tagHB& hb, tagWTQR& out) {
    FillCommon(hb, out);
    out.curr_time = hb.curr_time;
}

}  // namespace

int FundAccountToInt(const char (&s)[19]) {
    long long v = 0;
    for (std::size_t i = 0; i < sizeof s && s[i] >= '0' && s[i] <= '9'; ++i) {
        v = v * 10 + (s[i] - '0');
        if (v > INT_MAX) return INT_MAX;
    }
    return static_cast<int>(v);
}

int HBToCJ(ILogService* log, IF2Packer* packer, tagHB* hb, tagCJ_EX* out, int size) {
    return Fill(log, packer, hb, out, size, kNameEx, &FillCjEx);
}

int HBToCJ(ILogService* log, IF2Packer* packer, tagHB* hb, tagCJ* out, int size) {
    return Fill(log, packer, hb, out, size, kNameLegacy, &FillCj);
}

int HBToWTQR(ILogService* log, IF2Packer* packer, tagHB* hb, tagWTQR_EX* out, int size) {
    return Fill(log, packer, hb, out, size, kNameEx, &FillWtqrEx);
}

int HBToWTQR(ILogService* log, IF2Packer* packer, tagHB* hb, tagWTQR* out, int size) {
    return Fill(log, packer, hb, out, size, kNameLegacy, &FillWtqr);
}
