// core/stages.cpp - the steps around a row loop, compiled once per instruction set.
#include "core/stages.h"
#include "core/lanes.h"

namespace kipx::KIPX_SET {
namespace {

template<class T> T element(const char *at) {
    T value;
    memcpy(&value, at, sizeof value);
    return value;
}
template<class T> void put(char *at, T value) { memcpy(at, &value, sizeof value); }

template<class T> void pack(char *to, const char *from, const char *, size_t n, size_t step) {
    KIPX_INDEPENDENT
    for (size_t i = 0; i < n; ++i) put(to + i * sizeof(T), element<T>(from + i * step));
}

template<class T> void spread(char *to, const char *from, const char *, size_t n, size_t step) {
    KIPX_INDEPENDENT
    for (size_t i = 0; i < n; ++i) put(to + i * step, element<T>(from + i * sizeof(T)));
}

template<class T>
void spread_masked(char *to, const char *from, const char *mask, size_t n, size_t step) {
    for (size_t i = 0; i < n; ++i)
        if (mask[i]) put(to + i * step, element<T>(from + i * sizeof(T)));
}

template<class T> void blend(char *to, const char *from, const char *mask, size_t n, size_t) {
    KIPX_INDEPENDENT
    for (size_t i = 0; i < n; ++i) {
        T old = element<T>(to + i * sizeof(T)), fresh = element<T>(from + i * sizeof(T));
        put<T>(to + i * sizeof(T), mask[i] ? fresh : old);
    }
}

void widen(char *to, const char *mask, size_t n, size_t step, uint32_t channels, uint32_t phase) {
    for (size_t i = 0; i < n; ++i) {
        to[i] = *mask;
        if (++phase == channels) phase = 0, mask += step;
    }
}

} // namespace

#define KIPX_SIZES(kind) kind<u8>, kind<u16>, kind<u32>, kind<u64>
extern const Stage stages[stage_count] = {KIPX_SIZES(pack), KIPX_SIZES(spread),
                                          KIPX_SIZES(spread_masked), KIPX_SIZES(blend)};
extern const Widen widen_stages[1] = {widen};

} // namespace kipx::KIPX_SET
