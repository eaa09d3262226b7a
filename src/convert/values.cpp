// convert/values.cpp - single numbers into elements of any type.
#include "convert/values.h"

#include <cmath>
#include <cstring>
#include <limits>

#include <kipx/types.h>

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
