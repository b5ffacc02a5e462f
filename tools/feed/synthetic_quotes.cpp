#include "tools/feed/synthetic_quotes.h"

#include <cmath>
#include <cstdio>
#include <ctime>

#include "tools/feed/feed_lines.h"

namespace feed {

namespace {

struct Product {
    const char* code;
    const char* exchange;  // F1 CZCE, F2 DCE, F3 SHFE, F4 CFFEX, F5 INE
    bool threeDigitMonth;  // CZCE codes carry one year digit: SR501
    double tick;
    double mid;
};

const Product kProducts[] = {
    {"IF", "F4", false, 0.2, 3860},   {"IC", "F4", false, 0.2, 5720},  {"IH", "F4", false, 0.2, 2650},
    {"T", "F4", false, 0.005, 106.4}, {"rb", "F3", false, 1, 3420},    {"cu", "F3", false, 10, 74200},
    {"au", "F3", false, 0.02, 612.5}, {"ag", "F3", false, 1, 7650},    {"m", "F2", false, 1, 2960},
    {"i", "F2", false, 0.5, 798},     {"p", "F2", false, 2, 8450},     {"c", "F2", false, 1, 2210},
    {"SR", "F1", true, 1, 5980},      {"CF", "F1", true, 5, 13850},    {"TA", "F1", true, 2, 4890},
    {"MA", "F1", true, 1, 2580},      {"sc", "F5", false, 0.1, 546.3},
};
constexpr size_t kProductCount = sizeof kProducts / sizeof kProducts[0];
constexpr int kYears = 6;  // 2024..2029 delivery years, 12 months each

double RoundTick(double v, double tick) { return std::round(v / tick) * tick; }

}  // namespace

SyntheticQuotes::SyntheticQuotes(size_t n, uint32_t variant) : m_rng(variant) {
    if (n == 0) n = 1;
    if (n > 100000) n = 100000;
    const size_t base = kProductCount * kYears * 12;
    m_contracts.reserve(n);
    for (size_t i = 0; i < n; ++i) {
        const size_t b = i % base;
        const Product& p = kProducts[b % kProductCount];
        const int month = static_cast<int>((b / kProductCount) % 12) + 1;
        const int year = 24 + static_cast<int>(b / (kProductCount * 12));
        char code[32];
        if (p.threeDigitMonth)
            snprintf(code, sizeof code, "%s%d%02d", p.code, year % 10, month);
        else
            snprintf(code, sizeof code, "%s%02d%02d", p.code, year, month);
        SyntheticContract c;
        c.code = code;
        // Beyond the futures list: option-style series "rb2501C1001" (11 characters at most).
        if (i >= base) c.code += "C" + std::to_string(1000 + i / base);
        c.exchange = p.exchange;
        c.tick = p.tick;
        // Each contract sits a little off its product's mid price.
        c.mid = RoundTick(p.mid * (1.0 + 0.002 * static_cast<double>(month % 7) - 0.004 * (year - 24)), p.tick);
        c.preSettle = c.mid;
        c.last = c.mid;
        c.openInterest = 20000 + static_cast<long>((i * 7919) % 180000);
        m_contracts.push_back(c);
    }
}

std::string SyntheticQuotes::RecordText(size_t i) const {
    const SyntheticContract& c = m_contracts[i % m_contracts.size()];
    const double t = c.tick;
    const double bid = RoundTick(c.last - t, t), ask = RoundTick(c.last + t, t);
    const double high = std::max(c.last, RoundTick(c.mid * 1.012, t));
    const double low = std::min(c.last, RoundTick(c.mid * 0.988, t));
    const double up = RoundTick(c.preSettle * 1.1, t), down = RoundTick(c.preSettle * 0.9, t);
    const double avg = RoundTick((high + low + c.last) / 3, t);
    const double change = c.last - c.preSettle;
    const long vol = c.volume;
    const double balance = static_cast<double>(vol) * c.last * 10;
    time_t now = time(nullptr);
    struct tm lt;
    localtime_r(&now, &lt);
    const int hhmmss = lt.tm_hour * 10000 + lt.tm_min * 100 + lt.tm_sec;
    const int d1 = static_cast<int>(i % 17) + 3;  // depth volumes
    char buf[1024];
    // 47 fields in the back end's order, then the time stamp; the skipped
    // field (8th group) carries "X".
    snprintf(buf, sizeof buf,
             "%s,%.3f,%.3f,%.3f,%.3f,%d,%d,%.3f,%d,%d,%.3f,%.3f,%.3f,%.3f,%ld,%ld,%.1f,%.3f,%.3f,X,"
             "0,0,0,0,%.3f,%ld,0,0,0,0,"
             "%.3f,%d,%.3f,%d,%.3f,%d,%.3f,%d,%.3f,%d,%.3f,%d,%.3f,%d,%.3f,%d,%s,%d,",
             c.code.c_str(), c.preSettle, c.mid, c.last, bid, d1, d1 * 31, ask, d1 + 2, d1 * 29, high, low, avg,
             change, vol, c.openInterest, balance, up, down, c.preSettle, c.openInterest - 1200,
             bid - t, d1 + 1, bid - 2 * t, d1 + 3, bid - 3 * t, d1 + 5, bid - 4 * t, d1 + 7,
             ask + t, d1 + 2, ask + 2 * t, d1 + 4, ask + 3 * t, d1 + 6, ask + 4 * t, d1 + 8,
             c.exchange.c_str(), hhmmss);
    return buf;
}

std::string SyntheticQuotes::Next() {
    const size_t i = m_next;
    m_next = (m_next + 1) % m_contracts.size();
    SyntheticContract& c = m_contracts[i];
    // A mean-reverting walk of a few ticks around the mid price.
    std::uniform_int_distribution<int> step(-3, 3);
    double drift = (c.mid - c.last) / c.tick * 0.1;
    double next = c.last + (step(m_rng) + std::round(drift)) * c.tick;
    if (next < c.mid * 0.92) next = c.mid * 0.92;
    if (next > c.mid * 1.08) next = c.mid * 1.08;
    c.last = RoundTick(next, c.tick);
    c.volume += 1 + static_cast<long>(m_rng() % 40);
    return Frame('0', RecordText(i));
}

}  // namespace feed
