// Action 0: the list of management actions with their captions.
#include "frame/mgmt_actions.h"
#include "frame/mgmt_table.h"

int mf_GetFuncList(CMessageServiceImpl* service, IF2UnPacker*, IF2Packer* answer) {
    if (service == nullptr || answer == nullptr) return -1;
    static const char* const kColumns[] = {"function_id", "function_name"};
    tikron_mgmt::BeginTable(answer, kColumns);
    // The map is ordered by number: rows come in ascending action number.
    for (const auto& entry : service->m_ProcReqActionList) {
        answer->AddInt(static_cast<int>(entry.first));
        const char* caption = entry.second != nullptr ? entry.second->sCaption : nullptr;
        answer->AddStr(caption != nullptr ? caption : "");
    }
    answer->EndPack();
    return 0;
}
