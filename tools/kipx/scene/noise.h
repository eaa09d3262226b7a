// noise.h - random numbers, smooth noise and camera noise, in integers only.
//
// Gives    counter-based random words, lattice noise, Poisson and normal deviates.
// Promises the same numbers on every machine and in every later version: pictures made with them are
//          pinned by their checksums. Every value depends on its key alone, so that rows may be made
//          in any order.
#pragma once

#include <cstdint>

// Thorough mixing of a word: a bijection, the finaliser of a counter-based generator.
inline uint64_t mixed(uint64_t word) {
    word ^= word >> 30;
    word *= 0xBF58476D1CE4E5B9u;
    word ^= word >> 27;
    word *= 0x94D049BB133111EBu;
    return word ^ (word >> 31);
}

// A stream of random words that starts at a key.
class Random {
public:
    explicit Random(uint64_t key) : state_(mixed(key)) {}
    uint64_t next() { return mixed(state_ += 0x9E3779B97F4A7C15u); }
    // 0 to limit - 1.
    uint32_t below(uint32_t limit) { return uint32_t(((next() >> 32) * limit) >> 32); }
    // least to greatest, both included.
    int32_t between(int32_t least, int32_t greatest) {
        return least + int32_t(below(uint32_t(greatest - least) + 1));
    }

private:
    uint64_t state_;
};

// The whole part of the square root.
uint32_t root(uint64_t value);

// Smooth noise from -32768 to 32767 at a place in 1/16 pixel; one hill is 2^shift sixteenths wide.
int32_t lattice_noise(uint64_t key, int64_t x, int64_t y, int shift);

// A normal deviate in 1/256 of its standard deviation.
int32_t normal(Random &random);

// The number of photons that arrive where expected sixteenths of one are expected.
int32_t photons(Random &random, int32_t expected);
