#include "support/element.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace kipx::test {
namespace {

template<class T> T load(const void *address) {
    T value;
    std::memcpy(&value, address, sizeof value);
    return value;
}

template<class T> void store(void *address, T value) { std::memcpy(address, &value, sizeof value); }

int64_t random_integer(uint32_t type, Rng &rng) {
    const int64_t low = lowest(type), high = highest(type), middle = low + (high / 2 - low / 2);
    const int64_t corners[] = {low, low + 1, high, high - 1, middle, middle + 1, 0, 1};
    switch (rng.below(4)) {
    case 0:
        return rng.pick(corners);
    case 1:
        return rng.between(is_signed(type) ? -8 : 0, 8);
    default:
        return rng.between(low, high);
    }
}

// Ties, the edges of every integer range with a half on either side, and the edges of the format.
double random_real(uint32_t type, Rng &rng, bool finite) {
    static const double corners[] = {
        0.0,     -0.0,    0.5,      -0.5,     1.5,      -1.5,         2.5,          -2.5,
        126.5,   127.5,   -128.5,   -129.0,   254.5,    255.5,        256.0,        32766.5,
        32767.5, 32768.0, -32768.5, -32769.0, 65534.5,  65535.5,      2147483520.0, 2147483648.0,
        4.3e9,   -4.3e9,  1e30,     -1e30,    16777215, -2147483648.0};
    if (!finite && rng.one_in(8)) {
        static const double odd[] = {std::numeric_limits<double>::infinity(),
                                     -std::numeric_limits<double>::infinity(),
                                     std::numeric_limits<double>::quiet_NaN()};
        return rng.pick(odd);
    }
    if (rng.one_in(32)) {
        const bool single = type == 13;
        const double edges[] = {single ? 3.402823466e38 : 1.7976931348623157e308,
                                single ? 0x1p-126 : 0x1p-1022, single ? 0x1p-149 : 0x1p-1074};
        return rng.pick(edges) * (rng.one_in(2) ? 1 : -1);
    }
    switch (rng.below(4)) {
    case 0:
        return rng.pick(corners);
    case 1:
        return static_cast<double>(rng.between(-1200, 1200)) / 4;
    case 2:
        return (rng.unit() - 0.5) * 140000;
    default:
        return (rng.unit() - 0.5) * 1e10;
    }
}

} // namespace

uint32_t element_size(uint32_t type) {
    static const uint32_t sizes[8] = {0, 1, 2, 4, 8, 4, 8, 0};
    return sizes[type & 7];
}

bool is_real(uint32_t type) { return type == 13 || type == 14; }

bool is_signed(uint32_t type) { return (type & 8) != 0; }

const char *type_name(uint32_t type) {
    static const char *const names[16] = {"t0", "u8", "u16", "u32", "u64", "t5",  "t6",  "t7",
                                          "t8", "s8", "s16", "s32", "s64", "f32", "f64", "t15"};
    return type < 16 ? names[type] : "t>15";
}

int64_t lowest(uint32_t type) {
    if (!is_signed(type) && type != 4) return 0;
    return std::numeric_limits<int64_t>::min() >> (64 - 8 * element_size(type));
}

int64_t highest(uint32_t type) {
    const unsigned bits = 8 * element_size(type) - (is_signed(type) || type == 4 ? 1 : 0);
    return static_cast<int64_t>((uint64_t{1} << bits) - 1);
}

int64_t load_integer(uint32_t type, const void *address) {
    switch (type) {
    case 1:
        return load<uint8_t>(address);
    case 2:
        return load<uint16_t>(address);
    case 3:
        return load<uint32_t>(address);
    case 9:
        return load<int8_t>(address);
    case 10:
        return load<int16_t>(address);
    case 11:
        return load<int32_t>(address);
    case 4:
    case 12:
        return load<int64_t>(address);
    default:
        return static_cast<int64_t>(load_real(type, address));
    }
}

double load_real(uint32_t type, const void *address) {
    switch (type) {
    case 13:
        return static_cast<double>(load<float>(address));
    case 14:
        return load<double>(address);
    default:
        return element_size(type) ? static_cast<double>(load_integer(type, address)) : 0;
    }
}

void store_integer(uint32_t type, void *address, int64_t value) {
    if (is_real(type)) return store_real(type, address, static_cast<double>(value));
    switch (element_size(type)) {
    case 1:
        return store(address, static_cast<uint8_t>(value));
    case 2:
        return store(address, static_cast<uint16_t>(value));
    case 4:
        return store(address, static_cast<uint32_t>(value));
    case 8:
        return store(address, value);
    default:
        return;
    }
}

void store_real(uint32_t type, void *address, double value) {
    switch (type) {
    case 13:
        return store(address, static_cast<float>(value));
    case 14:
        return store(address, value);
    default:
        return store_integer(type, address, static_cast<int64_t>(value));
    }
}

uint64_t bits_of(uint32_t type, double value) {
    uint64_t bits = 0;
    if (is_real(type)) {
        store_real(type, &bits,
                   std::isnan(value) ? std::numeric_limits<double>::quiet_NaN() : value);
        return bits;
    }
    if (std::isnan(value)) return 0;
    const int width = static_cast<int>(element_size(type) * 8);
    const double top = std::ldexp(1.0, width - is_signed(type)),
                 bottom = is_signed(type) ? -top : 0;
    double down = std::floor(value);
    const double rest = value - down;
    if (rest > 0.5 || (rest == 0.5 && std::fmod(down, 2) != 0)) down += 1;
    const uint64_t ones = ~uint64_t{0} >> (64 - width);
    if (down >= top) return is_signed(type) ? ones >> 1 : ones;
    down = std::max(down, bottom);
    return (down < 0 ? static_cast<uint64_t>(static_cast<int64_t>(down))
                     : static_cast<uint64_t>(down)) &
           ones;
}

void store_random(uint32_t type, void *address, Rng &rng, Values values) {
    if (values == Values::small) {
        return store_integer(type, address, rng.between(is_signed(type) ? -8 : 0, 8));
    }
    do {
        if (is_real(type)) {
            store_real(type, address, random_real(type, rng, values != Values::any));
        } else {
            store_integer(type, address, random_integer(type, rng));
        }
    } while (values == Values::nonzero && load_real(type, address) == 0);
}

} // namespace kipx::test
