#include "udp/push_publish.h"

#include <cstring>
#include <string>

#include "frame/service_log.h"
#include "report/report_publish.h"

namespace tikron_udp {

namespace {

// Bounded text of a field: never reads past its capacity even if it were
// unterminated.
std::string FieldString(const char* rec, const PushField& f) {
    const char* p = rec + f.offset;
    return std::string(p, strnlen(p, f.size));
}

int FieldInt(const char* rec, const PushField& f) {
    int v = 0;
    std::memcpy(&v, rec + f.offset, sizeof v);
    return v;
}

double FieldDouble(const char* rec, const PushField& f) {
    double v = 0.0;
    std::memcpy(&v, rec + f.offset, sizeof v);
    return v;
}

void PackBody(IF2Packer& p, const PushSpec& spec, const char* rec) {
    for (int i = 0; i < spec.fieldCount; ++i)
        p.AddField(spec.fields[i].name, 'S', PushColumnWidth(spec.fields[i]), 4);
    for (int i = 0; i < spec.fieldCount; ++i) {
        const PushField& f = spec.fields[i];
        switch (f.type) {
            case PF_TEXT: p.AddStr(FieldString(rec, f).c_str()); break;
            case PF_INT: p.AddInt(FieldInt(rec, f)); break;
            case PF_DOUBLE: p.AddDouble(FieldDouble(rec, f)); break;
            case PF_CHAR: p.AddChar(rec[f.offset]); break;
        }
    }
}

}  // namespace

int PushColumnWidth(const PushField& f) {
    if (f.type == PF_TEXT && f.size > 256) return static_cast<int>(f.size - 1);
    return 255;
}

int FindPushField(const PushSpec& spec, const char* name) {
    for (int i = 0; i < spec.fieldCount; ++i)
        if (std::strcmp(spec.fields[i].name, name) == 0) return i;
    return -1;
}

bool PublishPushRecord(CTIKRONServiceImpl& svc, const PushSpec& spec, const void* rec, std::size_t recSize) {
    if (rec == nullptr || recSize != spec.recordSize) return false;
    const char* bytes = static_cast<const char*>(rec);

    tikron::ReportKey key;
    std::string fund;
    if (spec.key == PUSH_KEY_OPTHQ) {
        key.kind = tikron::ReportKeyKind::FundText;
        key.fundText = kOptHqKey;
    } else {
        const int fi = FindPushField(spec, "fund_account");
        const int bi = FindPushField(spec, "branch_no");
        if (fi < 0 || bi < 0 || spec.fields[fi].type != PF_TEXT || spec.fields[bi].type != PF_INT) {
            TikronLog(svc.m_lpLogService, spec.function, "记录缺少关键字段, 功能号 %d 未发布!", spec.issueType);
            return false;
        }
        fund = FieldString(bytes, spec.fields[fi]);
        key.kind = tikron::ReportKeyKind::BranchFundText;
        key.branchNo = FieldInt(bytes, spec.fields[bi]);
        key.fundText = fund.c_str();
    }

    tikron::ReportTarget target;
    target.functionNo = kFuncPushPublish;
    target.issueType = spec.issueType;
    const int r = tikron::PublishMessage(svc, svc.m_pPacker, target, key,
                                         [&](IF2Packer& p) { PackBody(p, spec, bytes); });
    return r == tikron::PUBLISH_DONE;
}

}  // namespace tikron_udp
