// filter/course.h - the vectors along a row of results of which not everything is there, and the
// others. For row files only.
//
// Gives    Places, where a vector of results looks from its own place on; Course, which vectors find
//          all of that within their rows, and what the others find.
#pragma once

#include "core/window.h"
#include "filter/vectors.h"

namespace kipx::KIPX_SET {

// Offsets into rows of which `there` is all that there is.
template<size_t n> struct Places {
    static constexpr size_t count = n;
    ptrdiff_t at[n];
    Span there;
    Places(const ptrdiff_t *places, const Span &span) : there(span) {
        for (size_t i = 0; i < n; ++i) at[i] = places[i];
    }
    // What is there of every place of a vector at x.
    struct Parts {
        Part of[n];
    };
    Parts parts(ptrdiff_t x) const {
        Parts p = {};
        for (size_t i = 0; i < n; ++i)
            p.of[i] = Part::of(there.begin - x - at[i], there.end - x - at[i]);
        return p;
    }
};

// Vectors of a row from `start` on: those of which not everything is there, the whole ones from
// `first` to before `last`, and the rest, up to `end`.
template<class Places> struct Course {
    static constexpr auto step = static_cast<ptrdiff_t>(vector_bytes);
    ptrdiff_t start, first, last, end;
    // The parts are the same for all rows; of long borders those of the first vectors are kept.
    static constexpr size_t most_kept = 8;
    typename Places::Parts kept[most_kept];

    // low, high: the least place and the greatest; before: vectors ahead of the first result.
    Course(const Places &places, ptrdiff_t low, ptrdiff_t high, size_t before, size_t bytes)
        : start(-static_cast<ptrdiff_t>(before * vector_bytes)),
          end(static_cast<ptrdiff_t>(bytes)) {
        for (first = start; first + low < places.there.begin && first < end;) first += step;
        last = places.there.end - high < end ? places.there.end - high : end;
        last = last > first ? first + (last - first) / step * step : first;
        size_t count = 0;
        for (ptrdiff_t x = start; x < end && count < most_kept; x += step) {
            if (x == first) x = last;
            if (x < end) kept[count++] = places.parts(x);
        }
    }
    typename Places::Parts parts(const Places &places, size_t number, ptrdiff_t x) const {
        return number < most_kept ? kept[number] : places.parts(x);
    }
    void put(char *out, ptrdiff_t x, Bits v) const {
        if (x + step <= end)
            store_bits(out + x, v);
        else if (x < end)
            store_first(out + x, v, static_cast<size_t>(end - x));
    }
};

} // namespace kipx::KIPX_SET
