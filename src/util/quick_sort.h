// util/quick_sort.h - quick sort that no input and no comparator can lead astray.
//
// Median of three from the first, middle and last element, moved to the last slot as pivot; ranges
// of fewer than 9 elements are finished by insertion. Then, each for a reason:
//   The scans of the partition note misplaced elements of up to a block at a time before they
//   are exchanged in pairs, so that no branch depends on a comparison.
//   A pivot equal to the element before its range is the least of the range: everything equal to
//   it is set aside at once. Few distinct values thus cost two passes each, not a quadratic number.
//   A partition that found nothing misplaced suggests sorted input; sides that are sorted are left.
//   A lopsided partition suggests a pattern that deceives the median; below it, the three elements
//   are taken from the quarters and the middle instead.
//   Comparisons are counted. Past 11/8 n log2 n of them, ranges are finished by heap sort, so that
//   the sum stays below 3 n log2 n.
// The larger side waits on a stack, so 64 entries serve every array.
#pragma once

#include "util/plain_sorts.h"

namespace kipx {

template<size_t N> class QuickSort {
public:
    QuickSort(const Elements<N> &elements, size_t n) : e_(elements) {
        size_t log = 0;
        while (n >> log > 1) ++log;
        budget_ = n > SIZE_MAX / 128 ? SIZE_MAX : n * log / 8 * 11;
        run(n);
    }

private:
    static constexpr size_t small = 9;
    static constexpr size_t block = 64;
    static constexpr size_t stack = 64;
    // Which elements belong to the left of the pivot.
    enum class Left { below, not_above };
    struct Range {
        size_t lo, hi; // hi exclusive
        bool quarters; // where the sample for the median comes from
        size_t length() const { return hi - lo; }
    };
    struct Split {
        size_t pivot;
        bool exchanged;
    };

    const Elements<N> &e_;
    size_t budget_; // comparisons that may yet be spent on partitions

    bool spend(size_t comparisons) {
        if (comparisons > budget_) return false;
        budget_ -= comparisons;
        return true;
    }

    void run(size_t n) {
        Range waiting[stack];
        size_t depth = 0;
        Range range{0, n, false};
        for (;;) {
            while (range.length() >= small && spend(range.length() + 3)) {
                Range other = step(range);
                if (other.length() > range.length()) {
                    Range shorter = range;
                    range = other;
                    other = shorter;
                }
                // The shorter side first: what waits at least halves what is left each time.
                if (other.length() < 2) continue;
                waiting[depth++] = range;
                range = other;
            }
            finish(range);
            if (depth == 0) return;
            range = waiting[--depth];
        }
    }

    void finish(Range range) {
        if (range.length() < small) return insert_sort(e_, range.lo, range.hi);
        heap_sort(e_, range.lo, range.hi);
    }

    // Partitions the range; keeps one side in it and returns the other. Sides that need no more
    // work come out empty.
    Range step(Range &range) {
        size_t length = range.length();
        median_to_last(range);
        if (range.lo > 0 && e_.compare(range.lo - 1, range.hi - 1) >= 0) {
            range.lo = partition<Left::not_above>(range).pivot + 1;
            return {range.lo, range.lo, false};
        }
        Split split = partition<Left::below>(range);
        Range left{range.lo, split.pivot, range.quarters};
        Range right{split.pivot + 1, range.hi, range.quarters};
        if (!split.exchanged) {
            if (sorted(left)) left.hi = left.lo;
            if (sorted(right)) right.hi = right.lo;
        } else if (left.length() < length / 8 || right.length() < length / 8) {
            left.quarters = right.quarters = true;
        }
        range = right;
        return left;
    }

    void median_to_last(Range range) {
        size_t last = range.hi - 1;
        size_t quarter = range.quarters ? range.length() / 4 : 0;
        size_t low = range.lo + quarter, high = last - quarter;
        size_t middle = range.lo + range.length() / 2;
        if (e_.compare(low, high) > 0) {
            if (quarter == 0) {
                e_.exchange(low, high);
            } else {
                size_t held = low;
                low = high;
                high = held;
            }
        }
        // Now low <= high, and the middle element is the median unless it lies outside of them.
        size_t median = middle;
        if (e_.compare(middle, high) >= 0)
            median = high;
        else if (e_.compare(low, middle) > 0)
            median = low;
        if (median != last) e_.exchange(median, last);
    }

    template<Left side> bool is_left(size_t i, size_t pivot) const {
        int32_t order = e_.compare(i, pivot);
        return side == Left::below ? order < 0 : order <= 0;
    }

    // Everything that belongs left of the pivot, which is in the last slot, then the pivot, then
    // the rest. [lo, l) is known to belong left, [r, hi - 1) right; between them lie the blocks
    // under way.
    template<Left side> Split partition(Range range) {
        size_t pivot = range.hi - 1;
        size_t l = range.lo, r = pivot;
        uint8_t from_l[block], from_r[block]; // distances of misplaced elements from l and r - 1
        size_t l_begin = 0, l_end = 0, r_begin = 0, r_end = 0;
        size_t l_width = 0, r_width = 0;
        bool exchanged = false;
        while (r - l > l_width + r_width) {
            size_t fresh = r - l - l_width - r_width;
            if (l_width == 0) {
                l_width = fresh >= 2 * block || (r_width && fresh >= block) ? block
                          : r_width                                         ? fresh
                                                                            : fresh / 2;
                l_begin = l_end = 0;
                for (size_t i = 0; i < l_width; ++i) {
                    from_l[l_end] = static_cast<uint8_t>(i);
                    l_end += !is_left<side>(l + i, pivot);
                }
            }
            if (r_width == 0) {
                size_t rest = r - l - l_width;
                r_width = rest < block ? rest : block;
                r_begin = r_end = 0;
                for (size_t i = 0; i < r_width; ++i) {
                    from_r[r_end] = static_cast<uint8_t>(i);
                    r_end += is_left<side>(r - 1 - i, pivot);
                }
            }
            while (l_begin < l_end && r_begin < r_end) {
                e_.exchange(l + from_l[l_begin++], r - 1 - from_r[r_begin++]);
                exchanged = true;
            }
            if (l_begin == l_end) l += l_width, l_width = 0;
            if (r_begin == r_end) r -= r_width, r_width = 0;
        }
        // At most one block has misplaced elements left; they go to its inner end.
        while (l_begin < l_end) {
            size_t misplaced = l + from_l[--l_end];
            if (misplaced != --r) e_.exchange(misplaced, r), exchanged = true;
        }
        size_t place = l_width ? r : l;
        while (r_begin < r_end) {
            size_t misplaced = r - 1 - from_r[--r_end];
            if (misplaced != place) e_.exchange(misplaced, place), exchanged = true;
            ++place;
        }
        if (place != pivot) e_.exchange(place, pivot);
        return {place, exchanged};
    }

    // Counts against the budget, and gives up when that is empty.
    bool sorted(Range range) {
        for (size_t i = range.lo + 1; i < range.hi; ++i)
            if (!spend(1) || e_.compare(i - 1, i) > 0) return false;
        return true;
    }
};

} // namespace kipx
