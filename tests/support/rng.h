// support/rng.h - the tests' own random numbers: the same sequence on every machine.
//
// Gives    64-bit words from a counter passed through a mixing function, and draws made from them.
// Promises equal seeds give equal draws; no draw depends on the standard library's distributions.
#ifndef KIPX_TESTS_SUPPORT_RNG_H
#define KIPX_TESTS_SUPPORT_RNG_H

#include <cstdint>
#include <iterator>

namespace kipx::test {

class Rng {
public:
    explicit Rng(uint64_t seed = 1) : state_(seed * 0x9E3779B97F4A7C15u + 0xD1B54A32D192ED03u) {}

    uint64_t next() {
        state_ += 0x9E3779B97F4A7C15u;
        uint64_t z = state_;
        z = (z ^ (z >> 32)) * 0xD6E8FEB86659FD93u;
        z = (z ^ (z >> 32)) * 0xD6E8FEB86659FD93u;
        return z ^ (z >> 32);
    }

    // 0 <= result < n; n of 0 counts as 1. The bias of the modulo does not matter to a test.
    uint64_t below(uint64_t n) { return next() % (n ? n : 1); }

    // low <= result <= high.
    int64_t between(int64_t low, int64_t high) {
        const uint64_t span = static_cast<uint64_t>(high) - static_cast<uint64_t>(low) + 1;
        const uint64_t draw = span ? next() % span : next();
        return static_cast<int64_t>(static_cast<uint64_t>(low) + draw);
    }

    // True once in n times.
    bool one_in(uint64_t n) { return below(n) == 0; }

    // 0 <= result < 1 in steps of 2^-53.
    double unit() { return static_cast<double>(next() >> 11) * 0x1p-53; }

    template<class List> const auto &pick(const List &list) { return list[below(std::size(list))]; }

private:
    uint64_t state_;
};

} // namespace kipx::test

#endif
