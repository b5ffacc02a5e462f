#include "store/hq_tables.h"
#include "store/single_leg_fields.h"

int CTIKRONInfo::GetHQFromData(const char* pData, int iLen, tagHQInfo* pRec) {
    if (pData == nullptr || iLen < 1 || pRec == nullptr) return -1;
    const char* cur = pData;
    int r = tikron_store::ReadSingleLegFields(&cur, *pRec);
    if (r != 0) return r;
    return AddHQInfo(pRec, 0);
}

int CTIKRONInfo_EX::GetHQFromData(const char* pData, int iLen, tagHQInfo_EX* pRec) {
    if (pData == nullptr || iLen < 1 || pRec == nullptr) return -1;
    const char* cur = pData;
    int r = tikron_store::ReadSingleLegFields(&cur, *pRec);
    if (r != 0) return r;
    if (*cur != '&') {
        int iStamp = 0;
        r = GetNextValue(&cur, 1, iStamp, ',');
        if (r != 0) return r;
        pRec->time_stamp = iStamp;
    }
    return AddHQInfo(pRec, 0);
}
