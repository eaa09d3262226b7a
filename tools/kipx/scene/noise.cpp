// noise.cpp - see noise.h.
#include "scene/noise.h"

#include <bit>

uint32_t root(uint64_t value) {
    uint64_t out = 0;
    for (uint64_t bit = uint64_t(1) << 62; bit; bit >>= 2) {
        if (value >= out + bit) {
            value -= out + bit;
            out = (out >> 1) + bit;
        } else {
            out >>= 1;
        }
    }
    return uint32_t(out);
}

namespace {

int32_t corner(uint64_t key, int64_t x, int64_t y) {
    const uint64_t place = uint64_t(x) * 0x9E3779B97F4A7C15u ^ uint64_t(y) * 0xC2B2AE3D27D4EB4Fu;
    return int32_t(mixed(key ^ place) >> 48) - 32768;
}

} // namespace

int32_t lattice_noise(uint64_t key, int64_t x, int64_t y, int shift) {
    const int64_t x0 = x >> shift, y0 = y >> shift;
    // Fractions in 1/32768, bent so that hills have no creases: 3t^2 - 2t^3.
    const auto bent = [shift](int64_t offset) {
        const int64_t t = shift <= 15 ? offset << (15 - shift) : offset >> (shift - 15);
        return (t * t * (3 * 32768 - 2 * t)) >> 30;
    };
    const int64_t tx = bent(x - (x0 << shift)), ty = bent(y - (y0 << shift));
    const int64_t top = corner(key, x0, y0) * (32768 - tx) + corner(key, x0 + 1, y0) * tx;
    const int64_t bottom =
        corner(key, x0, y0 + 1) * (32768 - tx) + corner(key, x0 + 1, y0 + 1) * tx;
    return int32_t(((top >> 15) * (32768 - ty) + (bottom >> 15) * ty) >> 15);
}

int32_t normal(Random &random) {
    // 128 fair coins: mean 64, deviation 5.657, so one coin is 45.25 of the 256 units; what lies
    // between two counts is filled evenly.
    const int32_t coins = std::popcount(random.next()) + std::popcount(random.next());
    return ((coins - 64) * 4525) / 100 + random.between(-22, 22);
}

int32_t photons(Random &random, int32_t expected) {
    if (expected <= 0) return 0;
    if (expected >= 32 * 16) {
        // The normal deviate, skewed as the Poisson distribution is: l + sqrt(l) g + (g^2 - 1) / 6.
        const int64_t g = normal(random);
        const int64_t deviation = root(uint64_t(expected) << 4); // in sixteenths
        const int64_t sixteenths =
            expected + deviation * g / 256 + (g * g - 65536) * 16 / (6 * 65536);
        return sixteenths > 0 ? int32_t((sixteenths + 8) >> 4) : 0;
    }
    // Sums of deviates of mean 1, by the table of their distribution times 2^32; the last one is
    // thinned to the fraction that is left.
    static constexpr uint32_t distribution[] = {1580030169, 3160060337, 3950075422, 4213413783,
                                                4279248374, 4292415292, 4294609778, 4294923276,
                                                4294962463, 4294966817, 4294967253, 4294967292};
    const auto unit = [&random] {
        const uint32_t at = uint32_t(random.next() >> 32);
        int32_t count = 0;
        for (const uint32_t bound : distribution) count += at >= bound;
        return count;
    };
    int32_t sum = 0;
    for (int32_t left = expected; left >= 16; left -= 16) sum += unit();
    for (int32_t candidates = unit(); candidates > 0; --candidates)
        sum += random.below(16) < uint32_t(expected % 16);
    return sum;
}
