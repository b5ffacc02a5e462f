// Column declaration and bounded value helpers of the management actions.
#include "frame/mgmt_table.h"

#include <cstdint>
#include <cstring>
#include <string>

namespace tikron_mgmt {

void BeginTable(IF2Packer* answer, const char* const* names, size_t count) {
    answer->BeginPack();
    for (size_t i = 0; i < count; ++i) answer->AddField(names[i], 'S', 255, 4);
}

void AddField(IF2Packer* answer, const char* field, size_t cap) {
    if (field == nullptr) {
        answer->AddStr("");
        return;
    }
    answer->AddStr(std::string(field, strnlen(field, cap)).c_str());
}

void AddCount(IF2Packer* answer, unsigned long long value) {
    answer->AddInt(static_cast<int>(static_cast<uint32_t>(value)));
}

CTIKRONServiceImpl* Tikron(CMessageServiceImpl* service) {
    return dynamic_cast<CTIKRONServiceImpl*>(service);
}

}  // namespace tikron_mgmt
