// Publication steps shared by the trade-report handlers: obtain a message,
// pack the subscription key into item 54, prepare the function number and
// issue type, pack the body into item 8, optionally write the encoded message
// to the trade-report log, and hand it on.
#pragma once

#include <functional>

#include "frame/tikron_service.h"

namespace tikron {

// Function numbers of what the relay publishes.
constexpr int kFuncPublish = 620003;       // quote publications and conversions
constexpr int kFuncReportPublish = 620031; // reports from the back end

enum class ReportKeyKind {
    BranchFundInt,   // "branch_no" int, "fund_account" int (binary report records)
    BranchFundText,  // "branch_no" int, "fund_account" text (text records)
    FundText,        // "fund_account" text only (offset and margin reports)
    Raw,             // the given bytes as they are (an incoming message's key)
};

struct ReportKey {
    ReportKeyKind kind = ReportKeyKind::BranchFundText;
    int branchNo = 0;
    int fundInt = 0;
    const char* fundText = "";
    const void* raw = nullptr;
    int rawLen = 0;
};

struct ReportTarget {
    int functionNo = kFuncReportPublish;
    int issueType = 0;
    bool tradeLog = false;  // write the encoded message to the trade-report log
};

enum PublishResult {
    PUBLISH_NO_MESSAGE = 0,  // no message from the host: skipped silently
    PUBLISH_DONE = 1,        // handed on (or released after a refusal)
    PUBLISH_NO_PACKER = -1,  // no packer available: logged, message released
};

// Packs the body columns and the one row; the packer is between BeginPack
// and EndPack.
using BodyPacker = std::function<void(IF2Packer&)>;

// packer: the packer to use (kept); null takes a version-33 packer from the
// service's pack service for this message and releases it afterwards.
int PublishMessage(CTIKRONServiceImpl& svc, IF2Packer* packer, const ReportTarget& target,
                   const ReportKey& key, const BodyPacker& body);

// One "QH" text column holding text, keyed by the fund account only (the
// offset-setting and margin-account records).
int PublishFundText(CTIKRONServiceImpl& svc, int functionNo, int issueType, const char* fundAccount,
                    const char* text);

// Column declarations used by the report messages.
void AddStrColumn(IF2Packer& p, const char* name);   // 'S', 255, 4
void AddTextColumn(IF2Packer& p, const char* name);  // 'S', 1024, 4
void AddRawColumn(IF2Packer& p, const char* name);   // 'R', 10240, 4

}  // namespace tikron
