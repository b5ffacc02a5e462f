// Code tables of trade reports: buy/sell, open/close and hedge flag as the
// one-character codes of the back end and the 33101 text, and as the GBK
// words carried in the report records.
#pragma once

// Code to word: a constant GBK text; any unknown code gives " ".
const char* ConvertBS(char code);
const char* ConvertKP(char code);
const char* ConvertHedge(char code);

// Word to code: the whole word (at most 9 bytes are looked at, the width of
// the record fields) must match exactly; any other word, a null pointer
// included, gives ' '.
char ConvertBS(const char* word);
char ConvertKP(const char* word);
char ConvertHedge(const char* word);
