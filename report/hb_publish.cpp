#include "report/hb_publish.h"

#include <cstring>

#include "report/report_pack.h"
#include "report/report_publish.h"
#include "report/report_text.h"
#include "wire/field_reader.h"

namespace tikron {

void ApplyStatusRules(tagHB& hb, int sysVersion) {
    if (sysVersion == 1) {
        const char s = StatusSwtich(hb.entrust_status[0]);
        if (s != static_cast<char>(0xFF)) hb.entrust_status[0] = s;
    }
    if (hb.business_type[0] == 'B' && hb.entrust_status[0] == '5') hb.entrust_status[0] = '7';
    if ((hb.entrust_status[0] == '7' || hb.entrust_status[0] == '8') && hb.business_no[0] == '0' &&
        hb.business_type[0] == '0') {
        hb.entrust_status[0] = '2';
    }
}

namespace {

void CountReport(CTIKRONServiceImpl& svc, bool deal) {
    if (deal) {
        ++svc.m_uiRecvCJNum;
    } else {
        ++svc.m_uiRecvWTQRNum;
    }
}

// Binary report record (23 or 17): business_type and the raw record.
template <typename Deal, typename Entrust>
void PublishRecord(CTIKRONServiceImpl& svc, tagHB& hb, const HBPublishOptions& opt, int issueType,
                   Deal* deal, Entrust* entrust, int size, bool count) {
    const bool isDeal = hb.business_type[0] == 'B';
    ReportTarget target;
    target.issueType = issueType;
    target.tradeLog = true;
    ReportKey key;
    key.kind = ReportKeyKind::BranchFundInt;
    key.branchNo = hb.branch_no;
    key.fundInt = FundAccountToInt(hb.fund_account);
    const int r = PublishMessage(svc, opt.packer, target, key, [&](IF2Packer& p) {
        AddStrColumn(p, "business_type");
        AddRawColumn(p, "futu_hb_raw");
        p.AddStr(hb.business_type);
        if (isDeal) {
            HBToCJ(svc.m_lpLogService, &p, &hb, deal, size);
        } else {
            HBToWTQR(svc.m_lpLogService, &p, &hb, entrust, size);
        }
    });
    if (count && r == PUBLISH_DONE) CountReport(svc, isDeal);
}

}  // namespace

void PublishHBReports(CTIKRONServiceImpl& svc, tagHB& hb, const HBScratch& scratch,
                      const HBPublishOptions& opt) {
    const bool longCode =
        static_cast<int>(strnlen(hb.contract_code, sizeof hb.contract_code)) > opt.legacyCodeLimit;
    hb.business_type[1] = '\0';

    PublishRecord(svc, hb, opt, 23, scratch.cjEx, scratch.wtqrEx, 304, true);

    char text[1024];
    std::memset(text, 0, sizeof text);
    ConvertHbTo33101(&hb, text, sizeof text);
    ReportTarget target;
    target.issueType = 33101;
    target.tradeLog = true;
    ReportKey key;
    key.kind = ReportKeyKind::BranchFundText;
    key.branchNo = hb.branch_no;
    key.fundText = hb.fund_account;
    PublishMessage(svc, opt.packer, target, key, [&](IF2Packer& p) {
        AddStrColumn(p, "LY");
        AddTextColumn(p, "QH");
        if (opt.lyAsString) {
            p.AddStr(hb.business_type);
        } else {
            p.AddChar(hb.business_type[0]);
        }
        p.AddStr(text);
    });

    if (!longCode) PublishRecord(svc, hb, opt, 17, scratch.cj, scratch.wtqr, 248, opt.countLegacy);
}

}  // namespace tikron
