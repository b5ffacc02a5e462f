// Subscription requests to the message center: sending the pending ones,
// matching answers by packet id, and putting answered ones back when the
// center has gone silent.
#include <cstring>

#include "frame/message_service.h"
#include "frame/service_log.h"
#include "frame/service_threads.h"
#include "frame/tikron_service.h"

namespace {

// Holds the request lock for a scope.
class RequestLock {
public:
    explicit RequestLock(KAVLE2::CThreadMutex& m) : m_m(m) { m_m.Acquire(); }
    ~RequestLock() { m_m.Release(); }
    RequestLock(const RequestLock&) = delete;
    RequestLock& operator=(const RequestLock&) = delete;

private:
    KAVLE2::CThreadMutex& m_m;
};

}  // namespace

int CMessageServiceImpl::SendRequest(IF2Packer* packer) {
    if (packer == nullptr) return -1;
    RequestLock lock(m_szSendRequestLock);
    for (auto& entry : m_szSendRequestMap) {
        tagRequestNode* node = entry.second;
        if (node == nullptr) continue;
        IESBMessage* msg = GetESBMsgEx(__LINE__);
        if (msg == nullptr) break;  // the rest goes on the next pass
        msg->Prepare(PACKET_REQUEST, static_cast<int>(node->ulFunctionNo));
        packer->BeginPack();
        for (tagKeyInfo* key = node->pParamList; key != nullptr; key = key->m_pNext)
            packer->AddField(key->cKeyName, 'S', 255, 4);
        for (tagKeyInfo* key = node->pParamList; key != nullptr; key = key->m_pNext) packer->AddStr(key->cKeyValue);
        packer->EndPack();
        msg->GetItem(TAG_KEY_INFO)->SetRawData(packer->GetPackBuf(), packer->GetPackLen());
        msg->GetItem(TAG_PACKET_ID)->SetInt(static_cast<int>(node->ulPacketID), 0);
        msg->GetItem(TAG_ISSUE_TYPE)->SetInt(node->iIssueType, 0);
        SetRouteInfo(&node->szRouteInfo, msg);
        if (TransferMsg(msg, nullptr) != 0) ReleaseESBMsgEx(msg);
    }
    return 0;
}

void CMessageServiceImpl::AddToMap() {
    RequestLock lock(m_szSendRequestLock);
    while (m_pSendRequestHead != nullptr) {
        tagRequestNode* node = m_pSendRequestHead;
        m_pSendRequestHead = node->pNext;
        node->pNext = nullptr;
        // A packet id is unique; should one be taken already, the node stays
        // listed as answered rather than being lost.
        auto ins = m_szSendRequestMap.emplace(node->ulPacketID, node);
        if (!ins.second) {
            node->pNext = m_pSendRequestHead;
            m_pSendRequestHead = node;
            break;
        }
    }
}

int CMessageServiceImpl::DeleteFromMap(unsigned long packetId) {
    RequestLock lock(m_szSendRequestLock);
    auto it = m_szSendRequestMap.find(packetId);
    if (it == m_szSendRequestMap.end()) return -1;
    tagRequestNode* node = it->second;
    m_szSendRequestMap.erase(it);
    if (node == nullptr) return 0;
    node->pNext = m_pSendRequestHead;
    m_pSendRequestHead = node;
    char name[sizeof node->cName + 1];
    std::memcpy(name, node->cName, sizeof node->cName);
    name[sizeof node->cName] = '\0';
    TikronLog(m_lpLogService, "CMessageServiceImpl::DeleteFromMap", "订阅: %s 成功!", name);
    return 0;
}

int CTIKRONServiceImpl::DealSubscibeAnswer(IESBMessage* msg, IMessageService* /*from*/,
                                           CMessageServiceThread* thread) {
    if (msg == nullptr || thread == nullptr) return -1;
    int len = 0;
    const void* body = msg->GetItem(TAG_KEY_INFO)->GetRawData(&len, 0);
    if (body == nullptr || len < 1) return -1;
    thread->GetUnPacker(body, len);
    IF2UnPacker* up = thread->m_pUnPacker;
    if (up == nullptr) return -1;
    int r = up->Open(body, len);
    if (r != 0) return r;
    r = up->GetInt("subscibe_result");
    if (r == 0 || r == 1) {
        unsigned long id = static_cast<unsigned long>(static_cast<unsigned int>(msg->GetItem(TAG_PACKET_ID)->GetInt(0)));
        DeleteFromMap(id);
        if (m_pHeartBeatThread != nullptr) {
            m_pHeartBeatThread->m_iSubscibeTime = m_pHeartBeatThread->Now();
            m_pHeartBeatThread->m_iStatus = 1;
        }
        return 0;
    }
    TikronLog(m_lpLogService, "CTIKRONServiceImpl::DealSubscibeAnswer", "subscibe_result: %d, 订阅失败!\n", r);
    return r;
}
