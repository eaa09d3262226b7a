// util/plain_sorts.h - insertion, selection and heap sort of the elements from lo to hi
// (exclusive).
//
// Promises every loop is bounded by indices, so that no comparator, however inconsistent, leads out
//          of the range.
// Costs    heap sort: about n log2 n comparisons, at most half as many again, since it goes down
// along
//          the larger children without asking for the sinking element and then climbs back to that
//          one's place. Insertion sort: n - 1 comparisons when sorted. Both others: up to n^2 / 2.
#ifndef KIPX_UTIL_PLAIN_SORTS_H
#define KIPX_UTIL_PLAIN_SORTS_H

#include "elements.h"

namespace kipx {

// Stable: scans down from each element, past the strictly greater ones only.
template<size_t N> void insert_sort(const Elements<N> &e, size_t lo, size_t hi) {
    for (size_t i = lo + 1; i < hi; i++) {
        size_t place = i;
        while (place > lo && e.compare(place - 1, i) > 0) place--;
        if (place != i) e.rotate(place, i);
    }
}

// The first of equal minima is the one chosen.
template<size_t N> void select_sort(const Elements<N> &e, size_t lo, size_t hi) {
    for (size_t i = lo; i + 1 < hi; i++) {
        size_t least = i;
        for (size_t j = i + 1; j < hi; j++) {
            if (e.compare(j, least) < 0) least = j;
        }
        if (least != i) e.exchange(i, least);
    }
}

// Lets the element at root sink to its place in the heap of n elements that begins at lo.
template<size_t N> void sink(const Elements<N> &e, size_t lo, size_t root, size_t n) {
    size_t place = root;
    while (place < (n - 1) / 2) {
        size_t child = 2 * place + 1;
        child += e.compare(lo + child, lo + child + 1) < 0;
        e.exchange(lo + place, lo + child);
        place = child;
    }
    if (n % 2 == 0 && place == n / 2 - 1) {
        e.exchange(lo + place, lo + n - 1);
        place = n - 1;
    }
    while (place > root) {
        const size_t parent = (place - 1) / 2;
        if (e.compare(lo + parent, lo + place) >= 0) break;
        e.exchange(lo + parent, lo + place);
        place = parent;
    }
}

template<size_t N> void heap_sort(const Elements<N> &e, size_t lo, size_t hi) {
    const size_t n = hi - lo;
    for (size_t root = n / 2; root-- > 0;) sink(e, lo, root, n);
    for (size_t last = n; last-- > 1;) {
        e.exchange(lo, lo + last);
        sink(e, lo, 0, last);
    }
}

} // namespace kipx

#endif
