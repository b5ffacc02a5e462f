// Filling the deal and entrust confirmation records from the working report
// and adding them to a packer's current row as the raw value.
#pragma once

#include "frame/host_interfaces.h"
#include "wire/report_records.h"

// Each zeroes the whole target, fills it from the report, then calls
// PackRaw(target, size). size is normally 304 for the extended and 248 for
// the legacy layouts; it is clamped to [0, record size], so the packing
// never reads past the record. A negative PackRaw
// result is logged (code 15006, "add raw fail, result: %d, size: %d!") under
// "CTIKRONServiceImpl::HBToCJ_EX" for both extended layouts and
// "CTIKRONServiceImpl::HBToCJ" for both legacy ones; a null log skips the
// line. Returns 0; -1 only for a null report or target (nothing is packed).
// A null packer fills the target and packs nothing.
int HBToCJ(ILogService* pLog, IF2Packer* pPacker, tagHB* pHB, tagCJ_EX* pOut, int iSize);
int HBToCJ(ILogService* pLog, IF2Packer* pPacker, tagHB* pHB, tagCJ* pOut, int iSize);
int HBToWTQR(ILogService* pLog, IF2Packer* pPacker, tagHB* pHB, tagWTQR_EX* pOut, int iSize);
int HBToWTQR(ILogService* pLog, IF2Packer* pPacker, tagHB* pHB, tagWTQR* pOut, int iSize);

// Leading decimal digits of a fund account text of at most 19 bytes as an
// integer (saturating at INT_MAX); 0 when it does not start with a digit.
int FundAccountToInt(const char (&szFundAccount)[19]);
