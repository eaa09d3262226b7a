// util/plain_sorts.h - insertion, selection and heap sort of the elements from lo to hi, exclusive.
//
// Promises every loop is bounded by indices, so that no comparator, however inconsistent, leads out
//          of the range.
// Costs    heap sort: about n log2 n comparisons, at most half as many again, since it goes down
//          along the larger children without asking for the sinking element and then climbs back to
//          that one's place. Insertion sort: n - 1 comparisons when sorted. This and selection
//          sort otherwise: up to n^2 / 2.
#pragma once

#include "util/elements.h"

namespace kipx {

// Stable: scans down from each element, past the strictly greater ones only.
template<size_t N> void insert_sort(const Elements<N> &e, size_t lo, size_t hi) {
    for (size_t i = lo + 1; i < hi; ++i) {
        size_t place = i;
        while (place > lo && e.compare(place - 1, i) > 0) --place;
        if (place != i) e.rotate(place, i);
    }
}

// The first of equal minima is the one chosen.
template<size_t N> void select_sort(const Elements<N> &e, size_t lo, size_t hi) {
    for (size_t i = lo; i + 1 < hi; ++i) {
        size_t least = i;
        for (size_t j = i + 1; j < hi; ++j)
            if (e.compare(j, least) < 0) least = j;
        if (least != i) e.exchange(i, least);
    }
}

// The grandchildren of place, while the comparator chooses between the children: that choice is no
// branch, so the processor does not run ahead by itself.
template<size_t N>
inline void fetch_ahead(const Elements<N> &e, size_t lo, size_t place, size_t n) {
    __builtin_prefetch(e.at(lo + (4 * place + 6 < n ? 4 * place + 3 : place)));
}

// Lets the element at root sink to its place in the heap of n elements that begins at lo.
template<size_t N> void sink(const Elements<N> &e, size_t lo, size_t root, size_t n) {
    size_t place = root;
    while (place < (n - 1) / 2) {
        size_t child = 2 * place + 1;
        fetch_ahead(e, lo, place, n);
        child += e.compare(lo + child, lo + child + 1) < 0;
        e.exchange(lo + place, lo + child);
        place = child;
    }
    if (n % 2 == 0 && place == n / 2 - 1) {
        e.exchange(lo + place, lo + n - 1);
        place = n - 1;
    }
    while (place > root) {
        size_t parent = (place - 1) / 2;
        if (e.compare(lo + parent, lo + place) >= 0) break;
        e.exchange(lo + parent, lo + place);
        place = parent;
    }
}

// Exchanges the greatest element, at lo, with the one at lo + n, and lets that sink in the heap of
// n elements. The sinking one waits in its old slot, where the comparator can see it, while the
// others move up one by one.
template<size_t N> void extract(const Elements<N> &e, size_t lo, size_t n) {
    auto move = [&](size_t to, size_t from) { std::memcpy(e.at(lo + to), e.at(lo + from), N); };
    char greatest[N];
    std::memcpy(greatest, e.at(lo), N);
    size_t place = 0;
    while (place < (n - 1) / 2) {
        size_t child = 2 * place + 1;
        fetch_ahead(e, lo, place, n);
        child += e.compare(lo + child, lo + child + 1) < 0;
        move(place, child);
        place = child;
    }
    if (n % 2 == 0 && place == n / 2 - 1) {
        move(place, n - 1);
        place = n - 1;
    }
    while (place > 0) {
        size_t parent = (place - 1) / 2;
        if (e.compare(lo + parent, lo + n) >= 0) break;
        move(place, parent);
        place = parent;
    }
    move(place, n);
    std::memcpy(e.at(lo + n), greatest, N);
}

template<size_t N> void heap_sort(const Elements<N> &e, size_t lo, size_t hi) {
    size_t n = hi - lo;
    for (size_t root = n / 2; root-- > 0;) sink(e, lo, root, n);
    for (size_t last = n; last-- > 1;) {
        if constexpr (N != 0) {
            extract(e, lo, last);
        } else {
            // No room to hold an element of any length.
            e.exchange(lo, lo + last);
            sink(e, lo, 0, last);
        }
    }
}

} // namespace kipx
