// Report record types of the scratch records held by the service and by
// each message worker.
#pragma once

#include "wire/report_records.h"

typedef tagHB STHB;
typedef tagCJ STCJ;
typedef tagCJ_EX STCJ_EX;
typedef tagWTQR STWTQR;
typedef tagWTQR_EX STWTQR_EX;
typedef tagBJHB STBJHB;
