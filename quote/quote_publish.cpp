#include "quote/quote_publish.h"

#include "frame/service_log.h"

namespace tikron_udp {

int AddBody(IF2Packer& p, const Body& b) {
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
    return r;
}

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
    const int r = AddBody(p, b);
    if (r < 0) return r;
    return p.EndPack();
}

int SetPacked(IESBMessage* msg, int tag, IF2Packer& p) {
    IESBMessageItem* item = msg->GetItem(tag);
    if (item == nullptr) return -1;
    return item->SetRawData(p.GetPackBuf(), p.GetPackLen());
}

// keyBytes/keyLen: the key already packed, or null to pack keys here.
int PublishWith(CTIKRONServiceImpl& svc, int functionNo, int issueType, const KeyColumn* keys,
                int keyCount, const char* keyBytes, int keyLen, const Body& body) {
    IF2Packer* packer = svc.m_pPacker;
    if (packer == nullptr) {
        TikronLog(svc.m_lpLogService, kFn, "no packer, issue type %d not published!", issueType);
        return NO_PACKER;
    }
    IESBMessage* msg = GetESBMsgEx(__LINE__);
    if (msg == nullptr) return NO_MESSAGE;

    int r = keyBytes != nullptr ? 0 : PackKey(*packer, keys, keyCount);
    if (r >= 0) {
        msg->Prepare(PACKET_REQUEST, functionNo);
        msg->GetItem(TAG_ISSUE_TYPE)->SetInt(issueType, 0);
        if (keyBytes != nullptr) {
            IESBMessageItem* item = msg->GetItem(TAG_KEY_INFO);
            r = item != nullptr ? item->SetRawData(keyBytes, keyLen) : -1;
        } else {
            r = SetPacked(msg, TAG_KEY_INFO, *packer);
        }
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

}  // namespace

int Publish(CTIKRONServiceImpl& svc, int functionNo, int issueType, const KeyColumn* keys,
            int keyCount, const Body& body) {
    return PublishWith(svc, functionNo, issueType, keys, keyCount, nullptr, 0, body);
}

PackedKey::PackedKey(CTIKRONServiceImpl& svc, const KeyColumn& key) : m_key(key) {
    IF2Packer* packer = svc.m_pPacker;
    if (packer == nullptr || PackKey(*packer, &key, 1) < 0) return;
    const int n = packer->GetPackLen();
    const void* b = packer->GetPackBuf();
    if (b == nullptr || n <= 0 || static_cast<std::size_t>(n) > sizeof m_bytes) return;
    std::memcpy(m_bytes, b, static_cast<std::size_t>(n));
    m_len = n;
}

int Publish(CTIKRONServiceImpl& svc, int functionNo, int issueType, const PackedKey& key,
            const Body& body) {
    return PublishWith(svc, functionNo, issueType, &key.Key(), 1, key.Ready() ? key.Bytes() : nullptr,
                       key.Length(), body);
}

}  // namespace tikron_udp
