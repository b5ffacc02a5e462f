// Subscription requests to the message center, read from the "mc" element of
// the configuration: one node per request with its list of body fields.
#pragma once

#include "frame/esb_message.h"

struct tagKeyInfo {
    char cKeyName[64];    // field name of the request body
    char cKeyValue[64];   // field value, sent as a string
    tagKeyInfo* m_pNext;  // next parameter
};

struct tagRequestNode {
    char cName[256];            // display name ("note")
    unsigned long ulFunctionNo; // function number of the request
    int iSender;                // always 0
    int iBranchNo;              // branch number, shown only
    int iIssueType;             // issue type subscribed to (tag 53)
    int iSendTime;              // not set
    tagKeyInfo* pParamList;     // body fields in configuration order
    int m_iResult;              // not set
    tagRouteInfo szRouteInfo;   // route: OSPF name, server name, plug-in id
    unsigned long ulPacketID;   // 1, 2, 3 ... in configuration order
    tagRequestNode* pNext;      // link in the answered list
};

// Frees a node together with its parameter list; null is ignored.
void FreeRequestNode(tagRequestNode* node);
