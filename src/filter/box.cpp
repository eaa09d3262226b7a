// filter/box.cpp - the mean over rectangles.
#include "filter/box.h"

#include <algorithm>

namespace kipx {
namespace {

constexpr size_t slack = 128, most_group = 16; // slack: loops work on whole vectors, two at most

size_t rounded(size_t bytes) { return (bytes + 63) / 64 * 64; }

uint64_t positions(const Window &w) { return uint64_t{w.height} * w.width; }

const BoxLoops &loops_for(uint32_t type, const Window &w, Set set) {
    const BoxLoops *loops = box_sets_of(set)[0].loops[type];
    while (positions(w) > loops->most || w.height > loops->highest || w.width > loops->widest)
        ++loops;
    return *loops;
}

size_t sums_size(const Sheet &s, const Window &w, const BoxLoops &loops) {
    const size_t n = loops.way == BoxWay::direct ? std::min(s.width, box_piece) : s.width;
    return rounded((n + size_t{w.width} * s.step) * loops.sum_size + slack);
}

// As many rows as the first-level cache has room for.
size_t together(size_t row) {
    return std::clamp<size_t>(box_together_bytes / row, 1, box_together);
}

// Of sums, or of elements with their border.
size_t ring_row(const Sheet &s, const Window &w, const BoxLoops &loops) {
    return loops.way == BoxWay::rows_first
               ? s.width * loops.sum_size
               : (s.width + size_t{w.width} * s.step) * s.src.size + slack;
}

// Rows of sums in the making, and the sums that windows share.
size_t rows_of_sums(size_t row, const Window &w, const BoxLoops &loops) {
    if (loops.way == BoxWay::direct) return w.height + most_group;
    return loops.way == BoxWay::columns_first ? 3 : together(row) + 1;
}

} // namespace

bool BoxPass::has_type(uint32_t type) {
    return type < 16 && box_sets_of(Set::baseline)[0].loops[type][0].along;
}

BoxPass::BoxPass(const Sheet &sheet, const Window &window, Set set)
    : BoxPass(sheet, window, loops_for(sheet.src.type, window, set)) {}

BoxPass::BoxPass(const Sheet &sheet, const Window &window, const BoxLoops &loops)
    : RingPass(window, std::min<size_t>(window.height, most_group), ring_row(sheet, window, loops),
               rows_of_sums(sums_size(sheet, window, loops), window, loops) *
                   sums_size(sheet, window, loops)),
      loops_(loops), sums_size_(sums_size(sheet, window, loops)), n_(sheet.width),
      step_(sheet.step), size_(sheet.src.size), width_(window.width), count_(positions(window)) {
    auto bytes = [&](size_t pixels) { return static_cast<ptrdiff_t>(pixels * sheet.step_bytes()); };
    reach_ = {-bytes(window.column), bytes(window.width - 1 - window.column)};
    reach_.end += static_cast<ptrdiff_t>(sheet.bytes());
}

const void *BoxPass::fill() const {
    static constexpr uint64_t zero = 0;
    return &zero;
}

void BoxPass::along(const Band &band, char *out, ptrdiff_t step) {
    loops_.along({band, reach(), source(), width_, step_, n_, extra(), sums_size_,
                  together(sums_size_), out, step});
}

// Rows as the lines give them, or those of the ring.
void BoxPass::mean(const char *const *rows, size_t count, char *out, ptrdiff_t step, bool given) {
    char *shared =
        loops_.way == BoxWay::rows_first ? extra() + together(sums_size_) * sums_size_ : extra();
    loops_.down({rows, height(), count, n_, shared, first_, out, step, count_, width_, step_,
                 sums_size_, elements_of(source(), reach(), given, size_)});
    first_ = false;
}

void BoxPass::down(const char *const *rows, size_t count, char *out, ptrdiff_t step) {
    mean(rows, count, out, step, false);
}

void BoxPass::rows(Lines &lines, size_t y, size_t rows, char *out, ptrdiff_t step) {
    if (y == 0) first_ = true;
    if (loops_.way != BoxWay::rows_first && source().stay)
        mean(rows_under(lines, y, rows), rows, out, step, true);
    else
        RingPass::rows(lines, y, rows, out, step);
}

} // namespace kipx
