// printf-style lines into the host log service (code 15006). A null log
// service skips the line.
#pragma once

#include "frame/host_interfaces.h"

enum { TIKRON_LOG_CODE = 15006 };

// Formats at most 4095 bytes; longer lines are cut.
void TikronLog(ILogService* log, const char* function, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));
