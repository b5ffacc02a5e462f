// Date and time of day (YYYYMMDD, HHMMSS, local time) of a given instant,
// for the heartbeat's clock.
#pragma once

#include <ctime>

inline int DateYmdAt(time_t when) {
    struct tm t;
    if (localtime_r(&when, &t) == nullptr) return 0;
    return (t.tm_year + 1900) * 10000 + (t.tm_mon + 1) * 100 + t.tm_mday;
}

inline int TimeHmsAt(time_t when) {
    struct tm t;
    if (localtime_r(&when, &t) == nullptr) return 0;
    return t.tm_hour * 10000 + t.tm_min * 100 + t.tm_sec;
}
