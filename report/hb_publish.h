// The three publications of one working report (extended record 23, text
// 33101, legacy record 17) and the status rules applied before them; shared
// by the message-center and the UDP report handlers.
#pragma once

#include "frame/tikron_service.h"

namespace tikron {

// Status rules, in order: with sysVersion 1 the back end's status is
// translated (an unknown status stays); a deal ('B') with status '5' gets '7';
// status '7' or '8' with business_no starting with '0' and business_type '0'
// gets '2'.
void ApplyStatusRules(tagHB& hb, int sysVersion);

// Scratch records the publications are packed from.
struct HBScratch {
    tagCJ_EX* cjEx;
    tagCJ* cj;
    tagWTQR_EX* wtqrEx;
    tagWTQR* wtqr;
};

struct HBPublishOptions {
    IF2Packer* packer = nullptr;   // null: one packer per message from the pack service
    int legacyCodeLimit = 9;       // longer contract codes skip the legacy record
    bool lyAsString = false;       // "LY" added with AddStr instead of AddChar
    bool countLegacy = false;      // the legacy record moves the counters again
};

// Publishes 23, 33101 and (contract code within the limit) 17 from hb. The
// business_type is cut to its first character first. Deals count in
// m_uiRecvCJNum, entrust confirmations in m_uiRecvWTQRNum, only when a
// message was obtained.
void PublishHBReports(CTIKRONServiceImpl& svc, tagHB& hb, const HBScratch& scratch,
                      const HBPublishOptions& opt);

}  // namespace tikron
