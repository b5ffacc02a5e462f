// Temporary: exported entry points until the service frame lands.
#include "frame/service_info.h"

extern "C" {
__attribute__((visibility("default"))) int GetTIKRONInfo(int, tagBaseServiceInfo*) { return 0; }
__attribute__((visibility("default"))) IKnown* GetTIKRONInstance() { return nullptr; }
__attribute__((visibility("default"))) int GetTIKRONInit(void*, void*) { return 0; }
__attribute__((visibility("default"))) const char* GetTIKRONDependSvr(void*) { return ""; }
}
