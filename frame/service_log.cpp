#include "frame/service_log.h"

#include <cstdarg>
#include <cstdio>

void TikronLog(ILogService* log, const char* function, const char* fmt, ...) {
    if (log == nullptr) return;
    char text[4096];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(text, sizeof(text), fmt, ap);
    va_end(ap);
    log->AddLog(function, TIKRON_LOG_CODE, text);
}
