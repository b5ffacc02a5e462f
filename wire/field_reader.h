// Field reader for the ','-separated record text of UDP datagrams, plus the
// small time and status helpers of the same module.
//
// Every reader takes a cursor into a NUL-terminated text, a length, the
// destination and the delimiter. On success it returns 0 and moves the cursor
// one past the delimiter that ended the field; on failure it returns a
// negative code and leaves the cursor unchanged.
#pragma once

// Character field: len must be exactly 1; the destination gets the field's
// first character. -1 bad arguments, -2 no delimiter left, -3 empty field.
int GetNextValue(const char** ppCur, int len, char& cOut, char delim);

// Integer field of at most 16 characters, converted as atoi does (empty
// reads 0). len must be positive. -1 bad arguments, -2 no delimiter left,
// -3 field of 17 characters or more.
int GetNextValue(const char** ppCur, int len, int& iOut, char delim);

// Text field copied into pszOut of capacity len (at most len-1 characters,
// NUL-terminated). The last field may end at the end of the text without a
// delimiter; the cursor then stays where it was, so a further read sees the
// same text. -1 bad arguments, -2 field longer than len-1.
int GetNextValue(const char** ppCur, int len, char* pszOut, char delim);

// Floating-point field of at most 32 characters, converted as atof does
// (empty reads 0.0). len must be positive. -1 bad arguments, -2 no delimiter
// left, -3 field of 33 characters or more.
int GetNextValue(const char** ppCur, int len, double& dOut, char delim);

// True when the current locale's radix character is '.'. A caller reading
// many double fields of one record asks once and passes the answer to the
// overload below instead of having each field ask again.
bool RadixIsDot();

// The double reader with the radix check already made: radixIsDot must be
// RadixIsDot()'s answer for the current locale. Same results and codes.
int GetNextValue(const char** ppCur, int len, double& dOut, char delim, bool radixIsDot);

// Maps a trading-status character of the feed to the report status
// character; unknown input gives the byte 0xFF.
char StatusSwtich(char c);

// Local time as HHMMSS and local date as YYYYMMDD.
int GetTime();
int GetDate();
