// What a plug-in exports to the host: the service description filled by
// Get<ID>Info and the entry point signatures the host resolves by name.
#pragma once

#include "frame/host_interfaces.h"

typedef int (*PFinitxxxx)(void* instance, void* reserved);
typedef IKnown* (*PFgetxxxxInstance)();
typedef const char* (*PFgetxxxxDependService)(void* reserved);
typedef int (*PFgetxxxxInfo)(int index, struct tagBaseServiceInfo* info);

struct tagBaseServiceInfo {
    const char* ServiceID;
    int iVersion;
    PFinitxxxx Init;
    PFgetxxxxInstance getInstance;
    PFgetxxxxDependService getDependServices;
    const char* Caption;
};

enum ServiceStatus {
    ServiceUnInite = 0,
    ServiceInitializing = 1,
    ServiceInitialized = 2,
    ServiceStarting = 3,
    ServiceStarted = 4,
    ServiceUnRegister = 5,
    ServiceRegistering = 6,
    ServiceReady = 7,
    ServicePause = 8,
    ServiceStopping = 9,
    ServiceStoped = 10,
    ServiceDisbale = 16,
};

// Host system events passed to IManager::ProcSysEvent.
enum {
    SYSEVENT_START = 1,
    SYSEVENT_STOP = 2,
    SYSEVENT_EXIT = 3,
    SYSEVENT_FORK = 4,
};
