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

// Eight mask bytes at a time: none of them set, all of them set, or one by one.
template<class T>
size_t sift(char *to, const char *from, const char *mask, size_t n, size_t step, size_t mask_step) {
    constexpr u64 ones = 0x0101010101010101, tops = 0x8080808080808080;
    char *at = to;
    for (size_t i = 0; i < n;) {
        size_t end = n - i < 8 ? n : i + 8;
        if (mask_step == 1 && end - i == 8) {
            u64 bytes = element<u64>(mask + i);
            bool all = ((bytes - ones) & ~bytes & tops) == 0;
            if (bytes == 0 || all) {
                for (size_t k = 0; all && k < 8; ++k)
                    put(at + k * sizeof(T), element<T>(from + (i + k) * step));
                at += all ? 8 * sizeof(T) : 0;
                i = end;
                continue;
            }
        }
        for (; i < end; ++i) {
            put(at, element<T>(from + i * step));
            at += mask[i * mask_step] ? sizeof(T) : 0;
        }
    }
    return static_cast<size_t>(at - to) / sizeof(T);
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
extern const Sift sift_stages[stage_sizes] = {KIPX_SIZES(sift)};

} // namespace kipx::KIPX_SET
