#include "report/report_codes.h"

#include <cstddef>
#include <cstring>

namespace {

struct CodeWord {
    char code;
    const char* word;
};

// Open/close has no code '3': it is absent in both directions on purpose.
constexpr CodeWord kBS[] = {{'1', "买入"}, {'2', "卖出"}};
constexpr CodeWord kKP[] = {{'1', "开仓"}, {'2', "平仓"}, {'4', "平今仓"}};
constexpr CodeWord kHedge[] = {{'0', "投机"}, {'1', "套保"}, {'2', "套利"}};

constexpr std::size_t kWordWidth = 9;  // char[9] word fields of the records

template <std::size_t N>
const char* ToWord(const CodeWord (&table)[N], char code) {
    for (const CodeWord& e : table)
        if (e.code == code) return e.word;
    return " ";
}

template <std::size_t N>
char ToCode(const CodeWord (&table)[N], const char* word) {
    if (word == nullptr) return ' ';
    // The record field may lack its terminator; never look past its width.
    const std::size_t len = strnlen(word, kWordWidth);
    for (const CodeWord& e : table)
        if (std::strlen(e.word) == len && std::memcmp(e.word, word, len) == 0) return e.code;
    return ' ';
}

}  // namespace

const char* ConvertBS(char code) { return ToWord(kBS, code); }
const char* ConvertKP(char code) { return ToWord(kKP, code); }
const char* ConvertHedge(char code) { return ToWord(kHedge, code); }

char ConvertBS(const char* word) { return ToCode(kBS, word); }
char ConvertKP(const char* word) { return ToCode(kKP, word); }
char ConvertHedge(const char* word) { return ToCode(kHedge, word); }
