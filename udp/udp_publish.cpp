#include "udp/udp_publish.h"

#include "frame/service_log.h"

namespace tikron_udp {

namespace {

const char* const kFn = "CTIKRONServiceImpl::TransferMsg";

// Packs the key columns and their one row; 0 or the first failing call's result.
int PackKey(IF2Packer& p, const KeyColumn* keys, int keyCount) {
    p.BeginPack();
    for (int i = 0; i < keyCount; ++i) p.AddField(keys[i].name, 'S', 255, 4);
    for (int i = 0; i < keyCount; ++i) {
        int r = keys[i].isInt ? p.AddInt(keys[i].number) : p.AddStr(keys[i].text ? keys[i].text : "");
        if (r < 0) return r;
    }
    return p.EndPack();
}

int PackBody(IF2Packer& p, const Body& b) {
    p.BeginPack();
    int r = 0;
    switch (b.kind) {
        case Body::RawWithType:
            p.AddField("type", 'S', 255, 4);
            p.AddField(b.column, 'R', b.width, 4);
            // The type column is declared 'S' but carries an int; receivers
            // rely on both.
            r = p.AddInt(b.typeValue);
            if (r >= 0) r = p.PackRaw(b.data, b.len);
            break;
        case Body::RawOnly:
            p.AddField(b.column, 'R', b.width, 4);
            r = p.PackRaw(b.data, b.len);
            break;
        case Body::Text:
            p.AddField(b.column, 'S', b.width, 4);
            r = p.AddStr(b.text ? b.text : "");
            break;
    }
    if (r < 0) return r;
    return p.EndPack();
}

int SetPacked(IESBMessage* msg, int tag, IF2Packer& p) {
    IESBMessageItem* item = msg->GetItem(tag);
    if (item == nullptr) return -1;
    return item->SetRawData(p.GetPackBuf(), p.GetPackLen());
}

}  // namespace

int Publish(CTIKRONServiceImpl& svc, int functionNo, int issueType, const KeyColumn* keys,
            int keyCount, const Body& body) {
    IF2Packer* packer = svc.m_pPacker;
    if (packer == nullptr) {
        TikronLog(svc.m_lpLogService, kFn, "no packer, issue type %d not published!", issueType);
        return NO_PACKER;
    }
    IESBMessage* msg = GetESBMsgEx(__LINE__);
    if (msg == nullptr) return NO_MESSAGE;

    int r = PackKey(*packer, keys, keyCount);
    if (r >= 0) {
        msg->Prepare(PACKET_REQUEST, functionNo);
        msg->GetItem(TAG_ISSUE_TYPE)->SetInt(issueType, 0);
        r = SetPacked(msg, TAG_KEY_INFO, *packer);
    }
    if (r >= 0) r = PackBody(*packer, body);
    if (r >= 0) r = SetPacked(msg, TAG_MESSAGE_BODY, *packer);
    if (r < 0) {
        TikronLog(svc.m_lpLogService, kFn, "pack fail, error code: %d, issue type %d not published!", r,
                  issueType);
        ReleaseESBMsgEx(msg);
        return PACK_FAILED;
    }
    if (svc.TransferMsg(msg, nullptr) != 0) {
        ReleaseESBMsgEx(msg);
        return NOT_TAKEN;
    }
    return PUBLISHED;
}

}  // namespace tikron_udp
