// filter/apply.h - a pass, or a chain of two, over every sheet of a call.
//
// Gives    Recipe, what is to be done; apply(), which does it with passes made by the caller.
// Promises all scratch is taken before anything is written: KIPX_ENOMEM leaves the destination as it
//          was. A destination that lies across the source, or is the source under a border whose
//          rows come back late, is filtered from a copy of it.
// Costs    one block of scratch: rings of rows, and the copy where there is one.
#pragma once

#include <kipx/env.h>

#include <algorithm>
#include <optional>

#include "core/window.h"

namespace kipx {

// What becomes of the rows that passes have made: a loop over each, or nothing.
struct FinishRow {
    Set set;
    void *dst;
    const void *made, *second, *source; // second: by a second maker; null where they are not wanted
    size_t n;                           // elements
    uint32_t type, step, channel;       // step: elements of a pixel; channel: of the first
    const void *params;
};
struct Finish {
    void (*loop)(const FinishRow &row) = nullptr;
    bool source = false, second = false;
    const void *params = nullptr;
};
// The source minus what has been made, what has been made minus the source, or minus what a second
// maker has made: saturated, as kipxa__subq subtracts. False where the type has no such subtraction.
enum class Difference { source_minus, minus_source, minus_second };
bool finish_by(Difference difference, uint32_t type, Finish &finish);

// What a pass is for: its number in a chain, or its maker's; and whether it writes rows that it reads
// itself.
struct Role {
    int which;
    bool over_source;
};

struct Recipe {
    Window window;
    Border border;
    Finish finish;
    Set set;
    size_t tile; // bytes of a row to be done together where that is possible; 0 for all
    bool over_source = false, in_place = false;
};

// What a pass is told of the source's rows: results that are written over them do not let them stay.
inline Source source_of(const Feed &feed, bool in_place) {
    Source source = feed.source();
    source.stay &= !in_place;
    return source;
}

// One pass over the source.
template<class P> class Single {
public:
    template<class Make>
    Single(const Make &make, const Sheet &s, const Recipe &r, int maker)
        : pass_(make(s, r.window, {maker, r.over_source})),
          feed_(s, r.window, pass_.reach(), r.border, r.set), in_place_(r.in_place) {}
    size_t scratch() const { return feed_.scratch() + pass_.scratch(); }
    size_t likes() const { return pass_.likes(); }
    void start(char *at, const Sheet &s) {
        feed_.start(at, s, pass_.fill());
        pass_.start(at + feed_.scratch(), source_of(feed_, in_place_));
    }
    void rows(size_t y, size_t n, char *out, ptrdiff_t step) { pass_.rows(feed_, y, n, out, step); }

private:
    P pass_;
    Feed feed_;
    bool in_place_;
};

// A second pass over the first one's results.
template<class P> class Double {
public:
    template<class Make>
    Double(const Make &make, const Sheet &s, const Recipe &r, int)
        : first_(make(s, r.window, {0, false})), second_(make(s, alone(r.window), {1, false})),
          feed_(s, r.window, first_.reach(), r.border, r.set), between_(s, first_, second_),
          in_place_(r.in_place) {}
    size_t scratch() const {
        return feed_.scratch() + first_.scratch() + between_.scratch() + second_.scratch();
    }
    size_t likes() const { return second_.likes(); }
    void start(char *at, const Sheet &s) {
        feed_.start(at, s, first_.fill());
        first_.start(at += feed_.scratch(), source_of(feed_, in_place_));
        between_.start(at += first_.scratch(), first_, feed_, second_.fill());
        second_.start(at += between_.scratch(), between_.source());
    }
    void rows(size_t y, size_t n, char *out, ptrdiff_t step) {
        second_.rows(between_, y, n, out, step);
    }

private:
    static Window alone(Window w) {
        w.above = w.below = w.left = w.right = 0;
        return w;
    }
    P first_, second_;
    Feed feed_;
    Between between_;
    bool in_place_;
};

// Takes rows of one sheet through the finish to the destination.
class Finisher {
public:
    Finisher(const Sheet &sheet, const Recipe &recipe, size_t rows);
    size_t scratch() const { return scratch_; }
    void start(char *at, const Sheet &sheet);
    char *place(size_t y) const { return plain_ ? drain_.place(y) : rows_; }
    ptrdiff_t step() const { return plain_ ? drain_.step() : static_cast<ptrdiff_t>(pitch_); }
    char *second_place() const { return rows_ + most_ * pitch_; }
    void done(size_t y, size_t n) const;

private:
    const char *source_row(size_t y) const;
    Sheet sheet_;
    Set set_;
    Finish finish_;
    bool plain_;
    Drain drain_;
    size_t most_, pitch_, scratch_;
    char *rows_ = nullptr;
};

// The part of a sheet, and of what lies about it, from byte `from` to `end` of its rows.
Sheet tile_of(const Sheet &sheet, size_t from, size_t end);
Recipe tile_of(const Recipe &recipe, const Sheet &sheet, size_t from, size_t end);

template<class Maker, class Make> struct Tile {
    Sheet sheet;
    Recipe recipe;
    Maker maker;
    std::optional<Maker> second;
    Finisher finisher;
    Tile(const Make &make, const Sheet &s, const Recipe &r)
        : sheet(s), recipe(r), maker(make, s, r, 0), finisher(s, r, maker.likes()) {
        if (recipe.finish.second) second.emplace(make, s, r, 1);
    }
    size_t scratch() const {
        return maker.scratch() + finisher.scratch() + (second ? second->scratch() : 0);
    }
    void work(char *at) {
        maker.start(at, sheet);
        finisher.start(at += maker.scratch(), sheet);
        if (second) second->start(at + finisher.scratch(), sheet);
        for (size_t y = 0, n; y < sheet.height; y += n) {
            n = std::min(maker.likes(), sheet.height - y);
            maker.rows(y, n, finisher.place(y), finisher.step());
            if (second) second->rows(y, n, finisher.second_place(), finisher.step());
            finisher.done(y, n);
        }
    }
};

// Whether what a call takes is more than there can be, so that sums of sizes do not overflow.
// rows: of the ring for one of the source.
bool beyond_memory(const Call &call, const Window &window, size_t rows = 1);

// make (sheet, window, role) gives a pass.
template<class Maker, class Make>
int32_t apply(const Call &given, Recipe recipe, const Make &make) {
    const Window &window = recipe.window;
    if (beyond_memory(given, window)) return KIPX_ENOMEM;
    Call call = given;
    Lie lie = how_they_lie(call, window);
    recipe.in_place = lie == Lie::in_place;
    recipe.over_source = recipe.in_place && !recipe.finish.loop;
    bool late = recipe.border != Border::constant && recipe.border != Border::replicate;
    bool copies = lie == Lie::across || (lie == Lie::in_place && late);
    Packed packed = packed_source(call, window);
    if (copies) call.src[0] = packed.operand;
    const Sheet first = sheet(call, 0);
    size_t bytes = first.bytes(), tile = lie == Lie::apart ? recipe.tile : 0;
    if (tile == 0 || tile > bytes) tile = bytes;

    auto each_tile = [&](const Sheet &s, auto &&f) {
        for (size_t from = 0, end = 0; end < bytes; from = end) {
            end = bytes - from < 2 * tile ? bytes : from + tile;
            Tile<Maker, Make> t(make, tile_of(s, from, end), tile_of(recipe, s, from, end));
            f(t);
        }
    };
    // What is one tile is made once for all sheets.
    std::optional<Tile<Maker, Make>> only;
    size_t need = 0;
    if (bytes < 2 * tile)
        need = only.emplace(make, first, recipe).scratch();
    else
        each_tile(first, [&](const auto &t) { need = std::max(need, t.scratch()); });
    need = (need + 63) / 64 * 64;
    char *scratch =
        static_cast<char *>(KipxXEalloca(call.xe, need + (copies ? packed.bytes : 0), 64));
    if (!scratch) return KIPX_ENOMEM;
    if (copies) {
        call.src[0].at = scratch + need + packed.first;
        copy_source(given, window, call.src[0]);
    }
    for (uint32_t i = 0; i < sheet_count(call); ++i) {
        if (!only) {
            each_tile(sheet(call, i), [&](auto &t) { t.work(scratch); });
            continue;
        }
        if (i > 0 || copies) only->sheet = sheet(call, i);
        only->work(scratch);
    }
    KipxXEfreea(call.xe, scratch);
    return 0;
}

} // namespace kipx
