// filter/rect.h - minimum and maximum over rectangles.
//
// Gives    RectPass, which makes result rows of source rows.
// Promises positions outside the source array do not count, if the lines are filled with neutral().
//          Among equal floating zeros the first of the window in row-major order stays; NaN never
//          counts.
// Costs    three comparisons an element down the columns, and the logarithm of the width along the
//          row; a ring of as many rows as the window is high.
#pragma once

#include "core/window.h"
#include "filter/rect_rows.h"

namespace kipx {

// How windows along a row are made: at once, or those wider than that from a row of narrower ones,
// which are doubled as often as it takes.
struct RectPlan {
    Along along{}, wide{};
    size_t wide_bytes = 0; // of the row of narrower ones; 0 for none
    size_t doublings = 0, shift[32], span[32];
    Reach reach{};
};
RectPlan rect_plan(const Sheet &sheet, const Window &window, size_t vector);

class RectPass final : public RingPass {
public:
    // over_source: its results are written where its source rows lie.
    RectPass(const Sheet &sheet, const Window &window, Rank rank, bool over_source, Set set);
    static bool has_type(uint32_t type);
    const void *fill() const override { return loops_.neutral; }
    void rows(Lines &lines, size_t y, size_t rows, char *out, ptrdiff_t step) override;

private:
    void along(const Band &band, char *out, ptrdiff_t step) override;
    void down(const char *const *rows, size_t group, char *out, ptrdiff_t step) override;
    const RectLoops &loops_;
    size_t bytes_, vector_;
    bool straight_; // along the rows only, without a ring
    RectPlan plan_;
};

} // namespace kipx
