// Action 5: dates and receive counters.
#include "frame/local_clock.h"
#include "frame/mgmt_actions.h"
#include "frame/mgmt_table.h"
#include "store/hq_tables.h"

int mf_GetStatInfo(CMessageServiceImpl* service, IF2UnPacker*, IF2Packer* answer) {
    if (service == nullptr || answer == nullptr) return -1;
    static const char* const kColumns[] = {
        "系统初始化日期", "系统初始化时间",     "当前日期",         "当前时间",
        "总的接收个数",   "UDP广播接收个数",    "从消息中心接收个数", "其他方式接收个数",
        "收到UDP回报个数", "发送成交回报个数", "发送委托确认个数"};
    tikron_mgmt::BeginTable(answer, kColumns);
    answer->AddInt(service->m_iInitDate.load());
    answer->AddInt(service->m_iInitTime);
    answer->AddInt(LocalDateYmd());
    answer->AddInt(LocalTimeHms());
    CTIKRONServiceImpl* tikron = tikron_mgmt::Tikron(service);
    // The receive counters are those of the legacy single-leg table.
    CTIKRONInfo* table = tikron != nullptr ? tikron->m_pTIKRONInfo : nullptr;
    tikron_mgmt::AddCount(answer, table != nullptr ? table->GetRecvNum() : 0);
    tikron_mgmt::AddCount(answer, table != nullptr ? table->GetRecvFromUDPNum() : 0);
    tikron_mgmt::AddCount(answer, table != nullptr ? table->GetRecvFromMCNum() : 0);
    tikron_mgmt::AddCount(answer, table != nullptr ? table->GetRecvFromOtherNum() : 0);
    tikron_mgmt::AddCount(answer, tikron != nullptr ? tikron->m_uiRecvUDPHB.load() : 0);
    tikron_mgmt::AddCount(answer, tikron != nullptr ? tikron->m_uiRecvCJNum.load() : 0);
    tikron_mgmt::AddCount(answer, tikron != nullptr ? tikron->m_uiRecvWTQRNum.load() : 0);
    answer->EndPack();
    return 0;
}
