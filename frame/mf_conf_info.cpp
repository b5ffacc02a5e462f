// Action 6: configuration and subscription state.
#include <ctime>

#include "frame/mgmt_actions.h"
#include "frame/mgmt_table.h"

namespace {

const char* VersionName(int version) {
    switch (version) {
        case 0: return "06版";
        case 1: return "2.5版";
        default: return "未知版本";
    }
}

}  // namespace

int mf_GetConfInfo(CMessageServiceImpl* service, IF2UnPacker*, IF2Packer* answer) {
    if (service == nullptr || answer == nullptr) return -1;
    static const char* const kColumns[] = {
        "UDP端口",      "向消息中心订阅", "ospf名字",          "服务名",
        "插件名",       "邻居名",         "心跳超时时间",      "订阅状态",
        "上一次收到心跳时间", "是否接收UDP行情", "后台交易系统版本号"};
    tikron_mgmt::BeginTable(answer, kColumns);
    answer->AddInt(service->m_iUDPPort);
    answer->AddInt(service->m_iEnableSubscibeToMC);
    const tagRouteInfo& route = service->m_szMCRouteInfo;
    tikron_mgmt::AddField(answer, route.m_cOSPFName);
    tikron_mgmt::AddField(answer, route.m_cSVRName);
    tikron_mgmt::AddField(answer, route.m_cPluginID);
    tikron_mgmt::AddField(answer, route.m_cNBRName);
    answer->AddInt(service->m_iHeartBeatTimeout);
    CHeartBeatThread* heartbeat = service->m_pHeartBeatThread;
    if (heartbeat != nullptr) {
        answer->AddInt(heartbeat->m_iStatus.load());
        // ctime's text, trailing line break included; ctime_r into a
        // buffer of its documented size keeps it thread-safe, and a time
        // ctime cannot express gives an empty text instead of a null.
        time_t seen = heartbeat->m_iSubscibeTime.load();
        char text[64] = {0};
        if (ctime_r(&seen, text) == nullptr) text[0] = '\0';
        answer->AddStr(text);
    } else {
        answer->AddInt(0);
        answer->AddStr("空");
    }
    answer->AddInt(service->m_iEnableRecvUDP);
    answer->AddStr(VersionName(service->m_iSysVersion));
    answer->EndPack();
    return 0;
}
