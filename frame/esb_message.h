// Message tags, the route record and the message helpers shared by the host
// and its plug-ins.
#pragma once

#include "frame/host_interfaces.h"

// Message items (tags).
enum {
    TAG_PACKET_TYPE = 3,     // int: 0 request, 1 answer
    TAG_FUNCTION_ID = 5,     // int: function number
    TAG_ERROR_FLAG = 7,      // int: non-zero reports a failure
    TAG_MESSAGE_BODY = 8,    // raw: packed body
    TAG_ROUTE_INFO = 9,      // strings 0-3: OSPF, neighbour, server, plug-in id
    TAG_PACKET_ID = 11,      // int: packet serial
    TAG_ERROR_NO = 19,       // int
    TAG_ERROR_INFO = 20,     // string
    TAG_ISSUE_TYPE = 53,     // int: publication type
    TAG_KEY_INFO = 54,       // raw: subscription key / request body
    TAG_PATH_STAMP = 100,    // strings 1 and 2: sender's server name and service id
};

enum {
    PACKET_REQUEST = 0,
    PACKET_ANSWER = 1,
};

struct tagRouteInfo {
    char m_cOSPFName[37];
    char m_cNBRName[37];
    char m_cSVRName[261];
    char m_cPluginID[261];
    int m_iConnectID;
    unsigned char m_ucMemberID;
};

// Process-wide (per loaded plug-in) message counters and factory.
extern unsigned long g_ulGetESBNum;
extern unsigned long g_ulReleaseESBNum;
extern IESBMessageFactory* g_lpMsgFactory;

// Obtain a message from g_lpMsgFactory (four attempts); null when none.
IESBMessage* GetESBMsgEx(int callerLine);
// Give a message back; null is ignored.
void ReleaseESBMsgEx(IESBMessage* msg);
// Write the route into item 9 of the message; -1 for a null argument.
int SetRouteInfo(tagRouteInfo* route, IESBMessage* msg);
