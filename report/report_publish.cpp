#include "report/report_publish.h"

#include "frame/service_log.h"
#include "runtime/futu_log.h"

namespace tikron {

void AddStrColumn(IF2Packer& p, const char* name) { p.AddField(name, 'S', 255, 4); }
void AddTextColumn(IF2Packer& p, const char* name) { p.AddField(name, 'S', 1024, 4); }
void AddRawColumn(IF2Packer& p, const char* name) { p.AddField(name, 'R', 10240, 4); }

namespace {

void PackKey(IF2Packer& p, const ReportKey& key) {
    p.BeginPack();
    if (key.kind != ReportKeyKind::FundText) AddStrColumn(p, "branch_no");
    AddStrColumn(p, "fund_account");
    if (key.kind != ReportKeyKind::FundText) p.AddInt(key.branchNo);
    // The binary records' key carries the account as a number although the
    // column is declared as text; the text records carry the text.
    if (key.kind == ReportKeyKind::BranchFundInt) {
        p.AddInt(key.fundInt);
    } else {
        p.AddStr(key.fundText != nullptr ? key.fundText : "");
    }
    p.EndPack();
}

}  // namespace

int PublishMessage(CTIKRONServiceImpl& svc, IF2Packer* packer, const ReportTarget& target,
                   const ReportKey& key, const BodyPacker& body) {
    IESBMessage* msg = GetESBMsgEx(__LINE__);
    if (msg == nullptr) return PUBLISH_NO_MESSAGE;

    IF2Packer* own = nullptr;
    if (packer == nullptr) {
        own = svc.m_lpF2PackSvr != nullptr ? svc.m_lpF2PackSvr->GetPacker(33) : nullptr;
        packer = own;
    }
    if (packer == nullptr) {
        TikronLog(svc.m_lpLogService, "CTIKRONServiceImpl::PublishMessage", "GetPacker(33) fail!");
        ReleaseESBMsgEx(msg);
        return PUBLISH_NO_PACKER;
    }

    msg->Prepare(PACKET_REQUEST, target.functionNo);
    msg->GetItem(TAG_ISSUE_TYPE)->SetInt(target.issueType, 0);
    if (key.kind == ReportKeyKind::Raw) {
        msg->GetItem(TAG_KEY_INFO)->SetRawData(key.raw, key.raw != nullptr ? key.rawLen : 0);
    } else {
        PackKey(*packer, key);
        msg->GetItem(TAG_KEY_INFO)->SetRawData(packer->GetPackBuf(), packer->GetPackLen());
    }

    packer->BeginPack();
    body(*packer);
    packer->EndPack();
    msg->GetItem(TAG_MESSAGE_BODY)->SetRawData(packer->GetPackBuf(), packer->GetPackLen());

    if (target.tradeLog && svc.m_iSaveHBLog != 0) {
        int len = 0;
        const void* bytes = msg->GetBuffer(&len);
        if (bytes != nullptr && len > 0) FutuWriteLog(NONE, static_cast<const char*>(bytes), len);
    }
    if (svc.TransferMsg(msg, nullptr) != 0) ReleaseESBMsgEx(msg);
    if (own != nullptr) own->Release();
    return PUBLISH_DONE;
}

int PublishFundText(CTIKRONServiceImpl& svc, int functionNo, int issueType, const char* fundAccount,
                    const char* text) {
    ReportTarget target;
    target.functionNo = functionNo;
    target.issueType = issueType;
    ReportKey key;
    key.kind = ReportKeyKind::FundText;
    key.fundText = fundAccount;
    return PublishMessage(svc, svc.m_pPacker, target, key, [&](IF2Packer& p) {
        AddTextColumn(p, "QH");
        p.AddStr(text);
    });
}

}  // namespace tikron
