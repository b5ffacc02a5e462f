// Action 8: the subscription requests, answered ones first.
#include <cstring>
#include <string>

#include "frame/mgmt_actions.h"
#include "frame/mgmt_table.h"

namespace {

// One row of a request; `answered` gives the first column.
void AddRequestRow(IF2Packer* answer, const tagRequestNode& node, bool answered) {
    answer->AddStr(answered ? "是" : "否");
    tikron_mgmt::AddField(answer, node.cName);
    tikron_mgmt::AddCount(answer, node.ulFunctionNo);
    answer->AddInt(node.iBranchNo);
    answer->AddInt(node.iIssueType);
    answer->AddInt(node.iSendTime);
    // name#value# for every parameter, in configuration order.
    std::string params;
    for (const tagKeyInfo* key = node.pParamList; key != nullptr; key = key->m_pNext) {
        params.append(key->cKeyName, strnlen(key->cKeyName, sizeof key->cKeyName));
        params += '#';
        params.append(key->cKeyValue, strnlen(key->cKeyValue, sizeof key->cKeyValue));
        params += '#';
    }
    answer->AddStr(params.c_str());
    tikron_mgmt::AddField(answer, node.szRouteInfo.m_cOSPFName);
    tikron_mgmt::AddField(answer, node.szRouteInfo.m_cSVRName);
    tikron_mgmt::AddField(answer, node.szRouteInfo.m_cPluginID);
    tikron_mgmt::AddField(answer, node.szRouteInfo.m_cNBRName);
    tikron_mgmt::AddCount(answer, node.ulPacketID);
}

}  // namespace

int mf_GetAutoList(CMessageServiceImpl* service, IF2UnPacker*, IF2Packer* answer) {
    if (service == nullptr || answer == nullptr) return -1;
    static const char* const kColumns[] = {"是否成功", "名字",   "功能号", "营业部号",
                                           "发布类型", "发送时间", "发送字段", "ospf名",
                                           "服务名",   "插件名", "邻居名", "包ID"};
    tikron_mgmt::BeginTable(answer, kColumns);
    {
        tikron_mgmt::ScopedAcquire<KAVLE2::CThreadMutex> lock(service->m_szSendRequestLock);
        for (const tagRequestNode* node = service->m_pSendRequestHead; node != nullptr; node = node->pNext)
            AddRequestRow(answer, *node, true);
        for (const auto& entry : service->m_szSendRequestMap)
            if (entry.second != nullptr) AddRequestRow(answer, *entry.second, false);
    }
    answer->EndPack();
    return 0;
}
