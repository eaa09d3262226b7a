// filter/rect.cpp - minimum and maximum over rectangles: which steps, and the rows in their order.
#include "filter/rect.h"

#include <algorithm>

namespace kipx {
namespace {

constexpr size_t most_loads = 4, most_stages = 6, most_group = 16;

size_t rounded(size_t bytes, size_t to) { return (bytes + to - 1) / to * to; }

// The loads and stages of a window along the row, in the making.
struct Steps {
    size_t at[64], loads = 1;
    size_t shift[8], stages = 0;
    size_t covers = 1; // pixels, by the stages

    void drop_first_stages(size_t n) {
        for (size_t i = n; i < stages; ++i) shift[i - n] = shift[i];
        stages -= n;
    }
    void sort_loads() {
        std::sort(at, at + loads);
        loads = static_cast<size_t>(std::unique(at, at + loads) - at);
    }
};

// Stages that double the window, as far as a vector looks back.
Steps doubled(size_t width, size_t step, size_t vector) {
    Steps s;
    s.at[0] = 0;
    while (s.covers * 2 <= width && s.covers * step <= vector && s.stages < most_stages) {
        s.shift[s.stages++] = s.covers * step;
        s.covers *= 2;
    }
    return s;
}

// Loads are cheaper than the first stages where those cannot move whole words.
void load_rather(Steps &s, size_t step, size_t vector) {
    bool words = step % 4 == 0 && vector == 64;
    if (words || s.stages == 0) return;
    if (s.loads == 1 && s.stages > 1 && (2 * step) % 4 != 0) {
        for (; s.loads < 4; ++s.loads) s.at[s.loads] = s.loads * step;
        s.drop_first_stages(2);
    } else if (s.loads <= 2) {
        for (size_t i = 0, n = s.loads; i < n; ++i) s.at[s.loads++] = s.at[i] + step;
        s.sort_loads();
        s.drop_first_stages(1);
    }
}

Along along_of(const Steps &s, size_t vector) {
    Along a{};
    a.loads = static_cast<uint32_t>(s.loads);
    for (size_t i = 0; i < s.loads; ++i) a.at[i] = static_cast<ptrdiff_t>(s.at[i]);
    // Byte stages first: doubling makes words of all later ones.
    uint32_t bytes = 0, words = 0;
    for (size_t i = 0; i < s.stages; ++i)
        if (s.shift[i] % 4) a.shift[bytes++] = static_cast<uint8_t>(s.shift[i]);
    for (size_t i = 0; i < s.stages; ++i)
        if (s.shift[i] % 4 == 0) a.shift[bytes + words++] = static_cast<uint8_t>(s.shift[i]);
    a.byte_stages = bytes, a.word_stages = words;
    for (size_t i = 0; i < s.stages; ++i) a.looks_back += s.shift[i];
    a.primes = (a.looks_back + vector - 1) / vector;
    return a;
}

Reach reach_of(const Along &a, size_t width, size_t anchor, size_t bytes, size_t step,
               size_t vector) {
    auto signed_of = [](size_t n) { return static_cast<ptrdiff_t>(n); };
    return {signed_of(a.looks_back) - signed_of(anchor),
            signed_of((width - 1) * step) - signed_of(anchor), -signed_of(a.primes * vector), bytes,
            vector};
}

} // namespace

// Where the order counts (real), windows are united from left to right: the stages double, the last
// of them may overlap. Otherwise what the stages leave is loaded from several places at first.
RectPlan rect_plan(const Sheet &sheet, const Window &window, size_t vector) {
    RectPlan plan;
    bool real = sheet.src.type == KIPX_F32 || sheet.src.type == KIPX_F64;
    size_t step = sheet.step_bytes(), bytes = sheet.bytes();
    size_t width = window.width, anchor = window.column * step;
    Steps s = doubled(width, step, vector);
    size_t covers = s.covers, rest = width - covers;
    bool wide = real ? rest * step > vector || (rest && s.stages == most_stages)
                     : (width + covers - 1) / covers > most_loads;
    if (!wide) {
        if (!real || !rest)
            for (size_t at = covers; at < width; at += covers)
                s.at[s.loads++] = std::min(at, width - covers) * step;
        load_rather(s, step, vector);
        if (real && rest) s.shift[s.stages++] = rest * step;
        plan.along = along_of(s, vector);
        plan.reach = reach_of(plan.along, width, anchor, bytes, step, vector);
        return plan;
    }
    load_rather(s, step, vector);
    plan.wide = along_of(s, vector);
    plan.wide_bytes = bytes + (width - covers) * step;
    plan.reach = reach_of(plan.wide, covers, anchor, plan.wide_bytes, step, vector);
    for (; (width + covers - 1) / covers > most_loads; covers *= 2) {
        plan.shift[plan.doublings] = covers * step;
        plan.span[plan.doublings++] = bytes + (width - 2 * covers) * step;
    }
    Steps last;
    last.loads = 0;
    for (size_t at = 0; at + covers < width; at += covers) last.at[last.loads++] = at * step;
    last.at[last.loads++] = (width - covers) * step;
    plan.along = along_of(last, vector);
    return plan;
}

bool RectPass::has_type(uint32_t type) {
    return type < 16 && rect_sets_of(Set::baseline)[0].loops[type][0].neutral;
}

RectPass::RectPass(const Sheet &sheet, const Window &window, Rank rank, bool over_source, Set set)
    : RingPass(window, std::min<size_t>(window.height, most_group),
               rounded(sheet.bytes(), rect_sets_of(set)[0].vector_bytes),
               most_group * down_width * 64 + sheet.bytes() + window.width * sheet.step_bytes() +
                   3 * 64),
      loops_(rect_sets_of(set)[0].loops[sheet.src.type][static_cast<uint32_t>(rank)]),
      bytes_(sheet.bytes()), vector_(rect_sets_of(set)[0].vector_bytes),
      straight_(window.height == 1 && !over_source), plan_(rect_plan(sheet, window, vector_)) {
    reach_ = plan_.reach;
}

void RectPass::along(const Band &band, char *out, ptrdiff_t step) {
    if (!plan_.wide_bytes) return loops_.along({&plan_.along, band, pieces(), out, step, bytes_});
    char *row = extra();
    for (size_t i = 0; i < band.rows; ++i) {
        Band one = band;
        for (int k = 0; k < 3; ++k)
            if (one.at[k]) one.at[k] += static_cast<ptrdiff_t>(i) * band.step[k];
        one.rows = 1;
        loops_.along({&plan_.wide, one, pieces(), row, 0, plan_.wide_bytes});
        for (size_t k = 0; k < plan_.doublings; ++k)
            loops_.unite(row, plan_.shift[k], plan_.span[k]);
        Pieces whole = {{rounded(bytes_, vector_) / vector_, 0, 0}};
        Band wide{{row, nullptr, nullptr}, {0, 0, 0}, 1, false};
        loops_.along(
            {&plan_.along, wide, whole, out + static_cast<ptrdiff_t>(i) * step, 0, bytes_});
    }
}

void RectPass::down(const char *const *rows, size_t group, char *out, ptrdiff_t step) {
    // Behind the row of narrower windows.
    char *kept = extra() + rounded(plan_.wide_bytes ? plan_.wide_bytes + 2 * 64 : 0, 64);
    loops_.down({rows, height(), group, out, step, bytes_, kept});
}

// One row high: there is nothing to be kept.
void RectPass::rows(Lines &lines, size_t y, size_t rows, char *out, ptrdiff_t step) {
    if (!straight_) return RingPass::rows(lines, y, rows, out, step);
    for (size_t done = 0; done < rows;) {
        Band band = lines.band(static_cast<ptrdiff_t>(y + done), rows - done);
        along(band, out + static_cast<ptrdiff_t>(done) * step, step);
        done += band.rows;
    }
}

} // namespace kipx
