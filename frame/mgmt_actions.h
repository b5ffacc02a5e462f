// Management console actions 0-8 (function_id of the request), each filling
// the answer packer with one table. All return 0.
#pragma once

#include "frame/message_service.h"

int mf_GetFuncList(CMessageServiceImpl* service, IF2UnPacker* request, IF2Packer* answer);
int mf_GetHQInfo(CMessageServiceImpl* service, IF2UnPacker* request, IF2Packer* answer);
int mf_GetHQInfo_EX(CMessageServiceImpl* service, IF2UnPacker* request, IF2Packer* answer);
int mf_GetARGHQInfo(CMessageServiceImpl* service, IF2UnPacker* request, IF2Packer* answer);
int mf_GetExchStatusInfo(CMessageServiceImpl* service, IF2UnPacker* request, IF2Packer* answer);
int mf_GetStatInfo(CMessageServiceImpl* service, IF2UnPacker* request, IF2Packer* answer);
int mf_GetConfInfo(CMessageServiceImpl* service, IF2UnPacker* request, IF2Packer* answer);
int mf_GetESBInfo(CMessageServiceImpl* service, IF2UnPacker* request, IF2Packer* answer);
int mf_GetAutoList(CMessageServiceImpl* service, IF2UnPacker* request, IF2Packer* answer);

// Enters actions 0-8 with their captions in the service's action list.
void RegisterManagementActions(CMessageServiceImpl& service);
