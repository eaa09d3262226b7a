// filter/rect.cpp - minimum and maximum over rectangles: which steps, and the rows in their order.
#include "filter/rect.h"

#include <algorithm>

namespace kipx {
namespace {

constexpr size_t most_group = 64, most_vector = 64;
// Rows that take a step together, before one of them takes the next: what a step has written is on
// its way to the cache for a while, and reading it would have to wait.
constexpr size_t together = 16;
constexpr ptrdiff_t rows_ahead = 4; // of the work lines are fetched

size_t rounded(size_t bytes) { return (bytes + most_vector - 1) / most_vector * most_vector; }

size_t pitch_of(const RectPlan &plan) {
    return plan.steps > 1 ? rounded(plan.step[0].bytes) + most_vector : 0;
}

// Windows overlap where they do not divide the width; from left to right, so that the first of equal
// zeros stays. covers: pixels of a window before the step; gives those after it.
size_t unite_some(AlongRows &step, size_t covers, size_t width, size_t pixel) {
    constexpr size_t fold = 4;
    const size_t parts = (width + covers - 1) / covers;
    const bool last = parts <= most_loads;
    step.loads = last ? parts : fold;
    for (size_t i = 0; i < step.loads; ++i)
        step.at[i] = static_cast<ptrdiff_t>(std::min(i * covers, width - covers) * pixel);
    return last ? width : covers * fold;
}

// Windows of as many pixels as there are loads double, and grow by what is missing if that is near.
size_t grow(AlongRows &step, size_t width, size_t pixel, size_t most) {
    size_t covers = step.loads;
    step.grows = true;
    for (; 2 * covers <= width && covers * pixel <= most && step.words < most_words; covers *= 2)
        step.shift[step.words++] = covers * pixel;
    const size_t rest = (width - covers) * pixel;
    if (rest <= most) step.shift[step.words] = rest, covers = width;
    const size_t back = (covers - step.loads) * pixel;
    for (size_t i = 0; i < step.loads; ++i) step.at[i] += static_cast<ptrdiff_t>(back);
    step.before = (back + most - 1) / most;
    return covers;
}

} // namespace

RectPlan rect_plan(const Sheet &sheet, const Window &window, size_t grows) {
    RectPlan plan;
    const size_t width = window.width, pixel = sheet.step_bytes();
    for (size_t covers = 1; plan.steps == 0 || covers < width;) {
        AlongRows &step = plan.step[plan.steps];
        step = {};
        covers = unite_some(step, covers, width, pixel);
        if (plan.steps++ == 0) {
            if (covers < width && growing_loads * pixel <= grows)
                covers = grow(step, width, pixel, grows);
            for (ptrdiff_t &at : step.at) at -= static_cast<ptrdiff_t>(window.column * pixel);
        }
        step.bytes = sheet.bytes() + (width - covers) * pixel;
    }
    return plan;
}

bool RectPass::has_type(uint32_t type) {
    return type < 16 && rect_sets_of(Set::baseline)[0].loops[type][0].neutral;
}

RectPass::RectPass(const Sheet &sheet, const Window &window, Rank rank, bool over_source, Set set)
    : RectPass(sheet, window, rect_sets_of(set)[0].loops[sheet.src.type][static_cast<int>(rank)],
               over_source, rect_plan(sheet, window, rect_sets_of(set)[0].grows)) {}

// Extra: what is kept of a group, and rows between two steps.
RectPass::RectPass(const Sheet &sheet, const Window &window, const RectLoops &loops,
                   bool over_source, const RectPlan &plan)
    : RingPass(window, std::min<size_t>(window.height, most_group), rounded(sheet.bytes()),
               most_group * down_width * most_vector + together * pitch_of(plan)),
      loops_(loops), bytes_(sheet.bytes()), pitch_(pitch_of(plan)), over_source_(over_source),
      plan_(plan) {
    const AlongRows &only = plan_.step[0];
    small_ = loops_.square && plan_.steps == 1 && !only.grows && window.height == only.loads &&
             (only.loads == 3 || only.loads == 5);
    // Small windows are made of the source's pixels faster than they are kept.
    if (small_) keep_rows();
    reach_.begin = -static_cast<ptrdiff_t>(window.column * sheet.step_bytes());
    reach_.end = reach_.begin +
                 static_cast<ptrdiff_t>((window.width - 1) * sheet.step_bytes() + sheet.bytes());
}

void RectPass::along(const Band &band, char *out, ptrdiff_t step) {
    Band few = band;
    for (size_t left = band.rows; left > 0; left -= few.rows) {
        few.rows = std::min(left, together);
        few_along(few, out, step);
        few.at += static_cast<ptrdiff_t>(few.rows) * few.step;
        out += static_cast<ptrdiff_t>(few.rows) * step;
    }
}

void RectPass::few_along(const Band &band, char *out, ptrdiff_t step) {
    char *const between = extra() + most_group * down_width * most_vector;
    const auto pitch = static_cast<ptrdiff_t>(pitch_);
    for (size_t i = 0; i < plan_.steps; ++i) {
        AlongRows &rows = plan_.step[i];
        const bool first = i == 0, last = i + 1 == plan_.steps;
        rows.band = first ? band : Band{between, pitch, band.rows, false};
        rows.there = first ? there() : Span{0, pitch};
        rows.ahead = first ? rows_ahead * band.step : 0;
        rows.out = last ? out : between, rows.step = last ? step : pitch;
        loops_.along(rows);
    }
}

void RectPass::down(const char *const *rows, size_t group, char *out, ptrdiff_t step) {
    const auto end = static_cast<ptrdiff_t>(rounded(bytes_));
    loops_.down({rows, height(), group, group, {0, end}, 1, {}, 0, out, step, bytes_, extra()});
}

void RectPass::start(char *scratch, const Source &source) {
    RingPass::start(scratch, source);
    straight_ = !over_source_ && height() == 1;
    direct_ = !over_source_ && !straight_ && source.stay && small_;
}

void RectPass::rows(Lines &lines, size_t y, size_t rows, char *out, ptrdiff_t step) {
    if (direct_) {
        const char *const *under = rows_under(lines, y, rows);
        const AlongRows &only = plan_.step[0];
        DownRows r{under, height(), group(), rows, there(), only.loads,
                   {},    0,        out,     step, bytes_,  extra()};
        std::copy_n(only.at, most_loads, r.at);
        r.ahead = static_cast<ptrdiff_t>(group()) * last_step();
        loops_.down(r);
        return;
    }
    if (!straight_) return RingPass::rows(lines, y, rows, out, step);
    // One row high: there is nothing to be kept.
    for (size_t done = 0; done < rows;) {
        Band band = lines.band(static_cast<ptrdiff_t>(y + done), rows - done);
        along(band, out + static_cast<ptrdiff_t>(done) * step, step);
        done += band.rows;
    }
}

} // namespace kipx
