// filter/elements.h - the source's elements in rows that are read where they lie, or from a ring of what
// there is of them.
#pragma once

#include "core/window.h"

namespace kipx {

// As results look at them: where those that there are begin, in bytes; how many are missing before them;
// how many there are; and whether the nearest pixel stands for those that are missing, or 0.
struct RowElements {
    ptrdiff_t at;
    size_t before, there;
    bool nearest;
};

// size: of an element. given: rows are as lines give them.
inline RowElements elements_of(const Source &source, const Span &reach, bool given, size_t size) {
    return {given ? source.there.begin : 0,
            static_cast<size_t>(source.there.begin - reach.begin) / size,
            source.there.size() / size, source.beyond == Beyond::nearest};
}

} // namespace kipx
