// util/search.cpp - binary searches over raw bytes.
//
// Promises indices never leave the array, whatever the comparator answers; at most log2 n + 2
//          comparisons. The first element is asked first, so keys before the array cost one.
// Costs    the choice of the half is no branch; both places that may be asked next are fetched
//          while the comparator runs.
#include <kipx/sort.h>

#include <cstdint>

#include "util/elements.h"

namespace kipx {
namespace {

constexpr size_t cached_bytes = size_t{32} << 10; // bytes: an array no longer is at hand as a whole
constexpr size_t near_bytes = 256; // bytes: what is left of a longer one, once fetched

// Where the bisection ended: at an element equal to the key, or between lower = upper - 1 and
// upper, the last element smaller and the first one greater.
struct Found {
    bool equal;
    size_t upper;
};

Found bisect(const char *base, const void *key, size_t n, size_t size, ZuCompare compare,
             void *context) {
    int32_t order = compare(base, key, context);
    if (order >= 0) return {order == 0, 0};
    size_t lo = 1, hi = n; // hi exclusive, so that it never falls below 0
    size_t near = n * size <= cached_bytes ? SIZE_MAX : near_bytes;
    while (lo < hi && (hi - lo) * size > near) {
        size_t middle = lo + (hi - 1 - lo) / 2;
        __builtin_prefetch(base + (lo + (middle - lo) / 2) * size);
        __builtin_prefetch(base + (middle + (hi - middle) / 2) * size);
        order = compare(base + middle * size, key, context);
        if (order == 0) return {true, middle};
        // A branch, not a choice: the next load need not wait for this comparison.
        if (__builtin_expect_with_probability(order < 0, 1, 0.9))
            lo = middle + 1;
        else
            hi = middle;
    }
    while (lo < hi) {
        size_t middle = lo + (hi - 1 - lo) / 2;
        order = compare(base + middle * size, key, context);
        if (order == 0) return {true, middle};
        size_t below = size_t{0} - (order < 0); // all ones or none
        lo += (middle + 1 - lo) & below;
        hi = middle + ((hi - middle) & below);
    }
    return {false, lo};
}

void *element(const void *base, size_t i, size_t size) {
    return const_cast<char *>(static_cast<const char *>(base)) + i * size;
}

} // namespace
} // namespace kipx

using kipx::bisect, kipx::element, kipx::Found;

extern "C" {

void *ZuBsearch(const void *key, const void *base, size_t n, size_t size, ZuCompare compare,
                void *context) {
    if (n == 0) return nullptr;
    Found found = bisect(static_cast<const char *>(base), key, n, size, compare, context);
    return found.equal ? element(base, found.upper, size) : nullptr;
}

void *ZuBsearchN(const void *key, const void *base, size_t n, size_t size, ZuCompare compare,
                 void *context) {
    if (n == 0) return nullptr;
    Found found = bisect(static_cast<const char *>(base), key, n, size, compare, context);
    return element(base, found.upper, size);
}

void *ZuBsearchP(const void *key, const void *base, size_t n, size_t size, ZuCompare compare,
                 void *context) {
    if (n == 0) return nullptr;
    Found found = bisect(static_cast<const char *>(base), key, n, size, compare, context);
    if (found.equal) return element(base, found.upper, size);
    return found.upper > 0 ? element(base, found.upper - 1, size) : nullptr;
}

void *ZuBsearch_s(const void *key, const void *base, size_t n, size_t size, ZuCompare compare,
                  void *context, int32_t *error) {
    bool sound = kipx::acceptable(base, n, size, compare) && (n == 0 || key);
    void *found = sound ? ZuBsearch(key, base, n, size, compare, context) : nullptr;
    if (error) *error = found ? 0 : -1;
    return found;
}
}
