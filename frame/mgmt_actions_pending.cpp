// Management actions without their table bodies yet: each answers nothing.
#include "frame/mgmt_actions.h"

int mf_GetFuncList(CMessageServiceImpl*, IF2UnPacker*, IF2Packer*) { return 0; }
int mf_GetHQInfo(CMessageServiceImpl*, IF2UnPacker*, IF2Packer*) { return 0; }
int mf_GetHQInfo_EX(CMessageServiceImpl*, IF2UnPacker*, IF2Packer*) { return 0; }
int mf_GetARGHQInfo(CMessageServiceImpl*, IF2UnPacker*, IF2Packer*) { return 0; }
int mf_GetExchStatusInfo(CMessageServiceImpl*, IF2UnPacker*, IF2Packer*) { return 0; }
int mf_GetStatInfo(CMessageServiceImpl*, IF2UnPacker*, IF2Packer*) { return 0; }
int mf_GetConfInfo(CMessageServiceImpl*, IF2UnPacker*, IF2Packer*) { return 0; }
int mf_GetESBInfo(CMessageServiceImpl*, IF2UnPacker*, IF2Packer*) { return 0; }
int mf_GetAutoList(CMessageServiceImpl*, IF2UnPacker*, IF2Packer*) { return 0; }
