// Trade-report text records (fields separated by 0x01) and the copies from
// the extended to the legacy report layouts:
//   33101 deal / entrust confirmation  <-> tagHB, tagCJ_EX, tagWTQR_EX
//   33301 quote report (tagBJHB), 33300 inquiry quote (tagXJ),
//   33117 offset setting (tagOFFSET), 33106 margin order (tagZJZHBZJHB).
//
// Writers take the caller's buffer (normally a zeroed 1024-byte one) and
// never write past iSize. Results: 0; -1 for a null argument or iSize below
// 1; QUOTE_TEXT_TRUNCATED when the text did not fit (it is cut at the bound
// and terminated). For every record whose text fits, the bytes are exactly
// those of the record format.
//
// A one-character field printed with "%c" that holds 0 puts a zero byte into
// the text: used as a C string, the text then ends there (the bytes after it
// are still written).
#pragma once

#include "quote/quote_text.h"
#include "wire/report_records.h"

// 43-field 33101 text from the working report: the deal variant when
// business_type starts with 'B', else the entrust variant.
int ConvertHbTo33101(tagHB* pHB, char* pszText, int iSize);
// 30-field deal text from the extended deal record.
int ConvertCjTo33101(tagCJ_EX* pCJ, char* pszText, int iSize);
// 27-field entrust text from the extended entrust confirmation.
int ConvertHbTo33101(tagWTQR_EX* pWTQR, char* pszText, int iSize);

// Parse a 33101 text (at most 1022 bytes) into an extended record: deal
// fields 1-29, entrust fields 1-26. The exchange code becomes its name and
// the codes become words. Returns 0, -1 for a null argument,
// QUOTE_TEXT_TOO_LONG, or the first failing field reader's code with the
// fields before it filled. The last argument is not used.
int Convert33101ToCj(const char* pszText, tagCJ_EX* pCJ, int iSize);
int Convert33101ToWT(const char* pszText, tagWTQR_EX* pWTQR, int iSize);

// Extended to legacy layout: every legacy field from the field of the same
// name, texts with at most width-1 bytes (the target's last byte is left as
// it was), entrust_occasion dropped. Returns 0, or -1 for a null source.
int ConvertCj23To17(tagCJ_EX* pSource, tagCJ& dest);
int ConvertHb23To17(tagWTQR_EX* pSource, tagWTQR& dest);

// 29-field quote report text.
int ConvertBJHbTo33301(tagBJHB* pBJ, char* pszText, int iSize = 1024);
// 4-field inquiry quote text.
int ConvertXJHqTo33300(tagXJ* pXJ, char* pszText, int iSize = 1024);
// 11-field offset setting text.
int ConvertOffsetTo33117(tagOFFSET* pOffset, char* pszText, int iSize = 1024);
// 32-field margin order text (amount_per_hand is not part of it).
int ConvertZJZH_BZJHBTo33106(tagZJZHBZJHB* pZJ, char* pszText, int iSize = 1024);
