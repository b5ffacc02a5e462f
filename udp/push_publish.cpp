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

void PackBody(IF2Packer& p, const PushSpec& desc, const char* rec) {
    for (int i = 0; i < desc.fieldCount; ++i)
        p.AddField(desc.fields[i].name, 'S', PushColumnWidth(desc.fields[i]), 4);
    for (int i = 0; i < desc.fieldCount; ++i) {
        const PushField& f = desc.fields[i];
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

int FindPushField(const PushSpec& desc, const char* name) {
    for (int i = 0; i < desc.fieldCount; ++i)
        if (std::strcmp(desc.fields[i].name, name) == 0) return i;
    return -1;
}

bool PublishPushRecord(CTIKRONServiceImpl& svc, const PushSpec& desc, const void* rec, std::size_t recSize) {
    if (rec == nullptr || recSize != desc.recordSize) return false;
    const char* bytes = static_cast<const char*>(rec);

    tikron::ReportKey key;
    std::string fund;
    if (desc.key == PUSH_KEY_OPTHQ) {
        key.kind = tikron::ReportKeyKind::FundText;
        key.fundText = kOptHqKey;
    } else {
        const int fi = FindPushField(desc, "fund_account");
        const int bi = FindPushField(desc, "branch_no");
        if (fi < 0 || bi < 0 || desc.fields[fi].type != PF_TEXT || desc.fields[bi].type != PF_INT) {
            TikronLog(svc.m_lpLogService, desc.function, "记录缺少关键字段, 功能号 %d 未发布!", desc.issueType);
            return false;
        }
        fund = FieldString(bytes, desc.fields[fi]);
        key.kind = tikron::ReportKeyKind::BranchFundText;
        key.branchNo = FieldInt(bytes, desc.fields[bi]);
        key.fundText = fund.c_str();
    }

    tikron::ReportTarget target;
    target.functionNo = kFuncPushPublish;
    target.issueType = desc.issueType;
    const int r = tikron::PublishMessage(svc, svc.m_pPacker, target, key,
                                         [&](IF2Packer& p) { PackBody(p, desc, bytes); });
    return r == tikron::PUBLISH_DONE;
}

}  // namespace tikron_udp
