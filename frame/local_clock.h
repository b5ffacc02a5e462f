// Local date and time of day as integers (YYYYMMDD, HHMMSS).
#pragma once

#include <ctime>

inline int LocalDateYmd() {
    time_t now = time(nullptr);
    struct tm t;
    localtime_r(&now, &t);
    return (t.tm_year + 1900) * 10000 + (t.tm_mon + 1) * 100 + t.tm_mday;
}

inline int LocalTimeHms() {
    time_t now = time(nullptr);
    struct tm t;
    localtime_r(&now, &t);
    return t.tm_hour * 10000 + t.tm_min * 100 + t.tm_sec;
}
