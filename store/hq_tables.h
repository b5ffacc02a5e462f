// The four quote tables of the service and their UDP record parsers.
// Each parser fills the caller's cleared record from ','-separated text and
// stores it with AddHQInfo(record, 0); it returns the first failing reader's
// code (-1, -2, -3) or AddHQInfo's result. The text must be NUL-terminated.
#pragma once

#include "store/base_hq_info.h"

class CTIKRONInfo : public CBaseHQInfo<tagHQInfo, DefaultBaseHQInfoTraits<tagHQInfo>> {
public:
    explicit CTIKRONInfo(const char* pszPath) : CBaseHQInfo(pszPath) {}
    int GetHQFromData(const char* pData, int iLen, tagHQInfo* pRec) override;
};

class CTIKRONInfo_EX : public CBaseHQInfo<tagHQInfo_EX, DefaultBaseHQInfoTraits<tagHQInfo_EX>> {
public:
    explicit CTIKRONInfo_EX(const char* pszPath) : CBaseHQInfo(pszPath) {}
    // Same fields as the legacy layout, then time_stamp unless the text
    // continues with '&'.
    int GetHQFromData(const char* pData, int iLen, tagHQInfo_EX* pRec) override;
};

class CTIKRONARGInfo : public CBaseHQInfo<tagArgHQInfo, DefaultBaseHQInfoTraits<tagArgHQInfo>> {
public:
    explicit CTIKRONARGInfo(const char* pszPath) : CBaseHQInfo(pszPath) {}
    int GetHQFromData(const char* pData, int iLen, tagArgHQInfo* pRec) override;
};

class CExchStatusInfo : public CBaseHQInfo<tagEXCHSTATUS, ExchStatusInfoTraits<tagEXCHSTATUS>> {
public:
    explicit CExchStatusInfo(const char* pszPath) : CBaseHQInfo(pszPath) {}
    int GetHQFromData(const char* pData, int iLen, tagEXCHSTATUS* pRec) override;
};
