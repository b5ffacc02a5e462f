// Number formatting for the text records without printf: the same bytes as
// printf's "%f" (six decimals) and "%d", a good deal faster. Quotes write
// about forty numbers per record, so this sits on the ingest path.
#pragma once

#include <cstddef>

namespace tikron {

// Longest "%f" text of any double: sign, 309 integer digits, point, six
// decimals (and room for "-nan"/"-inf").
constexpr std::size_t kFixed6MaxLen = 320;
// Longest "%d" text of an int: "-2147483648".
constexpr std::size_t kIntMaxLen = 11;

// Writes printf("%f", value) at out (no terminator); out must hold
// kFixed6MaxLen bytes. Returns the end of the text. Exact for every double:
// correctly rounded, ties to even, "-0.000000" for negative zero and for
// negative values that round to zero; non-finite values go through snprintf
// so "inf", "-nan" etc. are exactly the C library's.
char* FormatFixed6(char* out, double value);

// Writes printf("%d", value) at out (no terminator); out must hold
// kIntMaxLen bytes. Returns the end of the text.
char* FormatInt(char* out, int value);

}  // namespace tikron
