// The management console's actions by function_id, with their captions.
#include "frame/mgmt_actions.h"

void RegisterManagementActions(CMessageServiceImpl& service) {
    service.mf_AddToActionList(0, mf_GetFuncList, "取函数列表");
    service.mf_AddToActionList(1, mf_GetHQInfo, "取所有单脚行情");
    service.mf_AddToActionList(2, mf_GetHQInfo_EX, "取所有新单脚行情");
    service.mf_AddToActionList(3, mf_GetARGHQInfo, "取所有组合行情");
    service.mf_AddToActionList(4, mf_GetExchStatusInfo, "取交易所状态");
    service.mf_AddToActionList(5, mf_GetStatInfo, "取状态信息");
    service.mf_AddToActionList(6, mf_GetConfInfo, "取配置信息");
    service.mf_AddToActionList(7, mf_GetESBInfo, "取ESB使用情况");
    service.mf_AddToActionList(8, mf_GetAutoList, "取主动发送队列信息");
}
