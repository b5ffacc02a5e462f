// The four functions the host resolves by name; everything else in the
// library is hidden.
#include "frame/service_info.h"
#include "frame/tikron_service.h"

#define TIKRON_EXPORT extern "C" __attribute__((visibility("default")))

TIKRON_EXPORT int GetTIKRONInit(void* instance, void* reserved);
TIKRON_EXPORT IKnown* GetTIKRONInstance();
TIKRON_EXPORT const char* GetTIKRONDependSvr(void* reserved);
TIKRON_EXPORT int GetTIKRONInfo(int index, tagBaseServiceInfo* info);

namespace {
const char kCaption[] = __DATE__ " " __TIME__ " V1.0.0.0";
// Identifiers each ended by NUL; the literal's own NUL ends the list.
const char kDependServices[] =
    SID_ESBMESSAGEFACTORY "\0" SID_F2PACKSVR "\0" SID_CFGSVR "\0" SID_LOG "\0";
}  // namespace

TIKRON_EXPORT int GetTIKRONInfo(int index, tagBaseServiceInfo* info) {
    if (index != 0) return 0;
    // A null record answers 1 as well, without filling anything.
    if (info == nullptr) return 1;
    info->ServiceID = "tikron";
    info->iVersion = 20100301;
    info->Init = GetTIKRONInit;
    info->getInstance = GetTIKRONInstance;
    info->getDependServices = GetTIKRONDependSvr;
    info->Caption = kCaption;
    return 1;
}

TIKRON_EXPORT IKnown* GetTIKRONInstance() {
    CTIKRONServiceImpl* service = new CTIKRONServiceImpl();
    service->SetInterfaceID("tikron");
    return service;
}

TIKRON_EXPORT int GetTIKRONInit(void* instance, void* /*reserved*/) {
    if (instance == nullptr) return 0;
    IKnown* known = static_cast<IKnown*>(instance);
    return static_cast<CMessageServiceImpl*>(known)->OnInit();
}

TIKRON_EXPORT const char* GetTIKRONDependSvr(void* /*reserved*/) { return kDependServices; }
