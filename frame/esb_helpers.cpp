// Message helpers: every host message the plug-in obtains or gives back goes
// through these two functions so the counters stay meaningful.
#include <cstdio>
#include <cstring>

#include "frame/esb_message.h"

unsigned long g_ulGetESBNum = 0;
unsigned long g_ulReleaseESBNum = 0;
IESBMessageFactory* g_lpMsgFactory = nullptr;

IESBMessage* GetESBMsgEx(int /*callerLine*/) {
    if (g_lpMsgFactory == nullptr) return nullptr;
    IESBMessage* msg = g_lpMsgFactory->GetESBMsg();
    for (int retry = 0; msg == nullptr && retry < 3; ++retry) msg = g_lpMsgFactory->GetESBMsg();
    // Relaxed atomic increments: statistics only, but bumped from many threads.
    if (msg != nullptr) __atomic_fetch_add(&g_ulGetESBNum, 1UL, __ATOMIC_RELAXED);
    return msg;
}

void ReleaseESBMsgEx(IESBMessage* msg) {
    if (msg == nullptr) return;
    msg->Release();
    __atomic_fetch_add(&g_ulReleaseESBNum, 1UL, __ATOMIC_RELAXED);
}

int SetRouteInfo(tagRouteInfo* route, IESBMessage* msg) {
    if (route == nullptr || msg == nullptr) {
        fprintf(stderr, "[SetRouteInfo] Invalid Param, return -1!");
        return -1;
    }
    IESBMessageItem* item = msg->GetItem(TAG_ROUTE_INFO);
    if (item == nullptr) return -1;
    item->SetString(route->m_cOSPFName, 0);
    item->SetString(route->m_cNBRName, 1);
    item->SetString(route->m_cSVRName, 2);
    item->SetString(route->m_cPluginID, 3);
    return 0;
}
