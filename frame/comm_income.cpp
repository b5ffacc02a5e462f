// Fund notices (620301-620303) republished as a one-field publication.
#include "frame/service_log.h"
#include "frame/tikron_service.h"

int CTIKRONServiceImpl::DealCommIncomeFunc(IESBMessage* msg, CMessageServiceThread* thread,
                                           int issueType) {
    static const char* const kFn = "CTIKRONServiceImpl::DealCommIncomeFunc";
    if (msg == nullptr || thread == nullptr) return -1;
    int len = 0;
    const void* body = msg->GetItem(TAG_MESSAGE_BODY)->GetRawData(&len, 0);
    if (body == nullptr || len < 1) {
        TikronLog(m_lpLogService, kFn, "get TAG_MESSAGE_BODY fail!");
        return -2;
    }
    thread->GetUnPacker(body, len);
    IF2UnPacker* unpacker = thread->m_pUnPacker;
    if (unpacker == nullptr) {
        TikronLog(m_lpLogService, kFn, "解包错误, 错误代码: %d!\n", -1);
        return -3;
    }
    int r = unpacker->Open(body, len);
    if (r != 0) {
        TikronLog(m_lpLogService, kFn, "解包错误, 错误代码: %d!\n", r);
        return -3;
    }

    IESBMessage* out = GetESBMsgEx(__LINE__);
    if (out == nullptr) return 0;
    IF2Packer* packer = m_lpF2PackSvr != nullptr ? m_lpF2PackSvr->GetPacker(33) : nullptr;
    if (packer == nullptr) {
        TikronLog(m_lpLogService, kFn, "GetPacker(33) fail!");
        ReleaseESBMsgEx(out);
        return -1;
    }
    packer->BeginPack();
    packer->AddField("fund_account", 'S', 255, 4);
    packer->AddInt(unpacker->GetInt("fund_account"));
    packer->EndPack();

    out->Prepare(0, 620003);
    out->GetItem(TAG_ISSUE_TYPE)->SetInt(issueType, 0);
    out->GetItem(TAG_KEY_INFO)->SetRawData(packer->GetPackBuf(), packer->GetPackLen());
    out->GetItem(TAG_MESSAGE_BODY)->SetRawData(unpacker->GetPackBuf(), unpacker->GetPackLen());
    if (TransferMsg(out, nullptr) != 0) ReleaseESBMsgEx(out);
    packer->Release();
    return 0;
}
