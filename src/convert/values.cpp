// convert/values.cpp - single numbers into elements of any type.
#include "convert/values.h"

#include <cmath>
#include <cstring>
#include <limits>

#include <kipx/convert.h>

#include "core/element.h"

namespace kipx {
namespace {

template<class T> T rounded(double value) {
    // The end of the range as binary64 may be one past the last number.
    constexpr double low = static_cast<double>(std::numeric_limits<T>::min());
    constexpr double high = static_cast<double>(std::numeric_limits<T>::max());
    if (value != value) return 0;
    double whole = std::nearbyint(value);
    if (whole <= low) return std::numeric_limits<T>::min();
    return whole >= high ? std::numeric_limits<T>::max() : static_cast<T>(whole);
}

template<class T> kipx_vrange range_of() {
    return {static_cast<double>(std::numeric_limits<T>::lowest()),
            static_cast<double>(std::numeric_limits<T>::max())};
}

kipx_vrange range_of(uint32_t type) {
    switch (type) {
#define KIPX_CASE(code, T)                                                                         \
    case code:                                                                                     \
        return range_of<T>();
        KIPX_CASE(KIPX_U8, uint8_t)
        KIPX_CASE(KIPX_U16, uint16_t)
        KIPX_CASE(KIPX_U32, uint32_t)
        KIPX_CASE(KIPX_U64, uint64_t)
        KIPX_CASE(KIPX_S8, int8_t)
        KIPX_CASE(KIPX_S16, int16_t)
        KIPX_CASE(KIPX_S32, int32_t)
        KIPX_CASE(KIPX_S64, int64_t)
        KIPX_CASE(KIPX_F32, float)
#undef KIPX_CASE
    default:
        constexpr double infinity = std::numeric_limits<double>::infinity();
        return {-infinity, infinity};
    }
}

// NaN compares false and stays.
double clipped(double value, const kipx_vrange &range) {
    return value < range.low ? range.low : value > range.high ? range.high : value;
}

template<class T> void put(void *at, T value) { std::memcpy(at, &value, sizeof value); }

template<class T> bool holds(double value) {
    constexpr double low = static_cast<double>(std::numeric_limits<T>::min());
    constexpr double high = static_cast<double>(std::numeric_limits<T>::max());
    return value >= low && value <= high && value == std::nearbyint(value);
}

} // namespace

void store_value(uint32_t type, double value, void *at) {
    switch (type) {
    case KIPX_U8:
        return put(at, rounded<uint8_t>(value));
    case KIPX_U16:
        return put(at, rounded<uint16_t>(value));
    case KIPX_U32:
        return put(at, rounded<uint32_t>(value));
    case KIPX_U64:
        return put(at, rounded<uint64_t>(value));
    case KIPX_S8:
        return put(at, rounded<int8_t>(value));
    case KIPX_S16:
        return put(at, rounded<int16_t>(value));
    case KIPX_S32:
        return put(at, rounded<int32_t>(value));
    case KIPX_S64:
        return put(at, rounded<int64_t>(value));
    case KIPX_F32:
        return put(at, static_cast<float>(value));
    case KIPX_F64:
        return put(at, value);
    default:
        return;
    }
}

bool holds_value(uint32_t type, double value) {
    switch (type) {
    case KIPX_U8:
        return holds<uint8_t>(value);
    case KIPX_U16:
        return holds<uint16_t>(value);
    case KIPX_U32:
        return holds<uint32_t>(value);
    case KIPX_S8:
        return holds<int8_t>(value);
    case KIPX_S16:
        return holds<int16_t>(value);
    case KIPX_S32:
        return holds<int32_t>(value);
    default:
        return false;
    }
}

} // namespace kipx

using namespace kipx;

extern "C" {

int32_t kipx_mkifillvalv16(void *vector, uint32_t type, const double *values, uint32_t channels) {
    if (!element_valid(type) || !vector || !values || channels == 0) return KIPX_EINVAL;
    uint32_t size = element_size(type);
    if (size == 0 || channels > 16 / size) return KIPX_ENOTSUP;
    for (uint32_t i = 0; i < channels; ++i)
        store_value(type, values[i], static_cast<char *>(vector) + i * size);
    return 0;
}

int32_t kipx_vrng_saturate(kipx_vrange *range, uint32_t type) {
    if (!element_valid(type) || !range) return KIPX_EINVAL;
    if (element_size(type) == 0) return KIPX_ENOTSUP;
    const kipx_vrange whole = range_of(type);
    *range = {clipped(range->low, whole), clipped(range->high, whole)};
    return 0;
}
}
