// region/block_flood.h - the fast flood of one block: its pixels in an order in which components are
// runs, and the components as they become complete.
//
// Gives    BlockFlood, to be run from a seed in each part of the block.
// Promises the pixels of a component are a run of the order, and components are reported inner ones
//          first: a component is reported after all that lie in its run. Both depend on the cells,
//          the manner and the seeds alone.
// Costs    every pixel is visited once, and once more for each further step down from it (stacks: 1.3
//          visits a pixel on noise) or for each further neighbour below it (queues: 1.01). The boundary
//          takes an entry a pixel.
// Owner    cells, boundary and order are the caller's; all cells are `reached` afterwards.
//
// The algorithm. Pixels waiting at the boundary lie in one list a level. The pixel in hand looks at
// its neighbours. If one of them is lower, a component is opened and the flood goes on at the lowest.
// Otherwise the pixel is done: it is numbered, its unreached neighbours have joined the boundary, and
// the next pixel is one of those waiting in the level in hand, or in the next level that has any;
// then everything below that level is complete: the open components, whose levels fall towards the
// top of their stack, are closed up to it.
//
// As long as a component is open every new number belongs to it or to something that it will
// enclose: a component is the run from the number of done pixels when it was opened to that when it
// is closed.
//
// Manners. Stacks: a branch for each neighbour; a pixel with a lower neighbour waits on top of its stack
// and looks again. Best where most neighbours are far from each other, for the stacks' tops stay in
// the cache. Runs: the same, but the newest pixel of the level in hand does not go through memory.
// Best where neighbours look alike, and branches are foreseen. Queues: every neighbour is marked and
// put into the queue that its cell names, reached ones into one that nobody reads, and a pixel with one
// lower neighbour is done at once. With several lower ones it stays the first of its queue, and all
// but the lowest stay unreached, for no two of them need belong together. The queue's next pixel is
// read before this one's neighbours join, so that it need not wait for their stores.
//
// Rules. FreeOrder: as above; the pixels are numbered. FixedOrder is the order of the standard flood:
// neighbours are asked and join one after the other, clockwise from the right; the flood goes on at
// the first that is lower; of a level the newest pixel is taken. A pixel that looks again finds that
// those it asked before are reached. Done pixels are only counted. Stacks and runs keep either rule.
#pragma once

#include <algorithm>
#include <cstddef>
#include <utility>

#include "region/cells.h"
#include "region/components.h"
#include "region/level_queues.h"

namespace kipx {

enum class Manner { stacks, runs, queues };

// Steps to the neighbours: what joins last comes first.
struct FreeOrder {
    static constexpr bool fixed = false;
    static constexpr auto steps(uint32_t edges) { return edges == 4 ? four : eight; }
    static constexpr int8_t four[4][2] = {{0, 1}, {0, -1}, {1, 0}, {-1, 0}};
    static constexpr int8_t eight[8][2] = {{0, 1}, {0, -1}, {1, 0},  {-1, 0},
                                           {1, 1}, {1, -1}, {-1, 1}, {-1, -1}};
};
struct FixedOrder {
    static constexpr bool fixed = true;
    static constexpr auto steps(uint32_t edges) { return edges == 4 ? four : eight; }
    static constexpr int8_t four[4][2] = {{-1, 0}, {0, -1}, {1, 0}, {0, 1}};
    static constexpr int8_t eight[8][2] = {{-1, 1}, {-1, 0}, {-1, -1}, {0, -1},
                                           {1, -1}, {1, 0},  {1, 1},   {0, 1}};
};

// Sink: as in components.h, and bool keeps (start, end), whether a component that is this run is to be
// reported.
template<class Cell, class Index, class Sink, class Rule = FreeOrder> class BlockFlood {
public:
    // order: room for all pixels, or null where they are counted. memory: queue_slots (pixels) for the
    // boundary. Queues are for a free order, four neighbours and cells of one byte; others get stacks.
    BlockFlood(const Block<Cell> &block, const CellCounts &counts, Manner manner, Index *memory,
               Index *order, Sink &sink)
        : block_(block), order_(order), sink_(sink), manner_(manner) {
        queues_.carve(memory, counts.of);
        open_[0] = {reached<Cell>, 0, 0};
    }

    // Floods the part around a cell that is not reached. False when the sink has ended it.
    bool flood(uint32_t seed, bool eight) {
        if (manner_ == Manner::runs) return eight ? branch<8, true>(seed) : branch<4, true>(seed);
        if constexpr (sizeof(Cell) == 1 && !Rule::fixed)
            if (manner_ == Manner::queues && !eight) return mark(seed);
        return eight ? branch<8, false>(seed) : branch<4, false>(seed);
    }
    // Ends the part; its outermost component may be wanted however small.
    bool end(bool wanted);
    uint32_t done() const { return done_; }

private:
    static constexpr uint32_t none = ~UINT32_C(0); // no pixel
    // A component whose pixels are still coming in.
    struct Open {
        uint32_t level;
        uint32_t start; // done pixels when it was opened
        uint32_t at;    // and when it came to its level; fixed order: the pixel then in hand
    };
    template<uint32_t edges, bool runs> bool branch(uint32_t seed);
    template<uint32_t edges>
    uint32_t ask(uint32_t pixel, uint32_t level, const uint32_t (&near)[edges]);
    bool mark(uint32_t seed);
    static constexpr uint32_t marked = 4; // neighbours, where they are marked
    struct Near {
        Cell of[marked]; // levels of the neighbours, in the order of the steps
    };
    bool descend(uint32_t pixel, uint32_t level, uint32_t lowest, Near near);
    template<uint32_t edges> struct Steps { ptrdiff_t to[edges]; };
    template<uint32_t edges> Steps<edges> steps() const {
        const ptrdiff_t stride = block_.stride;
        Steps<edges> s{};
        for (uint32_t e = 0; e < edges; ++e) {
            const int8_t *by = Rule::steps(edges)[e];
            s.to[e] = by[0] * stride + by[1];
        }
        return s;
    }
    // A pixel that is on no stack joins the boundary.
    void wait(uint32_t level, uint32_t pixel) {
        queues_.push(level, pixel);
        queues_.note(level);
    }
    uint32_t at(uint32_t pixel) const { return Rule::fixed ? pixel : done_; }
    void open(uint32_t level, uint32_t pixel) { open_[++top_] = {level, done_, at(pixel)}; }
    bool report(const Open &c) {
        return sink_.close(c.level, c.start, done_, Rule::fixed ? c.at : order_[c.at]);
    }
    [[gnu::always_inline]] bool raise(uint32_t level, uint32_t pixel);

    const Block<Cell> block_;
    Index *const order_;
    Sink &sink_;
    const Manner manner_;
    uint32_t done_ = 0;
    uint32_t top_ = 0;
    LevelQueues<Index, reached<Cell>> queues_;
    Open open_[level_count + 1]; // the first lies under everything
};

// Closes what is complete below `level`, which the next pixel has. The component on top either becomes
// one of that level, or ends in the one under it. A busy image comes here with every other pixel.
template<class Cell, class Index, class Sink, class Rule>
inline bool BlockFlood<Cell, Index, Sink, Rule>::raise(uint32_t level, uint32_t pixel) {
    do {
        Open &top = open_[top_];
        if (sink_.keeps(top.start, done_) && !report(top)) return false;
        if (open_[top_ - 1].level > level) {
            top = {level, top.start, at(pixel)};
            return true;
        }
        --top_;
    } while (open_[top_].level < level);
    return true;
}

// Nothing waits any more: what is open is complete.
template<class Cell, class Index, class Sink, class Rule>
bool BlockFlood<Cell, Index, Sink, Rule>::end(bool wanted) {
    for (; top_ > 0; --top_)
        if ((sink_.keeps(open_[top_].start, done_) || (wanted && top_ == 1)) &&
            !report(open_[top_]))
            return false;
    return true;
}

// The neighbours of a pixel some of which are lower: all join the boundary but for the lower ones, of
// which the first of the lowest joins. Whether that was all of them, and the pixel is done.
template<class Cell, class Index, class Sink, class Rule>
[[gnu::noinline]] bool BlockFlood<Cell, Index, Sink, Rule>::descend(uint32_t pixel, uint32_t level,
                                                                    uint32_t lowest, Near near) {
    const auto [step] = steps<marked>();
    uint32_t left = 0;
    bool found = false;
    for (uint32_t e = 0; e < marked; ++e) {
        const bool first = near.of[e] == lowest && !found;
        found |= first;
        if (near.of[e] < level && !first) {
            ++left;
            continue;
        }
        block_.at[pixel + step[e]] = static_cast<Cell>(reached<Cell>);
        queues_.push(near.of[e], pixel + static_cast<uint32_t>(step[e]));
    }
    queues_.forget_lost();
    return left == 0;
}

// Fixed order: the neighbours of a pixel join one after the other up to the first lower one, which is told
// as level * 8 + its number.
template<class Cell, class Index, class Sink, class Rule>
template<uint32_t edges>
[[gnu::always_inline]] inline uint32_t
BlockFlood<Cell, Index, Sink, Rule>::ask(uint32_t pixel, uint32_t level,
                                         const uint32_t (&near)[edges]) {
    const auto [step] = steps<edges>();
    for (uint32_t e = edges;;) {
        if (near[--e] < level) return near[e] << 3 | e;
        if (near[e] == reached<Cell>) continue;
        uint32_t joins = pixel + static_cast<uint32_t>(step[e]);
        block_.at[joins] = static_cast<Cell>(reached<Cell>);
        wait(near[e], joins);
    }
}

template<class Cell, class Index, class Sink, class Rule>
template<uint32_t edges, bool runs>
bool BlockFlood<Cell, Index, Sink, Rule>::branch(uint32_t seed) {
    const auto [step] = steps<edges>();
    constexpr Cell mark = static_cast<Cell>(reached<Cell>);
    Cell *const cells = block_.at;
    uint32_t pixel = seed, level = cells[pixel];
    cells[pixel] = mark;
    open(level, pixel);
    Index *const order = order_;
    uint32_t done = done_;
    for (;;) {
        // The lowest neighbour, the first of several; reached ones are above every level.
        uint32_t near[edges], lowest = UINT32_MAX;
        for (uint32_t e = 0; e < edges; ++e) {
            near[e] = cells[pixel + step[e]];
            uint32_t key = near[e] << 3 | e;
            lowest = key < lowest ? key : lowest;
        }
        if (lowest >> 3 < level) {
            if constexpr (Rule::fixed) lowest = ask<edges>(pixel, level, near);
            wait(level, pixel);
            pixel += static_cast<uint32_t>(step[lowest & 7]);
            level = lowest >> 3;
            cells[pixel] = mark;
            done_ = done;
            open(level, pixel);
            continue;
        }
        // What joins last is taken first: along the row. A run takes it at once.
        uint32_t newest = none;
        for (uint32_t e = edges; e-- > 0;) {
            if (near[e] == reached<Cell>) continue;
            uint32_t joins = pixel + static_cast<uint32_t>(step[e]);
            cells[joins] = mark;
            if constexpr (runs) {
                if (near[e] == level) std::swap(joins, newest);
                if (joins == none) continue;
            }
            wait(near[e], joins);
        }
        if constexpr (!Rule::fixed) order[done] = static_cast<Index>(pixel);
        ++done;
        if (newest != none) {
            pixel = newest;
            continue;
        }
        if (queues_.empty(level)) {
            done_ = done;
            level = queues_.next_noted_after(level);
            if (level == reached<Cell>) return true;
            pixel = queues_.take(level);
            if (!raise(level, pixel)) return false;
            continue;
        }
        pixel = queues_.take(level);
    }
}

template<class Cell, class Index, class Sink, class Rule>
bool BlockFlood<Cell, Index, Sink, Rule>::mark(uint32_t seed) {
    constexpr Cell mark = static_cast<Cell>(reached<Cell>);
    // As few values as can be are kept over a turn, for what finds no register is stored with every
    // pixel. What happens below the level in hand is told to a function of its own for that reason.
    Cell *const cells = block_.at;
    const ptrdiff_t stride = block_.stride;
    uint32_t level = cells[seed];
    cells[seed] = mark;
    open(level, seed);
    queues_.push(level, seed);
    Index *next = queues_.head[level];
    Index *done = order_ + done_;
    uint32_t pixel = *next++;
    for (;;) {
        const bool more = next != queues_.tail[level];
        const Index early = *next;
        *done = static_cast<Index>(pixel);
        Cell *const right = cells + pixel + 1, *const left = cells + pixel - 1;
        Cell *const below = cells + pixel + stride, *const above = cells + pixel - stride;
        const Near near{{*right, *left, *below, *above}};
        const Cell lowest = std::min(std::min(*right, *left), std::min(*below, *above));
        if (lowest < level) [[unlikely]] {
            const bool all = descend(pixel, level, lowest, near);
            done += all;
            queues_.head[level] = next - !all;
            level = lowest;
            next = queues_.head[level];
            pixel = *next++;
            done_ = static_cast<uint32_t>(done - order_);
            open(lowest, pixel);
            continue;
        }
        *right = *left = *below = *above = mark;
        queues_.push(near.of[0], pixel + 1);
        queues_.push(near.of[1], pixel - 1);
        queues_.push(near.of[2], pixel + static_cast<uint32_t>(stride));
        queues_.push(near.of[3], pixel - static_cast<uint32_t>(stride));
        queues_.forget_lost();
        ++done;
        if (more) {
            pixel = early;
            ++next;
        } else if (next != queues_.tail[level]) {
            pixel = *next++;
        } else {
            queues_.head[level] = next;
            done_ = static_cast<uint32_t>(done - order_);
            level = queues_.next_after(level);
            if (level == reached<Cell>) return true;
            next = queues_.head[level];
            pixel = *next++;
            if (!raise(level, pixel)) return false;
        }
    }
}

} // namespace kipx
