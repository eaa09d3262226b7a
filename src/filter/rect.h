// filter/rect.h - minimum and maximum over rectangles.
//
// Gives    RectPass, which makes result rows of source rows.
// Promises positions outside the source array do not count, if the lines are filled with neutral().
//          Among equal floating zeros the first of the window in row-major order stays; NaN never
//          counts.
// Costs    three comparisons an element down the columns, and one to four along the row for every
//          fourfold of the width; a ring of as many rows as the window is high.
#pragma once

#include <algorithm>

#include "core/window.h"
#include "filter/rect_rows.h"

namespace kipx {

// How windows along a row are made: from the source's pixels windows of a few, which grow as far as
// registers let them; from a row of those, windows of a few times as many, until they are as wide as
// they have to be.
struct RectPlan {
    static constexpr size_t most_steps = 17;
    AlongRows step[most_steps]; // those there are, without rows; bytes: of the step's results
    size_t steps = 0;
    RectPlan() {}
    RectPlan(const RectPlan &other) : steps(other.steps) { std::copy_n(other.step, steps, step); }
    RectPlan &operator=(const RectPlan &) = delete;
};
// grows: bytes that a window can grow by at once.
RectPlan rect_plan(const Sheet &sheet, const Window &window, size_t grows);

class RectPass final : public RingPass {
public:
    // over_source: its results are written where its source rows lie.
    RectPass(const Sheet &sheet, const Window &window, Rank rank, bool over_source, Set set);
    static bool has_type(uint32_t type);
    const void *fill() const override { return loops_.neutral; }
    void start(char *scratch, const Source &source) override;
    void rows(Lines &lines, size_t y, size_t rows, char *out, ptrdiff_t step) override;

private:
    RectPass(const Sheet &sheet, const Window &window, const RectLoops &loops, bool over_source,
             const RectPlan &plan);
    void along(const Band &band, char *out, ptrdiff_t step) override;
    void few_along(const Band &band, char *out, ptrdiff_t step);
    void down(const char *const *rows, size_t group, char *out, ptrdiff_t step) override;
    const RectLoops &loops_;
    size_t bytes_, pitch_; // pitch_: of the rows between two steps
    bool over_source_;
    bool small_ = false;    // square, and of few pixels
    bool straight_ = false; // along the rows only, without a ring
    bool direct_ = false;   // down the columns only, from rows where they lie
    RectPlan plan_;
};

} // namespace kipx
