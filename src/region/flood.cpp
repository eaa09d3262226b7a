// region/flood.cpp - the standard flood.
//
// The pixel in hand looks at its neighbours in a fixed order. One that is not below its level joins
// the boundary; one that is lower sends the pixel itself back there, to be resumed at the next
// neighbour, and becomes the pixel in hand with a component of its own on the component stack. A
// pixel whose neighbours have all been seen belongs to the component on top. When the next pixel of
// the boundary is higher than that component, the stack is worked off up to the pixel's level.
//
// Levels fall strictly towards the top of the component stack. Its bottom is a region that stands
// for nothing, higher than every level, so that there is always a second entry to look at.
#include "region/flood.h"

#include <algorithm>
#include <cstring>

#include "region/chain.h"
#include "region/counted_flood.h"
#include "region/flood_state.h"
#include "region/level_stacks.h"
#include "region/road.h"
#include "region/wts_regions.h"

namespace kipx {
namespace {

class StandardFlood {
public:
    StandardFlood(const FloodImage &image, KipxWatershedContext *context, FloodScratch &scratch)
        : image_(image), builder_(context->builder), levelset_(context->levelset),
          context_(context), scratch_(scratch), slots_(scratch.slots) {}
    int32_t run(uint64_t flags, const uint32_t levels[level_count]);

private:
    struct Pixel {
        uint32_t index, row, column, level;
        const uint8_t *at;
    };
    Pixel pixel_at(uint32_t row, uint32_t column) const;
    void make_edges();
    template<uint32_t edges> bool flood_part(Pixel p);
    bool flood(uint32_t highest);

    void push(Entry e);
    void open(const Pixel &p);
    bool take(uint32_t row, uint32_t column);
    bool raise(const Pixel &p);
    bool absorb(Entry &outer, Entry inner);
    bool make_region(Entry &entry);
    bool end_part(uint32_t first_seed);
    bool end(bool joined, uint32_t highest);
    void abandon();

    KipxWTSregion *new_region(uint32_t pixel, int32_t level);
    void give(KipxWTSregion *region, const uint32_t *pairs, uint32_t count) {
        ops_->update2D(builder_, levelset_, region, pairs, count);
    }
    void give(KipxWTSregion *region, const Component *c) {
        if (c->count > 0) give(region, c->pairs, c->count);
    }
    void merge(KipxWTSregion *parent, KipxWTSregion *child) {
        ops_->merge(builder_, levelset_, parent, child);
    }
    Component *take_record() { return free_[--free_count_]; }
    void return_record(Component *c) { free_[free_count_++] = c; }

    const FloodImage &image_;
    KipxSTB *builder_;
    KipxWTSLSC *levelset_;
    KipxWatershedContext *context_;
    FloodScratch &scratch_;
    const KipxWTSIF *ops_ = nullptr;
    uint32_t slots_; // of the entry stack
    uint32_t count_ = 0;
    uint32_t free_count_ = 0;
    ReachedMask reached_;
    Edge edge_[8];
    Component *free_[level_count];
    LevelStacks<Waiting> boundary_;
};

StandardFlood::Pixel StandardFlood::pixel_at(uint32_t row, uint32_t column) const {
    const uint8_t *at = image_.source.row_at(row) + column * image_.source.pixel;
    return {row * image_.width + column, row, column, image_.level_of(*at), at};
}

void StandardFlood::make_edges() {
    constexpr int8_t four[4][2] = {{0, 1}, {1, 0}, {0, -1}, {-1, 0}};
    constexpr int8_t all[8][2] = {{0, 1},  {1, 1},   {1, 0},  {1, -1},
                                  {0, -1}, {-1, -1}, {-1, 0}, {-1, 1}};
    for (uint32_t e = 0; e < (image_.eight ? 8u : 4u); ++e) {
        const int8_t *d = image_.eight ? all[e] : four[e];
        edge_[e] = {d[0] * static_cast<int32_t>(image_.width) + d[1], d[0], d[1],
                    d[0] * static_cast<int64_t>(image_.source.row) +
                        d[1] * static_cast<int64_t>(image_.source.pixel)};
    }
}

// A push that finds no room is dropped; the flood then goes on with the entry below.
void StandardFlood::push(Entry e) {
    if (count_ == slots_) {
        uint32_t wanted = slots_ ? 2 * slots_ : 2;
        void *grown = _ZuMrealloc(scratch_.entries, wanted * sizeof(Entry));
        if (!grown) {
            if (e.is_buffered()) return_record(e.component);
            return;
        }
        scratch_.entries = static_cast<Entry *>(grown);
        slots_ = wanted;
    }
    scratch_.entries[count_++] = e;
}

void StandardFlood::open(const Pixel &p) {
    if (free_count_ == 0) return; // possible only after a dropped push
    Component *c = take_record();
    c->pixel = p.index;
    c->level = static_cast<int32_t>(p.level);
    c->count = 0;
    push({c, nullptr});
}

KipxWTSregion *StandardFlood::new_region(uint32_t pixel, int32_t level) {
    KipxWTSregion *region = ops_->newregion(nullptr, builder_, levelset_, nullptr);
    if (region) {
        region->pixel = pixel;
        region->level = level;
    }
    return region;
}

// A buffered component becomes a region that has its pixels.
bool StandardFlood::make_region(Entry &entry) {
    Component *c = entry.component;
    KipxWTSregion *region = new_region(c->pixel, c->level);
    if (!region) return false;
    give(region, c);
    return_record(c);
    entry = {nullptr, region};
    return true;
}

// The pixel belongs to the component on top.
bool StandardFlood::take(uint32_t row, uint32_t column) {
    Entry &top = scratch_.entries[count_ - 1];
    if (!top.is_buffered()) {
        const uint32_t pair[2] = {row, column};
        give(top.region, pair, 1);
        return true;
    }
    Component *c = top.component;
    c->pairs[2 * c->count] = row;
    c->pairs[2 * c->count + 1] = column;
    return ++c->count < buffered || make_region(top);
}

// The inner component ends in the one around it.
bool StandardFlood::absorb(Entry &outer, Entry inner) {
    if (!inner.is_buffered()) {
        if (outer.is_buffered() && !make_region(outer)) return false;
        merge(outer.region, inner.region);
        return true;
    }
    Component *i = inner.component, *o = outer.component;
    if (outer.is_buffered() && o->count + i->count < buffered) {
        std::memcpy(o->pairs + 2 * o->count, i->pairs, 2 * i->count * sizeof(uint32_t));
        o->count += i->count;
    } else {
        if (outer.is_buffered() && !make_region(outer)) return false;
        give(outer.region, i);
    }
    return_record(i);
    return true;
}

// Works the component stack off for the level of the next pixel.
bool StandardFlood::raise(const Pixel &p) {
    int32_t level = static_cast<int32_t>(p.level);
    while (count_ > 1) {
        Entry &top = scratch_.entries[count_ - 1];
        if (scratch_.entries[count_ - 2].level() > level) {
            if (top.is_buffered()) {
                top.component->pixel = p.index;
                top.component->level = level;
                return true;
            }
            KipxWTSregion *raised = new_region(p.index, level);
            if (!raised) return false;
            merge(raised, top.region);
            top.region = raised;
            return true;
        }
        if (!absorb(scratch_.entries[count_ - 2], top)) return false;
        if (scratch_.entries[--count_ - 1].level() >= level) break;
    }
    return true;
}

template<uint32_t edges> bool StandardFlood::flood_part(Pixel p) {
    uint32_t edge = 0;
    reached_.set(p.index);
    open(p);
    for (;;) {
        for (; edge < edges; ++edge) {
            const Edge &d = edge_[edge];
            int64_t index = int64_t{p.index} + d.index;
            if (reached_.test(index)) continue;
            uint32_t column = p.column + static_cast<uint32_t>(d.column);
            if (column >= image_.width) continue;
            reached_.set(index);
            const uint8_t *at = p.at + d.address;
            uint32_t level = *at ^ image_.invert, row = p.row + static_cast<uint32_t>(d.row);
            if (level >= p.level) {
                boundary_.push(level, Waiting::of(static_cast<uint32_t>(index), 0, row, column));
                continue;
            }
            boundary_.push(p.level, Waiting::of(p.index, edge + 1, p.row, p.column));
            p = {static_cast<uint32_t>(index), row, column, level, at};
            open(p);
            edge = ~0u; // the new pixel's first neighbour is next
        }
        if (!take(p.row, p.column)) return false;
        uint32_t level = p.level;
        if (boundary_.empty(level)) level = boundary_.next_after(level);
        if (level == no_level) return true;
        Waiting w = boundary_.take(level);
        bool higher = level > p.level;
        p = {w.index(), w.row(), w.column(), level,
             image_.source.row_at(w.row()) + w.column() * image_.source.pixel};
        edge = w.edge();
        if (higher && !raise(p)) return false;
    }
}

// A part of a masked image is complete and is not the whole: puts it under the region that joins
// the parts, which is made with the first of them.
bool StandardFlood::end_part(uint32_t first_seed) {
    if (count_ < 2) return true;
    Entry part = scratch_.entries[count_ - 1];
    if (count_ > 2) return --count_, absorb(scratch_.entries[count_ - 1], part);
    KipxWTSregion *join = new_region(first_seed, join_level);
    if (!join) return false;
    scratch_.entries[1] = {nullptr, join};
    return absorb(scratch_.entries[1], part);
}

// What is on top holds every pixel: makes it the root.
bool StandardFlood::end(bool joined, uint32_t highest) {
    if (count_ < 2) return true;
    Entry &top = scratch_.entries[count_ - 1];
    if (top.is_buffered() && !make_region(top)) return false;
    if (joined) top.region->level = static_cast<int32_t>(highest);
    __KipxSTBrootnode(builder_, top.region->node);
    return true;
}

// Parts one after the other, the one with the seed first.
bool StandardFlood::flood(uint32_t highest) {
    Pixel seed = pixel_at(image_.seed_row, image_.seed_column);
    uint32_t first_seed = seed.index;
    uint64_t at = 0;
    for (bool joined = false;; joined = true) {
        if (!(image_.eight ? flood_part<8>(seed) : flood_part<4>(seed))) return false;
        at = image_.mask.at ? next_pixel(image_, at,
                                         [this](uint32_t y, uint32_t x) {
                                             return !reached_.test(int64_t{y} * image_.width + x);
                                         })
                            : image_.pixels();
        bool last = at == image_.pixels();
        if ((joined || !last) && !end_part(first_seed)) return false;
        if (last) return end(joined, highest);
        seed = pixel_at(static_cast<uint32_t>(at / image_.width),
                        static_cast<uint32_t>(at % image_.width));
    }
}

// The builder cannot make a region. What the stack holds is in no tree; what has been made goes back to
// the storage, so that the next flood finds room.
void StandardFlood::abandon() {
    while (count_ > 0) {
        Entry e = scratch_.entries[--count_];
        if (!e.is_buffered() && ops_->dispose) ops_->dispose(builder_, levelset_, e.region);
    }
    __KipxSTBrootnode(builder_, nullptr);
    KipxSTBclear(builder_, 1);
}

bool complete(const KipxWTSIF *ops) { return ops && ops->newregion && ops->update2D && ops->merge; }

int32_t StandardFlood::run(uint64_t flags, const uint32_t levels[level_count]) {
    uint32_t highest = level_count - 1;
    while (highest > 0 && levels[highest] == 0) --highest;
    reached_.prepare(scratch_.mask, image_);
    boundary_.carve(scratch_.boundary, levels);
    for (uint32_t i = slots_; i > 0; --i) return_record(scratch_.pool + i - 1);
    make_edges();

    ops_ = wtsl_of(builder_);
    if (ops_->configure) {
        int32_t code = ops_->configure(builder_, levelset_, flags, levelset_->descriptors);
        if (code < 0) return code;
        ops_ = wtsl_of(builder_); // the builder may have taken another chain
        if (!complete(ops_)) return KIPX_EINVAL;
    }
    KipxWTSregion *bottom = new_region(~0u, bottom_level);
    if (!bottom) return KIPX_ENOMEM;
    scratch_.entries[count_++] = {nullptr, bottom};
    if (!flood(highest)) {
        abandon();
        return KIPX_ENOMEM;
    }
    uint32_t entries = count_;
    if (ops_->destroyfeatures) ops_->destroyfeatures(builder_, levelset_, bottom);
    return ops_->finish ? ops_->finish(builder_, levelset_, &context_->output, entries) : 0;
}

// Takes everything in turn; what could be taken is there on return.
bool take_scratch(KipxXE *xe, const FloodImage &image, FloodScratch &s) {
    uint64_t n = image.pixels(), mask = ReachedMask::size(image);
    s.slots = static_cast<uint32_t>(std::min<uint64_t>(n, level_count));
    s.mask = mask <= sizeof s.small ? s.small : static_cast<uint8_t *>(KipxXEalloca(xe, mask, 8));
    if (!s.mask) return false;
    s.boundary = static_cast<Waiting *>(KipxXEalloca(xe, n * sizeof(Waiting), 8));
    if (!s.boundary) return false;
    s.entries = static_cast<Entry *>(_ZuMrealloc(nullptr, s.slots * sizeof(Entry)));
    if (!s.entries) return false;
    s.pool = static_cast<Component *>(_ZuMcalloc(s.slots, sizeof(Component)));
    return s.pool != nullptr;
}

void give_back(KipxXE *xe, FloodScratch &s) {
    _ZuMfree(s.pool);
    _ZuMfree(s.entries);
    KipxXEfreea(xe, s.boundary);
    if (s.mask != s.small) KipxXEfreea(xe, s.mask);
}

} // namespace

int32_t standard_flood(KipxXE *xe, uint64_t flags, const FloodImage &image,
                       KipxWatershedContext *context) {
    if (!complete(wtsl_of(context->builder))) return KIPX_EINVAL;
    if (announce(context->levelset, image) < 0) return KIPX_EINVAL;
    if (only_counts(context->builder, *context->levelset))
        return counted_flood(xe, flags, image, context);
    uint32_t values[level_count], levels[level_count];
    count_values(image, values);
    values_to_levels(image, values, levels);
    FloodScratch scratch{};
    int32_t code = KIPX_ENOMEM;
    if (take_scratch(xe, image, scratch)) {
        StandardFlood flood(image, context, scratch);
        code = flood.run(flags, levels);
    }
    give_back(xe, scratch);
    return code;
}

} // namespace kipx
