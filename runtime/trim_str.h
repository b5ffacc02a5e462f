// Whitespace trimming of texts read from records.
#pragma once

#include <string>

// s without leading and trailing blank, BEL, BS, FF, LF, CR, TAB and VT.
std::string TrimStr(std::string& s);
