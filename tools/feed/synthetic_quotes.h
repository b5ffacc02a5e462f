// A synthetic single-leg quote stream: '0' records of realistic futures
// contracts of the Chinese exchanges, prices walking around a mid price.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace feed {

struct SyntheticContract {
    std::string code;      // e.g. "IF2412", "rb2505"
    std::string exchange;  // F1..F5
    double tick = 1;       // price step
    double mid = 0;        // price the walk moves around
    double last = 0;
    double preSettle = 0;
    long volume = 0;
    long openInterest = 0;
};

class SyntheticQuotes {
public:
    // n contracts (1..100000) built from the product list with rolling
    // delivery months; the same n always gives the same contracts, and the
    // price walk is reproducible for the same `variant`.
    SyntheticQuotes(size_t n, uint32_t variant = 1);

    // The next datagram: the contracts in turn, each with a new price.
    std::string Next();
    const std::vector<SyntheticContract>& Contracts() const { return m_contracts; }
    // The record text (without framing) of contract i at its current state.
    std::string RecordText(size_t i) const;

private:
    std::vector<SyntheticContract> m_contracts;
    size_t m_next = 0;
    std::mt19937 m_rng;
};

}  // namespace feed
