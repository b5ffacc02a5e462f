// Quote text records (fields separated by 0x01) and their converters:
//   33105 exchange status   <-> tagEXCHSTATUS (issue type 24)
//   33102 arbitrage quote   <-> tagArgHQInfo  (issue type 18)
//   33100 single-leg quote  <-> tagHQInfo_EX (22) / tagHQInfo (16)
// plus ConvertExch between exchange names and exchange codes. All functions
// are pure and may run on any thread at once.
#pragma once

#include "wire/quote_records.h"

// Results beyond the field reader's own codes (-1, -2, -3).
constexpr int QUOTE_TEXT_TOO_LONG = -4;   // input text longer than the working buffer
constexpr int QUOTE_TEXT_TRUNCATED = -5;  // output buffer too small: text cut at its size

// Longest text the readers accept (the working buffer holds it plus the
// appended separator and the terminator).
constexpr int QUOTE_TEXT_MAX_LEN = 4094;

// Writers. The output is bounded by size; for any record whose text fits,
// the text is exactly the one of the formats. Result 0, or
// QUOTE_TEXT_TRUNCATED (text cut, still terminated), or -1 for a null
// argument or size below 1.
int Convert24To33105(tagEXCHSTATUS* pRecord, char* pszText, int iSize);
int Convert18To33102(tagArgHQInfo* pRecord, char* pszText, int iSize);

// Writes the body from position 15 of the buffer, then the header
// "0\x01<body length>\x01" so that it ends exactly at position 15; returns
// where the header starts (the whole text runs from there). A body cut at
// size carries the length of what was written. A buffer of 16 bytes or less
// gets an empty text and the buffer itself is returned; null buffer: null.
char* Convert22To33100(tagHQInfo_EX* pRecord, char* pszBuffer, int iSize);

// Readers: 0, the first failing field reader's code, -1 for a null argument
// or QUOTE_TEXT_TOO_LONG. The 33105 and 33102 readers leave the fields read
// before a failure filled; the 33100 readers leave the record untouched on
// any failure.
int Convert33105To24(const char* pszText, tagEXCHSTATUS* pRecord);
int Convert33102To18(const char* pszText, tagArgHQInfo* pRecord);
int Convert33100To22(const char* pszText, tagHQInfo_EX* pRecord);
int Convert33100To16(const char* pszText, tagHQInfo* pRecord);

// Copies every field the legacy layout has (contract code bounded to 12
// characters, exchange code to 2); time_stamp is dropped. Returns 0, or -1
// for a null source.
int ConvertHq22To16(tagHQInfo_EX* pSource, tagHQInfo& dest);

// bToCode: exchange name (GBK) to code "F1".."F5" by substring, first match
// wins in the order 郑, 大, 上海, 金融, 能源/原油. Otherwise: code to name by
// its second character '1'..'5'. Unmatched input is returned itself; a null
// input gives "".
const char* ConvertExch(const char* pszExch, bool bToCode);
